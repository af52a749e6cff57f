// korutil ini get|set, reg query, version compare, versions list: profile files, registry reading, version
// values and the installed-components file, each through its library class.
#include "korutil.h"

#include <velfileversion.h>
#include <velinifile.h>
#include <velregistry.h>
#include <velstringconverter.h>
#include <velversion.h>
#include <velversionsxmlhandler.h>

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <map>

namespace korutil
{

namespace
{

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// A text argument as typed: arguments arrive in the lossless file-name form, which carries characters such
// as "\" and ":" as private-use characters; names of keys, sections and values need them back.
std::wstring Text(const std::wstring& argument)
{
    std::wstring text;
    CVeLStringConverter::ConvertUTF8Chars2StdWString(ToText(argument).c_str(), text);
    return text;
}

// The positionals after the sub-verb (all but FILE arguments as typed); empty sub when there is none.
bool SubVerb(Invocation& invocation, const std::vector<std::wstring>& fileSubVerbs, std::wstring& sub,
             std::vector<std::wstring>& args)
{
    CVeLCommandLine cmd;
    if (!ParseArguments(invocation, cmd))
        return false;
    args = cmd.GetPositionals();
    sub = args.empty() ? std::wstring() : args[0];
    const bool firstIsFile = std::find(fileSubVerbs.begin(), fileSubVerbs.end(), sub) != fileSubVerbs.end();
    for (std::size_t i = firstIsFile ? 2 : 1; i < args.size(); ++i)
        args[i] = Text(args[i]);
    if (!args.empty())
        args.erase(args.begin());
    return true;
}

int IniGet(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 3)
        return UsageError(invocation, "expected FILE SECTION KEY");
    const boost::filesystem::path file = boost::filesystem::absolute(ToPath(args[0]));
    CVeLIniFile ini(file);
    if (!ini.HasKey(args[1], args[2]))
        return Failure("ini get",
                       "[" + Utf8(args[1]) + "] " + Utf8(args[2]) + ": not found in " + ToText(args[0]));
    PrintLine(Utf8(ini.GetString(args[1], args[2], L"")));
    return kExitOk;
}

int IniSet(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 4)
        return UsageError(invocation, "expected FILE SECTION KEY VALUE");
    CVeLIniFile ini(boost::filesystem::absolute(ToPath(args[0])));
    if (!ini.WriteString(args[1], args[2], args[3]))
        return Failure("ini set", ToText(args[0]) + ": cannot be written");
    return kExitOk;
}

// "HKLM\SOFTWARE\X" or "HKEY_LOCAL_MACHINE\SOFTWARE\X" as root and sub-key; false for an unknown root.
bool SplitKey(const std::wstring& key, HKEY& root, std::wstring& subKey)
{
    static const std::map<std::wstring, HKEY> roots = {
        {L"HKLM", HKEY_LOCAL_MACHINE}, {L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {L"HKCU", HKEY_CURRENT_USER},  {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {L"HKCR", HKEY_CLASSES_ROOT},  {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
        {L"HKU", HKEY_USERS},          {L"HKEY_USERS", HKEY_USERS}};
    const std::size_t slash = key.find(L'\\');
    std::wstring first = key.substr(0, slash);
    for (wchar_t& c : first)
        c = static_cast<wchar_t>(std::towupper(c));
    const auto found = roots.find(first);
    if (found == roots.end())
        return false;
    root = found->second;
    subKey = slash == std::wstring::npos ? std::wstring() : key.substr(slash + 1);
    return true;
}

std::string Hex(unsigned long long value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", value);
    return text;
}

// "<name> <type> <data>": strings as they are (REG_MULTI_SZ joined by "\0"), numbers in hexadecimal,
// bytes as lowercase hex pairs.
std::string DescribeValue(const VeLRegistryValue& value)
{
    static const std::map<DWORD, std::string> types = {
        {REG_SZ, "REG_SZ"},       {REG_EXPAND_SZ, "REG_EXPAND_SZ"}, {REG_MULTI_SZ, "REG_MULTI_SZ"},
        {REG_DWORD, "REG_DWORD"}, {REG_QWORD, "REG_QWORD"},         {REG_BINARY, "REG_BINARY"}};
    const auto type = types.find(value.type);
    std::string line = (value.name.empty() ? std::string("(Default)") : Utf8(value.name)) + " " +
                       (type == types.end() ? "REG_" + std::to_string(value.type) : type->second) + " ";
    if (value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ)
    {
        const std::vector<std::wstring> strings = CVeLRegistry::DataToStrings(value.data);
        for (std::size_t i = 0; i < strings.size(); ++i)
            line += (i ? "\\0" : "") + Utf8(strings[i]);
    }
    else if ((value.type == REG_DWORD || value.type == REG_QWORD) && !value.data.empty() &&
             value.data.size() <= 8)
    {
        unsigned long long number = 0;
        for (std::size_t i = value.data.size(); i-- > 0;)
            number = number << 8 | value.data[i];
        line += Hex(number);
    }
    else
        for (BYTE byte : value.data)
            line += Hex(byte | 0x100).substr(3);
    return line;
}

int RegQuery(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 1 && args.size() != 2)
        return UsageError(invocation, "expected KEY [VALUE]");
    HKEY root;
    std::wstring subKey;
    if (!SplitKey(args[0], root, subKey))
        return UsageError(invocation, "unknown root in '" + Utf8(args[0]) + "'");
    CVeLRegistry registry;
    std::vector<VeLRegistryValue> values(1);
    std::vector<std::wstring> keys;
    const bool read = args.size() == 2 ? registry.ReadValue(root, subKey, args[1], values[0])
                                       : registry.EnumerateValues(root, subKey, values) &&
                                             registry.EnumerateSubKeys(root, subKey, keys);
    if (!read)
        return Failure("reg query",
                       Utf8(args[0]) + (args.size() == 2 ? " " + Utf8(args[1]) : "") + ": not found");
    for (const VeLRegistryValue& value : values)
        PrintLine(DescribeValue(value));
    for (const std::wstring& key : keys)
        PrintLine(Utf8(key) + "\\");
    return kExitOk;
}

int VersionOf(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 1)
        return UsageError(invocation, "expected FILE");
    CVeLFileVersion reader;
    CVeLVersion version;
    if (!reader.GetFileVersion(ToPath(args[0]), version))
        return Failure("version of", ToText(args[0]) + ": no version resource" + DescribeError(LastError()));
    PrintLine(Utf8(version.ToString()));
    return kExitOk;
}

} // namespace

int RunIni(Invocation& invocation)
{
    std::wstring sub;
    std::vector<std::wstring> args;
    if (!SubVerb(invocation, {L"get", L"set"}, sub, args))
        return kExitUsage;
    if (sub == L"get")
        return IniGet(invocation, args);
    if (sub == L"set")
        return IniSet(invocation, args);
    return UsageError(invocation,
                      sub.empty() ? "expected get or set" : "unknown sub-verb '" + ToText(sub) + "'");
}

int RunReg(Invocation& invocation)
{
    std::wstring sub;
    std::vector<std::wstring> args;
    if (!SubVerb(invocation, {}, sub, args))
        return kExitUsage;
    if (sub == L"query")
        return RegQuery(invocation, args);
    return UsageError(invocation, sub.empty() ? "expected query" : "unknown sub-verb '" + ToText(sub) + "'");
}

int RunVersion(Invocation& invocation)
{
    std::wstring sub;
    std::vector<std::wstring> args;
    if (!SubVerb(invocation, {L"of"}, sub, args))
        return kExitUsage;
    if (sub == L"of")
        return VersionOf(invocation, args);
    if (sub != L"compare")
        return UsageError(invocation,
                          sub.empty() ? "expected compare or of" : "unknown sub-verb '" + ToText(sub) + "'");
    if (args.size() != 2)
        return UsageError(invocation, "expected A B");
    const CVeLResult<CVeLVersion> a = CVeLVersion::Parse(args[0]);
    const CVeLResult<CVeLVersion> b = CVeLVersion::Parse(args[1]);
    if (!a.IsSuccess() || !b.IsSuccess())
        return Failure("version compare", "'" + Utf8(a.IsSuccess() ? args[1] : args[0]) + "' is no version");
    PrintLine(std::to_string(a.GetValue().Compare(b.GetValue())));
    return kExitOk;
}

int RunVersions(Invocation& invocation)
{
    std::wstring sub;
    std::vector<std::wstring> args;
    if (!SubVerb(invocation, {L"list"}, sub, args))
        return kExitUsage;
    if (sub != L"list")
        return UsageError(invocation,
                          sub.empty() ? "expected list" : "unknown sub-verb '" + ToText(sub) + "'");
    if (args.size() != 1)
        return UsageError(invocation, "expected FILE");
    boost::system::error_code error;
    if (!boost::filesystem::is_regular_file(ToPath(args[0]), error))
        return Failure("versions list", ToText(args[0]) + ": no such file");
    CVeLVersionsXMLHandler versions(ToPath(args[0]));
    std::vector<VeLInstalledComponent> components;
    if (!versions.GetComponents(components))
        return Failure("versions list", ToText(args[0]) + ": not a valid versions file");
    for (const VeLInstalledComponent& component : components)
        PrintLine(Utf8(component.name) + " " + Utf8(component.version.ToString()) + " " +
                  Utf8(component.installPath));
    return kExitOk;
}

} // namespace korutil
