// INI reads: CVeLIniFile::GetString of one key beside what a user would write instead, a plain
// std::ifstream scan of the file for "[section]" and "key=". Each iteration is one read of one key from a
// settings file of 40 sections of 10 keys, the key in the last section. Reads go through the profile
// operations, which on Linux keep the parsed file and check with one stat per read that it is unchanged;
// the file is dated a minute back so that the reads measure that kept file, not the re-parse of a file
// changed moments ago.
#include "velinifile.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <ctime>
#include <fstream>
#include <string>

namespace fs = boost::filesystem;

namespace
{

struct SettingsFile
{
    SettingsFile() : path(fs::temp_directory_path() / fs::unique_path("bench-ini-%%%%-%%%%.ini"))
    {
        std::ofstream out(path.string(), std::ios::binary);
        for (int section = 0; section < 40; ++section)
        {
            out << "[Section" << section << "]\r\n";
            for (int key = 0; key < 10; ++key)
                out << "Key" << key << "=value of key " << key << " in section " << section << "\r\n";
        }
        out.close();
        // A file changed in the last two seconds is parsed again on every read (its time stamp can't tell
        // a second change in the same tick); dated back, it is the settled file a program reads.
        fs::last_write_time(path, std::time(nullptr) - 60);
    }
    ~SettingsFile()
    {
        boost::system::error_code ignored;
        fs::remove(path, ignored);
    }
    fs::path path;
};

// Case-sensitive and without comment or quote rules: less than the INI rules ask, which favours it.
std::string ScanWithIfstream(const std::string& path, const std::string& section, const std::string& key)
{
    std::ifstream in(path, std::ios::binary);
    std::string line;
    bool inSection = false;
    while (std::getline(in, line))
    {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line[0] == '[')
            inSection = line == "[" + section + "]";
        else if (inSection && line.compare(0, key.size(), key) == 0 && line.size() > key.size() &&
                 line[key.size()] == '=')
            return line.substr(key.size() + 1);
    }
    return std::string();
}

void BM_IniFileGetString(benchmark::State& state)
{
    SettingsFile file;
    CVeLIniFile ini(file.path);
    for (auto _ : state)
        benchmark::DoNotOptimize(ini.GetString(L"Section39", L"Key9", L""));
}
BENCHMARK(BM_IniFileGetString)->Iterations(100000);

void BM_IfstreamScan(benchmark::State& state)
{
    SettingsFile file;
    for (auto _ : state)
        benchmark::DoNotOptimize(ScanWithIfstream(file.path.string(), "Section39", "Key9"));
}
BENCHMARK(BM_IfstreamScan)->Iterations(100000);

} // namespace

BENCHMARK_MAIN();
