// Cryptography: statuses, sizes, chaining and known answers as Windows CNG gives them.
#include "win32posix.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

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

TEST_F(Aes, KnownAnswerAndIvChainsInPlace)
{
    unsigned char text[] = "The quick brown fox";
    unsigned char cipher[32];
    ULONG n = 0;
    ASSERT_EQ(
        BCryptEncrypt(m_key, text, 19, nullptr, m_iv, 16, cipher, sizeof cipher, &n, BCRYPT_BLOCK_PADDING),
        STATUS_SUCCESS);
    ASSERT_EQ(n, 32u);
    EXPECT_EQ(Hex(cipher, n), "639dd4c509b902e13dd2ee7500cf3af9e7a8c0b03e456ea228c0f4cf067be708");
    EXPECT_EQ(Hex(m_iv, 16), Hex(cipher + 16, 16)); // the IV now holds the last ciphertext block

    // Decrypting in place with the original IV restores the text and leaves the last block in the IV.
    unsigned char iv[16];
    for (unsigned char i = 0; i < 16; ++i)
        iv[i] = static_cast<unsigned char>(0xf0 + i);
    unsigned char buffer[32];
    std::memcpy(buffer, cipher, 32);
    ASSERT_EQ(BCryptDecrypt(m_key, buffer, 32, nullptr, iv, 16, buffer, 32, &n, BCRYPT_BLOCK_PADDING),
              STATUS_SUCCESS);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), n), "The quick brown fox");
    EXPECT_EQ(Hex(iv, 16), Hex(cipher + 16, 16));

    // Two chained calls give the same ciphertext as one call over both blocks.
    unsigned char blocks[32] = {1, 2, 3};
    unsigned char whole[32], parts[32];
    unsigned char iv1[16] = {}, iv2[16] = {};
    ASSERT_EQ(BCryptEncrypt(m_key, blocks, 32, nullptr, iv1, 16, whole, 32, &n, 0), STATUS_SUCCESS);
    ASSERT_EQ(BCryptEncrypt(m_key, blocks, 16, nullptr, iv2, 16, parts, 16, &n, 0), STATUS_SUCCESS);
    ASSERT_EQ(BCryptEncrypt(m_key, blocks + 16, 16, nullptr, iv2, 16, parts + 16, 16, &n, 0), STATUS_SUCCESS);
    EXPECT_EQ(Hex(whole, 32), Hex(parts, 32));
}

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

TEST(Crypto, KeySizesPropertiesAndHandles)
{
    BCRYPT_ALG_HANDLE aes = nullptr;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&aes, BCRYPT_AES_ALGORITHM, nullptr, 0), STATUS_SUCCESS);
    unsigned char secret[32] = {};
    BCRYPT_KEY_HANDLE key = nullptr;
    for (ULONG bad : {0u, 15u, 17u, 20u})
        EXPECT_EQ(BCryptGenerateSymmetricKey(aes, &key, nullptr, 0, secret, bad, 0), STATUS_INVALID_PARAMETER)
            << bad;
    for (ULONG good : {16u, 24u, 32u})
    {
        ASSERT_EQ(BCryptGenerateSymmetricKey(aes, &key, nullptr, 0, secret, good, 0), STATUS_SUCCESS);
        ULONG bits = 0, n = 0;
        EXPECT_EQ(BCryptGetProperty(key, BCRYPT_KEY_LENGTH, reinterpret_cast<PUCHAR>(&bits), 4, &n, 0),
                  STATUS_SUCCESS);
        EXPECT_EQ(bits, good * 8);
        BCryptDestroyKey(key);
    }

    ULONG value = 0, n = 0;
    EXPECT_EQ(BCryptGetProperty(aes, BCRYPT_BLOCK_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, &n, 0),
              STATUS_SUCCESS);
    EXPECT_EQ(value, 16u);
    EXPECT_EQ(BCryptGetProperty(aes, BCRYPT_OBJECT_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, &n, 0),
              STATUS_SUCCESS);
    EXPECT_GT(value, 0u);
    BCRYPT_KEY_LENGTHS_STRUCT lengths = {};
    EXPECT_EQ(
        BCryptGetProperty(aes, BCRYPT_KEY_LENGTHS, reinterpret_cast<PUCHAR>(&lengths), sizeof lengths, &n, 0),
        STATUS_SUCCESS);
    EXPECT_EQ(lengths.dwMinLength, 128u);
    EXPECT_EQ(lengths.dwMaxLength, 256u);
    EXPECT_EQ(lengths.dwIncrement, 64u);
    EXPECT_EQ(BCryptGetProperty(aes, BCRYPT_CHAINING_MODE, nullptr, 0, &n, 0), STATUS_SUCCESS);
    EXPECT_EQ(n, sizeof(BCRYPT_CHAIN_MODE_CBC));
    wchar_t mode[32] = {};
    EXPECT_EQ(BCryptGetProperty(aes, BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode), 4, &n, 0),
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(
        BCryptGetProperty(aes, BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(mode), sizeof mode, &n, 0),
        STATUS_SUCCESS);
    EXPECT_STREQ(mode, BCRYPT_CHAIN_MODE_CBC);
    EXPECT_EQ(BCryptGetProperty(aes, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&value), 4, &n, 0),
              STATUS_NOT_SUPPORTED);

    BCRYPT_ALG_HANDLE unknown = nullptr;
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&unknown, L"DES3", nullptr, 0), STATUS_NOT_FOUND);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(aes, 0), STATUS_SUCCESS);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(aes, 0), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptGenerateSymmetricKey(aes, &key, nullptr, 0, secret, 16, 0), STATUS_INVALID_HANDLE);
}

TEST(Crypto, RandomNeedsAnRngProviderOrTheSystemFlag)
{
    unsigned char a[32] = {}, b[32] = {};
    EXPECT_EQ(BCryptGenRandom(nullptr, a, sizeof a, 0), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptGenRandom(nullptr, a, sizeof a, BCRYPT_USE_SYSTEM_PREFERRED_RNG), STATUS_SUCCESS);
    BCRYPT_ALG_HANDLE rng = nullptr;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&rng, BCRYPT_RNG_ALGORITHM, nullptr, 0), STATUS_SUCCESS);
    EXPECT_EQ(BCryptGenRandom(rng, b, sizeof b, 0), STATUS_SUCCESS);
    EXPECT_NE(Hex(a, 32), Hex(b, 32));
    EXPECT_EQ(BCryptCloseAlgorithmProvider(rng, 0), STATUS_SUCCESS);
}

TEST(Crypto, Sha256KnownAnswerAndFinishedObject)
{
    BCRYPT_ALG_HANDLE sha = nullptr;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&sha, BCRYPT_SHA256_ALGORITHM, nullptr, 0), STATUS_SUCCESS);
    ULONG digestLength = 0, n = 0;
    EXPECT_EQ(BCryptGetProperty(sha, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&digestLength), 4, &n, 0),
              STATUS_SUCCESS);
    EXPECT_EQ(digestLength, 32u);
    BCRYPT_HASH_HANDLE hash = nullptr;
    ASSERT_EQ(BCryptCreateHash(sha, &hash, nullptr, 0, nullptr, 0, 0), STATUS_SUCCESS);
    unsigned char a[] = "a", bc[] = "bc";
    EXPECT_EQ(BCryptHashData(hash, a, 1, 0), STATUS_SUCCESS);
    EXPECT_EQ(BCryptHashData(hash, bc, 2, 0), STATUS_SUCCESS);
    unsigned char digest[32];
    EXPECT_EQ(BCryptFinishHash(hash, digest, 31, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 32, 0), STATUS_SUCCESS);
    EXPECT_EQ(Hex(digest, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(BCryptHashData(hash, a, 1, 0), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptDestroyHash(hash), STATUS_SUCCESS);
    EXPECT_EQ(BCryptDestroyHash(hash), STATUS_INVALID_HANDLE);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(sha, 0), STATUS_SUCCESS);
}
