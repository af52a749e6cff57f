#include "velxmlhandler.h"
#include "korutilitesbtracedef.h"
#include "velfilehelper.h"
#include "velstringconverter.h"
#include "velwin32.h"
#include "velxmlguard.h"
#include "velxmlhandlerutilities.h"

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLEntityResolver.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/common/Grammar.hpp>

#include <atomic>
#include <new>

using namespace XERCES_CPP_NAMESPACE;
namespace fs = boost::filesystem;

namespace
{

// Labels the in-memory buffers of the validating loads in parser messages. One process-wide label that
// the first validating load switches from the schema's name to the document's; later schema buffers
// therefore carry the document's label. It only names buffers in messages, so nothing depends on it.
std::atomic<const char*> g_validationBufferId{"MyNckSchema"};
const char* const kStringBufferId = "MyTarnix";

std::string Utf8(const XMLCh* text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(CVeLXMLCharConverter::ToWString(text));
}

XMLChString SystemIdOf(const fs::path& file)
{
    std::wstring wide;
    CVeLStringConverter::ConvertUTF8Chars2StdWString(file.string().c_str(), wide);
    return CVeLXMLCharConverter::ToXMLCh(wide);
}

// Reads a file for the parser through the library's own path type, so any file name the caller can
// name opens, whatever the process's locale.
class FileStream : public BinInputStream
{
public:
    explicit FileStream(const fs::path& file) : m_stream(file, std::ios::in | std::ios::binary), m_position(0)
    {
    }
    bool IsOpen() const { return m_stream.is_open(); }
    XMLFilePos curPos() const override { return m_position; }
    XMLSize_t readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) override
    {
        const std::streamsize got =
            m_stream.rdbuf()->sgetn(reinterpret_cast<char*>(toFill), static_cast<std::streamsize>(maxToRead));
        if (got <= 0)
            return 0;
        m_position += static_cast<XMLFilePos>(got);
        return static_cast<XMLSize_t>(got);
    }
    const XMLCh* getContentType() const override { return nullptr; }

private:
    fs::ifstream m_stream;
    XMLFilePos m_position;
};

class FileInputSource : public InputSource
{
public:
    explicit FileInputSource(const fs::path& file) : m_file(file), m_systemId(SystemIdOf(file))
    {
        setSystemId(m_systemId.c_str());
    }
    // A null stream makes the parser report the file as unreadable through the error handler.
    BinInputStream* makeStream() const override
    {
        std::unique_ptr<FileStream> stream(new FileStream(m_file));
        return stream->IsOpen() ? stream.release() : nullptr;
    }

private:
    fs::path m_file;
    XMLChString m_systemId;
};

constexpr XMLSize_t kMaxEntityExpansions = 10000;
constexpr XMLSize_t kMaxEntityCharacters = 10000000;

// Thrown out of the parser's callbacks to end a parse at once; the parser library's scanner cleans up
// behind it.
struct DocumentRefused
{
};

// Answers every request for an external resource (entity, DTD, schema) with nothing and remembers that it
// was asked; with default resolution disabled the parser then reads nothing.
class RefusingResolver : public XMLEntityResolver
{
public:
    InputSource* resolveEntity(XMLResourceIdentifier* resource) override
    {
        m_refused = true;
        VEL_TRACE(VEL_ERR, "XML document refused: external resource %s is never loaded",
                  Utf8(resource != nullptr ? resource->getSystemId() : nullptr).c_str());
        return nullptr;
    }
    bool m_refused = false;
};

} // namespace

// The parser of every handler: the library's DOM parser with its resolution of external resources turned
// off and with limits on entity expansion and nesting. The limits are watched in the callbacks through which
// the scanner builds the document; a callback that finds one exceeded traces the reason, marks the load
// refused and ends the parse by throwing DocumentRefused.
class CVeLXMLHandler::SafeParser : public XercesDOMParser
{
public:
    SafeParser()
    {
        m_security.setEntityExpansionLimit(kMaxEntityExpansions);
        setSecurityManager(&m_security);
        setXMLEntityResolver(&m_resolver);
        setDisableDefaultEntityResolution(true);
        setLoadExternalDTD(false);
        setLoadSchema(false);
    }

    // Starts a load: no refusal yet, no depth, no entities.
    void BeginLoad()
    {
        m_resolver.m_refused = false;
        m_refused = false;
        m_depth = 0;
        m_declaresEntities = false;
        m_entityCharacters = 0;
    }
    bool Refused() const { return m_refused || m_resolver.m_refused; }

    void startElement(const XMLElementDecl& elemDecl, const unsigned int urlId, const XMLCh* const elemPrefix,
                      const RefVectorOf<XMLAttr>& attrList, const XMLSize_t attrCount, const bool isEmpty,
                      const bool isRoot) override
    {
        Enter();
        if (m_declaresEntities)
            for (XMLSize_t i = 0; i < attrCount; ++i)
                CountEntityCharacters(XMLString::stringLen(attrList.elementAt(i)->getValue()));
        // For an empty element the base class calls endElement itself, which leaves the level again.
        XercesDOMParser::startElement(elemDecl, urlId, elemPrefix, attrList, attrCount, isEmpty, isRoot);
    }
    void endElement(const XMLElementDecl& elemDecl, const unsigned int urlId, const bool isRoot,
                    const XMLCh* const elemPrefix) override
    {
        --m_depth;
        XercesDOMParser::endElement(elemDecl, urlId, isRoot, elemPrefix);
    }
    // Each entity reference is a level of the document tree as well.
    void startEntityReference(const XMLEntityDecl& entityDecl) override
    {
        Enter();
        XercesDOMParser::startEntityReference(entityDecl);
    }
    void endEntityReference(const XMLEntityDecl& entityDecl) override
    {
        --m_depth;
        XercesDOMParser::endEntityReference(entityDecl);
    }
    void docCharacters(const XMLCh* const chars, const XMLSize_t length, const bool cdataSection) override
    {
        if (m_declaresEntities)
            CountEntityCharacters(length);
        XercesDOMParser::docCharacters(chars, length, cdataSection);
    }
    void entityDecl(const DTDEntityDecl& entityDecl, const bool isPEDecl, const bool isIgnored) override
    {
        if (!isPEDecl)
            m_declaresEntities = true;
        XercesDOMParser::entityDecl(entityDecl, isPEDecl, isIgnored);
    }
    void error(const unsigned int errCode, const XMLCh* const msgDomain,
               const XMLErrorReporter::ErrTypes errType, const XMLCh* const errorText,
               const XMLCh* const systemId, const XMLCh* const publicId, const XMLFileLoc lineNum,
               const XMLFileLoc colNum) override
    {
        if (errCode == XMLErrs::EntityExpansionLimitExceeded &&
            XMLString::equals(msgDomain, XMLUni::fgXMLErrDomain))
        {
            m_refused = true;
            VEL_TRACE(VEL_ERR, "XML document refused: more than %u entity expansions",
                      static_cast<unsigned>(kMaxEntityExpansions));
        }
        XercesDOMParser::error(errCode, msgDomain, errType, errorText, systemId, publicId, lineNum, colNum);
    }

private:
    void Enter()
    {
        if (++m_depth <= kMaxElementDepth)
            return;
        m_refused = true;
        VEL_TRACE(VEL_ERR, "XML document refused: elements nested deeper than %u levels", kMaxElementDepth);
        throw DocumentRefused();
    }
    void CountEntityCharacters(XMLSize_t count)
    {
        m_entityCharacters += count;
        if (m_entityCharacters <= kMaxEntityCharacters)
            return;
        m_refused = true;
        VEL_TRACE(VEL_ERR, "XML document refused: entities expand to more than %u characters",
                  static_cast<unsigned>(kMaxEntityCharacters));
        throw DocumentRefused();
    }

    SecurityManager m_security;
    RefusingResolver m_resolver;
    bool m_refused = false;           // a limit was exceeded during the current load
    unsigned int m_depth = 0;         // elements and entity references open at the current point
    bool m_declaresEntities = false;  // the document declares general entities
    XMLSize_t m_entityCharacters = 0; // text counted towards kMaxEntityCharacters
};

CVeLXMLHandler::PlatformInitializer::PlatformInitializer()
{
    // A function-local static is initialised once even when several threads construct handlers at the
    // same time. The library is never terminated: documents of other handlers may still be alive at
    // any moment, and termination is reference-counted anyway for hosts that pair their own calls.
    static const bool initialized = []()
    {
        try
        {
            XMLPlatformUtils::Initialize();
            return true;
        }
        catch (const XMLException& e)
        {
            VEL_TRACE(VEL_ERR, "XML platform initialization failed: %s", Utf8(e.getMessage()).c_str());
            return false;
        }
    }();
    (void)initialized;
}

CVeLXMLHandler::CVeLXMLHandler(const std::wstring& xml, const std::wstring& schema)
    : m_parser(new SafeParser()), m_valid(false), m_sourceKind(1)
{
    Init();
    m_valid = ReadXMLWithValidation(xml, schema);
}

CVeLXMLHandler::CVeLXMLHandler(const std::wstring& xml)
    : m_parser(new SafeParser()), m_valid(false), m_sourceKind(1)
{
    Init();
    m_valid = ReadXMLFromString(xml);
}

CVeLXMLHandler::CVeLXMLHandler(const fs::path& file, const fs::path& schemaFile)
    : m_parser(new SafeParser()), m_valid(false), m_file(file), m_sourceKind(0)
{
    Init();
    m_valid = ReadXMLWithValidation(schemaFile);
}

CVeLXMLHandler::CVeLXMLHandler(const fs::path& file)
    : m_parser(new SafeParser()), m_valid(false), m_file(file), m_sourceKind(0)
{
    Init();
    m_valid = ReadXMLFromFile();
}

CVeLXMLHandler::CVeLXMLHandler(fs::path file, std::wstring schema)
    : m_parser(new SafeParser()), m_valid(false), m_file(std::move(file)), m_sourceKind(0)
{
    Init();
    m_valid = ReadXMLWithValidation(schema);
}

CVeLXMLHandler::~CVeLXMLHandler()
{
    // The parser keeps a pointer to the error handler, which dies first.
    m_parser->setErrorHandler(nullptr);
}

void CVeLXMLHandler::Init()
{
    m_errorHandler.reset(new CVeLXMLErrorHandler());
    m_parser->setErrorHandler(m_errorHandler.get());
}

bool CVeLXMLHandler::IsValidXML() const
{
    return m_valid;
}

xercesc::DOMDocument* CVeLXMLHandler::Document() const
{
    return m_parser->getDocument();
}

bool CVeLXMLHandler::FileExists() const
{
    boost::system::error_code error;
    return fs::exists(m_file, error) && !error;
}

bool CVeLXMLHandler::Parse(const InputSource& source)
{
    try
    {
        m_parser->parse(source);
    }
    catch (const DocumentRefused&)
    {
        // Traced where the limit was found.
    }
    return !m_parser->Refused();
}

bool CVeLXMLHandler::FinishLoad(bool loaded)
{
    if (!m_parser->Refused())
        return loaded;
    // A refused document is not kept half-built: the handler then behaves as one without a document.
    VeLXMLGuarded(false,
                  [&]()
                  {
                      m_parser->resetDocumentPool();
                      return true;
                  });
    return false;
}

bool CVeLXMLHandler::ReadXMLFromFile()
{
    if (!FileExists())
        return false;
    m_parser->BeginLoad();
    return FinishLoad(VeLXMLGuarded(false,
                                    [&]()
                                    {
                                        m_parser->setValidationScheme(XercesDOMParser::Val_Never);
                                        m_parser->setDoNamespaces(false);
                                        m_parser->setErrorHandler(m_errorHandler.get());
                                        FileInputSource source(m_file);
                                        if (!Parse(source))
                                            return false;
                                        xercesc::DOMDocument* doc = Document();
                                        const XMLCh* version =
                                            doc != nullptr ? doc->getXmlVersion() : nullptr;
                                        if (version == nullptr || *version == 0)
                                        {
                                            VEL_TRACE(VEL_ERR, "XML Version is not valid or is missing!!");
                                            return false;
                                        }
                                        return true;
                                    }));
}

bool CVeLXMLHandler::ReadXMLFromString(const std::wstring& xml)
{
    if (xml.empty())
    {
        VEL_TRACE(VEL_ERR, "XML String is empty!");
        return false;
    }
    m_parser->BeginLoad();
    VeLXMLGuarded(false,
                  [&]()
                  {
                      m_parser->setValidationScheme(XercesDOMParser::Val_Never);
                      m_parser->setDoNamespaces(false);
                      m_parser->setErrorHandler(m_errorHandler.get());
                      m_documentSource.reset();
                      m_documentText = CVeLXMLCharConverter::ToXMLCh(xml);
                      m_documentSource.reset(new MemBufInputSource(
                          reinterpret_cast<const XMLByte*>(m_documentText.data()),
                          m_documentText.size() * sizeof(XMLCh), kStringBufferId, false));
                      // The bytes are the text's UTF-16 code units, whatever the document declares.
                      m_documentSource->setEncoding(XMLUni::fgUTF16EncodingString);
                      return Parse(*m_documentSource);
                  });
    // Parse errors have been traced by the error handler; an unvalidated string load still counts as
    // loaded, and callers find out what is there through the element paths. Only a refused document is
    // not.
    return FinishLoad(true);
}

bool CVeLXMLHandler::LoadSchemaText(const std::wstring& schema)
{
    m_schemaSource.reset();
    m_schemaText = CVeLXMLCharConverter::ToXMLCh(schema);
    m_schemaSource.reset(new MemBufInputSource(reinterpret_cast<const XMLByte*>(m_schemaText.data()),
                                               m_schemaText.size() * sizeof(XMLCh),
                                               g_validationBufferId.load(), false));
    // Cached in this handler's own parser: the parser discards an uncached grammar when the parse starts, and
    // the document could then never validate. Nothing is shared with other handlers.
    if (m_parser->loadGrammar(*m_schemaSource, Grammar::SchemaGrammarType, true) == nullptr)
        return false;
    SetupParserForValidation();
    return true;
}

bool CVeLXMLHandler::ReadXMLWithValidation(const std::wstring& xml, const std::wstring& schema)
{
    m_parser->BeginLoad();
    return FinishLoad(VeLXMLGuarded(false,
                                    [&]()
                                    {
                                        if (!LoadSchemaText(schema))
                                            return false;
                                        g_validationBufferId.store("MyNckXml");
                                        m_documentSource.reset();
                                        m_documentText = CVeLXMLCharConverter::ToXMLCh(xml);
                                        m_documentSource.reset(new MemBufInputSource(
                                            reinterpret_cast<const XMLByte*>(m_documentText.data()),
                                            m_documentText.size() * sizeof(XMLCh),
                                            g_validationBufferId.load(), false));
                                        return Parse(*m_documentSource) && m_parser->getErrorCount() == 0;
                                    }));
}

bool CVeLXMLHandler::ReadXMLWithValidation(const std::wstring& schema)
{
    if (!FileExists())
        return false;
    m_parser->BeginLoad();
    return FinishLoad(VeLXMLGuarded(false,
                                    [&]()
                                    {
                                        if (!LoadSchemaText(schema))
                                            return false;
                                        FileInputSource source(m_file);
                                        return Parse(source) && m_parser->getErrorCount() == 0;
                                    }));
}

bool CVeLXMLHandler::ReadXMLWithValidation(const fs::path& schemaFile)
{
    if (!FileExists())
        return false;
    m_parser->BeginLoad();
    return FinishLoad(VeLXMLGuarded(false,
                                    [&]()
                                    {
                                        FileInputSource schemaSource(schemaFile);
                                        // Cached in this handler's own parser: the parser discards an
                                        // uncached grammar when the parse starts, and the document could
                                        // then never validate. Nothing is shared with other handlers.
                                        if (m_parser->loadGrammar(schemaSource, Grammar::SchemaGrammarType,
                                                                  true) == nullptr)
                                            return false;
                                        SetupParserForValidation();
                                        FileInputSource source(m_file);
                                        return Parse(source) && m_parser->getErrorCount() == 0;
                                    }));
}

void CVeLXMLHandler::SetupParserForValidation()
{
    m_parser->setDoNamespaces(true);
    m_parser->setDoSchema(true);
    m_parser->setValidationScheme(XercesDOMParser::Val_Always);
    m_parser->setValidationSchemaFullChecking(true);
    m_parser->setValidationConstraintFatal(true);
    m_parser->useCachedGrammarInParse(true);
    m_parser->setErrorHandler(m_errorHandler.get());
}

bool CVeLXMLHandler::ReadXMLText(const std::wstring& path, std::wstring& text) const
{
    return CVeLXMLHandlerUtilities().ReadElementNodeText(Document(), path, text);
}

bool CVeLXMLHandler::WriteXMLText(const std::wstring& path, const std::wstring& text)
{
    return CVeLXMLHandlerUtilities().WriteElementNodeText(Document(), path, text);
}

bool CVeLXMLHandler::ReadXMLAttribute(const std::wstring& path, const std::wstring& name,
                                      std::wstring& value) const
{
    return CVeLXMLHandlerUtilities().ReadElementNodeAttribute(Document(), path, name, value);
}

bool CVeLXMLHandler::WriteXMLAttribute(const std::wstring& path, const std::wstring& name,
                                       const std::wstring& value)
{
    return CVeLXMLHandlerUtilities().WriteElementNodeAttribute(Document(), path, name, value);
}

bool CVeLXMLHandler::ReadSiblingsElementNodeAttributes(
    const std::wstring& path, std::vector<std::map<std::wstring, std::wstring>>& out) const
{
    return CVeLXMLHandlerUtilities().ReadSiblingsElementNodeAttributes(Document(), path, out);
}

bool CVeLXMLHandler::AppendNode(const std::wstring& parentPath, const std::wstring& childName,
                                const std::vector<std::map<std::wstring, std::wstring>>& attributeSets)
{
    return CVeLXMLHandlerUtilities().AppendNode(Document(), parentPath, childName, attributeSets);
}

bool CVeLXMLHandler::RemoveNode(const std::wstring& path) const
{
    return CVeLXMLHandlerUtilities().RemoveNode(Document(), path);
}

bool CVeLXMLHandler::NodeIsSelectable(const std::wstring& path) const
{
    xercesc::DOMDocument* doc = Document();
    DOMElement* root = doc != nullptr ? doc->getDocumentElement() : nullptr;
    return root != nullptr && CVeLXMLHandlerUtilities().GetXPathElement(root, path) != nullptr;
}

bool CVeLXMLHandler::GetCountOfElements(const std::wstring& path, unsigned int& count) const
{
    return CVeLXMLHandlerUtilities().GetCountOfElements(Document(), path, count);
}

DOMElement* CVeLXMLHandler::CreateDOMElement(const std::wstring& name) const
{
    xercesc::DOMDocument* doc = Document();
    if (doc == nullptr)
        return nullptr;
    DOMElement* element = nullptr;
    VeLXMLGuarded(false,
                  [&]()
                  {
                      element = doc->createElement(CVeLXMLCharConverter::ToXMLCh(name).c_str());
                      return true;
                  });
    return element;
}

bool CVeLXMLHandler::GetDOMBranch(const std::wstring& path, DOMElement*& element) const
{
    xercesc::DOMDocument* doc = Document();
    DOMElement* root = doc != nullptr ? doc->getDocumentElement() : nullptr;
    element = root != nullptr ? CVeLXMLHandlerUtilities().GetXPathElement(root, path) : nullptr;
    return element != nullptr;
}

bool CVeLXMLHandler::InsertDOMBranch(const std::wstring& path, DOMElement* branch)
{
    DOMElement* parent = nullptr;
    if (!GetDOMBranch(path, parent) || branch == nullptr)
        return false;
    // The branch's own levels below the parent's, plus one for the text of its deepest elements.
    const unsigned int parentLevel = VeLXMLLevelOf(parent);
    if (parentLevel >= kMaxElementDepth || !VeLXMLWithinDepth(branch, kMaxElementDepth + 1 - parentLevel))
    {
        VEL_TRACE(VEL_ERR, "XML element nested deeper than %u levels!", kMaxElementDepth);
        return false;
    }
    return VeLXMLGuarded(false,
                         [&]()
                         {
                             parent->appendChild(branch);
                             return true;
                         });
}

bool CVeLXMLHandler::CheckAndCreateXMLPath(const std::wstring& path)
{
    xercesc::DOMDocument* doc = Document();
    DOMElement* current = doc != nullptr ? doc->getDocumentElement() : nullptr;
    if (current == nullptr)
        return false;
    CVeLXMLHandlerUtilities utilities;
    // Both separators of file paths split the steps here, as callers build these paths like file paths.
    std::size_t begin = 0;
    while (begin <= path.size())
    {
        std::size_t end = path.find_first_of(L"/\\", begin);
        if (end == std::wstring::npos)
            end = path.size();
        if (end > begin)
        {
            const std::wstring step = path.substr(begin, end - begin);
            DOMElement* next = utilities.GetXPathElement(current, step);
            if (next == nullptr && VeLXMLLevelOf(current) >= kMaxElementDepth)
            {
                VEL_TRACE(VEL_ERR, "XML element nested deeper than %u levels!", kMaxElementDepth);
                return false;
            }
            if (next == nullptr)
                next = CreateXMLPathElement(current, step);
            if (next == nullptr)
                return false;
            current = next;
        }
        begin = end + 1;
    }
    return true;
}

DOMElement* CVeLXMLHandler::CreateXMLPathElement(DOMElement* parent, const std::wstring& name)
{
    DOMElement* element = CreateDOMElement(name);
    if (element == nullptr)
        return nullptr;
    const bool appended = VeLXMLGuarded(false,
                                        [&]()
                                        {
                                            parent->appendChild(element);
                                            return true;
                                        });
    return appended ? element : nullptr;
}

bool CVeLXMLHandler::Serialize(XMLFormatTarget& target, const XMLCh* encoding, bool prettyPrint) const
{
    xercesc::DOMDocument* doc = Document();
    if (doc == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No XML document to write!");
        return false;
    }
    // The serializer recurses once per level; the document node and the text of the deepest elements add
    // one level each to the element levels.
    if (!VeLXMLWithinDepth(doc, kMaxElementDepth + 2))
    {
        VEL_TRACE(VEL_ERR, "XML element nested deeper than %u levels!", kMaxElementDepth);
        return false;
    }
    return VeLXMLGuarded(
        false,
        [&]()
        {
            static const XMLCh kLS[] = {u'L', u'S', 0};
            DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(kLS);
            if (implementation == nullptr)
                return false;
            DOMLSSerializer* serializer = implementation->createLSSerializer();
            if (serializer == nullptr)
                return false;
            std::unique_ptr<DOMLSSerializer, void (*)(DOMLSSerializer*)> serializerOwner(
                serializer, [](DOMLSSerializer* s) { s->release(); });
            DOMLSOutput* output = implementation->createLSOutput();
            if (output == nullptr)
                return false;
            std::unique_ptr<DOMLSOutput, void (*)(DOMLSOutput*)> outputOwner(output, [](DOMLSOutput* o)
                                                                             { o->release(); });
            DOMConfiguration* configuration = serializer->getDomConfig();
            if (configuration == nullptr)
                return false;
            output->setEncoding(encoding);
            configuration->setParameter(XMLUni::fgDOMErrorHandler, static_cast<const void*>(nullptr));
            if (prettyPrint && configuration->canSetParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true))
                configuration->setParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true);
            // Only asked, never set: readers of these files expect no byte-order mark.
            (void)configuration->canSetParameter(XMLUni::fgDOMWRTBOM, true);
            output->setByteStream(&target);
            // The serializer reports a document it cannot write (a character XML forbids, placed there
            // through the DOM) by its result or by an exception; either makes the write fail.
            if (!serializer->write(doc, output))
            {
                VEL_TRACE(VEL_ERR, "XML serialization failed!");
                return false;
            }
            return true;
        });
}

bool CVeLXMLHandler::WriteXMLToFile(const fs::path& file, bool utf16) const
{
    // The whole text first, in memory: the file is only touched once it is known to be complete.
    MemBufFormatTarget target(1023);
    if (!Serialize(target, utf16 ? XMLUni::fgUTF16EncodingString : XMLUni::fgUTF8EncodingString, true))
        return false;
    return CVeLFileHelper(file, false).ReplaceContentAtomically(target.getRawBuffer(), target.getLen());
}

bool CVeLXMLHandler::WriteXMLToFile() const
{
    if (m_sourceKind != 0 || !FileExists())
        return false;
    return WriteXMLToFile(m_file, true);
}

bool CVeLXMLHandler::WriteXMLToString(std::wstring& out) const
{
    MemBufFormatTarget target(1023);
    if (!Serialize(target, XMLUni::fgUTF16EncodingString, false))
        return false;
    // The serializer writes UTF-16 in the host's byte order; the buffer is read as those code units.
    out = CVeLXMLCharConverter::ToWString(reinterpret_cast<const XMLCh*>(target.getRawBuffer()),
                                          target.getLen() / sizeof(XMLCh));
    return true;
}

std::wstring CVeLXMLHandler::ToString()
{
    std::wstring out;
    if (!WriteXMLToString(out))
        return std::wstring();
    return out;
}
