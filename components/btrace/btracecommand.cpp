// Trace commands between processes: the host's back-end thread and the client calls of a command tool.
//
// A host with a ring creates, from its segment name S, the named kernel objects "S.AccessMutex" (one
// client at a time), "S.MemReq" (auto-reset: a request is waiting) and "S.MemRsp" (auto-reset: the answer
// is ready), and per registered module i "S.LibID=<ii>" and "S.Mutex.<i>" (held while module i's level
// changes). Named objects exist exactly while a process holds them, so "S.MemReq" existing means a live
// host: a second host with the same segment name is refused, and a client that cannot open
// "S.AccessMutex" knows nobody is running.
//
// The back-end thread sleeps on "S.MemReq" without a time-out (no polling), reads the request from the
// command block of the segment, answers in the same block with the request's sequence number and signals
// "S.MemRsp". A client holds "S.AccessMutex", writes the request through the segment file, signals, and
// waits for the answer that carries its own sequence number, so a late answer to an abandoned request is
// never taken for its own.
#include "btrace.h"
#include "btraceinternal.h"
#include "btraceplatform.h"
#include "btracering.h"
#include "btracewin32.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

namespace btrace_detail
{

namespace
{

constexpr DWORD kClientTimeoutMs = 10000;

std::wstring Wide(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0)
        return std::wstring();
    std::wstring out(static_cast<std::size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], n);
    return out;
}

std::string ModuleObjectName(const std::string& segment, unsigned index, bool mutex)
{
    char pattern[300];
    char name[320];
    if (mutex)
    {
        std::snprintf(name, sizeof name, "%s.Mutex.%d", segment.c_str(), static_cast<int>(index));
        return name;
    }
    std::snprintf(pattern, sizeof pattern, "%s.LibID=%%02d", segment.c_str());
    std::snprintf(name, sizeof name, pattern, static_cast<int>(index));
    return name;
}

// Owns one kernel handle.
struct Handle
{
    HANDLE h = nullptr;
    Handle() = default;
    explicit Handle(HANDLE handle) : h(handle) {}
    ~Handle() { Reset(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : h(other.h) { other.h = nullptr; }
    Handle& operator=(Handle&& other) noexcept
    {
        if (this != &other)
        {
            Reset(other.h);
            other.h = nullptr;
        }
        return *this;
    }
    void Reset(HANDLE handle = nullptr)
    {
        if (h != nullptr)
            CloseHandle(h);
        h = handle;
    }
};

struct Host
{
    std::mutex lock; // guards every field below
    std::string segment;
    Handle access;
    Handle request;
    Handle response;
    std::vector<Handle> moduleObjects; // LibID event and Mutex per module, in module order
    std::vector<HANDLE> moduleMutexes;
    std::thread thread;
    bool running = false;
    bool stop = false; // read by the thread after each wake-up, under lock
};

Host& TheHost()
{
    static Host* host = new Host(); // never destroyed: the thread may outlive static destruction
    return *host;
}

void Answer(CommandBlock& c, std::int32_t status, const std::string& text)
{
    const std::size_t n = text.size() < sizeof c.response - 1 ? text.size() : sizeof c.response - 1;
    std::memcpy(c.response, text.data(), n);
    c.response[n] = '\0';
    c.responseBytes = static_cast<std::uint32_t>(n);
    c.status = status;
}

void Execute(CommandBlock& c)
{
    char module[sizeof c.module + 1];
    std::memcpy(module, c.module, sizeof c.module);
    module[sizeof c.module] = '\0';
    switch (c.op)
    {
    case kCommandListModules:
    {
        std::string text;
        for (const BTraceModuleLevel& m : BTraceListModules())
            text += m.name + " " + std::to_string(m.level) + "\n"; // numbers: "1"-"3" are also names
        Answer(c, 0, text);
        break;
    }
    case kCommandSetLevel:
    {
        BTraceModule* target = BTraceFindModule(module);
        if (target == nullptr || c.level > 9)
        {
            Answer(c, 1,
                   target == nullptr ? std::string("no module '") + module + "'" : "level out of range");
            break;
        }
        HANDLE guard = nullptr;
        const auto modules =
            BTraceListModules(); // before the host lock: registration takes them the other way
        {
            Host& host = TheHost();
            std::lock_guard<std::mutex> hostGuard(host.lock);
            for (std::size_t i = 0; i < modules.size() && i < host.moduleMutexes.size(); ++i)
                if (modules[i].name == module)
                    guard = host.moduleMutexes[i];
        }
        const bool locked = guard != nullptr && WaitForSingleObject(guard, kClientTimeoutMs) != WAIT_TIMEOUT;
        BTraceSetLevel(target, static_cast<unsigned char>(c.level));
        if (locked)
            ReleaseMutex(guard);
        Answer(c, 0, "");
        break;
    }
    case kCommandDump:
    {
        char path[sizeof c.path + 1];
        std::memcpy(path, c.path, sizeof c.path);
        path[sizeof c.path] = '\0';
        std::string error;
        const bool ok = BTraceDump(path, error);
        Answer(c, ok ? 0 : 1, error);
        break;
    }
    default:
        Answer(c, 1, "unknown command");
        break;
    }
}

void ThreadMain(HANDLE request, HANDLE response)
{
    Host& host = TheHost();
    for (;;)
    {
        if (WaitForSingleObject(request, INFINITE) == WAIT_FAILED)
            return;
        {
            std::lock_guard<std::mutex> guard(host.lock);
            if (host.stop)
                return;
        }
        SegmentHeader* header = RingHeader();
        if (header == nullptr)
            continue;
        CommandBlock& c = header->command;
        const std::uint32_t seq = c.requestSeq.load(std::memory_order_acquire);
        if (seq == c.responseSeq.load(std::memory_order_relaxed))
            continue; // nothing new
        RingUpdateCalibration();
        Execute(c);
        c.responseSeq.store(seq, std::memory_order_release);
        SetEvent(response);
    }
}

void AddModuleObjectsLocked(Host& host, unsigned index)
{
    HANDLE id =
        CreateEventW(nullptr, TRUE, FALSE, Wide(ModuleObjectName(host.segment, index, false)).c_str());
    HANDLE mutex = CreateMutexW(nullptr, FALSE, Wide(ModuleObjectName(host.segment, index, true)).c_str());
    host.moduleObjects.emplace_back(id);
    host.moduleObjects.emplace_back(mutex);
    host.moduleMutexes.push_back(mutex);
}

std::string ObjectName(const std::string& segment, const char* suffix)
{
    return segment + suffix;
}

} // namespace

bool CommandStart(const std::string& segment, unsigned moduleCount, std::string& error)
{
    Host& host = TheHost();
    std::lock_guard<std::mutex> guard(host.lock);
    if (host.running)
    {
        error = "trace commands already running";
        return false;
    }
    Handle request(CreateEventW(nullptr, FALSE, FALSE, Wide(ObjectName(segment, ".MemReq")).c_str()));
    const DWORD created = GetLastError();
    if (request.h == nullptr || created == ERROR_ALREADY_EXISTS)
    {
        error = request.h == nullptr
                    ? "cannot create the command objects (error " + std::to_string(created) + ")"
                    : "segment '" + segment + "' is in use by another process";
        return false;
    }
    Handle response(CreateEventW(nullptr, FALSE, FALSE, Wide(ObjectName(segment, ".MemRsp")).c_str()));
    Handle access(CreateMutexW(nullptr, FALSE, Wide(ObjectName(segment, ".AccessMutex")).c_str()));
    if (response.h == nullptr || access.h == nullptr)
    {
        error = "cannot create the command objects (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    host.segment = segment;
    host.request = std::move(request);
    host.response = std::move(response);
    host.access = std::move(access);
    host.stop = false;
    host.moduleObjects.clear();
    host.moduleMutexes.clear();
    for (unsigned i = 0; i < moduleCount; ++i)
        AddModuleObjectsLocked(host, i);
    host.thread = std::thread(ThreadMain, host.request.h, host.response.h);
    host.running = true;
    return true;
}

void CommandModuleAdded(unsigned index)
{
    Host& host = TheHost();
    std::lock_guard<std::mutex> guard(host.lock);
    if (host.running && index == host.moduleMutexes.size())
        AddModuleObjectsLocked(host, index);
}

void CommandStop()
{
    Host& host = TheHost();
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(host.lock);
        if (!host.running)
            return;
        host.stop = true;
        host.running = false;
        thread = std::move(host.thread);
        SetEvent(host.request.h);
    }
    thread.join(); // outside the lock: the thread takes it after waking
    std::lock_guard<std::mutex> guard(host.lock);
    host.request.Reset();
    host.response.Reset();
    host.access.Reset();
    host.moduleObjects.clear();
    host.moduleMutexes.clear();
}

// --- Client ------------------------------------------------------------------------------------------

bool SegmentPath(const std::string& segment, std::string& path, std::string& error)
{
    const std::string name = SegmentFileName(segment);
    std::string folder;
    if (name.empty())
    {
        error = "segment name is empty or too long";
        return false;
    }
    if (!btrace_platform::SegmentFolder(folder, error))
        return false;
    path = folder + "/" + name;
    return true;
}

namespace
{

const std::uint64_t kCommandBase = offsetof(SegmentHeader, command);

// Writes the request into the command block, the sequence number last so that the traced process sees a
// complete request; seq becomes the number the answer must carry.
bool WriteRequest(const std::string& path, std::uint32_t op, const std::string& module, unsigned level,
                  const std::string& argument, std::uint32_t& seq, std::string& error)
{
    CommandBlock block;
    if (!btrace_platform::ReadSegmentAt(path, kCommandBase + offsetof(CommandBlock, requestSeq), &seq,
                                        sizeof seq, error))
        return false;
    ++seq;
    std::memset(block.module, 0, sizeof block.module);
    std::memset(block.path, 0, sizeof block.path);
    if (module.size() >= sizeof block.module || argument.size() >= sizeof block.path)
    {
        error = "argument too long";
        return false;
    }
    std::memcpy(block.module, module.data(), module.size());
    std::memcpy(block.path, argument.data(), argument.size());
    block.op = op;
    block.level = level;
    return btrace_platform::WriteSegmentAt(path, kCommandBase + offsetof(CommandBlock, op), &block.op,
                                           sizeof block.op, error) &&
           btrace_platform::WriteSegmentAt(path, kCommandBase + offsetof(CommandBlock, level), &block.level,
                                           sizeof block.level, error) &&
           btrace_platform::WriteSegmentAt(path, kCommandBase + offsetof(CommandBlock, module), block.module,
                                           sizeof block.module + sizeof block.path, error) &&
           btrace_platform::WriteSegmentAt(path, kCommandBase + offsetof(CommandBlock, requestSeq), &seq,
                                           sizeof seq, error);
}

// Waits until the answer event comes with the response sequence number seq, within the client time-out.
bool AwaitAnswer(const std::string& path, HANDLE answer, std::uint32_t seq, std::string& error)
{
    const std::uint64_t deadline = btrace_platform::MonotonicNs() + kClientTimeoutMs * 1000000ull;
    for (;;)
    {
        const std::uint64_t now = btrace_platform::MonotonicNs();
        if (now >= deadline ||
            WaitForSingleObject(answer, static_cast<DWORD>((deadline - now) / 1000000 + 1)) == WAIT_TIMEOUT)
        {
            error = "the traced process did not answer";
            return false;
        }
        std::uint32_t answered = 0;
        if (!btrace_platform::ReadSegmentAt(path, kCommandBase + offsetof(CommandBlock, responseSeq),
                                            &answered, sizeof answered, error))
            return false;
        if (answered == seq)
            return true;
    }
}

// The status and text of the answer: the text is the response, or the error when the status is not 0.
bool ReadAnswer(const std::string& path, std::string& response, std::string& error)
{
    std::int32_t status = 0;
    constexpr std::size_t kResponseSize = sizeof(CommandBlock::response);
    std::vector<char> text(kResponseSize + 1, '\0');
    if (!btrace_platform::ReadSegmentAt(path, kCommandBase + offsetof(CommandBlock, status), &status,
                                        sizeof status, error) ||
        !btrace_platform::ReadSegmentAt(path, kCommandBase + offsetof(CommandBlock, response), text.data(),
                                        kResponseSize, error))
        return false;
    text[kResponseSize] = '\0';
    if (status != 0)
    {
        error = text.data();
        return false;
    }
    response = text.data();
    return true;
}

} // namespace

bool RemoteCall(const std::string& segment, std::uint32_t op, const std::string& module, unsigned level,
                const std::string& argument, std::string& response, std::string& error)
{
    std::string path;
    if (!SegmentPath(segment, path, error))
        return false;
    Handle access(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE,
                             Wide(ObjectName(segment, ".AccessMutex")).c_str()));
    if (access.h == nullptr)
    {
        error = "no running process with trace segment '" + segment + "'";
        return false;
    }
    const DWORD waited = WaitForSingleObject(access.h, kClientTimeoutMs);
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED)
    {
        error = "the trace segment is busy";
        return false;
    }
    struct Release
    {
        HANDLE h;
        ~Release() { ReleaseMutex(h); }
    } release{access.h};
    Handle request(OpenEventW(EVENT_MODIFY_STATE, FALSE, Wide(ObjectName(segment, ".MemReq")).c_str()));
    Handle answer(OpenEventW(SYNCHRONIZE, FALSE, Wide(ObjectName(segment, ".MemRsp")).c_str()));
    if (request.h == nullptr || answer.h == nullptr)
    {
        error = "no running process with trace segment '" + segment + "'";
        return false;
    }
    std::uint32_t seq = 0;
    if (!WriteRequest(path, op, module, level, argument, seq, error))
        return false;
    SetEvent(request.h);
    return AwaitAnswer(path, answer.h, seq, error) && ReadAnswer(path, response, error);
}

} // namespace btrace_detail

using namespace btrace_detail;

bool BTraceRemoteListModules(const std::string& segment, std::vector<BTraceModuleLevel>& modules,
                             std::string& error)
{
    std::string text;
    if (!RemoteCall(segment, kCommandListModules, "", 0, "", text, error))
        return false;
    modules.clear();
    std::size_t start = 0;
    while (start < text.size())
    {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(start, end - start);
        const std::size_t space = line.rfind(' ');
        if (space != std::string::npos)
        {
            const int level = BTraceParseLevel(line.substr(space + 1).c_str());
            modules.push_back(
                BTraceModuleLevel{line.substr(0, space), level < 0 ? 0u : static_cast<unsigned>(level)});
        }
        start = end + 1;
    }
    return true;
}

bool BTraceRemoteSetLevel(const std::string& segment, const std::string& module, unsigned level,
                          std::string& error)
{
    if (level > 9 || module.empty())
    {
        error = "Invalid parameter";
        return false;
    }
    std::string ignored;
    return RemoteCall(segment, kCommandSetLevel, module, level, "", ignored, error);
}

bool BTraceRemoteDump(const std::string& segment, const std::string& path, std::string& error)
{
    std::error_code ec;
    const std::string absolute = std::filesystem::absolute(path, ec).string();
    if (ec || path.empty())
    {
        error = "Invalid parameter";
        return false;
    }
    std::string ignored;
    return RemoteCall(segment, kCommandDump, "", 0, absolute, ignored, error);
}

bool BTraceSegmentAlive(const std::string& segment)
{
    Handle access(OpenMutexW(SYNCHRONIZE, FALSE, Wide(segment + ".AccessMutex").c_str()));
    return access.h != nullptr;
}

bool BTraceSegmentFilePath(const std::string& segment, std::string& path, std::string& error)
{
    return SegmentPath(segment, path, error);
}
