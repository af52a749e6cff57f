#include "childprocess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kortest
{

std::map<std::string, std::function<int()>>& ChildRoles()
{
    static std::map<std::string, std::function<int()>> roles;
    return roles;
}

pid_t StartChild(const std::string& role, const std::vector<std::string>& environment)
{
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e)
        env.emplace_back(*e);
    env.push_back("KOR_CHILD_ROLE=" + role);
    env.insert(env.end(), environment.begin(), environment.end());
    std::vector<char*> envp;
    for (auto& e : env)
        envp.push_back(&e[0]);
    envp.push_back(nullptr);
    std::string exe = "/proc/self/exe", filter = "--gtest_filter=ChildProcess.Run";
    char* argv[] = {&exe[0], &filter[0], nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, argv, envp.data()) != 0)
        return -1;
    return pid;
}

int WaitChild(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1;
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

std::string ChildParameter(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

} // namespace kortest

// The entry of every child: runs the role named in the environment and exits with its result.
TEST(ChildProcess, Run)
{
    const char* role = std::getenv("KOR_CHILD_ROLE");
    if (role == nullptr)
        GTEST_SKIP() << "runs in child processes only";
    auto it = kortest::ChildRoles().find(role);
    std::_Exit(it == kortest::ChildRoles().end() ? 99 : it->second());
}
