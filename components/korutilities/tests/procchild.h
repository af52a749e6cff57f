// Shared by the process tests: the child program (korprochelper, see its source for what each mode does),
// a start record for it, and waiting for the files it writes.
#pragma once

#include "filetestsupport.h"
#include "velprocesshelper.h"

#include <string>
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

// The zero-ended strings of a file the child writes, once it exists (empty when it never appears).
inline std::vector<std::string> WaitForStrings(const boost::filesystem::path& file)
{
    WaitUntil([&] { return boost::filesystem::exists(file); });
    std::vector<std::string> strings;
    const std::string content = FileSystemTest::ReadFile(file);
    for (std::size_t start = 0, end; (end = content.find('\0', start)) != std::string::npos; start = end + 1)
        strings.push_back(content.substr(start, end - start));
    return strings;
}

} // namespace kortest
