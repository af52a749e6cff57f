// The demo's controller host: creates the command link, starts the peer program, and sends it XML
// commands that do real work on disk; shows a job rolled back half-way, a slow job supervised with a
// restarting time-out, and what a killed peer leaves behind: a time-out, an abandoned mutex, and no named
// object. Exits with 0 only when every step behaved as printed.
//   kordemo [WORKING-FOLDER]
#include <korutilitesbtracedef.h>
#include <velbtracetool.h>
#include <velcrc32.h>
#include <veldirhelper.h>
#include <velfilehelper.h>
#include <velpathconverter.h>
#include <velxmlcommandlink.h>
#include <velxmlhandler.h>

#include <boost/filesystem/operations.hpp>

#include <cstdio>
#include <string>

namespace fs = boost::filesystem;

namespace
{

int g_failures = 0;

// Prints one numbered line of the story; a step that did not behave as expected is marked and counted.
void Step(bool ok, const std::string& line)
{
    static int number = 0;
    std::printf("%2d. %s%s\n", ++number, line.c_str(), ok ? "" : "   <-- NOT AS EXPECTED");
    std::fflush(stdout);
    if (!ok)
        ++g_failures;
}

std::string Utf8(const std::wstring& text)
{
    return CVeLPathConverter::ToUtf8(CVeLPathConverter::FromWide(text));
}

std::string Describe(const CVeLResult<CVeLXMLCommand>& reply)
{
    if (!reply.IsSuccess())
        return "no reply (time-out)";
    return "status " + std::to_string(reply.GetValue().GetStatus()) + " \"" +
           Utf8(reply.GetValue().GetMessage()) + "\"";
}

CVeLXMLCommand PrepareJob(const fs::path& folder, bool failHalfWay)
{
    CVeLXMLCommand command(L"PrepareJob");
    command.AddText(L"folder", CVeLPathConverter::ToWide(folder));
    command.AddText(L"settings", L"[axis]\nfeed=1200\nspindle=8000\n");
    std::vector<unsigned char> key(32);
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<unsigned char>(0xA5 ^ (i * 29));
    command.AddBytes(L"key", key);
    command.AddBoolean(L"failHalfWay", failHalfWay);
    return command;
}

// Starts the peer beside this program; its process handle, or null.
HANDLE StartPeer(const fs::path& host, const std::wstring& link, const std::wstring& mutex)
{
    const fs::path peer = host.parent_path() / ("kordemo_peer" + host.extension().string());
    std::wstring commandLine = L"\"" + CVeLPathConverter::ToWide(peer) + L"\" " + link + L" " + mutex;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return nullptr;
    CloseHandle(process.hThread);
    return process.hProcess;
}

// True when the manifest records the CRC-32 the file has now.
bool ManifestMatches(const fs::path& folder)
{
    CVeLXMLHandler manifest(folder / "manifest.xml");
    std::wstring recorded;
    boost::shared_ptr<unsigned char> content;
    ULONG size = 0;
    if (!manifest.ReadXMLAttribute(L"manifest/file1", L"crc32", recorded) ||
        !CVeLFileHelper(folder / "settings.enc", false).ReadContent(content, size))
        return false;
    wchar_t hex[16];
    std::swprintf(hex, 16, L"%08lx", static_cast<unsigned long>(CVeLCRC32().GetCRC32(content.get(), size)));
    return recorded == hex;
}

bool NameIsGone(HANDLE opened)
{
    const bool gone = opened == nullptr && GetLastError() == ERROR_FILE_NOT_FOUND;
    if (opened != nullptr)
        CloseHandle(opened);
    return gone;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string pid = std::to_string(GetCurrentProcessId());
    const fs::path work = argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / ("kordemo-" + pid);
    const fs::path trace = fs::path(work.string() + ".trace");
    // The detail goes to a trace file beside the working folder unless the user chose an output; the peer
    // inherits the setting.
    if (!std::getenv("BTRACE_OUTPUT"))
    {
        SetEnvironmentVariableW(L"BTRACE_OUTPUT", CVeLPathConverter::ToWide(trace).c_str());
        BTraceReloadConfiguration();
    }
    CVeLBTraceTool::InitializeBTrace(std::string("kordemo"), "kordemo." + pid, 64,
                                     std::string("korutilities demo"));
    std::printf("kordemo: working folder %s, trace in %s\n", work.string().c_str(),
                std::getenv("BTRACE_OUTPUT") ? std::getenv("BTRACE_OUTPUT") : "(default)");
    if (!CVeLDirHelper(work, false).Create(false))
    {
        std::printf("kordemo: cannot create the working folder\n");
        return 1;
    }

    const std::wstring linkName = L"kordemo." + std::to_wstring(GetCurrentProcessId());
    const std::wstring mutexName = linkName + L".peer";
    {
        CVeLXMLCommandLink link(true, linkName);
        HANDLE peer = link.IsAvailable() ? StartPeer(fs::path(argv[0]), linkName, mutexName) : nullptr;
        Step(peer != nullptr, "host created link \"" + Utf8(linkName) + "\" and started the peer");

        const auto job = link.Request(PrepareJob(work / "job1", false), 10000);
        const bool prepared =
            job.IsSuccess() && job.GetValue().GetStatus() == 0 && fs::exists(work / "job1/settings.ini") &&
            fs::exists(work / "job1/settings.enc") && fs::exists(work / "job1/manifest.xml");
        Step(prepared,
             "PrepareJob job1: " + Describe(job) + "; settings.ini, settings.enc, manifest.xml on disk");
        Step(prepared && ManifestMatches(work / "job1"), "manifest.xml records the CRC-32 of settings.enc");

        const auto failed = link.Request(PrepareJob(work / "job2", true), 10000);
        Step(failed.IsSuccess() && failed.GetValue().GetStatus() != 0 && !fs::exists(work / "job2"),
             "PrepareJob job2, failing half-way: " + Describe(failed) + "; job2 is gone from disk");

        CVeLXMLCommand slow(L"SlowJob");
        slow.AddInteger(L"steps", 6);
        const auto slowReply = link.Request(slow, 10000);
        Step(slowReply.IsSuccess() && slowReply.GetValue().GetStatus() == 0,
             "SlowJob, 6 steps of 100 ms under a 300 ms time-out restarted by each step: " +
                 Describe(slowReply));

        // The peer holds its mutex from start; after it is killed the host gets the mutex abandoned.
        HANDLE mutex = CreateMutexW(nullptr, FALSE, mutexName.c_str());
        const auto hung = link.Request(CVeLXMLCommand(L"Calibrate"), 1000);
        Step(!hung.IsSuccess(),
             "Calibrate, which the peer never answers: " + Describe(hung) + " after 1000 ms");
        const bool killed =
            peer != nullptr && TerminateProcess(peer, 9) && WaitForSingleObject(peer, 5000) == WAIT_OBJECT_0;
        const DWORD taken = mutex != nullptr ? WaitForSingleObject(mutex, 5000) : WAIT_FAILED;
        Step(killed && taken == WAIT_ABANDONED_0,
             "host killed the peer; the mutex it held came back abandoned");
        if (taken == WAIT_ABANDONED_0 || taken == WAIT_OBJECT_0)
            ReleaseMutex(mutex);
        if (mutex != nullptr)
            CloseHandle(mutex);
        if (peer != nullptr)
            CloseHandle(peer);
    }
    const bool clean = NameIsGone(OpenEventW(SYNCHRONIZE, FALSE, (linkName + L".request").c_str())) &&
                       NameIsGone(OpenEventW(SYNCHRONIZE, FALSE, (linkName + L".reply").c_str())) &&
                       NameIsGone(OpenMutexW(SYNCHRONIZE, FALSE, mutexName.c_str())) &&
                       NameIsGone(OpenFileMappingW(FILE_MAP_READ, FALSE, linkName.c_str()));
    Step(clean,
         "link closed: no event, mutex or shared memory of the demo is left in the named-object namespace");

    const bool removed = CVeLDirHelper(work, false).Remove().IsSuccess() && !fs::exists(work);
    Step(removed, "working folder removed");
    std::printf("kordemo: %s\n",
                g_failures == 0 ? "every step behaved as shown" : "SOME STEPS DID NOT BEHAVE AS SHOWN");
    CVeLBTraceTool::ShutdownBTrace();
    return g_failures == 0 ? 0 : 1;
}
