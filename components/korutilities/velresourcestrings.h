// CVeLResourceStrings: reads texts from the string table of a module through the facade's LoadString. A
// module is either a Windows executable or DLL file, which the object opens as a data file (never run) for
// its whole life and frees when destroyed, or a module handle the caller loaded and keeps alive (not freed
// here; null stands for the program itself). On Linux win32posix reads the table out of the PE file, and a
// Linux shared object or program has no string table, so every read from one fails cleanly. Owns its
// CVeLResourceStringsImpl and forwards every call to it; reads do not change the object, so any thread may
// read from one instance. Not copyable.
//
// Every failure is traced at ERR and answered with false: a file that is missing or no executable, a
// module without a string table or without that string (with the Win32 code). Nothing throws. Without an
// implementation (a null facade at construction) every call traces "Can't access impl!".
#pragma once

#include "ivelresourcestrings.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <boost/filesystem/path.hpp>
#include <memory>

class CVeLResourceStringsImpl;

class KORUTILITIES_API CVeLResourceStrings : public IVeLResourceStrings
{
public:
    explicit CVeLResourceStrings(const boost::filesystem::path& file);
    CVeLResourceStrings(std::shared_ptr<IVeLWinAPIWrapper> api, const boost::filesystem::path& file);
    CVeLResourceStrings(std::shared_ptr<IVeLWinAPIWrapper> api, HMODULE module);
    ~CVeLResourceStrings() override;
    CVeLResourceStrings(const CVeLResourceStrings&) = delete;
    CVeLResourceStrings& operator=(const CVeLResourceStrings&) = delete;

    bool IsOpen() const override;
    bool GetString(unsigned int id, std::wstring& text) const override;

private:
    std::unique_ptr<CVeLResourceStringsImpl> m_impl;
};
