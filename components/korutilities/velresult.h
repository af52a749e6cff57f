// CVeLResult<T>: a success flag and a value, returned by value. A failed result carries false and,
// unless the producer says otherwise, the default value of T. Plain value; no shared state.
#pragma once

#include "velwin32.h"

#include <cstdint>
#include <type_traits>

template <typename T>
class CVeLResult
{
public:
    // A failed result holding the default value.
    CVeLResult() : m_success(false), m_value() {}
    CVeLResult(bool success, const T& value) : m_success(success), m_value(value) {}
    CVeLResult(const CVeLResult&) = default;
    CVeLResult& operator=(const CVeLResult&) = default;
    virtual ~CVeLResult() {}

    // The NT status rule: a status whose sign bit (bit 31) is clear counts as success. The raw status is
    // kept as the value either way, so a caller sees it also on failure.
    template <typename U = T, typename = std::enable_if_t<std::is_same<U, LONG>::value>>
    static CVeLResult FromNTStatus(LONG status)
    {
        return CVeLResult(static_cast<std::int32_t>(status) >= 0, status);
    }

    bool IsSuccess() const { return m_success; }
    // Meaningful only when IsSuccess() is true (or for the documented exceptions such as NT statuses).
    const T& GetValue() const { return m_value; }

private:
    bool m_success;
    T m_value;
};
