// CVeLDirHelper against hostile trees: names holding "\", ".." text, forbidden characters and bytes that
// are not UTF-8; a folder swapped for a link in the middle of a deletion; trees deeper than the path
// limit; read-only and unreadable folders met by an ordinary user; and a fuzz run of random names created,
// listed, copied and deleted with nothing outside the tree touched.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "veldirbasics.h"
#include "veldirhelper.h"
#include "velfilebasics.h"
#include "velpathconverter.h"
#include "velwaithelper.h"

#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <map>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace
{

using HostileTreeTest = kortest::FileSystemTest;

// Every object below root as relative native path -> content ("<dir>" for folders, "<link>" for links).
std::map<std::string, std::string> Snapshot(const fs::path& root)
{
    std::map<std::string, std::string> objects;
    boost::system::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error))
    {
        const std::string relative = it->path().native().substr(root.native().size());
        const fs::file_type type = it->symlink_status().type();
        objects[relative] = type == fs::directory_file ? "<dir>"
                            : type == fs::symlink_file ? "<link>"
                                                       : kortest::FileSystemTest::ReadFile(it->path());
    }
    return objects;
}

// Runs body in a child process as user "nobody" when the tests run as root, else as the current user; the
// child's exit code (0 when body answered true).
int AsOrdinaryUser(const std::function<bool()>& body)
{
    const pid_t child = fork();
    if (child == 0)
    {
        if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            _exit(3);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A folder that user "nobody" owns, so that it can work there; the test is skipped when that is impossible.
fs::path OrdinaryUsersFolder(const fs::path& root)
{
    const fs::path folder = root / "ordinary";
    fs::create_directories(folder);
    chmod(root.c_str(), 0755);
    if (geteuid() == 0 && chown(folder.c_str(), 65534, 65534) != 0)
        return fs::path();
    return folder;
}

} // namespace

// The tree holds names that read as paths elsewhere; deleting it removes exactly its own entries.
TEST_F(HostileTreeTest, HostileNamesAreDeletedAndCopiedExactly)
{
    const fs::path base = Root() / "a" / "b", tree = base / "tree";
    WriteFile(base / "victim.txt", "victim");
    WriteFile(Root() / "a" / "keep", "keep");
    WriteFile(tree / "..\\victim.txt", "1");
    WriteFile(tree / "..\\..\\keep", "2");
    WriteFile(tree / "..\\..\\.." / "x.txt", "3");
    WriteFile(tree / "bad\xFF\xFE", "4");
    WriteFile(tree / "bad\xEF\xBF\xBD", "5"); // a real U+FFFD, which the name above must not be taken for
    WriteFile(tree / "c:d*e?f|g", "6");
    const std::map<std::string, std::string> outside = Snapshot(Root() / "a");

    // Copy: the destination gets the same names, byte for byte, and nothing is written anywhere else.
    const fs::path copy = base / "copy";
    ASSERT_TRUE(CVeLDirHelper(tree, false).Copy(copy));
    EXPECT_EQ(Snapshot(copy), Snapshot(tree));
    std::map<std::string, std::string> afterCopy = Snapshot(Root() / "a");
    for (auto it = afterCopy.begin(); it != afterCopy.end();)
        it = it->first.compare(0, 7, "/b/copy") == 0 ? afterCopy.erase(it) : ++it;
    EXPECT_EQ(afterCopy, outside);

    // Delete by mask reaches the file with the invalid bytes only, not its U+FFFD sibling.
    ASSERT_TRUE(CVeLDirHelper(tree, false).RemoveFileSiblings(L"bad\xDCFF\xDCFE", false));
    EXPECT_FALSE(fs::exists(tree / "bad\xFF\xFE"));
    EXPECT_EQ(ReadFile(tree / "bad\xEF\xBF\xBD"), "5");

    EXPECT_TRUE(CVeLDirHelper(tree, false).RemoveSiblingsAndCheck());
    EXPECT_TRUE(fs::is_empty(tree));
    EXPECT_TRUE(CVeLDirHelper(copy, false).Remove().IsSuccess());
    EXPECT_EQ(ReadFile(base / "victim.txt"), "victim");
    EXPECT_EQ(ReadFile(Root() / "a" / "keep"), "keep");
}

// A sub-folder swapped for a link after the listing: before the attributes are read again it is removed
// as a link; after that (on the way into it) it is refused. Either way the link's target keeps everything.
TEST_F(HostileTreeTest, FolderSwappedForALinkMidDeletionIsNotFollowed)
{
    const fs::path target = Root() / "target";
    WriteFile(target / "keep.txt", "keep");
    for (const char* moment : {"GetFileAttributes", "FindFirstFile"})
    {
        const fs::path tree = Root() / "tree";
        WriteFile(tree / "sub" / "inner.txt", "inner");
        WriteFile(tree / "z.txt", "z");
        auto api = std::make_shared<CFakeWinAPIWrapper>();
        const std::wstring sub = CVeLPathConverter::ToWide(tree / "sub");
        bool swapped = false;
        auto swap = [&](LPCWSTR path)
        {
            if (swapped || std::wstring(path).compare(0, sub.size(), sub) != 0)
                return;
            swapped = true;
            fs::remove_all(tree / "sub");
            fs::create_directory_symlink(target, tree / "sub");
        };
        if (std::string(moment) == "GetFileAttributes")
            api->OnGetFileAttributes = [&](LPCWSTR path) { return swap(path), GetFileAttributesW(path); };
        else
            api->OnFindFirstFile = [&](LPCWSTR path, LPWIN32_FIND_DATAW data)
            { return swap(path), FindFirstFileW(path, data); };
        CVeLDirBasics basics(api, std::make_shared<CVeLWaitHelper>(false));
        basics.RemoveDirectory(tree);
        EXPECT_TRUE(swapped) << moment;
        EXPECT_EQ(ReadFile(target / "keep.txt"), "keep") << moment;
        EXPECT_FALSE(fs::exists(tree / "z.txt")) << moment;
        boost::system::error_code ignored;
        fs::remove_all(tree, ignored);
    }
}

// A tree of 3,000 levels (some 6,000 bytes of path) is deleted as a whole.
TEST_F(HostileTreeTest, TreeDeeperThanThePathLimitIsDeleted)
{
    const fs::path tree = Root() / "deep";
    fs::create_directories(tree);
    int fd = open(tree.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    for (int level = 0; level < 3000; ++level)
    {
        ASSERT_EQ(mkdirat(fd, "d", 0777), 0);
        if (level % 100 == 0)
            close(openat(fd, "f", O_CREAT | O_WRONLY, 0444));
        const int next = openat(fd, "d", O_RDONLY | O_DIRECTORY);
        close(fd);
        ASSERT_GE(next, 0);
        fd = next;
    }
    close(fd);
    EXPECT_TRUE(CVeLDirHelper(tree, false).Remove().IsSuccess());
    EXPECT_FALSE(fs::exists(tree));
}

// As an ordinary user: a tree of read-only folders is deleted (a folder's read-only attribute does not
// protect its entries), and a copy of a tree with an unreadable sub-folder fails instead of skipping it.
TEST_F(HostileTreeTest, ReadOnlyFoldersAndUnreadableFoldersForAnOrdinaryUser)
{
    const fs::path folder = OrdinaryUsersFolder(Root());
    if (folder.empty())
        GTEST_SKIP() << "can't hand a folder to user nobody";
    const int code = AsOrdinaryUser(
        [&]
        {
            const fs::path tree = folder / "tree";
            WriteFile(tree / "sub" / "deeper" / "a.txt", "a");
            WriteFile(tree / "b.txt", "b");
            MakeReadOnly(tree / "b.txt");
            for (const fs::path& dir : {tree / "sub" / "deeper", tree / "sub", tree})
                chmod(dir.c_str(), 0555);
            if (!CVeLDirHelper(tree, false).Remove().IsSuccess() || fs::exists(tree))
                return false;

            const fs::path source = folder / "source";
            WriteFile(source / "open" / "x.txt", "x");
            WriteFile(source / "closed" / "y.txt", "y");
            chmod((source / "closed").c_str(), 0000);
            const bool copied = CVeLDirHelper(source, false).Copy(folder / "copy");
            chmod((source / "closed").c_str(), 0755);
            std::vector<fs::path> toc;
            chmod((source / "closed").c_str(), 0000);
            const bool listed = CVeLDirHelper(source, false).GetTOC(toc);
            chmod((source / "closed").c_str(), 0755);
            return !copied && !listed;
        });
    EXPECT_EQ(code, 0);
}

// A few thousand random names (random bytes, separators, dots, forbidden characters) in a tree: the
// listing hands every one back unchanged, the copy reproduces them, the deletion removes them, and
// nothing outside the tree changes.
TEST_F(HostileTreeTest, FuzzedNamesRoundTripThroughListCopyAndDelete)
{
    const fs::path tree = Root() / "tree", copy = Root() / "copy";
    WriteFile(Root() / "outside.txt", "outside");
    fs::create_directories(Root() / "outside-dir");
    std::mt19937 random(2024);
    const std::string alphabet = std::string("\\.:*?\"<>| \t\x01\x7F\xC3\xA4\xEF\x80\xBF\xFF\xED\xB2") + "ab";
    std::map<std::string, std::string> created; // relative native path -> content
    const std::vector<std::string> folders = {"", "/s1", "/s1/..\\s2", "/\xFF.."};
    for (const std::string& folder : folders)
        fs::create_directories(fs::path(tree.native() + folder));
    while (created.size() < 3000)
    {
        std::string name(1 + random() % 16, 'a');
        for (char& c : name)
            c = random() % 3 == 0 ? static_cast<char>(1 + random() % 255)
                                  : alphabet[random() % alphabet.size()];
        for (char& c : name)
            if (c == '/')
                c = '\\';
        if (name == "." || name == ".." || name == "s1" || name == "..\\s2" || name == "\xFF..")
            continue;
        const std::string relative = folders[random() % folders.size()] + "/" + name;
        if (created.count(relative))
            continue;
        std::ofstream(tree.native() + relative, std::ios::binary) << relative;
        created[relative] = relative;
    }
    const std::map<std::string, std::string> outside = {{"/outside-dir", "<dir>"},
                                                        {"/outside.txt", "outside"}};

    std::vector<fs::path> toc;
    ASSERT_TRUE(CVeLDirHelper(tree, false).GetTOC(toc));
    ASSERT_EQ(toc.size(), created.size());
    for (const fs::path& file : toc)
    {
        const std::string relative = file.native().substr(tree.native().size());
        ASSERT_EQ(created.count(relative), 1u) << relative;
        // The name's wide form carries no separator and leads back to the same bytes.
        const std::wstring wide = CVeLPathConverter::ToWide(file.filename());
        EXPECT_EQ(wide.find_first_of(L"\\/"), std::wstring::npos);
        EXPECT_EQ(CVeLPathConverter::FromWide(wide), file.filename());
    }

    ASSERT_TRUE(CVeLDirHelper(tree, false).Copy(copy));
    std::map<std::string, std::string> copied;
    for (const auto& entry : Snapshot(copy))
        if (entry.second != "<dir>")
            copied.insert(entry);
    EXPECT_EQ(copied, created);

    EXPECT_TRUE(CVeLDirHelper(tree, false).Remove().IsSuccess());
    EXPECT_TRUE(CVeLDirHelper(copy, false).Remove().IsSuccess());
    EXPECT_EQ(Snapshot(Root()), outside);
}
