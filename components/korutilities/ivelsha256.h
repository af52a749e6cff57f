// IVeLSha256: SHA-256 digests of byte arrays, wide strings, files and folders. A digest is a 32-byte
// CVeLByteArray; CVeLSha256::ToHex gives its usual 64-character lower-case text. The order of the
// operations is fixed.
//
// The folder rule, kept stable because users store folder digests: every regular file below the folder
// gives one line "<64 lower-case hex digits of its content digest>  <relative path>\n", where the relative
// path joins its elements with "/" and is UTF-8 (on Linux the bytes of the name as stored); the lines are
// sorted by the bytes of their paths and the folder digest is the digest of their concatenation. Folders
// themselves, empty ones included, and file times and attributes do not count. This is exactly the output
// of `sha256sum` run on every file in that order, so the value can be checked with standard tools. A
// symbolic link or any other object that is neither a file nor a folder fails the digest (links are never
// followed).
#pragma once

#include "velbytearray.h"
#include "velresult.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <string>

class IVeLSha256
{
public:
    virtual ~IVeLSha256() {}
    // The digest of size bytes at data (size 0 gives the digest of nothing; data may then be null).
    virtual CVeLResult<CVeLByteArray> HashBytes(const unsigned char* data, ULONG size) const = 0;
    // The digest of the array's bytes; an empty array gives the digest of nothing.
    virtual CVeLResult<CVeLByteArray> HashBytes(const CVeLByteArray& data) const = 0;
    // The digest of the text's UTF-16LE code units, without terminator, as on every platform.
    virtual CVeLResult<CVeLByteArray> HashString(const std::wstring& text) const = 0;
    // The digest of a file's content, read in pieces, of any size.
    virtual CVeLResult<CVeLByteArray> HashFile(const boost::filesystem::path& file) const = 0;
    // The digest of a folder by the rule above.
    virtual CVeLResult<CVeLByteArray> HashFolder(const boost::filesystem::path& folder) const = 0;
};
