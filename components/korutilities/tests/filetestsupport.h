// Shared by the file and directory tests: a fresh temporary folder per test (removed with everything in it
// afterwards, read-only entries included), small file-making helpers, and trace capture at full level.
#pragma once

#include "korutilitesbtracedef.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace kortest
{

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

private:
    boost::filesystem::path m_root;
};

} // namespace kortest
