// IVeLEncryptionHandler: AES-CBC encryption of byte buffers under one key. An encrypted buffer is the
// random initialisation vector (one cipher block, 16 bytes) followed by the ciphertext with PKCS #7
// padding; there is no header, length or tag. The order of the operations is fixed.
#pragma once

#include "velbytearray.h"
#include "velresult.h"
#include "velwin32.h"

class IVeLEncryptionHandler
{
public:
    virtual ~IVeLEncryptionHandler() {}
    // IV and ciphertext of size bytes at data, at least two blocks long; a failed result for a null
    // pointer, size 0 or a handler without a key.
    virtual CVeLResult<CVeLByteArray> EncryptBytes(unsigned char* const data, ULONG size) const = 0;
    virtual CVeLResult<CVeLByteArray> EncryptBytes(const CVeLByteArray& data) const = 0;
    // The plaintext of an encrypted buffer. The buffer's first block is used in place as the chaining
    // value and holds the last ciphertext block afterwards: the input counts as consumed. A failed result
    // for a buffer of one block or less, a corrupt one, or one encrypted under another key.
    virtual CVeLResult<CVeLByteArray> DecryptBytes(unsigned char* const data, ULONG size) const = 0;
    virtual CVeLResult<CVeLByteArray> DecryptBytes(const CVeLByteArray& data) const = 0;
};
