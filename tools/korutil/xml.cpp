// korutil xml get|set|validate: the XML handler's slash-separated element paths on a document file. set
// writes the changed document beside the file and renames it into place.
#include "korutil.h"

#include <velstringconverter.h>
#include <velxmlhandler.h>

#include <boost/filesystem/operations.hpp>

namespace korutil
{

namespace
{

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

bool Load(const boost::filesystem::path& file, std::unique_ptr<CVeLXMLHandler>& handler, std::string& reason)
{
    boost::system::error_code error;
    if (!boost::filesystem::is_regular_file(file, error))
    {
        reason = PathText(file) + ": no such file";
        return false;
    }
    handler.reset(new CVeLXMLHandler(file));
    if (!handler->IsValidXML())
    {
        reason = PathText(file) + ": not a well-formed XML document";
        return false;
    }
    return true;
}

int Get(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 2 && args.size() != 3)
        return UsageError(invocation, "expected FILE PATH [ATTR]");
    std::unique_ptr<CVeLXMLHandler> handler;
    std::string reason;
    if (!Load(ToPath(args[0]), handler, reason))
        return Failure("xml get", reason);
    std::wstring value;
    const bool found = args.size() == 2 ? handler->ReadXMLText(args[1], value)
                                        : handler->ReadXMLAttribute(args[1], args[2], value);
    if (!found)
        return Failure("xml get", Utf8(args[1]) + (args.size() == 3 ? " @" + Utf8(args[2]) : "") +
                                      ": not found in " + ToText(args[0]));
    PrintLine(Utf8(value));
    return kExitOk;
}

int Set(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 3 && args.size() != 4)
        return UsageError(invocation, "expected FILE PATH [ATTR] VALUE");
    const boost::filesystem::path file = ToPath(args[0]);
    std::unique_ptr<CVeLXMLHandler> handler;
    std::string reason;
    if (!Load(file, handler, reason))
        return Failure("xml set", reason);
    // A missing element is created, as the handler's paths allow; an attribute needs its element.
    if (!handler->NodeIsSelectable(args[1]) && !handler->CheckAndCreateXMLPath(args[1]))
        return Failure("xml set", Utf8(args[1]) + ": cannot be created in " + ToText(args[0]));
    const bool changed = args.size() == 3 ? handler->WriteXMLText(args[1], args[2])
                                          : handler->WriteXMLAttribute(args[1], args[2], args[3]);
    if (!changed)
        return Failure("xml set", Utf8(args[1]) + ": cannot be set in " + ToText(args[0]));
    std::wstring text;
    if (!handler->WriteXMLToString(text))
        return Failure("xml set", "cannot serialise the document");
    // The document text is re-encoded as UTF-8 without changing its declaration's meaning: the
    // serialiser declares UTF-16 for string output, so the declaration is rewritten.
    std::string utf8 = Utf8(text);
    const std::size_t declarationEnd = utf8.compare(0, 5, "<?xml") == 0 ? utf8.find("?>") : std::string::npos;
    if (declarationEnd != std::string::npos)
        utf8.replace(0, declarationEnd + 2, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    utf8 += "\n";
    if (!WriteFileAtomically(file, reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), reason))
        return Failure("xml set", reason);
    return kExitOk;
}

int Validate(Invocation& invocation, const std::vector<std::wstring>& args)
{
    if (args.size() != 2)
        return UsageError(invocation, "expected FILE XSD");
    boost::system::error_code error;
    for (const std::wstring& arg : args)
        if (!boost::filesystem::is_regular_file(ToPath(arg), error))
            return Failure("xml validate", ToText(arg) + ": no such file");
    CVeLXMLHandler handler(ToPath(args[0]), ToPath(args[1]));
    if (!handler.IsValidXML())
        return Failure("xml validate", ToText(args[0]) + ": not valid against " + ToText(args[1]));
    return kExitOk;
}

} // namespace

int RunXml(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    std::vector<std::wstring> args = cmd.GetPositionals();
    if (args.empty())
        return UsageError(invocation, "expected get, set or validate");
    const std::wstring sub = args[0];
    args.erase(args.begin());
    if (sub == L"get")
        return Get(invocation, args);
    if (sub == L"set")
        return Set(invocation, args);
    if (sub == L"validate")
        return Validate(invocation, args);
    return UsageError(invocation, "unknown sub-verb '" + ToText(sub) + "'");
}

} // namespace korutil
