// IVeLCompoundFile: structured-storage ("compound") files in the standard compound file binary format:
// nested storages holding streams, addressed by "/"-separated paths such as L"settings/axes/x". Each
// element name has 1 to 31 characters without "/", "\", ":" or "!", as the format allows. A stream may be
// stored encrypted through the IVeLEncryptionHandler given at construction (its buffer format: IV, then
// AES-CBC ciphertext); the caller says per stream whether it is. One file is open at a time; the order of
// the operations is fixed.
#pragma once

#include "velbytearray.h"
#include "velresult.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <string>
#include <vector>

// One element of a compound file, as ListElements reports it.
struct CVeLCompoundEntry
{
    std::wstring path;           // "/"-separated from the root
    unsigned long long size = 0; // stream bytes as stored (0 for storages)
    bool isStorage = false;
};

class IVeLCompoundFile
{
public:
    virtual ~IVeLCompoundFile() {}
    // Creates a new, empty file (an existing one is replaced) and keeps it open for writing.
    virtual bool Create(const boost::filesystem::path& file) = 0;
    // Opens an existing file, for reading and writing when writable is true.
    virtual bool Open(const boost::filesystem::path& file, bool writable) = 0;
    // Writes what changed and closes the file; true also when nothing was open.
    virtual bool Close() = 0;
    virtual bool IsOpen() const = 0;
    // Writes everything changed so far to the file; it stays open.
    virtual bool Commit() = 0;
    // Creates or replaces the stream at path, creating missing storages on the way; with encrypt the stream
    // holds the encryption handler's buffer for data (which must then not be empty).
    virtual bool WriteStream(const std::wstring& path, const CVeLByteArray& data, bool encrypt) = 0;
    // The content of the stream at path, decrypted when decrypt is true; an empty stream gives a successful
    // result holding an empty array.
    virtual CVeLResult<CVeLByteArray> ReadStream(const std::wstring& path, bool decrypt) const = 0;
    // Every storage and stream of the file, depth first, each storage before its content.
    virtual bool ListElements(std::vector<CVeLCompoundEntry>& entries) const = 0;
    // Removes the stream or storage (with everything in it) at path.
    virtual bool DeleteElement(const std::wstring& path) = 0;
};
