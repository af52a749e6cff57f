// CVeLFileVersion: reads version resources of executable files through the facade's version functions. On
// Windows these are the system's; on Linux win32posix reads the resource section of the PE file itself, so
// a Linux program can check the versions of the Windows binaries it ships or serves (a Linux shared object
// has no version resource and fails cleanly). Owns its CVeLFileVersionImpl and forwards every call to it;
// holds only the facade and reads the file anew on each call, so any thread may use one instance.
//
// Every failure is traced at ERR and answered with false: a missing file, a file without a version resource
// (with the Win32 code), a missing entry. Nothing throws. Without an implementation (a null facade at
// construction) every call traces "Can't access impl!".
#pragma once

#include "ivelfileversion.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <memory>

class CVeLFileVersionImpl;

class KORUTILITIES_API CVeLFileVersion : public IVeLFileVersion
{
public:
    CVeLFileVersion();
    explicit CVeLFileVersion(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLFileVersion() override;
    CVeLFileVersion(const CVeLFileVersion&) = delete;
    CVeLFileVersion& operator=(const CVeLFileVersion&) = delete;

    bool GetFileVersion(const boost::filesystem::path& file, CVeLVersion& version) const override;
    bool GetProductVersion(const boost::filesystem::path& file, CVeLVersion& version) const override;
    bool GetVersionString(const boost::filesystem::path& file, const std::wstring& name,
                          std::wstring& value) const override;

private:
    std::unique_ptr<CVeLFileVersionImpl> m_impl;
};
