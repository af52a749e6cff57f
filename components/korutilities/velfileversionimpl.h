// CVeLFileVersionImpl: the work of CVeLFileVersion, all through the facade (see velfileversion.h). Holds
// the facade only.
#pragma once

#include "ivelfileversion.h"
#include "ivelwinapiwrapper.h"

#include <memory>
#include <vector>

class CVeLFileVersionImpl : public IVeLFileVersion
{
public:
    explicit CVeLFileVersionImpl(std::shared_ptr<IVeLWinAPIWrapper> api);

    bool GetFileVersion(const boost::filesystem::path& file, CVeLVersion& version) const override;
    bool GetProductVersion(const boost::filesystem::path& file, CVeLVersion& version) const override;
    bool GetVersionString(const boost::filesystem::path& file, const std::wstring& name,
                          std::wstring& value) const override;

private:
    bool ReadBlock(const boost::filesystem::path& file, std::vector<BYTE>& block) const;
    bool ReadFixed(const boost::filesystem::path& file, bool product, CVeLVersion& version) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
