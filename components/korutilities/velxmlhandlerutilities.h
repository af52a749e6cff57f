// CVeLXMLHandlerUtilities: navigation, reading and writing of DOM documents by element paths. A path is a
// sequence of element names separated by "/" (empty steps are ignored), resolved one direct child per step
// from the root element; a step that names the current element itself stays on it, so "Root/A" and "A"
// are the same element below a root named "Root", and in "A/A" the second step matches the first A again.
// There is no attribute, index or wildcard syntax. Names compare exactly, case included.
//
// The class holds no data: any number of objects may exist and be copied, and one may be used from any
// thread for documents that thread alone uses. It never owns the documents or nodes it is given; the
// nodes it returns belong to their document. A null document or element makes every operation fail with
// false or null, and DOM exceptions (an invalid element name, a node of another document) are caught here
// and turned into a failure too.
#pragma once

#include "korutilities_export.h"

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include <map>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLXMLHandlerUtilities
{
public:
    using DOMDocument = XERCES_CPP_NAMESPACE::DOMDocument;
    using DOMElement = XERCES_CPP_NAMESPACE::DOMElement;
    using DOMNode = XERCES_CPP_NAMESPACE::DOMNode;
    using AttributeMap = std::map<std::wstring, std::wstring>;

    CVeLXMLHandlerUtilities();
    CVeLXMLHandlerUtilities(const CVeLXMLHandlerUtilities& other);
    CVeLXMLHandlerUtilities& operator=(const CVeLXMLHandlerUtilities& other);
    virtual ~CVeLXMLHandlerUtilities();

    // The element at path, starting at start; null when a step has no match.
    DOMElement* GetXPathElement(DOMElement* start, const std::wstring& path) const;
    // The document element if it is called name, else its first child element of that name, else null.
    DOMElement* GetRootElement(const DOMDocument* doc, const wchar_t* name) const;

    // node itself when it is an element called name, else its first such child element (one level only).
    DOMNode* FindElementNode(const DOMNode* node, const wchar_t* name) const;
    // All child elements of node called name, in document order (node itself is not included).
    std::vector<DOMNode*> FindElementNodes(const DOMNode* node, const wchar_t* name);
    // The first / all child elements called name whose attribute attrName is exactly attrValue.
    DOMNode* FindElementNodeWithAttribute(const DOMNode* node, const wchar_t* name,
                                          const std::wstring& attrName, const std::wstring& attrValue) const;
    std::vector<DOMNode*> FindElementNodesWithAttribute(const DOMNode* node, const wchar_t* name,
                                                        const std::wstring& attrName,
                                                        const std::wstring& attrValue) const;

    // Number of child nodes of the element at path, of every kind (whitespace text between elements
    // counts). False (count 0) when the element is missing or has no children.
    bool GetCountOfElements(const DOMDocument* doc, const std::wstring& path, unsigned int& count);

    // Text content of the element (all descendant text joined). False when the element is missing or its
    // branch is nested deeper than a loaded document may be (CVeLXMLHandler::kMaxElementDepth).
    bool ReadElementNodeText(const DOMDocument* doc, const std::wstring& path, std::wstring& text) const;
    bool ReadElementNodeText(const DOMElement* element, std::wstring& text) const;
    // Value of attribute name; an absent attribute reads as an empty value and still succeeds.
    bool ReadElementNodeAttribute(const DOMDocument* doc, const std::wstring& path, const std::wstring& name,
                                  std::wstring& value) const;
    bool ReadElementNodeAttribute(const DOMElement* element, const std::wstring& name,
                                  std::wstring& value) const;
    // Replaces all content of the element with one text node. False when the element is missing or the
    // text holds a character that XML forbids (a control other than tab, line feed and carriage return,
    // U+FFFE, U+FFFF, an unpaired surrogate): such a document could not be written, so nothing changes.
    bool WriteElementNodeText(const DOMDocument* doc, const std::wstring& path,
                              const std::wstring& text) const;
    bool WriteElementNodeText(DOMElement* element, const std::wstring& text) const;
    // Sets or replaces the attribute. False when the element is missing, name is no attribute name or the
    // value holds a character that XML forbids.
    bool WriteElementNodeAttribute(const DOMDocument* doc, const std::wstring& path, const std::wstring& name,
                                   const std::wstring& value) const;
    bool WriteElementNodeAttribute(DOMElement* element, const std::wstring& name,
                                   const std::wstring& value) const;

    // out is cleared, then gets the text content (or the value of attrName) of every direct child node of
    // the element at parentPath whose node name is childName, in document order. True once the parent was
    // found, even when nothing matched.
    bool ReadElementNodeTextArray(const DOMDocument* doc, const std::wstring& parentPath,
                                  const std::wstring& childName, std::vector<std::wstring>& out) const;
    bool ReadElementNodeAttributeArray(const DOMDocument* doc, const std::wstring& parentPath,
                                       const std::wstring& childName, const std::wstring& attrName,
                                       std::vector<std::wstring>& out) const;

    // Appends to out one map (attribute name to value) per child element of the element at path. Text
    // nodes between the elements (line feeds) are skipped with a warning. False, traced at ERR, when there
    // is no root, the element is missing or it has no children.
    bool ReadSiblingsElementNodeAttributes(const DOMDocument* doc, const std::wstring& path,
                                           std::vector<AttributeMap>& out);

    // Appends one child element childName per map to the element at parentPath, attributes in ascending
    // name order. An empty list succeeds and changes nothing. False when the parent is missing, an element
    // cannot be made or a value holds a character that XML forbids; the children appended before the
    // failing one stay.
    bool AppendNode(DOMDocument* doc, const std::wstring& parentPath, const std::wstring& childName,
                    const std::vector<AttributeMap>& attributeSets);

    // Detaches the element at path from its parent. The node's storage stays with the document.
    // False when the element or its parent is missing.
    bool RemoveNode(const DOMDocument* doc, const std::wstring& path);

private:
    bool ReadSiblingAttribute(DOMNode* node, std::vector<AttributeMap>& out);
    DOMElement* ResolvePath(const DOMDocument* doc, const std::wstring& path) const;
};
