// CVeLXMLErrorHandler: the parser error handler that every XML handler installs in its own parser. It
// counts the warnings, errors and fatal errors the parser reports and traces each one (warnings at WRN,
// the others at ERR) with its place in the input; it never throws, so a malformed document only ends the
// parse. Owned by one CVeLXMLHandler and used by that handler's thread only. Whether a load is valid is
// decided by the parser's own error count; these counters are for callers and tests that want detail.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <xercesc/sax/ErrorHandler.hpp>

class KORUTILITIES_API CVeLXMLErrorHandler : public XERCES_CPP_NAMESPACE::ErrorHandler
{
public:
    CVeLXMLErrorHandler();
    ~CVeLXMLErrorHandler() override;

    void warning(const XERCES_CPP_NAMESPACE::SAXParseException& exc) override;
    void error(const XERCES_CPP_NAMESPACE::SAXParseException& exc) override;
    void fatalError(const XERCES_CPP_NAMESPACE::SAXParseException& exc) override;
    // Sets all three counters back to 0. The counters otherwise add up over every parse and grammar load
    // of the parser that the handler serves.
    void resetErrors() override;

    ULONG GetWarningCount() const { return m_warnings; }
    ULONG GetErrorCount() const { return m_errors; }
    ULONG GetFatalErrorCount() const { return m_fatalErrors; }

private:
    ULONG m_warnings;
    ULONG m_errors;
    ULONG m_fatalErrors;
};
