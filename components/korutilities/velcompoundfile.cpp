#include "velcompoundfile.h"
#include "korutilitesbtracedef.h"
#include "velcompoundfileimpl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

CVeLCompoundFile::CVeLCompoundFile(std::shared_ptr<IVeLEncryptionHandler> encryption)
    : CVeLCompoundFile(std::make_shared<CVeLWinAPIWrapper>(), std::move(encryption))
{
}

CVeLCompoundFile::CVeLCompoundFile(std::shared_ptr<IVeLWinAPIWrapper> api,
                                   std::shared_ptr<IVeLEncryptionHandler> encryption)
    : m_impl(new CVeLCompoundFileImpl(std::move(api), std::move(encryption)))
{
}

CVeLCompoundFile::~CVeLCompoundFile() = default;

bool CVeLCompoundFile::Create(const boost::filesystem::path& file)
{
    return VEL_FORWARD(m_impl, Create(file));
}

bool CVeLCompoundFile::Open(const boost::filesystem::path& file, bool writable)
{
    return VEL_FORWARD(m_impl, Open(file, writable));
}

bool CVeLCompoundFile::Close()
{
    return VEL_FORWARD(m_impl, Close());
}

bool CVeLCompoundFile::IsOpen() const
{
    return VEL_FORWARD(m_impl, IsOpen());
}

bool CVeLCompoundFile::Commit()
{
    return VEL_FORWARD(m_impl, Commit());
}

bool CVeLCompoundFile::WriteStream(const std::wstring& path, const CVeLByteArray& data, bool encrypt)
{
    return VEL_FORWARD(m_impl, WriteStream(path, data, encrypt));
}

CVeLResult<CVeLByteArray> CVeLCompoundFile::ReadStream(const std::wstring& path, bool decrypt) const
{
    return VEL_FORWARD(m_impl, ReadStream(path, decrypt));
}

bool CVeLCompoundFile::ListElements(std::vector<CVeLCompoundEntry>& entries) const
{
    return VEL_FORWARD(m_impl, ListElements(entries));
}

bool CVeLCompoundFile::DeleteElement(const std::wstring& path)
{
    return VEL_FORWARD(m_impl, DeleteElement(path));
}
