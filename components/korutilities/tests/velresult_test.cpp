// CVeLResult, CVeLFilesystemError and CVeLNonCopyable.
#include "velbytearray.h"
#include "velfilesystemerror.h"
#include "velnoncopyable.h"
#include "velresult.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

// A default result is a failure holding the default value. From a status, only the sign bit decides;
// the status itself survives, failure or not.
TEST(CVeLResult, DefaultAndNtStatusRule)
{
    EXPECT_FALSE(CVeLResult<LONG>().IsSuccess());
    EXPECT_EQ(CVeLResult<LONG>().GetValue(), 0);
    EXPECT_TRUE(CVeLResult<std::wstring>().GetValue().empty());
    EXPECT_FALSE(CVeLResult<CVeLByteArray>().GetValue().IsValid());
    for (const std::uint32_t status : {0xC0000001u, 0x80000000u, 0u, 0x103u, 0x7FFFFFFFu})
    {
        const auto result = CVeLResult<LONG>::FromNTStatus(static_cast<LONG>(status));
        EXPECT_EQ(result.IsSuccess(), status < 0x80000000u) << status;
        EXPECT_EQ(static_cast<std::uint32_t>(result.GetValue()), status);
    }
}

TEST(CVeLFilesystemError, ConstructorsAndCopiesKeepEveryField)
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
                 {CVeLResult<CVeLFilesystemError>(false, assigned).GetValue(), false, 5, p}};
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.error.isLinkDetected(), c.link);
        EXPECT_EQ(c.error.GetOperationResult(), c.code);
        EXPECT_EQ(c.error.GetErrorPath(), c.path);
    }
    // Classes that own system objects derive from CVeLNonCopyable and cannot be copied.
    struct Owner : CVeLNonCopyable
    {
    };
    EXPECT_FALSE(std::is_copy_constructible<Owner>::value || std::is_copy_assignable<Owner>::value);
}
