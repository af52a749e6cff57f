#include "velfilehelper.h"
#include "korutilitesbtracedef.h"
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
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return fs::path();
    }
    return m_impl->GetPath();
}

fs::path CVeLFileHelper::GetDirPath()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return fs::path();
    }
    return m_impl->GetDirPath();
}

ULONG CVeLFileHelper::GetSize() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return 0;
    }
    return m_impl->GetSize();
}

bool CVeLFileHelper::Exists() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Exists();
}

bool CVeLFileHelper::Copy(fs::path destination) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Copy(destination);
}

bool CVeLFileHelper::Rename(fs::path newPath)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Rename(newPath);
}

bool CVeLFileHelper::Create() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Create();
}

bool CVeLFileHelper::Remove() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Remove();
}

bool CVeLFileHelper::Deflate() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Deflate();
}

bool CVeLFileHelper::WriteContent(const unsigned char* content, ULONG length)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->WriteContent(content, length);
}

bool CVeLFileHelper::WriteContent(const std::wstring& content)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->WriteContent(content);
}

bool CVeLFileHelper::ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->ReadContent(buffer, size);
}

bool CVeLFileHelper::ReadContent(std::wstring& content) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->ReadContent(content);
}

bool CVeLFileHelper::WriteUtf8Content(const std::wstring& content)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->WriteUtf8Content(content);
}

bool CVeLFileHelper::ReadUtf8Content(std::wstring& content) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->ReadUtf8Content(content);
}

bool CVeLFileHelper::IsWriteable() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->IsWriteable();
}

bool CVeLFileHelper::IsRegularFile() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->IsRegularFile();
}

fs::path CVeLFileHelper::GetFileName()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return fs::path();
    }
    return m_impl->GetFileName();
}

std::wstring CVeLFileHelper::GetFileNameWithoutExtension()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return std::wstring();
    }
    return m_impl->GetFileNameWithoutExtension();
}

std::wstring CVeLFileHelper::GetFileExtension()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return std::wstring();
    }
    return m_impl->GetFileExtension();
}

std::wstring CVeLFileHelper::GetFileExtensionWithoutLeadingDot()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return std::wstring();
    }
    return m_impl->GetFileExtensionWithoutLeadingDot();
}

void CVeLFileHelper::Reset(fs::path path, bool flag)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return;
    }
    m_impl->Reset(path, flag);
}

std::wstring CVeLFileHelper::ToString()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return std::wstring();
    }
    return m_impl->ToString();
}

bool CVeLFileHelper::ReplaceContentAtomically(const unsigned char* content, size_t length)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->ReplaceContentAtomically(content, length);
}
