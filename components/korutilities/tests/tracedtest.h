// A fixture that raises the library's trace level to everything for the length of one test, so that
// BTraceCapture sees debug lines, and puts the default warning level back afterwards.
#pragma once

#include "korutilitesbtracedef.h"

#include <gtest/gtest.h>

namespace kortest
{

class TracedTest : public ::testing::Test
{
protected:
    void SetUp() override { BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_DBG3); }
    void TearDown() override { BTraceSetLevel(&g_korutilitiesTraceModule, BTRACE_WRN); }
};

} // namespace kortest
