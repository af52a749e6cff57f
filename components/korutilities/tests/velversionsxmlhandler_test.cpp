// The installed-components file: round trip through the file, encodings, and files the schema or the
// version rules refuse.
#include "filetestsupport.h"
#include "velversionsxmlhandler.h"

namespace
{

class VeLVersionsXMLHandlerTest : public kortest::FileSystemTest
{
protected:
    boost::filesystem::path File() const { return Root() / "versions.xml"; }
};

} // namespace

TEST_F(VeLVersionsXMLHandlerTest, AddUpdateRemoveAndSaveRoundTrip)
{
    {
        CVeLVersionsXMLHandler versions(File()); // missing: an empty list
        std::vector<VeLInstalledComponent> components;
        ASSERT_TRUE(versions.GetComponents(components));
        EXPECT_TRUE(components.empty());
        ASSERT_TRUE(versions.SetComponent({L"Kernel", CVeLVersion(1, 2), L"/opt/kor/kernel", L""}));
        ASSERT_TRUE(versions.SetComponent({L"HMI \"Ä&<", CVeLVersion(3, 0, 0, 9), L"C:\\HMI", L"Panel"}));
        ASSERT_TRUE(versions.SetComponent({L"Tools", CVeLVersion(1, 0), L"/opt/t", L""}));
        ASSERT_TRUE(versions.SetComponent({L"Kernel", CVeLVersion(1, 3), L"/opt/kor/kernel2", L"Motion"}));
        ASSERT_TRUE(versions.RemoveComponent(L"Tools"));
        EXPECT_FALSE(versions.RemoveComponent(L"Tools"));
        EXPECT_FALSE(versions.SetComponent({L" padded", CVeLVersion(), L"", L""}));
        ASSERT_TRUE(versions.Save());
    }
    CVeLVersionsXMLHandler reread(File());
    std::vector<VeLInstalledComponent> components;
    ASSERT_TRUE(reread.GetComponents(components));
    ASSERT_EQ(components.size(), 2u);
    EXPECT_EQ(components[0].name, L"Kernel");
    EXPECT_EQ(components[0].version, CVeLVersion(1, 3));
    EXPECT_EQ(components[0].installPath, L"/opt/kor/kernel2");
    EXPECT_EQ(components[0].description, L"Motion");
    VeLInstalledComponent hmi;
    ASSERT_TRUE(reread.FindComponent(L"HMI \"Ä&<", hmi));
    EXPECT_EQ(hmi.version.ToString(), L"3.0.0.9");
    EXPECT_EQ(hmi.installPath, L"C:\\HMI");
    EXPECT_FALSE(reread.FindComponent(L"kernel", hmi));
}

TEST_F(VeLVersionsXMLHandlerTest, ReadsUtf8AndUtf16AndRefusesWhatTheRulesRefuse)
{
    const std::string good = "<Versions><Component name=\"A\" version=\"1.2\" path=\"/a\"/></Versions>";
    WriteFile(File(), "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + good);
    std::vector<VeLInstalledComponent> components;
    EXPECT_TRUE(CVeLVersionsXMLHandler(File()).GetComponents(components));
    std::string utf16 = "\xFF\xFE";
    for (char c : "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + good)
        utf16 += std::string(1, c) + std::string(1, '\0');
    WriteFile(File(), utf16);
    EXPECT_TRUE(CVeLVersionsXMLHandler(File()).GetComponents(components));
    EXPECT_EQ(components.size(), 1u);

    const std::string refused[] = {
        "<Versions><Component name=\"A\" version=\"1.2.3.4.5\" path=\"/a\"/></Versions>",
        "<Versions><Component name=\"A\" version=\"70000\" path=\"/a\"/></Versions>",
        "<Versions><Component name=\"A\" path=\"/a\"/></Versions>",
        "<Versions><Component name=\"A\" version=\"1\" path=\"/a\"/><Component name=\"A\" version=\"2\" "
        "path=\"/b\"/></Versions>",
        "<Versions><Other/></Versions>",
        "<Components/>",
        "<Versions><Component name=\"A\" version=\"1\" path=\"/a\"></Versions>",
        "",
    };
    for (const std::string& text : refused)
    {
        WriteFile(File(), text);
        CVeLVersionsXMLHandler versions(File());
        EXPECT_FALSE(versions.GetComponents(components)) << text;
        EXPECT_FALSE(versions.SetComponent({L"B", CVeLVersion(1, 0), L"/b", L""})) << text;
        EXPECT_FALSE(versions.Save()) << text;
        EXPECT_EQ(ReadFile(File()), text); // a damaged file is left for a human to repair
    }
}
