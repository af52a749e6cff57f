// Internal to the XML classes: runs one parser operation and turns every exception of the parser library
// (or an allocation failure) into the given failure value, traced at ERR, so that nothing thrown by the
// parser leaves the library; and the two checks that keep documents safe to handle: a nesting depth that
// recursive traversals survive, and text that XML can carry. Not part of the installed interface.
#pragma once

#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velxmlcharconverter.h"

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include <xercesc/dom/DOMNode.hpp>

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

template <typename R, typename F>
R VeLXMLGuarded(R failure, F&& body)
{
    auto utf8 = [](const XMLCh* text)
    { return CVeLStringConverter::ConvertStdWStringToStdString(CVeLXMLCharConverter::ToWString(text)); };
    try
    {
        return body();
    }
    catch (const xercesc::XMLException& e)
    {
        VEL_TRACE(VEL_ERR, "XML exception: %s", utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::DOMException& e)
    {
        VEL_TRACE(VEL_ERR, "XML DOM exception %d: %s", static_cast<int>(e.code),
                  utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::SAXException& e)
    {
        VEL_TRACE(VEL_ERR, "XML exception: %s", utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::OutOfMemoryException&)
    {
        VEL_TRACE(VEL_ERR, "XML parser out of memory!");
    }
    catch (const std::bad_alloc&)
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
    }
    catch (...)
    {
        VEL_TRACE(VEL_ERR, "Unknown exception in XML operation!");
    }
    return failure;
}

// True when no node below top (top itself at level 1) lies deeper than limit levels. Walks the tree without
// recursion and stops at the first node too deep, so it is safe on trees of any depth.
inline bool VeLXMLWithinDepth(const xercesc::DOMNode* top, unsigned int limit)
{
    if (top == nullptr)
        return true;
    const xercesc::DOMNode* node = top;
    unsigned int depth = 1;
    for (;;)
    {
        if (depth > limit)
            return false;
        if (const xercesc::DOMNode* child = node->getFirstChild())
        {
            node = child;
            ++depth;
            continue;
        }
        while (node != top && node->getNextSibling() == nullptr)
        {
            node = node->getParentNode();
            --depth;
        }
        if (node == top)
            return true;
        node = node->getNextSibling();
    }
}

// Number of levels from the document's root element down to element (the root is level 1).
inline unsigned int VeLXMLLevelOf(const xercesc::DOMNode* element)
{
    unsigned int level = 0;
    for (const xercesc::DOMNode* node = element;
         node != nullptr && node->getNodeType() != xercesc::DOMNode::DOCUMENT_NODE;
         node = node->getParentNode())
        ++level;
    return level;
}

// The position of the first character that an XML 1.0 document cannot hold (controls other than tab, line
// feed and carriage return, U+FFFE, U+FFFF, unpaired surrogates, values beyond U+10FFFF), or npos.
inline std::size_t VeLXMLFindForbiddenCharacter(const std::wstring& text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const std::uint32_t c = static_cast<std::uint32_t>(text[i]);
        if (c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
            (c >= 0x10000 && c <= 0x10FFFF))
            continue;
        // A high surrogate followed by a low one is one character where wide text is UTF-16.
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() &&
            static_cast<std::uint32_t>(text[i + 1]) >= 0xDC00 &&
            static_cast<std::uint32_t>(text[i + 1]) <= 0xDFFF)
        {
            ++i;
            continue;
        }
        return i;
    }
    return std::wstring::npos;
}
