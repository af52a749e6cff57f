// VEL_IMPL_FORWARD: the body of a public method that forwards to its private implementation m_impl, or
// traces "Can't access impl!" at ERR and answers the failure value when the implementation is missing (its
// construction was refused). Used inside the member functions of public classes only.
#pragma once

#include "korutilitesbtracedef.h"

#define VEL_IMPL_FORWARD(failure, call)                                                                      \
    if (!m_impl)                                                                                             \
    {                                                                                                        \
        VEL_TRACE(VEL_ERR, "Can't access impl!");                                                            \
        return failure;                                                                                      \
    }                                                                                                        \
    return m_impl->call
