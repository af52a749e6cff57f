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

bool IsComponentNamed(const DOMNode* node, const std::wstring& name)
{
    return node->getNodeType() == DOMNode::ELEMENT_NODE &&
           CVeLXMLCharConverter::ToWString(node->getNodeName()) ==
               VeLVersionXmlConverter::kComponentElement &&
           CVeLXMLCharConverter::GetAttribute(static_cast<const DOMElement*>(node), L"name") == name;
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
    std::vector<VeLInstalledComponent> components;
    DOMElement* root = nullptr;
    return GetDOMBranch(VeLVersionXmlConverter::kListElement, root) &&
           VeLVersionXmlConverter::ReadComponents(root, components);
}

bool CVeLVersionsXMLHandler::GetComponents(std::vector<VeLInstalledComponent>& components) const
{
    components.clear();
    DOMElement* root = nullptr;
    return Usable() && GetDOMBranch(VeLVersionXmlConverter::kListElement, root) &&
           VeLVersionXmlConverter::ReadComponents(root, components);
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
    if (!GetDOMBranch(VeLVersionXmlConverter::kListElement, root))
        return nullptr;
    for (DOMNode* node = root->getFirstChild(); node != nullptr; node = node->getNextSibling())
        if (IsComponentNamed(node, name))
            return static_cast<DOMElement*>(node);
    return nullptr;
}

bool CVeLVersionsXMLHandler::SetComponent(const VeLInstalledComponent& component)
{
    if (!Usable())
        return false;
    DOMElement* element = FindElement(component.name);
    if (element != nullptr)
        return VeLVersionXmlConverter::WriteComponent(component, element);
    element = CreateDOMElement(VeLVersionXmlConverter::kComponentElement);
    return element != nullptr && VeLVersionXmlConverter::WriteComponent(component, element) &&
           InsertDOMBranch(VeLVersionXmlConverter::kListElement, element);
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
    return VeLVersionXmlConverter::Schema();
}
