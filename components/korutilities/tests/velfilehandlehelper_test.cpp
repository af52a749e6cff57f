// CVeLFileHandleHelper: a real child process that holds a file open is named; Restart Manager failures
// from a replacement facade are traced and fail.
#include "childprocess.h"
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velfilehandlehelper.h"

#include "kortestsupport.h"

#include <fstream>

namespace fs = boost::filesystem;

namespace
{

using FileHandleHelperTest = kortest::FileSystemTest;

// Opens HOLD_FILE, announces it by creating READY_FILE and keeps the file open until STOP_FILE appears.
KOR_CHILD_ROLE(hold_file_open)
{
    std::ifstream held(kortest::ChildParameter("HOLD_FILE"), std::ios::binary);
    if (!held)
        return 1;
    {
        std::ofstream ready(kortest::ChildParameter("READY_FILE"));
    }
    const std::string stop = kortest::ChildParameter("STOP_FILE");
    kortest::WaitUntil([&] { return boost::filesystem::exists(stop); });
    return 0;
}

TEST_F(FileHandleHelperTest, NamesTheChildProcessThatHoldsTheFile)
{
    KORTEST_SKIP_UNDER_WINE("its Restart Manager is a stub that names no process");
    const fs::path file = Root() / "held.dat", ready = Root() / "ready", stop = Root() / "stop";
    WriteFile(file, "data");
    CVeLFileHandleHelper helper;
    std::list<VeLFileHandleInfo> holders;
    ASSERT_TRUE(helper.GetFileLockingProcesses(file, holders));
    EXPECT_TRUE(holders.empty());

    const pid_t child =
        kortest::StartChild("hold_file_open", {"HOLD_FILE=" + file.string(), "READY_FILE=" + ready.string(),
                                               "STOP_FILE=" + stop.string()});
    ASSERT_TRUE(kortest::WaitUntil([&] { return fs::exists(ready); }));
    const bool found = helper.GetFileLockingProcesses(file, holders);
    WriteFile(stop, "");
    EXPECT_EQ(kortest::WaitChild(child), 0);
    ASSERT_TRUE(found);
    ASSERT_EQ(holders.size(), 1u);
    EXPECT_EQ(holders.front().processId, static_cast<DWORD>(child));
    EXPECT_FALSE(holders.front().applicationName.empty());

    EXPECT_FALSE(helper.GetFileLockingProcesses(fs::path(), holders));
}

TEST_F(FileHandleHelperTest, RestartManagerFailuresAreTracedAndTheSessionEnded)
{
    const fs::path file = Root() / "f";
    WriteFile(file, "x");
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    CVeLFileHandleHelper helper(api);
    std::list<VeLFileHandleInfo> holders;

    api->OnRmStartSession = [](DWORD*, DWORD, WCHAR[]) { return static_cast<DWORD>(ERROR_ACCESS_DENIED); };
    EXPECT_FALSE(helper.GetFileLockingProcesses(file, holders));
    EXPECT_EQ(api->CallCount("RmEndSession"), 0u);

    api->OnRmStartSession = nullptr;
    api->OnRmRegisterResources = [](DWORD, UINT, LPCWSTR[], UINT, RM_UNIQUE_PROCESS[], UINT, LPCWSTR[])
    { return static_cast<DWORD>(ERROR_BAD_ARGUMENTS); };
    EXPECT_FALSE(helper.GetFileLockingProcesses(file, holders));
    EXPECT_EQ(api->CallCount("RmEndSession"), 1u);

    // One holder announced, then the second call fails.
    api->OnRmRegisterResources = nullptr;
    api->OnRmGetList = [](DWORD, UINT* needed, UINT*, RM_PROCESS_INFO records[], LPDWORD)
    {
        *needed = 1;
        return static_cast<DWORD>(records == nullptr ? ERROR_MORE_DATA : ERROR_INVALID_PARAMETER);
    };
    EXPECT_FALSE(helper.GetFileLockingProcesses(file, holders));
    EXPECT_EQ(api->CallCount("RmGetList"), 2u);
    EXPECT_EQ(api->CallCount("RmEndSession"), 2u);
    EXPECT_TRUE(holders.empty());

    CVeLFileHandleHelper noApi(nullptr);
    EXPECT_FALSE(noApi.GetFileLockingProcesses(file, holders));
}

} // namespace
