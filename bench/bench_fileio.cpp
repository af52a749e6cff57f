// Copying a 256 MiB file with 64 KiB ReadFile/WriteFile calls through win32posix (the library's copy loop),
// beside "cp". The files live in /tmp and are removed at the end.
#include <win32posix.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::size_t kFileSize = 256u << 20;
constexpr DWORD kChunk = 64u << 10;

const std::string& SourcePath()
{
    static const std::string path = "/tmp/bench_fileio_src_" + std::to_string(getpid());
    return path;
}
const std::string TargetPath()
{
    return "/tmp/bench_fileio_dst_" + std::to_string(getpid());
}

void MakeSource()
{
    std::vector<char> block(1u << 20, 'x');
    std::ofstream out(SourcePath(), std::ios::binary);
    for (std::size_t written = 0; written < kFileSize; written += block.size())
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
}

std::wstring Wide(const std::string& s)
{
    return std::wstring(s.begin(), s.end());
}

void BM_ReadFileWriteFileCopy(benchmark::State& state)
{
    MakeSource();
    const std::wstring source = Wide(SourcePath()), target = Wide(TargetPath());
    std::vector<unsigned char> buffer(kChunk);
    for (auto _ : state)
    {
        HANDLE in = CreateFileW(source.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
        HANDLE out = CreateFileW(target.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD read = 0, written = 0;
        while (ReadFile(in, buffer.data(), kChunk, &read, nullptr) && read > 0)
            WriteFile(out, buffer.data(), read, &written, nullptr);
        CloseHandle(in);
        CloseHandle(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
    std::remove(TargetPath().c_str());
    std::remove(SourcePath().c_str());
}
BENCHMARK(BM_ReadFileWriteFileCopy)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_CpCopy(benchmark::State& state)
{
    MakeSource();
    const std::string command = "cp " + SourcePath() + " " + TargetPath();
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("cp failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
    std::remove(TargetPath().c_str());
    std::remove(SourcePath().c_str());
}
BENCHMARK(BM_CpCopy)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
