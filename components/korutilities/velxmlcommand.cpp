#include "velxmlcommand.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "veltypeconverter.h"
#include "velxmlcharconverter.h"
#include "velxmlguard.h"
#include "velxmlhandler.h"

#include <xercesc/dom/DOM.hpp>

#include <cmath>
#include <functional>
#include <memory>

XERCES_CPP_NAMESPACE_USE

namespace
{

const wchar_t* const kTypeNames[] = {L"text", L"integer", L"real", L"boolean", L"bytes", L"group"};
const std::vector<std::wstring> kTypeList(std::begin(kTypeNames), std::end(kTypeNames));

std::wstring ElementName(const DOMElement* element)
{
    return CVeLXMLCharConverter::ToWString(element->getTagName());
}

// The text directly inside element (not that of nested elements).
std::wstring OwnText(const DOMElement* element)
{
    std::wstring text;
    for (DOMNode* child = element->getFirstChild(); child != nullptr; child = child->getNextSibling())
        if (child->getNodeType() == DOMNode::TEXT_NODE || child->getNodeType() == DOMNode::CDATA_SECTION_NODE)
            text += CVeLXMLCharConverter::ToWString(child->getNodeValue());
    return text;
}

std::vector<DOMElement*> ChildElements(const DOMElement* element, const wchar_t* name)
{
    std::vector<DOMElement*> children;
    for (DOMElement* child = element->getFirstElementChild(); child != nullptr;
         child = child->getNextElementSibling())
        if (ElementName(child) == name)
            children.push_back(child);
    return children;
}

// Makes the param elements of parameters with handler and hands each to attach.
bool AppendParameters(CVeLXMLHandler& handler, const std::function<bool(DOMElement*)>& attach,
                      const std::vector<CVeLXMLCommand::Parameter>& parameters, std::wstring& error)
{
    for (const CVeLXMLCommand::Parameter& p : parameters)
    {
        if (p.name.empty())
        {
            error = L"a parameter has no name";
            return false;
        }
        DOMElement* element = handler.CreateDOMElement(L"param");
        if (element == nullptr)
        {
            error = L"cannot create an element";
            return false;
        }
        if (!attach(element))
        {
            error = L"cannot attach an element";
            return false;
        }
        CVeLXMLCharConverter::SetAttribute(element, L"name", p.name);
        CVeLXMLCharConverter::SetAttribute(element, L"type", kTypeNames[p.type]);
        std::wstring text;
        switch (p.type)
        {
        case CVeLXMLCommand::TypeText:
            text = p.text;
            break;
        case CVeLXMLCommand::TypeInteger:
            text = CVeLTypeConverter::FromInteger(p.integer);
            break;
        case CVeLXMLCommand::TypeReal:
            if (!std::isfinite(p.real))
            {
                error = L"parameter " + p.name + L" is not a finite real";
                return false;
            }
            text = CVeLTypeConverter::FromReal(p.real);
            break;
        case CVeLXMLCommand::TypeBoolean:
            text = CVeLTypeConverter::FromBoolean(p.boolean);
            break;
        case CVeLXMLCommand::TypeBytes:
        {
            const std::string base64 = CVeLXMLCommand::EncodeBase64(p.bytes);
            text.assign(base64.begin(), base64.end());
            break;
        }
        case CVeLXMLCommand::TypeGroup:
            if (!AppendParameters(
                    handler, [element](DOMElement* child) { return element->appendChild(child) != nullptr; },
                    p.children, error))
                return false;
            continue;
        }
        if (!text.empty())
            element->setTextContent(CVeLXMLCharConverter::ToXMLCh(text).c_str());
    }
    return true;
}

bool ReadParameters(const DOMElement* parent, std::vector<CVeLXMLCommand::Parameter>& parameters,
                    std::wstring& error)
{
    for (const DOMElement* element : ChildElements(parent, L"param"))
    {
        CVeLXMLCommand::Parameter p;
        p.name = CVeLXMLCharConverter::GetAttribute(element, L"name");
        const CVeLResult<std::size_t> type =
            CVeLTypeConverter::ToEnumeration(CVeLXMLCharConverter::GetAttribute(element, L"type"), kTypeList);
        if (p.name.empty() || !type.IsSuccess())
        {
            error = L"a parameter lacks a name or a known type";
            return false;
        }
        p.type = static_cast<CVeLXMLCommand::ParameterType>(type.GetValue());
        const std::wstring text = OwnText(element);
        std::wstring reason;
        bool ok = true;
        switch (p.type)
        {
        case CVeLXMLCommand::TypeText:
            p.text = text;
            break;
        case CVeLXMLCommand::TypeInteger:
        {
            const auto value = CVeLTypeConverter::ToInteger(text, INT64_MIN, INT64_MAX, &reason);
            ok = value.IsSuccess();
            p.integer = value.GetValue();
            break;
        }
        case CVeLXMLCommand::TypeReal:
        {
            const auto value =
                CVeLTypeConverter::ToReal(text, -1.7976931348623157e308, 1.7976931348623157e308, &reason);
            ok = value.IsSuccess();
            p.real = value.GetValue();
            break;
        }
        case CVeLXMLCommand::TypeBoolean:
        {
            const auto value = CVeLTypeConverter::ToBoolean(text, &reason);
            ok = value.IsSuccess();
            p.boolean = value.GetValue();
            break;
        }
        case CVeLXMLCommand::TypeBytes:
            ok = CVeLXMLCommand::DecodeBase64(text, p.bytes);
            reason = L"not base64";
            break;
        case CVeLXMLCommand::TypeGroup:
            ok = ReadParameters(element, p.children, error);
            if (!ok)
                return false;
            break;
        }
        if (!ok)
        {
            error = L"parameter " + p.name + L": " + reason;
            return false;
        }
        parameters.push_back(std::move(p));
    }
    return true;
}

} // namespace

CVeLXMLCommand::CVeLXMLCommand() {}

CVeLXMLCommand::CVeLXMLCommand(const std::wstring& name) : m_name(name) {}

CVeLXMLCommand::~CVeLXMLCommand() {}

CVeLXMLCommand CVeLXMLCommand::MakeReply(const CVeLXMLCommand& request, LONG status,
                                         const std::wstring& message)
{
    CVeLXMLCommand reply(request.m_name);
    reply.m_id = request.m_id;
    reply.m_reply = true;
    reply.m_status = status;
    reply.m_message = message;
    return reply;
}

void CVeLXMLCommand::AddParameter(const Parameter& parameter)
{
    m_parameters.push_back(parameter);
}

void CVeLXMLCommand::AddText(const std::wstring& name, const std::wstring& value)
{
    Parameter p;
    p.name = name;
    p.type = TypeText;
    p.text = value;
    AddParameter(p);
}

void CVeLXMLCommand::AddInteger(const std::wstring& name, std::int64_t value)
{
    Parameter p;
    p.name = name;
    p.type = TypeInteger;
    p.integer = value;
    AddParameter(p);
}

void CVeLXMLCommand::AddReal(const std::wstring& name, double value)
{
    Parameter p;
    p.name = name;
    p.type = TypeReal;
    p.real = value;
    AddParameter(p);
}

void CVeLXMLCommand::AddBoolean(const std::wstring& name, bool value)
{
    Parameter p;
    p.name = name;
    p.type = TypeBoolean;
    p.boolean = value;
    AddParameter(p);
}

void CVeLXMLCommand::AddBytes(const std::wstring& name, const std::vector<unsigned char>& value)
{
    Parameter p;
    p.name = name;
    p.type = TypeBytes;
    p.bytes = value;
    AddParameter(p);
}

void CVeLXMLCommand::AddGroup(const std::wstring& name, const std::vector<Parameter>& children)
{
    Parameter p;
    p.name = name;
    p.type = TypeGroup;
    p.children = children;
    AddParameter(p);
}

const CVeLXMLCommand::Parameter* CVeLXMLCommand::Find(const std::wstring& name) const
{
    for (const Parameter& p : m_parameters)
        if (p.name == name)
            return &p;
    return nullptr;
}

bool CVeLXMLCommand::Fail(const std::wstring& reason) const
{
    m_error = reason;
    VEL_TRACE(VEL_ERR, "XML command refused: %s",
              CVeLStringConverter::ConvertStdWStringToStdString(reason).c_str());
    return false;
}

bool CVeLXMLCommand::ToXML(std::wstring& xml) const
{
    if (m_name.empty())
        return Fail(L"the command has no name");
    const wchar_t* rootName = m_reply ? L"reply" : L"command";
    CVeLXMLHandler handler(std::wstring(L"<") + rootName + L"/>");
    DOMElement* root = nullptr;
    if (!handler.GetDOMBranch(rootName, root))
        return Fail(L"cannot build the document");
    std::wstring error = L"the parser refused a name or a value";
    const bool built = VeLXMLGuarded(
        false,
        [&]
        {
            CVeLXMLCharConverter::SetAttribute(root, L"name", m_name);
            CVeLXMLCharConverter::SetAttribute(root, L"id", CVeLTypeConverter::FromUnsigned(m_id));
            if (m_reply)
            {
                CVeLXMLCharConverter::SetAttribute(root, L"status", CVeLTypeConverter::FromInteger(m_status));
                DOMElement* message = handler.CreateDOMElement(L"message");
                if (message == nullptr || !handler.InsertDOMBranch(rootName, message))
                    return false;
                message->setTextContent(CVeLXMLCharConverter::ToXMLCh(m_message).c_str());
            }
            // Each parameter is grafted as a branch of the command's element.
            return AppendParameters(
                handler, [&](DOMElement* element) { return handler.InsertDOMBranch(rootName, element); },
                m_parameters, error);
        });
    if (!built)
        return Fail(error);
    std::wstring text;
    if (!handler.WriteXMLToString(text))
        return Fail(L"cannot serialise the document");
    // The serialiser's declaration names UTF-16; the text travels as wide text or UTF-8, so it goes.
    const std::size_t declarationEnd =
        text.compare(0, 5, L"<?xml") == 0 ? text.find(L"?>") : std::wstring::npos;
    if (declarationEnd != std::wstring::npos)
        text.erase(0, text.find_first_not_of(L"\r\n", declarationEnd + 2));
    xml = text;
    m_error.clear();
    return true;
}

bool CVeLXMLCommand::FromXML(const std::wstring& xml)
{
    if (xml.size() > kMaxDocumentLength)
        return Fail(L"the document is longer than " + CVeLTypeConverter::FromUnsigned(kMaxDocumentLength) +
                    L" characters");
    if (xml.find_first_not_of(L" \t\r\n") == std::wstring::npos)
        return Fail(L"the document is empty");
    // Commands never need a document type; refusing one keeps entity expansion out of the link.
    if (xml.find(L"<!DOCTYPE") != std::wstring::npos)
        return Fail(L"the document declares a document type");
    // The handler parses the wide text as UTF-16, which the parser recognises only by a declaration.
    const bool declared = xml.compare(0, 5, L"<?xml") == 0;
    CVeLXMLHandler handler(declared ? xml : L"<?xml version=\"1.0\"?>" + xml, Schema());
    if (!handler.IsValidXML())
        return Fail(L"the document is not well-formed or not valid against the command schema");
    CVeLXMLCommand parsed;
    std::wstring error;
    const bool read = VeLXMLGuarded(
        false,
        [&]
        {
            DOMElement* root = nullptr;
            parsed.m_reply = handler.GetDOMBranch(L"reply", root);
            if (!parsed.m_reply && !handler.GetDOMBranch(L"command", root))
                return false;
            parsed.m_name = CVeLXMLCharConverter::GetAttribute(root, L"name");
            parsed.m_id =
                CVeLTypeConverter::ToUnsigned(CVeLXMLCharConverter::GetAttribute(root, L"id")).GetValue();
            if (parsed.m_reply)
            {
                parsed.m_status = static_cast<LONG>(
                    CVeLTypeConverter::ToInteger(CVeLXMLCharConverter::GetAttribute(root, L"status"))
                        .GetValue());
                const auto messages = ChildElements(root, L"message");
                if (!messages.empty())
                    parsed.m_message = OwnText(messages.front());
            }
            return ReadParameters(root, parsed.m_parameters, error);
        });
    if (!read)
        return Fail(error.empty() ? L"the document holds no command or reply" : error);
    *this = parsed;
    m_error.clear();
    return true;
}

const std::wstring& CVeLXMLCommand::Schema()
{
    static const std::wstring schema =
        L"<?xml version=\"1.0\"?><xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">"
        L"<xs:simpleType name=\"nameType\"><xs:restriction base=\"xs:string\"><xs:minLength value=\"1\"/>"
        L"<xs:maxLength value=\"256\"/></xs:restriction></xs:simpleType>"
        L"<xs:simpleType name=\"paramKind\"><xs:restriction base=\"xs:string\">"
        L"<xs:enumeration value=\"text\"/><xs:enumeration value=\"integer\"/><xs:enumeration value=\"real\"/>"
        L"<xs:enumeration value=\"boolean\"/><xs:enumeration value=\"bytes\"/><xs:enumeration "
        L"value=\"group\"/>"
        L"</xs:restriction></xs:simpleType>"
        L"<xs:complexType name=\"paramType\" mixed=\"true\"><xs:sequence>"
        L"<xs:element name=\"param\" type=\"paramType\" minOccurs=\"0\" "
        L"maxOccurs=\"unbounded\"/></xs:sequence>"
        L"<xs:attribute name=\"name\" type=\"nameType\" use=\"required\"/>"
        L"<xs:attribute name=\"type\" type=\"paramKind\" use=\"required\"/></xs:complexType>"
        L"<xs:element name=\"command\"><xs:complexType><xs:sequence>"
        L"<xs:element name=\"param\" type=\"paramType\" minOccurs=\"0\" "
        L"maxOccurs=\"unbounded\"/></xs:sequence>"
        L"<xs:attribute name=\"name\" type=\"nameType\" use=\"required\"/>"
        L"<xs:attribute name=\"id\" type=\"xs:unsignedLong\" use=\"required\"/></xs:complexType></xs:element>"
        L"<xs:element name=\"reply\"><xs:complexType><xs:sequence>"
        L"<xs:element name=\"message\" type=\"xs:string\"/>"
        L"<xs:element name=\"param\" type=\"paramType\" minOccurs=\"0\" "
        L"maxOccurs=\"unbounded\"/></xs:sequence>"
        L"<xs:attribute name=\"name\" type=\"nameType\" use=\"required\"/>"
        L"<xs:attribute name=\"id\" type=\"xs:unsignedLong\" use=\"required\"/>"
        L"<xs:attribute name=\"status\" type=\"xs:int\" use=\"required\"/></xs:complexType></xs:element>"
        L"</xs:schema>";
    return schema;
}

std::string CVeLXMLCommand::EncodeBase64(const std::vector<unsigned char>& bytes)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3)
    {
        const std::size_t n = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = std::uint32_t(bytes[i]) << 16;
        if (n > 1)
            group |= std::uint32_t(bytes[i + 1]) << 8;
        if (n > 2)
            group |= bytes[i + 2];
        text += alphabet[(group >> 18) & 63];
        text += alphabet[(group >> 12) & 63];
        text += n > 1 ? alphabet[(group >> 6) & 63] : '=';
        text += n > 2 ? alphabet[group & 63] : '=';
    }
    return text;
}

bool CVeLXMLCommand::DecodeBase64(const std::wstring& text, std::vector<unsigned char>& bytes)
{
    std::vector<unsigned char> decoded;
    std::uint32_t group = 0;
    int count = 0, padding = 0;
    for (wchar_t c : text)
    {
        if (c == L' ' || c == L'\t' || c == L'\r' || c == L'\n')
            continue;
        int value;
        if (c >= L'A' && c <= L'Z')
            value = c - L'A';
        else if (c >= L'a' && c <= L'z')
            value = c - L'a' + 26;
        else if (c >= L'0' && c <= L'9')
            value = c - L'0' + 52;
        else if (c == L'+')
            value = 62;
        else if (c == L'/')
            value = 63;
        else if (c == L'=' && count >= 2)
        {
            value = 0;
            ++padding;
        }
        else
            return false;
        if (padding > 0 && c != L'=')
            return false; // data after padding
        group = (group << 6) | static_cast<std::uint32_t>(value);
        if (++count == 4)
        {
            decoded.push_back(static_cast<unsigned char>(group >> 16));
            if (padding < 2)
                decoded.push_back(static_cast<unsigned char>(group >> 8));
            if (padding < 1)
                decoded.push_back(static_cast<unsigned char>(group));
            count = 0;
            group = 0;
            if (padding > 0)
                padding = 3; // nothing may follow a padded group
        }
    }
    if (count != 0)
        return false;
    bytes = decoded;
    return true;
}
