// Trace definitions shared by every class of the library: the module record "korutilities" (with its
// level byte, present from load time) and the VEL_TRACE macro.
//
// VEL_TRACE(level, format, args...) compares the module's level byte with the message level and only
// then builds the message's static descriptor and evaluates the arguments, each widened to 64 bits
// (signed values sign-extended), for the back-end's print operation. A message below the level costs one
// byte comparison and evaluates nothing. Narrow "%s" arguments are UTF-8.
#pragma once

#include "korutilities_export.h"

#include <btrace.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#define VEL_ERR 4
#define VEL_WRN 5
#define VEL_INF 6
#define VEL_DBG1 7
#define VEL_DBG2 8
#define VEL_DBG3 9

extern KORUTILITIES_API BTraceModule g_korutilitiesTraceModule;

namespace korutilities_trace
{

// Never called: its return type counts the arguments in an unevaluated context.
template <typename... Args>
std::integral_constant<unsigned, sizeof...(Args)> CountArguments(const Args&...);

template <typename T>
inline std::uint64_t Widen(const T& value)
{
    if constexpr (std::is_enum<T>::value)
        return Widen(static_cast<std::underlying_type_t<T>>(value));
    else if constexpr (std::is_same<T, bool>::value)
        return value ? 1u : 0u;
    else if constexpr (std::is_integral<T>::value && std::is_signed<T>::value)
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    else if constexpr (std::is_integral<T>::value)
        return static_cast<std::uint64_t>(value);
    else if constexpr (std::is_floating_point<T>::value)
    {
        double d = static_cast<double>(value);
        std::uint64_t bits;
        std::memcpy(&bits, &d, sizeof bits);
        return bits;
    }
    else if constexpr (std::is_null_pointer<T>::value)
        return 0;
    else
        return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(static_cast<const void*>(value)));
}

template <std::size_t N>
inline std::uint64_t Widen(const char (&text)[N])
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(text));
}

template <typename... Args>
inline void Emit(const BTraceDescriptor* descriptor, const char* /*format*/, const Args&... args)
{
    BTracePrint(descriptor, 0, Widen(args)...);
}

} // namespace korutilities_trace

#define VEL_TRACE_FIRST_(first, ...) first

#define VEL_TRACE(lvl, ...)                                                                                  \
    do                                                                                                       \
    {                                                                                                        \
        if (g_korutilitiesTraceModule.level.load(std::memory_order_relaxed) >= (lvl))                        \
        {                                                                                                    \
            static const BTraceDescriptor velTraceDescriptor_ = {                                            \
                &g_korutilitiesTraceModule, __FILE__, VEL_TRACE_FIRST_(__VA_ARGS__, 0),                      \
                static_cast<std::uint32_t>(__LINE__) << 16,                                                  \
                BTraceMakeFlags(lvl,                                                                         \
                                decltype(::korutilities_trace::CountArguments(__VA_ARGS__))::value - 1)};    \
            ::korutilities_trace::Emit(&velTraceDescriptor_, __VA_ARGS__);                                   \
        }                                                                                                    \
    } while (0)
