// CVeLByteArray: a shared byte buffer with a 32-bit length, the library's currency for raw bytes.
// Copies share the buffer (never a deep copy), so a write through one copy is seen by all; the shared
// count is atomic, so copies may live on different threads. The array itself takes no lock.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <memory>
#include <string>

class KORUTILITIES_API CVeLByteArray
{
public:
    // Invalid: no buffer, length 0.
    CVeLByteArray();
    // Shares data; the length is taken as given (the caller vouches for the buffer's size).
    CVeLByteArray(std::shared_ptr<unsigned char> data, ULONG length);
    CVeLByteArray(const CVeLByteArray& other);
    CVeLByteArray& operator=(const CVeLByteArray& other);
    virtual ~CVeLByteArray();

    // The bytes; null (traced) when there is no buffer.
    unsigned char* GetArrayBytes() const;
    ULONG GetArrayLength() const;
    // A buffer and a length other than 0.
    bool IsValid() const;

    // Equal lengths and bytes. An invalid array is unequal to everything, itself included, so a != a
    // holds for an invalid a (traced at ERR; an invalid other is traced at INF).
    bool operator==(const CVeLByteArray& other) const;
    bool operator!=(const CVeLByteArray& other) const;

    // Two lower-case hexadecimal digits per byte, no separator ("0aff00"); empty for an invalid array.
    std::wstring GetAsString() const;

private:
    std::shared_ptr<unsigned char> m_data;
    ULONG m_length;
};
