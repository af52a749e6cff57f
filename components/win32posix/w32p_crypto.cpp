// Cryptography (BCrypt algorithm providers, keys, encryption, hashing, random numbers) over OpenSSL 3.
// The contract, and where Linux differs from Windows, are in w32p_crypto.h.
#include "w32p_crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <string>
#include <sys/random.h>
#include <unordered_map>
#include <vector>

namespace
{

constexpr ULONG kAesBlock = 16;
constexpr ULONG kSha256Digest = 32;

enum class ObjectType
{
    Provider,
    Key,
    Hash
};
enum class Algorithm
{
    Aes,
    Rng,
    Sha256
};
enum class Chaining
{
    Cbc,
    Ecb
};

struct CryptoObject
{
    explicit CryptoObject(ObjectType objectType) : type(objectType) {}
    virtual ~CryptoObject() = default;
    const ObjectType type;
};

struct Provider : CryptoObject
{
    explicit Provider(Algorithm id) : CryptoObject(ObjectType::Provider), algorithm(id) {}
    const Algorithm algorithm;
    std::atomic<Chaining> chaining{Chaining::Cbc}; // copied into each key generated afterwards
};

struct EvpCipherDeleter
{
    void operator()(EVP_CIPHER* cipher) const { EVP_CIPHER_free(cipher); }
};
struct EvpMdCtxDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct EvpCipherCtxDeleter
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

struct Key : CryptoObject
{
    Key() : CryptoObject(ObjectType::Key) {}
    ~Key() override { OPENSSL_cleanse(secret.data(), secret.size()); }
    std::vector<unsigned char> secret; // fixed after creation
    std::atomic<Chaining> chaining{Chaining::Cbc};
    std::unique_ptr<EVP_CIPHER, EvpCipherDeleter> cbc; // fetched once: fetching per call is slow
    std::unique_ptr<EVP_CIPHER, EvpCipherDeleter> ecb;
};

struct Hash : CryptoObject
{
    Hash() : CryptoObject(ObjectType::Hash) {}
    std::mutex lock; // guards context and finished
    std::unique_ptr<EVP_MD_CTX, EvpMdCtxDeleter> context;
    bool finished = false;
};

// Live objects by handle value. A handle is the object's address; looking it up here first is what turns
// a stale or foreign handle into STATUS_INVALID_HANDLE.
struct Registry
{
    std::mutex lock; // guards objects
    std::unordered_map<void*, std::shared_ptr<CryptoObject>> objects;
};

Registry& Objects()
{
    static Registry* registry = new Registry; // never destroyed: handles may be released during exit
    return *registry;
}

void* Register(std::shared_ptr<CryptoObject> object)
{
    void* handle = object.get();
    Registry& r = Objects();
    std::lock_guard<std::mutex> guard(r.lock);
    r.objects.emplace(handle, std::move(object));
    return handle;
}

template <typename T>
std::shared_ptr<T> Find(void* handle, ObjectType type)
{
    if (handle == nullptr)
        return nullptr;
    Registry& r = Objects();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.objects.find(handle);
    if (it == r.objects.end() || it->second->type != type)
        return nullptr;
    return std::static_pointer_cast<T>(it->second);
}

std::shared_ptr<CryptoObject> FindAny(void* handle)
{
    if (handle == nullptr)
        return nullptr;
    Registry& r = Objects();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.objects.find(handle);
    return it == r.objects.end() ? nullptr : it->second;
}

NTSTATUS Release(void* handle, ObjectType type)
{
    std::shared_ptr<CryptoObject> object;
    {
        Registry& r = Objects();
        std::lock_guard<std::mutex> guard(r.lock);
        auto it = r.objects.find(handle);
        if (handle == nullptr || it == r.objects.end() || it->second->type != type)
            return STATUS_INVALID_HANDLE;
        object = std::move(it->second);
        r.objects.erase(it);
    }
    return STATUS_SUCCESS; // the object (and any key bytes) goes when its last user is done
}

// A property value of 4 bytes, or a byte string, copied out with the Windows size rules.
NTSTATUS Answer(const void* value, ULONG size, PUCHAR output, ULONG outputLength, ULONG* resultLength)
{
    *resultLength = size;
    if (output == nullptr)
        return STATUS_SUCCESS;
    if (outputLength < size)
        return STATUS_BUFFER_TOO_SMALL;
    std::memcpy(output, value, size);
    return STATUS_SUCCESS;
}

NTSTATUS AnswerUlong(ULONG value, PUCHAR output, ULONG outputLength, ULONG* resultLength)
{
    return Answer(&value, sizeof value, output, outputLength, resultLength);
}

const wchar_t* ChainingName(Chaining mode)
{
    return mode == Chaining::Cbc ? BCRYPT_CHAIN_MODE_CBC : BCRYPT_CHAIN_MODE_ECB;
}

// The wide string in a property input, with or without its terminator.
std::wstring WideInput(PUCHAR input, ULONG inputLength)
{
    const std::size_t count = inputLength / sizeof(WCHAR);
    std::wstring text(reinterpret_cast<const WCHAR*>(input), count);
    const std::size_t end = text.find(L'\0');
    if (end != std::wstring::npos)
        text.resize(end);
    return text;
}

// One pass of AES over input into output; written receives the bytes produced. False on a padding error.
bool RunCipher(const Key& key, Chaining mode, bool encrypt, bool padding, const unsigned char* iv,
               const unsigned char* input, ULONG inputLength, unsigned char* output, ULONG& written)
{
    written = 0;
    std::unique_ptr<EVP_CIPHER_CTX, EvpCipherCtxDeleter> context(EVP_CIPHER_CTX_new());
    if (!context)
        return false;
    static const unsigned char zeros[kAesBlock] = {};
    const EVP_CIPHER* cipher = mode == Chaining::Cbc ? key.cbc.get() : key.ecb.get();
    if (EVP_CipherInit_ex2(context.get(), cipher, key.secret.data(),
                           mode == Chaining::Cbc ? (iv ? iv : zeros) : nullptr, encrypt ? 1 : 0,
                           nullptr) != 1)
        return false;
    EVP_CIPHER_CTX_set_padding(context.get(), padding ? 1 : 0);
    ULONG done = 0;
    while (done < inputLength)
    {
        const int chunk = static_cast<int>(std::min<ULONG>(inputLength - done, 1u << 30));
        int n = 0;
        if (EVP_CipherUpdate(context.get(), output + written, &n, input + done, chunk) != 1)
            return false;
        done += static_cast<ULONG>(chunk);
        written += static_cast<ULONG>(n);
    }
    int last = 0;
    if (EVP_CipherFinal_ex(context.get(), output + written, &last) != 1)
        return false;
    written += static_cast<ULONG>(last);
    return true;
}

NTSTATUS Crypt(bool encrypt, BCRYPT_KEY_HANDLE keyHandle, PUCHAR input, ULONG inputLength, PUCHAR iv,
               ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength, ULONG flags)
{
    std::shared_ptr<Key> key = Find<Key>(keyHandle, ObjectType::Key);
    if (!key)
        return STATUS_INVALID_HANDLE;
    if (resultLength == nullptr || (flags & ~static_cast<ULONG>(BCRYPT_BLOCK_PADDING)) != 0 ||
        (input == nullptr && inputLength != 0))
        return STATUS_INVALID_PARAMETER;
    const bool padding = (flags & BCRYPT_BLOCK_PADDING) != 0;
    const Chaining mode = key->chaining.load();
    if (mode == Chaining::Cbc && iv != nullptr && ivLength != kAesBlock)
        return STATUS_INVALID_PARAMETER;
    if ((inputLength % kAesBlock != 0 && (!encrypt || !padding)) || (!encrypt && padding && inputLength == 0))
        return STATUS_INVALID_BUFFER_SIZE;
    const ULONG needed = encrypt && padding ? (inputLength / kAesBlock + 1) * kAesBlock : inputLength;
    if (output == nullptr)
    {
        *resultLength = needed;
        return STATUS_SUCCESS;
    }
    unsigned char nextIv[kAesBlock];
    if (!encrypt && inputLength >= kAesBlock)
        std::memcpy(nextIv, input + inputLength - kAesBlock,
                    kAesBlock); // before an in-place pass overwrites it

    ULONG written = 0;
    if (encrypt || outputLength >= needed)
    {
        if (outputLength < needed)
        {
            *resultLength = needed;
            return STATUS_BUFFER_TOO_SMALL;
        }
        if (!RunCipher(*key, mode, encrypt, padding, iv, input, inputLength, output, written))
        {
            OPENSSL_cleanse(output, needed);
            return encrypt ? STATUS_UNSUCCESSFUL : STATUS_DATA_ERROR;
        }
    }
    else
    {
        // A caller may size the output for the plaintext it expects; the padding is known only afterwards.
        if (!padding)
        {
            *resultLength = needed;
            return STATUS_BUFFER_TOO_SMALL;
        }
        std::vector<unsigned char> plain(needed);
        const bool ok = RunCipher(*key, mode, false, true, iv, input, inputLength, plain.data(), written);
        if (ok && written <= outputLength)
            std::memcpy(output, plain.data(), written);
        OPENSSL_cleanse(plain.data(), plain.size());
        if (!ok)
            return STATUS_DATA_ERROR;
        if (written > outputLength)
        {
            *resultLength = written;
            return STATUS_BUFFER_TOO_SMALL;
        }
    }
    if (mode == Chaining::Cbc && iv != nullptr && inputLength > 0)
        std::memcpy(iv, encrypt ? output + written - kAesBlock : nextIv, kAesBlock);
    OPENSSL_cleanse(nextIv, sizeof nextIv);
    *resultLength = written;
    return STATUS_SUCCESS;
}

} // namespace

NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                     LPCWSTR implementation, ULONG flags)
{
    if (algorithm == nullptr || algorithmId == nullptr)
        return STATUS_INVALID_PARAMETER;
    *algorithm = nullptr;
    if (flags != 0)
        return STATUS_NOT_SUPPORTED;
    if (implementation != nullptr && std::wcscmp(implementation, MS_PRIMITIVE_PROVIDER) != 0)
        return STATUS_NOT_FOUND;
    Algorithm id;
    if (std::wcscmp(algorithmId, BCRYPT_AES_ALGORITHM) == 0)
        id = Algorithm::Aes;
    else if (std::wcscmp(algorithmId, BCRYPT_RNG_ALGORITHM) == 0)
        id = Algorithm::Rng;
    else if (std::wcscmp(algorithmId, BCRYPT_SHA256_ALGORITHM) == 0)
        id = Algorithm::Sha256;
    else
        return STATUS_NOT_FOUND;
    *algorithm = Register(std::make_shared<Provider>(id));
    return STATUS_SUCCESS;
}

NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG /*flags*/)
{
    return Release(algorithm, ObjectType::Provider);
}

NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputLength,
                           ULONG* resultLength, ULONG /*flags*/)
{
    std::shared_ptr<CryptoObject> found = FindAny(object);
    if (!found || found->type == ObjectType::Hash)
        return STATUS_INVALID_HANDLE;
    if (property == nullptr || resultLength == nullptr)
        return STATUS_INVALID_PARAMETER;
    Algorithm algorithm = Algorithm::Aes;
    Chaining mode;
    if (found->type == ObjectType::Provider)
    {
        auto provider = std::static_pointer_cast<Provider>(found);
        algorithm = provider->algorithm;
        mode = provider->chaining.load();
    }
    else
    {
        auto key = std::static_pointer_cast<Key>(found);
        mode = key->chaining.load();
        if (std::wcscmp(property, BCRYPT_KEY_LENGTH) == 0)
            return AnswerUlong(static_cast<ULONG>(key->secret.size() * 8), output, outputLength,
                               resultLength);
    }
    const std::wstring name = property;
    if (algorithm == Algorithm::Aes)
    {
        if (name == BCRYPT_CHAINING_MODE)
        {
            const wchar_t* text = ChainingName(mode);
            return Answer(text, static_cast<ULONG>((std::wcslen(text) + 1) * sizeof(WCHAR)), output,
                          outputLength, resultLength);
        }
        if (name == BCRYPT_BLOCK_LENGTH)
            return AnswerUlong(kAesBlock, output, outputLength, resultLength);
        if (name == BCRYPT_OBJECT_LENGTH)
            return AnswerUlong(static_cast<ULONG>(sizeof(Key)), output, outputLength, resultLength);
        if (name == BCRYPT_KEY_LENGTHS)
        {
            const BCRYPT_KEY_LENGTHS_STRUCT lengths = {128, 256, 64};
            return Answer(&lengths, sizeof lengths, output, outputLength, resultLength);
        }
    }
    else if (algorithm == Algorithm::Sha256)
    {
        if (name == BCRYPT_HASH_LENGTH)
            return AnswerUlong(kSha256Digest, output, outputLength, resultLength);
        if (name == BCRYPT_OBJECT_LENGTH)
            return AnswerUlong(static_cast<ULONG>(sizeof(Hash)), output, outputLength, resultLength);
    }
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength,
                           ULONG /*flags*/)
{
    std::shared_ptr<CryptoObject> found = FindAny(object);
    if (!found || found->type == ObjectType::Hash)
        return STATUS_INVALID_HANDLE;
    if (property == nullptr || (input == nullptr && inputLength != 0))
        return STATUS_INVALID_PARAMETER;
    std::atomic<Chaining>* target = nullptr;
    if (found->type == ObjectType::Provider)
    {
        auto provider = std::static_pointer_cast<Provider>(found);
        if (provider->algorithm == Algorithm::Aes)
            target = &provider->chaining;
    }
    else
        target = &std::static_pointer_cast<Key>(found)->chaining;
    if (target == nullptr || std::wcscmp(property, BCRYPT_CHAINING_MODE) != 0)
        return STATUS_NOT_SUPPORTED;
    const std::wstring value = WideInput(input, inputLength);
    if (value == BCRYPT_CHAIN_MODE_CBC)
        target->store(Chaining::Cbc);
    else if (value == BCRYPT_CHAIN_MODE_ECB)
        target->store(Chaining::Ecb);
    else
        return STATUS_NOT_SUPPORTED;
    return STATUS_SUCCESS;
}

NTSTATUS BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR /*keyObject*/,
                                    ULONG /*keyObjectLength*/, PUCHAR secret, ULONG secretLength,
                                    ULONG /*flags*/)
{
    std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
    if (!provider || provider->algorithm != Algorithm::Aes)
        return STATUS_INVALID_HANDLE;
    if (key == nullptr || secret == nullptr ||
        (secretLength != 16 && secretLength != 24 && secretLength != 32))
        return STATUS_INVALID_PARAMETER;
    auto created = std::make_shared<Key>();
    created->secret.assign(secret, secret + secretLength);
    created->chaining.store(provider->chaining.load());
    const char* cbcName = secretLength == 16   ? "AES-128-CBC"
                          : secretLength == 24 ? "AES-192-CBC"
                                               : "AES-256-CBC";
    const char* ecbName = secretLength == 16   ? "AES-128-ECB"
                          : secretLength == 24 ? "AES-192-ECB"
                                               : "AES-256-ECB";
    created->cbc.reset(EVP_CIPHER_fetch(nullptr, cbcName, nullptr));
    created->ecb.reset(EVP_CIPHER_fetch(nullptr, ecbName, nullptr));
    if (!created->cbc || !created->ecb)
        return STATUS_NOT_SUPPORTED;
    *key = Register(created);
    return STATUS_SUCCESS;
}

NTSTATUS BCryptDestroyKey(BCRYPT_KEY_HANDLE key)
{
    return Release(key, ObjectType::Key);
}

NTSTATUS BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID /*paddingInfo*/,
                       PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength,
                       ULONG flags)
{
    return Crypt(true, key, input, inputLength, iv, ivLength, output, outputLength, resultLength, flags);
}

NTSTATUS BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID /*paddingInfo*/,
                       PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength,
                       ULONG flags)
{
    return Crypt(false, key, input, inputLength, iv, ivLength, output, outputLength, resultLength, flags);
}

NTSTATUS BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags)
{
    if (algorithm == nullptr)
    {
        if ((flags & BCRYPT_USE_SYSTEM_PREFERRED_RNG) == 0)
            return STATUS_INVALID_HANDLE;
    }
    else
    {
        std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
        if (!provider || provider->algorithm != Algorithm::Rng)
            return STATUS_INVALID_HANDLE;
        if (flags & BCRYPT_USE_SYSTEM_PREFERRED_RNG)
            return STATUS_INVALID_PARAMETER;
    }
    if (buffer == nullptr && length != 0)
        return STATUS_INVALID_PARAMETER;
    ULONG done = 0;
    while (done < length)
    {
        const ssize_t n = getrandom(buffer + done, length - done, 0);
        if (n < 0)
        {
            if (errno == EINTR)
                continue;
            return STATUS_UNSUCCESSFUL;
        }
        done += static_cast<ULONG>(n);
    }
    return STATUS_SUCCESS;
}

NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR /*hashObject*/,
                          ULONG /*hashObjectLength*/, PUCHAR secret, ULONG secretLength, ULONG flags)
{
    std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
    if (!provider || provider->algorithm != Algorithm::Sha256)
        return STATUS_INVALID_HANDLE;
    if (hash == nullptr || flags != 0 || (secret != nullptr && secretLength != 0))
        return STATUS_INVALID_PARAMETER;
    auto created = std::make_shared<Hash>();
    created->context.reset(EVP_MD_CTX_new());
    if (!created->context || EVP_DigestInit_ex2(created->context.get(), EVP_sha256(), nullptr) != 1)
        return STATUS_NO_MEMORY;
    *hash = Register(created);
    return STATUS_SUCCESS;
}

NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG /*flags*/)
{
    std::shared_ptr<Hash> found = Find<Hash>(hash, ObjectType::Hash);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (input == nullptr && inputLength != 0)
        return STATUS_INVALID_PARAMETER;
    std::lock_guard<std::mutex> guard(found->lock);
    if (found->finished)
        return STATUS_INVALID_HANDLE;
    if (inputLength != 0 && EVP_DigestUpdate(found->context.get(), input, inputLength) != 1)
        return STATUS_UNSUCCESSFUL;
    return STATUS_SUCCESS;
}

NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG /*flags*/)
{
    std::shared_ptr<Hash> found = Find<Hash>(hash, ObjectType::Hash);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (output == nullptr || outputLength != kSha256Digest)
        return STATUS_INVALID_PARAMETER;
    std::lock_guard<std::mutex> guard(found->lock);
    if (found->finished)
        return STATUS_INVALID_HANDLE;
    found->finished = true;
    unsigned int n = 0;
    return EVP_DigestFinal_ex(found->context.get(), output, &n) == 1 ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash)
{
    return Release(hash, ObjectType::Hash);
}
