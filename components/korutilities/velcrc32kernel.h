// Internal to CVeLCRC32: the CRC-32 folding kernel of the build's architecture (carry-less
// multiplication on x86-64, none elsewhere). Not part of the installed interface.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korcrc32
{
constexpr std::size_t kFoldMinimum = 64;
// Whether the processor running this program can use Fold.
bool FoldAvailable();
// Advances the CRC register (not complemented) over length bytes; length is a multiple of 16 and at
// least kFoldMinimum.
std::uint32_t Fold(std::uint32_t crc, const unsigned char* data, std::size_t length);
} // namespace korcrc32
