#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "velstringarray.h"
#include "velwin32.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>

using CVeLStringArrayTest = kortest::TracedTest; // traces at every level, so their formatting runs

TEST_F(CVeLStringArrayTest, ElementsAreZeroFilledBuffersOfTheMaximumLength)
{
    CVeLStringArray array(3, 5);
    EXPECT_EQ(static_cast<const void*>(array.GetReadableStringArray()),
              static_cast<const void*>(array.GetWritableStringArray()));
    for (long i = 0; i < 3; ++i)
        for (long c = 0; c < 5; ++c)
            EXPECT_EQ(array.GetWritableStringArray()[i][c], L'\0');
    // A caller may fill a buffer directly, up to the maximum length with its terminator.
    wcscpy_s(array.GetWritableStringArray()[2], 5, L"abcd");
    EXPECT_EQ(array.GetString(2), L"abcd");

    // SetString checks index and length; a refused string leaves the element empty.
    BTraceCapture capture;
    EXPECT_TRUE(array.SetString(0, L"abcd"));
    EXPECT_EQ(array.GetString(0), L"abcd");
    EXPECT_FALSE(array.SetString(0, L"abcde"));
    EXPECT_EQ(array.GetString(0), L"");
    EXPECT_FALSE(array.SetString(3, L"x"));
    EXPECT_FALSE(array.SetString(-1, L"x"));
    EXPECT_EQ(array.GetString(3), L"");
}

// Zero, impossible or overflowing sizes give an empty array, never an exception.
TEST_F(CVeLStringArrayTest, InvalidOrImpossibleSizesGiveAnEmptyArray)
{
    BTraceCapture capture;
    const long sizes[][2] = {
        {0, 10},           {2, 0},           {2, LONG_MAX}, {LONG_MAX, 2}, {LONG_MAX, LONG_MAX},
        {LONG_MAX / 8, 1}, {2, LONG_MAX / 4}};
    for (const auto& size : sizes)
    {
        std::unique_ptr<CVeLStringArray> array;
        EXPECT_NO_THROW(array.reset(new CVeLStringArray(size[0], size[1])));
        ASSERT_TRUE(array);
        EXPECT_EQ(array->GetNumberOfElements(), 0) << size[0] << " " << size[1];
        EXPECT_EQ(array->GetMaxStringLength(), size[1]);
        EXPECT_FALSE(array->SetString(0, L"x"));
    }
}
