// The encryption handler: buffer format and lengths, key rules, interoperability with the openssl command
// line, corrupt input, and each facade operation failing in turn.
#include "fakewinapiwrapper.h"
#include "filetestsupport.h"
#include "shelltestsupport.h"
#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "velencryptionhandler.h"
#include "velencryptionhandlerimpl.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;
using Status = CVeLResult<LONG>;
using EncryptionHandler = kortest::TracedTest;

const std::wstring kKey256 = L"0123456789abcdef"; // 16 characters: 32 key bytes

// NTSTATUS failures the replacement facade hands back, with the values Windows gives them.
constexpr LONG kNotFound = LONG(0xC0000225UL);
constexpr LONG kNotSupported = LONG(0xC00000BBUL);
constexpr LONG kBufferTooSmall = LONG(0xC0000023UL);
constexpr LONG kNoMemory = LONG(0xC0000017UL);
constexpr LONG kDataError = LONG(0xC000003EUL);

Bytes ToBytes(const CVeLByteArray& array)
{
    const unsigned char* data = array.GetArrayLength() ? array.GetArrayBytes() : nullptr;
    return Bytes(data, data + array.GetArrayLength());
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
        bytes.insert(bytes.end(), {static_cast<unsigned char>(c), 0});
    return bytes;
}

std::string Hex(const unsigned char* data, std::size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
        text += {digits[data[i] >> 4], digits[data[i] & 0xF]};
    return text;
}

Status Failed(LONG status)
{
    return Status::FromNTStatus(status);
}

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
        EXPECT_EQ(encrypted.GetValue().GetArrayLength(), 16 + (size / 16 + 1) * 16) << size; // 1→32, 16/17→48
        EXPECT_EQ(ToBytes(handler.DecryptBytes(encrypted.GetValue()).GetValue()), plain) << size;
    }
    // A fresh IV each time: the same plaintext gives different buffers that both decrypt.
    const Bytes plain = {'s', 'a', 'm', 'e'};
    const Bytes first = ToBytes(handler.EncryptBytes(ToArray(plain)).GetValue());
    Bytes second = ToBytes(handler.EncryptBytes(ToArray(plain)).GetValue());
    ASSERT_EQ(first.size(), 32u);
    EXPECT_NE(Bytes(first.begin(), first.begin() + 16), Bytes(second.begin(), second.begin() + 16));
    EXPECT_EQ(ToBytes(handler.DecryptBytes(ToArray(first)).GetValue()), plain);
    // Decryption works in place: the IV region ends up holding the last ciphertext block.
    KORTEST_SKIP_UNDER_WINE("its BCryptDecrypt does not write the CBC chaining value back into the IV");
    const Bytes lastBlock(second.end() - 16, second.end());
    EXPECT_EQ(ToBytes(handler.DecryptBytes(second.data(), 32).GetValue()), plain);
    EXPECT_EQ(Bytes(second.begin(), second.begin() + 16), lastBlock);
}

TEST_F(EncryptionHandler, KeyBytesAreUtf16CodeUnitsOfTheString)
{
    const Bytes plain = {1, 2, 3};
    for (const std::wstring& key : {std::wstring(L"01234567"), std::wstring(L"0123456789ab"), kKey256})
    {
        Bytes keyBytes = AsciiKeyBytes(key);
        CVeLByteArray encrypted = CVeLEncryptionHandler(key).EncryptBytes(ToArray(plain)).GetValue();
        EXPECT_EQ(ToBytes(CVeLEncryptionHandler(ToArray(keyBytes))
                              .DecryptBytes(ToArray(ToBytes(encrypted)))
                              .GetValue()),
                  plain);
        CVeLEncryptionHandler fromPointer(keyBytes.data(), static_cast<ULONG>(keyBytes.size()));
        EXPECT_EQ(ToBytes(fromPointer.DecryptBytes(encrypted).GetValue()), plain);
    }
    // A character beyond U+FFFF is a surrogate pair: 15 characters, 16 code units, 32 bytes.
    const std::wstring astral = L"\U0001F600bcdefghijklmno";
    Bytes astralBytes = {0x3D, 0xD8, 0x00, 0xDE};
    Bytes rest = AsciiKeyBytes(astral.substr(1));
    astralBytes.insert(astralBytes.end(), rest.begin(), rest.end());
    CVeLByteArray encrypted = CVeLEncryptionHandler(astral).EncryptBytes(ToArray(plain)).GetValue();
    EXPECT_EQ(ToBytes(CVeLEncryptionHandler(ToArray(astralBytes)).DecryptBytes(encrypted).GetValue()), plain);
}

TEST_F(EncryptionHandler, BadKeysAndBadInputAreRefused)
{
    BTraceCapture capture;
    CVeLEncryptionHandler tenCharacters(L"0123456789");
    CVeLEncryptionHandler empty(L"");
    CVeLEncryptionHandler nullKey(nullptr, 16);
    CVeLEncryptionHandler emptyArray{CVeLByteArray()};
    unsigned char byte = 0;
    for (const CVeLEncryptionHandler* handler : {&tenCharacters, &empty, &nullKey, &emptyArray})
    {
        EXPECT_FALSE(handler->EncryptBytes(&byte, 1).IsSuccess());
        EXPECT_FALSE(handler->DecryptBytes(Bytes(32).data(), 32).IsSuccess());
    }

    CVeLEncryptionHandler handler(kKey256);
    Bytes sixteen(16, 0);
    EXPECT_FALSE(handler.DecryptBytes(sixteen.data(), 16).IsSuccess());
    EXPECT_FALSE(handler.DecryptBytes(nullptr, 32).IsSuccess());
    EXPECT_FALSE(handler.DecryptBytes(CVeLByteArray()).IsSuccess());
    EXPECT_FALSE(handler.EncryptBytes(nullptr, 5).IsSuccess());
    EXPECT_FALSE(handler.EncryptBytes(sixteen.data(), 0).IsSuccess());
    EXPECT_EQ(sixteen, Bytes(16, 0));
}

// With a fixed IV the ciphertext is fixed, so whether the other key meets valid padding by chance is
// settled once, not on every run.
TEST_F(EncryptionHandler, AnotherKeyFailsThePaddingCheck)
{
    KORTEST_SKIP_UNDER_WINE(
        "its BCryptDecrypt answers bad padding with STATUS_UNSUCCESSFUL, not STATUS_DATA_ERROR");
    auto fake = std::make_shared<CFakeWinAPIWrapper>();
    fake->OnBCryptGenRandom = [](BCRYPT_ALG_HANDLE, PUCHAR buffer, ULONG length, ULONG)
    {
        std::memset(buffer, 0x42, length);
        return Status(true, 0);
    };
    const Bytes plain = {'s', 'e', 'c', 'r', 'e', 't'};
    CVeLByteArray encrypted =
        CVeLEncryptionHandlerImpl(fake, kKey256).EncryptBytes(ToArray(plain)).GetValue();
    ASSERT_EQ(Bytes(encrypted.GetArrayBytes(), encrypted.GetArrayBytes() + 16), Bytes(16, 0x42));
    BTraceCapture capture;
    const Bytes before = ToBytes(encrypted);
    EXPECT_FALSE(CVeLEncryptionHandler(L"fedcba9876543210").DecryptBytes(encrypted).IsSuccess());
    EXPECT_EQ(ToBytes(encrypted), before); // a failed decryption leaves the chaining value alone
}

// The openssl command line reads and writes the same format: the IV is the first block, the rest is
// standard AES-CBC with PKCS #7 padding under the raw key bytes. Both directions, and an empty plaintext.
using EncryptionHandlerFiles = kortest::FileSystemTest;

TEST_F(EncryptionHandlerFiles, OpenSslDecryptsTheLibrarysBufferAndTheReverse)
{
    KORTEST_LINUX_ONLY("runs the openssl command line and a POSIX shell");
    auto openssl = [&](const std::string& direction, const unsigned char* iv, const std::string& in)
    {
        WriteFile(Root() / "in.bin", in);
        const std::string command = "openssl enc " + direction + " -aes-256-cbc -K " +
                                    Hex(AsciiKeyBytes(kKey256).data(), 32) + " -iv " + Hex(iv, 16) + " -in " +
                                    kortest::Quote(Root() / "in.bin") + " 2>/dev/null";
        const kortest::ShellResult result = kortest::RunShell(command);
        EXPECT_EQ(result.status, 0) << direction;
        return Bytes(result.output.begin(), result.output.end());
    };
    CVeLEncryptionHandler handler(kKey256);
    for (std::size_t size : {1000u, 0u})
    {
        Bytes plain(size);
        for (std::size_t i = 0; i < size; ++i)
            plain[i] = static_cast<unsigned char>(i * 31 + 7);
        if (size != 0)
        {
            CVeLByteArray ours = handler.EncryptBytes(plain.data(), static_cast<ULONG>(size)).GetValue();
            ASSERT_TRUE(ours.IsValid());
            const Bytes cipher = ToBytes(ours);
            EXPECT_EQ(openssl("-d", cipher.data(), std::string(cipher.begin() + 16, cipher.end())), plain);
        }
        const unsigned char iv[16] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0xA, 0xB, 0xC, 0xD, 0xE, 0xF};
        Bytes buffer(iv, iv + 16);
        const Bytes theirs = openssl("-e", iv, std::string(plain.begin(), plain.end()));
        buffer.insert(buffer.end(), theirs.begin(), theirs.end());
        CVeLResult<CVeLByteArray> decrypted =
            handler.DecryptBytes(buffer.data(), static_cast<ULONG>(buffer.size()));
        ASSERT_TRUE(decrypted.IsSuccess()) << size;
        EXPECT_EQ(ToBytes(decrypted.GetValue()), plain);
    }
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
        Bytes buffer(encrypted.begin(), encrypted.begin() + random() % encrypted.size());
        if (round % 2 == 0)
            std::generate(buffer.begin(), buffer.end(), [&] { return static_cast<unsigned char>(random()); });
        else if (!buffer.empty() && round % 4 == 1)
            buffer[random() % buffer.size()] ^= static_cast<unsigned char>(1 + random() % 255);
        // An exact-size heap copy lets the address sanitizer see any access past the end.
        std::unique_ptr<unsigned char[]> exact(new unsigned char[std::max<std::size_t>(buffer.size(), 1)]);
        std::copy(buffer.begin(), buffer.end(), exact.get());
        CVeLResult<CVeLByteArray> result =
            handler.DecryptBytes(buffer.empty() ? nullptr : exact.get(), static_cast<ULONG>(buffer.size()));
        failures += result.IsSuccess() ? 0 : 1;
        // Success is only possible for whole blocks beyond the IV, and yields less than the ciphertext.
        EXPECT_TRUE(!result.IsSuccess() || (buffer.size() > 16 && buffer.size() % 16 == 0 &&
                                            result.GetValue().GetArrayLength() < buffer.size() - 16))
            << buffer.size();
    }
    EXPECT_GT(failures, 2900);
}

// ---- A replacement facade -------------------------------------------------------------------------------

class EncryptionHandlerFacade : public EncryptionHandler
{
protected:
    std::shared_ptr<CFakeWinAPIWrapper> fake = std::make_shared<CFakeWinAPIWrapper>();
    CVeLWinAPIWrapper real;
};

TEST_F(EncryptionHandlerFacade, AFailingConstructionStepLeavesTheHandlerUnusableAndReleasesWhatItOpened)
{
    using Fail = std::function<void(CFakeWinAPIWrapper&)>;
    const CVeLWinAPIWrapper& r = real;
    auto failProvider = [&r](std::wstring which) -> Fail
    {
        return [&r, which](CFakeWinAPIWrapper& f)
        {
            f.OnBCryptOpenAlgorithmProvider =
                [&r, which](BCRYPT_ALG_HANDLE* a, LPCWSTR id, LPCWSTR i, ULONG fl)
            { return id == which ? Failed(kNotFound) : r.WAPI_BCryptOpenAlgorithmProvider(a, id, i, fl); };
        };
    };
    const Fail steps[] = {failProvider(L"RNG"), failProvider(L"AES"),
                          [](CFakeWinAPIWrapper& f)
                          { f.OnBCryptSetProperty = [](auto...) { return Failed(kNotSupported); }; },
                          [](CFakeWinAPIWrapper& f)
                          { f.OnBCryptGetProperty = [](auto...) { return Failed(kBufferTooSmall); }; },
                          [](CFakeWinAPIWrapper& f)
                          { f.OnBCryptGenerateSymmetricKey = [](auto...) { return Failed(kNoMemory); }; }};
    for (std::size_t step = 0; step < std::size(steps); ++step)
    {
        auto f = std::make_shared<CFakeWinAPIWrapper>();
        steps[step](*f);
        {
            CVeLEncryptionHandlerImpl handler(f, kKey256);
            unsigned char byte = 1;
            EXPECT_FALSE(handler.EncryptBytes(&byte, 1).IsSuccess()) << step;
        }
        // Whatever was opened before the failing step is released, and nothing more.
        EXPECT_EQ(f->CallCount("BCryptCloseAlgorithmProvider"),
                  f->CallCount("BCryptOpenAlgorithmProvider") - (step < 2))
            << step;
        EXPECT_EQ(f->CallCount("BCryptEncrypt"), 0u);
    }
}

// Each failing step of encryption and decryption fails the call; a successful decryption holds what the
// facade produced, with the length it reported.
TEST_F(EncryptionHandlerFacade, FailingStepsFailTheCallAndThePlaintextIsWhatTheFacadeReported)
{
    CVeLEncryptionHandlerImpl handler(fake, kKey256);
    Bytes plain(20, 'e');
    const Bytes encrypted = ToBytes(handler.EncryptBytes(plain.data(), 20).GetValue());
    using Hook = std::function<Status(BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR, ULONG,
                                      ULONG*, ULONG)>;
    // Answers the size query (no output buffer) as the system does, then replaces the real call.
    auto sizeThen = [](Hook forward, Hook then) -> Hook
    {
        return [forward, then](BCRYPT_KEY_HANDLE k, PUCHAR in, ULONG n, PVOID p, PUCHAR iv, ULONG ivn,
                               PUCHAR out, ULONG outn, ULONG* result, ULONG fl)
        { return (out == nullptr ? forward : then)(k, in, n, p, iv, ivn, out, outn, result, fl); };
    };
    Hook fail = [](auto...) { return Failed(kDataError); };
    Hook realEncrypt = [this](auto... a) { return real.WAPI_BCryptEncrypt(a...); };
    Hook realDecrypt = [this](auto... a) { return real.WAPI_BCryptDecrypt(a...); };
    for (const Hook& encrypt : {fail, sizeThen(realEncrypt, fail)})
    {
        fake->OnBCryptEncrypt = encrypt;
        EXPECT_FALSE(handler.EncryptBytes(plain.data(), 20).IsSuccess());
    }
    for (const Hook& decrypt : {fail, sizeThen(realDecrypt, fail)})
    {
        fake->OnBCryptDecrypt = decrypt;
        Bytes copy = encrypted;
        EXPECT_FALSE(handler.DecryptBytes(copy.data(), static_cast<ULONG>(copy.size())).IsSuccess());
    }
    fake->OnBCryptDecrypt = sizeThen(
        realDecrypt,
        [](BCRYPT_KEY_HANDLE, PUCHAR, ULONG, PVOID, PUCHAR, ULONG, PUCHAR out, ULONG, ULONG* result, ULONG)
        {
            std::memset(out, 'Z', 3);
            *result = 3;
            return Status(true, 0);
        });
    Bytes copy = encrypted;
    EXPECT_EQ(ToBytes(handler.DecryptBytes(copy.data(), static_cast<ULONG>(copy.size())).GetValue()),
              Bytes(3, 'Z'));
}

} // namespace
