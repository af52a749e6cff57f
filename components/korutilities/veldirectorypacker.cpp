#include "veldirectorypacker.h"
#include "korutilitesbtracedef.h"
#include "veldirectorypackerimpl.h"
#include "velwinapiwrapper.h"
#include "velcalltrace.h"

CVeLDirectoryPacker::CVeLDirectoryPacker() : CVeLDirectoryPacker(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLDirectoryPacker::CVeLDirectoryPacker(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_impl(new CVeLDirectoryPackerImpl(std::move(api)))
{
}

CVeLDirectoryPacker::~CVeLDirectoryPacker() = default;

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::Pack(const boost::filesystem::path& folder,
                                                          const boost::filesystem::path& archive) const
{
    return VEL_FORWARD(m_impl, Pack(folder, archive));
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::Unpack(const boost::filesystem::path& archive,
                                                            const boost::filesystem::path& destination) const
{
    return VEL_FORWARD(m_impl, Unpack(archive, destination));
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPacker::List(const boost::filesystem::path& archive,
                                                          std::vector<CVeLPackEntry>& entries) const
{
    return VEL_FORWARD(m_impl, List(archive, entries));
}
