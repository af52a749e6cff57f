#include "velzlibpacker.h"
#include "korutilitesbtracedef.h"
#include "velwinapiwrapper.h"
#include "velzlibpackerimpl.h"

// One line per forward; a missing implementation is traced.
#define VEL_ZLIB_FORWARD(call)                                                                               \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return false;                                                                                        \
    }                                                                                                        \
    return m_impl->call

CVeLZlibPacker::CVeLZlibPacker() : CVeLZlibPacker(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLZlibPacker::CVeLZlibPacker(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_impl(new CVeLZlibPackerImpl(std::move(api)))
{
}

CVeLZlibPacker::~CVeLZlibPacker() = default;

bool CVeLZlibPacker::Compress(const boost::filesystem::path& source,
                              const boost::filesystem::path& target) const
{
    VEL_ZLIB_FORWARD(Compress(source, target));
}

bool CVeLZlibPacker::Compress(const boost::filesystem::path& source, const boost::filesystem::path& target,
                              int level) const
{
    VEL_ZLIB_FORWARD(Compress(source, target, level));
}

bool CVeLZlibPacker::Expand(const boost::filesystem::path& source,
                            const boost::filesystem::path& target) const
{
    VEL_ZLIB_FORWARD(Expand(source, target));
}
