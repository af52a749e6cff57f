// CVeLModuleLoaderImpl: the work of CVeLModuleLoader. Holds the facade and the module handle; the
// destructor unloads a module still held. Every failure is traced at ERR and answered with false or null.
#pragma once

#include "ivelwinapiwrapper.h"

#include <memory>
#include <string>

class CVeLModuleLoaderImpl
{
public:
    explicit CVeLModuleLoaderImpl(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLModuleLoaderImpl();
    CVeLModuleLoaderImpl(const CVeLModuleLoaderImpl&) = delete;
    CVeLModuleLoaderImpl& operator=(const CVeLModuleLoaderImpl&) = delete;

    bool Load(const std::wstring& nameOrPath);
    FARPROC GetFunction(const std::string& functionName) const;
    bool Unload();
    bool IsLoaded() const { return m_module != nullptr; }

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    HMODULE m_module = nullptr; // the loaded library; null when none is held
};
