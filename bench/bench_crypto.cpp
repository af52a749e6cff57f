// AES-128-CBC encryption of 1 MiB with padding through the BCrypt functions of win32posix, beside the same
// work done with OpenSSL EVP directly (what a Linux program would use instead).
#include <win32posix.h>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <vector>

namespace
{

constexpr ULONG kSize = 1u << 20;

void BM_BCryptEncrypt(benchmark::State& state)
{
    BCRYPT_ALG_HANDLE aes = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    unsigned char secret[16] = {1, 2, 3};
    BCryptOpenAlgorithmProvider(&aes, BCRYPT_AES_ALGORITHM, nullptr, 0);
    BCryptGenerateSymmetricKey(aes, &key, nullptr, 0, secret, sizeof secret, 0);
    std::vector<unsigned char> input(kSize, 0x5a), output(kSize + 16);
    for (auto _ : state)
    {
        unsigned char iv[16] = {};
        ULONG n = 0;
        BCryptEncrypt(key, input.data(), kSize, nullptr, iv, sizeof iv, output.data(),
                      static_cast<ULONG>(output.size()), &n, BCRYPT_BLOCK_PADDING);
        benchmark::DoNotOptimize(output.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSize);
    BCryptDestroyKey(key);
    BCryptCloseAlgorithmProvider(aes, 0);
}
BENCHMARK(BM_BCryptEncrypt);

void BM_OpenSslEvpEncrypt(benchmark::State& state)
{
    unsigned char secret[16] = {1, 2, 3};
    std::vector<unsigned char> input(kSize, 0x5a), output(kSize + 16);
    EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, "AES-128-CBC", nullptr);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    for (auto _ : state)
    {
        unsigned char iv[16] = {};
        int n = 0, last = 0;
        EVP_EncryptInit_ex2(context, cipher, secret, iv, nullptr);
        EVP_EncryptUpdate(context, output.data(), &n, input.data(), static_cast<int>(kSize));
        EVP_EncryptFinal_ex(context, output.data() + n, &last);
        benchmark::DoNotOptimize(output.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSize);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
}
BENCHMARK(BM_OpenSslEvpEncrypt);

} // namespace

BENCHMARK_MAIN();
