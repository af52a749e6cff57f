#include "fakewinapiwrapper.h"
#include "procchild.h"
#include "velpathconverter.h"
#include "velstringconverter.h"
#include "velwaithelper.h"

#include <btrace.h>

#include <csignal>
#include <fstream>

namespace fs = boost::filesystem;
using kortest::HelperStart;
using kortest::WaitForStrings;

namespace
{

class ProcessHelperTest : public kortest::FileSystemTest
{
protected:
    std::wstring Out(const char* name) const { return CVeLPathConverter::ToWide(Root() / name); }
    CVeLProcessHelper m_helper;
};

TEST_F(ProcessHelperTest, ArgumentsArriveUnchanged)
{
    const std::vector<std::wstring> tricky = {
        L"",           L"plain",        L"two words",      L"tab\there",         L"quote\"inside",
        L"\"",         L"back\\slash",  L"trailing\\",     L"trailing\\\\",      L"\\\\\"both\\\"",
        L"a\\\\b c\\", L"%PATH% $HOME", L"ünïcødé ✓ 日本", L"  lead and trail  "};
    std::vector<std::wstring> arguments = {L"args", Out("args")};
    arguments.insert(arguments.end(), tricky.begin(), tricky.end());
    DWORD exitCode = 1;
    const CVeLResult<ProcessStatusEnum> status = m_helper.Run(HelperStart(arguments), 10000, exitCode);
    ASSERT_TRUE(status.IsSuccess());
    EXPECT_EQ(ProcessStatusEnded, status.GetValue());
    EXPECT_EQ(0u, exitCode);
    std::vector<std::string> seen = WaitForStrings(Root() / "args");
    ASSERT_EQ(tricky.size() + 1, seen.size());
    for (std::size_t i = 0; i < tricky.size(); ++i)
        EXPECT_EQ(CVeLStringConverter::ConvertStdWStringToStdString(tricky[i]), seen[i]) << i;
}

TEST_F(ProcessHelperTest, EnvironmentAndFolderArrive)
{
    auto api = std::make_shared<CVeLWinAPIWrapper>();
    api->WAPI_SetEnvironmentVariable(L"KOR_PROC_REMOVED", L"gone");
    api->WAPI_SetEnvironmentVariable(L"KOR_PROC_KEPT", L"kept");
    api->WAPI_SetEnvironmentVariable(L"KOR_PROC_REPLACED", L"old");
    VeLProcessStartInfo info = HelperStart(
        {L"env", Out("env"), L"KOR_PROC_ADDED", L"KOR_PROC_REMOVED", L"KOR_PROC_KEPT", L"KOR_PROC_REPLACED"});
    info.setVariables = {{L"KOR_PROC_ADDED", L"with spaces = ü"}, {L"KOR_PROC_REPLACED", L"new"}};
    info.removeVariables = {L"KOR_PROC_REMOVED"};
    info.hidden = true;
    DWORD exitCode = 1;
    ASSERT_TRUE(m_helper.Run(info, 10000, exitCode).IsSuccess());
    EXPECT_EQ((std::vector<std::string>{"KOR_PROC_ADDED=with spaces = ü", "KOR_PROC_REMOVED",
                                        "KOR_PROC_KEPT=kept", "KOR_PROC_REPLACED=new"}),
              WaitForStrings(Root() / "env"));
    api->WAPI_SetEnvironmentVariable(L"KOR_PROC_REMOVED", nullptr);

    fs::create_directories(Root() / "a folder");
    info = HelperStart({L"args", Out("cwd")});
    info.workingFolder = Root() / "a folder";
    ASSERT_TRUE(m_helper.Run(info, 10000, exitCode).IsSuccess());
    EXPECT_EQ((std::vector<std::string>{fs::canonical(Root() / "a folder").string()}),
              WaitForStrings(Root() / "cwd"));
}

TEST_F(ProcessHelperTest, ExitCodeAndDeadline)
{
    DWORD exitCode = 0;
    CVeLResult<ProcessStatusEnum> status = m_helper.Run(HelperStart({L"exit", L"42"}), 10000, exitCode);
    EXPECT_EQ(ProcessStatusEnded, status.GetValue());
    EXPECT_EQ(42u, exitCode);

    std::shared_ptr<CVeLProcess> sleeper = m_helper.Start(HelperStart({L"sleep", L"60000"}));
    ASSERT_TRUE(sleeper);
    status = sleeper->Wait(200);
    ASSERT_TRUE(status.IsSuccess());
    EXPECT_EQ(ProcessStatusRunning, status.GetValue()); // the deadline passed, the process runs on
    EXPECT_TRUE(m_helper.IsRunning(sleeper->GetId()));
    EXPECT_FALSE(sleeper->GetExitCode().IsSuccess());
    // The polite request ends it: the exit code tells SIGTERM, not the forced end's 77.
    EXPECT_TRUE(m_helper.End(sleeper->GetId(), 5000, 77));
    EXPECT_EQ(128u + SIGTERM, sleeper->GetExitCode().GetValue());
    EXPECT_FALSE(m_helper.IsRunning(sleeper->GetId()));

    std::shared_ptr<CVeLProcess> stubborn =
        m_helper.Start(HelperStart({L"stubborn", Out("ready"), L"60000"}));
    ASSERT_TRUE(stubborn);
    WaitForStrings(Root() / "ready"); // its handler is in place
    EXPECT_TRUE(stubborn->End(300, 77));
    EXPECT_EQ(77u, stubborn->GetExitCode().GetValue());
}

TEST_F(ProcessHelperTest, EndingATreeLeavesNoChild)
{
    std::shared_ptr<CVeLProcess> root = m_helper.Start(HelperStart({L"tree", Out("tree"), L"3"}));
    ASSERT_TRUE(root);
    kortest::WaitUntil([&] { return fs::exists(Root() / "tree"); });
    std::ifstream ids((Root() / "tree").string());
    std::vector<DWORD> children;
    for (DWORD id; ids >> id;)
        children.push_back(id);
    ASSERT_EQ(3u, children.size());
    for (DWORD child : children)
        EXPECT_TRUE(m_helper.IsRunning(child));
    EXPECT_TRUE(m_helper.EndTree(root->GetId(), 200, 9));
    EXPECT_EQ(ProcessStatusEnded, root->GetStatus().GetValue());
    for (DWORD child : children)
    {
        std::shared_ptr<CVeLProcess> opened = m_helper.Open(child);
        EXPECT_TRUE(!opened || opened->Wait(5000).GetValue() == ProcessStatusEnded) << child;
    }
}

TEST_F(ProcessHelperTest, FindsByNameWithoutCaseAndById)
{
    std::shared_ptr<CVeLProcess> sleeper = m_helper.Start(HelperStart({L"sleep", L"60000"}));
    ASSERT_TRUE(sleeper);
    std::vector<VeLProcessInfo> found;
    ASSERT_TRUE(m_helper.FindByName(L"KorProcHelper", found));
    auto mine = std::find_if(found.begin(), found.end(),
                             [&](const VeLProcessInfo& p) { return p.processId == sleeper->GetId(); });
    ASSERT_NE(found.end(), mine);
    EXPECT_EQ(fs::canonical(KOR_PROC_HELPER), mine->imagePath);
    VeLProcessInfo byId;
    ASSERT_TRUE(m_helper.FindById(sleeper->GetId(), byId));
    EXPECT_EQ(L"korprochelper", byId.imageName);
    EXPECT_EQ(fs::canonical(KOR_PROC_HELPER), byId.imagePath);
    EXPECT_TRUE(sleeper->End(0, 1));
}

// Each bad input fails with its reason traced, and starts nothing (the child would have written "out").
TEST_F(ProcessHelperTest, BadInputFailsCleanly)
{
    struct Case
    {
        const char* what;
        VeLProcessStartInfo info;
        const char* trace;
    };
    VeLProcessStartInfo missing = HelperStart({L"args", Out("out")});
    missing.program = Root() / "no such program";
    VeLProcessStartInfo noFolder = HelperStart({L"args", Out("out")});
    noFolder.workingFolder = Root() / "no such folder";
    VeLProcessStartInfo zero = HelperStart({L"args", Out("out"), std::wstring(L"a\0b", 3)});
    VeLProcessStartInfo badName = HelperStart({L"args", Out("out")});
    badName.setVariables[L"A=B"] = L"x";
    const Case cases[] = {{"missing program", missing, "not found"},
                          {"missing folder", noFolder, "does not exist"},
                          {"zero in argument", zero, "Invalid parameter"},
                          {"'=' in a name", badName, "Invalid parameter"}};
    for (const Case& c : cases)
    {
        BTraceCapture capture;
        EXPECT_FALSE(m_helper.Start(c.info)) << c.what;
        EXPECT_EQ(1u, capture.CountContaining(c.trace)) << c.what;
    }
    EXPECT_FALSE(fs::exists(Root() / "out"));

    const DWORD neverAProcess = 0x3FFFFFF0;
    std::vector<VeLProcessInfo> found;
    VeLProcessInfo info;
    std::vector<HWND> windows;
    EXPECT_FALSE(m_helper.Open(neverAProcess));
    EXPECT_FALSE(m_helper.End(neverAProcess, 0, 1));
    EXPECT_FALSE(m_helper.FindById(neverAProcess, info));
    EXPECT_FALSE(m_helper.IsRunning(neverAProcess));
    EXPECT_FALSE(m_helper.FindByName(L"", found));
    BTraceCapture capture;
    EXPECT_FALSE(m_helper.GetTopLevelWindows(1, windows)); // no windows on this system
    EXPECT_EQ(1u, capture.CountContaining("has no windows"));
}

TEST_F(ProcessHelperTest, FailedEnvironmentReadStartsNothing)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnGetEnvironmentStrings = []() -> LPWCH { return nullptr; };
    CVeLProcessHelper helper(api, std::make_shared<CVeLWaitHelper>(false));
    EXPECT_FALSE(helper.Start(HelperStart({L"exit", L"0"})));
    EXPECT_EQ(0u, api->CallCount("CreateProcess"));
}

} // namespace
