// Cryptography (BCrypt algorithm providers, keys, encryption, hashing, random numbers) over OpenSSL 3.
// The contract, and where Linux differs from Windows, are in w32p_crypto.h.
#include "w32p_crypto.h"

#include <openssl/crypto.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>
#include <new>
#include <memory>
#include <mutex>
#include <string>
#include <sys/random.h>
#include <unordered_map>
#include <vector>

namespace
{

constexpr ULONG kAesBlock = 16;

enum class ObjectType
{
    Provider,
    Key,
    Hash
};
enum class Chaining
{
    Cbc,
    Ecb,
    Cfb
};

// What each provider name stands for. A hash has an OpenSSL digest name; AES and RNG have none.
struct AlgorithmInfo
{
    const wchar_t* name;
    const char* digest; // null for AES and RNG
    ULONG digestLength;
    ULONG hashBlockLength;
    ULONG objectLength; // the key or hash object size Windows reports, which callers may have hard-coded
};
const AlgorithmInfo kAlgorithms[] = {
    {BCRYPT_AES_ALGORITHM, nullptr, 0, 0, 654},        {BCRYPT_RNG_ALGORITHM, nullptr, 0, 0, 0},
    {BCRYPT_MD5_ALGORITHM, "MD5", 16, 64, 274},        {BCRYPT_SHA1_ALGORITHM, "SHA1", 20, 64, 278},
    {BCRYPT_SHA256_ALGORITHM, "SHA256", 32, 64, 286},  {BCRYPT_SHA384_ALGORITHM, "SHA384", 48, 128, 382},
    {BCRYPT_SHA512_ALGORITHM, "SHA512", 64, 128, 382},
};
const AlgorithmInfo& kAes = kAlgorithms[0];
const AlgorithmInfo& kRng = kAlgorithms[1];

struct CryptoObject
{
    explicit CryptoObject(ObjectType objectType) : type(objectType) {}
    virtual ~CryptoObject() = default;
    const ObjectType type;
};

struct Provider : CryptoObject
{
    Provider(const AlgorithmInfo& id, bool isHmac, bool isReusable)
        : CryptoObject(ObjectType::Provider), algorithm(id), hmac(isHmac), reusable(isReusable)
    {
    }
    const AlgorithmInfo& algorithm;
    const bool hmac;
    const bool reusable;
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
struct EvpMacCtxDeleter
{
    void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};
struct EvpCipherCtxDeleter
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherPtr = std::unique_ptr<EVP_CIPHER, EvpCipherDeleter>;

// The OpenSSL ciphers one key runs: CBC, ECB, 8-bit CFB and full-block CFB.
enum CipherKind
{
    kCbc,
    kEcb,
    kCfb8,
    kCfb128,
    kCipherKinds
};

struct Key : CryptoObject
{
    Key() : CryptoObject(ObjectType::Key) {}
    ~Key() override { OPENSSL_cleanse(secret.data(), secret.size()); }
    std::vector<unsigned char> secret; // fixed after creation
    std::atomic<Chaining> chaining{Chaining::Cbc};
    std::atomic<ULONG> messageBlock{1}; // CFB only: bytes fed back per step
    CipherPtr ciphers[kCipherKinds];    // fetched once: fetching per call is slow
};

// A running digest or HMAC.
struct DigestState
{
    std::unique_ptr<EVP_MD_CTX, EvpMdCtxDeleter> md;
    std::unique_ptr<EVP_MAC_CTX, EvpMacCtxDeleter> mac;

    bool Update(const unsigned char* data, std::size_t length)
    {
        return md ? EVP_DigestUpdate(md.get(), data, length) == 1
                  : EVP_MAC_update(mac.get(), data, length) == 1;
    }
    bool Final(unsigned char* out, std::size_t length)
    {
        unsigned int n = 0;
        std::size_t written = 0;
        return md ? EVP_DigestFinal_ex(md.get(), out, &n) == 1
                  : EVP_MAC_final(mac.get(), out, &written, length) == 1;
    }
    bool CopyFrom(const DigestState& other)
    {
        if (other.md)
        {
            md.reset(EVP_MD_CTX_new());
            return md && EVP_MD_CTX_copy_ex(md.get(), other.md.get()) == 1;
        }
        mac.reset(EVP_MAC_CTX_dup(other.mac.get()));
        return mac != nullptr;
    }
};

struct Hash : CryptoObject
{
    Hash(const AlgorithmInfo& id, bool isReusable)
        : CryptoObject(ObjectType::Hash), algorithm(id), reusable(isReusable)
    {
    }
    const AlgorithmInfo& algorithm;
    const bool reusable;
    std::mutex lock;   // guards current and finished
    DigestState fresh; // the state right after creation, which a reusable object returns to
    DigestState current;
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
    r.objects[handle] = std::move(object);
    return handle;
}

bool IsRegistered(void* handle)
{
    Registry& r = Objects();
    std::lock_guard<std::mutex> guard(r.lock);
    return r.objects.count(handle) != 0;
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

// A new T in the caller's object buffer, or on the heap when there is none. The caller's buffer must hold
// the object length Windows reports for the algorithm and not already hold a live object.
template <typename T, typename... Args>
NTSTATUS Construct(const AlgorithmInfo& algorithm, PUCHAR buffer, ULONG length, std::shared_ptr<T>& made,
                   Args&&... args)
{
    static_assert(sizeof(T) + alignof(T) - 1 <= 274, "every object fits the smallest length Windows reports");
    if (buffer == nullptr)
    {
        made = std::make_shared<T>(std::forward<Args>(args)...);
        return STATUS_SUCCESS;
    }
    if (length < algorithm.objectLength)
        return STATUS_BUFFER_TOO_SMALL;
    void* at = buffer;
    std::size_t space = length;
    std::align(alignof(T), sizeof(T), at, space);
    if (IsRegistered(at))
        return STATUS_INVALID_PARAMETER;
    made = std::shared_ptr<T>(new (at) T(std::forward<Args>(args)...), [](T* object) { object->~T(); });
    return STATUS_SUCCESS;
}

// A property value copied out with the Windows size rules.
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

const wchar_t* ChainingName(Chaining mode)
{
    return mode == Chaining::Cbc   ? BCRYPT_CHAIN_MODE_CBC
           : mode == Chaining::Ecb ? BCRYPT_CHAIN_MODE_ECB
                                   : BCRYPT_CHAIN_MODE_CFB;
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

// A property's value as bytes, or the status when the object has no such property.
using Value = std::vector<unsigned char>;

Value UlongValue(ULONG number)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(&number);
    return Value(bytes, bytes + sizeof number);
}

Value TextValue(const wchar_t* text)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    return Value(bytes, bytes + (std::wcslen(text) + 1) * sizeof(WCHAR));
}

bool HashProperty(const AlgorithmInfo& algorithm, const std::wstring& name, Value& value)
{
    if (name == BCRYPT_HASH_LENGTH)
        value = UlongValue(algorithm.digestLength);
    else if (name == BCRYPT_HASH_BLOCK_LENGTH)
        value = UlongValue(algorithm.hashBlockLength);
    else if (name == BCRYPT_OBJECT_LENGTH)
        value = UlongValue(algorithm.objectLength);
    else
        return false;
    return true;
}

bool AesProperty(Chaining mode, const std::wstring& name, Value& value)
{
    if (name == BCRYPT_CHAINING_MODE)
        value = TextValue(ChainingName(mode));
    else if (name == BCRYPT_BLOCK_LENGTH)
        value = UlongValue(kAesBlock);
    else if (name == BCRYPT_OBJECT_LENGTH)
        value = UlongValue(kAes.objectLength);
    else if (name == BCRYPT_KEY_LENGTHS)
    {
        const BCRYPT_KEY_LENGTHS_STRUCT lengths = {128, 256, 64};
        const auto* bytes = reinterpret_cast<const unsigned char*>(&lengths);
        value.assign(bytes, bytes + sizeof lengths);
    }
    else
        return false;
    return true;
}

bool KeyProperty(const Key& key, const std::wstring& name, Value& value)
{
    const Chaining mode = key.chaining.load();
    if (name == BCRYPT_KEY_LENGTH || name == BCRYPT_KEY_STRENGTH)
        value = UlongValue(static_cast<ULONG>(key.secret.size() * 8));
    else if (name == BCRYPT_MESSAGE_BLOCK_LENGTH && mode == Chaining::Cfb)
        value = UlongValue(key.messageBlock.load());
    else
        return AesProperty(mode, name, value);
    return true;
}

bool PropertyOf(const CryptoObject& object, const std::wstring& name, Value& value)
{
    const AlgorithmInfo* algorithm = &kAes;
    if (object.type == ObjectType::Hash)
        algorithm = &static_cast<const Hash&>(object).algorithm;
    else if (object.type == ObjectType::Provider)
        algorithm = &static_cast<const Provider&>(object).algorithm;
    if (name == BCRYPT_ALGORITHM_NAME)
    {
        value = TextValue(algorithm->name);
        return true;
    }
    if (object.type == ObjectType::Key)
        return KeyProperty(static_cast<const Key&>(object), name, value);
    if (algorithm->digest != nullptr)
        return HashProperty(*algorithm, name, value);
    if (algorithm == &kAes)
        return AesProperty(static_cast<const Provider&>(object).chaining.load(), name, value);
    return false;
}

// The cipher a key runs in its current mode, and the unit its input must be a whole number of.
const EVP_CIPHER* CipherFor(const Key& key, Chaining mode, ULONG& unit)
{
    const ULONG feedback = key.messageBlock.load();
    unit = mode == Chaining::Cfb ? feedback : kAesBlock;
    if (mode == Chaining::Cfb)
        return key.ciphers[feedback == 1 ? kCfb8 : kCfb128].get();
    return key.ciphers[mode == Chaining::Cbc ? kCbc : kEcb].get();
}

// One pass of the cipher over input into output, with PKCS #7 padding added (encrypt) when asked; the
// caller checks and strips the padding of a decryption. written receives the bytes produced.
bool RunCipher(const Key& key, const EVP_CIPHER* cipher, bool encrypt, bool padding, const unsigned char* iv,
               const unsigned char* input, ULONG inputLength, unsigned char* output, ULONG& written)
{
    written = 0;
    std::unique_ptr<EVP_CIPHER_CTX, EvpCipherCtxDeleter> context(EVP_CIPHER_CTX_new());
    static const unsigned char zeros[kAesBlock] = {};
    if (!context || EVP_CipherInit_ex2(context.get(), cipher, key.secret.data(), iv ? iv : zeros,
                                       encrypt ? 1 : 0, nullptr) != 1)
        return false;
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    const ULONG whole = encrypt && padding ? inputLength / kAesBlock * kAesBlock : inputLength;
    for (ULONG done = 0; done < whole;)
    {
        const int chunk = static_cast<int>(std::min<ULONG>(whole - done, 1u << 30));
        int n = 0;
        if (EVP_CipherUpdate(context.get(), output + written, &n, input + done, chunk) != 1)
            return false;
        done += static_cast<ULONG>(chunk);
        written += static_cast<ULONG>(n);
    }
    if (encrypt && padding)
    {
        unsigned char last[kAesBlock];
        const ULONG tail = inputLength - whole;
        std::memcpy(last, input + whole, tail);
        std::memset(last + tail, static_cast<int>(kAesBlock - tail), kAesBlock - tail);
        int n = 0;
        const bool ok = EVP_CipherUpdate(context.get(), output + written, &n, last, kAesBlock) == 1;
        OPENSSL_cleanse(last, sizeof last);
        written += static_cast<ULONG>(n);
        if (!ok)
            return false;
    }
    int last = 0;
    return EVP_CipherFinal_ex(context.get(), output + written, &last) == 1;
}

// The length of a decrypted text without its PKCS #7 padding, or false when the padding is not valid.
bool StripPadding(const unsigned char* plain, ULONG length, ULONG& unpadded)
{
    if (length == 0)
        return false;
    const unsigned char count = plain[length - 1];
    unsigned char bad = static_cast<unsigned char>(count == 0 || count > kAesBlock || count > length);
    for (ULONG i = 0; i < kAesBlock && i < length; ++i)
        if (i < count)
            bad |= static_cast<unsigned char>(plain[length - 1 - i] ^ count);
    unpadded = length - count;
    return bad == 0;
}

// The next call's chaining value: the last block of the ciphertext, with the old value in front of it.
void ChainIv(unsigned char* iv, const unsigned char* cipherText, ULONG length)
{
    unsigned char next[kAesBlock];
    const ULONG fromText = std::min(length, kAesBlock);
    std::memcpy(next, iv + fromText, kAesBlock - fromText);
    std::memcpy(next + kAesBlock - fromText, cipherText + length - fromText, fromText);
    std::memcpy(iv, next, kAesBlock);
    OPENSSL_cleanse(next, sizeof next);
}

struct CryptRequest
{
    bool encrypt;
    PUCHAR input;
    ULONG inputLength;
    PUCHAR iv;
    ULONG ivLength;
    PUCHAR output;
    ULONG outputLength;
    ULONG* resultLength;
    ULONG flags;
};

// Decrypts into output, or into a scratch buffer first when output is sized for the unpadded text only.
NTSTATUS DecryptInto(const Key& key, const EVP_CIPHER* cipher, const CryptRequest& r, bool padding,
                     ULONG& written)
{
    const bool direct = r.outputLength >= r.inputLength;
    if (!direct && !padding)
    {
        *r.resultLength = r.inputLength;
        return STATUS_BUFFER_TOO_SMALL;
    }
    std::vector<unsigned char> scratch(direct ? 0 : r.inputLength);
    unsigned char* target = direct ? r.output : scratch.data();
    const bool ran = RunCipher(key, cipher, false, false, r.iv, r.input, r.inputLength, target, written);
    const bool unpadded = ran && (!padding || StripPadding(target, written, written));
    if (!direct && unpadded && written <= r.outputLength)
        std::memcpy(r.output, target, written);
    OPENSSL_cleanse(scratch.data(), scratch.size());
    if (!unpadded)
    {
        OPENSSL_cleanse(r.output, std::min(r.outputLength, r.inputLength));
        return ran ? STATUS_DATA_ERROR : STATUS_UNSUCCESSFUL;
    }
    if (written > r.outputLength)
    {
        *r.resultLength = written;
        return STATUS_BUFFER_TOO_SMALL;
    }
    return STATUS_SUCCESS;
}

NTSTATUS Crypt(BCRYPT_KEY_HANDLE keyHandle, const CryptRequest& r)
{
    std::shared_ptr<Key> key = Find<Key>(keyHandle, ObjectType::Key);
    if (!key)
        return STATUS_INVALID_HANDLE;
    if (r.resultLength == nullptr || (r.flags & ~static_cast<ULONG>(BCRYPT_BLOCK_PADDING)) != 0 ||
        (r.input == nullptr && r.inputLength != 0))
        return STATUS_INVALID_PARAMETER;
    const bool padding = (r.flags & BCRYPT_BLOCK_PADDING) != 0;
    const Chaining mode = key->chaining.load();
    ULONG unit = kAesBlock;
    const EVP_CIPHER* cipher = CipherFor(*key, mode, unit);
    const bool chained = mode != Chaining::Ecb && r.iv != nullptr;
    if ((chained && r.ivLength != kAesBlock) || (mode == Chaining::Ecb && r.iv != nullptr))
        return STATUS_INVALID_PARAMETER;
    if ((r.inputLength % unit != 0 && (!r.encrypt || !padding)) ||
        (!r.encrypt && padding && (r.inputLength == 0 || r.inputLength % kAesBlock != 0)))
        return STATUS_INVALID_BUFFER_SIZE;
    const ULONG needed = r.encrypt && padding ? (r.inputLength / kAesBlock + 1) * kAesBlock : r.inputLength;
    if (r.output == nullptr)
    {
        *r.resultLength = needed;
        return STATUS_SUCCESS;
    }
    if (r.encrypt && r.outputLength < needed)
    {
        *r.resultLength = needed;
        return STATUS_BUFFER_TOO_SMALL;
    }
    // A decryption in place overwrites the ciphertext that the next chaining value is taken from.
    std::vector<unsigned char> cipherTail;
    if (!r.encrypt && chained)
        cipherTail.assign(r.input + r.inputLength - std::min(r.inputLength, kAesBlock),
                          r.input + r.inputLength);
    ULONG written = 0;
    if (!r.encrypt)
    {
        const NTSTATUS status = DecryptInto(*key, cipher, r, padding, written);
        if (status != STATUS_SUCCESS)
            return status;
    }
    else if (!RunCipher(*key, cipher, true, padding, r.iv, r.input, r.inputLength, r.output, written))
    {
        OPENSSL_cleanse(r.output, needed);
        return STATUS_UNSUCCESSFUL;
    }
    if (chained && r.inputLength > 0)
        r.encrypt ? ChainIv(r.iv, r.output, written)
                  : ChainIv(r.iv, cipherTail.data(), static_cast<ULONG>(cipherTail.size()));
    *r.resultLength = written;
    return STATUS_SUCCESS;
}

const AlgorithmInfo* AlgorithmNamed(LPCWSTR name)
{
    for (const AlgorithmInfo& algorithm : kAlgorithms)
        if (std::wcscmp(name, algorithm.name) == 0)
            return &algorithm;
    return nullptr;
}

// The digest of algorithm, fetched once per process: fetching for every hash object is slow. The table is
// never destroyed: the digests stay reachable until the process ends, and nothing is freed at exit after
// OpenSSL's own clean-up may already have run.
EVP_MD* FetchedDigest(const AlgorithmInfo& algorithm)
{
    static std::mutex lock; // guards fetched
    static auto& fetched = *new std::unordered_map<const AlgorithmInfo*, EVP_MD*>();
    std::lock_guard<std::mutex> guard(lock);
    EVP_MD*& md = fetched[&algorithm];
    if (md == nullptr)
        md = EVP_MD_fetch(nullptr, algorithm.digest, nullptr);
    return md;
}

EVP_MAC* FetchedHmac()
{
    static EVP_MAC* const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    return mac;
}

// Sets up a digest, or an HMAC keyed with secret, for algorithm.
bool StartDigest(const AlgorithmInfo& algorithm, bool hmac, const unsigned char* secret, ULONG secretLength,
                 DigestState& state)
{
    if (!hmac)
    {
        state.md.reset(EVP_MD_CTX_new());
        EVP_MD* md = FetchedDigest(algorithm);
        return state.md && md && EVP_DigestInit_ex2(state.md.get(), md, nullptr) == 1;
    }
    EVP_MAC* mac = FetchedHmac();
    state.mac.reset(mac ? EVP_MAC_CTX_new(mac) : nullptr);
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, const_cast<char*>(algorithm.digest), 0),
        OSSL_PARAM_construct_end()};
    static const unsigned char empty = 0; // an empty key still needs an address
    return state.mac &&
           EVP_MAC_init(state.mac.get(), secretLength ? secret : &empty, secretLength, params) == 1;
}

} // namespace

NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                     LPCWSTR implementation, ULONG flags)
{
    if (algorithm == nullptr || algorithmId == nullptr)
        return STATUS_INVALID_PARAMETER;
    *algorithm = nullptr;
    if ((flags & ~static_cast<ULONG>(BCRYPT_ALG_HANDLE_HMAC_FLAG | BCRYPT_HASH_REUSABLE_FLAG)) != 0)
        return STATUS_NOT_SUPPORTED;
    if (implementation != nullptr && std::wcscmp(implementation, MS_PRIMITIVE_PROVIDER) != 0)
        return STATUS_NOT_FOUND;
    const AlgorithmInfo* id = AlgorithmNamed(algorithmId);
    if (id == nullptr || (flags != 0 && id->digest == nullptr))
        return STATUS_NOT_FOUND;
    *algorithm = Register(std::make_shared<Provider>(*id, (flags & BCRYPT_ALG_HANDLE_HMAC_FLAG) != 0,
                                                     (flags & BCRYPT_HASH_REUSABLE_FLAG) != 0));
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
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (property == nullptr || resultLength == nullptr)
        return STATUS_INVALID_PARAMETER;
    Value value;
    if (!PropertyOf(*found, property, value))
        return STATUS_NOT_SUPPORTED;
    return Answer(value.data(), static_cast<ULONG>(value.size()), output, outputLength, resultLength);
}

NTSTATUS BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength,
                           ULONG /*flags*/)
{
    std::shared_ptr<CryptoObject> found = FindAny(object);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (property == nullptr || (input == nullptr && inputLength != 0))
        return STATUS_INVALID_PARAMETER;
    std::atomic<Chaining>* target = nullptr;
    Key* key = found->type == ObjectType::Key ? static_cast<Key*>(found.get()) : nullptr;
    if (key != nullptr)
        target = &key->chaining;
    else if (found->type == ObjectType::Provider && &static_cast<Provider&>(*found).algorithm == &kAes)
        target = &static_cast<Provider&>(*found).chaining;
    if (target != nullptr && key != nullptr && std::wcscmp(property, BCRYPT_MESSAGE_BLOCK_LENGTH) == 0 &&
        key->chaining.load() == Chaining::Cfb)
    {
        ULONG length = 0;
        if (inputLength != sizeof length)
            return STATUS_INVALID_PARAMETER;
        std::memcpy(&length, input, sizeof length);
        if (length != 1 && length != kAesBlock)
            return STATUS_INVALID_PARAMETER;
        key->messageBlock.store(length);
        return STATUS_SUCCESS;
    }
    if (target == nullptr || std::wcscmp(property, BCRYPT_CHAINING_MODE) != 0)
        return STATUS_NOT_SUPPORTED;
    const std::wstring value = WideInput(input, inputLength);
    for (Chaining mode : {Chaining::Cbc, Chaining::Ecb, Chaining::Cfb})
        if (value == ChainingName(mode))
        {
            target->store(mode);
            return STATUS_SUCCESS;
        }
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR keyObject,
                                    ULONG keyObjectLength, PUCHAR secret, ULONG secretLength, ULONG /*flags*/)
{
    std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
    if (!provider || &provider->algorithm != &kAes)
        return STATUS_INVALID_HANDLE;
    if (key == nullptr || secret == nullptr ||
        (secretLength != 16 && secretLength != 24 && secretLength != 32))
        return STATUS_INVALID_PARAMETER;
    std::shared_ptr<Key> created;
    const NTSTATUS status = Construct(kAes, keyObject, keyObjectLength, created);
    if (status != STATUS_SUCCESS)
        return status;
    created->secret.assign(secret, secret + secretLength);
    created->chaining.store(provider->chaining.load());
    static const char* const kModes[kCipherKinds] = {"CBC", "ECB", "CFB8", "CFB"};
    for (int kind = 0; kind < kCipherKinds; ++kind)
    {
        const std::string name = "AES-" + std::to_string(secretLength * 8) + "-" + kModes[kind];
        created->ciphers[kind].reset(EVP_CIPHER_fetch(nullptr, name.c_str(), nullptr));
        if (!created->ciphers[kind])
            return STATUS_NOT_SUPPORTED;
    }
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
    return Crypt(key, {true, input, inputLength, iv, ivLength, output, outputLength, resultLength, flags});
}

NTSTATUS BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID /*paddingInfo*/,
                       PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength,
                       ULONG flags)
{
    return Crypt(key, {false, input, inputLength, iv, ivLength, output, outputLength, resultLength, flags});
}

NTSTATUS BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags)
{
    if ((flags & ~static_cast<ULONG>(BCRYPT_USE_SYSTEM_PREFERRED_RNG | BCRYPT_RNG_USE_ENTROPY_IN_BUFFER)) !=
        0)
        return STATUS_INVALID_PARAMETER;
    if (algorithm == nullptr)
    {
        if ((flags & BCRYPT_USE_SYSTEM_PREFERRED_RNG) == 0)
            return STATUS_INVALID_HANDLE;
    }
    else
    {
        std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
        if (!provider || &provider->algorithm != &kRng)
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

NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                          ULONG hashObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags)
{
    std::shared_ptr<Provider> provider = Find<Provider>(algorithm, ObjectType::Provider);
    if (!provider || provider->algorithm.digest == nullptr)
        return STATUS_INVALID_HANDLE;
    if (hash == nullptr || (flags & ~static_cast<ULONG>(BCRYPT_HASH_REUSABLE_FLAG)) != 0 ||
        (provider->hmac && secret == nullptr && secretLength != 0))
        return STATUS_INVALID_PARAMETER;
    std::shared_ptr<Hash> created;
    const bool reusable = provider->reusable || (flags & BCRYPT_HASH_REUSABLE_FLAG) != 0;
    const NTSTATUS status =
        Construct(provider->algorithm, hashObject, hashObjectLength, created, provider->algorithm, reusable);
    if (status != STATUS_SUCCESS)
        return status;
    if (!StartDigest(provider->algorithm, provider->hmac, secret, provider->hmac ? secretLength : 0,
                     created->fresh) ||
        !created->current.CopyFrom(created->fresh))
        return STATUS_NO_MEMORY;
    *hash = Register(created);
    return STATUS_SUCCESS;
}

NTSTATUS BCryptDuplicateHash(BCRYPT_HASH_HANDLE hash, BCRYPT_HASH_HANDLE* duplicate, PUCHAR hashObject,
                             ULONG hashObjectLength, ULONG /*flags*/)
{
    std::shared_ptr<Hash> found = Find<Hash>(hash, ObjectType::Hash);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (duplicate == nullptr)
        return STATUS_INVALID_PARAMETER;
    std::shared_ptr<Hash> created;
    const NTSTATUS status =
        Construct(found->algorithm, hashObject, hashObjectLength, created, found->algorithm, found->reusable);
    if (status != STATUS_SUCCESS)
        return status;
    {
        std::lock_guard<std::mutex> guard(found->lock);
        created->finished = found->finished;
        if (!created->fresh.CopyFrom(found->fresh) || !created->current.CopyFrom(found->current))
            return STATUS_NO_MEMORY;
    }
    *duplicate = Register(created);
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
    if (inputLength != 0 && !found->current.Update(input, inputLength))
        return STATUS_UNSUCCESSFUL;
    return STATUS_SUCCESS;
}

NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG /*flags*/)
{
    std::shared_ptr<Hash> found = Find<Hash>(hash, ObjectType::Hash);
    if (!found)
        return STATUS_INVALID_HANDLE;
    if (output == nullptr || outputLength != found->algorithm.digestLength)
        return STATUS_INVALID_PARAMETER;
    std::lock_guard<std::mutex> guard(found->lock);
    if (found->finished)
        return STATUS_INVALID_HANDLE;
    const bool ok = found->current.Final(output, outputLength);
    // A reusable object starts again from its keyed initial state; any other is spent.
    if (found->reusable)
        return found->current.CopyFrom(found->fresh) && ok ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
    found->finished = true;
    return ok ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}

NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash)
{
    return Release(hash, ObjectType::Hash);
}
