#include "velzlibpacker.h"
#include "korutilitesbtracedef.h"
#include "velwinapiwrapper.h"
#include "velzlibpackerimpl.h"
#include "velcalltrace.h"

CVeLZlibPacker::CVeLZlibPacker() : CVeLZlibPacker(std::make_shared<CVeLWinAPIWrapper>()) {}

CVeLZlibPacker::CVeLZlibPacker(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_impl(new CVeLZlibPackerImpl(std::move(api)))
{
}

CVeLZlibPacker::~CVeLZlibPacker() = default;

bool CVeLZlibPacker::Compress(const boost::filesystem::path& source,
                              const boost::filesystem::path& target) const
{
    return VEL_FORWARD(m_impl, Compress(source, target));
}

bool CVeLZlibPacker::Compress(const boost::filesystem::path& source, const boost::filesystem::path& target,
                              int level) const
{
    return VEL_FORWARD(m_impl, Compress(source, target, level));
}

bool CVeLZlibPacker::Expand(const boost::filesystem::path& source,
                            const boost::filesystem::path& target) const
{
    return VEL_FORWARD(m_impl, Expand(source, target));
}
