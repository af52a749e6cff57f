// CVeLPathHelper: path arithmetic and the well-known folders (program, temporary, per-user and
// machine-wide application data, documents), the same names on every platform; the folders come from the
// facade's known-folder query, temporary-path and module-name operations. Owns its CVeLPathHelperImpl and
// forwards every call to it. Stateless apart from the facade, so any thread may use one instance. Every
// failure is traced at ERR and answered with false or an empty path; nothing throws. Without an
// implementation (a null facade at construction) every call is traced and fails.
#pragma once

#include "ivelpathhelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <memory>

class CVeLPathHelperImpl;

class KORUTILITIES_API CVeLPathHelper : public IVeLPathHelper
{
public:
    CVeLPathHelper();
    explicit CVeLPathHelper(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLPathHelper() override;
    CVeLPathHelper(const CVeLPathHelper&) = delete;
    CVeLPathHelper& operator=(const CVeLPathHelper&) = delete;

    bool Join(const boost::filesystem::path& base, const boost::filesystem::path& relative,
              boost::filesystem::path& result) const override;
    boost::filesystem::path Normalize(const boost::filesystem::path& path) const override;
    bool MakeRelative(const boost::filesystem::path& target, const boost::filesystem::path& base,
                      boost::filesystem::path& result) const override;
    bool GetProgramFolder(boost::filesystem::path& folder) const override;
    bool GetTempFolder(boost::filesystem::path& folder) const override;
    bool GetUserAppDataFolder(boost::filesystem::path& folder, bool create) const override;
    bool GetLocalAppDataFolder(boost::filesystem::path& folder, bool create) const override;
    bool GetMachineAppDataFolder(boost::filesystem::path& folder) const override;
    bool GetDocumentsFolder(boost::filesystem::path& folder, bool create) const override;

private:
    std::unique_ptr<CVeLPathHelperImpl> m_impl;
};
