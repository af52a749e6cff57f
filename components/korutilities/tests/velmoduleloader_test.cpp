#include "fakewinapiwrapper.h"
#include "velmoduleloader.h"

#include <btrace.h>
#include <gtest/gtest.h>

#include <cstring>

namespace
{

TEST(ModuleLoader, LoadsFindsAndUnloads)
{
    CVeLModuleLoader zlib;
    ASSERT_TRUE(zlib.Load(L"libz.so.1"));
    EXPECT_TRUE(zlib.IsLoaded());
    auto version = zlib.GetFunctionAs<const char* (*)()>("zlibVersion");
    ASSERT_NE(nullptr, version);
    EXPECT_EQ(0, std::strncmp(version(), "1.", 2));
    EXPECT_FALSE(zlib.Load(L"libz.so.1")); // one module per object
    BTraceCapture capture;
    EXPECT_EQ(nullptr, zlib.GetFunction("noSuchFunction"));
    EXPECT_EQ(1u, capture.CountContaining("GetProcAddress failed"));
    EXPECT_TRUE(zlib.Unload());
    EXPECT_FALSE(zlib.Unload());
    EXPECT_EQ(nullptr, zlib.GetFunction("zlibVersion"));

    CVeLModuleLoader ntdll; // the built-in module offers the section query on every platform
    ASSERT_TRUE(ntdll.Load(L"ntdll.dll"));
    EXPECT_NE(nullptr, ntdll.GetFunction("NtQuerySection"));
}

TEST(ModuleLoader, BadNamesFailAndTheDestructorUnloads)
{
    CVeLModuleLoader loader;
    BTraceCapture capture;
    EXPECT_FALSE(loader.Load(L""));
    EXPECT_FALSE(loader.Load(std::wstring(L"libz.so.1\0x", 11)));
    EXPECT_FALSE(loader.Load(L"/no/such/library.so"));
    EXPECT_EQ(1u, capture.CountContaining("LoadLibrary"));
    EXPECT_FALSE(loader.IsLoaded());

    auto api = std::make_shared<CFakeWinAPIWrapper>();
    {
        CVeLModuleLoader owned(api);
        ASSERT_TRUE(owned.Load(L"libz.so.1"));
        EXPECT_EQ(nullptr, owned.GetFunction(""));
    }
    EXPECT_EQ(1u, api->CallCount("FreeLibrary"));
}

} // namespace
