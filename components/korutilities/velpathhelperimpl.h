// CVeLPathHelperImpl: the work of CVeLPathHelper. Holds the facade only; the path arithmetic is lexical and
// needs no system call. Any thread may use it. Every failure is traced at ERR and answered with false.
#pragma once

#include "ivelpathhelper.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLPathHelperImpl
{
public:
    explicit CVeLPathHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api);

    bool Join(const boost::filesystem::path& base, const boost::filesystem::path& relative,
              boost::filesystem::path& result) const;
    boost::filesystem::path Normalize(const boost::filesystem::path& path) const;
    bool MakeRelative(const boost::filesystem::path& target, const boost::filesystem::path& base,
                      boost::filesystem::path& result) const;
    bool GetProgramFolder(boost::filesystem::path& folder) const;
    bool GetTempFolder(boost::filesystem::path& folder) const;
    bool GetKnownFolder(REFKNOWNFOLDERID id, const char* what, bool create,
                        boost::filesystem::path& folder) const;

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
