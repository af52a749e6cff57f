#include "childprocess.h"

#include <gtest/gtest.h>

#include "kortestsupport.h"

#include <cstdlib>

namespace kortest
{

std::map<std::string, std::function<int()>>& ChildRoles()
{
    static std::map<std::string, std::function<int()>> roles;
    return roles;
}

pid_t StartChild(const std::string& role, const std::vector<std::string>& environment)
{
    std::vector<std::string> env{"KOR_CHILD_ROLE=" + role};
    env.insert(env.end(), environment.begin(), environment.end());
    return StartSelf({"--gtest_filter=ChildProcess.Run"}, env);
}

int WaitChild(pid_t pid)
{
    return WaitProcess(pid);
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
