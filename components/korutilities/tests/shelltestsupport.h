// For tests that check the library's files against the system's own tools (sha256sum, gzip, zip, unzip,
// python3): quote a path for the shell; RunShell (kortestsupport.h) runs the command. Those tools are
// Linux's, so such tests start with KORTEST_LINUX_ONLY.
#pragma once

#include <boost/filesystem/path.hpp>

#include "kortestsupport.h"

#include <string>

namespace kortest
{

inline std::string Quote(const boost::filesystem::path& path)
{
    std::string quoted = "'";
    for (char c : path.string())
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

} // namespace kortest
