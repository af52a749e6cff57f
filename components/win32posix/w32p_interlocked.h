// Interlocked operations on 32-bit values: full-barrier atomic read-modify-write, usable on memory
// shared between processes (the operations are lock-free and address-free).
#pragma once

#include "w32p_base.h"

inline LONG InterlockedExchange(volatile LONG* target, LONG value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

inline LONG InterlockedCompareExchange(volatile LONG* target, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}

inline LONG InterlockedIncrement(volatile LONG* target)
{
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}

inline LONG InterlockedDecrement(volatile LONG* target)
{
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
