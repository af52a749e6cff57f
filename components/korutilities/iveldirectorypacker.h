// IVeLDirectoryPacker: a whole folder tree in one ZIP archive and back. The archive's central directory is
// its table of contents; entries keep their paths relative to the packed folder (elements joined by "/",
// UTF-8, flagged as such), sizes and modification times (the archive's local time stamp plus the UTC time
// in the extended-timestamp field), and folders, empty ones included, are entries of their own. Archives
// open with the usual tools (`unzip -l` lists them) and archives those tools write (`zip -r`) unpack.
//
// Results: a CVeLResult<CVeLFilesystemError>; success carries an empty error value, a failure names the
// path at which it stopped and the system error code (or ERROR_INVALID_DATA for a damaged archive,
// ERROR_BAD_PATHNAME for an entry that would land outside the destination). Packing never follows a
// symbolic link: a link in the tree fails the pack with the link-detected flag. Unpacking refuses entries
// with absolute paths, drive names, ".." elements or ":" and link entries, and never writes through a
// link it finds in the destination; on any failure it removes what it had written, so a damaged or hostile
// archive leaves the destination as it was. The order of the operations is fixed.
#pragma once

#include "velfilesystemerror.h"
#include "velresult.h"
#include "velwin32.h"

#include <boost/filesystem/path.hpp>

#include <ctime>
#include <string>
#include <vector>

// One entry of an archive's table of contents.
struct CVeLPackEntry
{
    std::wstring path;                     // relative, elements joined by "/"; folders end in "/"
    unsigned long long size = 0;           // uncompressed bytes (0 for folders)
    unsigned long long compressedSize = 0; // bytes in the archive
    std::time_t modified = 0;              // modification time, seconds since 1970 (UTC)
    bool isFolder = false;
};

class IVeLDirectoryPacker
{
public:
    virtual ~IVeLDirectoryPacker() {}
    // Packs the tree below folder (not folder's own name) into a new archive; an existing archive file is
    // replaced only when the pack is complete.
    virtual CVeLResult<CVeLFilesystemError> Pack(const boost::filesystem::path& folder,
                                                 const boost::filesystem::path& archive) const = 0;
    // Unpacks archive below destination, which is created when missing; existing files are replaced.
    virtual CVeLResult<CVeLFilesystemError> Unpack(const boost::filesystem::path& archive,
                                                   const boost::filesystem::path& destination) const = 0;
    // The table of contents, in archive order.
    virtual CVeLResult<CVeLFilesystemError> List(const boost::filesystem::path& archive,
                                                 std::vector<CVeLPackEntry>& entries) const = 0;
};
