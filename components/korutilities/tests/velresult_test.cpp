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
    CVeLResult<__int64> big(true, -5);
    EXPECT_TRUE(big.IsSuccess());
    EXPECT_EQ(big.GetValue(), -5);
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
    CVeLFilesystemError none;
    EXPECT_FALSE(none.isLinkDetected());
    EXPECT_EQ(none.GetOperationResult(), 0);
    EXPECT_TRUE(none.GetErrorPath().empty());

    CVeLFilesystemError link(true);
    EXPECT_TRUE(link.isLinkDetected());
    EXPECT_EQ(link.GetOperationResult(), 0);
    EXPECT_TRUE(link.GetErrorPath().empty());

    const boost::filesystem::path p("/tmp/a/b");
    CVeLFilesystemError onlyPath(p);
    EXPECT_EQ(onlyPath.GetErrorPath(), p);
    EXPECT_EQ(onlyPath.GetOperationResult(), 0);

    CVeLFilesystemError withCode(p, 5);
    EXPECT_FALSE(withCode.isLinkDetected());
    EXPECT_EQ(withCode.GetOperationResult(), 5);
    EXPECT_EQ(withCode.GetErrorPath(), p);

    CVeLFilesystemError copy(withCode);
    EXPECT_EQ(copy.GetErrorPath(), p);
    link = withCode;
    EXPECT_FALSE(link.isLinkDetected());
    EXPECT_EQ(link.GetOperationResult(), 5);

    CVeLResult<CVeLFilesystemError> result(false, withCode);
    EXPECT_EQ(result.GetValue().GetOperationResult(), 5);
}

TEST(CVeLNonCopyable, DerivedClassesCannotBeCopied)
{
    struct Owner : CVeLNonCopyable
    {
    };
    EXPECT_FALSE(std::is_copy_constructible<Owner>::value);
    EXPECT_FALSE(std::is_copy_assignable<Owner>::value);
}
