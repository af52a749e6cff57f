// CVeLCRC32: the standard reflected CRC-32 (polynomial 0x04C11DB7, as Ethernet and zlib use it). Each
// object builds its own 256-entry table at construction and only reads it afterwards, so one object may
// serve any number of threads at once. Long buffers are folded with carry-less multiplication where the
// processor offers it; the result is always the table method's result.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <cstddef>
#include <cstdint>

class KORUTILITIES_API CVeLCRC32
{
public:
    CVeLCRC32();
    CVeLCRC32(const CVeLCRC32& other);
    CVeLCRC32& operator=(const CVeLCRC32& other);
    virtual ~CVeLCRC32();

    // The checksum of length bytes at data; 0 for length 0 (data is then not read). data must hold
    // length bytes: nothing is checked.
    ULONG GetCRC32(const unsigned char* data, ULONG length) const;

private:
    void Init_CRC32_Table();
    ULONG Reflect(ULONG value, char bits) const;
    // crc is the running register (before the final complement); returns the register after data.
    std::uint32_t UpdateWithTable(std::uint32_t crc, const unsigned char* data, std::size_t length) const;

    ULONG m_table[256];
};
