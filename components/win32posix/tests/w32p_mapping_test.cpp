// Paging-file-backed sections and their views.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

TEST(W32pMapping, UnnamedSectionIsZeroedPageRoundedAndWholeByDefault)
{
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 70000, nullptr);
    ASSERT_NE(section, nullptr);
    ULONGLONG size = 0;
    EXPECT_TRUE(W32pQuerySectionSize(section, size));
    EXPECT_EQ(size, 73728u);
    auto* view = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[0], 0);
    view[73727] = 7; // the whole rounded section is mapped
    auto* second = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_READ, 0, 65536, 8192));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second[8191], 7);
    EXPECT_TRUE(CloseHandle(section));
    EXPECT_EQ(second[8191], 7); // views outlive the handle
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_TRUE(UnmapViewOfFile(second));
    EXPECT_W32_FAILS(UnmapViewOfFile(second), FALSE, ERROR_INVALID_ADDRESS);
}

TEST(W32pMapping, ArgumentErrors)
{
    EXPECT_W32_FAILS(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0, nullptr),
                     nullptr, ERROR_INVALID_PARAMETER);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_W32_FAILS(CreateFileMappingW(event, nullptr, PAGE_READWRITE, 0, 4096, nullptr), nullptr,
                     ERROR_INVALID_HANDLE);
    EXPECT_W32_FAILS(MapViewOfFile(event, FILE_MAP_READ, 0, 0, 0), nullptr, ERROR_INVALID_HANDLE);
    CloseHandle(event);
    HANDLE readOnly = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, 4096, nullptr);
    ASSERT_NE(readOnly, nullptr);
    EXPECT_W32_FAILS(MapViewOfFile(readOnly, FILE_MAP_WRITE, 0, 0, 0), nullptr, ERROR_ACCESS_DENIED);
    EXPECT_W32_FAILS(MapViewOfFile(readOnly, FILE_MAP_READ, 0, 0, 8192), nullptr, ERROR_ACCESS_DENIED);
    CloseHandle(readOnly);
}

TEST(W32pMapping, NamedSectionKeepsItsFirstSizeAndIsSharedWithAChild)
{
    const std::wstring name = TestName(L"section");
    HANDLE section =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65537, name.c_str());
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    HANDLE again = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 1, name.c_str());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    ULONGLONG size = 0;
    EXPECT_TRUE(W32pQuerySectionSize(again, size));
    EXPECT_EQ(size, 69632u);
    CloseHandle(again);

    auto* view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    std::strcpy(view, "from parent");
    const pid_t child = ForkChild(
        [&]
        {
            HANDLE h = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str());
            if (h == nullptr)
                return 1;
            auto* v = static_cast<char*>(MapViewOfFile(h, FILE_MAP_ALL_ACCESS, 0, 0, 0));
            if (v == nullptr || std::strcmp(v, "from parent") != 0)
                return 2;
            std::strcpy(v + 69000, "from child");
            return 0;
        });
    EXPECT_EQ(JoinChild(child), 0);
    EXPECT_STREQ(view + 69000, "from child");
    EXPECT_TRUE(CloseHandle(section));
    // The view alone keeps the name alive.
    HANDLE reopened = OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str());
    EXPECT_NE(reopened, nullptr);
    CloseHandle(reopened);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_W32_FAILS(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()), nullptr, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(LeftoverShmFiles().empty());
}

// A section over a file maps the file's bytes: writes through a view reach the file, a writable section
// longer than the file extends it, and the section outlives the file handle.
TEST(W32pMapping, FileBackedSections)
{
    char path[] = "/tmp/w32p_filemap_XXXXXX";
    close(mkstemp(path));
    std::wstring widePath(path, path + std::strlen(path));
    HANDLE file = CreateFileW(widePath.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(file, "hello", 5, &written, nullptr));

    EXPECT_W32_FAILS(CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 0, L"named"), nullptr,
                     ERROR_NOT_SUPPORTED);

    HANDLE section = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    ASSERT_NE(section, nullptr);
    ULONGLONG size = 0;
    EXPECT_TRUE(W32pQuerySectionSize(section, size));
    EXPECT_EQ(size, 5u);
    char* view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, "hello", 5), 0);
    view[0] = 'j';
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_TRUE(CloseHandle(section));

    HANDLE longer = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 8192, nullptr);
    ASSERT_NE(longer, nullptr);
    EXPECT_TRUE(CloseHandle(file));
    char* whole = static_cast<char*>(MapViewOfFile(longer, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(whole, nullptr);
    whole[8191] = 'z';
    EXPECT_TRUE(UnmapViewOfFile(whole));
    EXPECT_TRUE(CloseHandle(longer));

    std::FILE* in = std::fopen(path, "rb");
    char bytes[8192] = {};
    EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, in), 8192u);
    std::fclose(in);
    EXPECT_EQ(std::memcmp(bytes, "jello", 5), 0);
    EXPECT_EQ(bytes[8191], 'z');

    // A file opened for reading only allows read-only and copy-on-write sections.
    HANDLE reader =
        CreateFileW(widePath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_W32_FAILS(CreateFileMappingW(reader, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr,
                     ERROR_ACCESS_DENIED);
    for (DWORD protect : {PAGE_READONLY, PAGE_WRITECOPY})
    {
        HANDLE granted = CreateFileMappingW(reader, nullptr, protect, 0, 0, nullptr);
        EXPECT_NE(granted, nullptr) << protect;
        CloseHandle(granted);
    }
    CloseHandle(reader);
    std::remove(path);
}

// Views of a paging-file-backed section share one mapping per range and access, counted per view; its
// pages stay mapped between views, so the contents are there at the same address when mapped again.
TEST(W32pMapping, ViewsOfASectionShareOneMappingUntilTheSectionEnds)
{
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65537, nullptr);
    ASSERT_NE(section, nullptr);
    auto* first = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0));
    auto* second = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    auto* readOnly = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0));
    ASSERT_NE(readOnly, nullptr);
    EXPECT_NE(readOnly, first); // another access is another mapping

    first[100] = 42;
    EXPECT_TRUE(UnmapViewOfFile(first));
    EXPECT_EQ(second[100], 42); // the second view still counts
    EXPECT_EQ(readOnly[100], 42);
    EXPECT_TRUE(UnmapViewOfFile(second));
    SetLastError(0);
    EXPECT_FALSE(UnmapViewOfFile(second)); // both references are gone
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS));

    auto* again = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0));
    EXPECT_EQ(again, first);
    EXPECT_EQ(again[100], 42);
    EXPECT_TRUE(CloseHandle(section));
    EXPECT_EQ(again[100], 42); // the open view keeps the section and its mapping
    EXPECT_TRUE(UnmapViewOfFile(again));
    EXPECT_TRUE(UnmapViewOfFile(readOnly));
}

// Copy-on-write views stay private to each view.
TEST(W32pMapping, CopyOnWriteViewsAreNotShared)
{
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr);
    ASSERT_NE(section, nullptr);
    auto* a = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_COPY, 0, 0, 0));
    auto* b = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_COPY, 0, 0, 0));
    ASSERT_TRUE(a != nullptr && b != nullptr);
    EXPECT_NE(a, b);
    a[0] = 1;
    EXPECT_EQ(b[0], 0);
    EXPECT_TRUE(UnmapViewOfFile(a));
    EXPECT_TRUE(UnmapViewOfFile(b));
    EXPECT_TRUE(CloseHandle(section));
}

TEST(W32pMapping, ViewAccessFollowsTheSectionProtection)
{
    // One row per protection; one column per view access: whether the view is granted (refusals are
    // ERROR_ACCESS_DENIED).
    const DWORD accesses[] = {FILE_MAP_READ,
                              FILE_MAP_WRITE,
                              FILE_MAP_COPY,
                              FILE_MAP_ALL_ACCESS,
                              FILE_MAP_EXECUTE | FILE_MAP_READ,
                              FILE_MAP_COPY | FILE_MAP_WRITE,
                              0};
    const struct
    {
        DWORD protect;
        const char* granted; // per access above
    } rows[] = {
        {PAGE_READONLY, "y.y...y"},
        {PAGE_READWRITE, "yyyy.yy"},
        {PAGE_WRITECOPY, "y.y...y"},
        {PAGE_EXECUTE_READ, "y.y.y.y"},
        {PAGE_EXECUTE_READWRITE, "yyyyyyy"},
        {PAGE_EXECUTE_WRITECOPY, "y.y.y.y"},
        {PAGE_READWRITE | SEC_COMMIT, "yyyy.yy"},
    };
    for (const auto& row : rows)
    {
        HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, row.protect, 0, 4096, nullptr);
        ASSERT_NE(section, nullptr) << std::hex << row.protect;
        for (std::size_t i = 0; i < std::size(accesses); ++i)
        {
            SetLastError(0);
            void* view = MapViewOfFile(section, accesses[i], 0, 0, 0);
            EXPECT_EQ(view != nullptr, row.granted[i] == 'y')
                << std::hex << row.protect << " " << accesses[i];
            if (view != nullptr)
                EXPECT_TRUE(UnmapViewOfFile(view));
            else
                EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        }
        CloseHandle(section);
    }
    for (DWORD refused : {0u, 0x01u, 0x10u, 0x104u, 0x06u, 0x00100004u, SEC_COMMIT | SEC_RESERVE | 4u})
        EXPECT_W32_FAILS(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, refused, 0, 4096, nullptr),
                         nullptr, ERROR_INVALID_PARAMETER);
    EXPECT_W32_FAILS(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, SEC_IMAGE | PAGE_READONLY, 0, 4096, nullptr),
        nullptr, ERROR_BAD_EXE_FORMAT);
}

TEST(W32pMapping, ViewsMustStartOnTheGranularityAndStayInside)
{
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0x30000, nullptr);
    ASSERT_NE(section, nullptr);
    const struct
    {
        DWORD offset;
        SIZE_T length;
        DWORD error; // 0: granted
    } cases[] = {
        {0x10000, 0, 0},
        {0x20000, 0x10000, 0},
        {0x1000, 0x1000, ERROR_MAPPED_ALIGNMENT},
        {0x30000, 0, ERROR_INVALID_PARAMETER},
        {0x40000, 0, ERROR_INVALID_PARAMETER},
        {0x10000, 0x20001, ERROR_ACCESS_DENIED},
        {0, 0x30001, ERROR_ACCESS_DENIED},
    };
    for (const auto& c : cases)
    {
        SetLastError(0);
        void* view = MapViewOfFile(section, FILE_MAP_READ, 0, c.offset, c.length);
        EXPECT_EQ(view != nullptr, c.error == 0) << std::hex << c.offset << " " << c.length;
        if (view != nullptr)
            UnmapViewOfFile(view);
        else
            EXPECT_EQ(GetLastError(), c.error) << std::hex << c.offset << " " << c.length;
    }
    CloseHandle(section);
}

TEST(W32pMapping, OpenedHandlesMapWhatTheirAccessAndTheCreatorsProtectionAllow)
{
    const std::wstring readOnly = TestName(L"ro"), readWrite = TestName(L"rw");
    HANDLE ro = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, 4096, readOnly.c_str());
    HANDLE rw = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, readWrite.c_str());
    ASSERT_NE(ro, nullptr);
    ASSERT_NE(rw, nullptr);
    const struct
    {
        const std::wstring& name;
        DWORD openAccess;
        DWORD viewAccess;
        bool granted;
    } cases[] = {
        {readOnly, FILE_MAP_WRITE, FILE_MAP_WRITE, false}, // the creator's protection holds
        {readOnly, FILE_MAP_ALL_ACCESS, FILE_MAP_READ, true},
        {readWrite, FILE_MAP_READ, FILE_MAP_WRITE, false},
        {readWrite, FILE_MAP_READ, FILE_MAP_COPY, true},
        {readWrite, 0, FILE_MAP_READ, false},
        {readWrite, GENERIC_READ, FILE_MAP_WRITE, false},
        {readWrite, FILE_MAP_WRITE, FILE_MAP_WRITE, true},
        {readWrite, GENERIC_ALL, FILE_MAP_ALL_ACCESS, true},
    };
    for (const auto& c : cases)
    {
        HANDLE opened = OpenFileMappingW(c.openAccess, FALSE, c.name.c_str());
        ASSERT_NE(opened, nullptr);
        SetLastError(0);
        void* view = MapViewOfFile(opened, c.viewAccess, 0, 0, 0);
        EXPECT_EQ(view != nullptr, c.granted) << std::hex << c.openAccess << " " << c.viewAccess;
        if (view != nullptr)
            UnmapViewOfFile(view);
        else
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        CloseHandle(opened);
    }
    CloseHandle(ro);
    CloseHandle(rw);
}
