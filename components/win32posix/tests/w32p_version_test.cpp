// Version resources and string tables read from a real PE DLL (tests/data/pe, made by the mingw-w64 resource
// compiler), and from thousands of truncated and mutated copies of it, which must fail cleanly or answer
// within bounds.
#include "w32p_test_util.h"

#include <gtest/gtest.h>

#include <fstream>
#include <cstring>
#include <random>
#include <vector>

namespace
{

const std::string kSample = std::string(W32P_TEST_DATA) + "/pe/sample.dll";

std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::wstring Wide(const std::string& path)
{
    return std::wstring(path.begin(), path.end());
}

// Reads the block of file and queries every entry the sample has; answers whether the block was read.
bool QueryAll(const std::wstring& file, std::wstring& company, VS_FIXEDFILEINFO& fixed)
{
    const DWORD size = GetFileVersionInfoSizeW(file.c_str(), nullptr);
    if (size == 0)
        return false;
    std::vector<unsigned char> block(size);
    if (!GetFileVersionInfoW(file.c_str(), 0, size, block.data()))
        return false;
    const wchar_t* paths[] = {
        L"\\", L"\\VarFileInfo\\Translation", L"\\StringFileInfo\\040904b0\\CompanyName",
        L"\\StringFileInfo\\040904B0\\ProductName", L"\\StringFileInfo\\040904b0\\Missing"};
    for (const wchar_t* path : paths)
    {
        LPVOID value = nullptr;
        UINT length = 0;
        if (!VerQueryValueW(block.data(), path, &value, &length))
            continue;
        const unsigned char* at = static_cast<const unsigned char*>(value);
        EXPECT_GE(at, block.data());
        EXPECT_LE(at + length, block.data() + block.size() + length * 3); // texts count characters
        if (path == paths[0] && length >= sizeof fixed)
            std::memcpy(&fixed, value, sizeof fixed);
        if (path == paths[2])
            company.assign(static_cast<const wchar_t*>(value));
    }
    return true;
}

// Opens file as a data file and loads every string the sample has, into a buffer and by pointer; answers
// how many were found.
int LoadAllStrings(const std::wstring& file)
{
    HMODULE module = LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (module == nullptr)
        return 0;
    int found = 0;
    for (UINT id : {1u, 2u, 17u, 18u, 100u, 4097u})
    {
        wchar_t buffer[32];
        const int copied = LoadStringW(module, id, buffer, 32);
        EXPECT_LT(copied, 32);
        EXPECT_EQ(buffer[copied], L'\0');
        const wchar_t* text = nullptr;
        const int length = LoadStringW(module, id, reinterpret_cast<LPWSTR>(&text), 0);
        EXPECT_TRUE(length == 0 || text[length] == L'\0');
        found += copied > 0 ? 1 : 0;
    }
    EXPECT_TRUE(FreeLibrary(module));
    return found;
}

} // namespace

TEST(VersionResource, ReadsFixedVersionsAndStringsOfARealDll)
{
    std::wstring company;
    VS_FIXEDFILEINFO fixed = {};
    ASSERT_TRUE(QueryAll(Wide(kSample), company, fixed));
    EXPECT_EQ(company, L"Sample Maker Ltd.");
    EXPECT_EQ(fixed.dwSignature, 0xFEEF04BDu);
    EXPECT_EQ(fixed.dwFileVersionMS, 0x00020005u);
    EXPECT_EQ(fixed.dwFileVersionLS, 0x03FF0007u);
    EXPECT_EQ(fixed.dwProductVersionMS, 0x00020005u);

    const DWORD size = GetFileVersionInfoSizeW(Wide(kSample).c_str(), nullptr);
    std::vector<unsigned char> block(size);
    ASSERT_TRUE(GetFileVersionInfoW(Wide(kSample).c_str(), 0, size, block.data()));
    LPVOID value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), L"\\StringFileInfo\\040904b0\\productname", &value, &length));
    EXPECT_STREQ(static_cast<const wchar_t*>(value), L"Sample Product \u00e4");
    EXPECT_EQ(length, 17u);
    EXPECT_W32_FAILS(GetFileVersionInfoW(Wide(kSample).c_str(), 0, size - 1, block.data()), FALSE,
                     ERROR_INSUFFICIENT_BUFFER);
    // Not a PE file, and a missing one.
    EXPECT_W32_FAILS(GetFileVersionInfoSizeW(L"/proc/self/exe", nullptr), 0u, ERROR_RESOURCE_TYPE_NOT_FOUND);
    EXPECT_W32_FAILS(GetFileVersionInfoSizeW(L"/nonexistent/x.dll", nullptr), 0u, ERROR_PATH_NOT_FOUND);
}

TEST(VersionResource, TruncatedAndMutatedCopiesFailCleanly)
{
    ScratchDir dir;
    const std::string original = ReadBytes(kSample);
    ASSERT_GT(original.size(), 1000u);
    const std::string copy = dir.NarrowOf("fuzz.dll");
    std::mt19937 random(20261123);
    int read = 0, strings = 0;
    for (int round = 0; round < 2000; ++round)
    {
        std::string bytes = original;
        if (round < 400)
            bytes.resize(random() % original.size()); // truncated anywhere
        else
            for (int flips = 1 + static_cast<int>(random() % 8); flips > 0; --flips)
            {
                // Mostly in the headers and the resource section, where the offsets and sizes live.
                const std::size_t at =
                    random() % 2 ? random() % 0x400 : 0x1000 + random() % (original.size() - 0x1000);
                bytes[at] = static_cast<char>(random() % 4 ? random() : (random() % 2 ? 0xFF : 0x00));
            }
        std::ofstream(copy, std::ios::binary | std::ios::trunc) << bytes;
        std::wstring company;
        VS_FIXEDFILEINFO fixed;
        read += QueryAll(Wide(copy), company, fixed) ? 1 : 0;
        strings += LoadAllStrings(Wide(copy));
    }
    EXPECT_GT(read, 100); // many mutations leave the resources readable; the rest fail without harm
    EXPECT_GT(strings, 500);
}
