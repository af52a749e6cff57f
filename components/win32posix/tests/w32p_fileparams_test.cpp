// The arguments of CreateFileW, ReadFile and WriteFile against Windows' answers: one row per case.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>

namespace
{

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr LONGLONG kAny = -1; // a position or size the row does not check

// A ten-byte file "0123456789" in dir, opened with access and moved to start.
HANDLE OpenTen(ScratchDir& dir, DWORD access, LONGLONG start)
{
    std::ofstream(dir.NarrowOf("t.bin"), std::ios::trunc) << "0123456789";
    HANDLE h = CreateFileW(dir.Wide(L"t.bin").c_str(), access, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER at;
    at.QuadPart = start;
    if (h != INVALID_HANDLE_VALUE)
        SetFilePointerEx(h, at, nullptr, FILE_BEGIN);
    return h;
}

LONGLONG PositionOf(HANDLE h)
{
    LARGE_INTEGER zero = {}, now = {};
    SetFilePointerEx(h, zero, &now, FILE_CURRENT);
    return now.QuadPart;
}

} // namespace

TEST(FileParameters, CreateFileAcceptsWhatWindowsAccepts)
{
    ScratchDir dir;
    std::ofstream(dir.NarrowOf("c.txt")) << "x";
    const std::wstring path = dir.Wide(L"c.txt");
    struct Row
    {
        DWORD access, share, disposition, flags, error;
    } rows[] = {
        {GENERIC_ALL, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},
        {0, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},
        {MAXIMUM_ALLOWED, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},
        {SYNCHRONIZE | READ_CONTROL, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},
        {0x00040000 | 0x00080000, 0, OPEN_EXISTING, 0, ERROR_SUCCESS}, // WRITE_DAC | WRITE_OWNER
        {0x0020, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},                  // FILE_EXECUTE
        {FILE_APPEND_DATA, 0, OPEN_EXISTING, 0, ERROR_SUCCESS},
        {GENERIC_READ, kShareAll, OPEN_EXISTING, 0xff000000u & ~FILE_FLAG_DELETE_ON_CLOSE, ERROR_SUCCESS},
        {GENERIC_READ, 0, OPEN_EXISTING, 0x00200000, ERROR_SUCCESS}, // FILE_FLAG_OPEN_REPARSE_POINT
        {GENERIC_READ, 0, OPEN_EXISTING, 0x00110000, ERROR_SUCCESS}, // SECURITY_SQOS_PRESENT | identification
        {GENERIC_READ, 0, OPEN_EXISTING, 0xffff, ERROR_SUCCESS},     // every attribute bit
        {GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_DIRECTORY, ERROR_ALREADY_EXISTS},
        {GENERIC_READ, 0, 0, 0, ERROR_INVALID_PARAMETER},
        {GENERIC_READ, 0, TRUNCATE_EXISTING + 1, 0, ERROR_INVALID_PARAMETER},
        {GENERIC_READ, 0, TRUNCATE_EXISTING, 0, ERROR_INVALID_PARAMETER},
        {GENERIC_READ, 8, OPEN_EXISTING, 0, ERROR_INVALID_PARAMETER},
    };
    for (const Row& row : rows)
    {
        SetLastError(12345);
        HANDLE h =
            CreateFileW(path.c_str(), row.access, row.share, nullptr, row.disposition, row.flags, nullptr);
        const bool opened = h != INVALID_HANDLE_VALUE;
        EXPECT_EQ(opened, row.error == ERROR_SUCCESS || row.error == ERROR_ALREADY_EXISTS)
            << std::hex << row.access << " " << row.flags;
        EXPECT_EQ(GetLastError(), row.error) << std::hex << row.access << " " << row.flags;
        if (opened)
            CloseHandle(h);
        // A file made by a row is still a plain file that every later row can open.
        EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
    }
}

TEST(FileParameters, ReadAndWriteAnswerAsWindows)
{
    constexpr DWORD kNone = 0xFFFFFFFEu; // no OVERLAPPED
    constexpr DWORD kEnd = 0xFFFFFFFFu;  // OVERLAPPED offset 0xFFFFFFFF:FFFFFFFF: write at the end
    struct Row
    {
        const char* what;
        DWORD access;
        bool write;
        LONGLONG start;  // file position before the call
        DWORD offset;    // OVERLAPPED offset, or kNone
        bool nullBuffer; // the buffer pointer is null
        bool nullCount;  // the count pointer is null
        DWORD size;
        BOOL ok;
        DWORD error; // when !ok
        DWORD moved;
        LONGLONG position; // after the call
        LONGLONG fileSize; // after the call
    } rows[] = {
        {"read at an offset", GENERIC_READ, false, 0, 4, false, false, 3, TRUE, 0, 3, 7, 10},
        {"read across the end", GENERIC_READ, false, 0, 8, false, false, 5, TRUE, 0, 2, 10, 10},
        {"read at the end", GENERIC_READ, false, 0, 10, false, false, 3, FALSE, ERROR_HANDLE_EOF, 0, 10, 10},
        {"read beyond the end", GENERIC_READ, false, 0, 50, false, false, 3, FALSE, ERROR_HANDLE_EOF, 0, 50,
         10},
        {"read nothing beyond the end", GENERIC_READ, false, 0, 50, false, false, 0, TRUE, 0, 0, kAny, 10},
        {"read at the end, no offset", GENERIC_READ, false, 10, kNone, false, false, 3, TRUE, 0, 0, 10, 10},
        {"read after seeking beyond", GENERIC_READ, false, 100, kNone, false, false, 3, TRUE, 0, 0, 100, 10},
        {"read nothing to null", GENERIC_READ, false, 0, kNone, true, false, 0, TRUE, 0, 0, 0, 10},
        {"read into null", GENERIC_READ, false, 0, kNone, true, false, 3, FALSE, ERROR_NOACCESS, 0, 0, 10},
        {"read, null count", GENERIC_READ, false, 0, kNone, false, true, 3, TRUE, 0, 0, 3, 10},
        {"read, no read access", GENERIC_WRITE, false, 0, kNone, false, false, 2, FALSE, ERROR_ACCESS_DENIED,
         0, 0, 10},
        {"read, access 0", 0, false, 0, kNone, false, false, 2, FALSE, ERROR_ACCESS_DENIED, 0, 0, 10},
        {"read, maximum allowed", MAXIMUM_ALLOWED, false, 0, kNone, false, false, 3, TRUE, 0, 3, 3, 10},
        {"write, no write access", GENERIC_READ, true, 0, kNone, false, false, 2, FALSE, ERROR_ACCESS_DENIED,
         0, 0, 10},
        {"write, null count", GENERIC_WRITE, true, 0, kNone, false, true, 2, TRUE, 0, 0, 2, 10},
        {"write nothing from null", GENERIC_WRITE, true, 0, kNone, true, false, 0, TRUE, 0, 0, 0, 10},
        {"write from null", GENERIC_WRITE, true, 0, kNone, true, false, 3, FALSE, ERROR_INVALID_USER_BUFFER,
         0, 0, 10},
        {"write beyond the end", GENERIC_WRITE, true, 0, 20, false, false, 2, TRUE, 0, 2, 22, 22},
        {"write at the end by offset", GENERIC_WRITE, true, 3, kEnd, false, false, 2, TRUE, 0, 2, 12, 12},
        {"write to an append-only handle", FILE_APPEND_DATA, true, 0, kNone, false, false, 2, TRUE, 0, 2, 12,
         12},
    };
    ScratchDir dir;
    char buffer[16] = "ab";
    for (const Row& row : rows)
    {
        HANDLE h = OpenTen(dir, row.access, row.start);
        ASSERT_NE(h, INVALID_HANDLE_VALUE) << row.what;
        OVERLAPPED overlapped = {};
        overlapped.Offset = overlapped.OffsetHigh = row.offset == kEnd ? kEnd : 0;
        if (row.offset != kEnd)
            overlapped.Offset = row.offset;
        LPOVERLAPPED at = row.offset == kNone ? nullptr : &overlapped;
        void* data = row.nullBuffer ? nullptr : buffer;
        DWORD moved = 99;
        SetLastError(12345);
        const BOOL ok = row.write ? WriteFile(h, data, row.size, row.nullCount ? nullptr : &moved, at)
                                  : ReadFile(h, data, row.size, row.nullCount ? nullptr : &moved, at);
        EXPECT_EQ(ok, row.ok) << row.what;
        EXPECT_EQ(row.ok ? row.error : GetLastError(), row.error) << row.what;
        EXPECT_EQ(row.nullCount ? row.moved : moved, row.moved) << row.what;
        EXPECT_EQ(at != nullptr ? overlapped.InternalHigh : row.moved, row.moved) << row.what;
        EXPECT_EQ(row.position != kAny ? PositionOf(h) : kAny, row.position) << row.what;
        LARGE_INTEGER size = {};
        EXPECT_TRUE(GetFileSizeEx(h, &size));
        EXPECT_EQ(size.QuadPart, row.fileSize) << row.what;
        CloseHandle(h);
    }
}
