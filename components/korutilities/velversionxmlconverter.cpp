#include "velversionxmlconverter.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velversionsschema.h"
#include "velxmlcharconverter.h"
#include "velxmlhandlerutilities.h"

#include <xercesc/dom/DOM.hpp>

#include <set>
#include <utility>

using namespace XERCES_CPP_NAMESPACE;

namespace
{

const wchar_t kEmptyList[] = L"<?xml version=\"1.0\"?><Versions/>";
const wchar_t kSpaces[] = L" \t\r\n";

bool IsComponent(const DOMNode* node)
{
    return node->getNodeType() == DOMNode::ELEMENT_NODE &&
           CVeLXMLCharConverter::ToWString(node->getNodeName()) == VeLVersionXmlConverter::kComponentElement;
}

// A name the schema accepts: not empty, no space at either end.
bool IsUsableName(const std::wstring& name)
{
    return !name.empty() && name.find_first_of(kSpaces) != 0 && name.find_last_of(kSpaces) != name.size() - 1;
}

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

} // namespace

VeLVersionXmlConverter::VeLVersionXmlConverter(const std::wstring& xml) : CVeLXMLHandler(xml, Schema()) {}

VeLVersionXmlConverter::~VeLVersionXmlConverter() {}

bool VeLVersionXmlConverter::ToComponents(std::vector<VeLInstalledComponent>& components) const
{
    DOMElement* list = nullptr;
    if (!IsValidXML() || !GetDOMBranch(kListElement, list))
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    return ReadComponents(list, components);
}

bool VeLVersionXmlConverter::ReadComponent(const DOMElement* element, VeLInstalledComponent& component)
{
    if (element == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    const std::wstring version = CVeLXMLCharConverter::GetAttribute(element, L"version");
    const CVeLResult<CVeLVersion> parsed = CVeLVersion::Parse(version);
    if (!parsed.IsSuccess())
    {
        VEL_TRACE(VEL_ERR, "Invalid version %s!", Utf8(version).c_str());
        return false;
    }
    component.name = CVeLXMLCharConverter::GetAttribute(element, L"name");
    component.version = parsed.GetValue();
    component.installPath = CVeLXMLCharConverter::GetAttribute(element, L"path");
    component.description = CVeLXMLCharConverter::GetAttribute(element, L"description");
    return true;
}

bool VeLVersionXmlConverter::ReadComponents(const DOMElement* list,
                                            std::vector<VeLInstalledComponent>& components)
{
    if (list == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    std::vector<VeLInstalledComponent> read;
    for (const DOMNode* node = list->getFirstChild(); node != nullptr; node = node->getNextSibling())
    {
        VeLInstalledComponent component;
        if (!IsComponent(node))
            continue;
        if (!ReadComponent(static_cast<const DOMElement*>(node), component))
            return false;
        read.push_back(component);
    }
    components.swap(read);
    return true;
}

bool VeLVersionXmlConverter::WriteComponent(const VeLInstalledComponent& component, DOMElement* element)
{
    if (element == nullptr || !IsUsableName(component.name))
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    const std::pair<const wchar_t*, std::wstring> attributes[] = {{L"name", component.name},
                                                                  {L"version", component.version.ToString()},
                                                                  {L"path", component.installPath},
                                                                  {L"description", component.description}};
    // Every text is tried on a detached element first, so a text XML can't hold leaves element as it was.
    const CVeLXMLHandlerUtilities utilities;
    DOMElement* trial =
        element->getOwnerDocument()->createElement(CVeLXMLCharConverter::ToXMLCh(kComponentElement).c_str());
    bool writable = true;
    for (const auto& attribute : attributes)
        writable = writable && utilities.WriteElementNodeAttribute(trial, attribute.first, attribute.second);
    trial->release();
    if (!writable)
    {
        VEL_TRACE(VEL_ERR, "Component %s holds a character XML can't hold!", Utf8(component.name).c_str());
        return false;
    }
    for (const auto& attribute : attributes)
        CVeLXMLCharConverter::SetAttribute(element, attribute.first, attribute.second);
    if (component.description.empty())
        element->removeAttribute(CVeLXMLCharConverter::ToXMLCh(L"description").c_str());
    return true;
}

bool VeLVersionXmlConverter::ToText(const std::vector<VeLInstalledComponent>& components, std::wstring& xml)
{
    VeLVersionXmlConverter document(kEmptyList);
    std::set<std::wstring> names;
    for (const VeLInstalledComponent& component : components)
    {
        if (!names.insert(component.name).second)
        {
            VEL_TRACE(VEL_ERR, "Component %s listed twice!", Utf8(component.name).c_str());
            return false;
        }
        DOMElement* element = document.CreateDOMElement(kComponentElement);
        if (element == nullptr || !WriteComponent(component, element))
        {
            if (element != nullptr)
                element->release();
            return false;
        }
        if (!document.InsertDOMBranch(kListElement, element))
            return false;
    }
    return document.WriteXMLToString(xml);
}

const std::wstring& VeLVersionXmlConverter::Schema()
{
    static const std::wstring schema = kVersionsSchemaText;
    return schema;
}
