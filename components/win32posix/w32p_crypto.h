// Cryptography with the Windows CNG ("BCrypt") contract, computed by OpenSSL 3 libcrypto.
//
// Providers: "AES" (chaining modes "ChainingModeCBC", the default, and "ChainingModeECB"), "RNG" (the
// kernel's random source, getrandom) and "SHA256". Statuses are the NTSTATUS values Windows returns.
// Handles are addresses of objects that this layer keeps in a registry of its own, so a stale or foreign
// handle is answered with STATUS_INVALID_HANDLE instead of a crash; they are not kernel handles and
// CloseHandle does not know them. Key bytes and chaining values are wiped when released. The key and hash
// object buffers that Windows lets a caller supply are accepted and left unused: the objects live on this
// layer's heap. HMAC (BCRYPT_ALG_HANDLE_HMAC_FLAG) is not offered. Every function may be called from any
// thread; one key may encrypt in several threads at once, one hash object is for one thread at a time.
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
#define BCRYPT_SHA256_ALGORITHM L"SHA256"
#define MS_PRIMITIVE_PROVIDER L"Microsoft Primitive Provider"

#define BCRYPT_CHAINING_MODE L"ChainingMode"
#define BCRYPT_CHAIN_MODE_CBC L"ChainingModeCBC"
#define BCRYPT_CHAIN_MODE_ECB L"ChainingModeECB"
#define BCRYPT_BLOCK_LENGTH L"BlockLength"
#define BCRYPT_OBJECT_LENGTH L"ObjectLength"
#define BCRYPT_HASH_LENGTH L"HashDigestLength"
#define BCRYPT_KEY_LENGTHS L"KeyLengths"
#define BCRYPT_KEY_LENGTH L"KeyLength"

#define BCRYPT_BLOCK_PADDING 0x00000001
#define BCRYPT_USE_SYSTEM_PREFERRED_RNG 0x00000002
#define BCRYPT_ALG_HANDLE_HMAC_FLAG 0x00000008

// Key sizes in bits, as "KeyLengths" reports them.
typedef struct __BCRYPT_KEY_LENGTHS_STRUCT
{
    ULONG dwMinLength;
    ULONG dwMaxLength;
    ULONG dwIncrement;
} BCRYPT_KEY_LENGTHS_STRUCT;

// STATUS_NOT_FOUND for an unknown algorithm or implementation name, STATUS_NOT_SUPPORTED for flags.
W32P_API NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                              LPCWSTR implementation, ULONG flags);
W32P_API NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags);
// With a null output only the size is reported. Too small: STATUS_BUFFER_TOO_SMALL and the size. A
// property the object does not have: STATUS_NOT_SUPPORTED. Works on provider and key handles.
W32P_API NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputLength,
                                    ULONG* resultLength, ULONG flags);
// Only "ChainingMode" can be set (on an AES provider or key); it applies to keys generated afterwards.
W32P_API NTSTATUS BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength,
                                    ULONG flags);
// AES only; the secret must be 16, 24 or 32 bytes (else STATUS_INVALID_PARAMETER).
W32P_API NTSTATUS BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key,
                                             PUCHAR keyObject, ULONG keyObjectLength, PUCHAR secret,
                                             ULONG secretLength, ULONG flags);
W32P_API NTSTATUS BCryptDestroyKey(BCRYPT_KEY_HANDLE key);
// Without BCRYPT_BLOCK_PADDING the input must be a whole number of blocks (STATUS_INVALID_BUFFER_SIZE);
// with it, PKCS #7 padding adds 1 to 16 bytes. A null output asks for the size. In CBC mode the IV buffer
// (16 bytes; null means zeros) is overwritten with the last ciphertext block, so consecutive calls chain.
// Input and output may be the same buffer.
W32P_API NTSTATUS BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                ULONG* resultLength, ULONG flags);
// The input must be a whole number of blocks. A size query answers the input length, since the padding
// is known only after decrypting; the real call reports the plaintext length. Bad padding:
// STATUS_DATA_ERROR, and neither the IV nor the result length changes.
W32P_API NTSTATUS BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                ULONG* resultLength, ULONG flags);
// An "RNG" provider, or a null one with BCRYPT_USE_SYSTEM_PREFERRED_RNG; a null one without that flag:
// STATUS_INVALID_HANDLE.
W32P_API NTSTATUS BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags);
W32P_API NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                                   ULONG hashObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags);
W32P_API NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG flags);
// The output length must be the digest length exactly (STATUS_INVALID_PARAMETER otherwise). A finished
// hash object accepts no more data (STATUS_INVALID_HANDLE) and is then only destroyed.
W32P_API NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG flags);
W32P_API NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash);
