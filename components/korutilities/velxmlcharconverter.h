// CVeLXMLCharConverter: the conversion between the library's wide text and the XML parser's 16-bit
// characters, in the parser's string type; the code units come from CVeLStringConverter's UTF-16 codec.
// Stateless; any thread may call it. Where wchar_t holds UTF-32 (Linux) characters beyond U+FFFF become
// surrogate pairs on the way in and pairs are joined on the way out. A lone surrogate is kept as it is on
// both platforms; a wide value beyond U+10FFFF becomes U+FFFD: never a crash, never a shortened text.
#pragma once

#include "korutilities_export.h"

#include <xercesc/util/XercesDefs.hpp>

#include <cstddef>
#include <string>

XERCES_CPP_NAMESPACE_BEGIN
class DOMElement;
XERCES_CPP_NAMESPACE_END

// A parser-side string that owns its characters; c_str() is what the parser's interfaces take.
using XMLChString = std::basic_string<XMLCh>;

class KORUTILITIES_API CVeLXMLCharConverter
{
public:
    // The parser's 16-bit code units of text.
    static XMLChString ToXMLCh(const std::wstring& text);
    static XMLChString ToXMLCh(const wchar_t* text, std::size_t length);
    // Wide text of a zero-terminated parser string; empty for a null pointer.
    static std::wstring ToWString(const XMLCh* text);
    // Wide text of length code units (embedded zeros are kept); empty for a null pointer.
    static std::wstring ToWString(const XMLCh* text, std::size_t length);

    // The wide value of an element's attribute; empty when it is absent. The element must not be null.
    static std::wstring GetAttribute(const XERCES_CPP_NAMESPACE::DOMElement* element, const wchar_t* name);
    // Sets or replaces an attribute of an element (not null) with wide text.
    static void SetAttribute(XERCES_CPP_NAMESPACE::DOMElement* element, const wchar_t* name,
                             const std::wstring& value);
};
