// IVeLXMLDOMAccessProvider: the narrow interface through which other parts of a program obtain and graft
// DOM branches of a document they do not own (the versions file, the XML command interface). The
// implementation owns the document; every pointer it hands out lives as long as the implementing object
// and belongs to its document. Not thread-safe: one thread uses an implementation at a time.
#pragma once

#include "korutilities_export.h"

#include <xercesc/dom/DOMElement.hpp>

#include <string>

class KORUTILITIES_API IVeLXMLDOMAccessProvider
{
public:
    virtual ~IVeLXMLDOMAccessProvider() {}

    // Makes sure every element of the slash-separated path exists, creating the missing ones; false when
    // there is no document or no root element, or a name cannot be an element name.
    virtual bool CheckAndCreateXMLPath(const std::wstring& path) = 0;
    // A new element of the document, not yet attached; null when there is no document.
    virtual XERCES_CPP_NAMESPACE::DOMElement* CreateDOMElement(const std::wstring& name) const = 0;
    // The element at path in element; true when it was found.
    virtual bool GetDOMBranch(const std::wstring& path, XERCES_CPP_NAMESPACE::DOMElement*& element) const = 0;
    // Appends branch (made by CreateDOMElement of the same object) as the last child of the element at
    // path; false when that element does not exist or the branch cannot be attached.
    virtual bool InsertDOMBranch(const std::wstring& path, XERCES_CPP_NAMESPACE::DOMElement* branch) = 0;
};
