// Internal to the XML classes: runs one parser operation and turns every exception of the parser library
// (or an allocation failure) into the given failure value, traced at ERR, so that nothing thrown by the
// parser leaves the library. Not part of the installed interface.
#pragma once

#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velxmlcharconverter.h"

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include <new>

template <typename R, typename F>
R VeLXMLGuarded(R failure, F&& body)
{
    auto utf8 = [](const XMLCh* text)
    { return CVeLStringConverter::ConvertStdWStringToStdString(CVeLXMLCharConverter::ToWString(text)); };
    try
    {
        return body();
    }
    catch (const xercesc::XMLException& e)
    {
        VEL_TRACE(VEL_ERR, "XML exception: %s", utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::DOMException& e)
    {
        VEL_TRACE(VEL_ERR, "XML DOM exception %d: %s", static_cast<int>(e.code),
                  utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::SAXException& e)
    {
        VEL_TRACE(VEL_ERR, "XML exception: %s", utf8(e.getMessage()).c_str());
    }
    catch (const xercesc::OutOfMemoryException&)
    {
        VEL_TRACE(VEL_ERR, "XML parser out of memory!");
    }
    catch (const std::bad_alloc&)
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
    }
    catch (...)
    {
        VEL_TRACE(VEL_ERR, "Unknown exception in XML operation!");
    }
    return failure;
}
