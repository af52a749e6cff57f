// CVeLZlibPacker: the public gzip file packer (see IVeLZlibPacker for the format and the no-partial-output
// rule, CVeLZlibPackerImpl for threads). Owns its implementation, built over the given facade or a new
// default one; every operation forwards to it. Every failure is traced at ERR and answered with false;
// nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelwinapiwrapper.h"
#include "ivelzlibpacker.h"

#include <memory>

class CVeLZlibPackerImpl;

class KORUTILITIES_API CVeLZlibPacker : public IVeLZlibPacker
{
public:
    CVeLZlibPacker();
    explicit CVeLZlibPacker(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLZlibPacker() override;
    CVeLZlibPacker(const CVeLZlibPacker&) = delete;
    CVeLZlibPacker& operator=(const CVeLZlibPacker&) = delete;

    bool Compress(const boost::filesystem::path& source,
                  const boost::filesystem::path& target) const override;
    bool Compress(const boost::filesystem::path& source, const boost::filesystem::path& target,
                  int level) const override;
    bool Expand(const boost::filesystem::path& source, const boost::filesystem::path& target) const override;

private:
    std::unique_ptr<CVeLZlibPackerImpl> m_impl;
};
