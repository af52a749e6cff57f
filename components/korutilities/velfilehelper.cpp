#include "velfilehelper.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velfilebasics.h"
#include "velfilehelperimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

CVeLFileHelper::CVeLFileHelper(fs::path path, bool flag)
    : m_impl(new CVeLFileHelperImpl(std::make_shared<CVeLWinAPIWrapper>(), std::make_shared<CVeLFileBasics>(),
                                    std::move(path), flag))
{
}

CVeLFileHelper::CVeLFileHelper(std::shared_ptr<IVeLWinAPIWrapper> api,
                               std::shared_ptr<IVeLFileBasics> fileBasics, fs::path path, bool flag)
    : m_impl(new CVeLFileHelperImpl(std::move(api), std::move(fileBasics), std::move(path), flag))
{
}

CVeLFileHelper::~CVeLFileHelper() {}

fs::path CVeLFileHelper::GetPath()
{
    return VEL_FORWARD(m_impl, GetPath());
}

fs::path CVeLFileHelper::GetDirPath()
{
    return VEL_FORWARD(m_impl, GetDirPath());
}

ULONG CVeLFileHelper::GetSize() const
{
    return VEL_FORWARD(m_impl, GetSize());
}

bool CVeLFileHelper::Exists() const
{
    return VEL_FORWARD(m_impl, Exists());
}

bool CVeLFileHelper::Copy(fs::path destination) const
{
    return VEL_FORWARD(m_impl, Copy(destination));
}

bool CVeLFileHelper::Rename(fs::path newPath)
{
    return VEL_FORWARD(m_impl, Rename(newPath));
}

bool CVeLFileHelper::Create() const
{
    return VEL_FORWARD(m_impl, Create());
}

bool CVeLFileHelper::Remove() const
{
    return VEL_FORWARD(m_impl, Remove());
}

bool CVeLFileHelper::Deflate() const
{
    return VEL_FORWARD(m_impl, Deflate());
}

bool CVeLFileHelper::WriteContent(const unsigned char* content, ULONG length)
{
    return VEL_FORWARD(m_impl, WriteContent(content, length));
}

bool CVeLFileHelper::WriteContent(const std::wstring& content)
{
    return VEL_FORWARD(m_impl, WriteContent(content));
}

bool CVeLFileHelper::ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const
{
    return VEL_FORWARD(m_impl, ReadContent(buffer, size));
}

bool CVeLFileHelper::ReadContent(std::wstring& content) const
{
    return VEL_FORWARD(m_impl, ReadContent(content));
}

bool CVeLFileHelper::WriteUtf8Content(const std::wstring& content)
{
    return VEL_FORWARD(m_impl, WriteUtf8Content(content));
}

bool CVeLFileHelper::ReadUtf8Content(std::wstring& content) const
{
    return VEL_FORWARD(m_impl, ReadUtf8Content(content));
}

bool CVeLFileHelper::IsWriteable() const
{
    return VEL_FORWARD(m_impl, IsWriteable());
}

bool CVeLFileHelper::IsRegularFile() const
{
    return VEL_FORWARD(m_impl, IsRegularFile());
}

fs::path CVeLFileHelper::GetFileName()
{
    return VEL_FORWARD(m_impl, GetFileName());
}

std::wstring CVeLFileHelper::GetFileNameWithoutExtension()
{
    return VEL_FORWARD(m_impl, GetFileNameWithoutExtension());
}

std::wstring CVeLFileHelper::GetFileExtension()
{
    return VEL_FORWARD(m_impl, GetFileExtension());
}

std::wstring CVeLFileHelper::GetFileExtensionWithoutLeadingDot()
{
    return VEL_FORWARD(m_impl, GetFileExtensionWithoutLeadingDot());
}

void CVeLFileHelper::Reset(fs::path path, bool flag)
{
    VEL_FORWARD(m_impl, Reset(path, flag));
}

std::wstring CVeLFileHelper::ToString()
{
    return VEL_FORWARD(m_impl, ToString());
}

bool CVeLFileHelper::ReplaceContentAtomically(const unsigned char* content, size_t length)
{
    return VEL_FORWARD(m_impl, ReplaceContentAtomically(content, length));
}
