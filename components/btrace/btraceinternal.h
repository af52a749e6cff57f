// Internal to btrace: the layout of a trace segment file and the pieces shared by the ring writer, the
// reader, the command thread and the platform files. Nothing here is installed or seen by hosts.
//
// A segment file is one header page, a descriptor table, a string area and the ring of 64-byte slots:
//
//   [SegmentHeader | CommandBlock ...][SharedDescriptor x N][strings ...][slot 0][slot 1]...[slot 2^k-1]
//
// The host maps it shared and read-write; a reader elsewhere copies the file and validates every offset,
// count and record before use, so a malformed or foreign file is refused and never crashes the reader.
// All multi-byte fields are in the host's byte order; the version field changes whenever the layout does.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace btrace_detail
{

constexpr char kSegmentMagic[8] = {'K', 'O', 'R', 'B', 'T', 'R', 'C', '1'};
constexpr std::uint32_t kSegmentVersion = 1;
constexpr std::uint32_t kHeaderBytes = 16384;
constexpr std::uint32_t kSlotBytes = 64;
constexpr std::uint32_t kSlotWords = kSlotBytes / 8;
constexpr std::uint32_t kFirstSlotPayloadWords = 3; // after seq, check, ticks, descriptor/thread, meta
constexpr std::uint32_t kNextSlotPayloadWords = 6;  // after seq, check
constexpr std::uint32_t kMaxSlotsPerRecord = 255;
constexpr std::uint32_t kDescriptorCapacity = 4096;
constexpr std::uint32_t kStringCapacity = 256 * 1024;
constexpr std::uint64_t kMinSlotCount = 64;
constexpr std::uint64_t kMaxSlotCount = std::uint64_t(1) << 26; // 4 GiB of ring
constexpr std::uint32_t kMaxCopiedString = 1024;                // bytes kept of one string argument
constexpr std::uint64_t kNullString = ~std::uint64_t(0);        // argument word of a null string
constexpr std::uint32_t kUnknownDescriptor = 0;                 // entry 0: "descriptor table full"

enum SegmentState : std::uint32_t
{
    kStateRunning = 1,
    kStateEnded = 2,
    kStateCrashed = 0x100, // | the signal number or the low byte of the exception code
};

enum CommandOp : std::uint32_t
{
    kCommandNone = 0,
    kCommandListModules = 1,
    kCommandSetLevel = 2,
    kCommandDump = 3,
};

// The request and response of one trace command. A client holds "<segment>.AccessMutex" while it writes the
// request, signals "<segment>.MemReq" and waits for "<segment>.MemRsp"; the host's back-end thread answers
// with responseSeq equal to requestSeq, so a late answer to an abandoned request is never taken for a new
// one.
struct CommandBlock
{
    std::atomic<std::uint32_t> requestSeq;
    std::atomic<std::uint32_t> responseSeq;
    std::uint32_t op;
    std::int32_t status; // 0 success, otherwise failed with the text in response
    std::uint32_t level;
    std::uint32_t responseBytes;
    char module[64];
    char path[1024];
    char response[8192];
};

struct SegmentHeader
{
    char magic[8];
    std::uint32_t version;
    std::uint32_t headerBytes;
    std::uint64_t fileBytes;
    std::uint64_t descriptorOffset;
    std::uint32_t descriptorCapacity;
    std::uint32_t descriptorBytes;
    std::uint64_t stringOffset;
    std::uint64_t stringCapacity;
    std::uint64_t slotOffset;
    std::uint64_t slotCount; // a power of two
    std::uint32_t pid;
    std::uint32_t tickKind; // 0: nanoseconds of the monotonic clock; 1: processor time-stamp counter
    std::atomic<std::uint32_t> state;
    std::uint32_t reserved0;
    // Clock calibration: ticks and wall-clock nanoseconds since 1970 taken together at start and later.
    // The later pair is written under calibrationSeq (odd while being written).
    std::uint64_t startTicks;
    std::int64_t startRealNs;
    std::atomic<std::uint64_t> calibrationSeq;
    std::atomic<std::uint64_t> lastTicks;
    std::atomic<std::int64_t> lastRealNs;
    std::atomic<std::uint64_t> nextSlot; // next absolute slot number to hand out
    std::atomic<std::uint32_t> descriptorCount;
    std::atomic<std::uint32_t> stringUsed;
    char program[64];
    char segment[128];
    alignas(64) CommandBlock command;
};
static_assert(sizeof(SegmentHeader) <= kHeaderBytes, "header page too small");
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "the ring needs lock-free 64-bit atomics");

// One message site as the segment keeps it; string fields are offsets into the string area.
struct SharedDescriptor
{
    std::atomic<std::uint32_t> ready; // 1 once the other fields are written
    std::uint32_t flags;
    std::uint32_t line;
    std::uint32_t module;
    std::uint32_t file;
    std::uint32_t format;
    std::uint32_t reserved[2];
};
static_assert(sizeof(SharedDescriptor) == 32, "descriptor entry layout");

// Slot words. Every slot: word 0 the absolute slot number + 1, word 1 the check value (low 32 bits), the
// slot's index within its record (bits 32-39) and the record's slot count (bits 40-47). First slot of a
// record: word 2 ticks, word 3 descriptor index (low) and thread id (high), word 4 argument count (low 16)
// and string bytes (bits 32-63), words 5-7 payload. Further slots: words 2-7 payload. The payload is the
// argument words followed by the copied string bytes; a string argument's word holds its offset in the
// string bytes (high 32) and its length (low 32), or kNullString.
inline std::uint32_t SlotCheck(const std::uint64_t* w)
{
    // A weighted sum with independent odd multipliers: cheap (the products run in parallel) and a slot
    // mixing words of two records, or of two laps, fails it.
    std::uint64_t h = w[0] * 0x9E3779B97F4A7C15ull + (w[1] >> 32) * 0xC2B2AE3D27D4EB4Full +
                      w[2] * 0x165667B19E3779F9ull + w[3] * 0xD6E8FEB86659FD93ull +
                      w[4] * 0xFF51AFD7ED558CCDull + w[5] * 0xC4CEB9FE1A85EC53ull +
                      w[6] * 0x94D049BB133111EBull + w[7] * 0xBF58476D1CE4E5B9ull;
    return static_cast<std::uint32_t>((h >> 32) ^ h);
}

struct StringArgument
{
    unsigned index; // argument slot that carries the string
    bool wide;      // %ls / %S: wchar_t text, copied as UTF-8
};

// The formatter behind BTraceFormat. With copiedStrings, string conversions take their text from it (by
// argument index) instead of following the slot as a pointer; with stringArguments, every string
// conversion is recorded there.
std::string FormatMessage(const char* format, const std::uint64_t* args, std::size_t count,
                          const std::vector<std::string>* copiedStrings,
                          std::vector<StringArgument>* stringArguments);

// One message read back from a segment.
struct RingMessage
{
    std::uint64_t slot;
    std::uint64_t ticks;
    std::int64_t realNs;
    std::uint32_t threadId;
    unsigned level;
    std::string module;
    std::string file;
    unsigned line;
    std::string text;
};

// Validates a segment image and reads its messages, oldest first, each thread's messages in the order it
// wrote them. minSlot drops records older than that absolute slot (they may have been overwritten while
// the image was copied). False with the reason for anything but a well-formed segment.
bool ReadRingImage(const unsigned char* image, std::size_t bytes, std::uint64_t minSlot,
                   double ticksPerSecond, std::vector<RingMessage>& messages, std::string& error);
// Checks only the header of an image (magic, version, sizes, offsets); the reason on failure.
bool CheckSegmentHeader(const unsigned char* image, std::size_t bytes, std::string& error);
// Ticks per second of a segment's clock, from its calibration pairs, or measured here when they are too
// close together (the time-stamp counter is machine-wide, so a reader elsewhere measures the same clock).
double TicksPerSecond(const SegmentHeader& header);
// "<local time> [<LEVEL>] <module> <file>:<line> #<thread> <text>"
std::string FormatDumpLine(const RingMessage& m);
// The segment's file name: bytes outside [A-Za-z0-9_.-] and a leading '.' become %XX, so no name can
// leave the folder or hide; empty for an empty or over-long name.
std::string SegmentFileName(const std::string& segment);
std::uint64_t ReadTicks();
std::uint32_t TickKind();

} // namespace btrace_detail
