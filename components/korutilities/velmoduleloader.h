// CVeLModuleLoader: loads one library through the facade's LoadLibrary, looks functions up in it with
// GetProcAddress and unloads it with FreeLibrary when asked or, at the latest, when it is destroyed. On
// Linux the facade reaches win32posix, which loads shared objects with dlopen and answers "ntdll.dll" with
// its built-in module. Owns its CVeLModuleLoaderImpl and forwards every call to it. Load and Unload must not
// race with other calls on the same object; GetFunction may be called from several threads at once. Every
// failure is traced at ERR and answered with false or a null address; nothing throws. Without an
// implementation (a null facade at construction) every call is traced and fails.
#pragma once

#include "ivelmoduleloader.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLModuleLoaderImpl;

class KORUTILITIES_API CVeLModuleLoader : public IVeLModuleLoader, public CVeLNonCopyable
{
public:
    CVeLModuleLoader();
    explicit CVeLModuleLoader(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLModuleLoader() override;

    bool Load(const std::wstring& nameOrPath) override;
    FARPROC GetFunction(const std::string& functionName) const override;
    bool Unload() override;
    bool IsLoaded() const override;

    // The function as a typed pointer (through void*, as the loader hands out a generic address).
    template <class Function>
    Function GetFunctionAs(const std::string& functionName) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetFunction(functionName)));
    }

private:
    std::unique_ptr<CVeLModuleLoaderImpl> m_impl;
};
