// Internal to btrace: the operating-system pieces of the back-end, one source per platform chosen in CMake
// (btrace_posix.cpp, btrace_win.cpp). Everything else in btrace is written once. Segment files live in a
// per-user folder outside the named-object namespace, so a ring outlives the process that wrote it.
// Every function is thread-safe; failures return false, null or empty with the reason in `error`. The
// crash-dump functions (CrashOpen, CrashWrite, CrashClose, RealTimeNs, MonotonicNs) only make system calls
// and are safe in a fatal-signal handler.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace btrace_platform
{

// This user's segment folder, created private to the user on first use; refused when it exists but is
// not a folder owned by this user and closed to others.
bool SegmentFolder(std::string& folder, std::string& error);
// Creates or reuses the file at path as a segment of exactly `bytes` zero bytes and maps it shared and
// read-write. The mapping stays for the life of the process.
void* MapSegment(const std::string& path, std::uint64_t bytes, std::string& error);
// Copies a whole segment file of this user (regular file, at most `limit` bytes) into `data`.
bool ReadSegmentFile(const std::string& path, std::uint64_t limit, std::vector<unsigned char>& data,
                     std::string& error);
bool ReadSegmentAt(const std::string& path, std::uint64_t offset, void* data, std::size_t size,
                   std::string& error);
bool WriteSegmentAt(const std::string& path, std::uint64_t offset, const void* data, std::size_t size,
                    std::string& error);
bool RemoveSegmentFile(const std::string& path, std::string& error);
// File names in the segment folder.
std::vector<std::string> ListSegmentFiles(const std::string& folder);
// Writes `text` to `path` through a temporary file beside it, renamed into place when complete.
bool WriteTextFile(const std::string& path, const std::string& text, std::string& error);

std::uint32_t ProcessId();
std::uint32_t ThreadId();
bool ProcessAlive(std::uint32_t pid);
std::int64_t RealTimeNs();
// Broken-down local time of `seconds` since 1970.
void LocalTime(std::int64_t seconds, struct tm& out);
// Broken-down UTC of `seconds` since 1970.
void UtcTime(std::int64_t seconds, struct tm& out);
std::uint64_t MonotonicNs();
void SleepMs(unsigned ms);

// Runs onCrash(code) when the process ends abnormally (fatal signal; unhandled exception), then hands
// the event to the handler that was installed before. Installs once; later calls only return true.
bool InstallCrashHook(void (*onCrash)(int code));
std::intptr_t CrashOpen(const char* path); // -1 on failure
void CrashWrite(std::intptr_t file, const char* data, std::size_t size);
void CrashClose(std::intptr_t file);

} // namespace btrace_platform
