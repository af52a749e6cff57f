// For tests that check the library's files against the system's own tools (sha256sum, gzip, zip, unzip,
// python3): run a shell command and take its standard output and exit status, and quote a path for it.
#pragma once

#include <boost/filesystem/path.hpp>

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace kortest
{

struct ShellResult
{
    int status = -1; // the command's exit status, -1 when it could not be run
    std::string output;
};

inline ShellResult RunShell(const std::string& command)
{
    ShellResult result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.output.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

inline std::string Quote(const boost::filesystem::path& path)
{
    std::string quoted = "'";
    for (char c : path.string())
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

} // namespace kortest
