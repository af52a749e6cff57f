#include "velsha256.h"

#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "shelltestsupport.h"

#include <gtest/gtest.h>

#include <random>

namespace
{

using kortest::Quote;
using kortest::RunShell;

std::string Hex(const CVeLResult<CVeLByteArray>& digest)
{
    EXPECT_TRUE(digest.IsSuccess());
    const std::wstring hex = CVeLSha256::ToHex(digest.GetValue());
    return std::string(hex.begin(), hex.end());
}

std::string SystemSha256(const boost::filesystem::path& file)
{
    const kortest::ShellResult result = RunShell("sha256sum " + Quote(file));
    EXPECT_EQ(0, result.status);
    return result.output.substr(0, 64);
}

std::string RandomBytes(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

class Sha256Test : public kortest::FileSystemTest
{
protected:
    CVeLSha256 m_sha;
};

TEST_F(Sha256Test, KnownVectorsForBytesAndStrings)
{
    const std::string empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
    EXPECT_EQ(empty, Hex(m_sha.HashBytes(nullptr, 0)));
    EXPECT_EQ(empty, Hex(m_sha.HashBytes(CVeLByteArray())));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              Hex(m_sha.HashBytes(reinterpret_cast<const unsigned char*>("abc"), 3)));
    const std::string twoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              Hex(m_sha.HashBytes(reinterpret_cast<const unsigned char*>(twoBlocks.data()),
                                  static_cast<ULONG>(twoBlocks.size()))));

    // A wide string is hashed as its UTF-16LE code units, a character beyond U+FFFF as a surrogate pair.
    const unsigned char utf16[] = {'a', 0, 'b', 0, 'c', 0, 0x3D, 0xD8, 0x00, 0xDE};
    EXPECT_EQ(Hex(m_sha.HashBytes(utf16, sizeof utf16)), Hex(m_sha.HashString(L"abc\U0001F600")));
    EXPECT_EQ(empty, Hex(m_sha.HashString(L"")));

    BTraceCapture capture;
    EXPECT_FALSE(m_sha.HashBytes(nullptr, 5).IsSuccess());
}

TEST_F(Sha256Test, FilesAgreeWithSha256sum)
{
    KORTEST_LINUX_ONLY("compares with the system's sha256sum");
    for (std::size_t size : {0u, 1u, 64u, 65u, 5u * 1024 * 1024 + 7})
    {
        const boost::filesystem::path file = Root() / ("file" + std::to_string(size));
        WriteFile(file, RandomBytes(size, static_cast<unsigned>(size)));
        EXPECT_EQ(SystemSha256(file), Hex(m_sha.HashFile(file))) << size;
    }
    EXPECT_FALSE(m_sha.HashFile(Root() / "missing").IsSuccess());
}

TEST_F(Sha256Test, FolderRuleIsSha256sumOfSortedFiles)
{
    KORTEST_LINUX_ONLY("compares with the system's sha256sum");
    const boost::filesystem::path folder = Root() / "tree";
    WriteFile(folder / "b.txt", "bee");
    WriteFile(folder / "A.txt", "upper");
    WriteFile(folder / "sub" / "deeper" / "x.bin", RandomBytes(70000, 3));
    WriteFile(folder / "sub" / "empty.txt", "");
    WriteFile(folder / "\xc3\xa4rger \xe2\x82\xac.txt", "umlaut");
    boost::filesystem::create_directories(folder / "empty-folder");

    const kortest::ShellResult expected = RunShell(
        "cd " + Quote(folder) +
        " && find . -type f -printf '%P\\n' | LC_ALL=C sort | while IFS= read -r f; do sha256sum \"$f\"; "
        "done | sha256sum");
    ASSERT_EQ(0, expected.status);
    const std::string first = Hex(m_sha.HashFolder(folder));
    EXPECT_EQ(expected.output.substr(0, 64), first);

    // Empty folders do not count; file content does.
    boost::filesystem::create_directories(folder / "another-empty");
    EXPECT_EQ(first, Hex(m_sha.HashFolder(folder)));
    WriteFile(folder / "sub" / "empty.txt", "now full");
    EXPECT_NE(first, Hex(m_sha.HashFolder(folder)));
}

TEST_F(Sha256Test, FolderWithLinkOrNonFolderIsRefused)
{
    const boost::filesystem::path folder = Root() / "tree";
    WriteFile(folder / "a.txt", "a");
    boost::filesystem::create_symlink("/etc/passwd", folder / "link");
    EXPECT_FALSE(m_sha.HashFolder(folder).IsSuccess());
    EXPECT_FALSE(m_sha.HashFolder(folder / "a.txt").IsSuccess());
    EXPECT_FALSE(m_sha.HashFolder(Root() / "missing").IsSuccess());
}

TEST_F(Sha256Test, FailedHashOperationFailsTheDigest)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnBCryptHashData = [](BCRYPT_HASH_HANDLE, PUCHAR, ULONG, ULONG)
    { return CVeLResult<LONG>::FromNTStatus(static_cast<LONG>(0xC0000008)); };
    CVeLSha256 sha(api);
    BTraceCapture capture;
    EXPECT_FALSE(sha.HashString(L"text").IsSuccess());
    // The hash object is destroyed also after a failure.
    EXPECT_EQ(api->CallCount("BCryptCreateHash"), api->CallCount("BCryptDestroyHash"));
}

} // namespace
