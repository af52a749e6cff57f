// CVeLEncryptionHandlerImpl: AES-CBC with block padding through the cryptography operations of the
// operating-system facade (and through nothing else). Owns the random-number provider, the AES provider
// and the key for its whole life and releases them in its destructor. The key bytes are the AES key
// itself (16, 24 or 32 bytes; no derivation); a wide-string key gives its UTF-16LE code units on every
// platform (characters beyond U+FFFF as surrogate pairs), so 8, 12 or 16 characters, and a ciphertext
// made on one platform decrypts on the other. Each encryption takes a fresh random IV, so equal
// plaintexts give different buffers. The handler takes no lock: concurrent calls share its provider and
// key handles, which is safe as far as the facade's cryptography allows it (on Linux it does).
//
// A construction that fails (no facade, empty key, a provider or the key refused) is traced and leaves a
// handler whose operations fail with "Invalid initialization". Decisions of this implementation:
// - A buffer that decrypts to no bytes at all (a single padding block, which another program may
//   produce) is a success holding an empty array.
// - A plaintext too long for the buffer length (within two blocks of 4 GiB) is refused with
//   "Got invalid crypt buffer size for encryption".
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
    // Destroys the key and closes both providers, each only if held; failures are traced at WRN.
    ~CVeLEncryptionHandlerImpl() override;

    // Failures: "Invalid initialization", "Invalid parameter", and for the facade's steps
    // "Generating initialization vector failed, error code: 0x%08X",
    // "Getting crypt buffer size for encryption failed, error code: 0x%08X",
    // "Got invalid crypt buffer size for encryption", "Encryption bytes failed, error code: 0x%08X".
    CVeLResult<CVeLByteArray> EncryptBytes(unsigned char* const data, ULONG size) const override;
    CVeLResult<CVeLByteArray> EncryptBytes(const CVeLByteArray& data) const override;
    // Failures: "Invalid initialization", "Invalid parameter" (also for 16 bytes or fewer),
    // "Getting crypt buffer size for decryption failed, error code: 0x%08X",
    // "Got invalid crypt buffer size for decryption", and "Decryption bytes failed, error code: 0x%08X"
    // for a wrong key or corrupt padding.
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
