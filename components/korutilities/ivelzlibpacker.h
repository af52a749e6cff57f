// IVeLZlibPacker: compresses one file into the gzip format (RFC 1952, deflate from zlib) and expands it
// back, streamed, so files of any size pass through a bounded amount of memory. What Compress writes is a
// single gzip member that `gzip -d` reads; Expand reads what `gzip` writes, several members included, and
// checks each member's CRC-32 and length. The output is written under a temporary name beside the target
// and renamed into place only when complete: a failure leaves no partial output and an existing target
// unchanged. The order of the operations is fixed.
#pragma once

#include "velwin32.h"

#include <boost/filesystem/path.hpp>

class IVeLZlibPacker
{
public:
    virtual ~IVeLZlibPacker() {}
    // Compresses source into target at zlib's default level 6.
    virtual bool Compress(const boost::filesystem::path& source,
                          const boost::filesystem::path& target) const = 0;
    // Compresses at level 0 (stored) to 9 (smallest).
    virtual bool Compress(const boost::filesystem::path& source, const boost::filesystem::path& target,
                          int level) const = 0;
    // Expands the gzip file source into target.
    virtual bool Expand(const boost::filesystem::path& source,
                        const boost::filesystem::path& target) const = 0;
};
