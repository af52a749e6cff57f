// CVeLSha256Impl: SHA-256 through the facade's BCrypt hash operations. Opens the "SHA256" provider once at
// construction and closes it at destruction; each digest creates, feeds and destroys its own hash object,
// so one instance serves several threads at once. Files are read through the facade in 1 MiB pieces.
// Every failure is traced at ERR and answered with a failed result; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelsha256.h"
#include "ivelwinapiwrapper.h"

#include <memory>
#include <string>

class KORUTILITIES_API CVeLSha256Impl : public IVeLSha256
{
public:
    explicit CVeLSha256Impl(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLSha256Impl() override;
    CVeLSha256Impl(const CVeLSha256Impl&) = delete;
    CVeLSha256Impl& operator=(const CVeLSha256Impl&) = delete;

    CVeLResult<CVeLByteArray> HashBytes(const unsigned char* data, ULONG size) const override;
    CVeLResult<CVeLByteArray> HashBytes(const CVeLByteArray& data) const override;
    CVeLResult<CVeLByteArray> HashString(const std::wstring& text) const override;
    CVeLResult<CVeLByteArray> HashFile(const boost::filesystem::path& file) const override;
    CVeLResult<CVeLByteArray> HashFolder(const boost::filesystem::path& folder) const override;

    // For the other hashing and packing classes: a running digest fed piece by piece.
    class Digest
    {
    public:
        explicit Digest(const CVeLSha256Impl& owner);
        ~Digest();
        Digest(const Digest&) = delete;
        Digest& operator=(const Digest&) = delete;
        bool Add(const void* data, std::size_t size);
        // The 32-byte digest; the object cannot be fed afterwards.
        CVeLResult<CVeLByteArray> Finish();

    private:
        const CVeLSha256Impl& m_owner;
        BCRYPT_HASH_HANDLE m_hash = nullptr;
        bool m_failed = false;
    };

private:
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    BCRYPT_ALG_HANDLE m_provider = nullptr; // set at construction, read-only afterwards
};
