// The file and directory helpers beside what a user would pick instead: CVeLFileHelper::Copy of a 256 MiB
// file beside "cp" and std::filesystem::copy_file, and CVeLDirHelper::Remove of a tree of 10,000 files
// beside std::filesystem::remove_all and "rm -rf". Wall-clock times, since cp and rm run as child processes.
// Everything lives under /tmp and is removed at the end.
#include "veldirhelper.h"
#include "velfilehelper.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

namespace sfs = std::filesystem;

constexpr std::size_t kFileSize = 256u << 20;
constexpr int kTreeFiles = 10000;
constexpr int kTreeFolders = 100;

sfs::path BenchRoot()
{
    static const sfs::path root = "/tmp/bench_fileops_" + std::to_string(getpid());
    return root;
}

const sfs::path& SourceFile()
{
    static const sfs::path path = []
    {
        sfs::create_directories(BenchRoot());
        const sfs::path file = BenchRoot() / "source.bin";
        std::vector<char> block(1u << 20);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(i * 2654435761u >> 13);
        std::ofstream out(file, std::ios::binary);
        for (std::size_t written = 0; written < kFileSize; written += block.size())
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
        return file;
    }();
    return path;
}

sfs::path Target()
{
    return BenchRoot() / "target.bin";
}

void Shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0)
        std::abort();
}

void BM_CopyFileHelper(benchmark::State& state)
{
    const sfs::path source = SourceFile();
    CVeLFileHelper helper(boost::filesystem::path(source.string()), false);
    for (auto _ : state)
        if (!helper.Copy(boost::filesystem::path(Target().string())))
            state.SkipWithError("copy failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_CopyCp(benchmark::State& state)
{
    const std::string command = "cp -f '" + SourceFile().string() + "' '" + Target().string() + "'";
    for (auto _ : state)
        Shell(command);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

void BM_CopyStdFilesystem(benchmark::State& state)
{
    const sfs::path source = SourceFile();
    for (auto _ : state)
        sfs::copy_file(source, Target(), sfs::copy_options::overwrite_existing);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFileSize));
}

// 10,000 small files spread over 100 folders, made fresh for each removal (outside the timing).
sfs::path MakeTree()
{
    const sfs::path tree = BenchRoot() / "tree";
    for (int folder = 0; folder < kTreeFolders; ++folder)
    {
        const sfs::path dir = tree / ("d" + std::to_string(folder));
        sfs::create_directories(dir);
        for (int file = 0; file < kTreeFiles / kTreeFolders; ++file)
            std::ofstream(dir / ("f" + std::to_string(file) + ".txt")) << "x";
    }
    return tree;
}

void BM_RemoveDirHelper(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        const sfs::path tree = MakeTree();
        CVeLDirHelper helper(boost::filesystem::path(tree.string()), false);
        state.ResumeTiming();
        if (!helper.Remove().IsSuccess())
            state.SkipWithError("remove failed");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTreeFiles);
}

void BM_RemoveStdFilesystem(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        const sfs::path tree = MakeTree();
        state.ResumeTiming();
        sfs::remove_all(tree);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTreeFiles);
}

void BM_RemoveRmRf(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        const std::string command = "rm -rf '" + MakeTree().string() + "'";
        state.ResumeTiming();
        Shell(command);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTreeFiles);
}

} // namespace

BENCHMARK(BM_CopyFileHelper)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_CopyCp)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_CopyStdFilesystem)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_RemoveDirHelper)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);
BENCHMARK(BM_RemoveStdFilesystem)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);
BENCHMARK(BM_RemoveRmRf)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    sfs::remove_all(BenchRoot(), ignored);
    return 0;
}
