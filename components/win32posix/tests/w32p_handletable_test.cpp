// The handle table: values, lookup by kind, closing, duplication and thread-safe closing.
#include "w32p_test_util.h"
#include "win32posix.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace
{
struct Probe : W32pObject
{
    explicit Probe(std::atomic<int>& destroyed) : W32pObject(W32pKind::Other), m_destroyed(destroyed) {}
    ~Probe() override { ++m_destroyed; }
    std::atomic<int>& m_destroyed;
};
} // namespace

TEST(HandleTable, ValuesAreSmallMultiplesOfFourAndKindsAreChecked)
{
    std::atomic<int> destroyed{0};
    HANDLE h = W32pInsertHandle(std::make_shared<Probe>(destroyed));
    ASSERT_NE(h, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(h) % 4, 0u);
    EXPECT_NE(W32pLookupHandleAs<Probe>(h, W32pKind::Other), nullptr);
    EXPECT_W32_FAILS(W32pLookupHandleAs<Probe>(h, W32pKind::Event), nullptr, ERROR_INVALID_HANDLE);

    HANDLE copy = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), h, GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_NE(copy, h);
    EXPECT_TRUE(CloseHandle(h));
    EXPECT_EQ(destroyed.load(), 0); // the duplicate keeps the object
    EXPECT_W32_FAILS(CloseHandle(h), FALSE, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(copy));
    EXPECT_EQ(destroyed.load(), 1);
}

TEST(HandleTable, SpecialAndForeignValuesAreRejected)
{
    for (HANDLE h :
         {static_cast<HANDLE>(nullptr), INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(std::uintptr_t(6)),
          reinterpret_cast<HANDLE>(std::uintptr_t(0x7FFFFFF0))})
    {
        EXPECT_W32_FAILS(CloseHandle(h), FALSE, ERROR_INVALID_HANDLE);
    }
    HANDLE copy = nullptr;
    EXPECT_FALSE(DuplicateHandle(GetCurrentProcess(), nullptr, GetCurrentProcess(), &copy, 0, FALSE, 0));
}

TEST(HandleTable, ConcurrentCloseSucceedsExactlyOnce)
{
    std::atomic<int> destroyed{0};
    for (int round = 0; round < 200; ++round)
    {
        HANDLE h = W32pInsertHandle(std::make_shared<Probe>(destroyed));
        std::atomic<int> successes{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] { successes += CloseHandle(h) ? 1 : 0; });
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(successes.load(), 1);
    }
    EXPECT_EQ(destroyed.load(), 200);
}
