// The child program of the process tests. Its first argument names what it does:
//   args OUT ARG...    writes each ARG and then its working folder to OUT, each ended by a zero byte
//   env OUT NAME...    writes "NAME=value" (or "NAME" when unset) for each NAME to OUT, zero-ended
//   exit N             exits with N
//   sleep MS           sleeps MS milliseconds, then exits with 0
//   stubborn OUT MS    ignores the polite request to end (SIGTERM), writes OUT, then sleeps MS milliseconds
//   tree OUT N         starts N copies of "sleep 60000" through the library, writes their ids to OUT, one a
//                      line, and sleeps a minute
//   hold FILE OUT ARG... opens FILE and keeps it open, writes like "args", and sleeps a minute
// Output files are written under a temporary name and renamed, so a reader sees them whole.
#include <velprocesshelper.h>
#include <velwinapiwrapper.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace
{

void WriteWhole(const std::string& path, const std::string& content)
{
    const std::string temporary = path + ".part";
    {
        std::ofstream out(temporary, std::ios::binary);
        out << content;
    }
    std::rename(temporary.c_str(), path.c_str());
}

void Pause(long milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::string ArgumentsAndFolder(int first, int argc, char** argv)
{
    std::string content;
    for (int i = first; i < argc; ++i)
        content += std::string(argv[i]) + '\0';
    return content + std::filesystem::current_path().string() + '\0';
}

// This program's own file as the system names it (argv[0] may be relative or a bare name).
std::wstring OwnProgram()
{
    wchar_t name[32768];
    const DWORD n = CVeLWinAPIWrapper().WAPI_GetModuleFileName(nullptr, name, 32768);
    return std::wstring(name, n < 32768 ? n : 0);
}

int Tree(const std::string& out, int count)
{
    CVeLProcessHelper helper;
    VeLProcessStartInfo info;
    info.program = OwnProgram();
    info.arguments = {L"sleep", L"60000"};
    std::string ids;
    for (int i = 0; i < count; ++i)
    {
        std::shared_ptr<CVeLProcess> child = helper.Start(info);
        if (!child)
            return 2;
        ids += std::to_string(child->GetId()) + "\n";
    }
    WriteWhole(out, ids);
    Pause(60000);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "args" && argc > 2)
        WriteWhole(argv[2], ArgumentsAndFolder(3, argc, argv));
    else if (mode == "env" && argc > 2)
    {
        std::string content;
        for (int i = 3; i < argc; ++i)
        {
            const char* value = std::getenv(argv[i]);
            content += std::string(argv[i]) + (value ? std::string("=") + value : std::string()) + '\0';
        }
        WriteWhole(argv[2], content);
    }
    else if (mode == "exit" && argc > 2)
        return std::atoi(argv[2]);
    else if (mode == "sleep" && argc > 2)
        Pause(std::atol(argv[2]));
    else if (mode == "stubborn" && argc > 3)
    {
        std::signal(SIGTERM, SIG_IGN);
        WriteWhole(argv[2], "");
        Pause(std::atol(argv[3]));
    }
    else if (mode == "tree" && argc > 3)
        return Tree(argv[2], std::atoi(argv[3]));
    else if (mode == "hold" && argc > 3)
    {
        std::ifstream held(argv[2], std::ios::binary);
        WriteWhole(argv[3], ArgumentsAndFolder(4, argc, argv));
        Pause(60000);
    }
    else
        return 99;
    return 0;
}
