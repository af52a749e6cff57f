#include "veldirhelper.h"
#include "korutilitesbtracedef.h"
#include "veldirbasics.h"
#include "veldirhelperimpl.h"
#include "velfilebasics.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

CVeLDirHelper::CVeLDirHelper(fs::path path, bool flag)
    : m_impl(new CVeLDirHelperImpl(std::make_shared<CVeLWinAPIWrapper>(), std::make_shared<CVeLDirBasics>(),
                                   std::make_shared<CVeLFileBasics>(), std::move(path), flag))
{
}

CVeLDirHelper::CVeLDirHelper(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLDirBasics> dirBasics,
                             std::shared_ptr<IVeLFileBasics> fileBasics, fs::path path, bool flag)
    : m_impl(new CVeLDirHelperImpl(std::move(api), std::move(dirBasics), std::move(fileBasics),
                                   std::move(path), flag))
{
}

CVeLDirHelper::~CVeLDirHelper() {}

fs::path CVeLDirHelper::GetPath()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return fs::path();
    }
    return m_impl->GetPath();
}

bool CVeLDirHelper::Create(bool networkPath) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Create(networkPath);
}

CVeLResult<CVeLFilesystemError> CVeLDirHelper::Remove()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return CVeLResult<CVeLFilesystemError>();
    }
    return m_impl->Remove();
}

CVeLResult<CVeLFilesystemError> CVeLDirHelper::RemoveSiblings()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return CVeLResult<CVeLFilesystemError>();
    }
    return m_impl->RemoveSiblings();
}

bool CVeLDirHelper::RemoveSiblingsAndCheck() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->RemoveSiblingsAndCheck();
}

bool CVeLDirHelper::RemoveFileSiblings(const std::wstring& mask, bool recursive) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->RemoveFileSiblings(mask, recursive);
}

bool CVeLDirHelper::Exists() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Exists();
}

bool CVeLDirHelper::IsDirectory() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->IsDirectory();
}

bool CVeLDirHelper::HasSiblings() const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->HasSiblings();
}

bool CVeLDirHelper::Copy(const fs::path& destination, const std::wstring& mask) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Copy(destination, mask);
}

bool CVeLDirHelper::Copy(const fs::path& destination) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->Copy(destination);
}

bool CVeLDirHelper::GetTOC(std::vector<fs::path>& files) const
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->GetTOC(files);
}

bool CVeLDirHelper::GetTOCByRegExp(std::vector<fs::path>& files, const std::wstring& regex, bool recursive)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->GetTOCByRegExp(files, regex, recursive);
}

bool CVeLDirHelper::GetDirListByRegExp(std::vector<fs::path>& directories, const std::wstring& regex,
                                       bool recursive)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return false;
    }
    return m_impl->GetDirListByRegExp(directories, regex, recursive);
}

void CVeLDirHelper::Reset(fs::path path, bool flag)
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return;
    }
    m_impl->Reset(path, flag);
}

std::wstring CVeLDirHelper::ToString()
{
    if (!m_impl)
    {
        VEL_TRACE(VEL_ERR, "Can't access impl!");
        return std::wstring();
    }
    return m_impl->ToString();
}
