#include "velcrc32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <vector>

TEST(CVeLCRC32, KnownValues)
{
    CVeLCRC32 crc;
    const unsigned char digits[] = "123456789";
    EXPECT_EQ(crc.GetCRC32(digits, 9), 0xCBF43926u);
    const unsigned char zero = 0;
    EXPECT_EQ(crc.GetCRC32(&zero, 1), 0xD202EF8Du);
    EXPECT_EQ(crc.GetCRC32(nullptr, 0), 0u);
    const unsigned char ff = 0xFF;
    EXPECT_EQ(crc.GetCRC32(&ff, 1), 0xFF000000u);
}

// The table is private; one byte 0xFF ^ i selects table[i], and the checksum is then
// ~(0x00FFFFFF ^ table[i]).
TEST(CVeLCRC32, TableEntriesAreTheReflectedTable)
{
    CVeLCRC32 crc;
    auto entry = [&](unsigned i)
    {
        const unsigned char b = static_cast<unsigned char>(0xFF ^ i);
        return (crc.GetCRC32(&b, 1) ^ 0xFFFFFFFFu) ^ 0x00FFFFFFu;
    };
    EXPECT_EQ(entry(1), 0x77073096u);
    EXPECT_EQ(entry(255), 0x2D02EF8Du);
    EXPECT_EQ(entry(0), 0u);
}

// Every length from 0 to a few blocks past the folding threshold, at every alignment, and large buffers,
// against zlib: the folding path and the table tail must agree with the plain algorithm.
TEST(CVeLCRC32, MatchesZlibForAllLengthsAndAlignments)
{
    std::mt19937 random(42);
    std::vector<unsigned char> data(1 << 20);
    for (auto& b : data)
        b = static_cast<unsigned char>(random());
    CVeLCRC32 crc;
    for (unsigned offset = 0; offset < 16; ++offset)
        for (ULONG length = 0; length < 300; ++length)
            ASSERT_EQ(crc.GetCRC32(data.data() + offset, length),
                      static_cast<ULONG>(crc32(0, data.data() + offset, length)))
                << "offset " << offset << " length " << length;
    for (ULONG length : {4096u, 65535u, 1u << 20})
        EXPECT_EQ(crc.GetCRC32(data.data(), length), static_cast<ULONG>(crc32(0, data.data(), length)));
}

TEST(CVeLCRC32, CopiesGiveTheSameChecksums)
{
    CVeLCRC32 original;
    CVeLCRC32 copy(original);
    CVeLCRC32 assigned;
    assigned = original;
    const unsigned char text[] = "The quick brown fox jumps over the lazy dog";
    EXPECT_EQ(copy.GetCRC32(text, sizeof text - 1), 0x414FA339u);
    EXPECT_EQ(assigned.GetCRC32(text, sizeof text - 1), original.GetCRC32(text, sizeof text - 1));
}
