// CVeLNonCopyable: base class of objects that own resources and must not be copied.
#pragma once

#include "korutilities_export.h"

class KORUTILITIES_API CVeLNonCopyable
{
public:
    CVeLNonCopyable(const CVeLNonCopyable&) = delete;
    CVeLNonCopyable& operator=(const CVeLNonCopyable&) = delete;

protected:
    CVeLNonCopyable() {}
    virtual ~CVeLNonCopyable() {}
};
