// CVeLResourceStringsImpl: the work of CVeLResourceStrings, all through the facade (see
// velresourcestrings.h). Holds the facade, the module and whether it opened the module itself.
#pragma once

#include "ivelresourcestrings.h"
#include "ivelwinapiwrapper.h"

#include <boost/filesystem/path.hpp>
#include <memory>
#include <string>

class CVeLResourceStringsImpl : public IVeLResourceStrings
{
public:
    CVeLResourceStringsImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const boost::filesystem::path& file);
    CVeLResourceStringsImpl(std::shared_ptr<IVeLWinAPIWrapper> api, HMODULE module);
    ~CVeLResourceStringsImpl() override;
    CVeLResourceStringsImpl(const CVeLResourceStringsImpl&) = delete;
    CVeLResourceStringsImpl& operator=(const CVeLResourceStringsImpl&) = delete;

    bool IsOpen() const override;
    bool GetString(unsigned int id, std::wstring& text) const override;

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    HMODULE m_module;
    bool m_owned;       // opened here as a data file, freed on destruction
    bool m_open;        // a module to read from
    std::string m_name; // the file, or "module", for traces
};
