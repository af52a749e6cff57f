// Paging-file-backed sections and their views.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

TEST(W32pMapping, UnnamedSectionIsZeroedPageRoundedAndWholeByDefault)
{
    HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 5000, nullptr);
    ASSERT_NE(section, nullptr);
    ULONGLONG size = 0;
    EXPECT_TRUE(W32pQuerySectionSize(section, size));
    EXPECT_EQ(size, 8192u);
    auto* view = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view[0], 0);
    view[8191] = 7; // the whole rounded section is mapped
    auto* second = static_cast<unsigned char*>(MapViewOfFile(section, FILE_MAP_READ, 0, 4096, 4096));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second[4095], 7);
    EXPECT_TRUE(CloseHandle(section));
    EXPECT_EQ(second[4095], 7); // views outlive the handle
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
