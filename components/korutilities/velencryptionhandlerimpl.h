// CVeLEncryptionHandlerImpl: AES-CBC with block padding through the cryptography operations of the
// operating-system facade (and through nothing else). Owns the random-number provider, the AES provider
// and the key for its whole life and releases them in its destructor. The key bytes are the AES key
// itself (16, 24 or 32 bytes; no derivation); a wide-string key gives its UTF-16LE code units on every
// platform (characters beyond U+FFFF as surrogate pairs), so 8, 12 or 16 characters, and a ciphertext
// made on one platform decrypts on the other. Each encryption takes a fresh random IV, so equal
// plaintexts give different buffers. The handler takes no lock: concurrent calls share its provider and
// key handles, which is safe as far as the facade's cryptography allows it (on Linux it does).
//
// Every failure is traced at ERR (a failed release at WRN) and answered with a failed result; nothing
// throws. A construction that fails (no facade, empty key, a provider or the key refused) leaves a handler
// whose operations all fail. Decisions of this implementation:
// - A buffer that decrypts to no bytes at all (a single padding block, which another program may
//   produce) is a success holding an empty array.
// - A plaintext too long for the buffer length (within two blocks of 4 GiB) is refused.
// - The temporary copy of a wide-string key is wiped after the key is made.
#pragma once

#include "korutilities_export.h"
#include "ivelencryptionhandler.h"
#include "ivelwinapiwrapper.h"

#include <memory>
#include <string>

class KORUTILITIES_API CVeLEncryptionHandlerImpl : public IVeLEncryptionHandler
{
public:
    CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const std::wstring& key);
    CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api, const CVeLByteArray& key);
    CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api, unsigned char* const key,
                              ULONG keySize);
    // Destroys the key and closes both providers, each only if held.
    ~CVeLEncryptionHandlerImpl() override;

    // The IV, then the padded ciphertext. A failing facade step is traced with its status.
    CVeLResult<CVeLByteArray> EncryptBytes(unsigned char* const data, ULONG size) const override;
    CVeLResult<CVeLByteArray> EncryptBytes(const CVeLByteArray& data) const override;
    // Fails also for 16 bytes or fewer, and for a wrong key or corrupt padding. The IV at the start of data
    // receives the chaining value, as the facade leaves it.
    CVeLResult<CVeLByteArray> DecryptBytes(unsigned char* const data, ULONG size) const override;
    CVeLResult<CVeLByteArray> DecryptBytes(const CVeLByteArray& data) const override;

private:
    CVeLEncryptionHandlerImpl(const CVeLEncryptionHandlerImpl&) = delete;
    CVeLEncryptionHandlerImpl& operator=(const CVeLEncryptionHandlerImpl&) = delete;

    void Initialize(unsigned char* key, ULONG keySize);

    ULONG m_ivSize;
    BCRYPT_ALG_HANDLE m_randomProvider;
    BCRYPT_ALG_HANDLE m_cryptoProvider;
    BCRYPT_KEY_HANDLE m_key;
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
