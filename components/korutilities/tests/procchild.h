// Shared by the process tests: the child program (korprochelper, see its source for what each mode does),
// a start record for it, and waiting for the files it writes.
#pragma once

#include "filetestsupport.h"
#include "velprocesshelper.h"

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace kortest
{

inline VeLProcessStartInfo HelperStart(const std::vector<std::wstring>& arguments)
{
    VeLProcessStartInfo info;
    info.program = KOR_PROC_HELPER;
    info.arguments = arguments;
    return info;
}

// The zero-ended strings of a file the child writes, once it exists (empty after ten seconds).
inline std::vector<std::string> WaitForStrings(const boost::filesystem::path& file)
{
    for (int i = 0; i < 1000 && !boost::filesystem::exists(file); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::vector<std::string> strings;
    std::ifstream in(file.string(), std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (std::size_t start = 0, end; (end = content.find('\0', start)) != std::string::npos; start = end + 1)
        strings.push_back(content.substr(start, end - start));
    return strings;
}

} // namespace kortest
