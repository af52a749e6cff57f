// CVeLFileHelper and CVeLFileBasics on real files in a temporary folder, and with replacement facades and
// file basics that fail.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "velfilebasics.h"
#include "velfilehelper.h"

#include <memory>

namespace fs = boost::filesystem;

namespace
{

using FileHelperTest = kortest::FileSystemTest;

// File basics that fail everything; Exists answers as the test sets it.
class FailingFileBasics : public IVeLFileBasics
{
public:
    bool exists = false;
    bool IsRegularFile(const fs::path&) const override { return false; }
    bool Remove(const fs::path&) const override { return false; }
    bool Rename(const fs::path&, const fs::path&) const override { return false; }
    bool Exists(const fs::path&) const override { return exists; }
};

// Wide text is stored as UTF-16 little-endian code units (a lone surrogate kept as the unit it is), UTF-8
// text as UTF-8 with its zeros; each comes back as written.
TEST_F(FileHelperTest, TextIsStoredInItsEncodingAndReadBack)
{
    const struct
    {
        const char* name;
        bool utf8;
        std::wstring text;
        std::string bytes;
    } rows[] = {
        {"utf-16", false, L"ab", std::string("a\0b\0", 4)},
        {"surrogate pair", false, L"x\U0001F600\u00E9", std::string("x\0\x3D\xD8\x00\xDE\xE9\0", 8)},
        {"lone surrogate", false, std::wstring{wchar_t(0xD800), L'a'},
         std::string("\x00\xD8"
                     "a\0",
                     4)},
        {"utf-8", true, L"Gr\u00FC\u00DFe",
         "Gr\xC3\xBC\xC3\x9F"
         "e"},
        {"utf-8 with zeros", true, std::wstring(L"a\0b\u00E4\0", 5), std::string("a\0b\xC3\xA4\0", 6)}};
    const fs::path file = Root() / "text.txt";
    for (const auto& row : rows)
    {
        CVeLFileHelper helper(file, false);
        ASSERT_TRUE(helper.Create()) << row.name;
        ASSERT_TRUE(row.utf8 ? helper.WriteUtf8Content(row.text) : helper.WriteContent(row.text)) << row.name;
        EXPECT_EQ(ReadFile(file), row.bytes) << row.name;
        EXPECT_EQ(helper.GetSize(), row.bytes.size()) << row.name;
        std::wstring text;
        ASSERT_TRUE(row.utf8 ? helper.ReadUtf8Content(text) : helper.ReadContent(text)) << row.name;
        EXPECT_EQ(text, row.text) << row.name;
    }

    // An odd byte count drops the last byte; an empty file has no UTF-8 content to give.
    WriteFile(file, std::string("h\0i\0!", 5));
    std::wstring text;
    ASSERT_TRUE(CVeLFileHelper(file, false).ReadContent(text));
    EXPECT_EQ(text, L"hi");
    WriteFile(file, "");
    EXPECT_FALSE(CVeLFileHelper(file, false).ReadUtf8Content(text));

    const unsigned char bytes[] = {0, 1, 2, 0xFF, 0x80};
    CVeLFileHelper helper(file, false);
    ASSERT_TRUE(helper.WriteContent(bytes, sizeof bytes));
    boost::shared_ptr<unsigned char> buffer;
    ULONG size = 0;
    ASSERT_TRUE(helper.ReadContent(buffer, size));
    ASSERT_EQ(size, sizeof bytes);
    EXPECT_EQ(std::memcmp(buffer.get(), bytes, size), 0);
}

// Removing or overwriting through a link never resets the read-only flag of the link's target.
TEST_F(FileHelperTest, ReadOnlyResetNeverFollowsALink)
{
    const fs::path target = Root() / "target.txt", link = Root() / "link.txt";
    WriteFile(target, "target");
    MakeReadOnly(target);
    fs::create_symlink(target, link);
    WriteFile(Root() / "source.txt", "source");
    EXPECT_FALSE(CVeLFileHelper(Root() / "source.txt", false).Copy(link)); // the target stays read-only
    EXPECT_TRUE(CVeLFileHelper(link, false).Remove());
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
    EXPECT_EQ(ReadFile(target), "target");
    EXPECT_FALSE(CVeLFileHelper(target, false).IsWriteable());
}

TEST_F(FileHelperTest, WritingNeedsAnExistingWriteableFileAndContent)
{
    const fs::path file = Root() / "later.txt";
    CVeLFileHelper helper(file, false);
    EXPECT_FALSE(helper.WriteContent(std::wstring(L"text")));
    EXPECT_FALSE(fs::exists(file));

    ASSERT_TRUE(helper.Create());
    EXPECT_FALSE(helper.WriteContent(std::wstring()));
    EXPECT_TRUE(helper.WriteContent(std::wstring(L"text")));

    MakeReadOnly(file);
    EXPECT_FALSE(helper.IsWriteable());
    EXPECT_FALSE(helper.WriteContent(std::wstring(L"other")));
    EXPECT_EQ(helper.GetSize(), 8u);
}

TEST_F(FileHelperTest, DeflateRemoveAndRename)
{
    const fs::path file = Root() / "full.txt";
    CVeLFileHelper helper(file, false);
    EXPECT_FALSE(helper.Deflate());

    WriteFile(file, "some content");
    ASSERT_TRUE(helper.Deflate());
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(fs::file_size(file), 0u);

    // A read-only file is removed too; removing it again succeeds as there is nothing left to do.
    MakeReadOnly(file);
    EXPECT_TRUE(helper.Remove());
    EXPECT_FALSE(fs::exists(file));
    EXPECT_TRUE(helper.Remove());

    // Rename moves the helper along.
    const fs::path to = Root() / "b.txt";
    EXPECT_FALSE(helper.Rename(to));
    WriteFile(file, "moved");
    ASSERT_TRUE(helper.Rename(to));
    EXPECT_EQ(helper.GetPath(), to);
    EXPECT_EQ(ReadFile(to), "moved");
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(FileHelperTest, PathPartsAndQueries)
{
    CVeLFileHelper helper(fs::path("/data/archive.tar.gz"), false);
    // Only the last extension counts.
    EXPECT_EQ(helper.GetFileNameWithoutExtension(), L"archive.tar");
    EXPECT_EQ(helper.GetFileExtensionWithoutLeadingDot(), L"gz");
    helper.Reset(fs::path("/data/README"), true);
    EXPECT_EQ(helper.GetFileExtensionWithoutLeadingDot(), L"");

    CVeLFileHelper empty(fs::path(), false);
    EXPECT_EQ(empty.GetSize(), 0u);
    EXPECT_FALSE(empty.IsRegularFile());
    EXPECT_FALSE(empty.IsWriteable());

    const fs::path file = Root() / "f";
    WriteFile(file, "x");
    EXPECT_TRUE(CVeLFileHelper(file, false).IsRegularFile());
    EXPECT_FALSE(CVeLFileHelper(Root(), false).IsRegularFile());
}

TEST_F(FileHelperTest, CopyReplacesTheDestinationAndChecksTheSize)
{
    std::string content(200000, '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 131 + 7);
    const fs::path source = Root() / "src.bin", target = Root() / "dst.bin";
    WriteFile(source, content);
    WriteFile(target, "old and read-only");
    MakeReadOnly(target);
    ASSERT_TRUE(CVeLFileHelper(source, false).Copy(target));
    EXPECT_EQ(ReadFile(target), content);

    EXPECT_FALSE(CVeLFileHelper(Root() / "missing", false).Copy(target));
}

TEST_F(FileHelperTest, CopyWithSilentlyShortWritesFailsOnTheSizeCheck)
{
    const fs::path source = Root() / "src.bin", target = Root() / "dst.bin";
    WriteFile(source, std::string(100000, 'q'));
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    // Writes half of each chunk but reports all of it written.
    api->OnWriteFile = [](HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED)
    {
        const BOOL ok = ::WriteFile(file, buffer, toWrite / 2, written, nullptr);
        *written = toWrite;
        return ok;
    };
    CVeLFileHelper helper(api, std::make_shared<CVeLFileBasics>(), source, false);
    EXPECT_FALSE(helper.Copy(target));
    EXPECT_EQ(api->CallCount("WriteFile"), 2u);
    EXPECT_EQ(api->CallCount("CloseHandle"), 2u);
}

TEST_F(FileHelperTest, FailingFacadeOperationsAreTracedAndFail)
{
    const fs::path file = Root() / "f.txt";
    WriteFile(file, "abc");
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnCreateFile = FailWith(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    CVeLFileHelper helper(api, std::make_shared<CVeLFileBasics>(), file, false);
    EXPECT_FALSE(helper.Create());
    EXPECT_FALSE(helper.Copy(Root() / "g.txt"));
    std::wstring text;
    EXPECT_FALSE(helper.ReadContent(text));

    api->OnCreateFile = nullptr;
    api->OnReadFile = FailWith(FALSE, 30); // a read fault
    EXPECT_FALSE(helper.ReadContent(text));
    EXPECT_EQ(ReadFile(file), "abc");

    CVeLFileHelper noApi(nullptr, std::make_shared<CVeLFileBasics>(), file, false);
    EXPECT_FALSE(noApi.Create());
}

TEST_F(FileHelperTest, FailingFileBasicsAreTracedAndFail)
{
    const fs::path file = Root() / "f.txt", other = Root() / "g.txt";
    WriteFile(file, "abc");
    auto basics = std::make_shared<FailingFileBasics>();
    CVeLFileHelper helper(std::make_shared<CVeLWinAPIWrapper>(), basics, file, false);
    EXPECT_FALSE(helper.Exists());
    EXPECT_FALSE(helper.Copy(other));

    basics->exists = true;
    EXPECT_FALSE(helper.Rename(other));
    EXPECT_EQ(helper.GetPath(), file);
    EXPECT_FALSE(helper.Remove());
    EXPECT_FALSE(helper.IsRegularFile());
    EXPECT_TRUE(fs::exists(file));

    CVeLFileHelper noBasics(std::make_shared<CVeLWinAPIWrapper>(), nullptr, file, false);
    EXPECT_FALSE(noBasics.Remove());
}

TEST_F(FileHelperTest, FileBasicsCatchLibraryExceptions)
{
    CVeLFileBasics basics;
    const fs::path file = Root() / "f.txt";
    WriteFile(file, "abc");
    EXPECT_TRUE(basics.Exists(file));
    EXPECT_TRUE(basics.IsRegularFile(file));
    EXPECT_FALSE(basics.Exists(Root() / "none"));
    EXPECT_FALSE(basics.Rename(Root() / "none", Root() / "other"));
    EXPECT_EQ(m_capture.CountContaining("boost::filesystem::Rename (" + (Root() / "none").string() + " to " +
                                        (Root() / "other").string() + ") failed with exception: "),
              1u);
    // A directory that is not empty can't be removed as a file.
    WriteFile(Root() / "d" / "inner", "x");
    EXPECT_FALSE(basics.Remove(Root() / "d"));
    EXPECT_EQ(m_capture.CountContaining("boost::filesystem::remove (" + (Root() / "d").string() +
                                        ") failed with exception: "),
              1u);
}

} // namespace
