// CVeLXMLHandler: owns one XML document, loaded once by its constructor from a file or a wide string
// (optionally validated against an XML Schema), read and changed through slash-separated element paths
// (the rules are CVeLXMLHandlerUtilities'), and written back to a file or a string. The handler owns its
// own parser, which owns the document; DOM pointers it hands out die with the handler. The parser library
// is initialised once per process on first construction and never shut down, so handlers may be made and
// destroyed on any number of threads; one handler is used by one thread at a time.
//
// Text loaded from a wide string is handed to the parser as its UTF-16 code units on every platform, so
// such a document is UTF-16 whatever its declaration says. Malformed input never throws out of the
// handler: parse errors go to its CVeLXMLErrorHandler (traced there) and exceptions of the parser library
// are caught and traced. Note that two constructors take a wide string and a path; a character literal
// converts to both, so pass a std::wstring or a boost::filesystem::path explicitly.
//
// Documents are untrusted input, so every load is safe whatever the document asks for:
// - Nothing outside the given text or file is ever read: no external entity, no external DTD, no schema
//   named by the document (xsi:schemaLocation hints are ignored) and nothing the caller's schema imports
//   is fetched, from a file or from the network. Only the caller's schema validates, so a document whose
//   root that schema does not declare is invalid. A document that needs an external resource to load
//   fails with a traced reason. A host that really wants external entities is not served by this class.
// - Entity expansion is capped (10,000 expansions, 10,000,000 characters of text in a document that
//   declares entities), so a small document cannot grow into gigabytes.
// - Elements nested deeper than kMaxElementDepth levels (the root is level 1) are refused at load with a
//   traced reason, as Windows' own XML parser refuses them by default; no settings file comes near it, and
//   every traversal of the parser library, which recurses, survives it. Paths and branches that would
//   grow a document beyond it are refused too.
// A refused document is not valid, and the handler then holds no document.
#pragma once

#include "ivelxmldomaccessprovider.h"
#include "korutilities_export.h"
#include "velxmlcharconverter.h"
#include "velxmlerrorhandler.h"

#include <boost/filesystem/path.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLXMLHandler : public IVeLXMLDOMAccessProvider
{
public:
    using DOMElement = XERCES_CPP_NAMESPACE::DOMElement;

    // The deepest element nesting a document may have; the root element is level 1.
    static constexpr unsigned int kMaxElementDepth = 256;

    // Loads xml validated against the schema text; valid when the schema loads and the document has no
    // parse or validation error. Both texts reach the parser as UTF-16 code units with their encoding
    // detected from the content, so they should start with an XML declaration that names no encoding
    // (or UTF-16): a declared 8-bit encoding makes the parser misread them.
    CVeLXMLHandler(const std::wstring& xml, const std::wstring& schema);
    // Loads xml without validation; valid for any non-empty text (parse errors are only traced).
    explicit CVeLXMLHandler(const std::wstring& xml);
    // Loads file validated against the schema file; valid when both exist, the schema loads and the
    // document has no error.
    CVeLXMLHandler(const boost::filesystem::path& file, const boost::filesystem::path& schemaFile);
    // Loads file without validation; valid when it exists and has an XML declaration.
    explicit CVeLXMLHandler(const boost::filesystem::path& file);
    // Loads file validated against the schema text (which, as above, should declare no 8-bit encoding).
    CVeLXMLHandler(boost::filesystem::path file, std::wstring schema);
    ~CVeLXMLHandler() override;

    CVeLXMLHandler(const CVeLXMLHandler&) = delete;
    CVeLXMLHandler& operator=(const CVeLXMLHandler&) = delete;

    // The result of the constructor's load.
    bool IsValidXML() const;

    // Text content / attribute of the element at path; false when the element is missing. An absent
    // attribute reads as an empty value.
    bool ReadXMLText(const std::wstring& path, std::wstring& text) const;
    bool WriteXMLText(const std::wstring& path, const std::wstring& text);
    bool ReadXMLAttribute(const std::wstring& path, const std::wstring& name, std::wstring& value) const;
    bool WriteXMLAttribute(const std::wstring& path, const std::wstring& name, const std::wstring& value);

    // See CVeLXMLHandlerUtilities for these three.
    bool ReadSiblingsElementNodeAttributes(const std::wstring& path,
                                           std::vector<std::map<std::wstring, std::wstring>>& out) const;
    bool AppendNode(const std::wstring& parentPath, const std::wstring& childName,
                    const std::vector<std::map<std::wstring, std::wstring>>& attributeSets);
    bool RemoveNode(const std::wstring& path) const;

    // True when the document has a root element and path names an element.
    bool NodeIsSelectable(const std::wstring& path) const;

    bool CheckAndCreateXMLPath(const std::wstring& path) override;
    DOMElement* CreateDOMElement(const std::wstring& name) const override;
    bool GetDOMBranch(const std::wstring& path, DOMElement*& element) const override;
    bool InsertDOMBranch(const std::wstring& path, DOMElement* branch) override;
    // Number of child nodes (text nodes included) of the element at path; false when it is missing or
    // has no children.
    virtual bool GetCountOfElements(const std::wstring& path, unsigned int& count) const;

    // Serialises the document (pretty-printed, no byte-order mark) as UTF-16 or UTF-8 into file. The
    // whole text is made in memory first and then replaces the file in one crash-safe step
    // (CVeLFileHelper::ReplaceContentAtomically): the file holds its old content or the complete new one,
    // never a fragment. False, with the file untouched, when there is no document, the serializer cannot
    // be set up or reports an error, the document is nested deeper than kMaxElementDepth, or the file
    // cannot be replaced.
    bool WriteXMLToFile(const boost::filesystem::path& file, bool utf16) const;
    // Writes the document back, as UTF-16, to the file it was loaded from. False for a handler built
    // from a string or when that file no longer exists.
    bool WriteXMLToFile() const;
    // Replaces out with the document serialised as UTF-16 (not pretty-printed). False, out unchanged, for
    // the failures of the serializer named above.
    bool WriteXMLToString(std::wstring& out) const;
    // What WriteXMLToString produces; empty when it fails.
    std::wstring ToString();

protected:
    bool ReadXMLFromFile();
    bool ReadXMLFromString(const std::wstring& xml);
    bool ReadXMLWithValidation(const std::wstring& xml, const std::wstring& schema);
    bool ReadXMLWithValidation(const std::wstring& schema);
    bool ReadXMLWithValidation(const boost::filesystem::path& schemaFile);
    void SetupParserForValidation();

private:
    // Loads the schema text into this handler's parser and switches validation on; false when it is no
    // schema. Runs inside the caller's guard against parser exceptions.
    bool LoadSchemaText(const std::wstring& schema);
    // Makes sure the parser library is initialised before the parser member is constructed.
    struct PlatformInitializer
    {
        PlatformInitializer();
    };
    // The parser with the safety settings and limits described above.
    class SafeParser;

    void Init();
    DOMElement* CreateXMLPathElement(DOMElement* parent, const std::wstring& name);
    XERCES_CPP_NAMESPACE::DOMDocument* Document() const;
    bool FileExists() const;
    bool Serialize(XERCES_CPP_NAMESPACE::XMLFormatTarget& target, const XMLCh* encoding,
                   bool prettyPrint) const;
    // Parses source into the parser's document; false when the document was refused (the parser then
    // holds no document).
    bool Parse(const XERCES_CPP_NAMESPACE::InputSource& source);
    // Ends a load: false, with the document dropped, when something during it was refused.
    bool FinishLoad(bool loaded);

    PlatformInitializer m_platform;
    // Parsing changes only the parser's document, which const readers may hand out for change.
    std::unique_ptr<SafeParser> m_parser;
    bool m_valid;
    boost::filesystem::path m_file;
    int m_sourceKind;           // 0 built from a file, 1 built from a string
    XMLChString m_documentText; // the UTF-16 units m_documentSource reads
    std::unique_ptr<XERCES_CPP_NAMESPACE::MemBufInputSource> m_documentSource;
    XMLChString m_schemaText;
    std::unique_ptr<XERCES_CPP_NAMESPACE::MemBufInputSource> m_schemaSource;
    std::unique_ptr<CVeLXMLErrorHandler> m_errorHandler;
};
