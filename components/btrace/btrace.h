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
BTRACE_API bool BTraceInitialize(const char* first, const char* fourth, const char* segment,
                                 std::uint64_t sizeBytes, bool shared, std::uint32_t breakMode,
                                 std::uint32_t options);
// Ends the back-end's initialised state; a later BTraceInitialize starts it again. Modules stay.
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
