// The shared trace ring: site table, limits, ring writer, and the dump written on abnormal end. The
// algorithm is described in btracering.h; the segment layout in btraceinternal.h.
#include "btracering.h"
#include "btraceplatform.h"

#include <cstring>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#define BTRACE_HAVE_TSC 1
#else
#define BTRACE_HAVE_TSC 0
#endif

#ifndef BTRACE_TLS_MODEL
#define BTRACE_TLS_MODEL
#endif

namespace btrace_detail
{

std::uint64_t ReadTicks()
{
#if BTRACE_HAVE_TSC
    return __rdtsc();
#else
    return btrace_platform::MonotonicNs();
#endif
}

std::uint32_t TickKind()
{
    return BTRACE_HAVE_TSC ? 1u : 0u;
}

namespace
{

constexpr std::uint64_t kBlockSlots = 16;     // slots a thread reserves at once
constexpr std::size_t kSiteTableSize = 16384; // power of two
constexpr std::size_t kMaxPayloadWords = 256 + 1024;

// --- Site table --------------------------------------------------------------------------------------

struct SiteTable
{
    std::atomic<const BTraceDescriptor*> keys[kSiteTableSize];
    std::atomic<SiteEntry*> values[kSiteTableSize];
    std::mutex lock;                             // guards inserts and `all`
    std::vector<std::unique_ptr<SiteEntry>> all; // every entry, for FlushSuppressed
};

SiteTable& Sites()
{
    static SiteTable* table = new SiteTable(); // never destroyed: sites are used during exit
    return *table;
}

std::size_t HashOf(const BTraceDescriptor* d)
{
    std::uint64_t v = reinterpret_cast<std::uintptr_t>(d);
    v = (v >> 4) * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(v >> 40) & (kSiteTableSize - 1);
}

// --- Ring --------------------------------------------------------------------------------------------

struct Ring
{
    SegmentHeader* header = nullptr;
    SharedDescriptor* descriptors = nullptr;
    char* strings = nullptr;
    std::atomic<std::uint64_t>* slots = nullptr;
    std::uint64_t mask = 0;
    std::uint64_t slotCount = 0;
    std::uint32_t generation = 0;
    std::string path;
    std::mutex lock;                                  // guards stringIndex and descriptor/string allocation
    std::map<std::string, std::uint32_t> stringIndex; // strings already in the string area
    std::map<const BTraceDescriptor*, std::uint32_t> uncached; // sites that found no room in the site table
};

std::atomic<Ring*> g_ring{nullptr};
std::atomic<std::uint32_t> g_generation{0};
std::mutex g_ringLock; // serialises RingStart and RingStop; guards RetiredRings()

// Rings that were stopped: kept (mapped) because a writer may still be inside one.
std::vector<Ring*>& RetiredRings()
{
    static std::vector<Ring*>* retired = new std::vector<Ring*>();
    return *retired;
}

struct WriterState
{
    std::uint32_t generation;
    std::uint32_t threadId;
    std::uint64_t next;
    std::uint64_t end;
};
thread_local WriterState t_writer BTRACE_TLS_MODEL = {0, 0, 0, 0};

// Copies a string into the segment's string area (once per distinct text). Caller holds ring.lock.
std::uint32_t InternLocked(Ring& ring, const char* text)
{
    std::string s = text != nullptr ? text : "?";
    auto found = ring.stringIndex.find(s);
    if (found != ring.stringIndex.end())
        return found->second;
    const std::uint32_t used = ring.header->stringUsed.load(std::memory_order_relaxed);
    if (used + s.size() + 1 > ring.header->stringCapacity)
        return 0; // offset 0 holds "?"
    std::memcpy(ring.strings + used, s.c_str(), s.size() + 1);
    ring.header->stringUsed.store(static_cast<std::uint32_t>(used + s.size() + 1), std::memory_order_release);
    ring.stringIndex.emplace(s, used);
    return used;
}

std::uint32_t AddDescriptorLocked(Ring& ring, const BTraceDescriptor* d)
{
    const std::uint32_t index = ring.header->descriptorCount.load(std::memory_order_relaxed);
    if (index >= ring.header->descriptorCapacity)
        return kUnknownDescriptor;
    SharedDescriptor& s = ring.descriptors[index];
    s.flags = d->flags;
    s.line = d->line;
    s.module = InternLocked(ring, d->module != nullptr ? d->module->name : "?");
    s.file = InternLocked(ring, d->file);
    s.format = InternLocked(ring, d->format != nullptr ? d->format : "");
    s.ready.store(1, std::memory_order_release);
    ring.header->descriptorCount.store(index + 1, std::memory_order_release);
    return index;
}

std::uint32_t SharedIndex(Ring& ring, SiteEntry* site, const BTraceDescriptor* d)
{
    if (site != nullptr)
    {
        const std::uint64_t ref = site->sharedRef.load(std::memory_order_acquire);
        if ((ref >> 32) == ring.generation)
            return static_cast<std::uint32_t>(ref);
    }
    std::lock_guard<std::mutex> guard(ring.lock);
    if (site != nullptr)
    {
        const std::uint64_t ref = site->sharedRef.load(std::memory_order_acquire);
        if ((ref >> 32) == ring.generation)
            return static_cast<std::uint32_t>(ref);
    }
    if (site == nullptr)
    {
        auto found = ring.uncached.find(d);
        if (found != ring.uncached.end())
            return found->second;
        return ring.uncached[d] = AddDescriptorLocked(ring, d);
    }
    const std::uint32_t index = AddDescriptorLocked(ring, d);
    if (index != kUnknownDescriptor)
        site->sharedRef.store((std::uint64_t(ring.generation) << 32) | index, std::memory_order_release);
    return index;
}

void UpdateCalibration(SegmentHeader& h)
{
    std::uint64_t seq = h.calibrationSeq.load(std::memory_order_relaxed);
    if ((seq & 1) != 0 || !h.calibrationSeq.compare_exchange_strong(seq, seq + 1, std::memory_order_acquire))
        return; // someone else is writing it
    h.lastTicks.store(ReadTicks(), std::memory_order_relaxed);
    h.lastRealNs.store(btrace_platform::RealTimeNs(), std::memory_order_relaxed);
    h.calibrationSeq.store(seq + 2, std::memory_order_release);
}

// Hands out k consecutive slots from the thread's block, reserving a new block when the old one is
// used up, belongs to an earlier ring, or is about to be overtaken by writers a whole lap ahead.
std::uint64_t ReserveSlots(Ring& ring, std::uint64_t k)
{
    WriterState& w = t_writer;
    if (w.generation != ring.generation || w.end - w.next < k ||
        ring.header->nextSlot.load(std::memory_order_relaxed) - w.next > ring.slotCount - 2 * kBlockSlots)
    {
        const std::uint64_t n = k > kBlockSlots ? k : kBlockSlots;
        w.next = ring.header->nextSlot.fetch_add(n, std::memory_order_relaxed);
        w.end = w.next + n;
        w.generation = ring.generation;
        if ((w.next & 0xFFFF) < n)
            UpdateCalibration(*ring.header);
    }
    const std::uint64_t first = w.next;
    w.next += k;
    return first;
}

inline void StoreSlot(Ring& ring, std::uint64_t absolute, std::uint64_t* words)
{
    words[0] = absolute + 1;
    words[1] |= SlotCheck(words);
    std::atomic<std::uint64_t>* slot = ring.slots + (absolute & ring.mask) * kSlotWords;
    for (unsigned i = 1; i < kSlotWords; ++i)
        slot[i].store(words[i], std::memory_order_relaxed);
    slot[0].store(words[0], std::memory_order_release);
}

std::uint32_t CurrentThreadId()
{
    WriterState& w = t_writer;
    if (w.threadId == 0)
        w.threadId = btrace_platform::ThreadId();
    return w.threadId;
}

// Appends the UTF-8 form of a wide string, at most `room` bytes, never splitting a character.
std::size_t CopyWide(const wchar_t* text, char* out, std::size_t room)
{
    std::size_t n = 0;
    for (; *text != 0; ++text)
    {
        std::uint32_t c = static_cast<std::uint32_t>(*text);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            c = 0xFFFD;
        char buffer[4];
        std::size_t len;
        if (c < 0x80)
            buffer[0] = static_cast<char>(c), len = 1;
        else if (c < 0x800)
            buffer[0] = static_cast<char>(0xC0 | (c >> 6)), buffer[1] = static_cast<char>(0x80 | (c & 0x3F)),
            len = 2;
        else if (c < 0x10000)
            buffer[0] = static_cast<char>(0xE0 | (c >> 12)),
            buffer[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
            buffer[2] = static_cast<char>(0x80 | (c & 0x3F)), len = 3;
        else
            buffer[0] = static_cast<char>(0xF0 | (c >> 18)),
            buffer[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F)),
            buffer[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
            buffer[3] = static_cast<char>(0x80 | (c & 0x3F)), len = 4;
        if (n + len > room)
            break;
        std::memcpy(out + n, buffer, len);
        n += len;
    }
    return n;
}

// Copies the arguments to `local` followed by the bytes of every string argument (each at most
// kMaxCopiedString, wide ones as UTF-8), and turns each string argument into its offset and length there.
// Returns the payload's length in words; the last word's unused bytes are zero.
std::size_t PackStrings(const SiteEntry* site, const std::uint64_t* args, unsigned count,
                        std::uint64_t* local, std::uint32_t& stringBytes)
{
    std::memcpy(local, args, count * sizeof(std::uint64_t));
    stringBytes = 0;
    if (site == nullptr)
        return count; // unknown sites keep raw words; the reader shows such strings as "<bad string>"
    char* text = reinterpret_cast<char*>(local + count);
    const std::size_t room = (kMaxPayloadWords - count) * sizeof(std::uint64_t);
    for (const StringArgument& s : site->strings)
    {
        if (s.index >= count)
            continue;
        if (args[s.index] == 0)
        {
            local[s.index] = kNullString;
            continue;
        }
        const std::size_t limit =
            room - stringBytes < kMaxCopiedString ? room - stringBytes : kMaxCopiedString;
        const void* source = reinterpret_cast<const void*>(static_cast<std::uintptr_t>(args[s.index]));
        std::size_t len;
        if (s.wide)
            len = CopyWide(static_cast<const wchar_t*>(source), text + stringBytes, limit);
        else
        {
            len = strnlen(static_cast<const char*>(source), limit);
            std::memcpy(text + stringBytes, source, len);
        }
        local[s.index] = (std::uint64_t(stringBytes) << 32) | len;
        stringBytes += static_cast<std::uint32_t>(len);
    }
    const std::size_t words = (stringBytes + 7) / 8;
    if (stringBytes % 8 != 0)
        std::memset(text + stringBytes, 0, 8 - stringBytes % 8);
    return count + words;
}

// --- Crash dump --------------------------------------------------------------------------------------

char g_crashPath[1024];
std::atomic<bool> g_crashArmed{false};

} // namespace

SiteEntry* FindSite(const BTraceDescriptor* d)
{
    SiteTable& table = Sites();
    std::size_t i = HashOf(d);
    for (std::size_t probe = 0; probe < kSiteTableSize; ++probe, i = (i + 1) & (kSiteTableSize - 1))
    {
        const BTraceDescriptor* key = table.keys[i].load(std::memory_order_acquire);
        if (key == d)
            return table.values[i].load(std::memory_order_acquire);
        if (key == nullptr)
            break;
    }
    std::lock_guard<std::mutex> guard(table.lock);
    i = HashOf(d);
    for (std::size_t probe = 0; probe < kSiteTableSize; ++probe, i = (i + 1) & (kSiteTableSize - 1))
    {
        const BTraceDescriptor* key = table.keys[i].load(std::memory_order_relaxed);
        if (key == d)
            return table.values[i].load(std::memory_order_relaxed);
        if (key != nullptr)
            continue;
        auto entry = std::make_unique<SiteEntry>();
        entry->descriptor = d;
        std::vector<std::uint64_t> zeros(BTraceArgumentCount(*d), 0);
        FormatMessage(d->format, zeros.data(), zeros.size(), nullptr, &entry->strings);
        entry->reportDescriptor = BTraceDescriptor{d->module, d->file, "%llu repeats suppressed: %s", d->line,
                                                   BTraceMakeFlags(BTraceLevelOf(*d), 2)};
        SiteEntry* site = entry.get();
        table.all.push_back(std::move(entry));
        table.values[i].store(site, std::memory_order_relaxed);
        table.keys[i].store(d, std::memory_order_release);
        return site;
    }
    return nullptr;
}

bool AdmitSite(SiteEntry& site, std::uint64_t& report)
{
    report = 0;
    const std::uint64_t window = site.windowNs.load(std::memory_order_relaxed);
    if (window != 0)
    {
        const std::uint64_t now = btrace_platform::MonotonicNs();
        std::uint64_t start = site.windowStart.load(std::memory_order_relaxed);
        if (now - start >= window &&
            site.windowStart.compare_exchange_strong(start, now, std::memory_order_relaxed))
        {
            report = site.suppressed.exchange(0, std::memory_order_relaxed);
            site.emitted.store(0, std::memory_order_relaxed);
        }
    }
    if (site.emitted.fetch_add(1, std::memory_order_relaxed) <
        site.limitCount.load(std::memory_order_relaxed))
        return true;
    site.suppressed.fetch_add(1, std::memory_order_relaxed);
    return false;
}

void FlushSuppressed()
{
    std::vector<SiteEntry*> limited;
    {
        SiteTable& table = Sites();
        std::lock_guard<std::mutex> guard(table.lock);
        for (auto& entry : table.all)
            if (entry->limited.load(std::memory_order_relaxed))
                limited.push_back(entry.get());
    }
    for (SiteEntry* site : limited)
    {
        const std::uint64_t count = site->suppressed.exchange(0, std::memory_order_relaxed);
        if (count != 0)
            BTracePrint(
                &site->reportDescriptor, 0, count,
                static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(site->descriptor->format)));
    }
}

namespace
{

// Where the parts of a segment lie: the header, the descriptor table, the string area, then the slots (a
// power of two, as many as bytes allows within the limits).
struct SegmentLayout
{
    std::uint64_t slotCount = kMinSlotCount;
    std::uint64_t descriptorOffset = kHeaderBytes;
    std::uint64_t stringOffset = 0;
    std::uint64_t slotOffset = 0;
    std::uint64_t fileBytes = 0;

    explicit SegmentLayout(std::uint64_t bytes)
    {
        while (slotCount < kMaxSlotCount && slotCount * 2 * kSlotBytes <= bytes)
            slotCount *= 2;
        stringOffset = descriptorOffset + std::uint64_t(kDescriptorCapacity) * sizeof(SharedDescriptor);
        slotOffset = stringOffset + kStringCapacity;
        fileBytes = slotOffset + slotCount * kSlotBytes;
    }
};

void InitializeHeader(SegmentHeader& h, const SegmentLayout& layout, const std::string& program,
                      const std::string& segment)
{
    std::memcpy(h.magic, kSegmentMagic, sizeof h.magic);
    h.version = kSegmentVersion;
    h.headerBytes = kHeaderBytes;
    h.fileBytes = layout.fileBytes;
    h.descriptorOffset = layout.descriptorOffset;
    h.descriptorCapacity = kDescriptorCapacity;
    h.descriptorBytes = sizeof(SharedDescriptor);
    h.stringOffset = layout.stringOffset;
    h.stringCapacity = kStringCapacity;
    h.slotOffset = layout.slotOffset;
    h.slotCount = layout.slotCount;
    h.pid = btrace_platform::ProcessId();
    h.tickKind = TickKind();
    h.startTicks = ReadTicks();
    h.startRealNs = btrace_platform::RealTimeNs();
    h.lastTicks.store(h.startTicks, std::memory_order_relaxed);
    h.lastRealNs.store(h.startRealNs, std::memory_order_relaxed);
    std::strncpy(h.program, program.c_str(), sizeof h.program - 1);
    std::strncpy(h.segment, segment.c_str(), sizeof h.segment - 1);
}

} // namespace

bool RingStart(const std::string& segment, const std::string& program, std::uint64_t bytes, std::string& path,
               std::string& error)
{
    std::lock_guard<std::mutex> guard(g_ringLock);
    if (g_ring.load(std::memory_order_relaxed) != nullptr)
    {
        error = "a ring is already active";
        return false;
    }
    if (!SegmentPath(segment, path, error))
        return false;
    const SegmentLayout layout(bytes);
    void* view = btrace_platform::MapSegment(path, layout.fileBytes, error);
    if (view == nullptr)
        return false;

    auto* ring = new Ring(); // kept until the process ends, see btracering.h
    auto* base = static_cast<unsigned char*>(view);
    ring->header = new (base) SegmentHeader();
    ring->descriptors = reinterpret_cast<SharedDescriptor*>(base + layout.descriptorOffset);
    ring->strings = reinterpret_cast<char*>(base + layout.stringOffset);
    ring->slots = reinterpret_cast<std::atomic<std::uint64_t>*>(base + layout.slotOffset);
    ring->slotCount = layout.slotCount;
    ring->mask = layout.slotCount - 1;
    ring->generation = g_generation.fetch_add(1, std::memory_order_relaxed) + 1;
    ring->path = path;
    SegmentHeader& h = *ring->header;
    InitializeHeader(h, layout, program, segment);
    // String offset 0 is "?" and descriptor 0 stands for sites that no longer fit the table.
    ring->strings[0] = '?';
    h.stringUsed.store(2, std::memory_order_relaxed);
    static const BTraceDescriptor unknown = {nullptr, "?", "<descriptor table full>", 0,
                                             BTraceMakeFlags(0, 0)};
    AddDescriptorLocked(*ring, &unknown);
    h.state.store(kStateRunning, std::memory_order_relaxed);
    g_ring.store(ring, std::memory_order_release);
    return true;
}

void RingStop(std::uint32_t finalState)
{
    std::lock_guard<std::mutex> guard(g_ringLock);
    Ring* ring = g_ring.exchange(nullptr, std::memory_order_acq_rel);
    if (ring != nullptr)
    {
        RetiredRings().push_back(ring);
        UpdateCalibration(*ring->header);
        ring->header->state.store(finalState, std::memory_order_release);
    }
}

bool RingActive()
{
    return g_ring.load(std::memory_order_relaxed) != nullptr;
}

SegmentHeader* RingHeader()
{
    Ring* ring = g_ring.load(std::memory_order_acquire);
    return ring != nullptr ? ring->header : nullptr;
}

void RingUpdateCalibration()
{
    if (SegmentHeader* h = RingHeader())
        UpdateCalibration(*h);
}

void RingWrite(SiteEntry* site, const BTraceDescriptor* d, const std::uint64_t* args, unsigned count)
{
    Ring* ring = g_ring.load(std::memory_order_acquire);
    if (ring == nullptr)
        return;
    const std::uint32_t descriptor = SharedIndex(*ring, site, d);
    const std::uint64_t ticks = ReadTicks();
    const std::uint32_t threadId = CurrentThreadId();

    // Payload: the argument words, then the copied strings. Without string arguments (the common case)
    // the arguments are written straight from the caller's array.
    const std::uint64_t* payload = args;
    std::size_t payloadWords = count;
    std::uint32_t stringBytes = 0;
    std::uint64_t local[kMaxPayloadWords];
    if (site == nullptr || !site->strings.empty())
    {
        payloadWords = PackStrings(site, args, count, local, stringBytes);
        payload = local;
    }
    std::uint64_t k = 1;
    if (payloadWords > kFirstSlotPayloadWords)
        k += (payloadWords - kFirstSlotPayloadWords + kNextSlotPayloadWords - 1) / kNextSlotPayloadWords;
    if (k > kMaxSlotsPerRecord || k > ring->slotCount / 4)
        return; // larger than a record may be: dropped rather than wiping a quarter of the ring

    const std::uint64_t first = ReserveSlots(*ring, k);
    std::uint64_t words[kSlotWords];
    words[1] = (k << 40);
    words[2] = ticks;
    words[3] = descriptor | (std::uint64_t(threadId) << 32);
    words[4] = count | (std::uint64_t(stringBytes) << 32);
    std::size_t used = 0;
    for (unsigned i = 5; i < kSlotWords; ++i)
        words[i] = used < payloadWords ? payload[used++] : 0;
    StoreSlot(*ring, first, words);
    for (std::uint64_t j = 1; j < k; ++j)
    {
        words[1] = (j << 32) | (k << 40);
        for (unsigned i = 2; i < kSlotWords; ++i)
            words[i] = used < payloadWords ? payload[used++] : 0;
        StoreSlot(*ring, first + j, words);
    }
}

bool RingDumpText(std::string& text, std::string& error)
{
    FlushSuppressed();
    Ring* ring = g_ring.load(std::memory_order_acquire);
    if (ring == nullptr)
    {
        error = "no trace ring is active";
        return false;
    }
    UpdateCalibration(*ring->header);
    // Copy the mapping word by word with atomic loads (writers keep going), then read the copy like a file.
    const std::size_t bytes = static_cast<std::size_t>(ring->header->fileBytes);
    std::vector<std::uint64_t> image(bytes / 8);
    const unsigned char* base = reinterpret_cast<const unsigned char*>(ring->header);
    const auto* headerWords = reinterpret_cast<const std::atomic<std::uint64_t>*>(base);
    for (std::size_t i = 0; i < kHeaderBytes / 8; ++i)
        image[i] = headerWords[i].load(std::memory_order_relaxed);
    const std::size_t stringsEnd = static_cast<std::size_t>(ring->header->slotOffset);
    {
        std::lock_guard<std::mutex> guard(ring->lock); // descriptors and strings are stable under it
        std::memcpy(reinterpret_cast<unsigned char*>(image.data()) + kHeaderBytes, base + kHeaderBytes,
                    stringsEnd - kHeaderBytes);
    }
    const std::size_t slotWords = static_cast<std::size_t>(ring->slotCount * kSlotWords);
    for (std::size_t i = 0; i < slotWords; ++i)
        image[stringsEnd / 8 + i] = ring->slots[i].load(std::memory_order_relaxed);
    const std::uint64_t endSlot = ring->header->nextSlot.load(std::memory_order_acquire);
    const std::uint64_t minSlot = endSlot > ring->slotCount ? endSlot - ring->slotCount : 0;
    std::vector<RingMessage> messages;
    if (!ReadRingImage(reinterpret_cast<const unsigned char*>(image.data()), bytes, minSlot,
                       TicksPerSecond(*ring->header), messages, error))
        return false;
    text.clear();
    for (const RingMessage& m : messages)
        text += FormatDumpLine(m);
    return true;
}

// --- Dump on abnormal end ----------------------------------------------------------------------------
//
// Runs inside the fatal-signal handler: no allocation, no locks, only system calls. It walks the ring in
// slot order (each thread's messages stay in order) and formats each message with a small formatter of
// its own that understands the integer, character, string and pointer conversions; other conversions are
// written as their raw 64-bit value. Times are UTC.

namespace
{

struct SafeOut
{
    char* p;
    char* end;
    void Put(char c)
    {
        if (p < end)
            *p++ = c;
    }
    void Put(const char* s, std::size_t n)
    {
        while (n-- > 0)
            Put(*s++);
    }
    void Put(const char* s)
    {
        while (*s != '\0')
            Put(*s++);
    }
};

void PutUnsigned(SafeOut& out, std::uint64_t v, unsigned base, bool upper, int width, char pad)
{
    char digits[24];
    int n = 0;
    do
    {
        unsigned d = static_cast<unsigned>(v % base);
        digits[n++] = static_cast<char>(d < 10 ? '0' + d : (upper ? 'A' : 'a') + d - 10);
        v /= base;
    } while (v != 0);
    for (int i = n; i < width; ++i)
        out.Put(pad);
    while (n > 0)
        out.Put(digits[--n]);
}

// Writes text padded to width as printf does: spaces before it, zeros after a sign ('0' flag, numbers
// only), or spaces after it ('-' flag).
void PutField(SafeOut& out, const char* text, std::size_t length, int width, bool left, bool zero)
{
    const std::size_t signLength = zero && length > 0 && text[0] == '-' ? 1 : 0;
    const int pad = width > static_cast<int>(length) ? width - static_cast<int>(length) : 0;
    if (!left && !zero)
        for (int i = 0; i < pad; ++i)
            out.Put(' ');
    out.Put(text, signLength);
    if (!left && zero)
        for (int i = 0; i < pad; ++i)
            out.Put('0');
    out.Put(text + signLength, length - signLength);
    if (left)
        for (int i = 0; i < pad; ++i)
            out.Put(' ');
}

std::size_t NumberText(char* buffer, std::uint64_t v, bool negative, unsigned base, bool upper)
{
    char digits[24];
    std::size_t n = 0;
    do
    {
        const unsigned d = static_cast<unsigned>(v % base);
        digits[n++] = static_cast<char>(d < 10 ? '0' + d : (upper ? 'A' : 'a') + d - 10);
        v /= base;
    } while (v != 0);
    std::size_t length = 0;
    if (negative)
        buffer[length++] = '-';
    while (n > 0)
        buffer[length++] = digits[--n];
    return length;
}

// The argument slots of one message, handed out in order.
struct SafeArguments
{
    const std::uint64_t* args;
    unsigned count;
    unsigned next = 0;

    bool Take(std::uint64_t& v)
    {
        if (next >= count)
            return false;
        v = args[next++];
        return true;
    }
};

// One conversion directive: flags, width (at most 1000), precision and the length modifier's size.
struct SafeDirective
{
    bool zero = false;
    bool left = false;
    int width = 0;
    int precision = -1;
    int bits = 32;
};

// Reads the directive after a '%' up to its conversion character; false when the format ends first.
bool ParseSafeDirective(const char*& p, SafeArguments& arguments, SafeDirective& directive)
{
    for (; *p != '\0' && std::strchr("-+ #0", *p) != nullptr; ++p)
        directive.zero = directive.zero || *p == '0', directive.left = directive.left || *p == '-';
    std::uint64_t v = 0;
    if (*p == '*' && arguments.Take(v))
        directive.width = static_cast<std::int32_t>(v), ++p;
    for (; *p >= '0' && *p <= '9'; ++p)
        directive.width = directive.width < 1000 ? directive.width * 10 + (*p - '0') : directive.width;
    if (directive.width < 0)
        directive.left = true, directive.width = -directive.width;
    directive.width = directive.width > 1000 ? 1000 : directive.width;
    if (*p == '.')
    {
        directive.precision = 0;
        if (*++p == '*' && arguments.Take(v))
            directive.precision = static_cast<std::int32_t>(v), ++p;
        for (; *p >= '0' && *p <= '9'; ++p)
            directive.precision =
                directive.precision < 100000 ? directive.precision * 10 + (*p - '0') : directive.precision;
    }
    for (; *p != '\0' && std::strchr("hlLjztI36", *p) != nullptr; ++p)
        directive.bits = (*p == 'h') ? (directive.bits == 16 ? 8 : 16)
                                     : (std::strchr("ljztL6", *p) != nullptr ? 64 : directive.bits);
    return *p != '\0';
}

void PutSafeInteger(SafeOut& out, const SafeDirective& directive, char conv, std::uint64_t v)
{
    char text[32];
    std::size_t length = 0;
    if (conv == 'd' || conv == 'i')
    {
        const std::int64_t s = directive.bits == 64   ? static_cast<std::int64_t>(v)
                               : directive.bits == 16 ? static_cast<std::int16_t>(v)
                               : directive.bits == 8  ? static_cast<std::int8_t>(v)
                                                      : static_cast<std::int32_t>(v);
        length = NumberText(text, s < 0 ? 0 - static_cast<std::uint64_t>(s) : static_cast<std::uint64_t>(s),
                            s < 0, 10, false);
    }
    else
    {
        const std::uint64_t mask = directive.bits == 64   ? ~0ull
                                   : directive.bits == 16 ? 0xFFFFull
                                   : directive.bits == 8  ? 0xFFull
                                                          : 0xFFFFFFFFull;
        length = NumberText(text, v & mask, false, conv == 'u' ? 10 : conv == 'o' ? 8 : 16, conv == 'X');
    }
    PutField(out, text, length, directive.width, directive.left, directive.zero && !directive.left);
}

// A string argument is its offset (high half) and length (low half) in the record's copied strings.
void PutSafeString(SafeOut& out, const SafeDirective& directive, std::uint64_t v, const char* strings,
                   std::uint32_t stringBytes)
{
    if (v == kNullString)
        PutField(out, "(null)", 6, directive.width, directive.left, false);
    else if ((v >> 32) + (v & 0xFFFFFFFFu) <= stringBytes)
    {
        std::size_t n = static_cast<std::size_t>(v & 0xFFFFFFFFu);
        if (directive.precision >= 0 && static_cast<std::size_t>(directive.precision) < n)
            n = static_cast<std::size_t>(directive.precision);
        PutField(out, strings + (v >> 32), n, directive.width, directive.left, false);
    }
}

void SafeFormat(SafeOut& out, const char* format, const std::uint64_t* args, unsigned count,
                const char* strings, std::uint32_t stringBytes)
{
    SafeArguments arguments{args, count};
    for (const char* p = format; *p != '\0'; ++p)
    {
        if (*p != '%')
        {
            out.Put(*p);
            continue;
        }
        if (*++p == '%')
        {
            out.Put('%');
            continue;
        }
        SafeDirective directive;
        if (!ParseSafeDirective(p, arguments, directive))
            break;
        const char conv = *p;
        std::uint64_t v = 0;
        if (!arguments.Take(v))
            out.Put("<missing argument>");
        else if (std::strchr("diuxXo", conv) != nullptr)
            PutSafeInteger(out, directive, conv, v);
        else if (conv == 'c' || conv == 'C')
        {
            const char text[1] = {static_cast<char>(v & 0x7F)};
            PutField(out, text, 1, directive.width, directive.left, false);
        }
        else if (conv == 's' || conv == 'S')
            PutSafeString(out, directive, v, strings, stringBytes);
        else // pointers, floating point and anything else: the raw slot
        {
            char text[32];
            out.Put("0x");
            out.Put(text, NumberText(text, v, false, 16, false));
        }
    }
}

void PutUtcTime(SafeOut& out, std::int64_t ns)
{
    // Civil date from days since 1970 (Howard Hinnant's algorithm), so no library call is needed.
    std::int64_t seconds = ns / 1000000000;
    std::int64_t days = seconds / 86400;
    std::int64_t rest = seconds % 86400;
    days += 719468;
    const std::int64_t era = days / 146097;
    const std::int64_t doe = days - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const std::int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const std::int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const std::int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    PutUnsigned(out, static_cast<std::uint64_t>(year), 10, false, 4, '0');
    out.Put('-');
    PutUnsigned(out, static_cast<std::uint64_t>(month), 10, false, 2, '0');
    out.Put('-');
    PutUnsigned(out, static_cast<std::uint64_t>(day), 10, false, 2, '0');
    out.Put('T');
    PutUnsigned(out, static_cast<std::uint64_t>(rest / 3600), 10, false, 2, '0');
    out.Put(':');
    PutUnsigned(out, static_cast<std::uint64_t>(rest / 60 % 60), 10, false, 2, '0');
    out.Put(':');
    PutUnsigned(out, static_cast<std::uint64_t>(rest % 60), 10, false, 2, '0');
    out.Put('.');
    PutUnsigned(out, static_cast<std::uint64_t>(ns / 1000000 % 1000), 10, false, 3, '0');
    out.Put('Z');
}

const char* SafeString(const Ring& ring, std::uint32_t offset)
{
    return offset < ring.header->stringCapacity ? ring.strings + offset : "?";
}

// Ticks per second from the segment's calibration pairs, taking a later pair first when they are too
// close together.
double CrashTicksPerSecond(SegmentHeader& h)
{
    if (h.tickKind == 0)
        return 1e9;
    std::int64_t span = h.lastRealNs.load(std::memory_order_relaxed) - h.startRealNs;
    if (span < 50000000)
    {
        btrace_platform::SleepMs(50);
        UpdateCalibration(h);
        span = h.lastRealNs.load(std::memory_order_relaxed) - h.startRealNs;
    }
    const std::uint64_t ticks = h.lastTicks.load(std::memory_order_relaxed) - h.startTicks;
    return span > 0 ? static_cast<double>(ticks) * 1e9 / static_cast<double>(span) : 1e9;
}

// Reads the record that starts at slot `absolute` into w (its first slot) and payload; false when that
// slot does not start a whole record.
bool ReadLiveRecord(const Ring& ring, std::uint64_t absolute, std::uint64_t end, std::uint64_t* w,
                    std::uint64_t* payload, std::size_t& words)
{
    const std::atomic<std::uint64_t>* slot = ring.slots + (absolute & ring.mask) * kSlotWords;
    for (unsigned i = 0; i < kSlotWords; ++i)
        w[i] = slot[i].load(std::memory_order_relaxed);
    const std::uint64_t k = (w[1] >> 40) & 0xFF;
    if (w[0] != absolute + 1 || ((w[1] >> 32) & 0xFF) != 0 || k == 0 ||
        static_cast<std::uint32_t>(w[1]) != SlotCheck(w) || absolute + k > end)
        return false;
    words = 0;
    for (unsigned i = 5; i < kSlotWords; ++i)
        payload[words++] = w[i];
    for (std::uint64_t j = 1; j < k; ++j)
    {
        std::uint64_t c[kSlotWords];
        const std::atomic<std::uint64_t>* s = ring.slots + ((absolute + j) & ring.mask) * kSlotWords;
        for (unsigned i = 0; i < kSlotWords; ++i)
            c[i] = s[i].load(std::memory_order_relaxed);
        if (c[0] != absolute + j + 1 || static_cast<std::uint32_t>(c[1]) != SlotCheck(c))
            return false;
        for (unsigned i = 2; i < kSlotWords; ++i)
            payload[words++] = c[i];
    }
    return true;
}

struct CrashClock
{
    std::uint64_t lastTicks;
    std::int64_t lastRealNs;
    double ticksPerSecond;
};

// Formats one record as a dump line into `line`; returns its length (0 when the record is not usable).
std::size_t FormatCrashLine(const Ring& ring, const std::uint64_t* w, const std::uint64_t* payload,
                            std::size_t words, const CrashClock& clock, char* line, std::size_t size)
{
    const std::uint32_t index = static_cast<std::uint32_t>(w[3]);
    const unsigned count = static_cast<unsigned>(w[4] & 0xFFFF);
    const std::uint32_t stringBytes = static_cast<std::uint32_t>(w[4] >> 32);
    if (index >= ring.header->descriptorCount.load(std::memory_order_acquire) ||
        count + (stringBytes + 7) / 8 > words)
        return 0;
    const SharedDescriptor& d = ring.descriptors[index];
    SafeOut out{line, line + size - 1};
    const double delta = static_cast<double>(static_cast<std::int64_t>(w[2] - clock.lastTicks));
    PutUtcTime(out, clock.lastRealNs + static_cast<std::int64_t>(delta * 1e9 / clock.ticksPerSecond));
    out.Put(" [");
    out.Put(BTraceLevelName((d.flags >> 16) & 0xFF));
    out.Put("] ");
    out.Put(SafeString(ring, d.module));
    out.Put(' ');
    const char* source = SafeString(ring, d.file);
    for (const char* q = source; *q != '\0'; ++q)
        if (*q == '/' || *q == '\\')
            source = q + 1;
    out.Put(source);
    out.Put(':');
    PutUnsigned(out, d.line >> 16, 10, false, 0, ' ');
    out.Put(" #");
    PutUnsigned(out, w[3] >> 32, 10, false, 0, ' ');
    out.Put(' ');
    SafeFormat(out, SafeString(ring, d.format), payload, count,
               reinterpret_cast<const char*>(payload + count), stringBytes);
    *out.p++ = '\n';
    return static_cast<std::size_t>(out.p - line);
}

void CrashDump(int code)
{
    Ring* ring = g_ring.load(std::memory_order_acquire);
    if (ring == nullptr)
        return;
    SegmentHeader& h = *ring->header;
    h.state.store(kStateCrashed | (static_cast<std::uint32_t>(code) & 0xFF), std::memory_order_release);
    UpdateCalibration(h);
    if (!g_crashArmed.load(std::memory_order_acquire))
        return;
    const std::intptr_t file = btrace_platform::CrashOpen(g_crashPath);
    if (file < 0)
        return;
    const double ticksPerSecond = CrashTicksPerSecond(h);
    const CrashClock clock{h.lastTicks.load(std::memory_order_relaxed),
                           h.lastRealNs.load(std::memory_order_relaxed), ticksPerSecond};
    static char line[8192];
    static std::uint64_t payload[kMaxSlotsPerRecord * kNextSlotPayloadWords];
    const std::uint64_t end = h.nextSlot.load(std::memory_order_acquire);
    const std::uint64_t begin = end > ring->slotCount ? end - ring->slotCount : 0;
    for (std::uint64_t absolute = begin; absolute < end; ++absolute)
    {
        std::uint64_t w[kSlotWords];
        std::size_t words = 0;
        if (!ReadLiveRecord(*ring, absolute, end, w, payload, words))
            continue;
        const std::size_t length = FormatCrashLine(*ring, w, payload, words, clock, line, sizeof line);
        btrace_platform::CrashWrite(file, line, length);
        absolute += ((w[1] >> 40) & 0xFF) - 1;
    }
    static const char kTrailer[] = "-- end of trace: the process ended abnormally\n";
    btrace_platform::CrashWrite(file, kTrailer, sizeof kTrailer - 1);
    btrace_platform::CrashClose(file);
}

} // namespace

bool RingEnableCrashDump(const std::string& path)
{
    if (path.empty() || path.size() >= sizeof g_crashPath)
        return false;
    g_crashArmed.store(false, std::memory_order_release);
    std::memset(g_crashPath, 0, sizeof g_crashPath);
    std::memcpy(g_crashPath, path.c_str(), path.size());
    g_crashArmed.store(true, std::memory_order_release);
    return btrace_platform::InstallCrashHook(CrashDump);
}

} // namespace btrace_detail
