// Processes: starting a trivial program and waiting for its end through CVeLProcessHelper::Run, beside
// posix_spawn + waitpid (what a user would write without the library); and finding one process by name
// among a few hundred through CVeLProcessHelper::FindByName, beside running pgrep -x.
#include "velprocesshelper.h"

#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace fs = boost::filesystem;

namespace
{

pid_t Spawn(const std::string& program, std::vector<std::string> arguments, bool quiet = false)
{
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(&argument[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (quiet)
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0)
        pid = 0;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

void BM_LibraryStartAndWait(benchmark::State& state)
{
    CVeLProcessHelper helper;
    VeLProcessStartInfo info;
    info.program = "/bin/true";
    for (auto _ : state)
    {
        DWORD exitCode = 1;
        if (helper.Run(info, INFINITE, exitCode).GetValue() != ProcessStatusEnded || exitCode != 0)
            state.SkipWithError("run failed");
    }
}
BENCHMARK(BM_LibraryStartAndWait)->UseRealTime();

void BM_PosixSpawnAndWaitpid(benchmark::State& state)
{
    for (auto _ : state)
    {
        const pid_t pid = Spawn("/bin/true", {"true"});
        int status = 0;
        if (pid == 0 || waitpid(pid, &status, 0) != pid || status != 0)
            state.SkipWithError("spawn failed");
    }
}
BENCHMARK(BM_PosixSpawnAndWaitpid)->UseRealTime();

// A few hundred sleeping processes and one of a unique name among them, for the whole run.
struct Crowd
{
    std::vector<pid_t> pids;
    fs::path unique = fs::temp_directory_path() / "korbenchunique";
    Crowd()
    {
        fs::copy_file("/bin/sleep", unique, fs::copy_options::overwrite_existing);
        for (int i = 0; i < 300; ++i)
            pids.push_back(Spawn("/bin/sleep", {"sleep", "600"}));
        pids.push_back(Spawn(unique.string(), {"korbenchunique", "600"}));
    }
    ~Crowd()
    {
        for (pid_t pid : pids)
            if (pid != 0)
                kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
        boost::system::error_code error;
        fs::remove(unique, error);
    }
};

Crowd& TheCrowd()
{
    static Crowd crowd;
    return crowd;
}

void BM_LibraryFindByName(benchmark::State& state)
{
    TheCrowd();
    CVeLProcessHelper helper;
    std::vector<VeLProcessInfo> found;
    for (auto _ : state)
    {
        if (!helper.FindByName(L"KorBenchUnique", found) || found.size() != 1)
            state.SkipWithError("not found");
    }
}
BENCHMARK(BM_LibraryFindByName)->UseRealTime();

void BM_Pgrep(benchmark::State& state)
{
    TheCrowd();
    for (auto _ : state)
    {
        const pid_t pid = Spawn("/usr/bin/pgrep", {"pgrep", "-x", "korbenchunique"}, true);
        int status = 0;
        if (pid == 0 || waitpid(pid, &status, 0) != pid || status != 0)
            state.SkipWithError("pgrep failed");
    }
}
BENCHMARK(BM_Pgrep)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
