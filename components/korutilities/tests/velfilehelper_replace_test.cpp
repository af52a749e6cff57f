// CVeLFileHelper::ReplaceContentAtomically: the file holds its old content or the whole new one, never
// anything else, whichever step fails, also when the process dies between writing and renaming.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velfilebasics.h"
#include "velfilehelper.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace
{

class ReplaceContentTest : public kortest::FileSystemTest
{
protected:
    std::vector<std::string> Entries() const
    {
        std::vector<std::string> names;
        for (fs::directory_iterator it(Root()), end; it != end; ++it)
            names.push_back(it->path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    bool Replace(IVeLFileHelper& helper, const std::string& content)
    {
        return helper.ReplaceContentAtomically(reinterpret_cast<const unsigned char*>(content.data()),
                                               content.size());
    }
};

TEST_F(ReplaceContentTest, ReplacesCreatesAndKeepsPermissions)
{
    const fs::path file = Root() / "settings.xml";
    CVeLFileHelper helper(file, false);
    ASSERT_TRUE(Replace(helper, std::string("first\0with zero", 15)));
    EXPECT_EQ(std::string("first\0with zero", 15), ReadFile(file));

    chmod(file.string().c_str(), 0600);
    ASSERT_TRUE(Replace(helper, "second"));
    EXPECT_EQ("second", ReadFile(file));
    struct stat st;
    ASSERT_EQ(0, stat(file.string().c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 07777); // a private file stays private

    ASSERT_TRUE(helper.ReplaceContentAtomically(nullptr, 0));
    EXPECT_EQ("", ReadFile(file));
    EXPECT_EQ(std::vector<std::string>{"settings.xml"}, Entries()); // no temporary file left
}

TEST_F(ReplaceContentTest, LinkIsReplacedAndItsTargetLeftAlone)
{
    const fs::path target = Root() / "target.txt";
    WriteFile(target, "target");
    fs::create_symlink(target, Root() / "link.txt");
    ASSERT_TRUE(Replace(*std::make_unique<CVeLFileHelper>(Root() / "link.txt", false), "new"));
    EXPECT_FALSE(fs::is_symlink(Root() / "link.txt"));
    EXPECT_EQ("new", ReadFile(Root() / "link.txt"));
    EXPECT_EQ("target", ReadFile(target));
}

TEST_F(ReplaceContentTest, RefusesWhatItMustNotReplace)
{
    const fs::path readOnly = Root() / "readonly.txt";
    WriteFile(readOnly, "kept");
    MakeReadOnly(readOnly);
    CVeLFileHelper readOnlyHelper(readOnly, false);
    EXPECT_FALSE(Replace(readOnlyHelper, "lost"));
    EXPECT_TRUE(m_capture.CountContaining("isn't writeable!") > 0);
    EXPECT_EQ("kept", ReadFile(readOnly));

    fs::create_directory(Root() / "folder");
    CVeLFileHelper folder(Root() / "folder", false);
    EXPECT_FALSE(Replace(folder, "x"));
    EXPECT_TRUE(fs::is_directory(Root() / "folder"));
    CVeLFileHelper empty{fs::path(), false};
    EXPECT_FALSE(Replace(empty, "x"));
    CVeLFileHelper missingFolder(Root() / "none" / "x.txt", false);
    EXPECT_FALSE(Replace(missingFolder, "x"));
    EXPECT_TRUE(m_capture.CountContaining("Cannot create file") > 0);

    CVeLFileHelper nullContent(Root() / "null.txt", false);
    EXPECT_FALSE(nullContent.ReplaceContentAtomically(nullptr, 5));
    EXPECT_EQ((std::vector<std::string>{"folder", "readonly.txt"}), Entries());
}

// Each step failing in turn through a replacement facade: the old bytes stay and the temporary file goes.
TEST_F(ReplaceContentTest, EveryFailingStepLeavesTheOldContent)
{
    const fs::path file = Root() / "data.bin";
    const std::string old("old\0content\xff", 12);
    const std::pair<const char*, std::function<void(CFakeWinAPIWrapper&)>> steps[] = {
        {"create",
         [](CFakeWinAPIWrapper& api) { api.OnCreateFile = FailWith(INVALID_HANDLE_VALUE, ERROR_DISK_FULL); }},
        {"short write", // as on a full disk
         [](CFakeWinAPIWrapper& api)
         {
             api.OnWriteFile = [](HANDLE h, LPCVOID b, DWORD n, LPDWORD written, LPOVERLAPPED o)
             { return CVeLWinAPIWrapper().WAPI_WriteFile(h, b, n / 2, written, o); };
         }},
        {"flush", [](CFakeWinAPIWrapper& api) { api.OnFlushFileBuffers = FailWith(FALSE, ERROR_DISK_FULL); }},
        {"rename", [](CFakeWinAPIWrapper& api) { api.OnMoveFileEx = FailWith(FALSE, ERROR_ACCESS_DENIED); }}};
    for (const auto& step : steps)
    {
        WriteFile(file, old);
        auto api = std::make_shared<CFakeWinAPIWrapper>();
        step.second(*api);
        CVeLFileHelper helper(api, std::make_shared<CVeLFileBasics>(), file, false);
        EXPECT_FALSE(Replace(helper, std::string(100000, 'n'))) << step.first;
        EXPECT_EQ(old, ReadFile(file)) << step.first;
        EXPECT_EQ(std::vector<std::string>{"data.bin"}, Entries()) << step.first;
    }
    EXPECT_TRUE(m_capture.CountContaining("renamed to") > 0);
}

TEST_F(ReplaceContentTest, StepsComeInCrashSafeOrder)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    CVeLFileHelper helper(api, std::make_shared<CVeLFileBasics>(), Root() / "f", false);
    ASSERT_TRUE(Replace(helper, "content"));
    EXPECT_EQ((std::vector<std::string>{"CreateFile", "WriteFile", "FlushFileBuffers", "CloseHandle",
                                        "MoveFileEx"}),
              api->Calls());
}

// A process killed after writing the temporary file, before renaming it, leaves the old content in place.
TEST_F(ReplaceContentTest, ProcessKilledBeforeTheRenameLeavesTheOldContent)
{
    const fs::path file = Root() / "data.txt";
    WriteFile(file, "old content");
    const pid_t child = fork();
    if (child == 0)
    {
        auto api = std::make_shared<CFakeWinAPIWrapper>();
        api->OnMoveFileEx = [](LPCWSTR, LPCWSTR, DWORD)
        {
            raise(SIGKILL);
            return FALSE;
        };
        CVeLFileHelper helper(api, std::make_shared<CVeLFileBasics>(), file, false);
        const std::string content(1 << 20, 'n');
        helper.ReplaceContentAtomically(reinterpret_cast<const unsigned char*>(content.data()),
                                        content.size());
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ("old content", ReadFile(file));
}

// Readers never see a partial file while two writers replace it again and again.
TEST_F(ReplaceContentTest, ReadersSeeOldOrNewNeverAMix)
{
    const fs::path file = Root() / "shared.txt";
    const std::size_t size = 64 * 1024;
    WriteFile(file, std::string(size, 'a'));
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    auto writer = [&](char letter)
    {
        CVeLFileHelper helper(file, false);
        const std::string content(size, letter);
        for (int i = 0; i < 100; ++i)
            if (!helper.ReplaceContentAtomically(reinterpret_cast<const unsigned char*>(content.data()),
                                                 size))
                ++failures;
    };
    std::thread reader(
        [&]()
        {
            while (!stop)
            {
                const std::string seen = ReadFile(file);
                if (seen.size() != size || seen.find_first_not_of(seen[0]) != std::string::npos)
                    ++failures;
            }
        });
    std::thread first(writer, 'b'), second(writer, 'c');
    first.join();
    second.join();
    stop = true;
    reader.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(std::vector<std::string>{"shared.txt"}, Entries());
}

} // namespace
