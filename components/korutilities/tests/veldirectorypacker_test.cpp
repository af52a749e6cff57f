#include "veldirectorypacker.h"

#include "filetestsupport.h"
#include "shelltestsupport.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace
{

namespace fs = boost::filesystem;
using kortest::Quote;
using kortest::RunShell;

const char* const kUmlautName = "\xc3\xbc"
                                "bersicht \xe2\x82\xac.txt"; // non-ASCII file name

std::string RandomText(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string text(size, ' ');
    for (char& c : text)
        c = static_cast<char>('a' + random() % 16);
    return text;
}

class DirectoryPackerTest : public kortest::FileSystemTest
{
protected:
    void MakeTree(const fs::path& tree)
    {
        WriteFile(tree / "readme.txt", "hello\n");
        WriteFile(tree / "empty.dat", "");
        WriteFile(tree / kUmlautName, "non-ASCII name");
        WriteFile(tree / "sub" / "deeper" / "many.txt", RandomText(300000, 1));
        WriteFile(tree / "large.bin", RandomText(17u << 20, 2)); // above the whole-file limit: streamed
        fs::create_directories(tree / "empty-folder");
        fs::create_directories(tree / "sub" / "empty-too");
        fs::last_write_time(tree / "readme.txt", 1500000000);
        fs::last_write_time(tree / "large.bin", 1600000000);
    }

    // Python writes archives with whatever names and attributes a test wants.
    void MakeArchive(const fs::path& archive, const std::string& entries)
    {
        const std::string script = "import zipfile\nz = zipfile.ZipFile('" + archive.string() + "', 'w')\n" +
                                   entries + "z.close()\n";
        WriteFile(Root() / "make.py", script);
        ASSERT_EQ(0, RunShell("/usr/bin/python3 " + Quote(Root() / "make.py")).status);
    }

    // Every file and folder below root: relative path -> content ("/" for folders).
    static std::map<std::string, std::string> Snapshot(const fs::path& root)
    {
        std::map<std::string, std::string> items;
        if (fs::exists(root))
            for (fs::recursive_directory_iterator it(root), end; it != end; ++it)
                items[it->path().string().substr(root.string().size() + 1)] =
                    fs::is_directory(it->symlink_status()) ? "/" : ReadFile(it->path());
        return items;
    }

    CVeLDirectoryPacker m_packer;
};

TEST_F(DirectoryPackerTest, RoundTripKeepsPathsSizesAndTimesAndUnzipListsIt)
{
    KORTEST_LINUX_ONLY("compares with the system's unzip");
    const fs::path tree = Root() / "tree";
    MakeTree(tree);
    const fs::path archive = Root() / "pack.zip";
    ASSERT_TRUE(m_packer.Pack(tree, archive).IsSuccess());

    const kortest::ShellResult listing = RunShell("unzip -l " + Quote(archive));
    ASSERT_EQ(0, listing.status);
    for (const char* name :
         {"readme.txt", "empty-folder/", "sub/empty-too/", "sub/deeper/many.txt", kUmlautName})
        EXPECT_NE(std::string::npos, listing.output.find(name)) << name;
    EXPECT_EQ(0, RunShell("unzip -tq " + Quote(archive) + " >/dev/null").status);

    std::vector<CVeLPackEntry> entries;
    ASSERT_TRUE(m_packer.List(archive, entries).IsSuccess());
    std::map<std::wstring, CVeLPackEntry> byName;
    for (const CVeLPackEntry& entry : entries)
        byName[entry.path] = entry;
    EXPECT_EQ(9u, entries.size());
    EXPECT_EQ(17u << 20, byName[L"large.bin"].size);
    EXPECT_EQ(1600000000, byName[L"large.bin"].modified);
    EXPECT_TRUE(byName[L"sub/empty-too/"].isFolder);
    EXPECT_EQ(0u, byName[L"empty.dat"].size);
    EXPECT_EQ(1u, byName.count(L"\u00fcbersicht \u20ac.txt"));

    const fs::path back = Root() / "back";
    ASSERT_TRUE(m_packer.Unpack(archive, back).IsSuccess());
    EXPECT_TRUE(Snapshot(tree) == Snapshot(back));
    EXPECT_EQ(1500000000, fs::last_write_time(back / "readme.txt"));
    EXPECT_EQ(1600000000, fs::last_write_time(back / "large.bin"));

    // The system's unzip produces the same tree.
    const fs::path theirs = Root() / "theirs";
    ASSERT_EQ(0, RunShell("unzip -q " + Quote(archive) + " -d " + Quote(theirs)).status);
    EXPECT_TRUE(Snapshot(tree) == Snapshot(theirs));
}

TEST_F(DirectoryPackerTest, UnpacksWhatZipWrites)
{
    KORTEST_LINUX_ONLY("compares with the system's zip");
    const fs::path tree = Root() / "tree";
    WriteFile(tree / "a.txt", "alpha");
    WriteFile(tree / "sub" / "b.txt", RandomText(100000, 4));
    fs::create_directories(tree / "empty");
    ASSERT_EQ(0, RunShell("cd " + Quote(tree) + " && zip -r -q ../theirs.zip .").status);
    const fs::path back = Root() / "back";
    ASSERT_TRUE(m_packer.Unpack(Root() / "theirs.zip", back).IsSuccess());
    EXPECT_TRUE(Snapshot(tree) == Snapshot(back));
}

TEST_F(DirectoryPackerTest, LinkInTreeFailsThePackWithTheFlag)
{
    const fs::path tree = Root() / "tree";
    WriteFile(tree / "a.txt", "alpha");
    fs::create_directory_symlink("/etc", tree / "sub-link");
    const CVeLResult<CVeLFilesystemError> result = m_packer.Pack(tree, Root() / "pack.zip");
    EXPECT_FALSE(result.IsSuccess());
    EXPECT_TRUE(result.GetValue().isLinkDetected());
    EXPECT_FALSE(fs::exists(Root() / "pack.zip"));
    // The tree only: no temporary archive left.
    EXPECT_EQ(1, std::distance(fs::directory_iterator(Root()), fs::directory_iterator()));
}

TEST_F(DirectoryPackerTest, HostileArchivesAreRefusedWithNothingWritten)
{
    KORTEST_LINUX_ONLY("compares with the system's python3");
    const std::vector<std::string> hostile = {
        "z.writestr('ok.txt', 'fine')\nz.writestr('../evil.txt', 'x')\n",
        "z.writestr('ok.txt', 'fine')\nz.writestr('/tmp/korevil-absolute.txt', 'x')\n",
        "z.writestr('a/../../evil.txt', 'x')\n",
        "z.writestr('..\\\\evil.txt', 'x')\n",
        "z.writestr('C:/evil.txt', 'x')\n",
        // A link entry pointing out, and a file written through it.
        "i = zipfile.ZipInfo('out')\ni.create_system = 3\ni.external_attr = (0o120777 << 16)\n"
        "z.writestr(i, '/tmp')\nz.writestr('out/korevil-through-link.txt', 'x')\n",
    };
    const fs::path destination = Root() / "dest";
    for (std::size_t i = 0; i < hostile.size(); ++i)
    {
        const fs::path archive = Root() / ("hostile" + std::to_string(i) + ".zip");
        MakeArchive(archive, hostile[i]);
        const CVeLResult<CVeLFilesystemError> result = m_packer.Unpack(archive, destination);
        EXPECT_FALSE(result.IsSuccess()) << i;
        EXPECT_EQ(ERROR_BAD_PATHNAME, result.GetValue().GetOperationResult()) << i;
        EXPECT_FALSE(fs::exists(destination)) << i;
    }
    EXPECT_FALSE(fs::exists(Root() / "evil.txt"));
    EXPECT_FALSE(fs::exists("/tmp/korevil-absolute.txt"));
    EXPECT_FALSE(fs::exists("/tmp/korevil-through-link.txt"));

    // A link already in the destination is never written through.
    fs::create_directories(destination);
    fs::create_directory_symlink(Root() / "elsewhere", destination / "out");
    fs::create_directories(Root() / "elsewhere");
    MakeArchive(Root() / "through.zip", "z.writestr('out/file.txt', 'x')\n");
    const CVeLResult<CVeLFilesystemError> result = m_packer.Unpack(Root() / "through.zip", destination);
    EXPECT_FALSE(result.IsSuccess());
    EXPECT_TRUE(result.GetValue().isLinkDetected());
    EXPECT_TRUE(fs::is_empty(Root() / "elsewhere"));
}

TEST_F(DirectoryPackerTest, DamagedArchivesAreRejectedWithoutPartialOutput)
{
    const fs::path tree = Root() / "tree";
    WriteFile(tree / "first.txt", RandomText(50000, 5));
    WriteFile(tree / "second.txt", RandomText(50000, 6));
    const fs::path archive = Root() / "pack.zip";
    ASSERT_TRUE(m_packer.Pack(tree, archive).IsSuccess());
    const std::string good = ReadFile(archive);

    std::string corrupt = good;
    // Inside the second entry's deflated data: the first entry unpacks, the second fails its check.
    const std::size_t second = corrupt.find("second.txt") + 10 + 9 + 200;
    for (std::size_t i = second; i < second + 32; ++i)
        corrupt[i] = static_cast<char>(corrupt[i] ^ 0x5A);
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"truncated", good.substr(0, good.size() / 2)},
        {"no end record", good.substr(0, good.size() - 10)},
        {"corrupt data", corrupt},
        {"not an archive", "just text"},
    };
    const fs::path destination = Root() / "dest";
    WriteFile(destination / "kept.txt", "kept");
    for (const auto& c : cases)
    {
        WriteFile(Root() / "damaged.zip", c.second);
        const CVeLResult<CVeLFilesystemError> result = m_packer.Unpack(Root() / "damaged.zip", destination);
        EXPECT_FALSE(result.IsSuccess()) << c.first;
        EXPECT_EQ(ERROR_INVALID_DATA, result.GetValue().GetOperationResult()) << c.first;
        const std::map<std::string, std::string> left = Snapshot(destination);
        EXPECT_EQ(1u, left.size()) << c.first;
        EXPECT_EQ("kept", left.begin()->second) << c.first;
        std::vector<CVeLPackEntry> entries;
        if (std::string(c.first) != "corrupt data")
        {
            EXPECT_FALSE(m_packer.List(Root() / "damaged.zip", entries).IsSuccess()) << c.first;
        }
    }
    const CVeLResult<CVeLFilesystemError> missing = m_packer.Unpack(Root() / "missing.zip", destination);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, missing.GetValue().GetOperationResult());
}

} // namespace
