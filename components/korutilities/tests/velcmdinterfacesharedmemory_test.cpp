// The shared-memory text channel: its wire format, its limits, two real processes, and each facade
// operation failing in turn.
#include "childprocess.h"
#include "fakewinapiwrapper.h"
#include "korutilitesbtracedef.h"
#include "tracedtest.h"
#include "velcmdinterfacesharedmemimpl.h"
#include "velcmdinterfacesharedmemoryhandler.h"

#include "kortestsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

std::wstring UniqueName(const char* stem)
{
    static int counter = 0;
    return std::wstring(stem, stem + std::strlen(stem)) + L"_" + std::to_wstring(kortest::ProcessId()) +
           L"_" + std::to_wstring(++counter);
}

std::string Narrow(const std::wstring& w)
{
    return std::string(w.begin(), w.end());
}
std::wstring Wide(const std::string& s)
{
    return std::wstring(s.begin(), s.end());
}

// Text that travels as 2-, 3- and 4-byte UTF-8 sequences.
const std::wstring kNonAscii = L"Gr\u00FC\u00DFe \u2013 \u65E5\u672C \U0001F600 \u00E9t\u00E9";

class SharedMemoryChannel : public kortest::TracedTest
{
protected:
    // The text the channel reads, or a marker when the read fails.
    template <class Channel>
    static std::wstring Read(Channel& channel)
    {
        std::wstring text;
        return channel.ReadDataFromMemory(text) ? text : L"(read failed)";
    }
    // The raw bytes of the block as another process would see them.
    static std::vector<unsigned char> RawBlock(const std::wstring& name)
    {
        CVeLWinAPIWrapper api;
        HANDLE mapping = api.WAPI_OpenFileMapping(FILE_MAP_ALL_ACCESS, FALSE, name.c_str());
        if (mapping == nullptr)
            return {};
        auto* view = static_cast<unsigned char*>(api.WAPI_MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
        std::vector<unsigned char> bytes(view, view + CVeLCmdInterfaceSharedMemoryImpl::kBlockSize);
        api.WAPI_UnmapViewOfFile(view);
        api.WAPI_CloseHandle(mapping);
        return bytes;
    }
};

// Text survives reads until overwritten or cleared; a shorter text after a longer one leaves the old
// bytes behind its length; an embedded zero ends the text.
TEST_F(SharedMemoryChannel, RoundTripsTextAndKeepsItUntilOverwrittenOrCleared)
{
    const std::wstring name = UniqueName("chan_roundtrip");
    CVeLCmdInterfaceSharedMemoryHandler channel(true, name);
    ASSERT_TRUE(channel.IsSharedMemoryAvailable());
    EXPECT_EQ(Read(channel), L""); // a new block is zero-filled
    ASSERT_TRUE(channel.WriteDataToMemory(kNonAscii));
    EXPECT_EQ(Read(channel), kNonAscii);
    EXPECT_EQ(Read(channel), kNonAscii); // reading does not consume

    ASSERT_TRUE(channel.WriteDataToMemory(L"abcdef"));
    ASSERT_TRUE(channel.WriteDataToMemory(L"xyz"));
    EXPECT_EQ(Read(channel), L"xyz");
    const std::vector<unsigned char> raw = RawBlock(name);
    ASSERT_EQ(raw.size(), 65537u);
    EXPECT_EQ(std::vector<unsigned char>(raw.begin(), raw.begin() + 8),
              (std::vector<unsigned char>{3, 0, 'x', 'y', 'z', 'd', 'e', 'f'}));

    ASSERT_TRUE(channel.WriteDataToMemory(std::wstring(L"abc\0def", 7)));
    EXPECT_EQ(Read(channel), L"abc");
    ASSERT_TRUE(channel.ClearDataMemory());
    EXPECT_EQ(Read(channel), L"");
}

TEST_F(SharedMemoryChannel, AcceptsExactly65535BytesAndRefuses65536Whole)
{
    const std::wstring name = UniqueName("chan_limit");
    CVeLCmdInterfaceSharedMemoryHandler channel(true, name);
    const std::wstring longest = std::wstring(65533, L'a') + L"\u00E9"; // 65533 + 2 UTF-8 bytes
    ASSERT_TRUE(channel.WriteDataToMemory(longest));
    EXPECT_EQ(Read(channel), longest);
    std::vector<unsigned char> before = RawBlock(name);
    EXPECT_EQ(before[0], 0xFF);
    EXPECT_EQ(before[1], 0xFF);

    BTraceCapture capture;
    const std::wstring tooLong = std::wstring(65534, L'b') + L"\u00E9"; // 65536 bytes
    EXPECT_FALSE(channel.WriteDataToMemory(tooLong));
    EXPECT_EQ(RawBlock(name), before);

    ASSERT_TRUE(channel.WriteDataToMemory(L"short"));
    EXPECT_FALSE(channel.WriteDataToMemory(std::wstring(70000, L'c')));
    EXPECT_EQ(Read(channel), L"short");
}

// The child opens the block by name, checks the parent's text and answers with its own.
KOR_CHILD_ROLE(channel_peer)
{
    CVeLCmdInterfaceSharedMemoryHandler channel(false, Wide(kortest::ChildParameter("CHANNEL_NAME")));
    std::wstring text;
    if (!channel.IsSharedMemoryAvailable() || !channel.ReadDataFromMemory(text))
        return 2;
    if (text != kNonAscii)
        return 3;
    return channel.WriteDataToMemory(L"answer \u00FC\u65E5 from " + std::to_wstring(kortest::ProcessId()))
               ? 0
               : 4;
}

TEST_F(SharedMemoryChannel, CarriesTextBothWaysBetweenTwoProcesses)
{
    const std::wstring name = UniqueName("chan_peer");
    CVeLCmdInterfaceSharedMemoryHandler channel(true, name);
    ASSERT_TRUE(channel.WriteDataToMemory(kNonAscii));
    const pid_t child = kortest::StartChild("channel_peer", {"CHANNEL_NAME=" + Narrow(name)});
    ASSERT_EQ(kortest::WaitChild(child), 0);
    EXPECT_EQ(Read(channel), L"answer \u00FC\u65E5 from " + std::to_wstring(child));
}

// ---- A replacement facade -------------------------------------------------------------------------------

class SharedMemoryChannelFacade : public SharedMemoryChannel
{
protected:
    std::shared_ptr<CFakeWinAPIWrapper> fake = std::make_shared<CFakeWinAPIWrapper>();
};

// A name nobody created, a failing create, or no facade at all: the channel is unusable, every operation
// fails, and nothing is mapped or changed.
TEST_F(SharedMemoryChannelFacade, UnknownNameFailedCreateOrNoFacadeLeaveAnUnusableChannel)
{
    fake->OnCreateFileMapping = [](HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR) -> HANDLE
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    };
    BTraceCapture capture;
    CVeLCmdInterfaceSharedMemoryImpl created(fake, true, UniqueName("chan_fail_create"));
    CVeLCmdInterfaceSharedMemoryImpl unknown(fake, false, UniqueName("chan_unknown"));
    CVeLCmdInterfaceSharedMemoryImpl noFacade(nullptr, true, UniqueName("chan_nofacade"));
    for (CVeLCmdInterfaceSharedMemoryImpl* channel : {&created, &unknown, &noFacade})
    {
        std::wstring text = L"untouched";
        EXPECT_FALSE(channel->IsSharedMemoryAvailable());
        EXPECT_FALSE(channel->ReadDataFromMemory(text));
        EXPECT_FALSE(channel->WriteDataToMemory(L"x"));
        EXPECT_FALSE(channel->ClearDataMemory());
        EXPECT_EQ(text, L"untouched");
    }
    EXPECT_EQ(fake->CallCount("MapViewOfFile"), 0u);
}

TEST_F(SharedMemoryChannelFacade, FailedMapOrUnmapFailsEachOperationAndKeepsTheText)
{
    const std::wstring name = UniqueName("chan_map");
    CVeLCmdInterfaceSharedMemoryImpl channel(fake, true, name);
    ASSERT_TRUE(channel.WriteDataToMemory(L"kept"));

    fake->OnMapViewOfFile = [](HANDLE, DWORD, DWORD, DWORD, SIZE_T) -> LPVOID
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    };
    BTraceCapture capture;
    std::wstring text;
    EXPECT_FALSE(channel.ReadDataFromMemory(text));
    EXPECT_FALSE(channel.WriteDataToMemory(L"lost"));
    EXPECT_FALSE(channel.ClearDataMemory());
    fake->OnMapViewOfFile = nullptr;
    fake->OnUnmapViewOfFile = [](LPCVOID address) -> BOOL
    {
        CVeLWinAPIWrapper().WAPI_UnmapViewOfFile(address);
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    };
    EXPECT_FALSE(channel.ReadDataFromMemory(text));
    EXPECT_EQ(text, L"kept");
    EXPECT_FALSE(channel.WriteDataToMemory(L"new"));
}

// A section of one page under the name: refused when its size is known; when it cannot be learnt, a
// length field claiming the longest text never makes the channel read or write past the page. A block of
// unknown size but full length still works.
TEST_F(SharedMemoryChannelFacade, SectionSmallerThanTheBlockIsNeverReadPastItsEnd)
{
    const std::wstring name = UniqueName("chan_short");
    CVeLWinAPIWrapper real;
    HANDLE small =
        real.WAPI_CreateFileMapping(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name.c_str());
    ASSERT_NE(small, nullptr);
    auto* bytes = static_cast<unsigned char*>(real.WAPI_MapViewOfFile(small, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(bytes, nullptr);
    std::memset(bytes, 'A', 4096);
    bytes[0] = bytes[1] = 0xFF;
    BTraceCapture capture;
    for (bool create : {false, true})
    {
        CVeLCmdInterfaceSharedMemoryHandler refused(create, name);
        EXPECT_FALSE(refused.IsSharedMemoryAvailable()) << create;
        EXPECT_FALSE(refused.WriteDataToMemory(std::wstring(5000, L'x'))) << create;
    }

    fake->OnNTGetSizeOfSharedMemory = [](HANDLE) { return CVeLResult<__int64>(); };
    for (bool create : {false, true})
    {
        CVeLCmdInterfaceSharedMemoryImpl channel(fake, create, name);
        ASSERT_TRUE(channel.IsSharedMemoryAvailable());
        std::wstring text = L"kept";
        EXPECT_FALSE(channel.ReadDataFromMemory(text));
        EXPECT_EQ(text, L"kept");
        EXPECT_FALSE(channel.WriteDataToMemory(std::wstring(5000, L'x')));
        EXPECT_FALSE(channel.ClearDataMemory());
    }
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(bytes[4095], 'A');
    real.WAPI_UnmapViewOfFile(bytes);
    real.WAPI_CloseHandle(small);
    EXPECT_TRUE(
        CVeLCmdInterfaceSharedMemoryImpl(fake, true, UniqueName("chan_size")).WriteDataToMemory(L"ok"));
}

// Every system object the channel uses comes from the facade: with a facade that serves the block from
// test memory, the channel works, reads and writes balance their views, and no real object of that name
// exists. The block
// is a paging-file section of 65537 bytes, opened with all access.
TEST_F(SharedMemoryChannelFacade, ReachesTheSystemOnlyThroughTheFacade)
{
    std::vector<unsigned char> block(69632, 0xEE);
    HANDLE const fakeHandle = reinterpret_cast<HANDLE>(0x7770);
    std::vector<DWORD> created, opened;
    int mapped = 0;
    fake->OnCreateFileMapping = [&](HANDLE f, LPSECURITY_ATTRIBUTES, DWORD p, DWORD h, DWORD l, LPCWSTR)
    {
        created = {f == INVALID_HANDLE_VALUE, p, h, l};
        return fakeHandle;
    };
    fake->OnOpenFileMapping = [&](DWORD access, BOOL, LPCWSTR)
    {
        opened = {access};
        return fakeHandle;
    };
    fake->OnNTGetSizeOfSharedMemory = [&](HANDLE h)
    { return CVeLResult<__int64>(h == fakeHandle, static_cast<__int64>(block.size())); };
    fake->OnMapViewOfFile = [&](HANDLE h, DWORD, DWORD, DWORD, SIZE_T) -> LPVOID
    {
        ++mapped;
        return h == fakeHandle ? block.data() : nullptr;
    };
    fake->OnUnmapViewOfFile = [&](LPCVOID address) -> BOOL
    {
        --mapped;
        return address == block.data();
    };
    int closed = 0;
    fake->OnCloseHandle = [&](HANDLE h) -> BOOL { return closed += (h == fakeHandle); };

    const std::wstring name = UniqueName("chan_fakeonly");
    {
        CVeLCmdInterfaceSharedMemoryImpl channel(fake, true, name);
        CVeLCmdInterfaceSharedMemoryImpl peer(fake, false, name);
        EXPECT_EQ(created, (std::vector<DWORD>{1, PAGE_READWRITE, 0, 65537}));
        EXPECT_EQ(opened, (std::vector<DWORD>{0xF001F}));
        ASSERT_TRUE(channel.WriteDataToMemory(L"\u00FCber"));
        EXPECT_EQ(std::vector<unsigned char>(block.begin(), block.begin() + 7),
                  (std::vector<unsigned char>{5, 0, 0xC3, 0xBC, 'b', 'e', 'r'}));
        EXPECT_EQ(Read(peer), L"\u00FCber");
        EXPECT_EQ(mapped, 0);
        ASSERT_TRUE(peer.ClearDataMemory());
        EXPECT_EQ(mapped, 1); // a clear keeps its view mapped until the process ends
        CVeLWinAPIWrapper real;
        EXPECT_EQ(real.WAPI_OpenFileMapping(FILE_MAP_ALL_ACCESS, FALSE, name.c_str()), nullptr);
    }
    EXPECT_EQ(closed, 2);
}

} // namespace
