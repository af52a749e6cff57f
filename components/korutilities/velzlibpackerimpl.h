// CVeLZlibPackerImpl: gzip compression and expansion of files through the facade's file operations.
//
// Compression uses every processor: the input is cut into 1 MiB blocks, each block is deflated on its own
// thread with the last 32 KiB of the block before it as preset dictionary (so matches reach across block
// borders and the ratio stays that of one stream), ended with a sync flush so the raw deflate pieces join
// into one stream, and written in order by the calling thread; the member's CRC-32 is combined from the
// blocks' CRCs and an empty final block ends the stream. At most two blocks per processor are in flight,
// which bounds memory. Every thread a call starts has ended when the call returns. Expansion is one zlib
// inflate stream per member on the calling thread.
//
// One object may serve several threads at once (it keeps no state between calls). Every failure is traced
// at ERR and answered with false; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelwinapiwrapper.h"
#include "ivelzlibpacker.h"

#include <memory>

class CVeLFileStream;

class KORUTILITIES_API CVeLZlibPackerImpl : public IVeLZlibPacker
{
public:
    explicit CVeLZlibPackerImpl(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLZlibPackerImpl() override;

    bool Compress(const boost::filesystem::path& source,
                  const boost::filesystem::path& target) const override;
    bool Compress(const boost::filesystem::path& source, const boost::filesystem::path& target,
                  int level) const override;
    bool Expand(const boost::filesystem::path& source, const boost::filesystem::path& target) const override;

private:
    // The facade is there and the arguments are valid; else traced, false.
    bool CheckUsable(bool validArguments) const;
    // Opens source for reading and target for a write that lands only on commit; traces what failed.
    bool OpenStreams(const boost::filesystem::path& source, const boost::filesystem::path& target,
                     bool compress, CVeLFileStream& input, CVeLFileStream& output) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
