// How the library's cost per item grows with the work: each operation at three sizes, paired in the same
// run with what a user would use instead.
//   List:   CVeLDirHelper::GetTOC of a tree of files beside "find -type f" (output to /dev/null).
//   Copy:   CVeLDirHelper::Copy of a tree of 4 KiB files beside "cp -r".
//   Remove: CVeLDirHelper::Remove of a tree of empty files beside "rm -rf" (trees made outside the timing).
//   Path:   attribute reads by element path through CVeLXMLHandler beside the same walk on the parser's DOM.
//   CRC:    CVeLCRC32 beside libdeflate's libdeflate_crc32.
// Every pair is registered several rounds in a row (lib, tool, lib, tool, ...), so a ratio is read from
// neighbouring lines of one run. Wall-clock times, since the tools run as child processes. Trees live under
// /tmp and are removed at the end. KOR_SCALE_ROUNDS sets the rounds (default 3); KOR_SCALE_ONLY a prefix
// ("List", "Copy", ...) to run one family.
#include "veldirhelper.h"
#include "velcrc32.h"
#include "velxmlcharconverter.h"
#include "velxmlhandler.h"

#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <xercesc/dom/DOM.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace
{

namespace sfs = std::filesystem;
using namespace XERCES_CPP_NAMESPACE;

constexpr int kFilesPerFolder = 100;

// KOR_SCALE_DIR names a folder that keeps its trees between runs (for profiling); by default a folder of
// this run is used and removed at the end.
const char* KeptRoot()
{
    return std::getenv("KOR_SCALE_DIR");
}

sfs::path BenchRoot()
{
    static const sfs::path root =
        KeptRoot() ? sfs::path(KeptRoot()) : sfs::path("/tmp/bench_scale_" + std::to_string(getpid()));
    return root;
}

void Shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0)
        std::abort();
}

// A tree of files in folders of kFilesPerFolder, each file fileBytes long; made once per (files, bytes).
const sfs::path& Tree(int files, std::size_t fileBytes)
{
    static std::map<std::pair<int, std::size_t>, sfs::path> made;
    auto found = made.find({files, fileBytes});
    if (found != made.end())
        return found->second;
    const sfs::path root = BenchRoot() / ("tree_" + std::to_string(files) + "_" + std::to_string(fileBytes));
    if (KeptRoot() && sfs::exists(root))
        return made.emplace(std::make_pair(files, fileBytes), root).first->second;
    const std::string content(fileBytes, 'k');
    for (int i = 0; i < files; ++i)
    {
        const sfs::path folder = root / ("d" + std::to_string(i / kFilesPerFolder));
        if (i % kFilesPerFolder == 0)
            sfs::create_directories(folder);
        std::ofstream(folder / ("file" + std::to_string(i) + ".dat"), std::ios::binary) << content;
    }
    return made.emplace(std::make_pair(files, fileBytes), root).first->second;
}

// Processor time (user and system) of this process or of its ended children. On a machine shared with
// other work, wall-clock time mostly measures waiting: the "cpu_us" counter (processor microseconds per
// item, the tool's own for the tools) is the figure to compare.
double CpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct CpuMeter
{
    double seconds = 0;
    template <typename Work>
    void Measure(int who, Work&& work)
    {
        const double before = CpuSeconds(who);
        work();
        seconds += CpuSeconds(who) - before;
    }
};

void SetItems(benchmark::State& state, int64_t perIteration, const CpuMeter& cpu)
{
    const double items = static_cast<double>(state.iterations()) * static_cast<double>(perIteration);
    state.SetItemsProcessed(static_cast<int64_t>(items));
    state.counters["cpu_us"] = cpu.seconds * 1e6 / items;
}

void ListLibrary(benchmark::State& state, int files)
{
    CVeLDirHelper dir(Tree(files, 0).string(), false);
    std::vector<boost::filesystem::path> toc;
    CpuMeter cpu;
    for (auto _ : state)
        cpu.Measure(RUSAGE_SELF,
                    [&]
                    {
                        if (!dir.GetTOC(toc) || toc.size() != static_cast<std::size_t>(files))
                            state.SkipWithError("GetTOC failed");
                    });
    SetItems(state, files, cpu);
}

void ListFind(benchmark::State& state, int files)
{
    const std::string command = "find " + Tree(files, 0).string() + " -type f > /dev/null";
    CpuMeter cpu;
    for (auto _ : state)
        cpu.Measure(RUSAGE_CHILDREN, [&] { Shell(command); });
    SetItems(state, files, cpu);
}

const sfs::path& CopyTarget()
{
    static const sfs::path target = BenchRoot() / "copy_target";
    return target;
}

void CopyLibrary(benchmark::State& state, int files)
{
    CVeLDirHelper dir(Tree(files, 4096).string(), false);
    CpuMeter cpu;
    for (auto _ : state)
    {
        cpu.Measure(RUSAGE_SELF,
                    [&]
                    {
                        if (!dir.Copy(CopyTarget().string()))
                            state.SkipWithError("Copy failed");
                    });
        state.PauseTiming();
        sfs::remove_all(CopyTarget());
        state.ResumeTiming();
    }
    SetItems(state, files, cpu);
}

void CopyCp(benchmark::State& state, int files)
{
    const std::string command = "cp -r " + Tree(files, 4096).string() + " " + CopyTarget().string();
    CpuMeter cpu;
    for (auto _ : state)
    {
        cpu.Measure(RUSAGE_CHILDREN, [&] { Shell(command); });
        state.PauseTiming();
        sfs::remove_all(CopyTarget());
        state.ResumeTiming();
    }
    SetItems(state, files, cpu);
}

// A fresh copy of the empty-file tree to be deleted, made outside the timing.
sfs::path Victim(benchmark::State& state, int files)
{
    const sfs::path victim = BenchRoot() / "victim";
    state.PauseTiming();
    Shell("cp -r " + Tree(files, 0).string() + " " + victim.string());
    state.ResumeTiming();
    return victim;
}

void RemoveLibrary(benchmark::State& state, int files)
{
    CpuMeter cpu;
    for (auto _ : state)
    {
        CVeLDirHelper victim(Victim(state, files).string(), false);
        cpu.Measure(RUSAGE_SELF,
                    [&]
                    {
                        if (!victim.Remove().IsSuccess())
                            state.SkipWithError("Remove failed");
                    });
    }
    SetItems(state, files, cpu);
}

void RemoveRmRf(benchmark::State& state, int files)
{
    CpuMeter cpu;
    for (auto _ : state)
    {
        const std::string command = "rm -rf " + Victim(state, files).string();
        cpu.Measure(RUSAGE_CHILDREN, [&] { Shell(command); });
    }
    SetItems(state, files, cpu);
}

// A settings document of groups of entries; reads visit every tenth group's last entry.
std::wstring SettingsDocument(int groups)
{
    std::wstring doc = L"<?xml version=\"1.0\"?>\n<Root><Settings>";
    for (int g = 0; g < groups; ++g)
    {
        doc += L"<G" + std::to_wstring(g) + L">";
        for (int e = 0; e < 8; ++e)
            doc += L"<E" + std::to_wstring(e) + L" value=\"" + std::to_wstring(g * 8 + e) + L"\"/>";
        doc += L"</G" + std::to_wstring(g) + L">";
    }
    return doc + L"</Settings></Root>";
}

constexpr int kGroups = 100;

std::vector<std::wstring> ReadPaths()
{
    std::vector<std::wstring> paths;
    for (int g = 0; g < kGroups; ++g)
        paths.push_back(L"Root/Settings/G" + std::to_wstring(g) + L"/E7");
    return paths;
}

void PathLibrary(benchmark::State& state, int reads)
{
    CVeLXMLHandler handler{SettingsDocument(kGroups)};
    const std::vector<std::wstring> paths = ReadPaths();
    std::wstring value;
    for (auto _ : state)
        for (int i = 0; i < reads; ++i)
            benchmark::DoNotOptimize(handler.ReadXMLAttribute(paths[i % kGroups], L"value", value));
    // In-process work: the CPU column is the figure to compare.
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * reads);
}

// The first child element of parent with the tag name, by the DOM's own element links.
DOMElement* ChildNamed(DOMElement* parent, const XMLCh* name)
{
    DOMElement* child = parent->getFirstElementChild();
    while (child != nullptr && !XMLString::equals(child->getTagName(), name))
        child = child->getNextElementSibling();
    return child;
}

void PathDom(benchmark::State& state, int reads)
{
    CVeLXMLHandler handler{SettingsDocument(kGroups)};
    DOMElement* root = nullptr;
    handler.GetDOMBranch(L"Root", root);
    std::vector<std::u16string> groups;
    for (int g = 0; g < kGroups; ++g)
    {
        const std::string digits = std::to_string(g);
        groups.push_back(u"G" + std::u16string(digits.begin(), digits.end()));
    }
    std::wstring value;
    for (auto _ : state)
        for (int i = 0; i < reads; ++i)
        {
            DOMElement* group = ChildNamed(ChildNamed(root, u"Settings"), groups[i % kGroups].c_str());
            value = CVeLXMLCharConverter::ToWString(ChildNamed(group, u"E7")->getAttribute(u"value"));
            benchmark::DoNotOptimize(value);
        }
    // In-process work: the CPU column is the figure to compare.
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * reads);
}

std::vector<unsigned char> RandomBytes(std::size_t size)
{
    std::vector<unsigned char> data(size);
    std::generate(data.begin(), data.end(),
                  [random = std::mt19937(11)]() mutable
                  { return static_cast<unsigned char>(random() >> 7); });
    return data;
}

void CrcLibrary(benchmark::State& state, int bytes)
{
    const auto data = RandomBytes(static_cast<std::size_t>(bytes));
    CVeLCRC32 crc;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc.GetCRC32(data.data(), static_cast<ULONG>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

void CrcLibdeflate(benchmark::State& state, int bytes)
{
    const auto data = RandomBytes(static_cast<std::size_t>(bytes));
    for (auto _ : state)
        benchmark::DoNotOptimize(libdeflate_crc32(0, data.data(), data.size()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

using Run = void (*)(benchmark::State&, int);

struct Family
{
    const char* name;
    Run library;
    Run tool;
    const char* toolName;
    std::vector<int> sizes;
    int iterations; // 0: let the framework choose
};

void Register(const Family& family, int rounds)
{
    for (int size : family.sizes)
        for (int round = 1; round <= rounds; ++round)
            for (const auto& [who, run] :
                 {std::make_pair("library", family.library), std::make_pair(family.toolName, family.tool)})
            {
                const std::string name = std::string(family.name) + "/" + who + "/" + std::to_string(size) +
                                         "/round:" + std::to_string(round);
                auto* bench = benchmark::RegisterBenchmark(name.c_str(), run, size);
                bench->Unit(benchmark::kMillisecond)->UseRealTime();
                if (family.iterations > 0)
                    bench->Iterations(family.iterations);
            }
}

} // namespace

int main(int argc, char** argv)
{
    const char* roundsText = std::getenv("KOR_SCALE_ROUNDS");
    const int rounds = roundsText ? std::max(1, std::atoi(roundsText)) : 3;
    const char* only = std::getenv("KOR_SCALE_ONLY");
    const std::vector<Family> families = {
        {"List", ListLibrary, ListFind, "find", {10000, 100000, 300000}, 3},
        {"Copy", CopyLibrary, CopyCp, "cp-r", {1000, 10000}, 2},
        {"Remove", RemoveLibrary, RemoveRmRf, "rm-rf", {1000, 10000, 30000}, 2},
        {"Path", PathLibrary, PathDom, "dom", {1000, 10000, 100000}, 0},
        {"CRC", CrcLibrary, CrcLibdeflate, "libdeflate", {100 << 10, 1 << 20, 10 << 20}, 0},
    };
    for (const Family& family : families)
        if (!only || std::string(family.name).rfind(only, 0) == 0)
            Register(family, rounds);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    if (!KeptRoot())
        sfs::remove_all(BenchRoot(), ignored);
    return 0;
}
