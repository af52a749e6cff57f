#include "velcommandline.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

CVeLCommandLine::CVeLCommandLine() {}

CVeLCommandLine::~CVeLCommandLine() {}

bool CVeLCommandLine::Fail(const std::wstring& reason)
{
    m_error = reason;
    VEL_TRACE(VEL_DBG1, "CVeLCommandLine: %s",
              CVeLStringConverter::ConvertStdWStringToStdString(reason).c_str());
    return false;
}

bool CVeLCommandLine::AddOption(const std::wstring& name, wchar_t shortName, bool takesValue)
{
    if (name.empty() || name[0] == L'-' || name.find(L'=') != std::wstring::npos)
        return Fail(L"invalid option name '" + name + L"'");
    if (m_options.count(name) || (shortName != 0 && m_shortNames.count(shortName)))
        return Fail(L"option '" + name + L"' declared twice");
    m_options[name] = OptionSpec{name, takesValue};
    if (shortName != 0)
        m_shortNames[shortName] = name;
    m_error.clear();
    return true;
}

bool CVeLCommandLine::Record(const OptionSpec& option, const std::wstring* value, const std::wstring& spelled)
{
    if (m_given.count(option.name))
        return Fail(L"option " + spelled + L" given twice");
    m_given[option.name] = value ? *value : std::wstring();
    return true;
}

// "--name", "--name=VALUE" or "--name VALUE"; i is advanced past a value taken from the next argument.
bool CVeLCommandLine::AcceptLong(const std::wstring& body, const std::vector<std::wstring>& arguments,
                                 std::size_t& i)
{
    const std::size_t equals = body.find(L'=');
    const std::wstring name = body.substr(0, equals);
    const auto it = m_options.find(name);
    if (it == m_options.end())
        return Fail(L"unknown option --" + name);
    const std::wstring spelled = L"--" + name;
    if (!it->second.takesValue)
    {
        if (equals != std::wstring::npos)
            return Fail(L"option " + spelled + L" takes no value");
        return Record(it->second, nullptr, spelled);
    }
    if (equals != std::wstring::npos)
    {
        const std::wstring value = body.substr(equals + 1);
        return Record(it->second, &value, spelled);
    }
    if (i + 1 >= arguments.size())
        return Fail(L"option " + spelled + L" needs a value");
    return Record(it->second, &arguments[++i], spelled);
}

// "-n", "-nVALUE" or "-n VALUE"; several flags may share one dash ("-qv").
bool CVeLCommandLine::AcceptShort(const std::wstring& body, const std::vector<std::wstring>& arguments,
                                  std::size_t& i)
{
    for (std::size_t k = 0; k < body.size(); ++k)
    {
        const auto shortIt = m_shortNames.find(body[k]);
        if (shortIt == m_shortNames.end())
            return Fail(std::wstring(L"unknown option -") + body[k]);
        const OptionSpec& option = m_options[shortIt->second];
        const std::wstring spelled = std::wstring(L"-") + body[k];
        if (!option.takesValue)
        {
            if (!Record(option, nullptr, spelled))
                return false;
            continue;
        }
        if (k + 1 < body.size())
        {
            const std::wstring value = body.substr(k + 1);
            return Record(option, &value, spelled);
        }
        if (i + 1 >= arguments.size())
            return Fail(L"option " + spelled + L" needs a value");
        return Record(option, &arguments[++i], spelled);
    }
    return true;
}

bool CVeLCommandLine::Parse(const std::vector<std::wstring>& arguments)
{
    m_given.clear();
    m_positionals.clear();
    m_error.clear();
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::wstring& argument = arguments[i];
        if (argument == L"--")
        {
            m_positionals.insert(m_positionals.end(), arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                 arguments.end());
            return true;
        }
        bool accepted = true;
        if (argument.size() > 2 && argument.compare(0, 2, L"--") == 0)
            accepted = AcceptLong(argument.substr(2), arguments, i);
        else if (argument.size() > 1 && argument[0] == L'-')
            accepted = AcceptShort(argument.substr(1), arguments, i);
        else
            m_positionals.push_back(argument);
        if (!accepted)
            return false;
    }
    return true;
}

bool CVeLCommandLine::Has(const std::wstring& name) const
{
    return m_given.count(name) != 0;
}

std::wstring CVeLCommandLine::GetValue(const std::wstring& name, const std::wstring& fallback) const
{
    const auto it = m_given.find(name);
    return it == m_given.end() ? fallback : it->second;
}

const std::vector<std::wstring>& CVeLCommandLine::GetPositionals() const
{
    return m_positionals;
}

const std::wstring& CVeLCommandLine::GetError() const
{
    return m_error;
}

std::vector<std::wstring> CVeLCommandLine::ArgumentsOf(int argc, const char* const* argv, int first)
{
    std::vector<std::wstring> arguments;
    for (int i = first; argv != nullptr && i < argc; ++i)
        if (argv[i] != nullptr)
            arguments.push_back(CVeLPathConverter::ToWide(boost::filesystem::path(argv[i])));
    return arguments;
}
