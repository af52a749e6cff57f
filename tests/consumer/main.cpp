// An outside program built against the installed package.
#include <korutilitesbtracedef.h>
#include <velcrc32.h>
#include <velresult.h>

#include <cstdio>

int main()
{
    CVeLCRC32 crc;
    const unsigned char digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    CVeLResult<ULONG> result(true, crc.GetCRC32(digits, sizeof digits));
    VEL_TRACE(VEL_DBG3, "consumer checksum %u", result.GetValue());
    std::printf("%08x\n", static_cast<unsigned>(result.GetValue()));
    return result.IsSuccess() && result.GetValue() == 0xCBF43926u ? 0 : 1;
}
