// Hashing and packing beside what a user would run instead, in one run: CVeLSha256::HashFile of a 256 MiB
// file beside "sha256sum"; CVeLZlibPacker::Compress of the same file beside "gzip -6" and "pigz -6" (all
// cores); CVeLDirectoryPacker::Pack of a tree of 10,000 small files beside "zip -r -q". Wall-clock times,
// since the tools run as child processes. The file is text-like (compressible about 3:1, like logs and
// part programs). Everything lives under /tmp and is removed at the end.
#include "veldirectorypacker.h"
#include "velsha256.h"
#include "velzlibpacker.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

namespace
{

namespace sfs = std::filesystem;

constexpr std::size_t kFileSize = 256u << 20;
constexpr int kTreeFiles = 10000;
constexpr int kTreeFolders = 100;

sfs::path BenchRoot()
{
    static const sfs::path root = "/tmp/bench_hashpack_" + std::to_string(getpid());
    return root;
}

std::string TextBlock(std::size_t size, unsigned seed)
{
    static const char* words[] = {"spindle ",   "feed ", "axis ",    "tool ",   "G01 X12.5 Y-3.25 ",
                                  "M03 S1200 ", "\n",    "coolant ", "offset ", "probe "};
    std::mt19937 random(seed);
    std::string block;
    while (block.size() < size)
    {
        block += words[random() % 10];
        block += std::to_string(random() % 1000);
    }
    block.resize(size);
    return block;
}

const sfs::path& SourceFile()
{
    static const sfs::path path = []
    {
        sfs::create_directories(BenchRoot());
        const sfs::path file = BenchRoot() / "source.txt";
        std::ofstream out(file, std::ios::binary);
        for (std::size_t written = 0, i = 0; written < kFileSize; written += 1u << 20, ++i)
            out << TextBlock(1u << 20, static_cast<unsigned>(i));
        return file;
    }();
    return path;
}

const sfs::path& Tree()
{
    static const sfs::path path = []
    {
        const sfs::path tree = BenchRoot() / "tree";
        for (int i = 0; i < kTreeFiles; ++i)
        {
            const sfs::path folder = tree / ("folder" + std::to_string(i % kTreeFolders));
            sfs::create_directories(folder);
            std::ofstream(folder / ("file" + std::to_string(i) + ".txt"), std::ios::binary)
                << TextBlock(2000 + static_cast<std::size_t>(i % 7) * 1000, static_cast<unsigned>(i));
        }
        return tree;
    }();
    return path;
}

boost::filesystem::path B(const sfs::path& path)
{
    return boost::filesystem::path(path.string());
}

void Shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0)
        std::abort();
}

void SetBytes(benchmark::State& state, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

void BM_Sha256File(benchmark::State& state)
{
    CVeLSha256 sha;
    const boost::filesystem::path source = B(SourceFile()); // made before the timing starts
    for (auto _ : state)
        if (!sha.HashFile(source).IsSuccess())
            state.SkipWithError("hash failed");
    SetBytes(state, kFileSize);
}

void BM_Sha256sum(benchmark::State& state)
{
    const std::string command = "sha256sum " + SourceFile().string() + " >/dev/null";
    for (auto _ : state)
        Shell(command);
    SetBytes(state, kFileSize);
}

void BM_ZlibPackerCompress(benchmark::State& state)
{
    CVeLZlibPacker packer;
    for (auto _ : state)
        if (!packer.Compress(B(SourceFile()), B(BenchRoot() / "ours.gz"), 6))
            state.SkipWithError("compress failed");
    SetBytes(state, kFileSize);
}

void BM_Gzip6(benchmark::State& state)
{
    const std::string command =
        "gzip -6 -c " + SourceFile().string() + " > " + (BenchRoot() / "gzip.gz").string();
    for (auto _ : state)
        Shell(command);
    SetBytes(state, kFileSize);
}

void BM_Pigz6(benchmark::State& state)
{
    const std::string command =
        "pigz -6 -c " + SourceFile().string() + " > " + (BenchRoot() / "pigz.gz").string();
    for (auto _ : state)
        Shell(command);
    SetBytes(state, kFileSize);
}

void BM_DirectoryPack(benchmark::State& state)
{
    CVeLDirectoryPacker packer;
    Tree();
    for (auto _ : state)
        if (!packer.Pack(B(Tree()), B(BenchRoot() / "ours.zip")).IsSuccess())
            state.SkipWithError("pack failed");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTreeFiles);
}

void BM_ZipRecursive(benchmark::State& state)
{
    Tree();
    const std::string archive = (BenchRoot() / "zip.zip").string();
    const std::string command =
        "cd " + Tree().string() + " && rm -f " + archive + " && zip -r -q " + archive + " .";
    for (auto _ : state)
        Shell(command);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTreeFiles);
}

BENCHMARK(BM_Sha256File)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Sha256sum)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_ZlibPackerCompress)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_Gzip6)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_Pigz6)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_DirectoryPack)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ZipRecursive)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code error;
    sfs::remove_all(BenchRoot(), error);
    return 0;
}
