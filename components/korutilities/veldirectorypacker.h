// CVeLDirectoryPacker: the public directory pack (see IVeLDirectoryPacker for the format, the results and
// the safety rules, CVeLDirectoryPackerImpl for threads). Owns its implementation, built over the given
// facade or a new default one; every operation forwards to it. Nothing throws.
#pragma once

#include "korutilities_export.h"
#include "iveldirectorypacker.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLDirectoryPackerImpl;

class KORUTILITIES_API CVeLDirectoryPacker : public IVeLDirectoryPacker
{
public:
    CVeLDirectoryPacker();
    explicit CVeLDirectoryPacker(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLDirectoryPacker() override;
    CVeLDirectoryPacker(const CVeLDirectoryPacker&) = delete;
    CVeLDirectoryPacker& operator=(const CVeLDirectoryPacker&) = delete;

    CVeLResult<CVeLFilesystemError> Pack(const boost::filesystem::path& folder,
                                         const boost::filesystem::path& archive) const override;
    CVeLResult<CVeLFilesystemError> Unpack(const boost::filesystem::path& archive,
                                           const boost::filesystem::path& destination) const override;
    CVeLResult<CVeLFilesystemError> List(const boost::filesystem::path& archive,
                                         std::vector<CVeLPackEntry>& entries) const override;

private:
    std::unique_ptr<CVeLDirectoryPackerImpl> m_impl;
};
