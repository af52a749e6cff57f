#include "velvarenvironment.h"
#include "velwin32.h"

#include <vector>

CVeLVarEnvironment::CVeLVarEnvironment() {}

CVeLVarEnvironment::~CVeLVarEnvironment() {}

bool CVeLVarEnvironment::CheckVariableExists(const std::wstring& name) const
{
    std::wstring value;
    return GetEnvVariable(name, value);
}

bool CVeLVarEnvironment::GetEnvVariable(const std::wstring& name, std::wstring& value) const
{
    value.clear();
    // An empty value returns 0 without touching the last error, so the error is cleared first.
    SetLastError(ERROR_SUCCESS);
    DWORD needed = GetEnvironmentVariableW(name.c_str(), nullptr, 0);
    if (needed == 0)
        return GetLastError() == ERROR_SUCCESS;
    // The value may grow between the two calls; retry until it fits.
    for (int attempt = 0; attempt < 4; ++attempt)
    {
        std::vector<wchar_t> buffer(needed);
        DWORD length = GetEnvironmentVariableW(name.c_str(), buffer.data(), needed);
        if (length == 0)
            return GetLastError() == ERROR_SUCCESS;
        if (length < needed)
        {
            value.assign(buffer.data(), length);
            return true;
        }
        needed = length;
    }
    return false;
}
