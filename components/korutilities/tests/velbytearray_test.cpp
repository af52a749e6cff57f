#include "korutilitesbtracedef.h"
#include "velbytearray.h"

#include <gtest/gtest.h>

#include <cstring>

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

TEST(CVeLByteArray, CopiesShareTheBuffer)
{
    CVeLByteArray a = MakeArray({1, 2, 3}, 3);
    CVeLByteArray b(a);
    CVeLByteArray c;
    c = a;
    EXPECT_EQ(a.GetArrayBytes(), b.GetArrayBytes());
    b.GetArrayBytes()[0] = 9;
    EXPECT_EQ(c.GetArrayBytes()[0], 9);
    EXPECT_EQ(c.GetArrayLength(), 3u);
}

TEST(CVeLByteArray, ValidityAndInvalidAccess)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    BTraceCapture capture;
    CVeLByteArray empty;
    EXPECT_FALSE(empty.IsValid());
    EXPECT_EQ(empty.GetArrayBytes(), nullptr);
    CVeLByteArray zeroLength = MakeArray({1}, 0);
    EXPECT_FALSE(zeroLength.IsValid());
    EXPECT_TRUE(zeroLength.GetAsString().empty());
    EXPECT_NE(zeroLength.GetArrayBytes(), nullptr);
}

TEST(CVeLByteArray, EqualityIsByContentAndInvalidArraysEqualNothing)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
    CVeLByteArray a = MakeArray({1, 2, 3}, 3);
    CVeLByteArray same = MakeArray({1, 2, 3}, 3);
    CVeLByteArray shorter = MakeArray({1, 2, 3}, 2);
    CVeLByteArray other = MakeArray({1, 2, 4}, 3);
    EXPECT_TRUE(a == same);
    EXPECT_FALSE(a != same);
    EXPECT_FALSE(a == shorter);
    EXPECT_FALSE(a == other);

    BTraceCapture capture;
    CVeLByteArray invalid;
    EXPECT_TRUE(invalid != invalid); // an invalid array is unequal even to itself
    EXPECT_FALSE(invalid == a);
    EXPECT_FALSE(a == invalid);
}

TEST(CVeLByteArray, HexTextIsTwoLowerCaseDigitsPerByte)
{
    EXPECT_EQ(MakeArray({0x0A, 0xFF, 0x00}, 3).GetAsString(), L"0aff00");
    EXPECT_EQ(MakeArray({0x10, 0x9b}, 2).GetAsString(), L"109b");
}
