// RegGetValueW with the machine GUID from the machine-id file. See w32p_machineid.h.
#include "w32p_machineid.h"

#include <cctype>
#include <cstring>
#include <cwctype>
#include <fstream>
#include <string>

namespace
{

bool EqualsIgnoringCase(LPCWSTR a, const wchar_t* b)
{
    if (a == nullptr)
        return false;
    for (; *a != 0 && *b != 0; ++a, ++b)
        if (std::towlower(static_cast<wint_t>(*a)) != std::towlower(static_cast<wint_t>(*b)))
            return false;
    return *a == 0 && *b == 0;
}

// The 32 hexadecimal digits of the machine-id file as a GUID text, or empty when no file holds one.
std::wstring ReadMachineGuid()
{
    for (const char* file : {"/etc/machine-id", "/var/lib/dbus/machine-id"})
    {
        std::ifstream in(file);
        std::string line;
        if (!in || !std::getline(in, line))
            continue;
        if (line.size() < 32)
            continue;
        std::wstring guid;
        bool valid = true;
        for (std::size_t i = 0; i < 32 && valid; ++i)
        {
            const unsigned char c = static_cast<unsigned char>(line[i]);
            valid = std::isxdigit(c) != 0;
            if (i == 8 || i == 12 || i == 16 || i == 20)
                guid += L'-';
            guid += static_cast<wchar_t>(std::tolower(c));
        }
        if (valid)
            return guid;
    }
    return std::wstring();
}

LONG Answer(const std::wstring& text, DWORD flags, LPDWORD type, PVOID data, LPDWORD dataSize)
{
    if ((flags & RRF_RT_REG_SZ) == 0)
        return ERROR_UNSUPPORTED_TYPE;
    const DWORD needed = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    if (type != nullptr)
        *type = REG_SZ;
    if (data == nullptr)
    {
        if (dataSize != nullptr)
            *dataSize = needed;
        return ERROR_SUCCESS;
    }
    if (dataSize == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (*dataSize < needed)
    {
        *dataSize = needed;
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, text.c_str(), needed);
    *dataSize = needed;
    return ERROR_SUCCESS;
}

DWORD FlagOfType(DWORD type)
{
    switch (type)
    {
    case REG_NONE:
        return RRF_RT_REG_NONE;
    case REG_SZ:
        return RRF_RT_REG_SZ;
    case REG_EXPAND_SZ:
        return RRF_RT_REG_EXPAND_SZ;
    case REG_BINARY:
        return RRF_RT_REG_BINARY;
    case REG_DWORD:
        return RRF_RT_REG_DWORD;
    case REG_MULTI_SZ:
        return RRF_RT_REG_MULTI_SZ;
    case REG_QWORD:
        return RRF_RT_REG_QWORD;
    default:
        return 0;
    }
}

} // namespace

LONG RegGetValueW(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type, PVOID data,
                  LPDWORD dataSize)
{
    if ((flags & RRF_RT_ANY) == 0)
        return ERROR_INVALID_PARAMETER;
    if (key == HKEY_LOCAL_MACHINE && EqualsIgnoringCase(subKey, L"SOFTWARE\\Microsoft\\Cryptography") &&
        EqualsIgnoringCase(value, L"MachineGuid"))
    {
        const std::wstring guid = ReadMachineGuid();
        return guid.empty() ? ERROR_FILE_NOT_FOUND : Answer(guid, flags, type, data, dataSize);
    }

    HKEY opened = key;
    if (subKey != nullptr && *subKey != 0)
    {
        const LONG status = RegOpenKeyExW(key, subKey, 0, KEY_QUERY_VALUE, &opened);
        if (status != ERROR_SUCCESS)
            return status;
    }
    DWORD found = REG_NONE;
    LONG status = RegQueryValueExW(opened, value, nullptr, &found, static_cast<LPBYTE>(data), dataSize);
    if (opened != key)
        RegCloseKey(opened);
    if (status == ERROR_SUCCESS && (FlagOfType(found) & flags) == 0)
        status = ERROR_UNSUPPORTED_TYPE;
    if (type != nullptr)
        *type = found;
    return status;
}
