#include "velxmlcharconverter.h"
#include "velstringconverter.h"

#include <xercesc/dom/DOMElement.hpp>
#include <type_traits>

static_assert(std::is_same<XMLCh, char16_t>::value, "the parser's characters are UTF-16 code units");

XMLChString CVeLXMLCharConverter::ToXMLCh(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToUTF16(text);
}

XMLChString CVeLXMLCharConverter::ToXMLCh(const wchar_t* text, std::size_t length)
{
    if (text == nullptr || length == 0)
        return XMLChString();
    return CVeLStringConverter::ConvertStdWStringToUTF16(std::wstring(text, length));
}

std::wstring CVeLXMLCharConverter::ToWString(const XMLCh* text)
{
    if (text == nullptr)
        return std::wstring();
    return CVeLStringConverter::ConvertUTF16ToStdWString(text, std::char_traits<char16_t>::length(text));
}

std::wstring CVeLXMLCharConverter::ToWString(const XMLCh* text, std::size_t length)
{
    return CVeLStringConverter::ConvertUTF16ToStdWString(text, length);
}

std::wstring CVeLXMLCharConverter::GetAttribute(const XERCES_CPP_NAMESPACE::DOMElement* element,
                                                const wchar_t* name)
{
    return ToWString(element->getAttribute(ToXMLCh(name).c_str()));
}

void CVeLXMLCharConverter::SetAttribute(XERCES_CPP_NAMESPACE::DOMElement* element, const wchar_t* name,
                                        const std::wstring& value)
{
    element->setAttribute(ToXMLCh(name).c_str(), ToXMLCh(value).c_str());
}
