// IVeLModuleLoader: one loaded library (a DLL on Windows, a shared object on Linux) and the functions found
// in it. The object that loaded the library unloads it.
#pragma once

#include "velwin32.h"

#include <string>

class IVeLModuleLoader
{
public:
    virtual ~IVeLModuleLoader() {}
    // Loads the library by name (searched as the system searches libraries) or by path. Fails when this
    // object already holds one.
    virtual bool Load(const std::wstring& nameOrPath) = 0;
    // The address of the exported function, or null.
    virtual FARPROC GetFunction(const std::string& functionName) const = 0;
    // Unloads the library; the addresses found in it must not be used afterwards.
    virtual bool Unload() = 0;
    virtual bool IsLoaded() const = 0;
};
