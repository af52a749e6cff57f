#include "veldirhelper.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
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
    return VEL_FORWARD(m_impl, GetPath());
}

bool CVeLDirHelper::Create(bool networkPath) const
{
    return VEL_FORWARD(m_impl, Create(networkPath));
}

CVeLResult<CVeLFilesystemError> CVeLDirHelper::Remove()
{
    return VEL_FORWARD(m_impl, Remove());
}

CVeLResult<CVeLFilesystemError> CVeLDirHelper::RemoveSiblings()
{
    return VEL_FORWARD(m_impl, RemoveSiblings());
}

bool CVeLDirHelper::RemoveSiblingsAndCheck() const
{
    return VEL_FORWARD(m_impl, RemoveSiblingsAndCheck());
}

bool CVeLDirHelper::RemoveFileSiblings(const std::wstring& mask, bool recursive) const
{
    return VEL_FORWARD(m_impl, RemoveFileSiblings(mask, recursive));
}

bool CVeLDirHelper::Exists() const
{
    return VEL_FORWARD(m_impl, Exists());
}

bool CVeLDirHelper::IsDirectory() const
{
    return VEL_FORWARD(m_impl, IsDirectory());
}

bool CVeLDirHelper::HasSiblings() const
{
    return VEL_FORWARD(m_impl, HasSiblings());
}

bool CVeLDirHelper::Copy(const fs::path& destination, const std::wstring& mask) const
{
    return VEL_FORWARD(m_impl, Copy(destination, mask));
}

bool CVeLDirHelper::Copy(const fs::path& destination) const
{
    return VEL_FORWARD(m_impl, Copy(destination));
}

bool CVeLDirHelper::GetTOC(std::vector<fs::path>& files) const
{
    return VEL_FORWARD(m_impl, GetTOC(files));
}

bool CVeLDirHelper::GetTOCByRegExp(std::vector<fs::path>& files, const std::wstring& regex, bool recursive)
{
    return VEL_FORWARD(m_impl, GetTOCByRegExp(files, regex, recursive));
}

bool CVeLDirHelper::GetDirListByRegExp(std::vector<fs::path>& directories, const std::wstring& regex,
                                       bool recursive)
{
    return VEL_FORWARD(m_impl, GetDirListByRegExp(directories, regex, recursive));
}

void CVeLDirHelper::Reset(fs::path path, bool flag)
{
    VEL_FORWARD(m_impl, Reset(path, flag));
}

std::wstring CVeLDirHelper::ToString()
{
    return VEL_FORWARD(m_impl, ToString());
}
