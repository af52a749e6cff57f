// CVeLEncryptionHandler: the public AES-CBC encryption of byte buffers (see CVeLEncryptionHandlerImpl for
// the key rules, the buffer format and threading). Builds its implementation over a new default
// operating-system facade and owns it for its whole life; every operation forwards to it. A failed
// construction is only traced; the operations then fail.
#pragma once

#include "korutilities_export.h"
#include "ivelencryptionhandler.h"

#include <memory>
#include <string>

class CVeLEncryptionHandlerImpl;

class KORUTILITIES_API CVeLEncryptionHandler : public IVeLEncryptionHandler
{
public:
    // A key of 8, 12 or 16 characters (their UTF-16 code units are the 16, 24 or 32 key bytes).
    explicit CVeLEncryptionHandler(const std::wstring& key);
    explicit CVeLEncryptionHandler(const CVeLByteArray& key);
    CVeLEncryptionHandler(unsigned char* const key, ULONG keySize);
    ~CVeLEncryptionHandler() override;

    CVeLResult<CVeLByteArray> EncryptBytes(unsigned char* const data, ULONG size) const override;
    CVeLResult<CVeLByteArray> EncryptBytes(const CVeLByteArray& data) const override;
    CVeLResult<CVeLByteArray> DecryptBytes(unsigned char* const data, ULONG size) const override;
    CVeLResult<CVeLByteArray> DecryptBytes(const CVeLByteArray& data) const override;

private:
    CVeLEncryptionHandler(const CVeLEncryptionHandler&) = delete;
    CVeLEncryptionHandler& operator=(const CVeLEncryptionHandler&) = delete;

    std::unique_ptr<CVeLEncryptionHandlerImpl> m_impl;
};
