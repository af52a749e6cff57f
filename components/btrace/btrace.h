// btrace — the trace back-end of the korutilities family.
//
// Owns the registry of trace modules (each with a level byte), the output sink and the capture hooks
// for tests. A module's level byte may be read by any thread at any time without locking; everything
// else (registration, printing, capture) is thread-safe and serialised internally, so lines written by
// many threads never interleave. Messages are static descriptors plus 64-bit arguments; the back-end
// formats them (printf conventions, each conversion reading its own type out of the 64-bit slot).
//
// Configuration comes from the host process's environment, read once on first use:
//   BTRACE_LEVEL   starting level of every module: a number 0-9 or a level name ("ERR", "INF", ...);
//                  without it modules start at "WRN" (5).
//   BTRACE_OUTPUT  "stderr" (the default) or a file path to which each message is appended as one line:
//                  <ISO-8601 local time> [<LEVEL NAME>] <module> <source file>:<line> <formatted text>
//                  While a shared ring is active (below) and BTRACE_OUTPUT is not set, messages go to the
//                  ring only; with BTRACE_OUTPUT set they go to both.
//
// Shared ring. BTraceInitialize with the shared flag and a segment name S maps a ring of about sizeBytes
// in the file "S.btrace" of the user's private segment folder (/dev/shm/korbtrace-<uid> on Linux,
// %LOCALAPPDATA%\korbtrace on Windows). Every message is kept there in binary form (site, time, thread,
// argument slots, copied strings) and formatted only when someone reads it: this process (BTraceDump),
// another process (BTraceRemoteDump, BTraceReadSegment) or a reader after this process died. The file
// outlives the process until BTraceRemoveSegment or the next host with the same segment name.
// While the ring is active, another process of the same user can list the modules, change a level and
// take a dump through the BTraceRemote... calls; a back-end thread answers them.
//
// Failure convention of the functions below that take `std::string& error`: false with the reason in
// `error`; nothing throws.
#pragma once

#include "btrace_export.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Levels, in order. Messages at a level are emitted while the module's level byte is at least that level.
enum BTraceLevel : unsigned char
{
    BTRACE_OFF = 0,
    BTRACE_SYS_ERR = 1,
    BTRACE_SYS_WRN = 2,
    BTRACE_SYS_MSG = 3,
    BTRACE_ERR = 4,
    BTRACE_WRN = 5,
    BTRACE_INF = 6,
    BTRACE_DBG1 = 7,
    BTRACE_DBG2 = 8,
    BTRACE_DBG3 = 9,
};

// One trace module. A library may define its record statically (constant-initialised, so it exists from
// load time) and attach it with BTraceAttachModule; BTraceRegisterModule creates records owned by the
// back-end. Records are never freed while the process runs.
struct BTraceModule
{
    const char* name;
    std::atomic<unsigned char> level; // read lock-free by the emitting code; written by BTraceSetLevel
    bool isMain;
    BTraceModule* next; // registry chain, guarded by the back-end's registry lock

    constexpr BTraceModule(const char* moduleName, unsigned char startLevel)
        : name(moduleName), level(startLevel), isMain(false), next(nullptr)
    {
    }
    BTraceModule(const BTraceModule&) = delete;
    BTraceModule& operator=(const BTraceModule&) = delete;
};

// Static description of one message at one place of use.
struct BTraceDescriptor
{
    BTraceModule* module;
    const char* file;    // source file that defines the message
    const char* format;  // printf-style format, UTF-8
    std::uint32_t line;  // source line in the upper 16 bits, 0 in the lower 16
    std::uint32_t flags; // 0x20 in the top byte, level in bits 16-23, argument bytes (8 per argument) below
};

constexpr std::uint32_t BTraceMakeFlags(unsigned level, unsigned argumentCount)
{
    return 0x20000000u | ((level & 0xFFu) << 16) | ((8u * argumentCount) & 0xFFFFu);
}
constexpr unsigned BTraceLevelOf(const BTraceDescriptor& d)
{
    return (d.flags >> 16) & 0xFFu;
}
constexpr unsigned BTraceArgumentCount(const BTraceDescriptor& d)
{
    return (d.flags & 0xFFFFu) / 8u;
}

// Parameters of the last successful BTraceInitialize, for diagnostics and tests.
struct BTraceInitInfo
{
    bool initialized = false;
    std::string first;
    std::string fourth;
    std::string segment;
    std::uint64_t sizeBytes = 0;
    std::string segmentFile; // the ring's file; empty when no ring could be set up
    std::string ringError;   // why there is no ring, when shared mode was asked for
    bool shared = false;
    std::uint32_t breakMode = 0;
    std::uint32_t options = 0;
};

// One emitted message as the capture interface sees it.
struct BTraceRecord
{
    unsigned level;
    std::string module;
    std::string file;
    unsigned line;
    std::string text;
};

// Starts the back-end for this process. Does nothing (and returns false) if it is already initialised.
// With `shared` and a non-empty segment it also starts the shared ring and the trace commands; when
// that fails (segment in use by a live process, folder not private) tracing goes on without a ring and
// the reason is written to stderr and kept in BTraceGetInitInfo().ringError.
BTRACE_API bool BTraceInitialize(const char* first, const char* fourth, const char* segment,
                                 std::uint64_t sizeBytes, bool shared, std::uint32_t breakMode,
                                 std::uint32_t options);
// Ends the back-end's initialised state; a later BTraceInitialize starts it again. Modules stay. The
// ring's file stays, marked as ended, for readers.
BTRACE_API void BTraceShutdown();
BTRACE_API BTraceInitInfo BTraceGetInitInfo();

// Registers (or finds) the module of that name; the record lives until the process ends.
BTRACE_API BTraceModule* BTraceRegisterModule(const char* name, bool isMain);
// Adds a statically defined record to the registry and gives it the configured starting level.
BTRACE_API void BTraceAttachModule(BTraceModule* module);
BTRACE_API BTraceModule* BTraceFindModule(const char* name);
// Names of the modules registered with BTraceRegisterModule, in registration order.
BTRACE_API std::vector<std::string> BTraceRegisteredModules();
BTRACE_API void BTraceSetLevel(BTraceModule* module, unsigned char level);

struct BTraceModuleLevel
{
    std::string name;
    unsigned level;
};
// Every known module (attached or registered) with its current level, in the order they became known.
BTRACE_API std::vector<BTraceModuleLevel> BTraceListModules();

// Limits a message site: at most maxCount emissions per window of windowMs milliseconds, or, with
// windowMs 0, only the first maxCount. Suppressed emissions are counted; the count is reported by a
// message at the site's level and place, emitted by the first emission after the window ends, and by
// BTraceDump and BTraceShutdown. maxCount 0 with windowMs 0 removes the limit. The
// descriptor itself is not changed: limits live in the back-end, keyed by the descriptor's address.
BTRACE_API void BTraceSetLimit(const BTraceDescriptor* descriptor, std::uint32_t maxCount,
                               std::uint32_t windowMs);

// --- Shared ring: this process ------------------------------------------------------------------------
// Writes the ring, formatted, to path (through a temporary file renamed into place).
BTRACE_API bool BTraceDump(const std::string& path, std::string& error);
// Writes the ring, formatted, to path when the process ends abnormally (fatal signal on Linux, unhandled
// exception on Windows), then passes the event on to the handler installed before. The dump on that path
// formats integers, characters, strings and pointers; other conversions show their raw slot in hex.
BTRACE_API bool BTraceEnableCrashDump(const std::string& path);

// --- Shared ring: other processes of this user --------------------------------------------------------
BTRACE_API bool BTraceRemoteListModules(const std::string& segment, std::vector<BTraceModuleLevel>& modules,
                                        std::string& error);
BTRACE_API bool BTraceRemoteSetLevel(const std::string& segment, const std::string& module, unsigned level,
                                     std::string& error);
// Asks the live host to write its dump to path (made absolute here, written by the host).
BTRACE_API bool BTraceRemoteDump(const std::string& segment, const std::string& path, std::string& error);
// True while a host holds the segment's command objects.
BTRACE_API bool BTraceSegmentAlive(const std::string& segment);
BTRACE_API bool BTraceSegmentFilePath(const std::string& segment, std::string& path, std::string& error);
// Formats the ring in the segment's file (the host may be running, ended or killed). A file that is not a
// well-formed trace segment is refused with the reason.
BTRACE_API bool BTraceReadSegment(const std::string& segment, std::string& text, std::string& error);
BTRACE_API bool BTraceReadSegmentFile(const std::string& filePath, std::string& text, std::string& error);
// The dump of a live host (asked through the commands) or, when none runs, read from the file.
BTRACE_API bool BTraceDumpSegment(const std::string& segment, const std::string& path, std::string& error);
// Removes the segment's file; refused while a host holds the segment.
BTRACE_API bool BTraceRemoveSegment(const std::string& segment, std::string& error);
// The segment of a running host process, found by the process id in the ring headers of this user.
BTRACE_API bool BTraceFindSegment(std::uint32_t pid, std::string& segment, std::string& error);

// Emits one message: the descriptor, a reserved 0, then BTraceArgumentCount(*d) arguments, each passed
// as a 64-bit unsigned integer (signed values sign-extended, pointers as addresses, doubles bit-copied).
BTRACE_API void BTracePrint(const BTraceDescriptor* d, int reserved, ...);

// Formats a message the way BTracePrint does. Exposed for tests and tools.
BTRACE_API std::string BTraceFormat(const char* format, const std::uint64_t* args, std::size_t count);
// "OFF", "SYS_ERR", ..., "3"; "?" outside 0-9.
BTRACE_API const char* BTraceLevelName(unsigned level);
// A number 0-9 or a level name (case-insensitive); -1 when it is neither.
BTRACE_API int BTraceParseLevel(const char* text);
// Re-reads BTRACE_LEVEL and BTRACE_OUTPUT (normally read once, on first use).
BTRACE_API void BTraceReloadConfiguration();

// Records every message emitted while it lives (in addition to the normal output). Several captures may
// be alive at once; each sees every message.
class BTRACE_API BTraceCapture
{
public:
    BTraceCapture();
    ~BTraceCapture();
    BTraceCapture(const BTraceCapture&) = delete;
    BTraceCapture& operator=(const BTraceCapture&) = delete;

    std::vector<BTraceRecord> Records() const;
    // Number of captured messages with exactly this level and text.
    std::size_t Count(unsigned level, const std::string& text) const;
    bool Contains(unsigned level, const std::string& text) const { return Count(level, text) != 0; }
    // Number of captured messages whose text contains the fragment, at any level.
    std::size_t CountContaining(const std::string& fragment) const;
    void Clear();

    struct State;

private:
    State* m_state;
};
