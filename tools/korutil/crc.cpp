// korutil crc32: the CRC-32 of each file, printed as eight lower-case hex digits, two spaces and the file
// name as given (the format of the usual checksum tools).
#include "korutil.h"

#include <velcrc32.h>
#include <velfilehelper.h>

#include <boost/shared_ptr.hpp>

#include <cstdio>

namespace korutil
{

int RunCrc32(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    const auto& files = cmd.GetPositionals();
    if (files.empty())
        return UsageError(invocation, "no file given");
    const CVeLCRC32 crc;
    int status = kExitOk;
    for (const std::wstring& file : files)
    {
        CVeLFileHelper helper(ToPath(file), false);
        boost::shared_ptr<unsigned char> content;
        ULONG size = 0;
        if (!helper.Exists())
        {
            status = Failure("crc32", ToText(file) + ": no such file");
            continue;
        }
        if (!helper.IsRegularFile())
        {
            status = Failure("crc32", ToText(file) + ": not a regular file");
            continue;
        }
        if (!helper.ReadContent(content, size))
        {
            status = Failure("crc32", ToText(file) + ": cannot read" + DescribeError(LastError()));
            continue;
        }
        char hex[16];
        std::snprintf(hex, sizeof hex, "%08lx",
                      static_cast<unsigned long>(crc.GetCRC32(content.get(), size)));
        PrintLine(std::string(hex) + "  " + ToText(file));
    }
    return status;
}

} // namespace korutil
