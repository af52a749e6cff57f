#include "korutilitesbtracedef.h"
#include "velxmlerrorhandler.h"
#include "velxmlhandler.h"

#include <gtest/gtest.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

using namespace XERCES_CPP_NAMESPACE;

namespace
{

void Parse(XercesDOMParser& parser, const char* text)
{
    MemBufInputSource source(reinterpret_cast<const XMLByte*>(text), std::strlen(text), "test");
    parser.parse(source);
}

} // namespace

TEST(VeLXMLErrorHandler, CountsAndTracesErrorsAndFatalErrors)
{
    CVeLXMLHandler platform(std::wstring(L"<?xml version=\"1.0\"?><a/>")); // initialises the parser library
    BTraceSetLevel(&g_korutilitiesTraceModule, VEL_WRN);
    CVeLXMLErrorHandler handler;
    XercesDOMParser parser;
    parser.setErrorHandler(&handler);

    BTraceCapture capture;
    Parse(parser, "<a><b></a>");
    EXPECT_EQ(1u, handler.GetFatalErrorCount());
    EXPECT_EQ(0u, handler.GetErrorCount());
    EXPECT_EQ(1u, capture.CountContaining("XML fatal error in test, line 1"));

    // A validity error (no grammar at all) is an error, not a fatal one, and the parse goes on.
    handler.resetErrors();
    parser.setValidationScheme(XercesDOMParser::Val_Always);
    Parse(parser, "<a><b/></a>");
    EXPECT_EQ(0u, handler.GetFatalErrorCount());
    EXPECT_EQ(2u, handler.GetErrorCount());
    EXPECT_EQ(handler.GetErrorCount(), parser.getErrorCount());

    handler.resetErrors();
    EXPECT_EQ(0u, handler.GetErrorCount() + handler.GetWarningCount() + handler.GetFatalErrorCount());
    parser.setErrorHandler(nullptr);
}
