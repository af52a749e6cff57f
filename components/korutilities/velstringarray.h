// CVeLStringArray: a fixed table of zero-filled wide-character buffers, each of the maximum string
// length (terminator included), for interfaces that fill or read an array of C strings. Owns the table
// and the buffers; pointers into it die with the array. Not copyable; takes no lock.
#pragma once

#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLStringArray : public CVeLNonCopyable
{
public:
    // An argument below 1, or sizes whose table the memory cannot hold, are traced and give
    // an array of 0 elements (the maximum length is kept as given); nothing is thrown or kept.
    CVeLStringArray(long numberOfElements, long maxStringLength);
    ~CVeLStringArray() override;

    long GetNumberOfElements() const;
    long GetMaxStringLength() const;
    // Both return the table itself; each buffer holds GetMaxStringLength() characters.
    const wchar_t** GetReadableStringArray() const;
    wchar_t** GetWritableStringArray() const;

    // The element's text up to its first zero; empty (traced) for an index out of range.
    std::wstring GetString(long index);
    // Copies text into the element. False, traced, for an index out of range or a text that does not fit
    // (the element then reads as empty).
    bool SetString(long index, const std::wstring& text);

private:
    bool IsValidIndex(long index) const;

    wchar_t** m_table;
    std::vector<std::shared_ptr<wchar_t[]>> m_buffers;
    long m_maxStringLength;
};
