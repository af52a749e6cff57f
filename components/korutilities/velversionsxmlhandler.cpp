#include "velversionsxmlhandler.h"
#include "korutilitesbtracedef.h"
#include "velfilehelper.h"
#include "velstringconverter.h"

#include <boost/filesystem/operations.hpp>
#include <xercesc/dom/DOM.hpp>

using namespace XERCES_CPP_NAMESPACE;
namespace fs = boost::filesystem;

namespace
{

const wchar_t kEmptyList[] = L"<?xml version=\"1.0\"?><Versions/>";
const wchar_t kComponent[] = L"Component";

std::wstring Attribute(const DOMElement* element, const wchar_t* name)
{
    return CVeLXMLCharConverter::ToWString(
        element->getAttribute(CVeLXMLCharConverter::ToXMLCh(name).c_str()));
}

void SetAttribute(DOMElement* element, const wchar_t* name, const std::wstring& value)
{
    element->setAttribute(CVeLXMLCharConverter::ToXMLCh(name).c_str(),
                          CVeLXMLCharConverter::ToXMLCh(value).c_str());
}

bool IsComponent(const DOMNode* node)
{
    return node->getNodeType() == DOMNode::ELEMENT_NODE &&
           CVeLXMLCharConverter::ToWString(node->getNodeName()) == kComponent;
}

// The document text without its declaration, which would name an encoding the in-memory text no longer has.
std::wstring WithPlainDeclaration(std::wstring text)
{
    if (!text.empty() && text[0] == L'\xFEFF')
        text.erase(0, 1);
    if (text.compare(0, 5, L"<?xml") == 0)
    {
        const std::size_t end = text.find(L"?>");
        text.erase(0, end == std::wstring::npos ? text.size() : end + 2);
    }
    return L"<?xml version=\"1.0\"?>" + text;
}

} // namespace

std::wstring CVeLVersionsXMLHandler::LoadText(const fs::path& file)
{
    boost::system::error_code error;
    if (!fs::exists(file, error))
        return kEmptyList;
    CVeLFileHelper helper(file, false);
    boost::shared_ptr<unsigned char> bytes;
    ULONG size = 0;
    std::wstring text;
    if (!helper.ReadContent(bytes, size) || size == 0)
        return std::wstring(L"<unreadable/>"); // refused by the schema, traced by the read
    if (size >= 2 && bytes.get()[0] == 0xFF && bytes.get()[1] == 0xFE)
        helper.ReadContent(text);
    else
        CVeLStringConverter::ConvertUTF8Chars2StdWString(reinterpret_cast<const char*>(bytes.get()), size,
                                                         text);
    return WithPlainDeclaration(text);
}

CVeLVersionsXMLHandler::CVeLVersionsXMLHandler(const fs::path& file)
    : CVeLXMLHandler(LoadText(file), Schema()), m_file(file), m_valid(false)
{
    m_valid = IsValidXML() && VersionsAreValid();
    if (!m_valid)
        VEL_TRACE(VEL_ERR, "Invalid versions file %s!", file.string().c_str());
}

CVeLVersionsXMLHandler::~CVeLVersionsXMLHandler() {}

bool CVeLVersionsXMLHandler::Usable() const
{
    if (!m_valid)
        VEL_TRACE(VEL_ERR, "Invalid initialization");
    return m_valid;
}

bool CVeLVersionsXMLHandler::VersionsAreValid() const
{
    DOMElement* root = nullptr;
    if (!GetDOMBranch(L"Versions", root))
        return false;
    for (DOMNode* node = root->getFirstChild(); node != nullptr; node = node->getNextSibling())
        if (IsComponent(node) &&
            !CVeLVersion::Parse(Attribute(static_cast<DOMElement*>(node), L"version")).IsSuccess())
            return false;
    return true;
}

bool CVeLVersionsXMLHandler::GetComponents(std::vector<VeLInstalledComponent>& components) const
{
    components.clear();
    DOMElement* root = nullptr;
    if (!Usable() || !GetDOMBranch(L"Versions", root))
        return false;
    for (DOMNode* node = root->getFirstChild(); node != nullptr; node = node->getNextSibling())
    {
        if (!IsComponent(node))
            continue;
        const DOMElement* element = static_cast<DOMElement*>(node);
        VeLInstalledComponent component;
        component.name = Attribute(element, L"name");
        component.version = CVeLVersion::Parse(Attribute(element, L"version")).GetValue();
        component.installPath = Attribute(element, L"path");
        component.description = Attribute(element, L"description");
        components.push_back(component);
    }
    return true;
}

bool CVeLVersionsXMLHandler::FindComponent(const std::wstring& name, VeLInstalledComponent& component) const
{
    std::vector<VeLInstalledComponent> components;
    if (!GetComponents(components))
        return false;
    for (const VeLInstalledComponent& candidate : components)
        if (candidate.name == name)
        {
            component = candidate;
            return true;
        }
    VEL_TRACE(VEL_DBG1, "Component %s not installed",
              CVeLStringConverter::ConvertStdWStringToStdString(name).c_str());
    return false;
}

CVeLXMLHandler::DOMElement* CVeLVersionsXMLHandler::FindElement(const std::wstring& name) const
{
    DOMElement* root = nullptr;
    if (!GetDOMBranch(L"Versions", root))
        return nullptr;
    for (DOMNode* node = root->getFirstChild(); node != nullptr; node = node->getNextSibling())
        if (IsComponent(node) && Attribute(static_cast<DOMElement*>(node), L"name") == name)
            return static_cast<DOMElement*>(node);
    return nullptr;
}

bool CVeLVersionsXMLHandler::SetComponent(const VeLInstalledComponent& component)
{
    const std::wstring name = component.name;
    if (!Usable())
        return false;
    if (name.empty() || name.find_first_of(L" \t\r\n") == 0 ||
        name.find_last_of(L" \t\r\n") == name.size() - 1)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    DOMElement* element = FindElement(name);
    if (element == nullptr)
    {
        element = CreateDOMElement(kComponent);
        if (element == nullptr || !InsertDOMBranch(L"Versions", element))
            return false;
    }
    SetAttribute(element, L"name", name);
    SetAttribute(element, L"version", component.version.ToString());
    SetAttribute(element, L"path", component.installPath);
    if (component.description.empty())
        element->removeAttribute(CVeLXMLCharConverter::ToXMLCh(L"description").c_str());
    else
        SetAttribute(element, L"description", component.description);
    return true;
}

bool CVeLVersionsXMLHandler::RemoveComponent(const std::wstring& name)
{
    if (!Usable())
        return false;
    DOMElement* element = FindElement(name);
    if (element == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Component %s not installed!",
                  CVeLStringConverter::ConvertStdWStringToStdString(name).c_str());
        return false;
    }
    element->getParentNode()->removeChild(element)->release();
    return true;
}

bool CVeLVersionsXMLHandler::Save() const
{
    return Usable() && WriteXMLToFile(m_file, false);
}

const std::wstring& CVeLVersionsXMLHandler::Schema()
{
    // The same text as velversions.xsd, shipped beside the headers.
    static const std::wstring schema = LR"xsd(<?xml version="1.0"?>
<!-- The installed components of a machine: one Component element per component, names unique. -->
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
  <xs:simpleType name="ComponentName">
    <xs:restriction base="xs:string">
      <xs:minLength value="1"/>
      <xs:pattern value="\S(.*\S)?"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:simpleType name="VersionText">
    <xs:restriction base="xs:string">
      <xs:pattern value="[0-9]{1,5}(\.[0-9]{1,5}){0,3}"/>
    </xs:restriction>
  </xs:simpleType>
  <xs:element name="Versions">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="Component" minOccurs="0" maxOccurs="unbounded">
          <xs:complexType>
            <xs:attribute name="name" type="ComponentName" use="required"/>
            <xs:attribute name="version" type="VersionText" use="required"/>
            <xs:attribute name="path" type="xs:string" use="required"/>
            <xs:attribute name="description" type="xs:string" use="optional"/>
          </xs:complexType>
        </xs:element>
      </xs:sequence>
    </xs:complexType>
    <xs:unique name="UniqueComponentName">
      <xs:selector xpath="Component"/>
      <xs:field xpath="@name"/>
    </xs:unique>
  </xs:element>
</xs:schema>
)xsd";
    return schema;
}
