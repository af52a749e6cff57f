// CVeLVersionsXMLHandler: the "versions.xml" file that lists the components installed on a machine, each
// with its name, four-part version, install path and an optional description:
//
//   <Versions>
//     <Component name="Kernel" version="2.1.0.7" path="/opt/kor/kernel" description="Motion kernel"/>
//   </Versions>
//
// The file is validated on load against the schema shipped as velversions.xsd (Schema() is that file's
// text, embedded at build time); besides, every version must read as a CVeLVersion (each part 0-65535).
// Entries are converted to and from elements by VeLVersionXmlConverter. A missing file is an
// empty, valid list that Save creates. The file is read as UTF-8 (with or without a byte-order mark) or as
// UTF-16LE with its byte-order mark, and written back as UTF-8 through the XML handler's crash-safe write.
// Changes stay in memory until Save. Not thread-safe: one thread uses a handler at a time.
//
// Every failure is traced at ERR and answered with false; nothing throws. A file that is not valid makes
// every operation fail ("Invalid initialization"), so a damaged file is never overwritten by a partial list.
#pragma once

#include "korutilities_export.h"
#include "velversionxmlconverter.h"
#include "velxmlhandler.h"

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLVersionsXMLHandler : public CVeLXMLHandler
{
public:
    explicit CVeLVersionsXMLHandler(const boost::filesystem::path& file);
    ~CVeLVersionsXMLHandler() override;

    // The components in file order.
    bool GetComponents(std::vector<VeLInstalledComponent>& components) const;
    // The component of that name (names compare exactly); false when there is none.
    bool FindComponent(const std::wstring& name, VeLInstalledComponent& component) const;
    // Replaces the component of the same name, or appends it.
    bool SetComponent(const VeLInstalledComponent& component);
    // False when there is no component of that name.
    bool RemoveComponent(const std::wstring& name);
    // Writes the list to the file it was loaded from (created when it was missing).
    bool Save() const;

    // The XML Schema of the file.
    static const std::wstring& Schema();

private:
    // The document text the base class loads: the file's text, or an empty list for a missing file.
    static std::wstring LoadText(const boost::filesystem::path& file);
    bool Usable() const;
    bool VersionsAreValid() const;
    DOMElement* FindElement(const std::wstring& name) const;

    boost::filesystem::path m_file;
    bool m_valid; // loaded, schema-valid and every version in range
};
