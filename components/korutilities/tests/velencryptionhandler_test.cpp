// The encryption handler: buffer format and lengths, key rules, interoperability with the openssl command
// line, corrupt input, and each facade operation failing in turn.
#include "fakewinapiwrapper.h"
#include "korutilitesbtracedef.h"
#include "velencryptionhandler.h"
#include "velencryptionhandlerimpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

const std::wstring kKey256 = L"0123456789abcdef"; // 16 characters: 32 key bytes
const std::wstring kOtherKey = L"fedcba9876543210";

Bytes ToBytes(const CVeLByteArray& array)
{
    if (array.GetArrayLength() == 0)
        return {};
    return Bytes(array.GetArrayBytes(), array.GetArrayBytes() + array.GetArrayLength());
}

CVeLByteArray ToArray(const Bytes& bytes)
{
    std::shared_ptr<unsigned char> data(new unsigned char[bytes.size()],
                                        std::default_delete<unsigned char[]>());
    std::copy(bytes.begin(), bytes.end(), data.get());
    return CVeLByteArray(data, static_cast<ULONG>(bytes.size()));
}

// The UTF-16LE bytes of an ASCII key, written out by hand.
Bytes AsciiKeyBytes(const std::wstring& key)
{
    Bytes bytes;
    for (wchar_t c : key)
    {
        bytes.push_back(static_cast<unsigned char>(c));
        bytes.push_back(0);
    }
    return bytes;
}

std::string Hex(const unsigned char* data, std::size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
    {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0xF];
    }
    return text;
}

class EncryptionHandler : public ::testing::Test
{
protected:
    void SetUp() override { BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3); }
    void TearDown() override { BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN); }
};

TEST_F(EncryptionHandler, BufferIsIvThenPaddedCiphertextAndRoundTrips)
{
    CVeLEncryptionHandler handler(kKey256);
    for (ULONG size : {1u, 15u, 16u, 17u, 1000u})
    {
        Bytes plain(size);
        for (ULONG i = 0; i < size; ++i)
            plain[i] = static_cast<unsigned char>(i * 7);
        CVeLResult<CVeLByteArray> encrypted = handler.EncryptBytes(plain.data(), size);
        ASSERT_TRUE(encrypted.IsSuccess()) << size;
        EXPECT_EQ(encrypted.GetValue().GetArrayLength(), 16 + (size / 16 + 1) * 16) << size;
        CVeLResult<CVeLByteArray> decrypted = handler.DecryptBytes(encrypted.GetValue());
        ASSERT_TRUE(decrypted.IsSuccess()) << size;
        EXPECT_EQ(ToBytes(decrypted.GetValue()), plain) << size;
    }
    unsigned char one = 'x';
    EXPECT_EQ(handler.EncryptBytes(&one, 1).GetValue().GetArrayLength(), 32u);
    Bytes sixteen(16, 1), seventeen(17, 1);
    EXPECT_EQ(handler.EncryptBytes(sixteen.data(), 16).GetValue().GetArrayLength(), 48u);
    EXPECT_EQ(handler.EncryptBytes(seventeen.data(), 17).GetValue().GetArrayLength(), 48u);
}

TEST_F(EncryptionHandler, SamePlaintextGivesDifferentBuffersThatBothDecrypt)
{
    CVeLEncryptionHandler handler(kKey256);
    const Bytes plain = {'s', 'a', 'm', 'e'};
    CVeLByteArray first = handler.EncryptBytes(ToArray(plain)).GetValue();
    CVeLByteArray second = handler.EncryptBytes(ToArray(plain)).GetValue();
    ASSERT_TRUE(first.IsValid() && second.IsValid());
    EXPECT_NE(Bytes(first.GetArrayBytes(), first.GetArrayBytes() + 16),
              Bytes(second.GetArrayBytes(), second.GetArrayBytes() + 16));
    EXPECT_NE(ToBytes(first), ToBytes(second));
    EXPECT_EQ(ToBytes(handler.DecryptBytes(first).GetValue()), plain);
    EXPECT_EQ(ToBytes(handler.DecryptBytes(second).GetValue()), plain);
}

TEST_F(EncryptionHandler, DecryptionUsesTheIvRegionInPlace)
{
    CVeLEncryptionHandler handler(kKey256);
    Bytes plain(40, 'p');
    Bytes buffer = ToBytes(handler.EncryptBytes(plain.data(), 40).GetValue());
    ASSERT_EQ(buffer.size(), 64u);
    const Bytes lastBlock(buffer.end() - 16, buffer.end());
    ASSERT_TRUE(handler.DecryptBytes(buffer.data(), 64).IsSuccess());
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 16), lastBlock);
}

TEST_F(EncryptionHandler, KeyBytesAreUtf16CodeUnitsOfTheString)
{
    const Bytes plain = {1, 2, 3};
    for (const std::wstring& key : {std::wstring(L"01234567"), std::wstring(L"0123456789ab"), kKey256})
    {
        CVeLEncryptionHandler fromString(key);
        Bytes keyBytes = AsciiKeyBytes(key);
        CVeLEncryptionHandler fromBytes(ToArray(keyBytes));
        CVeLEncryptionHandler fromPointer(keyBytes.data(), static_cast<ULONG>(keyBytes.size()));
        CVeLByteArray encrypted = fromString.EncryptBytes(ToArray(plain)).GetValue();
        EXPECT_EQ(ToBytes(fromBytes.DecryptBytes(ToArray(ToBytes(encrypted))).GetValue()), plain);
        EXPECT_EQ(ToBytes(fromPointer.DecryptBytes(encrypted).GetValue()), plain);
    }
    // A character beyond U+FFFF is a surrogate pair: 15 characters, 16 code units, 32 bytes.
    const std::wstring astral = L"\U0001F600bcdefghijklmno";
    Bytes astralBytes = {0x3D, 0xD8, 0x00, 0xDE};
    for (wchar_t c : astral.substr(1))
        astralBytes.insert(astralBytes.end(), {static_cast<unsigned char>(c), 0});
    CVeLEncryptionHandler fromAstral(astral);
    CVeLEncryptionHandler fromAstralBytes(ToArray(astralBytes));
    EXPECT_EQ(
        ToBytes(fromAstralBytes.DecryptBytes(fromAstral.EncryptBytes(ToArray(plain)).GetValue()).GetValue()),
        plain);
}

TEST_F(EncryptionHandler, KeysOfOtherLengthsOrNoneLeaveAnUnusableHandler)
{
    BTraceCapture capture;
    CVeLEncryptionHandler tenCharacters(L"0123456789");
    EXPECT_TRUE(capture.Contains(VEL_ERR, "Creating crypto key failed, error code: 0xC000000D"));
    CVeLEncryptionHandler empty(L"");
    CVeLEncryptionHandler nullKey(nullptr, 16);
    CVeLEncryptionHandler emptyArray{CVeLByteArray()};
    EXPECT_EQ(capture.Count(VEL_ERR, "Invalid parameter"), 3u);
    unsigned char byte = 0;
    for (const CVeLEncryptionHandler* handler : {&tenCharacters, &empty, &nullKey, &emptyArray})
    {
        EXPECT_FALSE(handler->EncryptBytes(&byte, 1).IsSuccess());
        EXPECT_FALSE(handler->DecryptBytes(Bytes(32).data(), 32).IsSuccess());
    }
    EXPECT_EQ(capture.Count(VEL_ERR, "Invalid initialization"), 8u);
}

TEST_F(EncryptionHandler, RefusesMissingOrTooShortInput)
{
    CVeLEncryptionHandler handler(kKey256);
    BTraceCapture capture;
    Bytes sixteen(16, 0);
    EXPECT_FALSE(handler.DecryptBytes(sixteen.data(), 16).IsSuccess());
    EXPECT_FALSE(handler.DecryptBytes(nullptr, 32).IsSuccess());
    EXPECT_FALSE(handler.DecryptBytes(CVeLByteArray()).IsSuccess());
    EXPECT_FALSE(handler.EncryptBytes(nullptr, 5).IsSuccess());
    EXPECT_FALSE(handler.EncryptBytes(sixteen.data(), 0).IsSuccess());
    EXPECT_EQ(capture.Count(VEL_ERR, "Invalid parameter"), 5u);
    EXPECT_EQ(sixteen, Bytes(16, 0));
}

// With a fixed IV the ciphertext is fixed, so whether the other key meets valid padding by chance is
// settled once, not on every run.
TEST_F(EncryptionHandler, AnotherKeyFailsThePaddingCheck)
{
    auto fake = std::make_shared<CFakeWinAPIWrapper>();
    fake->OnBCryptGenRandom = [](BCRYPT_ALG_HANDLE, PUCHAR buffer, ULONG length, ULONG)
    {
        std::memset(buffer, 0x42, length);
        return CVeLResult<LONG>(true, 0);
    };
    CVeLEncryptionHandlerImpl encryptor(fake, kKey256);
    const Bytes plain = {'s', 'e', 'c', 'r', 'e', 't'};
    CVeLByteArray encrypted = encryptor.EncryptBytes(ToArray(plain)).GetValue();
    ASSERT_EQ(Bytes(encrypted.GetArrayBytes(), encrypted.GetArrayBytes() + 16), Bytes(16, 0x42));

    CVeLEncryptionHandler other(kOtherKey);
    BTraceCapture capture;
    const Bytes before = ToBytes(encrypted);
    EXPECT_FALSE(other.DecryptBytes(encrypted).IsSuccess());
    EXPECT_TRUE(capture.Contains(VEL_ERR, "Decryption bytes failed, error code: 0xC000003E"));
    EXPECT_EQ(ToBytes(encrypted), before); // a failed decryption leaves the chaining value alone
}

// The openssl command line reads and writes the same format: the IV is the first block, the rest is
// standard AES-CBC with PKCS #7 padding under the raw key bytes.
class OpenSslInterop : public EncryptionHandler
{
protected:
    void SetUp() override
    {
        EncryptionHandler::SetUp();
        char pattern[] = "/tmp/kor_crypto_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override
    {
        std::system(("rm -rf " + dir).c_str());
        EncryptionHandler::TearDown();
    }
    void Write(const std::string& name, const unsigned char* data, std::size_t size)
    {
        std::ofstream(dir + "/" + name, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
    }
    Bytes Read(const std::string& name)
    {
        std::ifstream in(dir + "/" + name, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    int OpenSsl(const std::string& arguments)
    {
        return std::system(("cd " + dir + " && openssl enc " + arguments + " 2>/dev/null").c_str());
    }
    std::string dir;
};

TEST_F(OpenSslInterop, OpenSslDecryptsTheLibrarysBufferAndTheReverse)
{
    const std::string keyHex = Hex(AsciiKeyBytes(kKey256).data(), 32);
    CVeLEncryptionHandler handler(kKey256);
    Bytes plain(1000);
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<unsigned char>(i * 31 + 7);

    CVeLByteArray encrypted = handler.EncryptBytes(plain.data(), static_cast<ULONG>(plain.size())).GetValue();
    ASSERT_TRUE(encrypted.IsValid());
    Write("ours.bin", encrypted.GetArrayBytes() + 16, encrypted.GetArrayLength() - 16);
    ASSERT_EQ(OpenSsl("-d -aes-256-cbc -K " + keyHex + " -iv " + Hex(encrypted.GetArrayBytes(), 16) +
                      " -in ours.bin -out ours.txt"),
              0);
    EXPECT_EQ(Read("ours.txt"), plain);

    const unsigned char iv[16] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0xA, 0xB, 0xC, 0xD, 0xE, 0xF};
    Write("theirs.txt", plain.data(), plain.size());
    ASSERT_EQ(
        OpenSsl("-aes-256-cbc -K " + keyHex + " -iv " + Hex(iv, 16) + " -in theirs.txt -out theirs.bin"), 0);
    Bytes buffer(iv, iv + 16);
    const Bytes ciphertext = Read("theirs.bin");
    buffer.insert(buffer.end(), ciphertext.begin(), ciphertext.end());
    CVeLResult<CVeLByteArray> decrypted =
        handler.DecryptBytes(buffer.data(), static_cast<ULONG>(buffer.size()));
    ASSERT_TRUE(decrypted.IsSuccess());
    EXPECT_EQ(ToBytes(decrypted.GetValue()), plain);
}

TEST_F(OpenSslInterop, AnEmptyPlaintextFromAnotherProgramDecryptsToAnEmptyArray)
{
    const std::string keyHex = Hex(AsciiKeyBytes(kKey256).data(), 32);
    const unsigned char iv[16] = {};
    Write("empty.txt", nullptr, 0);
    ASSERT_EQ(OpenSsl("-aes-256-cbc -K " + keyHex + " -iv " + Hex(iv, 16) + " -in empty.txt -out empty.bin"),
              0);
    Bytes buffer(iv, iv + 16);
    const Bytes ciphertext = Read("empty.bin");
    ASSERT_EQ(ciphertext.size(), 16u);
    buffer.insert(buffer.end(), ciphertext.begin(), ciphertext.end());
    CVeLResult<CVeLByteArray> decrypted =
        CVeLEncryptionHandler(kKey256).DecryptBytes(buffer.data(), static_cast<ULONG>(buffer.size()));
    EXPECT_TRUE(decrypted.IsSuccess());
    EXPECT_EQ(decrypted.GetValue().GetArrayLength(), 0u);
}

// Random buffers and truncated ciphertexts fail cleanly (or, for whole blocks that happen to end in valid
// padding, give a shorter plaintext); nothing reads or writes outside the input.
TEST_F(EncryptionHandler, RandomAndTruncatedBuffersNeverCrash)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN);
    CVeLEncryptionHandler handler(kKey256);
    std::mt19937 random(12345);
    Bytes plain(200, 'q');
    const Bytes encrypted = ToBytes(handler.EncryptBytes(plain.data(), 200).GetValue());
    ASSERT_EQ(encrypted.size(), 224u);
    int failures = 0;
    for (int round = 0; round < 3000; ++round)
    {
        Bytes buffer;
        if (round % 2 == 0)
        {
            buffer.resize(random() % 100);
            for (auto& b : buffer)
                b = static_cast<unsigned char>(random());
        }
        else
        {
            buffer.assign(encrypted.begin(), encrypted.begin() + random() % encrypted.size());
            if (!buffer.empty() && round % 4 == 1)
                buffer[random() % buffer.size()] ^= static_cast<unsigned char>(1 + random() % 255);
        }
        // An exact-size heap copy lets the address sanitizer see any access past the end.
        std::unique_ptr<unsigned char[]> exact(new unsigned char[std::max<std::size_t>(buffer.size(), 1)]);
        std::copy(buffer.begin(), buffer.end(), exact.get());
        CVeLResult<CVeLByteArray> result =
            handler.DecryptBytes(buffer.empty() ? nullptr : exact.get(), static_cast<ULONG>(buffer.size()));
        if (!result.IsSuccess())
        {
            ++failures;
        }
        else
        {
            EXPECT_LT(result.GetValue().GetArrayLength(), buffer.size() - 16);
        }
        if (buffer.size() <= 16 || buffer.size() % 16 != 0)
        {
            EXPECT_FALSE(result.IsSuccess()) << buffer.size();
        }
    }
    EXPECT_GT(failures, 2900);
}

// ---- A replacement facade -------------------------------------------------------------------------------

using Status = CVeLResult<LONG>;
Status Failed(LONG status)
{
    return Status::FromNTStatus(status);
}

class EncryptionHandlerFacade : public EncryptionHandler
{
protected:
    std::shared_ptr<CFakeWinAPIWrapper> fake = std::make_shared<CFakeWinAPIWrapper>();
    CVeLWinAPIWrapper real;
};

TEST_F(EncryptionHandlerFacade, EachFailingConstructionStepIsTracedAndLeavesTheHandlerUnusable)
{
    struct Step
    {
        const char* message;
        std::function<void(CFakeWinAPIWrapper&, const CVeLWinAPIWrapper&)> fail;
    };
    const std::vector<Step> steps = {
        {"Opening random provider failed, error code: 0xC0000225",
         [](CFakeWinAPIWrapper& f, const CVeLWinAPIWrapper& r)
         {
             f.OnBCryptOpenAlgorithmProvider = [&r](BCRYPT_ALG_HANDLE* a, LPCWSTR id, LPCWSTR i, ULONG fl)
             {
                 return std::wstring(id) == L"RNG" ? Failed(STATUS_NOT_FOUND)
                                                   : r.WAPI_BCryptOpenAlgorithmProvider(a, id, i, fl);
             };
         }},
        {"Opening crypto provider failed, error code: 0xC0000225",
         [](CFakeWinAPIWrapper& f, const CVeLWinAPIWrapper& r)
         {
             f.OnBCryptOpenAlgorithmProvider = [&r](BCRYPT_ALG_HANDLE* a, LPCWSTR id, LPCWSTR i, ULONG fl)
             {
                 return std::wstring(id) == L"AES" ? Failed(STATUS_NOT_FOUND)
                                                   : r.WAPI_BCryptOpenAlgorithmProvider(a, id, i, fl);
             };
         }},
        {"Setting chaining mode failed, error code: 0xC00000BB",
         [](CFakeWinAPIWrapper& f, const CVeLWinAPIWrapper&)
         {
             f.OnBCryptSetProperty = [](BCRYPT_HANDLE, LPCWSTR, PUCHAR, ULONG, ULONG)
             { return Failed(STATUS_NOT_SUPPORTED); };
         }},
        {"Getting initialization vector size failed, error code: 0xC0000023",
         [](CFakeWinAPIWrapper& f, const CVeLWinAPIWrapper&)
         {
             f.OnBCryptGetProperty = [](BCRYPT_HANDLE, LPCWSTR, PUCHAR, ULONG, ULONG*, ULONG)
             { return Failed(STATUS_BUFFER_TOO_SMALL); };
         }},
        {"Creating crypto key failed, error code: 0xC0000017",
         [](CFakeWinAPIWrapper& f, const CVeLWinAPIWrapper&)
         {
             f.OnBCryptGenerateSymmetricKey = [](BCRYPT_ALG_HANDLE, BCRYPT_KEY_HANDLE*, PUCHAR, ULONG, PUCHAR,
                                                 ULONG, ULONG) { return Failed(STATUS_NO_MEMORY); };
         }},
    };
    for (const Step& step : steps)
    {
        auto f = std::make_shared<CFakeWinAPIWrapper>();
        step.fail(*f, real);
        BTraceCapture capture;
        {
            CVeLEncryptionHandlerImpl handler(f, kKey256);
            EXPECT_TRUE(capture.Contains(VEL_ERR, step.message)) << step.message;
            unsigned char byte = 1;
            EXPECT_FALSE(handler.EncryptBytes(&byte, 1).IsSuccess());
            EXPECT_TRUE(capture.Contains(VEL_ERR, "Invalid initialization")) << step.message;
        }
        // Whatever was opened before the failing step is released, and nothing more.
        EXPECT_EQ(f->CallCount("BCryptCloseAlgorithmProvider"),
                  f->CallCount("BCryptOpenAlgorithmProvider") -
                      (std::string(step.message).find("Opening") == 0))
            << step.message;
        EXPECT_EQ(f->CallCount("BCryptEncrypt"), 0u);
    }
}

TEST_F(EncryptionHandlerFacade, EachFailingEncryptionStepIsTraced)
{
    CVeLEncryptionHandlerImpl handler(fake, kKey256);
    Bytes plain(20, 'e');
    BTraceCapture capture;
    auto expectFailure = [&](const char* message)
    {
        EXPECT_FALSE(handler.EncryptBytes(plain.data(), 20).IsSuccess()) << message;
        EXPECT_TRUE(capture.Contains(VEL_ERR, message)) << message;
        fake->OnBCryptGenRandom = nullptr;
        fake->OnBCryptEncrypt = nullptr;
    };
    fake->OnBCryptGenRandom = [](BCRYPT_ALG_HANDLE, PUCHAR, ULONG, ULONG)
    { return Failed(STATUS_UNSUCCESSFUL); };
    expectFailure("Generating initialization vector failed, error code: 0xC0000001");

    fake->OnBCryptEncrypt = [](BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR, ULONG, ULONG*,
                               ULONG) { return Failed(STATUS_INVALID_PARAMETER); };
    expectFailure("Getting crypt buffer size for encryption failed, error code: 0xC000000D");

    fake->OnBCryptEncrypt =
        [](BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR, ULONG, ULONG* result, ULONG)
    {
        *result = 0;
        return Status(true, 0);
    };
    expectFailure("Got invalid crypt buffer size for encryption");

    fake->OnBCryptEncrypt = [this](BCRYPT_KEY_HANDLE k, PUCHAR in, ULONG n, PVOID p, PUCHAR iv, ULONG ivn,
                                   PUCHAR out, ULONG outn, ULONG* result, ULONG fl)
    {
        return out == nullptr ? real.WAPI_BCryptEncrypt(k, in, n, p, iv, ivn, out, outn, result, fl)
                              : Failed(STATUS_DATA_ERROR);
    };
    expectFailure("Encryption bytes failed, error code: 0xC000003E");
    EXPECT_TRUE(handler.EncryptBytes(plain.data(), 20).IsSuccess());
}

TEST_F(EncryptionHandlerFacade, EachFailingDecryptionStepIsTraced)
{
    CVeLEncryptionHandlerImpl handler(fake, kKey256);
    Bytes plain(20, 'd');
    const Bytes encrypted = ToBytes(handler.EncryptBytes(plain.data(), 20).GetValue());
    BTraceCapture capture;
    auto expectFailure = [&](const char* message)
    {
        Bytes copy = encrypted;
        EXPECT_FALSE(handler.DecryptBytes(copy.data(), static_cast<ULONG>(copy.size())).IsSuccess())
            << message;
        EXPECT_TRUE(capture.Contains(VEL_ERR, message)) << message;
    };
    fake->OnBCryptDecrypt = [](BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR, ULONG, ULONG*,
                               ULONG) { return Failed(STATUS_INVALID_HANDLE); };
    expectFailure("Getting crypt buffer size for decryption failed, error code: 0xC0000008");

    fake->OnBCryptDecrypt =
        [](BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR, ULONG, ULONG* result, ULONG)
    {
        *result = 0;
        return Status(true, 0);
    };
    expectFailure("Got invalid crypt buffer size for decryption");

    fake->OnBCryptDecrypt = [this](BCRYPT_KEY_HANDLE k, PUCHAR in, ULONG n, PVOID p, PUCHAR iv, ULONG ivn,
                                   PUCHAR out, ULONG outn, ULONG* result, ULONG fl)
    {
        return out == nullptr ? real.WAPI_BCryptDecrypt(k, in, n, p, iv, ivn, out, outn, result, fl)
                              : Failed(STATUS_DATA_ERROR);
    };
    expectFailure("Decryption bytes failed, error code: 0xC000003E");

    // The plaintext is what the facade produced, with the length it reported.
    fake->OnBCryptDecrypt = [this](BCRYPT_KEY_HANDLE k, PUCHAR in, ULONG n, PVOID p, PUCHAR iv, ULONG ivn,
                                   PUCHAR out, ULONG outn, ULONG* result, ULONG fl)
    {
        if (out == nullptr)
            return real.WAPI_BCryptDecrypt(k, in, n, p, iv, ivn, out, outn, result, fl);
        std::memset(out, 'Z', 3);
        *result = 3;
        return Status(true, 0);
    };
    Bytes copy = encrypted;
    EXPECT_EQ(ToBytes(handler.DecryptBytes(copy.data(), static_cast<ULONG>(copy.size())).GetValue()),
              Bytes(3, 'Z'));
}

TEST_F(EncryptionHandlerFacade, FailedReleasesAreWarnings)
{
    fake->OnBCryptDestroyKey = [this](BCRYPT_KEY_HANDLE key)
    {
        real.WAPI_BCryptDestroyKey(key);
        return Failed(STATUS_INVALID_HANDLE);
    };
    fake->OnBCryptCloseAlgorithmProvider = [this](BCRYPT_ALG_HANDLE algorithm, ULONG flags)
    {
        real.WAPI_BCryptCloseAlgorithmProvider(algorithm, flags);
        return Failed(STATUS_INVALID_HANDLE);
    };
    BTraceCapture capture;
    {
        CVeLEncryptionHandlerImpl handler(fake, kKey256);
    }
    EXPECT_TRUE(capture.Contains(VEL_WRN, "Destroying crypto key failed, error code: 0xC0000008"));
    EXPECT_TRUE(capture.Contains(VEL_WRN, "Closing crypto provider failed, error code: 0xC0000008"));
    EXPECT_TRUE(capture.Contains(VEL_WRN, "Closing random provider failed, error code: 0xC0000008"));
}

TEST_F(EncryptionHandlerFacade, WithoutAFacadeEverythingIsAnInvalidInitialization)
{
    BTraceCapture capture;
    {
        CVeLEncryptionHandlerImpl handler(nullptr, kKey256);
        unsigned char data[32] = {};
        EXPECT_FALSE(handler.EncryptBytes(data, 1).IsSuccess());
        EXPECT_FALSE(handler.DecryptBytes(data, 32).IsSuccess());
    }
    EXPECT_EQ(capture.Count(VEL_ERR, "Invalid initialization"), 4u); // construction, two calls, destruction
}

} // namespace
