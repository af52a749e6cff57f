// Conversions between versions entries and their XML: a list round trip through text, entries the file
// can't hold, and documents whose entries don't convert.
#include "tracedtest.h"
#include "velversionxmlconverter.h"

#include <gtest/gtest.h>

namespace
{

VeLInstalledComponent Entry(const std::wstring& name, const CVeLVersion& version,
                            const std::wstring& description)
{
    VeLInstalledComponent component;
    component.name = name;
    component.version = version;
    component.installPath = L"/opt/kor/" + name;
    component.description = description;
    return component;
}

} // namespace

TEST(VeLVersionXmlConverter, ListsRoundTripThroughTheirText)
{
    const std::vector<VeLInstalledComponent> list = {
        Entry(L"Kernel", CVeLVersion(2, 1, 0, 7), L"Motion <kernel> & \"co\""),
        Entry(L"HMI \u00e4\U0001F600", CVeLVersion(65535, 0), L"")};
    std::wstring xml;
    ASSERT_TRUE(VeLVersionXmlConverter::ToText(list, xml));
    VeLVersionXmlConverter converter(xml);
    ASSERT_TRUE(converter.IsValidXML());
    std::vector<VeLInstalledComponent> read;
    ASSERT_TRUE(converter.ToComponents(read));
    ASSERT_EQ(read.size(), 2u);
    for (std::size_t i = 0; i < read.size(); ++i)
    {
        EXPECT_EQ(read[i].name, list[i].name);
        EXPECT_EQ(read[i].version, list[i].version);
        EXPECT_EQ(read[i].installPath, list[i].installPath);
        EXPECT_EQ(read[i].description, list[i].description);
    }
    EXPECT_EQ(xml.find(L"description=\"\""), std::wstring::npos); // an empty description is left out
}

TEST(VeLVersionXmlConverter, RefusesEntriesAndDocumentsTheFileCannotHold)
{
    const CVeLVersion v(1, 0);
    const std::vector<std::vector<VeLInstalledComponent>> refusedLists = {
        {Entry(L"A", v, L""), Entry(L"A", v, L"")}, // a name twice
        {Entry(L"", v, L"")},
        {Entry(L" A", v, L"")},
        {Entry(L"A\t", v, L"")},
        {Entry(L"A", v, std::wstring(L"bell \a"))}, // a character XML forbids
    };
    BTraceCapture capture;
    for (const auto& list : refusedLists)
    {
        std::wstring xml = L"unchanged";
        EXPECT_FALSE(VeLVersionXmlConverter::ToText(list, xml)) << list.size();
        EXPECT_EQ(xml, L"unchanged");
    }
    const wchar_t* refusedDocuments[] = {
        L"<Versions><Component name=\"A\" version=\"70000\" path=\"p\"/></Versions>", // out of range
        L"<Versions><Component name=\"A\" version=\"1.x\" path=\"p\"/></Versions>",   // refused by the schema
        L"<Versions><Component name=\"A\" version=\"1\" path=\"p\"/>"
        L"<Component name=\"A\" version=\"2\" path=\"q\"/></Versions>", // names unique
        L"<Other/>",
    };
    for (const wchar_t* document : refusedDocuments)
    {
        std::vector<VeLInstalledComponent> read(1);
        EXPECT_FALSE(VeLVersionXmlConverter(document).ToComponents(read)) << document;
        EXPECT_EQ(read.size(), 1u);
    }
    VeLInstalledComponent entry;
    EXPECT_FALSE(VeLVersionXmlConverter::ReadComponent(nullptr, entry));
    EXPECT_FALSE(VeLVersionXmlConverter::WriteComponent(entry, nullptr));
}
