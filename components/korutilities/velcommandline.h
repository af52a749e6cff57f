// CVeLCommandLine: a program's arguments parsed against the options it declares. A program declares its
// options (long names such as "key-file", an optional one-letter short name, whether the option takes a
// value), then calls Parse once with the arguments after the program or verb name; afterwards it asks for
// flags, option values and positional arguments. "--" ends the options: everything after it is
// positional, also text that starts with "-". A value is given as "--name VALUE", "--name=VALUE", "-n
// VALUE" or "-nVALUE". A lone "-" is positional (the usual name of standard input or output).
// One object per parse; it holds only copies of the text it was given. Not for concurrent use while
// declaring or parsing; afterwards any number of threads may read it.
// Failures: Parse answers false and keeps a one-line reason (GetError) for the user, traced
// at debug level 1 (bad usage is the user's mistake, and the program reports it); nothing throws.
#pragma once

#include "korutilities_export.h"

#include <map>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLCommandLine
{
public:
    CVeLCommandLine();
    virtual ~CVeLCommandLine();

    // Declares an option. name is the long name without dashes; shortName is 0 or a letter. False when the
    // name is empty, starts with '-', holds '=' or is declared already (long or short).
    bool AddOption(const std::wstring& name, wchar_t shortName, bool takesValue);

    // Parses arguments. False on an unknown option, a missing value, a value given to a flag, or an
    // option repeated; the object then holds what was parsed before the fault.
    bool Parse(const std::vector<std::wstring>& arguments);

    // True when the option (flag or valued) was given.
    bool Has(const std::wstring& name) const;
    // The value given to the option, or fallback when it was not given.
    std::wstring GetValue(const std::wstring& name, const std::wstring& fallback = std::wstring()) const;
    const std::vector<std::wstring>& GetPositionals() const;
    // The reason of the last failed Parse or AddOption, for a usage message; empty after success.
    const std::wstring& GetError() const;

    // The arguments of main (argv[first] onwards) as wide text. On Linux each argument is taken as a file
    // name's bytes and converted as the path classes convert names, so a name that is not valid UTF-8
    // still reaches the file services unchanged.
    static std::vector<std::wstring> ArgumentsOf(int argc, const char* const* argv, int first);

private:
    struct OptionSpec
    {
        std::wstring name;
        bool takesValue;
    };
    bool Fail(const std::wstring& reason);
    bool AcceptLong(const std::wstring& body, const std::vector<std::wstring>& arguments, std::size_t& i);
    bool AcceptShort(const std::wstring& body, const std::vector<std::wstring>& arguments, std::size_t& i);
    bool Record(const OptionSpec& option, const std::wstring* value, const std::wstring& spelled);

    std::map<std::wstring, OptionSpec> m_options; // by long name
    std::map<wchar_t, std::wstring> m_shortNames; // short name -> long name
    std::map<std::wstring, std::wstring> m_given; // long name -> value (empty for flags)
    std::vector<std::wstring> m_positionals;
    std::wstring m_error;
};
