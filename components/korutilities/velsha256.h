// CVeLSha256: the public SHA-256 service (see IVeLSha256 for the digests and the folder rule). Owns its
// implementation, built over the given facade or a new default one; every operation forwards to it. The
// operations may be called from several threads at once. Every failure is traced at ERR and answered with
// a failed result; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelsha256.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLSha256Impl;

class KORUTILITIES_API CVeLSha256 : public IVeLSha256
{
public:
    CVeLSha256();
    explicit CVeLSha256(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLSha256() override;
    CVeLSha256(const CVeLSha256&) = delete;
    CVeLSha256& operator=(const CVeLSha256&) = delete;

    CVeLResult<CVeLByteArray> HashBytes(const unsigned char* data, ULONG size) const override;
    CVeLResult<CVeLByteArray> HashBytes(const CVeLByteArray& data) const override;
    CVeLResult<CVeLByteArray> HashString(const std::wstring& text) const override;
    CVeLResult<CVeLByteArray> HashFile(const boost::filesystem::path& file) const override;
    CVeLResult<CVeLByteArray> HashFolder(const boost::filesystem::path& folder) const override;

    // The lower-case hexadecimal text of a digest (or of any byte array); empty for an empty array.
    static std::wstring ToHex(const CVeLByteArray& digest);

private:
    std::unique_ptr<CVeLSha256Impl> m_impl;
};
