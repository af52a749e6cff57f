#include "velxmlhandlerutilities.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velwin32.h"
#include "velxmlcharconverter.h"
#include "velxmlguard.h"
#include "velxmlhandler.h"

#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <algorithm>
#include <cstdint>
#include <new>

using namespace XERCES_CPP_NAMESPACE;

namespace
{

// The step path[begin, end) as a zero-terminated parser string: in buffer (of capacity characters) when it
// fits and needs no conversion, otherwise in converted.
const XMLCh* StepText(const std::wstring& path, std::size_t begin, std::size_t end, XMLCh* buffer,
                      std::size_t capacity, XMLChString& converted)
{
    if (end - begin < capacity &&
        std::all_of(path.begin() + static_cast<std::ptrdiff_t>(begin),
                    path.begin() + static_cast<std::ptrdiff_t>(end),
                    [](wchar_t c) { return static_cast<std::uint32_t>(c) < 0xD800; }))
    {
        std::transform(path.begin() + static_cast<std::ptrdiff_t>(begin),
                       path.begin() + static_cast<std::ptrdiff_t>(end), buffer,
                       [](wchar_t c) { return static_cast<XMLCh>(c); });
        buffer[end - begin] = 0;
        return buffer;
    }
    converted.clear();
    for (std::size_t i = begin; i < end; ++i)
    {
        if (static_cast<std::uint32_t>(path[i]) < 0xD800)
            converted.push_back(static_cast<XMLCh>(path[i]));
        else
            converted += CVeLXMLCharConverter::ToXMLCh(path.data() + i, 1);
    }
    return converted.c_str();
}

// Walks the steps of path, split at "/" with empty steps dropped (so leading, trailing and doubled
// slashes do not matter), handing each to visit as a zero-terminated parser string. Reads by path are
// frequent and short: a step of plain characters is copied into a buffer on the stack, and only a long
// step or one with characters beyond U+D7FF is converted into a string. Stops early when visit returns
// false.
template <typename Visit>
void ForEachStep(const std::wstring& path, Visit&& visit)
{
    constexpr std::size_t kShortStep = 64;
    XMLCh shortStep[kShortStep];
    XMLChString longStep;
    std::size_t begin = 0;
    while (begin <= path.size())
    {
        std::size_t end = path.find(L'/', begin);
        if (end == std::wstring::npos)
            end = path.size();
        if (end > begin && !visit(StepText(path, begin, end, shortStep, kShortStep, longStep)))
            return;
        begin = end + 1;
    }
}

bool IsElementNamed(const DOMNode* node, const XMLCh* name)
{
    return node != nullptr && node->getNodeType() == DOMNode::ELEMENT_NODE &&
           XMLString::equals(node->getNodeName(), name);
}

DOMElement* FirstChildElementNamed(const DOMNode* parent, const XMLCh* name)
{
    for (DOMNode* child = parent->getFirstChild(); child != nullptr; child = child->getNextSibling())
        if (IsElementNamed(child, name))
            return static_cast<DOMElement*>(child);
    return nullptr;
}

// A write of text that XML cannot hold would only fail later, when the document is saved; it is refused
// now so that what reports success can also be written.
bool IsWritableText(const std::wstring& text)
{
    const std::size_t at = VeLXMLFindForbiddenCharacter(text);
    if (at == std::wstring::npos)
        return true;
    VEL_TRACE(VEL_ERR, "Character U+%04X at position %llu is not allowed in XML!",
              static_cast<unsigned>(text[at]), static_cast<unsigned long long>(at));
    return false;
}

bool HasAttributeValue(const DOMNode* node, const XMLCh* attrName, const XMLCh* attrValue)
{
    const DOMElement* element = static_cast<const DOMElement*>(node);
    const DOMAttr* attr = element->getAttributeNode(attrName);
    return attr != nullptr && XMLString::equals(attr->getValue(), attrValue);
}

} // namespace

CVeLXMLHandlerUtilities::CVeLXMLHandlerUtilities() {}

CVeLXMLHandlerUtilities::CVeLXMLHandlerUtilities(const CVeLXMLHandlerUtilities&) {}

CVeLXMLHandlerUtilities& CVeLXMLHandlerUtilities::operator=(const CVeLXMLHandlerUtilities&)
{
    return *this;
}

CVeLXMLHandlerUtilities::~CVeLXMLHandlerUtilities() {}

DOMElement* CVeLXMLHandlerUtilities::GetXPathElement(DOMElement* start, const std::wstring& path) const
{
    if (start == nullptr)
        return nullptr;
    return VeLXMLGuarded<DOMElement*>(nullptr,
                                      [&]() -> DOMElement*
                                      {
                                          DOMElement* current = start;
                                          ForEachStep(path,
                                                      [&](const XMLCh* step)
                                                      {
                                                          if (!IsElementNamed(current, step))
                                                              current = FirstChildElementNamed(current, step);
                                                          return current != nullptr;
                                                      });
                                          return current;
                                      });
}

DOMElement* CVeLXMLHandlerUtilities::ResolvePath(const DOMDocument* doc, const std::wstring& path) const
{
    if (doc == nullptr)
        return nullptr;
    return GetXPathElement(doc->getDocumentElement(), path);
}

DOMElement* CVeLXMLHandlerUtilities::GetRootElement(const DOMDocument* doc, const wchar_t* name) const
{
    if (doc == nullptr || name == nullptr)
        return nullptr;
    return VeLXMLGuarded<DOMElement*>(nullptr,
                                      [&]() -> DOMElement*
                                      {
                                          DOMElement* root = doc->getDocumentElement();
                                          if (root == nullptr)
                                              return nullptr;
                                          const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(name);
                                          if (IsElementNamed(root, xmlName.c_str()))
                                              return root;
                                          return FirstChildElementNamed(root, xmlName.c_str());
                                      });
}

DOMNode* CVeLXMLHandlerUtilities::FindElementNode(const DOMNode* node, const wchar_t* name) const
{
    if (node == nullptr || name == nullptr)
        return nullptr;
    return VeLXMLGuarded<DOMNode*>(nullptr,
                                   [&]() -> DOMNode*
                                   {
                                       const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(name);
                                       if (IsElementNamed(node, xmlName.c_str()))
                                           return const_cast<DOMNode*>(node);
                                       return FirstChildElementNamed(node, xmlName.c_str());
                                   });
}

std::vector<DOMNode*> CVeLXMLHandlerUtilities::FindElementNodes(const DOMNode* node, const wchar_t* name)
{
    if (node == nullptr || name == nullptr)
        return {};
    return VeLXMLGuarded<std::vector<DOMNode*>>(
        {},
        [&]()
        {
            const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(name);
            std::vector<DOMNode*> found;
            for (DOMNode* child = node->getFirstChild(); child != nullptr; child = child->getNextSibling())
                if (IsElementNamed(child, xmlName.c_str()))
                    found.push_back(child);
            return found;
        });
}

DOMNode* CVeLXMLHandlerUtilities::FindElementNodeWithAttribute(const DOMNode* node, const wchar_t* name,
                                                               const std::wstring& attrName,
                                                               const std::wstring& attrValue) const
{
    std::vector<DOMNode*> found = FindElementNodesWithAttribute(node, name, attrName, attrValue);
    return found.empty() ? nullptr : found.front();
}

std::vector<DOMNode*>
CVeLXMLHandlerUtilities::FindElementNodesWithAttribute(const DOMNode* node, const wchar_t* name,
                                                       const std::wstring& attrName,
                                                       const std::wstring& attrValue) const
{
    if (node == nullptr || name == nullptr)
        return {};
    return VeLXMLGuarded<std::vector<DOMNode*>>(
        {},
        [&]()
        {
            const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(name);
            const XMLChString xmlAttrName = CVeLXMLCharConverter::ToXMLCh(attrName);
            const XMLChString xmlAttrValue = CVeLXMLCharConverter::ToXMLCh(attrValue);
            std::vector<DOMNode*> found;
            for (DOMNode* child = node->getFirstChild(); child != nullptr; child = child->getNextSibling())
                if (IsElementNamed(child, xmlName.c_str()) &&
                    HasAttributeValue(child, xmlAttrName.c_str(), xmlAttrValue.c_str()))
                    found.push_back(child);
            return found;
        });
}

bool CVeLXMLHandlerUtilities::GetCountOfElements(const DOMDocument* doc, const std::wstring& path,
                                                 unsigned int& count)
{
    count = 0;
    DOMElement* element = ResolvePath(doc, path);
    if (element == nullptr)
        return false;
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             DOMNode* child = element->getFirstChild();
                             if (child == nullptr)
                                 return false;
                             for (; child != nullptr; child = child->getNextSibling())
                                 ++count;
                             return true;
                         });
}

bool CVeLXMLHandlerUtilities::ReadElementNodeText(const DOMDocument* doc, const std::wstring& path,
                                                  std::wstring& text) const
{
    return ReadElementNodeText(ResolvePath(doc, path), text);
}

bool CVeLXMLHandlerUtilities::ReadElementNodeText(const DOMElement* element, std::wstring& text) const
{
    if (element == nullptr)
        return false;
    // The text is gathered recursively by the parser library; a branch grown deeper than a loaded document
    // may be (through DOM calls) is refused rather than risking the stack.
    if (!VeLXMLWithinDepth(element, CVeLXMLHandler::kMaxElementDepth + 1))
    {
        VEL_TRACE(VEL_ERR, "XML element nested deeper than %u levels!", CVeLXMLHandler::kMaxElementDepth);
        return false;
    }
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             text = CVeLXMLCharConverter::ToWString(element->getTextContent());
                             return true;
                         });
}

bool CVeLXMLHandlerUtilities::ReadElementNodeAttribute(const DOMDocument* doc, const std::wstring& path,
                                                       const std::wstring& name, std::wstring& value) const
{
    return ReadElementNodeAttribute(ResolvePath(doc, path), name, value);
}

bool CVeLXMLHandlerUtilities::ReadElementNodeAttribute(const DOMElement* element, const std::wstring& name,
                                                       std::wstring& value) const
{
    if (element == nullptr)
        return false;
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             // getAttribute answers an empty string for an absent attribute, which is what
                             // callers expect.
                             value = CVeLXMLCharConverter::ToWString(
                                 element->getAttribute(CVeLXMLCharConverter::ToXMLCh(name).c_str()));
                             return true;
                         });
}

bool CVeLXMLHandlerUtilities::WriteElementNodeText(const DOMDocument* doc, const std::wstring& path,
                                                   const std::wstring& text) const
{
    return WriteElementNodeText(ResolvePath(doc, path), text);
}

bool CVeLXMLHandlerUtilities::WriteElementNodeText(DOMElement* element, const std::wstring& text) const
{
    if (element == nullptr || !IsWritableText(text))
        return false;
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             element->setTextContent(CVeLXMLCharConverter::ToXMLCh(text).c_str());
                             return true;
                         });
}

bool CVeLXMLHandlerUtilities::WriteElementNodeAttribute(const DOMDocument* doc, const std::wstring& path,
                                                        const std::wstring& name,
                                                        const std::wstring& value) const
{
    return WriteElementNodeAttribute(ResolvePath(doc, path), name, value);
}

bool CVeLXMLHandlerUtilities::WriteElementNodeAttribute(DOMElement* element, const std::wstring& name,
                                                        const std::wstring& value) const
{
    if (element == nullptr || !IsWritableText(value))
        return false;
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             element->setAttribute(CVeLXMLCharConverter::ToXMLCh(name).c_str(),
                                                   CVeLXMLCharConverter::ToXMLCh(value).c_str());
                             return true;
                         });
}

namespace
{

// Calls visit for every child node of parent named childName (every node kind takes part, as the node name
// alone decides), inside the guard against parser exceptions.
template <typename Visit>
bool VisitNamedChildren(DOMElement* parent, const std::wstring& childName, Visit visit)
{
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(childName);
                             for (DOMNode* child = parent->getFirstChild(); child != nullptr;
                                  child = child->getNextSibling())
                                 if (XMLString::equals(child->getNodeName(), xmlName.c_str()))
                                     visit(child);
                             return true;
                         });
}

} // namespace

bool CVeLXMLHandlerUtilities::ReadElementNodeTextArray(const DOMDocument* doc, const std::wstring& parentPath,
                                                       const std::wstring& childName,
                                                       std::vector<std::wstring>& out) const
{
    out.clear();
    DOMElement* parent = ResolvePath(doc, parentPath);
    return parent != nullptr &&
           VisitNamedChildren(parent, childName,
                              [&](DOMNode* child)
                              { out.push_back(CVeLXMLCharConverter::ToWString(child->getTextContent())); });
}

bool CVeLXMLHandlerUtilities::ReadElementNodeAttributeArray(const DOMDocument* doc,
                                                            const std::wstring& parentPath,
                                                            const std::wstring& childName,
                                                            const std::wstring& attrName,
                                                            std::vector<std::wstring>& out) const
{
    out.clear();
    DOMElement* parent = ResolvePath(doc, parentPath);
    if (parent == nullptr)
        return false;
    const XMLChString xmlAttrName = CVeLXMLCharConverter::ToXMLCh(attrName);
    // Only elements carry attributes; another node of that name reads as an empty value.
    return VisitNamedChildren(
        parent, childName,
        [&](DOMNode* child)
        {
            out.push_back(child->getNodeType() == DOMNode::ELEMENT_NODE
                              ? CVeLXMLCharConverter::ToWString(
                                    static_cast<DOMElement*>(child)->getAttribute(xmlAttrName.c_str()))
                              : std::wstring());
        });
}

bool CVeLXMLHandlerUtilities::ReadSiblingsElementNodeAttributes(const DOMDocument* doc,
                                                                const std::wstring& path,
                                                                std::vector<AttributeMap>& out)
{
    DOMElement* root = doc != nullptr ? doc->getDocumentElement() : nullptr;
    if (root == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Can't access Root element");
        return false;
    }
    DOMElement* element = GetXPathElement(root, path);
    if (element == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Can't access xpath element");
        return false;
    }
    DOMNode* child = element->getFirstChild();
    if (child == nullptr)
    {
        VEL_TRACE(VEL_ERR, "First xml child is invalid");
        return false;
    }
    if (!ReadSiblingAttribute(child, out))
        VEL_TRACE(VEL_WRN,
                  "Error: Reading attributes from first element failed (maybe because of line feed)");
    for (child = child->getNextSibling(); child != nullptr; child = child->getNextSibling())
        if (!ReadSiblingAttribute(child, out))
            VEL_TRACE(VEL_WRN, "Error: reading attributes from xml (maybe because of line feed)");
    return true;
}

bool CVeLXMLHandlerUtilities::ReadSiblingAttribute(DOMNode* node, std::vector<AttributeMap>& out)
{
    if (node == nullptr || node->getNodeType() != DOMNode::ELEMENT_NODE)
    {
        VEL_TRACE(VEL_ERR, "Invalid DOM element pointer");
        return false;
    }
    DOMNamedNodeMap* attributes = node->getAttributes();
    if (attributes == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid mapped node element pointer");
        return false;
    }
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             AttributeMap map;
                             const XMLSize_t length = attributes->getLength();
                             for (XMLSize_t i = 0; i < length; ++i)
                             {
                                 DOMNode* attribute = attributes->item(i);
                                 if (attribute == nullptr)
                                 {
                                     VEL_TRACE(VEL_ERR, "Invalid node element pointer");
                                     return false;
                                 }
                                 map[CVeLXMLCharConverter::ToWString(attribute->getNodeName())] =
                                     CVeLXMLCharConverter::ToWString(attribute->getNodeValue());
                             }
                             out.push_back(std::move(map));
                             return true;
                         });
}

bool CVeLXMLHandlerUtilities::AppendNode(DOMDocument* doc, const std::wstring& parentPath,
                                         const std::wstring& childName,
                                         const std::vector<AttributeMap>& attributeSets)
{
    DOMElement* parent = ResolvePath(doc, parentPath);
    if (parent == nullptr)
        return false;
    if (attributeSets.empty())
        return true;
    const XMLChString xmlName = CVeLXMLCharConverter::ToXMLCh(childName);
    for (const AttributeMap& attributes : attributeSets)
    {
        for (const auto& attribute : attributes)
            if (!IsWritableText(attribute.second))
                return false;
        // Each child is made and attached on its own, so the ones before a failing child stay.
        const bool appended = VeLXMLGuarded(
            false,
            [&]()
            {
                DOMElement* child = doc->createElement(xmlName.c_str());
                if (child == nullptr)
                    return false;
                for (const auto& attribute : attributes) // std::map: ascending name order
                    child->setAttribute(CVeLXMLCharConverter::ToXMLCh(attribute.first).c_str(),
                                        CVeLXMLCharConverter::ToXMLCh(attribute.second).c_str());
                parent->appendChild(child);
                return true;
            });
        if (!appended)
            return false;
    }
    return true;
}

bool CVeLXMLHandlerUtilities::RemoveNode(const DOMDocument* doc, const std::wstring& path)
{
    DOMElement* element = ResolvePath(doc, path);
    if (element == nullptr)
        return false;
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             DOMNode* parent = element->getParentNode();
                             if (parent == nullptr)
                                 return false;
                             parent->removeChild(element);
                             return true;
                         });
}
