// Shared by the XML handler tests: a small schema and its conversions, and a fixture with a fresh folder
// whose traces stay at the warning level, so that a load which should trace nothing can be shown to.
#pragma once

#include "filetestsupport.h"
#include "velstringconverter.h"

#include <iterator>

namespace kortest
{

// A Config of Items, each with a required integer id. No encoding in the declaration: held in memory, the
// schema is read as the UTF-16 it is.
inline const wchar_t* const kConfigSchema = LR"(<?xml version="1.0"?>
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
  <xs:element name="Config">
    <xs:complexType>
      <xs:sequence>
        <xs:element name="Item" minOccurs="0" maxOccurs="unbounded">
          <xs:complexType>
            <xs:attribute name="id" type="xs:int" use="required"/>
          </xs:complexType>
        </xs:element>
      </xs:sequence>
    </xs:complexType>
  </xs:element>
</xs:schema>)";

inline std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

inline std::wstring Wide(const std::string& text)
{
    std::wstring wide;
    CVeLStringConverter::ConvertUTF8Chars2StdWString(text.c_str(), wide);
    return wide;
}

class XMLFileTest : public FileSystemTest
{
protected:
    void SetUp() override
    {
        FileSystemTest::SetUp();
        BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN);
    }
    boost::filesystem::path Write(const std::string& name, const std::string& bytes) const
    {
        WriteFile(Root() / name, bytes);
        return Root() / name;
    }
    std::ptrdiff_t EntryCount() const
    {
        return std::distance(boost::filesystem::directory_iterator(Root()), {});
    }
};

} // namespace kortest
