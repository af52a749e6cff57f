#include "velcookieissuer.h"
#include "velhostbinding.h"

#include "fakewinapiwrapper.h"
#include "tracedtest.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>

namespace
{

using HostBindingTest = kortest::TracedTest;

// A facade whose machine GUID is the given text, standing for another machine.
std::shared_ptr<CFakeWinAPIWrapper> MachineWithGuid(const std::wstring& guid)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnRegGetValue = [guid](HKEY, LPCWSTR, LPCWSTR value, DWORD, LPDWORD, PVOID data,
                                LPDWORD size) -> LONG
    {
        if (std::wstring(value) != L"MachineGuid")
            return ERROR_FILE_NOT_FOUND;
        const DWORD needed = static_cast<DWORD>((guid.size() + 1) * sizeof(WCHAR));
        if (data != nullptr && *size >= needed)
            std::memcpy(data, guid.c_str(), needed);
        *size = needed;
        return ERROR_SUCCESS;
    };
    return api;
}

TEST_F(HostBindingTest, StableHereAndDifferentElsewhere)
{
    CVeLHostBinding here;
    const CVeLResult<std::wstring> first = here.GetChecksum();
    ASSERT_TRUE(first.IsSuccess());
    EXPECT_EQ(64u, first.GetValue().size());
    EXPECT_EQ(first.GetValue(), CVeLHostBinding().GetChecksum().GetValue());
    EXPECT_TRUE(here.IsThisHost(first.GetValue()));

    std::wstring upper = first.GetValue();
    for (wchar_t& c : upper)
        c = static_cast<wchar_t>(std::towupper(c));
    EXPECT_TRUE(here.IsThisHost(upper));

    // Another machine identifier gives another checksum; the letter case of the identifier does not count.
    const std::wstring other =
        CVeLHostBinding(MachineWithGuid(L"0123abcd-0000-4000-8000-00000000beef")).GetChecksum().GetValue();
    EXPECT_EQ(
        other,
        CVeLHostBinding(MachineWithGuid(L"0123ABCD-0000-4000-8000-00000000BEEF")).GetChecksum().GetValue());
    EXPECT_NE(first.GetValue(), other);
    EXPECT_FALSE(here.IsThisHost(other));
    EXPECT_FALSE(here.IsThisHost(L""));
}

TEST_F(HostBindingTest, UnreadableIdentifierFails)
{
    auto api = std::make_shared<CFakeWinAPIWrapper>();
    api->OnRegGetValue = [](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID, LPDWORD) -> LONG
    { return ERROR_FILE_NOT_FOUND; };
    BTraceCapture capture;
    CVeLHostBinding binding(api);
    EXPECT_FALSE(binding.GetChecksum().IsSuccess());
    EXPECT_FALSE(binding.IsThisHost(std::wstring(64, L'0')));
}

TEST(CookieIssuerTest, IssuesLowestUnusedAndTakesBack)
{
    CVeLCookieIssuer issuer(10, 13);
    for (ULONG expected = 10; expected <= 13; ++expected)
        EXPECT_EQ(expected, issuer.Issue().GetValue());
    EXPECT_FALSE(issuer.Issue().IsSuccess()); // range used up
    EXPECT_TRUE(issuer.Return(11));
    EXPECT_FALSE(issuer.Return(11)); // twice
    EXPECT_FALSE(issuer.Return(9));  // outside
    EXPECT_FALSE(issuer.IsIssued(11));
    EXPECT_TRUE(issuer.IsIssued(12));
    EXPECT_TRUE(issuer.Return(13));
    EXPECT_TRUE(issuer.Return(12));
    EXPECT_EQ(11u, issuer.Issue().GetValue());
    EXPECT_EQ(12u, issuer.Issue().GetValue());

    CVeLCookieIssuer empty(5, 4);
    EXPECT_FALSE(empty.Issue().IsSuccess());
    CVeLCookieIssuer top(0xFFFFFFFEu, 0xFFFFFFFFu);
    EXPECT_EQ(0xFFFFFFFEu, top.Issue().GetValue());
    EXPECT_EQ(0xFFFFFFFFu, top.Issue().GetValue());
    EXPECT_FALSE(top.Issue().IsSuccess());
}

TEST(CookieIssuerTest, ThreadsNeverShareACookie)
{
    CVeLCookieIssuer issuer;
    std::vector<std::set<ULONG>> held(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < held.size(); ++t)
        threads.emplace_back(
            [&issuer, &held, t]
            {
                for (int round = 0; round < 2000; ++round)
                {
                    held[t].insert(issuer.Issue().GetValue());
                    if (round % 3 == 0)
                    {
                        const ULONG back = *held[t].begin();
                        held[t].erase(held[t].begin());
                        EXPECT_TRUE(issuer.Return(back));
                    }
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    std::set<ULONG> all;
    std::size_t count = 0;
    for (const std::set<ULONG>& mine : held)
    {
        count += mine.size();
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(count, all.size());
    for (ULONG cookie : all)
        EXPECT_TRUE(issuer.IsIssued(cookie));
}

} // namespace
