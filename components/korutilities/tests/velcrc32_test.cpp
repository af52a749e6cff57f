#include "velcrc32.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <vector>

// Known checksums, through the object and its copies. A single byte 0xFF ^ i selects entry i of the
// reflected table, so the one-byte rows pin entries 0, 1 and 255.
TEST(CVeLCRC32, KnownValuesAlsoThroughCopies)
{
    CVeLCRC32 original;
    CVeLCRC32 copy(original);
    CVeLCRC32 assigned;
    assigned = original;
    const struct
    {
        const char* bytes;
        ULONG length;
        ULONG crc;
    } cases[] = {{"123456789", 9, 0xCBF43926u},
                 {"The quick brown fox jumps over the lazy dog", 43, 0x414FA339u},
                 {"\0", 1, 0xD202EF8Du},
                 {"\xFE", 1, 0x88073096u},
                 {"\xFF", 1, 0xFF000000u}};
    for (const auto& c : cases)
        for (CVeLCRC32* crc : {&original, &copy, &assigned})
            EXPECT_EQ(crc->GetCRC32(reinterpret_cast<const unsigned char*>(c.bytes), c.length), c.crc)
                << c.bytes;
    EXPECT_EQ(original.GetCRC32(nullptr, 0), 0u);
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
