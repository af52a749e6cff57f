#include "veldirectorypacker.h"
#include "korutilitesbtracedef.h"
#include "veldirectorypackerimpl.h"
#include "velwinapiwrapper.h"

// One line per forward; a missing implementation is traced.
#define VEL_PACK_FORWARD(call)                                                                               \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return CVeLResult<CVeLFilesystemError>();                                                            \
    }                                                                                                        \
    return m_impl->call

CVeLDirectoryPacker::CVeLDirectoryPacker() : CVeLDirectoryPacker(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLDirectoryPacker::CVeLDirectoryPacker(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_impl(new CVeLDirectoryPackerImpl(std::move(api)))
{
}

CVeLDirectoryPacker::~CVeLDirectoryPacker() = default;

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::Pack(const boost::filesystem::path& folder,
                                                          const boost::filesystem::path& archive) const
{
    VEL_PACK_FORWARD(Pack(folder, archive));
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::Unpack(const boost::filesystem::path& archive,
                                                            const boost::filesystem::path& destination) const
{
    VEL_PACK_FORWARD(Unpack(archive, destination));
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::List(const boost::filesystem::path& archive,
                                                          std::vector<CVeLPackEntry>& entries) const
{
    VEL_PACK_FORWARD(List(archive, entries));
}
