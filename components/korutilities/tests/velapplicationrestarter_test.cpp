#include "procchild.h"
#include "velapplicationrestarter.h"
#include "velpathconverter.h"

#include <btrace.h>

namespace fs = boost::filesystem;
using kortest::HelperStart;
using kortest::WaitForStrings;

namespace
{

using ApplicationRestarterTest = kortest::FileSystemTest;

DWORD HolderOf(CVeLApplicationRestarter& restarter)
{
    std::vector<VeLApplicationInfo> applications;
    if (!restarter.GetApplications(applications) || applications.empty())
        return 0;
    return applications[0].processId;
}

TEST_F(ApplicationRestarterTest, HolderIsListedShutDownAndRestartedWithItsCommandLine)
{
    WriteFile(Root() / "folder" / "sub" / "held.bin", "data");
    fs::create_directories(Root() / "work");
    VeLProcessStartInfo info =
        HelperStart({L"hold", CVeLPathConverter::ToWide(Root() / "folder" / "sub" / "held.bin"),
                     CVeLPathConverter::ToWide(Root() / "out"), L"an argument", L"ü \"q\""});
    info.workingFolder = Root() / "work";
    CVeLProcessHelper helper;
    std::shared_ptr<CVeLProcess> holder = helper.Start(info);
    ASSERT_TRUE(holder);
    const std::vector<std::string> first = WaitForStrings(Root() / "out");
    ASSERT_EQ(3u, first.size());

    CVeLApplicationRestarter restarter;
    ASSERT_TRUE(restarter.AddResources({Root() / "folder"}));
    std::vector<VeLApplicationInfo> applications;
    ASSERT_TRUE(restarter.GetApplications(applications));
    ASSERT_EQ(1u, applications.size());
    EXPECT_EQ(holder->GetId(), applications[0].processId);
    EXPECT_EQ(L"korprochelper", applications[0].name);
    EXPECT_TRUE(applications[0].restartable);
    EXPECT_EQ(ApplicationRunning, applications[0].state);

    std::vector<VeLApplicationInfo> failed;
    ASSERT_TRUE(restarter.Shutdown(5000, failed));
    EXPECT_TRUE(failed.empty());
    EXPECT_EQ(ProcessStatusEnded, holder->Wait(0).GetValue());

    fs::remove(Root() / "out");
    ASSERT_TRUE(restarter.Restart(failed));
    EXPECT_TRUE(failed.empty());
    EXPECT_EQ(first, WaitForStrings(Root() / "out")); // same arguments, same working folder

    CVeLApplicationRestarter again;
    ASSERT_TRUE(again.AddResources({Root() / "folder" / "sub" / "held.bin"}));
    const DWORD restarted = HolderOf(again);
    ASSERT_NE(0u, restarted);
    EXPECT_NE(holder->GetId(), restarted);
    EXPECT_TRUE(helper.End(restarted, 5000, 1));
}

TEST_F(ApplicationRestarterTest, HolderStopsAlsoWithoutTimeLeft)
{
    WriteFile(Root() / "held.bin", "data");
    CVeLProcessHelper helper;
    std::shared_ptr<CVeLProcess> holder =
        helper.Start(HelperStart({L"hold", CVeLPathConverter::ToWide(Root() / "held.bin"),
                                  CVeLPathConverter::ToWide(Root() / "out")}));
    ASSERT_TRUE(holder);
    WaitForStrings(Root() / "out");
    CVeLApplicationRestarter restarter;
    ASSERT_TRUE(restarter.AddResources({Root() / "held.bin"}));
    std::vector<VeLApplicationInfo> failed;
    EXPECT_TRUE(restarter.Shutdown(0, failed));
    EXPECT_EQ(ProcessStatusEnded, holder->Wait(5000).GetValue());
}

TEST_F(ApplicationRestarterTest, BadInputFails)
{
    CVeLApplicationRestarter restarter;
    std::vector<VeLApplicationInfo> list;
    EXPECT_FALSE(restarter.AddResources({}));
    EXPECT_FALSE(restarter.AddResources({fs::path()}));
    EXPECT_FALSE(restarter.GetApplications(list)); // nothing registered yet
    EXPECT_FALSE(restarter.Restart(list));
    ASSERT_TRUE(restarter.AddResources({Root() / "nobody holds this"}));
    EXPECT_TRUE(restarter.GetApplications(list));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(restarter.Shutdown(1000, list)); // nothing to stop
    EXPECT_FALSE(restarter.Restart(list));       // nothing was stopped
}

} // namespace
