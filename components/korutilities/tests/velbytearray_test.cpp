#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "velbytearray.h"

#include <gtest/gtest.h>

#include <cstring>

using CVeLByteArrayTest = kortest::TracedTest; // traces at every level, so their formatting runs

namespace
{
CVeLByteArray MakeArray(std::initializer_list<unsigned char> bytes, ULONG length)
{
    std::shared_ptr<unsigned char> data(new unsigned char[bytes.size() ? bytes.size() : 1],
                                        std::default_delete<unsigned char[]>());
    std::memcpy(data.get(), bytes.begin(), bytes.size());
    return CVeLByteArray(data, length);
}
} // namespace

TEST_F(CVeLByteArrayTest, CopiesShareTheBuffer)
{
    CVeLByteArray a = MakeArray({1, 2, 3}, 3);
    CVeLByteArray b(a);
    CVeLByteArray c;
    c = a;
    b.GetArrayBytes()[0] = 9;
    EXPECT_EQ(c.GetArrayBytes()[0], 9);
    EXPECT_EQ(c.GetArrayLength(), 3u);
}

// Equal by content over the length; an invalid array (none, or zero length) equals nothing, not even
// itself.
TEST_F(CVeLByteArrayTest, ValidityEqualityAndHexText)
{
    BTraceCapture capture;
    CVeLByteArray a = MakeArray({1, 2, 3}, 3);
    CVeLByteArray empty;
    CVeLByteArray zeroLength = MakeArray({1}, 0);
    EXPECT_FALSE(empty.IsValid());
    EXPECT_EQ(empty.GetArrayBytes(), nullptr);
    EXPECT_FALSE(zeroLength.IsValid());
    EXPECT_TRUE(zeroLength.GetAsString().empty());
    EXPECT_TRUE(a == MakeArray({1, 2, 3}, 3));
    EXPECT_FALSE(a != MakeArray({1, 2, 3}, 3));
    EXPECT_FALSE(a == MakeArray({1, 2, 3}, 2));
    EXPECT_FALSE(a == MakeArray({1, 2, 4}, 3));
    EXPECT_TRUE(empty != empty);
    EXPECT_FALSE(empty == a);
    EXPECT_FALSE(a == zeroLength);
    EXPECT_EQ(MakeArray({0x0A, 0xFF, 0x00, 0x10, 0x9b}, 5).GetAsString(), L"0aff00109b"); // two digits a byte
}
