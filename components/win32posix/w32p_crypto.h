// Cryptography with the Windows CNG ("BCrypt") contract, computed by OpenSSL 3 libcrypto.
//
// Providers: "AES" (chaining modes "ChainingModeCBC", the default, "ChainingModeECB" and "ChainingModeCFB"),
// "RNG" (the kernel's random source, getrandom), and the hashes "MD5", "SHA1", "SHA256", "SHA384" and
// "SHA512", each also as HMAC (BCRYPT_ALG_HANDLE_HMAC_FLAG). Statuses are the NTSTATUS values Windows
// returns. Handles are addresses of objects that this layer keeps in a registry of its own, so a stale or
// foreign handle is answered with STATUS_INVALID_HANDLE instead of a crash; they are not kernel handles and
// CloseHandle does not know them. A key or hash object lives in the buffer the caller supplies
// (pbKeyObject / pbHashObject, at least "ObjectLength" bytes, kept until the object is destroyed) or, with
// a null buffer, on this layer's heap. Key bytes and chaining values are wiped when released. Every function
// may be called from any thread; one key may encrypt in several threads at once, one hash object is for one
// thread at a time.
//
// Differences from Windows: "ObjectLength" answers the sizes of Windows 7 (654 for AES, 274 to 382 for the
// hashes), which later versions changed, so callers should ask rather than assume; AES-GCM/CCM, and with them
// "AuthTagLength", are not offered (STATUS_NOT_SUPPORTED); BCryptDuplicateKey, key import/export and
// asymmetric algorithms are absent. In 8-bit CFB any input length is accepted (the message block is one
// byte), where Wine asks for whole 16-byte blocks.
#pragma once

#include "w32p_base.h"

typedef PVOID BCRYPT_HANDLE;
typedef PVOID BCRYPT_ALG_HANDLE;
typedef PVOID BCRYPT_KEY_HANDLE;
typedef PVOID BCRYPT_HASH_HANDLE;

#define NT_SUCCESS(status) (static_cast<NTSTATUS>(status) >= 0)
#define STATUS_SUCCESS static_cast<NTSTATUS>(0x00000000L)
#define STATUS_UNSUCCESSFUL static_cast<NTSTATUS>(0xC0000001L)
#define STATUS_INVALID_HANDLE static_cast<NTSTATUS>(0xC0000008L)
#define STATUS_INVALID_PARAMETER static_cast<NTSTATUS>(0xC000000DL)
#define STATUS_NO_MEMORY static_cast<NTSTATUS>(0xC0000017L)
#define STATUS_BUFFER_TOO_SMALL static_cast<NTSTATUS>(0xC0000023L)
#define STATUS_DATA_ERROR static_cast<NTSTATUS>(0xC000003EL)
#define STATUS_NOT_SUPPORTED static_cast<NTSTATUS>(0xC00000BBL)
#define STATUS_INVALID_BUFFER_SIZE static_cast<NTSTATUS>(0xC0000206L)
#define STATUS_NOT_FOUND static_cast<NTSTATUS>(0xC0000225L)

#define BCRYPT_AES_ALGORITHM L"AES"
#define BCRYPT_RNG_ALGORITHM L"RNG"
#define BCRYPT_MD5_ALGORITHM L"MD5"
#define BCRYPT_SHA1_ALGORITHM L"SHA1"
#define BCRYPT_SHA256_ALGORITHM L"SHA256"
#define BCRYPT_SHA384_ALGORITHM L"SHA384"
#define BCRYPT_SHA512_ALGORITHM L"SHA512"
#define MS_PRIMITIVE_PROVIDER L"Microsoft Primitive Provider"

#define BCRYPT_CHAINING_MODE L"ChainingMode"
#define BCRYPT_CHAIN_MODE_CBC L"ChainingModeCBC"
#define BCRYPT_CHAIN_MODE_ECB L"ChainingModeECB"
#define BCRYPT_CHAIN_MODE_CFB L"ChainingModeCFB"
#define BCRYPT_ALGORITHM_NAME L"AlgorithmName"
#define BCRYPT_AUTH_TAG_LENGTH L"AuthTagLength"
#define BCRYPT_HASH_BLOCK_LENGTH L"HashBlockLength"
#define BCRYPT_KEY_STRENGTH L"KeyStrength"
#define BCRYPT_MESSAGE_BLOCK_LENGTH L"MessageBlockLength"
#define BCRYPT_BLOCK_LENGTH L"BlockLength"
#define BCRYPT_OBJECT_LENGTH L"ObjectLength"
#define BCRYPT_HASH_LENGTH L"HashDigestLength"
#define BCRYPT_KEY_LENGTHS L"KeyLengths"
#define BCRYPT_KEY_LENGTH L"KeyLength"

#define BCRYPT_BLOCK_PADDING 0x00000001
#define BCRYPT_RNG_USE_ENTROPY_IN_BUFFER 0x00000001
#define BCRYPT_USE_SYSTEM_PREFERRED_RNG 0x00000002
#define BCRYPT_ALG_HANDLE_HMAC_FLAG 0x00000008
#define BCRYPT_HASH_REUSABLE_FLAG 0x00000020

// Key sizes in bits, as "KeyLengths" reports them.
typedef struct __BCRYPT_KEY_LENGTHS_STRUCT
{
    ULONG dwMinLength;
    ULONG dwMaxLength;
    ULONG dwIncrement;
} BCRYPT_KEY_LENGTHS_STRUCT;

// STATUS_NOT_FOUND for an unknown algorithm or implementation name, and for BCRYPT_ALG_HANDLE_HMAC_FLAG on a
// provider that is not a hash (Windows has no such provider; Wine accepts it); BCRYPT_HASH_REUSABLE_FLAG
// (hashes only) makes every hash object of the provider reusable; other flags: STATUS_NOT_SUPPORTED.
W32P_API NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                              LPCWSTR implementation, ULONG flags);
W32P_API NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags);
// Works on provider, key and hash handles. With a null output only the size is reported, with
// STATUS_SUCCESS as Microsoft documents it (Wine answers STATUS_BUFFER_TOO_SMALL). Too small:
// STATUS_BUFFER_TOO_SMALL and the size. A property the object does not have: STATUS_NOT_SUPPORTED. AES:
// "AlgorithmName", "BlockLength", "ChainingMode", "KeyLengths", "ObjectLength"; a key adds "KeyLength",
// "KeyStrength" and, in CFB mode, "MessageBlockLength". Hashes: "AlgorithmName", "HashDigestLength",
// "HashBlockLength", "ObjectLength". RNG: "AlgorithmName".
W32P_API NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputLength,
                                    ULONG* resultLength, ULONG flags);
// "ChainingMode" on an AES provider (for keys generated afterwards) or key; "MessageBlockLength" (1, the
// default, for 8-bit CFB, or 16 for full-block CFB) on a key in CFB mode, 4 bytes, another value:
// STATUS_INVALID_PARAMETER. Anything else: STATUS_NOT_SUPPORTED.
W32P_API NTSTATUS BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength,
                                    ULONG flags);
// AES only; the secret must be 16, 24 or 32 bytes (else STATUS_INVALID_PARAMETER). A key object buffer
// shorter than "ObjectLength": STATUS_BUFFER_TOO_SMALL.
W32P_API NTSTATUS BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key,
                                             PUCHAR keyObject, ULONG keyObjectLength, PUCHAR secret,
                                             ULONG secretLength, ULONG flags);
W32P_API NTSTATUS BCryptDestroyKey(BCRYPT_KEY_HANDLE key);
// Without BCRYPT_BLOCK_PADDING the input must be a whole number of message blocks (16 bytes; 1 byte in
// 8-bit CFB), else STATUS_INVALID_BUFFER_SIZE; with it, PKCS #7 padding adds 1 to 16 bytes. A null output
// asks for the size. In CBC and CFB mode the IV buffer (16 bytes, else STATUS_INVALID_PARAMETER; null means
// zeros) is overwritten with the chaining value for the next call (CBC: the last ciphertext block), so
// consecutive calls chain. An IV in ECB mode: STATUS_INVALID_PARAMETER. Input and output may be the same
// buffer.
W32P_API NTSTATUS BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                ULONG* resultLength, ULONG flags);
// The input must be a whole number of message blocks. A size query answers the input length, since the
// padding is known only after decrypting; the real call reports the plaintext length. Bad padding:
// STATUS_DATA_ERROR, and neither the IV nor the result length changes.
W32P_API NTSTATUS BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                ULONG* resultLength, ULONG flags);
// An "RNG" provider, or a null one with BCRYPT_USE_SYSTEM_PREFERRED_RNG; a null one without that flag:
// STATUS_INVALID_HANDLE; that flag with a provider: STATUS_INVALID_PARAMETER.
// BCRYPT_RNG_USE_ENTROPY_IN_BUFFER is accepted and ignored, as on current Windows.
W32P_API NTSTATUS BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags);
// A hash provider; the secret is the HMAC key of an HMAC provider (may be empty) and ignored otherwise.
// BCRYPT_HASH_REUSABLE_FLAG: after BCryptFinishHash the object starts again as new. A hash object buffer
// shorter than "ObjectLength": STATUS_BUFFER_TOO_SMALL.
W32P_API NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                                   ULONG hashObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags);
// A copy of a hash object in its current state (reusable as the original), in the caller's buffer or not.
W32P_API NTSTATUS BCryptDuplicateHash(BCRYPT_HASH_HANDLE hash, BCRYPT_HASH_HANDLE* duplicate,
                                      PUCHAR hashObject, ULONG hashObjectLength, ULONG flags);
W32P_API NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG flags);
// The output length must be the digest length exactly (STATUS_INVALID_PARAMETER otherwise). A finished
// hash object that is not reusable accepts no more data (STATUS_INVALID_HANDLE) and is then only destroyed.
W32P_API NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG flags);
W32P_API NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash);
