// Internal to btrace: the shared trace ring of this process and the table of message sites.
//
// How a message reaches the ring. Every site (descriptor address) gets one SiteEntry on first use, found
// afterwards without a lock in an open-addressing table keyed by the address; the entry knows which
// arguments are strings, the site's index in the segment's descriptor table and the site's limit. A writer
// takes slots from a block of slots its thread reserved with one atomic add (so two threads rarely touch
// the same cache line), fills each slot's words, adds the slot's check value and stores the slot number
// last, with release order. A reader accepts a slot only when its number matches its position and its
// check value matches its words, so a slot caught half-written, or overwritten by a later lap, is never
// taken for a message; a thread's messages are in increasing slot order, so the ring loses the oldest
// first and a reader sees each thread's messages in the order written.
//
// The ring and the site table live until the process ends (a writer may still hold a pointer when the
// back-end shuts down); RingStop only detaches the ring. All functions are thread-safe.
#pragma once

#include "btrace.h"
#include "btraceinternal.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace btrace_detail
{

struct SiteEntry
{
    const BTraceDescriptor* descriptor = nullptr;
    std::vector<StringArgument> strings;     // fixed once the entry is published
    std::atomic<std::uint64_t> sharedRef{0}; // ring generation (high 32) and descriptor index (low 32)

    // The site's limit: at most limitCount emissions per window (windowNs > 0) or the first limitCount.
    std::atomic<bool> limited{false};
    std::atomic<std::uint32_t> limitCount{0};
    std::atomic<std::uint64_t> windowNs{0};
    std::atomic<std::uint64_t> windowStart{0};
    std::atomic<std::uint32_t> emitted{0};
    std::atomic<std::uint64_t> suppressed{0};
    BTraceDescriptor reportDescriptor{}; // "%llu repeats suppressed: %s" at the site's module, file and line
};

// The entry of a site, created on first use; null only when the table is full.
SiteEntry* FindSite(const BTraceDescriptor* d);
// Counts the emission against the site's limit. False when it must be suppressed; `report` receives the
// count suppressed in a window that has just ended (0 when there is nothing to report).
bool AdmitSite(SiteEntry& site, std::uint64_t& report);
// Reports the counts suppressed so far at every limited site (dump, shutdown).
void FlushSuppressed();

bool RingStart(const std::string& segment, const std::string& program, std::uint64_t bytes, std::string& path,
               std::string& error);
void RingStop(std::uint32_t finalState);
bool RingActive();
void RingWrite(SiteEntry* site, const BTraceDescriptor* d, const std::uint64_t* args, unsigned count);
// Header of the active ring, null when there is none.
SegmentHeader* RingHeader();
// Formatted dump of the active ring (after flushing suppressed counts). False when no ring is active.
bool RingDumpText(std::string& text, std::string& error);
void RingUpdateCalibration();
// Arms the dump on abnormal end: path is copied now, the dump is written from the crash handler.
bool RingEnableCrashDump(const std::string& path);
std::string LocalTimeText(std::int64_t realNs);

// Trace commands (btracecommand.cpp): the host side starts with the number of modules known so far.
bool CommandStart(const std::string& segment, unsigned moduleCount, std::string& error);
void CommandModuleAdded(unsigned index);
void CommandStop();
bool SegmentPath(const std::string& segment, std::string& path, std::string& error);

} // namespace btrace_detail
