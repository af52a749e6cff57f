// CRC-32 kernel for architectures without a folding implementation: the table method does all the work.
#include "velcrc32kernel.h"

namespace korcrc32
{
bool FoldAvailable()
{
    return false;
}
std::uint32_t Fold(std::uint32_t crc, const unsigned char*, std::size_t)
{
    return crc;
}
} // namespace korcrc32
