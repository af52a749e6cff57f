// CVeLResult, CVeLFilesystemError and CVeLNonCopyable.
#include "velfilesystemerror.h"
#include "velnoncopyable.h"
#include "velresult.h"
#include "velbytearray.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

TEST(CVeLResult, DefaultIsFailureWithDefaultValue)
{
    CVeLResult<LONG> number;
    EXPECT_FALSE(number.IsSuccess());
    EXPECT_EQ(number.GetValue(), 0);
    CVeLResult<std::wstring> text;
    EXPECT_TRUE(text.GetValue().empty());
    CVeLResult<CVeLByteArray> bytes;
    EXPECT_FALSE(bytes.GetValue().IsValid());
}

TEST(CVeLResult, NtStatusRuleLooksAtTheSignBitAndKeepsTheStatus)
{
    const auto failed = CVeLResult<LONG>::FromNTStatus(static_cast<LONG>(0xC0000001u));
    EXPECT_FALSE(failed.IsSuccess());
    EXPECT_EQ(static_cast<std::uint32_t>(failed.GetValue()), 0xC0000001u);
    EXPECT_TRUE(CVeLResult<LONG>::FromNTStatus(0).IsSuccess());
    const auto pending = CVeLResult<LONG>::FromNTStatus(0x00000103);
    EXPECT_TRUE(pending.IsSuccess());
    EXPECT_EQ(pending.GetValue(), 0x103);
    EXPECT_TRUE(CVeLResult<LONG>::FromNTStatus(0x7FFFFFFF).IsSuccess());
    EXPECT_FALSE(CVeLResult<LONG>::FromNTStatus(static_cast<LONG>(0x80000000u)).IsSuccess());
}

TEST(CVeLFilesystemError, ConstructorsAndCopies)
{
    const boost::filesystem::path p("/tmp/a/b");
    CVeLFilesystemError assigned(true);
    assigned = CVeLFilesystemError(p, 5);
    const struct
    {
        CVeLFilesystemError error;
        bool link;
        LONG code;
        boost::filesystem::path path;
    } cases[] = {{CVeLFilesystemError(), false, 0, {}},
                 {CVeLFilesystemError(true), true, 0, {}},
                 {CVeLFilesystemError(p), false, 0, p},
                 {CVeLFilesystemError(p, 5), false, 5, p},
                 {assigned, false, 5, p},
                 {CVeLResult<CVeLFilesystemError>(false, assigned).GetValue(), false, 5, p}};
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.error.isLinkDetected(), c.link);
        EXPECT_EQ(c.error.GetOperationResult(), c.code);
        EXPECT_EQ(c.error.GetErrorPath(), c.path);
    }
}

TEST(CVeLNonCopyable, DerivedClassesCannotBeCopied)
{
    struct Owner : CVeLNonCopyable
    {
    };
    EXPECT_FALSE(std::is_copy_constructible<Owner>::value);
    EXPECT_FALSE(std::is_copy_assignable<Owner>::value);
}
