#include "velcompoundfile.h"
#include "korutilitesbtracedef.h"
#include "velcompoundfileimpl.h"
#include "velwinapiwrapper.h"

// One line per forward; a missing implementation is traced.
#define VEL_CFB_FORWARD(failure, call)                                                                       \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call

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
    VEL_CFB_FORWARD(false, Create(file));
}

bool CVeLCompoundFile::Open(const boost::filesystem::path& file, bool writable)
{
    VEL_CFB_FORWARD(false, Open(file, writable));
}

bool CVeLCompoundFile::Close()
{
    VEL_CFB_FORWARD(false, Close());
}

bool CVeLCompoundFile::IsOpen() const
{
    VEL_CFB_FORWARD(false, IsOpen());
}

bool CVeLCompoundFile::Commit()
{
    VEL_CFB_FORWARD(false, Commit());
}

bool CVeLCompoundFile::WriteStream(const std::wstring& path, const CVeLByteArray& data, bool encrypt)
{
    VEL_CFB_FORWARD(false, WriteStream(path, data, encrypt));
}

CVeLResult<CVeLByteArray> CVeLCompoundFile::ReadStream(const std::wstring& path, bool decrypt) const
{
    VEL_CFB_FORWARD(CVeLResult<CVeLByteArray>(), ReadStream(path, decrypt));
}

bool CVeLCompoundFile::ListElements(std::vector<CVeLCompoundEntry>& entries) const
{
    VEL_CFB_FORWARD(false, ListElements(entries));
}

bool CVeLCompoundFile::DeleteElement(const std::wstring& path)
{
    VEL_CFB_FORWARD(false, DeleteElement(path));
}
