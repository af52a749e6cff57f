// Reading a segment image: header validation, record validation, ordering and formatting. The image is
// a private copy (of the file, or of the live mapping), so nothing here can be changed under the reader;
// every offset and count in it is checked against the image before use.
#include "btraceinternal.h"
#include "btraceplatform.h"
#include "btracering.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <queue>

namespace btrace_detail
{

namespace
{

bool Fail(std::string& error, const char* reason)
{
    error = reason;
    return false;
}

// The zero-terminated string at `offset` of the string area, or "?" when it runs off the area.
std::string StringAt(const unsigned char* strings, std::uint64_t capacity, std::uint32_t offset)
{
    if (offset >= capacity)
        return "?";
    const void* end = std::memchr(strings + offset, 0, static_cast<std::size_t>(capacity - offset));
    if (end == nullptr)
        return "?";
    return std::string(reinterpret_cast<const char*>(strings + offset));
}

struct RawRecord
{
    std::uint64_t slot;
    std::uint64_t ticks;
    std::uint32_t descriptor;
    std::uint32_t threadId;
    unsigned count;
    std::uint32_t stringBytes;
    std::vector<std::uint64_t> payload;
};

} // namespace

bool CheckSegmentHeader(const unsigned char* image, std::size_t bytes, std::string& error)
{
    if (bytes < kHeaderBytes)
        return Fail(error, "too short for a trace segment");
    const SegmentHeader& h = *reinterpret_cast<const SegmentHeader*>(image);
    if (std::memcmp(h.magic, kSegmentMagic, sizeof h.magic) != 0)
        return Fail(error, "not a trace segment (wrong magic)");
    if (h.version != kSegmentVersion)
        return Fail(error, "trace segment of another version");
    if (h.headerBytes != kHeaderBytes || h.fileBytes != bytes ||
        h.descriptorBytes != sizeof(SharedDescriptor))
        return Fail(error, "trace segment sizes do not match the file");
    if (h.descriptorOffset != kHeaderBytes || h.descriptorCapacity == 0 || h.descriptorCapacity > (1u << 20))
        return Fail(error, "bad descriptor table");
    if (h.stringOffset !=
            h.descriptorOffset + std::uint64_t(h.descriptorCapacity) * sizeof(SharedDescriptor) ||
        h.stringCapacity == 0 || h.stringCapacity > (1u << 26) || h.stringCapacity % 8 != 0)
        return Fail(error, "bad string area");
    if (h.slotOffset != h.stringOffset + h.stringCapacity || h.slotCount < kMinSlotCount ||
        h.slotCount > kMaxSlotCount || (h.slotCount & (h.slotCount - 1)) != 0 ||
        h.slotOffset + h.slotCount * kSlotBytes != bytes)
        return Fail(error, "bad ring geometry");
    if (h.descriptorCount.load(std::memory_order_relaxed) > h.descriptorCapacity ||
        h.stringUsed.load(std::memory_order_relaxed) > h.stringCapacity)
        return Fail(error, "bad table counters");
    return true;
}

double TicksPerSecond(const SegmentHeader& h)
{
    if (h.tickKind == 0)
        return 1e9;
    std::uint64_t seq;
    std::uint64_t ticks;
    std::int64_t realNs;
    int tries = 0;
    do
    {
        seq = h.calibrationSeq.load(std::memory_order_acquire);
        ticks = h.lastTicks.load(std::memory_order_relaxed);
        realNs = h.lastRealNs.load(std::memory_order_relaxed);
    } while (((seq & 1) != 0 || seq != h.calibrationSeq.load(std::memory_order_acquire)) && ++tries < 1000);
    const std::int64_t span = realNs - h.startRealNs;
    if (span >= 100000000 && ticks > h.startTicks)
        return static_cast<double>(ticks - h.startTicks) * 1e9 / static_cast<double>(span);
    // Too short a span: measure the machine-wide counter here, once per process.
    static const double measured = []
    {
        const std::uint64_t t0 = ReadTicks();
        const std::uint64_t n0 = btrace_platform::MonotonicNs();
        btrace_platform::SleepMs(50);
        const std::uint64_t t1 = ReadTicks();
        const std::uint64_t n1 = btrace_platform::MonotonicNs();
        return n1 > n0 ? static_cast<double>(t1 - t0) * 1e9 / static_cast<double>(n1 - n0) : 1e9;
    }();
    return measured;
}

namespace
{

using RecordsByThread = std::map<std::uint32_t, std::vector<RawRecord>>;

// Whole records of the image: a first slot whose number matches its place and whose check holds,
// followed by as many continuation slots as it announces, each valid in the same way.
RecordsByThread CollectRecords(const SegmentHeader& h, const unsigned char* image, std::uint64_t minSlot)
{
    const auto* slots = reinterpret_cast<const std::uint64_t*>(image + h.slotOffset);
    const std::uint64_t count = h.slotCount;
    const std::uint64_t mask = count - 1;
    RecordsByThread byThread;
    for (std::uint64_t i = 0; i < count; ++i)
    {
        const std::uint64_t* w = slots + i * kSlotWords;
        if (w[0] == 0 || ((w[0] - 1) & mask) != i || static_cast<std::uint32_t>(w[1]) != SlotCheck(w))
            continue;
        const std::uint64_t absolute = w[0] - 1;
        const std::uint64_t k = (w[1] >> 40) & 0xFF;
        if (((w[1] >> 32) & 0xFF) != 0 || k == 0 || k > count || absolute < minSlot)
            continue;
        RawRecord r{absolute,
                    w[2],
                    static_cast<std::uint32_t>(w[3]),
                    static_cast<std::uint32_t>(w[3] >> 32),
                    static_cast<unsigned>(w[4] & 0xFFFF),
                    static_cast<std::uint32_t>(w[4] >> 32),
                    {}};
        r.payload.assign(w + 5, w + kSlotWords);
        bool whole = true;
        for (std::uint64_t j = 1; j < k && whole; ++j)
        {
            const std::uint64_t* c = slots + ((absolute + j) & mask) * kSlotWords;
            whole = c[0] == absolute + j + 1 && ((c[1] >> 32) & 0xFF) == j && ((c[1] >> 40) & 0xFF) == k &&
                    static_cast<std::uint32_t>(c[1]) == SlotCheck(c);
            r.payload.insert(r.payload.end(), c + 2, c + kSlotWords);
        }
        if (!whole || r.count + (std::uint64_t(r.stringBytes) + 7) / 8 > r.payload.size())
            continue;
        byThread[r.threadId].push_back(std::move(r));
    }
    return byThread;
}

// Each thread's records in slot order (the order it wrote them), merged across threads by time stamp.
std::vector<const RawRecord*> MergeByTime(RecordsByThread& byThread)
{
    using Cursor = std::pair<std::vector<RawRecord>*, std::size_t>;
    auto later = [](const Cursor& a, const Cursor& b)
    {
        const RawRecord& x = (*a.first)[a.second];
        const RawRecord& y = (*b.first)[b.second];
        return x.ticks != y.ticks ? x.ticks > y.ticks : x.slot > y.slot;
    };
    std::priority_queue<Cursor, std::vector<Cursor>, decltype(later)> heap(later);
    for (auto& entry : byThread)
    {
        std::sort(entry.second.begin(), entry.second.end(),
                  [](const RawRecord& a, const RawRecord& b) { return a.slot < b.slot; });
        heap.push(Cursor{&entry.second, 0});
    }
    std::vector<const RawRecord*> ordered;
    while (!heap.empty())
    {
        Cursor cursor = heap.top();
        heap.pop();
        ordered.push_back(&(*cursor.first)[cursor.second]);
        if (cursor.second + 1 < cursor.first->size())
            heap.push(Cursor{cursor.first, cursor.second + 1});
    }
    return ordered;
}

// The message text of a record: the formatter names the argument slots that carry strings; their words
// point into the record's copied bytes and are checked against them.
std::string DecodeText(const std::string& format, const RawRecord& r)
{
    std::vector<std::uint64_t> args(r.payload.begin(), r.payload.begin() + r.count);
    std::vector<StringArgument> stringArguments;
    {
        std::vector<std::uint64_t> zeros(r.count, 0);
        FormatMessage(format.c_str(), zeros.data(), zeros.size(), nullptr, &stringArguments);
    }
    std::vector<std::string> copied(r.count);
    const char* bytes = reinterpret_cast<const char*>(r.payload.data() + r.count);
    for (const StringArgument& s : stringArguments)
    {
        if (s.index >= r.count)
            continue;
        const std::uint64_t v = args[s.index];
        if (v == kNullString)
        {
            args[s.index] = 0;
            continue;
        }
        const std::uint64_t offset = v >> 32;
        const std::uint64_t length = v & 0xFFFFFFFFu;
        if (offset + length <= r.stringBytes)
            copied[s.index].assign(bytes + offset, static_cast<std::size_t>(length));
        else
            copied[s.index] = "<bad string>";
        args[s.index] = 1;
    }
    return FormatMessage(format.c_str(), args.data(), args.size(), &copied, nullptr);
}

} // namespace

bool ReadRingImage(const unsigned char* image, std::size_t bytes, std::uint64_t minSlot,
                   double ticksPerSecond, std::vector<RingMessage>& messages, std::string& error)
{
    messages.clear();
    if (!CheckSegmentHeader(image, bytes, error))
        return false;
    const SegmentHeader& h = *reinterpret_cast<const SegmentHeader*>(image);
    const auto* descriptors = reinterpret_cast<const SharedDescriptor*>(image + h.descriptorOffset);
    const unsigned char* strings = image + h.stringOffset;
    const std::uint32_t descriptorCount = h.descriptorCount.load(std::memory_order_relaxed);
    const std::uint64_t lastTicks = h.lastTicks.load(std::memory_order_relaxed);
    const std::int64_t lastRealNs = h.lastRealNs.load(std::memory_order_relaxed);

    RecordsByThread byThread = CollectRecords(h, image, minSlot);
    for (const RawRecord* r : MergeByTime(byThread))
    {
        RingMessage m{r->slot, r->ticks, 0, r->threadId, 0, "?", "?", 0, "<unknown message>"};
        m.realNs = lastRealNs + static_cast<std::int64_t>(
                                    static_cast<double>(static_cast<std::int64_t>(r->ticks - lastTicks)) *
                                    1e9 / ticksPerSecond);
        if (r->descriptor < descriptorCount &&
            descriptors[r->descriptor].ready.load(std::memory_order_relaxed) == 1)
        {
            const SharedDescriptor& d = descriptors[r->descriptor];
            m.level = (d.flags >> 16) & 0xFF;
            m.module = StringAt(strings, h.stringCapacity, d.module);
            m.file = StringAt(strings, h.stringCapacity, d.file);
            m.line = d.line >> 16;
            m.text = DecodeText(StringAt(strings, h.stringCapacity, d.format), *r);
        }
        messages.push_back(std::move(m));
    }
    return true;
}

std::string FormatDumpLine(const RingMessage& m)
{
    std::string file = m.file;
    const std::size_t slash = file.find_last_of("/\\");
    if (slash != std::string::npos)
        file = file.substr(slash + 1);
    std::string line = LocalTimeText(m.realNs);
    line += " [";
    line += BTraceLevelName(m.level);
    line += "] ";
    line += m.module;
    line += ' ';
    line += file;
    line += ':';
    line += std::to_string(m.line);
    line += " #";
    line += std::to_string(m.threadId);
    line += ' ';
    line += m.text;
    line += '\n';
    return line;
}

std::string SegmentFileName(const std::string& segment)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string name;
    for (std::size_t i = 0; i < segment.size(); ++i)
    {
        const unsigned char c = static_cast<unsigned char>(segment[i]);
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '_' || c == '-' || (c == '.' && i != 0);
        if (plain)
            name += static_cast<char>(c);
        else
        {
            name += '%';
            name += kHex[c >> 4];
            name += kHex[c & 15];
        }
    }
    if (name.empty() || name.size() > 200)
        return std::string();
    return name + ".btrace";
}

} // namespace btrace_detail

using namespace btrace_detail;

bool BTraceReadSegmentFile(const std::string& filePath, std::string& text, std::string& error)
{
    std::vector<unsigned char> image;
    if (!btrace_platform::ReadSegmentFile(filePath, (kMaxSlotCount + 4096) * kSlotBytes, image, error))
        return false;
    if (!CheckSegmentHeader(image.data(), image.size(), error))
        return false;
    // Records older than one lap before the end may have been overwritten while the file was copied.
    const SegmentHeader& h = *reinterpret_cast<const SegmentHeader*>(image.data());
    std::uint64_t end = h.nextSlot.load(std::memory_order_relaxed);
    std::uint64_t now = end;
    if (btrace_platform::ReadSegmentAt(filePath, offsetof(SegmentHeader, nextSlot), &now, sizeof now,
                                       error) &&
        now > end)
        end = now;
    const std::uint64_t minSlot = end > h.slotCount ? end - h.slotCount : 0;
    std::vector<RingMessage> messages;
    if (!ReadRingImage(image.data(), image.size(), minSlot, TicksPerSecond(h), messages, error))
        return false;
    text.clear();
    for (const RingMessage& m : messages)
        text += FormatDumpLine(m);
    const std::uint32_t state = h.state.load(std::memory_order_relaxed);
    if ((state & kStateCrashed) != 0)
        text += "-- end of trace: the process ended abnormally (" + std::to_string(state & 0xFF) + ")\n";
    return true;
}

bool BTraceReadSegment(const std::string& segment, std::string& text, std::string& error)
{
    std::string path;
    return SegmentPath(segment, path, error) && BTraceReadSegmentFile(path, text, error);
}

bool BTraceDumpSegment(const std::string& segment, const std::string& path, std::string& error)
{
    if (BTraceSegmentAlive(segment))
        return BTraceRemoteDump(segment, path, error);
    std::string text;
    return BTraceReadSegment(segment, text, error) && btrace_platform::WriteTextFile(path, text, error);
}

bool BTraceRemoveSegment(const std::string& segment, std::string& error)
{
    std::string path;
    if (!SegmentPath(segment, path, error))
        return false;
    if (BTraceSegmentAlive(segment))
    {
        error = "segment '" + segment + "' is in use by a running process";
        return false;
    }
    return btrace_platform::RemoveSegmentFile(path, error);
}

bool BTraceFindSegment(std::uint32_t pid, std::string& segment, std::string& error)
{
    std::string folder;
    if (!btrace_platform::SegmentFolder(folder, error))
        return false;
    for (const std::string& name : btrace_platform::ListSegmentFiles(folder))
    {
        SegmentHeader h;
        std::string ignored;
        if (!btrace_platform::ReadSegmentAt(folder + "/" + name, 0, &h, sizeof h, ignored) ||
            std::memcmp(h.magic, kSegmentMagic, sizeof h.magic) != 0 || h.pid != pid ||
            h.state.load(std::memory_order_relaxed) != kStateRunning)
            continue;
        h.segment[sizeof h.segment - 1] = '\0';
        if (SegmentFileName(h.segment) == name && BTraceSegmentAlive(h.segment))
        {
            segment = h.segment;
            return true;
        }
    }
    error = "no traced process with id " + std::to_string(pid);
    return false;
}
