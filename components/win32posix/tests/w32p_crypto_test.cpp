// Cryptography: statuses, sizes, chaining and known answers as Windows CNG gives them.
#include "win32posix.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

std::vector<unsigned char> Bytes(const std::string& hex)
{
    std::vector<unsigned char> out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

PUCHAR Wide(const wchar_t* text)
{
    return reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(text));
}

std::string Hex(const unsigned char* data, ULONG length)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (ULONG i = 0; i < length; ++i)
    {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}

class Aes : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(BCryptOpenAlgorithmProvider(&m_provider, BCRYPT_AES_ALGORITHM, nullptr, 0), STATUS_SUCCESS);
        ASSERT_EQ(BCryptSetProperty(m_provider, BCRYPT_CHAINING_MODE,
                                    reinterpret_cast<PUCHAR>(const_cast<wchar_t*>(BCRYPT_CHAIN_MODE_CBC)),
                                    sizeof(BCRYPT_CHAIN_MODE_CBC), 0),
                  STATUS_SUCCESS);
        for (unsigned char i = 0; i < 16; ++i)
        {
            m_secret[i] = i;
            m_iv[i] = static_cast<unsigned char>(0xf0 + i);
        }
        ASSERT_EQ(BCryptGenerateSymmetricKey(m_provider, &m_key, nullptr, 0, m_secret, 16, 0),
                  STATUS_SUCCESS);
    }
    void TearDown() override
    {
        EXPECT_EQ(BCryptDestroyKey(m_key), STATUS_SUCCESS);
        EXPECT_EQ(BCryptCloseAlgorithmProvider(m_provider, 0), STATUS_SUCCESS);
    }
    ULONG SizeQuery(bool encrypt, ULONG length, ULONG flags)
    {
        std::vector<unsigned char> input(length + 1);
        ULONG result = 0;
        NTSTATUS status =
            encrypt
                ? BCryptEncrypt(m_key, input.data(), length, nullptr, m_iv, 16, nullptr, 0, &result, flags)
                : BCryptDecrypt(m_key, input.data(), length, nullptr, m_iv, 16, nullptr, 0, &result, flags);
        EXPECT_EQ(status, STATUS_SUCCESS);
        return result;
    }

    BCRYPT_ALG_HANDLE m_provider = nullptr;
    BCRYPT_KEY_HANDLE m_key = nullptr;
    unsigned char m_secret[16];
    unsigned char m_iv[16];
};

} // namespace

TEST_F(Aes, SizeQueriesAndBufferSizeStatuses)
{
    EXPECT_EQ(SizeQuery(true, 1, BCRYPT_BLOCK_PADDING), 16u);
    EXPECT_EQ(SizeQuery(true, 16, BCRYPT_BLOCK_PADDING), 32u);
    EXPECT_EQ(SizeQuery(true, 32, BCRYPT_BLOCK_PADDING), 48u);
    EXPECT_EQ(SizeQuery(true, 32, 0), 32u);
    EXPECT_EQ(SizeQuery(false, 32, BCRYPT_BLOCK_PADDING), 32u);

    unsigned char in[32] = {}, out[64];
    ULONG n = 0;
    EXPECT_EQ(BCryptEncrypt(m_key, in, 17, nullptr, m_iv, 16, out, 64, &n, 0), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(BCryptDecrypt(m_key, in, 17, nullptr, m_iv, 16, out, 64, &n, 0), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(BCryptDecrypt(m_key, in, 31, nullptr, m_iv, 16, out, 64, &n, BCRYPT_BLOCK_PADDING),
              STATUS_INVALID_BUFFER_SIZE);
    n = 0;
    EXPECT_EQ(BCryptEncrypt(m_key, in, 16, nullptr, m_iv, 16, out, 16, &n, BCRYPT_BLOCK_PADDING),
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(n, 32u);
    EXPECT_EQ(BCryptDecrypt(m_key, in, 32, nullptr, m_iv, 16, out, 16, &n, 0), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(n, 32u);
}

TEST_F(Aes, WrongKeyIsADataErrorAndLeavesTheIv)
{
    unsigned char text[5] = {'h', 'e', 'l', 'l', 'o'};
    unsigned char cipher[16];
    ULONG n = 0;
    unsigned char iv[16] = {};
    ASSERT_EQ(BCryptEncrypt(m_key, text, 5, nullptr, iv, 16, cipher, 16, &n, BCRYPT_BLOCK_PADDING),
              STATUS_SUCCESS);

    unsigned char otherSecret[16] = {9};
    BCRYPT_KEY_HANDLE other = nullptr;
    ASSERT_EQ(BCryptGenerateSymmetricKey(m_provider, &other, nullptr, 0, otherSecret, 16, 0), STATUS_SUCCESS);
    // Any 16-byte IV: try a few until the wrong key's output does not end in valid padding by chance.
    NTSTATUS status = STATUS_SUCCESS;
    for (unsigned char seed = 0; seed < 8 && status == STATUS_SUCCESS; ++seed)
    {
        unsigned char tryIv[16] = {seed}, before[16];
        std::memcpy(before, tryIv, 16);
        unsigned char plain[16];
        status = BCryptDecrypt(other, cipher, 16, nullptr, tryIv, 16, plain, 16, &n, BCRYPT_BLOCK_PADDING);
        if (status != STATUS_SUCCESS)
        {
            EXPECT_EQ(Hex(tryIv, 16), Hex(before, 16));
        }
    }
    EXPECT_EQ(status, STATUS_DATA_ERROR);
    EXPECT_EQ(BCryptDestroyKey(other), STATUS_SUCCESS);
    EXPECT_EQ(BCryptDestroyKey(other), STATUS_INVALID_HANDLE);
}

namespace
{

enum class On
{
    Provider,
    Key,
    Hash
};

struct PropertyRow
{
    const wchar_t* algorithm;
    On on;
    const wchar_t* property;
    NTSTATUS status;
    ULONG number;        // the expected 4-byte value, when text is null
    const wchar_t* text; // the expected string value
};

// Opens algorithm and, as asked, makes a key (AES) or hash object from it; closes them when done.
struct Objects
{
    explicit Objects(const wchar_t* algorithm, ULONG flags = 0)
    {
        EXPECT_EQ(BCryptOpenAlgorithmProvider(&provider, algorithm, nullptr, flags), STATUS_SUCCESS);
    }
    BCRYPT_HANDLE Make(On on)
    {
        static unsigned char secret[32] = {};
        if (on == On::Key)
        {
            EXPECT_EQ(BCryptGenerateSymmetricKey(provider, &key, nullptr, 0, secret, 16, 0), STATUS_SUCCESS);
        }
        if (on == On::Hash)
        {
            EXPECT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0), STATUS_SUCCESS);
        }
        return on == On::Key ? key : on == On::Hash ? hash : provider;
    }
    ~Objects()
    {
        if (key != nullptr)
        {
            EXPECT_EQ(BCryptDestroyKey(key), STATUS_SUCCESS);
        }
        if (hash != nullptr)
        {
            EXPECT_EQ(BCryptDestroyHash(hash), STATUS_SUCCESS);
        }
        EXPECT_EQ(BCryptCloseAlgorithmProvider(provider, 0), STATUS_SUCCESS);
    }
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
};

const NTSTATUS kOk = STATUS_SUCCESS, kNo = STATUS_NOT_SUPPORTED;

} // namespace

TEST(CryptoProperties, ValuesByAlgorithmAndHandle)
{
    const PropertyRow rows[] = {
        {L"AES", On::Provider, BCRYPT_BLOCK_LENGTH, kOk, 16, nullptr},
        {L"AES", On::Provider, BCRYPT_OBJECT_LENGTH, kOk, 654, nullptr},
        {L"AES", On::Provider, BCRYPT_CHAINING_MODE, kOk, 0, BCRYPT_CHAIN_MODE_CBC},
        {L"AES", On::Provider, BCRYPT_ALGORITHM_NAME, kOk, 0, L"AES"},
        {L"AES", On::Provider, BCRYPT_HASH_LENGTH, kNo, 0, nullptr},
        {L"AES", On::Provider, BCRYPT_AUTH_TAG_LENGTH, kNo, 0, nullptr},
        {L"AES", On::Provider, BCRYPT_KEY_LENGTH, kNo, 0, nullptr},
        {L"AES", On::Provider, BCRYPT_MESSAGE_BLOCK_LENGTH, kNo, 0, nullptr},
        {L"AES", On::Key, BCRYPT_KEY_LENGTH, kOk, 128, nullptr},
        {L"AES", On::Key, BCRYPT_KEY_STRENGTH, kOk, 128, nullptr},
        {L"AES", On::Key, BCRYPT_BLOCK_LENGTH, kOk, 16, nullptr},
        {L"AES", On::Key, BCRYPT_CHAINING_MODE, kOk, 0, BCRYPT_CHAIN_MODE_CBC},
        {L"AES", On::Key, BCRYPT_MESSAGE_BLOCK_LENGTH, kNo, 0, nullptr}, // CBC has none
        {L"RNG", On::Provider, BCRYPT_ALGORITHM_NAME, kOk, 0, L"RNG"},
        {L"RNG", On::Provider, BCRYPT_OBJECT_LENGTH, kNo, 0, nullptr},
        {L"MD5", On::Provider, BCRYPT_HASH_LENGTH, kOk, 16, nullptr},
        {L"MD5", On::Provider, BCRYPT_OBJECT_LENGTH, kOk, 274, nullptr},
        {L"SHA1", On::Provider, BCRYPT_HASH_LENGTH, kOk, 20, nullptr},
        {L"SHA256", On::Provider, BCRYPT_HASH_LENGTH, kOk, 32, nullptr},
        {L"SHA256", On::Provider, BCRYPT_OBJECT_LENGTH, kOk, 286, nullptr},
        {L"SHA256", On::Provider, BCRYPT_HASH_BLOCK_LENGTH, kOk, 64, nullptr},
        {L"SHA256", On::Provider, BCRYPT_BLOCK_LENGTH, kNo, 0, nullptr},
        {L"SHA256", On::Provider, BCRYPT_CHAINING_MODE, kNo, 0, nullptr},
        {L"SHA384", On::Provider, BCRYPT_HASH_LENGTH, kOk, 48, nullptr},
        {L"SHA512", On::Provider, BCRYPT_HASH_BLOCK_LENGTH, kOk, 128, nullptr},
        {L"SHA512", On::Hash, BCRYPT_HASH_LENGTH, kOk, 64, nullptr},
        {L"SHA512", On::Hash, BCRYPT_ALGORITHM_NAME, kOk, 0, L"SHA512"},
    };
    for (const PropertyRow& row : rows)
    {
        SCOPED_TRACE(std::wstring(row.algorithm) + L" " + row.property);
        Objects objects(row.algorithm);
        const BCRYPT_HANDLE handle = objects.Make(row.on);
        unsigned char value[64] = {};
        ULONG size = 0;
        ASSERT_EQ(BCryptGetProperty(handle, row.property, value, sizeof value, &size, 0), row.status);
        if (row.status != kOk)
            continue;
        if (row.text != nullptr)
            EXPECT_STREQ(reinterpret_cast<wchar_t*>(value), row.text);
        else
            EXPECT_EQ(*reinterpret_cast<ULONG*>(value), row.number);
        const ULONG expected = row.text ? static_cast<ULONG>((std::wcslen(row.text) + 1) * sizeof(WCHAR)) : 4;
        EXPECT_EQ(size, expected);
        // A size query answers the size; one byte short answers the size and STATUS_BUFFER_TOO_SMALL.
        size = 0;
        EXPECT_EQ(BCryptGetProperty(handle, row.property, nullptr, 0, &size, 0), kOk);
        EXPECT_EQ(size, expected);
        size = 0;
        EXPECT_EQ(BCryptGetProperty(handle, row.property, value, expected - 1, &size, 0),
                  STATUS_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, expected);
    }
}

TEST(CryptoProperties, KeyLengthsParametersAndStaleHandles)
{
    Objects aes(L"AES");
    BCRYPT_KEY_LENGTHS_STRUCT lengths = {};
    ULONG size = 0;
    ASSERT_EQ(BCryptGetProperty(aes.provider, BCRYPT_KEY_LENGTHS, reinterpret_cast<PUCHAR>(&lengths),
                                sizeof lengths, &size, 0),
              kOk);
    EXPECT_EQ(lengths.dwMinLength, 128u);
    EXPECT_EQ(lengths.dwMaxLength, 256u);
    EXPECT_EQ(lengths.dwIncrement, 64u);
    ULONG value = 0;
    EXPECT_EQ(
        BCryptGetProperty(aes.provider, BCRYPT_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, nullptr, 0),
        STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptGetProperty(aes.provider, nullptr, reinterpret_cast<PUCHAR>(&value), 4, &size, 0),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptGetProperty(nullptr, BCRYPT_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, &size, 0),
              STATUS_INVALID_HANDLE);
    BCRYPT_ALG_HANDLE closed = nullptr;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&closed, L"SHA1", nullptr, 0), kOk);
    ASSERT_EQ(BCryptCloseAlgorithmProvider(closed, 0), kOk);
    EXPECT_EQ(BCryptGetProperty(closed, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, &size, 0),
              STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(closed, 0), STATUS_INVALID_HANDLE);

    struct
    {
        const wchar_t* name;
        ULONG flags;
        NTSTATUS status;
    } opens[] = {{L"DES3", 0, STATUS_NOT_FOUND},
                 {L"aes", 0, STATUS_NOT_FOUND},
                 {L"AES", BCRYPT_ALG_HANDLE_HMAC_FLAG, STATUS_NOT_FOUND},
                 {L"RNG", BCRYPT_HASH_REUSABLE_FLAG, STATUS_NOT_FOUND},
                 {L"SHA384", BCRYPT_ALG_HANDLE_HMAC_FLAG | BCRYPT_HASH_REUSABLE_FLAG, kOk},
                 {L"SHA1", 0x40000000, STATUS_NOT_SUPPORTED}};
    for (const auto& open : opens)
    {
        BCRYPT_ALG_HANDLE handle = nullptr;
        EXPECT_EQ(BCryptOpenAlgorithmProvider(&handle, open.name, nullptr, open.flags), open.status)
            << open.flags;
        if (handle != nullptr)
            BCryptCloseAlgorithmProvider(handle, 0);
    }
}

TEST(CryptoProperties, SettingChainingAndMessageBlock)
{
    Objects aes(L"AES");
    Objects sha(L"SHA256");
    ULONG one = 1, sixteen = 16, two = 2;
    ASSERT_EQ(BCryptSetProperty(aes.provider, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_CFB),
                                sizeof(BCRYPT_CHAIN_MODE_CFB), 0),
              kOk);
    aes.Make(On::Key);
    struct
    {
        BCRYPT_HANDLE handle;
        const wchar_t* property;
        PUCHAR input;
        ULONG length;
        NTSTATUS status;
    } rows[] = {
        {aes.provider, BCRYPT_CHAINING_MODE, Wide(L"Bogus"), sizeof(L"Bogus"), kNo},
        {aes.provider, BCRYPT_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&one), 4, kNo},
        {sha.provider, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_CBC), sizeof(BCRYPT_CHAIN_MODE_CBC), kNo},
        {aes.key, BCRYPT_MESSAGE_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&two), 4, STATUS_INVALID_PARAMETER},
        {aes.key, BCRYPT_MESSAGE_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&sixteen), 2,
         STATUS_INVALID_PARAMETER},
        {aes.key, BCRYPT_MESSAGE_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&sixteen), 4, kOk},
        {aes.key, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_ECB), sizeof(BCRYPT_CHAIN_MODE_ECB), kOk},
        {aes.key, BCRYPT_MESSAGE_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&one), 4, kNo}, // ECB has none
        {nullptr, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_ECB), sizeof(BCRYPT_CHAIN_MODE_ECB),
         STATUS_INVALID_HANDLE},
    };
    for (const auto& row : rows)
        EXPECT_EQ(BCryptSetProperty(row.handle, row.property, row.input, row.length, 0), row.status)
            << (&row - rows);
    // The key took CFB from its provider, then ECB for itself; the provider stays in CFB.
    wchar_t mode[32] = {};
    ULONG size = 0;
    ASSERT_EQ(BCryptGetProperty(aes.key, BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode), sizeof mode,
                                &size, 0),
              kOk);
    EXPECT_STREQ(mode, BCRYPT_CHAIN_MODE_ECB);
    ASSERT_EQ(BCryptGetProperty(aes.provider, BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode),
                                sizeof mode, &size, 0),
              kOk);
    EXPECT_STREQ(mode, BCRYPT_CHAIN_MODE_CFB);
}

namespace
{

const char kNistKey128[] = "2b7e151628aed2a6abf7158809cf4f3c";
const char kNistIv[] = "000102030405060708090a0b0c0d0e0f";
const char kNistPlain[] = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                          "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";

struct CipherVector
{
    const char* name;
    const wchar_t* mode;
    ULONG messageBlock; // CFB only
    const char* key;
    const char* iv;
    ULONG length; // of the plaintext prefix used
    const char* cipher;
    ULONG split; // the text is also encrypted in two calls, split here
};

// Encrypts (or decrypts, in place) text in two calls split at split, chaining through the IV; the result.
std::vector<unsigned char> TwoCalls(BCRYPT_KEY_HANDLE key, bool encrypt, std::vector<unsigned char> text,
                                    const char* ivHex, ULONG split)
{
    std::vector<unsigned char> iv = Bytes(ivHex), copy(text.size());
    std::vector<unsigned char>& out = encrypt ? copy : text;
    PUCHAR ivBuffer = iv.empty() ? nullptr : iv.data();
    const ULONG ivLength = static_cast<ULONG>(iv.size());
    const ULONG parts[2][2] = {{0, split}, {split, static_cast<ULONG>(text.size()) - split}};
    for (const auto& part : parts)
    {
        ULONG n = 0;
        const NTSTATUS status = encrypt
                                    ? BCryptEncrypt(key, text.data() + part[0], part[1], nullptr, ivBuffer,
                                                    ivLength, out.data() + part[0], part[1], &n, 0)
                                    : BCryptDecrypt(key, text.data() + part[0], part[1], nullptr, ivBuffer,
                                                    ivLength, out.data() + part[0], part[1], &n, 0);
        EXPECT_EQ(status, STATUS_SUCCESS);
        EXPECT_EQ(n, part[1]);
    }
    return out;
}

} // namespace

// Published known answers for each chaining mode; each is also run split in two chained calls and in place.
TEST(CryptoCiphers, KnownAnswersForEveryChainingMode)
{
    const CipherVector vectors[] = {
        {"ECB-AES128", BCRYPT_CHAIN_MODE_ECB, 1, kNistKey128, "", 64,
         "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
         "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4",
         16},
        {"CBC-AES128", BCRYPT_CHAIN_MODE_CBC, 1, kNistKey128, kNistIv, 64,
         "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
         "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7",
         32},
        {"CBC-AES256", BCRYPT_CHAIN_MODE_CBC, 1,
         "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", kNistIv, 64,
         "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
         "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b",
         16},
        {"CFB8-AES128", BCRYPT_CHAIN_MODE_CFB, 1, kNistKey128, kNistIv, 18,
         "3b79424c9c0dd436bace9e0ed4586a4f32b9", 5},
        {"CFB128-AES128", BCRYPT_CHAIN_MODE_CFB, 16, kNistKey128, kNistIv, 64,
         "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"
         "26751f67a3cbb140b1808cf187a4f4dfc04b05357c5d1c0eeac4c66f9ff7f2e6",
         48},
    };
    for (const CipherVector& v : vectors)
    {
        SCOPED_TRACE(v.name);
        Objects aes(L"AES");
        ASSERT_EQ(BCryptSetProperty(aes.provider, BCRYPT_CHAINING_MODE, Wide(v.mode),
                                    static_cast<ULONG>((std::wcslen(v.mode) + 1) * sizeof(WCHAR)), 0),
                  kOk);
        std::vector<unsigned char> secret = Bytes(v.key), plain = Bytes(kNistPlain);
        plain.resize(v.length);
        ASSERT_EQ(BCryptGenerateSymmetricKey(aes.provider, &aes.key, nullptr, 0, secret.data(),
                                             static_cast<ULONG>(secret.size()), 0),
                  kOk);
        if (v.messageBlock != 1)
        {
            ASSERT_EQ(BCryptSetProperty(aes.key, BCRYPT_MESSAGE_BLOCK_LENGTH,
                                        reinterpret_cast<PUCHAR>(const_cast<ULONG*>(&v.messageBlock)), 4, 0),
                      kOk);
        }
        const std::vector<unsigned char> whole = TwoCalls(aes.key, true, plain, v.iv, 0);
        EXPECT_EQ(Hex(whole.data(), v.length), v.cipher);
        const std::vector<unsigned char> split = TwoCalls(aes.key, true, plain, v.iv, v.split);
        EXPECT_EQ(Hex(split.data(), v.length), v.cipher);
        const std::vector<unsigned char> back = TwoCalls(aes.key, false, whole, v.iv, v.split);
        EXPECT_EQ(Hex(back.data(), v.length), Hex(plain.data(), v.length));
    }
}

TEST(CryptoCiphers, CallerKeyObjectsAndModeRules)
{
    Objects aes(L"AES");
    unsigned char secret[16] = {}, object[700], block[32] = {}, out[48];
    BCRYPT_KEY_HANDLE key = nullptr;
    EXPECT_EQ(BCryptGenerateSymmetricKey(aes.provider, &key, object, 653, secret, 16, 0),
              STATUS_BUFFER_TOO_SMALL);
    ASSERT_EQ(BCryptGenerateSymmetricKey(aes.provider, &key, object, 654, secret, 16, 0), kOk);
    EXPECT_GE(static_cast<unsigned char*>(key), object); // the key lives in the caller's buffer
    EXPECT_LT(static_cast<unsigned char*>(key), object + 654);
    EXPECT_EQ(BCryptGenerateSymmetricKey(aes.provider, &aes.key, object, 654, secret, 16, 0),
              STATUS_INVALID_PARAMETER); // still holds a live key
    ULONG n = 0;
    unsigned char iv[16] = {};
    ASSERT_EQ(BCryptSetProperty(key, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_ECB),
                                sizeof(BCRYPT_CHAIN_MODE_ECB), 0),
              kOk);
    EXPECT_EQ(BCryptEncrypt(key, block, 16, nullptr, iv, 16, out, 16, &n, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptEncrypt(key, block, 17, nullptr, nullptr, 0, out, 48, &n, 0), STATUS_INVALID_BUFFER_SIZE);
    ASSERT_EQ(BCryptSetProperty(key, BCRYPT_CHAINING_MODE, Wide(BCRYPT_CHAIN_MODE_CFB),
                                sizeof(BCRYPT_CHAIN_MODE_CFB), 0),
              kOk);
    EXPECT_EQ(BCryptEncrypt(key, block, 17, nullptr, iv, 16, out, 48, &n, 0), kOk); // one-byte message blocks
    EXPECT_EQ(BCryptEncrypt(key, block, 17, nullptr, iv, 15, out, 48, &n, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptEncrypt(key, block, 17, nullptr, iv, 16, nullptr, 0, &n, BCRYPT_BLOCK_PADDING), kOk);
    EXPECT_EQ(n, 32u);
    // Padded CFB round trip: the padding is removed again.
    unsigned char iv2[16] = {}, iv3[16] = {}, plain[48];
    ASSERT_EQ(BCryptEncrypt(key, block, 20, nullptr, iv2, 16, out, 48, &n, BCRYPT_BLOCK_PADDING), kOk);
    ASSERT_EQ(BCryptDecrypt(key, out, n, nullptr, iv3, 16, plain, sizeof plain, &n, BCRYPT_BLOCK_PADDING),
              kOk);
    EXPECT_EQ(n, 20u);
    EXPECT_EQ(BCryptDestroyKey(key), kOk);
}

namespace
{

struct HashVector
{
    const wchar_t* algorithm;
    const char* key; // null: a plain hash, else an HMAC with this key
    const char* data;
    const char* digest;
};

std::vector<unsigned char> Digest(BCRYPT_HASH_HANDLE hash, ULONG length)
{
    std::vector<unsigned char> out(length);
    EXPECT_EQ(BCryptFinishHash(hash, out.data(), length, 0), STATUS_SUCCESS);
    return out;
}

} // namespace

// Known answers from FIPS 180, RFC 1321, RFC 2202 and RFC 4231; each with a duplicate taken half-way and a
// reusable object finished twice.
TEST(CryptoHashes, KnownAnswersDuplicatesAndReuse)
{
    const char* const kTwoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    const HashVector vectors[] = {
        {L"MD5", nullptr, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {L"MD5", nullptr, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {L"SHA1", nullptr, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {L"SHA256", nullptr, kTwoBlocks, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {L"SHA384", nullptr, "abc",
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
        {L"SHA512", nullptr, "abc",
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
         "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
        {L"MD5", "Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {L"SHA1", "Jefe", "what do ya want for nothing?", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
        {L"SHA256", "Jefe", "what do ya want for nothing?",
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {L"SHA384", "Jefe", "what do ya want for nothing?",
         "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e8e2240ca5e69e2c78b3239ecfab21649"},
        {L"SHA512", "Jefe", "what do ya want for nothing?",
         "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
         "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
    };
    for (const HashVector& v : vectors)
    {
        SCOPED_TRACE(std::wstring(v.algorithm) + (v.key ? L" HMAC" : L""));
        Objects provider(v.algorithm, v.key ? BCRYPT_ALG_HANDLE_HMAC_FLAG : 0);
        const ULONG length = static_cast<ULONG>(std::strlen(v.digest) / 2);
        std::string key = v.key ? v.key : "", data = v.data;
        auto* bytes = reinterpret_cast<PUCHAR>(&data[0]);
        const ULONG half = static_cast<ULONG>(data.size() / 2);
        ASSERT_EQ(BCryptCreateHash(provider.provider, &provider.hash, nullptr, 0,
                                   reinterpret_cast<PUCHAR>(&key[0]), static_cast<ULONG>(key.size()),
                                   BCRYPT_HASH_REUSABLE_FLAG),
                  kOk);
        for (int round = 0; round < 2; ++round)
        {
            ASSERT_EQ(BCryptHashData(provider.hash, bytes, half, 0), kOk);
            BCRYPT_HASH_HANDLE copy = nullptr;
            ASSERT_EQ(BCryptDuplicateHash(provider.hash, &copy, nullptr, 0, 0), kOk);
            ASSERT_EQ(BCryptHashData(provider.hash, bytes + half, static_cast<ULONG>(data.size()) - half, 0),
                      kOk);
            EXPECT_EQ(Hex(Digest(provider.hash, length).data(), length), v.digest) << round;
            ASSERT_EQ(BCryptHashData(copy, bytes + half, static_cast<ULONG>(data.size()) - half, 0), kOk);
            EXPECT_EQ(Hex(Digest(copy, length).data(), length), v.digest);
            EXPECT_EQ(BCryptDestroyHash(copy), kOk);
        }
    }
}

TEST(CryptoHashes, ObjectBuffersAndSpentObjects)
{
    Objects sha(L"SHA256");
    unsigned char object[400], digest[32], data[] = "abc";
    BCRYPT_HASH_HANDLE hash = nullptr, copy = nullptr;
    EXPECT_EQ(BCryptCreateHash(sha.provider, &hash, object, 285, nullptr, 0, 0), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(BCryptCreateHash(sha.provider, &hash, nullptr, 0, nullptr, 0, 0x1), STATUS_INVALID_PARAMETER);
    ASSERT_EQ(BCryptCreateHash(sha.provider, &hash, object, 286, nullptr, 0, 0), kOk);
    EXPECT_GE(static_cast<unsigned char*>(hash), object);
    EXPECT_EQ(BCryptHashData(hash, data, 3, 0), kOk);
    EXPECT_EQ(BCryptDuplicateHash(hash, &copy, object, sizeof object, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 31, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 32, 0), kOk);
    EXPECT_EQ(Hex(digest, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // A hash object that is not reusable is spent once finished.
    EXPECT_EQ(BCryptHashData(hash, data, 3, 0), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 32, 0), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptDestroyHash(hash), kOk);
    EXPECT_EQ(BCryptDestroyHash(hash), STATUS_INVALID_HANDLE);
    // Every hash of a provider opened reusable is reusable.
    Objects reusable(L"SHA256", BCRYPT_HASH_REUSABLE_FLAG);
    ASSERT_EQ(BCryptCreateHash(reusable.provider, &reusable.hash, nullptr, 0, nullptr, 0, 0), kOk);
    EXPECT_EQ(BCryptFinishHash(reusable.hash, digest, 32, 0), kOk);
    EXPECT_EQ(BCryptHashData(reusable.hash, data, 3, 0), kOk);
    EXPECT_EQ(BCryptFinishHash(reusable.hash, digest, 32, 0), kOk);
    EXPECT_EQ(Hex(digest, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(CryptoRandom, ProviderAndFlagTable)
{
    Objects rng(L"RNG");
    Objects aes(L"AES");
    struct
    {
        BCRYPT_ALG_HANDLE handle;
        ULONG flags;
        NTSTATUS status;
    } rows[] = {
        {nullptr, 0, STATUS_INVALID_HANDLE},
        {nullptr, BCRYPT_USE_SYSTEM_PREFERRED_RNG, kOk},
        {rng.provider, 0, kOk},
        {rng.provider, BCRYPT_RNG_USE_ENTROPY_IN_BUFFER, kOk},
        {rng.provider, BCRYPT_USE_SYSTEM_PREFERRED_RNG, STATUS_INVALID_PARAMETER},
        {aes.provider, 0, STATUS_INVALID_HANDLE},
        {nullptr, BCRYPT_USE_SYSTEM_PREFERRED_RNG | 0x100, STATUS_INVALID_PARAMETER},
    };
    std::string previous;
    for (const auto& row : rows)
    {
        unsigned char buffer[32] = {};
        EXPECT_EQ(BCryptGenRandom(row.handle, buffer, sizeof buffer, row.flags), row.status) << (&row - rows);
        if (row.status == kOk)
        {
            EXPECT_NE(Hex(buffer, 32), previous);
            previous = Hex(buffer, 32);
        }
    }
    EXPECT_EQ(BCryptGenRandom(rng.provider, nullptr, 4, 0), STATUS_INVALID_PARAMETER);
}
