// The warning hook; see w32p_warning.h.
#include "w32p_warning.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace
{

std::atomic<W32pWarningHook> g_hook{nullptr};

} // namespace

W32pWarningHook W32pSetWarningHook(W32pWarningHook hook)
{
    return g_hook.exchange(hook);
}

void W32pWarn(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list measure;
    va_copy(measure, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::vector<char> text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    if (length > 0)
        std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const W32pWarningHook hook = g_hook.load();
    if (hook != nullptr)
        hook(text.data());
    else
        std::fprintf(stderr, "win32posix: warning: %s\n", text.data());
}
