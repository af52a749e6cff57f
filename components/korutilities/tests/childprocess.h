// Real child processes for cross-process tests: the test binary starts itself again with a role name;
// the child runs the role's function and exits with its result. Roles are registered per test file with
// KOR_CHILD_ROLE(name) { ... return exitCode; }.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kortest
{

std::map<std::string, std::function<int()>>& ChildRoles();

struct ChildRoleRegistrar
{
    ChildRoleRegistrar(const std::string& name, std::function<int()> role)
    {
        ChildRoles()[name] = std::move(role);
    }
};

// Starts the role in a new process with extra environment entries ("NAME=value"); returns its pid.
pid_t StartChild(const std::string& role, const std::vector<std::string>& environment = {});
// Waits for the child; its exit code, or kortest::KilledExitCode when KillProcess ended it.
int WaitChild(pid_t pid);
// The value of an environment variable in a child, or "" when it is missing.
std::string ChildParameter(const char* name);

} // namespace kortest

#define KOR_CHILD_ROLE(name)                                                                                 \
    static int KorChildRole_##name();                                                                        \
    static ::kortest::ChildRoleRegistrar korChildRegistrar_##name(#name, &KorChildRole_##name);              \
    static int KorChildRole_##name()
