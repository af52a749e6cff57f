// Shared by the file, directory and process tests: a fresh temporary folder per test (removed with everything
// in it afterwards, read-only entries included), small file-making helpers, trace capture at full level, and
// a watchdog wait for what another thread or process does.
#pragma once

#include "korutilitesbtracedef.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace kortest
{

// Polls done every 5 ms until it answers true or 20 s (a watchdog, not a time limit under test) have passed;
// its last answer.
inline bool WaitUntil(const std::function<bool()>& done)
{
    for (int i = 0; i < 4000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        if (done())
            return true;
    return done();
}

class FileSystemTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3);
        m_root = boost::filesystem::temp_directory_path() /
                 boost::filesystem::unique_path("korfiletest-%%%%-%%%%-%%%%");
        boost::filesystem::create_directories(m_root);
    }
    void TearDown() override
    {
        BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN);
        boost::system::error_code error;
        for (boost::filesystem::recursive_directory_iterator it(m_root, error), end; !error && it != end;
             it.increment(error))
            if (!boost::filesystem::is_symlink(it->symlink_status()))
                boost::filesystem::permissions(
                    it->path(), boost::filesystem::owner_all | boost::filesystem::add_perms, error);
        boost::filesystem::remove_all(m_root, error);
    }

    boost::filesystem::path Root() const { return m_root; }

public:
    static void WriteFile(const boost::filesystem::path& path, const std::string& content)
    {
        boost::filesystem::create_directories(path.parent_path());
        std::ofstream out(path.string(), std::ios::binary);
        out << content;
    }
    static std::string ReadFile(const boost::filesystem::path& path)
    {
        std::ifstream in(path.string(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static void MakeReadOnly(const boost::filesystem::path& path)
    {
        boost::filesystem::permissions(path,
                                       boost::filesystem::remove_perms | boost::filesystem::owner_write |
                                           boost::filesystem::group_write | boost::filesystem::others_write);
    }

protected:
    BTraceCapture m_capture; // every trace line of the test, at every level

private:
    boost::filesystem::path m_root;
};

} // namespace kortest
