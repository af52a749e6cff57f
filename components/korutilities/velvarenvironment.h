// CVeLVarEnvironment: read access to the environment variables of the calling process. Stateless;
// any thread may call it.
#pragma once

#include "korutilities_export.h"

#include <string>

class KORUTILITIES_API CVeLVarEnvironment
{
public:
    CVeLVarEnvironment();
    virtual ~CVeLVarEnvironment();

    // True when the variable is set (also with an empty value).
    bool CheckVariableExists(const std::wstring& name) const;
    // True and the value when the variable is set and could be read (an empty value reads as empty);
    // false, value cleared, otherwise.
    bool GetEnvVariable(const std::wstring& name, std::wstring& value) const;
};
