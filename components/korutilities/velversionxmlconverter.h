// VeLVersionXmlConverter: the conversion between the entries of a versions file ("versions.xml", see
// velversionsxmlhandler.h) and their in-memory form, VeLInstalledComponent with its CVeLVersion. It converts
// one Component element to an entry and back, a whole list element to entries, and a list of entries to
// the text of a complete versions document; as an XML handler it holds one versions document loaded from
// text and validated against the versions schema, whose entries ToComponents gives. CVeLVersionsXMLHandler
// reads and writes its file's entries through these conversions, so both agree on the form. Not
// thread-safe per object: one thread uses an instance at a time; the static conversions hold no state.
//
// Every failure is traced at ERR and answered with false; nothing throws. An entry whose version does not
// read as a CVeLVersion, or one the schema would refuse (empty name, name with surrounding spaces, a
// character XML forbids), fails the conversion and leaves the target unchanged.
#pragma once

#include "korutilities_export.h"
#include "velversion.h"
#include "velxmlhandler.h"

#include <string>
#include <vector>

// One installed component.
struct VeLInstalledComponent
{
    std::wstring name;
    CVeLVersion version;
    std::wstring installPath;
    std::wstring description; // empty when the file has none
};

class KORUTILITIES_API VeLVersionXmlConverter : public CVeLXMLHandler
{
public:
    // Loads and validates a versions document given as text.
    explicit VeLVersionXmlConverter(const std::wstring& xml);
    ~VeLVersionXmlConverter() override;

    // The entries of the loaded document in order; false when it did not load or holds a bad version.
    bool ToComponents(std::vector<VeLInstalledComponent>& components) const;

    // One Component element as an entry.
    static bool ReadComponent(const DOMElement* element, VeLInstalledComponent& component);
    // Sets the attributes of a Component element from an entry (a missing description removes it).
    static bool WriteComponent(const VeLInstalledComponent& component, DOMElement* element);
    // The Component children of a list element, in order (other children are skipped).
    static bool ReadComponents(const DOMElement* list, std::vector<VeLInstalledComponent>& components);
    // The text of a versions document listing the entries; false when one is refused or two share a name.
    static bool ToText(const std::vector<VeLInstalledComponent>& components, std::wstring& xml);

    // The XML Schema of versions documents (the text of the shipped velversions.xsd).
    static const std::wstring& Schema();
    // The name of the list element and of its entries.
    static constexpr const wchar_t* kListElement = L"Versions";
    static constexpr const wchar_t* kComponentElement = L"Component";
};
