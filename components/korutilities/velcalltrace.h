// Internal to the library's classes: the two steps that every public class and every implementation over the
// facade would otherwise write out again. VEL_FORWARD makes a public member that forwards to its
// implementation object one line long; VEL_RETURN_IF_FAILED answers a failed facade call. Both are macros so
// that each trace they emit keeps the source line of the member that uses them. Not part of the installed
// interface; usable from any thread that may call the class using them.
#pragma once

#include "korutilitesbtracedef.h"

// Evaluates impl->call and yields its value. When impl is empty, traces message at level instead and
// yields fallback.
#define VEL_FORWARD_FALLBACK(impl, level, message, fallback, call)                                           \
    [&]() -> decltype((impl)->call)                                                                          \
    {                                                                                                        \
        if (!(impl))                                                                                         \
        {                                                                                                    \
            VEL_TRACE(level, message);                                                                       \
            return fallback;                                                                                 \
        }                                                                                                    \
        return (impl)->call;                                                                                 \
    }()

// A missing implementation yields the default value of the call's type (false, 0, an empty path, string or
// failed result).
#define VEL_FORWARD_TRACING(impl, level, message, call)                                                      \
    VEL_FORWARD_FALLBACK(impl, level, message, decltype((impl)->call)(), call)

// The usual forwarder: a missing implementation is reported with the library's stock message.
#define VEL_FORWARD(impl, call) VEL_FORWARD_TRACING(impl, VEL_ERR, "Can't access impl!", call)

// The same for a call whose answer without an implementation is not its type's default (a caller's
// default value, for example).
#define VEL_FORWARD_OR(impl, fallback, call)                                                                 \
    VEL_FORWARD_FALLBACK(impl, VEL_ERR, "Can't access impl!", fallback, call)

// When ok is false: reads the facade's last error at once, traces the message (a format with its arguments)
// at level with that error appended as the last argument, and returns failure from the calling function.
#define VEL_RETURN_IF_FAILED(api, ok, failure, level, ...)                                                   \
    do                                                                                                       \
    {                                                                                                        \
        if (!(ok))                                                                                           \
        {                                                                                                    \
            const DWORD velLastError_ = (api)->WAPI_GetLastError();                                          \
            VEL_TRACE(level, __VA_ARGS__, velLastError_);                                                    \
            return failure;                                                                                  \
        }                                                                                                    \
    } while (0)

// When the status-returning facade call's result says failure (a negative status): traces the message at
// level with the raw status appended as the last argument, and returns failure from the calling function.
#define VEL_RETURN_IF_STATUS_FAILED(status, failure, level, ...)                                             \
    do                                                                                                       \
    {                                                                                                        \
        if (!(status).IsSuccess())                                                                           \
        {                                                                                                    \
            VEL_TRACE(level, __VA_ARGS__, (status).GetValue());                                              \
            return failure;                                                                                  \
        }                                                                                                    \
    } while (0)
