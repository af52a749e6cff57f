#include "velzlibpacker.h"

#include "filetestsupport.h"
#include "shelltestsupport.h"

#include <gtest/gtest.h>

#include <random>

namespace
{

using kortest::Quote;
using kortest::RunShell;

// Compressible but not trivial: words from a small vocabulary with random bytes between them.
std::string SampleData(std::size_t size, unsigned seed)
{
    static const char* words[] = {"spindle ", "feed ", "axis ", "tool ", "G01 X12.5 ", "M03 ", "\n"};
    std::mt19937 random(seed);
    std::string data;
    while (data.size() < size)
    {
        data += words[random() % 7];
        if (random() % 5 == 0)
            data += static_cast<char>(random());
    }
    data.resize(size);
    return data;
}

class ZlibPackerTest : public kortest::FileSystemTest
{
protected:
    // Names in the test folder other than those given: leftovers such as temporary files.
    std::size_t EntryCount() const
    {
        std::size_t count = 0;
        for (boost::filesystem::directory_iterator it(Root()), end; it != end; ++it)
            ++count;
        return count;
    }

    CVeLZlibPacker m_packer;
};

TEST_F(ZlibPackerTest, InterchangesWithSystemGzipBothWays)
{
    KORTEST_LINUX_ONLY("compares with the system's gzip");
    // 0 bytes, one byte, and several blocks so the joined blocks and the combined CRC are exercised.
    for (std::size_t size : {0u, 1u, 3u * 1024 * 1024 + 12345})
    {
        const std::string data = SampleData(size, static_cast<unsigned>(size));
        const boost::filesystem::path plain = Root() / "plain";
        const boost::filesystem::path ours = Root() / "ours.gz";
        WriteFile(plain, data);

        ASSERT_TRUE(m_packer.Compress(plain, ours)) << size;
        const kortest::ShellResult expanded = RunShell("gzip -dc " + Quote(ours));
        EXPECT_EQ(0, expanded.status) << size;
        EXPECT_TRUE(expanded.output == data) << size;
        EXPECT_EQ(0, RunShell("gzip -t " + Quote(ours)).status);

        ASSERT_EQ(0, RunShell("gzip -6 -c " + Quote(plain) + " > " + Quote(Root() / "theirs.gz")).status);
        ASSERT_TRUE(m_packer.Expand(Root() / "theirs.gz", Root() / "back")) << size;
        EXPECT_TRUE(ReadFile(Root() / "back") == data) << size;
        ASSERT_TRUE(m_packer.Expand(ours, Root() / "back2")) << size;
        EXPECT_TRUE(ReadFile(Root() / "back2") == data) << size;
    }
    // Every level is a valid stream; level 0 stores; levels beyond 0-9 are refused.
    const boost::filesystem::path plain = Root() / "plain";
    WriteFile(plain, SampleData(200000, 9));
    for (int level : {0, 1, 9})
    {
        ASSERT_TRUE(m_packer.Compress(plain, Root() / "level.gz", level));
        EXPECT_TRUE(RunShell("gzip -dc " + Quote(Root() / "level.gz")).output == ReadFile(plain)) << level;
    }
    EXPECT_FALSE(m_packer.Compress(plain, Root() / "bad.gz", 10));
    EXPECT_FALSE(m_packer.Compress(plain, Root() / "bad.gz", -1));

    // Concatenated members expand to the concatenated data.
    WriteFile(Root() / "a", "first part\n");
    ASSERT_EQ(0, RunShell("cd " + Quote(Root()) + " && gzip -c a > ab.gz && gzip -c plain >> ab.gz").status);
    ASSERT_TRUE(m_packer.Expand(Root() / "ab.gz", Root() / "ab"));
    EXPECT_TRUE(ReadFile(Root() / "ab") == "first part\n" + ReadFile(plain));
}

TEST_F(ZlibPackerTest, DamagedInputLeavesNoOutputAndKeepsTheTarget)
{
    KORTEST_LINUX_ONLY("compares with the system's gzip");
    const std::string data = SampleData(2u * 1024 * 1024, 5);
    WriteFile(Root() / "plain", data);
    ASSERT_TRUE(m_packer.Compress(Root() / "plain", Root() / "good.gz"));
    const std::string good = ReadFile(Root() / "good.gz");

    std::string wrongCrc = good;
    wrongCrc[wrongCrc.size() - 6] ^= 0x01;
    std::string wrongLength = good;
    wrongLength[wrongLength.size() - 2] ^= 0x01;
    std::string corrupt = good;
    for (std::size_t i = good.size() / 2; i < good.size() / 2 + 64; ++i)
        corrupt[i] = static_cast<char>(~corrupt[i]);
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"truncated", good.substr(0, good.size() / 2)},
        {"no trailer", good.substr(0, good.size() - 8)},
        {"wrong crc", wrongCrc},
        {"wrong length", wrongLength},
        {"corrupt", corrupt},
        {"trailing garbage", good + "garbage"},
        {"not gzip", "plain text, not compressed"},
        {"empty", ""},
    };
    WriteFile(Root() / "target", "previous content");
    const std::size_t entries = EntryCount() + 1; // and the damaged input
    for (const auto& c : cases)
    {
        WriteFile(Root() / "damaged.gz", c.second);
        BTraceCapture capture;
        EXPECT_FALSE(m_packer.Expand(Root() / "damaged.gz", Root() / "target")) << c.first;
        EXPECT_EQ(1u, capture.CountContaining("Expanding ")) << c.first;
        EXPECT_EQ("previous content", ReadFile(Root() / "target")) << c.first;
        EXPECT_EQ(entries, EntryCount()) << c.first; // no temporary file left
    }
    // The system's gzip agrees that these inputs are bad.
    EXPECT_NE(0, RunShell("gzip -t " + Quote(Root() / "damaged.gz") + " 2>/dev/null").status);
}

TEST_F(ZlibPackerTest, MissingSourceOrTargetFolderFails)
{
    EXPECT_FALSE(m_packer.Compress(Root() / "missing", Root() / "out.gz"));
    WriteFile(Root() / "plain", "x");
    EXPECT_FALSE(m_packer.Compress(Root() / "plain", Root() / "no" / "such" / "out.gz"));
    EXPECT_FALSE(m_packer.Expand(Root() / "missing.gz", Root() / "out"));
    EXPECT_FALSE(boost::filesystem::exists(Root() / "out"));
}

} // namespace
