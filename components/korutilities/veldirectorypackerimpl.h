// CVeLDirectoryPackerImpl: ZIP archives through minizip (zlib's own ZIP reader and writer), with every
// file and archive read and written through the facade's file operations.
//
// Why minizip: it writes an entry from data that is already deflated ("raw" entries), so the files of a
// tree are deflated on every processor while the calling thread writes finished entries in order, and it
// takes its file access as a table of functions, so the archive goes through the facade like every other
// file of the library. Files up to 16 MiB are read and deflated whole by a worker thread, at most two per
// processor at a time; larger files are deflated by the calling thread as they are read. Every thread a
// call starts has ended when it returns.
//
// One object may serve several threads at once (it keeps no state between calls). Every failure is traced
// at ERR; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "iveldirectorypacker.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class KORUTILITIES_API CVeLDirectoryPackerImpl : public IVeLDirectoryPacker
{
public:
    explicit CVeLDirectoryPackerImpl(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLDirectoryPackerImpl() override;

    CVeLResult<CVeLFilesystemError> Pack(const boost::filesystem::path& folder,
                                         const boost::filesystem::path& archive) const override;
    CVeLResult<CVeLFilesystemError> Unpack(const boost::filesystem::path& archive,
                                           const boost::filesystem::path& destination) const override;
    CVeLResult<CVeLFilesystemError> List(const boost::filesystem::path& archive,
                                         std::vector<CVeLPackEntry>& entries) const override;

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
