// The encryption handler beside OpenSSL EVP used directly (the same work: a fresh random IV, AES-256-CBC
// with padding into a new buffer), and the shared-memory channel's write-then-read of a text beside a plain
// copy into and out of a mapping that stays mapped.
#include <velcmdinterfacesharedmemoryhandler.h>
#include <velencryptionhandler.h>
#include <win32posix.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

const unsigned char kKey[32] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};

void BM_EncryptBytes(benchmark::State& state)
{
    const ULONG size = static_cast<ULONG>(state.range(0));
    CVeLEncryptionHandler handler(const_cast<unsigned char*>(kKey), sizeof kKey);
    std::vector<unsigned char> input(size, 0x5a);
    for (auto _ : state)
    {
        CVeLResult<CVeLByteArray> result = handler.EncryptBytes(input.data(), size);
        benchmark::DoNotOptimize(result.GetValue().GetArrayBytes());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}
BENCHMARK(BM_EncryptBytes)->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20);

void BM_EvpEncrypt(benchmark::State& state)
{
    const int size = static_cast<int>(state.range(0));
    std::vector<unsigned char> input(size, 0x5a);
    EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    for (auto _ : state)
    {
        std::unique_ptr<unsigned char[]> output(new unsigned char[16 + (size / 16 + 1) * 16]);
        RAND_bytes(output.get(), 16);
        int n = 0, last = 0;
        EVP_EncryptInit_ex2(context, cipher, kKey, output.get(), nullptr);
        EVP_EncryptUpdate(context, output.get() + 16, &n, input.data(), size);
        EVP_EncryptFinal_ex(context, output.get() + 16 + n, &last);
        benchmark::DoNotOptimize(output.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
}
BENCHMARK(BM_EvpEncrypt)->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20);

void BM_DecryptBytes(benchmark::State& state)
{
    const ULONG size = static_cast<ULONG>(state.range(0));
    CVeLEncryptionHandler handler(const_cast<unsigned char*>(kKey), sizeof kKey);
    std::vector<unsigned char> input(size, 0x5a);
    CVeLByteArray encrypted = handler.EncryptBytes(input.data(), size).GetValue();
    std::vector<unsigned char> original(encrypted.GetArrayBytes(),
                                        encrypted.GetArrayBytes() + encrypted.GetArrayLength());
    std::vector<unsigned char> work(original);
    for (auto _ : state)
    {
        std::memcpy(work.data(), original.data(), 16); // decryption consumes the IV region
        CVeLResult<CVeLByteArray> result = handler.DecryptBytes(work.data(), static_cast<ULONG>(work.size()));
        benchmark::DoNotOptimize(result.GetValue().GetArrayBytes());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}
BENCHMARK(BM_DecryptBytes)->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20);

void BM_EvpDecrypt(benchmark::State& state)
{
    const int size = static_cast<int>(state.range(0));
    CVeLEncryptionHandler handler(const_cast<unsigned char*>(kKey), sizeof kKey);
    std::vector<unsigned char> input(size, 0x5a);
    CVeLByteArray encrypted = handler.EncryptBytes(input.data(), static_cast<ULONG>(size)).GetValue();
    const int cipherSize = static_cast<int>(encrypted.GetArrayLength()) - 16;
    EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    for (auto _ : state)
    {
        std::unique_ptr<unsigned char[]> output(new unsigned char[cipherSize]);
        int n = 0, last = 0;
        EVP_DecryptInit_ex2(context, cipher, kKey, encrypted.GetArrayBytes(), nullptr);
        EVP_DecryptUpdate(context, output.get(), &n, encrypted.GetArrayBytes() + 16, cipherSize);
        EVP_DecryptFinal_ex(context, output.get() + n, &last);
        benchmark::DoNotOptimize(output.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
}
BENCHMARK(BM_EvpDecrypt)->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20);

std::wstring BenchName(const char* stem)
{
    return std::wstring(stem, stem + std::strlen(stem)) + std::to_wstring(getpid());
}

void BM_ChannelWriteRead(benchmark::State& state)
{
    const std::size_t size = static_cast<std::size_t>(state.range(0));
    CVeLCmdInterfaceSharedMemoryHandler writer(true, BenchName("bench_channel_"));
    CVeLCmdInterfaceSharedMemoryHandler reader(false, BenchName("bench_channel_"));
    const std::wstring text(size, L'c');
    std::wstring received;
    for (auto _ : state)
    {
        writer.WriteDataToMemory(text);
        reader.ReadDataFromMemory(received);
        benchmark::DoNotOptimize(received.data());
    }
    if (received != text)
        state.SkipWithError("text did not round-trip");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}
BENCHMARK(BM_ChannelWriteRead)->Arg(1 << 10)->Arg(60 << 10);

// The same bytes copied into a mapping that stays mapped, and out again into a new buffer.
void BM_PersistentMappingCopy(benchmark::State& state)
{
    const std::size_t size = static_cast<std::size_t>(state.range(0));
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65537,
                                        BenchName("bench_mapping_").c_str());
    auto* view = static_cast<unsigned char*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
    const std::string text(size, 'c');
    for (auto _ : state)
    {
        std::memcpy(view + 2, text.data(), size);
        std::string received(reinterpret_cast<const char*>(view + 2), size);
        benchmark::DoNotOptimize(received.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
    UnmapViewOfFile(view);
    CloseHandle(mapping);
}
BENCHMARK(BM_PersistentMappingCopy)->Arg(1 << 10)->Arg(60 << 10);

} // namespace

BENCHMARK_MAIN();
