#include "velxmlerrorhandler.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velxmlcharconverter.h"

#include <xercesc/sax/SAXParseException.hpp>

namespace
{

std::string Utf8(const XMLCh* text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(CVeLXMLCharConverter::ToWString(text));
}

} // namespace

CVeLXMLErrorHandler::CVeLXMLErrorHandler() : m_warnings(0), m_errors(0), m_fatalErrors(0) {}

CVeLXMLErrorHandler::~CVeLXMLErrorHandler() {}

void CVeLXMLErrorHandler::warning(const XERCES_CPP_NAMESPACE::SAXParseException& exc)
{
    ++m_warnings;
    VEL_TRACE(VEL_WRN, "XML warning in %s, line %d, column %d: %s", Utf8(exc.getSystemId()).c_str(),
              static_cast<int>(exc.getLineNumber()), static_cast<int>(exc.getColumnNumber()),
              Utf8(exc.getMessage()).c_str());
}

void CVeLXMLErrorHandler::error(const XERCES_CPP_NAMESPACE::SAXParseException& exc)
{
    ++m_errors;
    VEL_TRACE(VEL_ERR, "XML error in %s, line %d, column %d: %s", Utf8(exc.getSystemId()).c_str(),
              static_cast<int>(exc.getLineNumber()), static_cast<int>(exc.getColumnNumber()),
              Utf8(exc.getMessage()).c_str());
}

void CVeLXMLErrorHandler::fatalError(const XERCES_CPP_NAMESPACE::SAXParseException& exc)
{
    ++m_fatalErrors;
    VEL_TRACE(VEL_ERR, "XML fatal error in %s, line %d, column %d: %s", Utf8(exc.getSystemId()).c_str(),
              static_cast<int>(exc.getLineNumber()), static_cast<int>(exc.getColumnNumber()),
              Utf8(exc.getMessage()).c_str());
}

void CVeLXMLErrorHandler::resetErrors()
{
    m_warnings = 0;
    m_errors = 0;
    m_fatalErrors = 0;
}
