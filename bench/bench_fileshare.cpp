// Opening and closing a file through the Win32 layer beside open(2) + close(2), which a user would call
// instead on Linux: the price of the sharing check. CreateFileW with read access and FILE_SHARE_READ takes
// part in sharing; with FILE_READ_ATTRIBUTES only it does not, which isolates the layer's other costs. The
// "held" cases keep a second open of the file, so that the open set is never empty and never removed.
#include "velwin32.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{

const std::string& FilePath()
{
    static const std::string path = []
    {
        const std::string p = "/tmp/bench_fileshare_" + std::to_string(getpid()) + ".txt";
        std::FILE* f = std::fopen(p.c_str(), "w");
        std::fputs("x", f);
        std::fclose(f);
        return p;
    }();
    return path;
}

std::wstring WidePath()
{
    const std::string& narrow = FilePath();
    return std::wstring(narrow.begin(), narrow.end());
}

void OpenCloseWin32(benchmark::State& state, DWORD access, bool held)
{
    const std::wstring path = WidePath();
    HANDLE holder = held ? CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr)
                         : INVALID_HANDLE_VALUE;
    for (auto _ : state)
    {
        HANDLE h = CreateFileW(path.c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h == INVALID_HANDLE_VALUE)
            state.SkipWithError("CreateFileW failed");
        CloseHandle(h);
    }
    if (holder != INVALID_HANDLE_VALUE)
        CloseHandle(holder);
}

void BM_CreateFileCloseShared(benchmark::State& state)
{
    OpenCloseWin32(state, GENERIC_READ, false);
}

void BM_CreateFileCloseSharedHeld(benchmark::State& state)
{
    OpenCloseWin32(state, GENERIC_READ, true);
}

void BM_CreateFileCloseAttributesOnly(benchmark::State& state)
{
    OpenCloseWin32(state, FILE_READ_ATTRIBUTES, false);
}

void BM_OpenClose(benchmark::State& state)
{
    const std::string& path = FilePath();
    for (auto _ : state)
    {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            state.SkipWithError("open failed");
        close(fd);
    }
}

} // namespace

BENCHMARK(BM_OpenClose);
BENCHMARK(BM_CreateFileCloseAttributesOnly);
BENCHMARK(BM_CreateFileCloseShared);
BENCHMARK(BM_CreateFileCloseSharedHeld);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::remove(FilePath().c_str());
    return 0;
}
