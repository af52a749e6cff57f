#include "velcrc32.h"
#include "velcrc32kernel.h"

#include <cstring>

CVeLCRC32::CVeLCRC32()
{
    Init_CRC32_Table();
}

CVeLCRC32::CVeLCRC32(const CVeLCRC32& other)
{
    std::memcpy(m_table, other.m_table, sizeof m_table);
}

CVeLCRC32& CVeLCRC32::operator=(const CVeLCRC32& other)
{
    if (this != &other)
        std::memcpy(m_table, other.m_table, sizeof m_table);
    return *this;
}

CVeLCRC32::~CVeLCRC32() {}

ULONG CVeLCRC32::Reflect(ULONG value, char bits) const
{
    ULONG result = 0;
    for (int position = bits - 1; position >= 0; --position)
    {
        if (value & 1u)
            result |= static_cast<ULONG>(1u) << position;
        value >>= 1;
    }
    return result;
}

void CVeLCRC32::Init_CRC32_Table()
{
    for (ULONG i = 0; i < 256; ++i)
    {
        std::uint32_t c = static_cast<std::uint32_t>(Reflect(i, 8)) << 24;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 0x80000000u) ? (c << 1) ^ 0x04C11DB7u : (c << 1);
        m_table[i] = Reflect(c, 32);
    }
}

std::uint32_t CVeLCRC32::UpdateWithTable(std::uint32_t crc, const unsigned char* data,
                                         std::size_t length) const
{
    for (std::size_t i = 0; i < length; ++i)
        crc = (crc >> 8) ^ static_cast<std::uint32_t>(m_table[(crc & 0xFFu) ^ data[i]]);
    return crc;
}

ULONG CVeLCRC32::GetCRC32(const unsigned char* data, ULONG length) const
{
    if (length == 0)
        return 0;
    std::uint32_t crc = 0xFFFFFFFFu;
    std::size_t remaining = length;
    // The folding kernel takes whole 16-byte blocks, at least 64 bytes; the tail goes through the table.
    if (remaining >= korcrc32::kFoldMinimum && korcrc32::FoldAvailable())
    {
        const std::size_t folded = remaining & ~static_cast<std::size_t>(15);
        crc = korcrc32::Fold(crc, data, folded);
        data += folded;
        remaining -= folded;
    }
    return UpdateWithTable(crc, data, remaining) ^ 0xFFFFFFFFu;
}
