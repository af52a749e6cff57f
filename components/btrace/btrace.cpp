// Module registry, configuration, text output, capture and the message entry point of the trace back-end;
// the shared ring, the trace commands and the platform pieces are in their own files.
#include "btrace.h"
#include "btraceplatform.h"
#include "btracering.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>

struct BTraceCapture::State
{
    mutable std::mutex lock; // guards records
    std::vector<BTraceRecord> records;
};

namespace
{

const char* const kLevelNames[] = {"OFF", "SYS_ERR", "SYS_WRN", "SYS_MSG", "ERR",
                                   "WRN", "INF",     "1",       "2",       "3"};
constexpr unsigned char kDefaultLevel = BTRACE_WRN;

struct OwnedModule
{
    explicit OwnedModule(const char* n, unsigned char level) : name(n), module(name.c_str(), level) {}
    std::string name;
    BTraceModule module;
};

struct Backend
{
    std::mutex registryLock;                         // guards modules, registered, config fields and init
    BTraceModule* modules = nullptr;                 // every known module (chain through next)
    std::vector<BTraceModule*> order;                // the same modules, in the order they became known
    std::vector<std::string> registered;             // names registered with BTraceRegisterModule, in order
    std::vector<std::unique_ptr<OwnedModule>> owned; // records created by BTraceRegisterModule
    bool configured = false;
    std::atomic<bool> ready{false};          // configured at least once; read without the lock
    std::atomic<bool> outputExplicit{false}; // BTRACE_OUTPUT is set: text output also while a ring is active
    unsigned char startLevel = kDefaultLevel;
    BTraceInitInfo init;

    std::mutex sinkLock;       // guards sink, captures; one line is written under it
    std::FILE* sink = nullptr; // null means stderr
    std::vector<BTraceCapture::State*> captures;
    std::atomic<bool> anyCapture{false};
};

Backend& TheBackend()
{
    static Backend* backend = new Backend; // never destroyed: messages may be emitted during exit
    return *backend;
}

// Reads BTRACE_LEVEL and BTRACE_OUTPUT. Caller holds registryLock.
void ConfigureLocked(Backend& b)
{
    b.configured = true;
    b.startLevel = kDefaultLevel;
    if (const char* level = std::getenv("BTRACE_LEVEL"))
    {
        int parsed = BTraceParseLevel(level);
        if (parsed >= 0)
            b.startLevel = static_cast<unsigned char>(parsed);
    }
    std::FILE* sink = nullptr;
    const char* output = std::getenv("BTRACE_OUTPUT");
    b.outputExplicit.store(output != nullptr && *output != '\0', std::memory_order_relaxed);
    if (output != nullptr && *output != '\0' && std::strcmp(output, "stderr") != 0)
    {
        sink = std::fopen(output, "a");
        if (sink == nullptr)
            std::fprintf(stderr, "btrace: cannot open BTRACE_OUTPUT file '%s', tracing to stderr\n", output);
    }
    std::lock_guard<std::mutex> sinkGuard(b.sinkLock);
    if (b.sink != nullptr)
        std::fclose(b.sink);
    b.sink = sink;
}

Backend& ConfiguredBackend()
{
    Backend& b = TheBackend();
    if (b.ready.load(std::memory_order_acquire))
        return b;
    std::lock_guard<std::mutex> guard(b.registryLock);
    if (!b.configured)
        ConfigureLocked(b);
    b.ready.store(true, std::memory_order_release);
    return b;
}

void LinkLocked(Backend& b, BTraceModule* m)
{
    for (BTraceModule* p = b.modules; p != nullptr; p = p->next)
        if (p == m)
            return;
    m->next = b.modules;
    b.modules = m;
    b.order.push_back(m);
    btrace_detail::CommandModuleAdded(static_cast<unsigned>(b.order.size() - 1));
}

BTraceModule* FindLocked(Backend& b, const char* name)
{
    for (BTraceModule* p = b.modules; p != nullptr; p = p->next)
        if (std::strcmp(p->name, name) == 0)
            return p;
    return nullptr;
}

std::string LocalTimestamp()
{
    return btrace_detail::LocalTimeText(btrace_platform::RealTimeNs());
}

const char* BaseName(const char* path)
{
    if (path == nullptr)
        return "?";
    const char* base = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\')
            base = p + 1;
    return base;
}

// Starts the ring and the command objects of the segment. Caller holds registryLock; the command thread
// takes it only after it has been released.
void StartRingLocked(Backend& b)
{
    std::string error;
    std::string path;
    if (!btrace_detail::CommandStart(b.init.segment, static_cast<unsigned>(b.order.size()), error))
    {
        b.init.ringError = error;
    }
    else if (!btrace_detail::RingStart(b.init.segment, b.init.first, b.init.sizeBytes, path, error))
    {
        btrace_detail::CommandStop();
        b.init.ringError = error;
    }
    else
    {
        b.init.segmentFile = path;
        return;
    }
    std::fprintf(stderr, "btrace: no shared trace ring for segment '%s': %s\n", b.init.segment.c_str(),
                 error.c_str());
}

// Formats the message as one line for the text output and the captures. Takes sinkLock.
void WriteText(Backend& b, const BTraceDescriptor* d, const std::uint64_t* args, unsigned count, bool toSink)
{
    const unsigned level = BTraceLevelOf(*d);
    const char* moduleName = d->module != nullptr ? d->module->name : "?";
    std::string text = BTraceFormat(d->format, args, count);
    std::string line = LocalTimestamp();
    line += " [";
    line += BTraceLevelName(level);
    line += "] ";
    line += moduleName;
    line += ' ';
    line += BaseName(d->file);
    line += ':';
    line += std::to_string(d->line >> 16);
    line += ' ';
    line += text;
    line += '\n';

    std::lock_guard<std::mutex> guard(b.sinkLock);
    if (toSink)
    {
        std::FILE* out = b.sink != nullptr ? b.sink : stderr;
        std::fwrite(line.data(), 1, line.size(), out);
        std::fflush(out);
    }
    if (b.anyCapture.load(std::memory_order_relaxed))
    {
        for (BTraceCapture::State* c : b.captures)
        {
            std::lock_guard<std::mutex> capGuard(c->lock);
            c->records.push_back(
                BTraceRecord{level, moduleName, d->file ? d->file : "", d->line >> 16, text});
        }
    }
}

} // namespace

namespace btrace_detail
{

std::string LocalTimeText(std::int64_t realNs)
{
    std::int64_t seconds = realNs / 1000000000;
    std::int64_t ms = realNs / 1000000 % 1000;
    if (ms < 0)
        ms += 1000, --seconds;
    std::tm tm{}, utc{};
    btrace_platform::LocalTime(seconds, tm);
    btrace_platform::UtcTime(seconds, utc);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &tm);
    // The offset from UTC comes from the two broken-down times, not from strftime's "%z", which the
    // Windows run-time answers with a zone name.
    int days = tm.tm_year != utc.tm_year ? (tm.tm_year > utc.tm_year ? 1 : -1) : tm.tm_yday - utc.tm_yday;
    int offset = days * 1440 + (tm.tm_hour - utc.tm_hour) * 60 + (tm.tm_min - utc.tm_min);
    int magnitude = offset < 0 ? -offset : offset;
    char out[64];
    std::snprintf(out, sizeof out, "%s.%03d%c%02d:%02d", date, static_cast<int>(ms), offset < 0 ? '-' : '+',
                  magnitude / 60, magnitude % 60);
    return out;
}

} // namespace btrace_detail

bool BTraceInitialize(const char* first, const char* fourth, const char* segment, std::uint64_t sizeBytes,
                      bool shared, std::uint32_t breakMode, std::uint32_t options)
{
    Backend& b = ConfiguredBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    if (b.init.initialized)
        return false;
    b.init.initialized = true;
    b.init.first = first ? first : "";
    b.init.fourth = fourth ? fourth : "";
    b.init.segment = segment ? segment : "";
    b.init.sizeBytes = sizeBytes;
    b.init.shared = shared;
    b.init.breakMode = breakMode;
    b.init.options = options;
    if (shared && !b.init.segment.empty() && sizeBytes != 0)
        StartRingLocked(b);
    return true;
}

void BTraceShutdown()
{
    btrace_detail::FlushSuppressed();
    btrace_detail::CommandStop();
    btrace_detail::RingStop(btrace_detail::kStateEnded);
    Backend& b = TheBackend();
    {
        std::lock_guard<std::mutex> guard(b.registryLock);
        b.init = BTraceInitInfo();
        b.registered.clear();
    }
    std::lock_guard<std::mutex> sinkGuard(b.sinkLock);
    if (b.sink != nullptr)
        std::fflush(b.sink);
    else
        std::fflush(stderr);
}

BTraceInitInfo BTraceGetInitInfo()
{
    Backend& b = TheBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    return b.init;
}

BTraceModule* BTraceRegisterModule(const char* name, bool isMain)
{
    if (name == nullptr)
        return nullptr;
    Backend& b = ConfiguredBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    b.registered.emplace_back(name);
    if (BTraceModule* existing = FindLocked(b, name))
    {
        existing->isMain = existing->isMain || isMain;
        return existing;
    }
    b.owned.push_back(std::make_unique<OwnedModule>(name, b.startLevel));
    BTraceModule* m = &b.owned.back()->module;
    m->isMain = isMain;
    LinkLocked(b, m);
    return m;
}

void BTraceAttachModule(BTraceModule* module)
{
    if (module == nullptr)
        return;
    Backend& b = ConfiguredBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    module->level.store(b.startLevel, std::memory_order_relaxed);
    LinkLocked(b, module);
}

BTraceModule* BTraceFindModule(const char* name)
{
    if (name == nullptr)
        return nullptr;
    Backend& b = TheBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    return FindLocked(b, name);
}

std::vector<std::string> BTraceRegisteredModules()
{
    Backend& b = TheBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    return b.registered;
}

void BTraceSetLevel(BTraceModule* module, unsigned char level)
{
    if (module != nullptr)
        module->level.store(level > 9 ? static_cast<unsigned char>(9) : level, std::memory_order_relaxed);
}

std::vector<BTraceModuleLevel> BTraceListModules()
{
    Backend& b = TheBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    std::vector<BTraceModuleLevel> modules;
    for (BTraceModule* m : b.order)
        modules.push_back(BTraceModuleLevel{m->name, m->level.load(std::memory_order_relaxed)});
    return modules;
}

void BTraceSetLimit(const BTraceDescriptor* descriptor, std::uint32_t maxCount, std::uint32_t windowMs)
{
    if (descriptor == nullptr)
        return;
    btrace_detail::SiteEntry* site = btrace_detail::FindSite(descriptor);
    if (site == nullptr)
        return;
    site->limited.store(false, std::memory_order_relaxed);
    site->limitCount.store(maxCount, std::memory_order_relaxed);
    site->windowNs.store(std::uint64_t(windowMs) * 1000000u, std::memory_order_relaxed);
    site->windowStart.store(btrace_platform::MonotonicNs(), std::memory_order_relaxed);
    site->emitted.store(0, std::memory_order_relaxed);
    site->suppressed.store(0, std::memory_order_relaxed);
    site->limited.store(maxCount != 0 || windowMs != 0, std::memory_order_release);
}

bool BTraceDump(const std::string& path, std::string& error)
{
    if (path.empty())
    {
        error = "Invalid parameter";
        return false;
    }
    std::string text;
    return btrace_detail::RingDumpText(text, error) && btrace_platform::WriteTextFile(path, text, error);
}

bool BTraceEnableCrashDump(const std::string& path)
{
    return btrace_detail::RingEnableCrashDump(path);
}

void BTraceReloadConfiguration()
{
    Backend& b = TheBackend();
    std::lock_guard<std::mutex> guard(b.registryLock);
    ConfigureLocked(b);
    for (BTraceModule* p = b.modules; p != nullptr; p = p->next)
        p->level.store(b.startLevel, std::memory_order_relaxed);
}

const char* BTraceLevelName(unsigned level)
{
    return level < 10 ? kLevelNames[level] : "?";
}

int BTraceParseLevel(const char* text)
{
    if (text == nullptr || *text == '\0')
        return -1;
    if (text[1] == '\0' && text[0] >= '0' && text[0] <= '9')
        return text[0] - '0';
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (int i = 0; i < 10; ++i)
        if (upper == kLevelNames[i])
            return i;
    return -1;
}

void BTracePrint(const BTraceDescriptor* d, int reserved, ...)
{
    if (d == nullptr)
        return;
    unsigned count = BTraceArgumentCount(*d);
    std::uint64_t args[256];
    if (count > 256)
        count = 256;
    va_list ap;
    va_start(ap, reserved);
    for (unsigned i = 0; i < count; ++i)
        args[i] = va_arg(ap, std::uint64_t);
    va_end(ap);

    btrace_detail::SiteEntry* site = btrace_detail::FindSite(d);
    std::uint64_t report = 0;
    if (site != nullptr && site->limited.load(std::memory_order_acquire) &&
        !btrace_detail::AdmitSite(*site, report))
        return;
    if (report != 0)
        BTracePrint(&site->reportDescriptor, 0, report,
                    static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(d->format)));

    const bool ring = btrace_detail::RingActive();
    if (ring)
        btrace_detail::RingWrite(site, d, args, count);
    Backend& b = ConfiguredBackend();
    const bool text = !ring || b.outputExplicit.load(std::memory_order_relaxed);
    if (!text && !b.anyCapture.load(std::memory_order_relaxed))
        return;
    WriteText(b, d, args, count, text);
}

BTraceCapture::BTraceCapture() : m_state(new State)
{
    Backend& b = ConfiguredBackend();
    std::lock_guard<std::mutex> guard(b.sinkLock);
    b.captures.push_back(m_state);
    b.anyCapture.store(true, std::memory_order_relaxed);
}

BTraceCapture::~BTraceCapture()
{
    Backend& b = TheBackend();
    {
        std::lock_guard<std::mutex> guard(b.sinkLock);
        b.captures.erase(std::remove(b.captures.begin(), b.captures.end(), m_state), b.captures.end());
        b.anyCapture.store(!b.captures.empty(), std::memory_order_relaxed);
    }
    delete m_state;
}

std::vector<BTraceRecord> BTraceCapture::Records() const
{
    std::lock_guard<std::mutex> guard(m_state->lock);
    return m_state->records;
}

std::size_t BTraceCapture::Count(unsigned level, const std::string& text) const
{
    std::lock_guard<std::mutex> guard(m_state->lock);
    return static_cast<std::size_t>(std::count_if(m_state->records.begin(), m_state->records.end(),
                                                  [&](const BTraceRecord& r)
                                                  { return r.level == level && r.text == text; }));
}

std::size_t BTraceCapture::CountContaining(const std::string& fragment) const
{
    std::lock_guard<std::mutex> guard(m_state->lock);
    return static_cast<std::size_t>(std::count_if(m_state->records.begin(), m_state->records.end(),
                                                  [&](const BTraceRecord& r)
                                                  { return r.text.find(fragment) != std::string::npos; }));
}

void BTraceCapture::Clear()
{
    std::lock_guard<std::mutex> guard(m_state->lock);
    m_state->records.clear();
}
