// CVeLXMLHandler against hostile documents and failing writes: external resources are never read, entity
// bombs and deep nesting are refused within bounded time and memory, a document cannot bring its own
// schema, and a write-back that fails leaves the file as it was.
#include "korutilitesbtracedef.h"
#include "velxmlhandler.h"
#include "xmltestsupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <functional>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace
{

using kortest::Utf8;
using kortest::Wide;
const wchar_t* const kSchema = kortest::kConfigSchema;

// Levels named e1, e2, ... around the text "deep", so that a path can name each of them.
std::string Nested(std::size_t depth, std::wstring* path = nullptr)
{
    std::string doc = "<?xml version=\"1.0\"?>";
    for (std::size_t i = 1; i <= depth; ++i)
    {
        doc += "<e" + std::to_string(i) + ">";
        if (path != nullptr)
            *path += (i > 1 ? L"/e" : L"e") + std::to_wstring(i);
    }
    doc += "deep";
    for (std::size_t i = depth; i >= 1; --i)
        doc += "</e" + std::to_string(i) + ">";
    return doc;
}

// Ten levels of ten references each: 10^9 copies of "lol" once expanded.
std::string BillionLaughs(const std::string& use)
{
    std::string doc = "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY l0 \"lol\">";
    for (int i = 1; i < 10; ++i)
    {
        doc += "<!ENTITY l" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            doc += "&l" + std::to_string(i - 1) + ";";
        doc += "\">";
    }
    return doc + "]>" + use;
}

// Runs check in a child process under a watchdog and answers its exit code: 0 is success, 124 a time-out,
// 125 a crash, 126 more memory than allowed. The child measures its own growth, so memory the test
// program held before does not count.
int RunGuarded(const std::function<int()>& check, long maxGrowthKiB = 512 * 1024, int seconds = 120)
{
    const pid_t child = fork();
    if (child == 0)
    {
        struct rusage before;
        getrusage(RUSAGE_SELF, &before);
        const int result = check();
        struct rusage after;
        getrusage(RUSAGE_SELF, &after);
        _exit(result != 0 ? result : (after.ru_maxrss - before.ru_maxrss > maxGrowthKiB ? 126 : 0));
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return 124;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 125;
}

// A TCP listener on 127.0.0.1 that counts the connections made to it.
class Listener
{
public:
    Listener()
    {
        m_socket = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (m_socket >= 0 && bind(m_socket, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
            listen(m_socket, 16) == 0 &&
            getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            m_port = ntohs(address.sin_port);
    }
    ~Listener() { close(m_socket); }
    int Port() const { return m_port; }
    std::string Url(const std::string& name) const
    {
        return "http://127.0.0.1:" + std::to_string(m_port) + "/" + name;
    }
    int Connections()
    {
        int count = 0;
        for (int fd; (fd = accept(m_socket, nullptr, nullptr)) >= 0; ++count)
            close(fd);
        return count;
    }

private:
    int m_socket = -1;
    int m_port = 0;
};

using XMLSafetyTest = kortest::XMLFileTest;

} // namespace

TEST_F(XMLSafetyTest, LocalFilesAreNeverReadThroughEntities)
{
    const fs::path secret = Write("secret.txt", "TOPSECRET");
    const std::string absolute = "<?xml version=\"1.0\"?><!DOCTYPE Config [<!ENTITY x SYSTEM \"file://" +
                                 secret.string() + "\">]><Config>&x;</Config>";
    const std::string relative =
        "<?xml version=\"1.0\"?><!DOCTYPE Config [<!ENTITY x SYSTEM \"secret.txt\">]><Config>&x;</Config>";
    const std::string parameter =
        "<?xml version=\"1.0\"?><!DOCTYPE Config [<!ENTITY % p SYSTEM \"secret.txt\"> %p;]>"
        "<Config/>";
    for (const std::string& doc : {absolute, relative, parameter})
    {
        const fs::path file = Write("doc.xml", doc);
        CVeLXMLHandler fromString{Wide(doc)};
        CVeLXMLHandler fromFile{file};
        CVeLXMLHandler validated{file, std::wstring(kSchema)};
        for (CVeLXMLHandler* handler : {&fromString, &fromFile, &validated})
        {
            EXPECT_FALSE(handler->IsValidXML()) << doc;
            std::wstring text;
            handler->ReadXMLText(L"Config", text);
            EXPECT_EQ(std::wstring::npos, (text + handler->ToString()).find(L"TOPSECRET")) << doc;
        }
    }
}

TEST_F(XMLSafetyTest, NetworkIsNeverContacted)
{
    Listener listener;
    ASSERT_NE(0, listener.Port());
    const fs::path evil = Write("evil.xsd", Utf8(kSchema));
    const std::vector<std::string> documents = {
        "<?xml version=\"1.0\"?><!DOCTYPE Config SYSTEM \"" + listener.Url("x.dtd") + "\"><Config/>",
        "<?xml version=\"1.0\"?><!DOCTYPE Config [<!ENTITY % p SYSTEM \"" + listener.Url("p") +
            "\"> %p;]><Config/>",
        "<?xml version=\"1.0\"?><!DOCTYPE Config [<!ENTITY x SYSTEM \"" + listener.Url("x") +
            "\">]><Config>&x;</Config>",
        "<?xml version=\"1.0\"?><Config xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:noNamespaceSchemaLocation=\"" +
            listener.Url("s.xsd") + "\"/>",
    };
    for (const std::string& doc : documents)
    {
        const fs::path file = Write("doc.xml", doc);
        CVeLXMLHandler{Wide(doc)};
        CVeLXMLHandler{file};
        CVeLXMLHandler{Wide(doc), std::wstring(kSchema)};
        CVeLXMLHandler{file, std::wstring(kSchema)};
        CVeLXMLHandler{file, evil};
    }
    // A DOCTYPE naming a DTD is only a name as long as nothing needs the DTD; validation does.
    EXPECT_TRUE(CVeLXMLHandler{Wide(documents[0])}.IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(Wide(documents[0]), std::wstring(kSchema)).IsValidXML());

    // Nor does the caller's own schema reach out for what it imports.
    const std::wstring importing =
        L"<?xml version=\"1.0\"?><xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">"
        L"<xs:include schemaLocation=\"" +
        Wide(listener.Url("inc.xsd")) + L"\"/><xs:element name=\"Config\"/></xs:schema>";
    EXPECT_FALSE(CVeLXMLHandler(std::wstring(L"<?xml version=\"1.0\"?><Config/>"), importing).IsValidXML());
    EXPECT_EQ(0, listener.Connections());
}

TEST_F(XMLSafetyTest, EntityBombsFailWithinBoundedTimeAndMemory)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a forked child of this threaded program runs too slowly under ThreadSanitizer for the "
                    "watchdog; the default and asan builds run this test";
#endif
    BTraceCapture capture;
    const std::vector<std::string> bombs = {
        BillionLaughs("<r>&l9;</r>"),
        BillionLaughs("<r a=\"&l9;\"/>"),
        // Few expansions of a large entity ("quadratic blow-up").
        "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY big \"" + std::string(100000, 'x') + "\">]><r>" +
            []
            {
                std::string uses;
                for (int i = 0; i < 5000; ++i)
                    uses += "&big;";
                return uses;
            }() +
            "</r>",
    };
    for (const std::string& bomb : bombs)
        EXPECT_EQ(0, RunGuarded(
                         [&]()
                         {
                             const fs::path file = Write("bomb.xml", bomb);
                             if (CVeLXMLHandler{Wide(bomb)}.IsValidXML() ||
                                 CVeLXMLHandler{file}.IsValidXML() ||
                                 CVeLXMLHandler(Wide(bomb), std::wstring(kSchema)).IsValidXML())
                                 return 1;
                             return 0;
                         }));
    // The limits refuse bombs, not ordinary use of entities.
    std::string ordinary = "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY co \"Company\">]><r a=\"&co;\">";
    for (int i = 0; i < 2000; ++i)
        ordinary += "&co;&amp;&#65;";
    CVeLXMLHandler handler{Wide(ordinary + "</r>")};
    EXPECT_TRUE(handler.IsValidXML());
    std::wstring text;
    ASSERT_TRUE(handler.ReadXMLText(L"r", text));
    EXPECT_EQ(2000u * 9u, text.size());
}

TEST_F(XMLSafetyTest, DeepNestingIsRefusedAtLoad)
{
    for (const std::size_t depth : {std::size_t(CVeLXMLHandler::kMaxElementDepth) + 1, std::size_t(200000)})
    {
        const std::string doc = Nested(depth);
        const fs::path file = Write("deep.xml", doc);
        EXPECT_EQ(0, RunGuarded(
                         [&]()
                         {
                             CVeLXMLHandler fromString{Wide(doc)};
                             CVeLXMLHandler fromFile{file};
                             for (CVeLXMLHandler* handler : {&fromString, &fromFile})
                             {
                                 std::wstring text, out;
                                 if (handler->IsValidXML() || handler->NodeIsSelectable(L"e1") ||
                                     handler->ReadXMLText(L"e1", text) || handler->WriteXMLToString(out) ||
                                     handler->WriteXMLToFile(file, false))
                                     return 1;
                             }
                             // Validation stops at the undeclared root already; what was read is harmless.
                             CVeLXMLHandler validated{file, std::wstring(kSchema)};
                             std::wstring text;
                             validated.ReadXMLText(L"e1", text);
                             validated.ToString();
                             return validated.IsValidXML() ? 2 : 0;
                         }));
        EXPECT_EQ(doc, ReadFile(file)); // a handler without a document never writes
    }
}

// The deepest document that loads is also one that every traversal handles, sanitizers' larger frames
// included.
TEST_F(XMLSafetyTest, DeepestAllowedDocumentIsFullyUsable)
{
    const fs::path file = Write("deepest.xml", Nested(CVeLXMLHandler::kMaxElementDepth));
    CVeLXMLHandler handler{file};
    ASSERT_TRUE(handler.IsValidXML());
    std::wstring text;
    ASSERT_TRUE(handler.ReadXMLText(L"e1", text));
    EXPECT_EQ(L"deep", text);
    ASSERT_TRUE(handler.WriteXMLToFile());
    CVeLXMLHandler again{file};
    ASSERT_TRUE(again.IsValidXML());
    EXPECT_NE(std::wstring::npos, again.ToString().find(L"deep"));

    // The document cannot be grown past the limit through the handler either.
    std::wstring path;
    CVeLXMLHandler named{Wide(Nested(CVeLXMLHandler::kMaxElementDepth - 1, &path))};
    ASSERT_TRUE(named.IsValidXML());
    EXPECT_TRUE(named.CheckAndCreateXMLPath(path + L"/last"));
    EXPECT_FALSE(named.CheckAndCreateXMLPath(path + L"/last/more"));
    EXPECT_FALSE(named.NodeIsSelectable(path + L"/last/more"));
    XERCES_CPP_NAMESPACE::DOMElement* leaf = named.CreateDOMElement(L"b");
    ASSERT_NE(nullptr, leaf);
    EXPECT_FALSE(named.InsertDOMBranch(path + L"/last", leaf));
    EXPECT_TRUE(named.InsertDOMBranch(path, leaf));
    EXPECT_FALSE(named.ToString().empty());

    XERCES_CPP_NAMESPACE::DOMElement* branch = handler.CreateDOMElement(L"b");
    ASSERT_NE(nullptr, branch);
    EXPECT_TRUE(handler.InsertDOMBranch(L"e1", branch));

    // A branch grown through the DOM beyond the limit is refused by the readers and writers, not followed
    // down into a stack overflow.
    XERCES_CPP_NAMESPACE::DOMElement* parent = branch;
    for (int i = 0; i < 100000; ++i)
        parent = static_cast<XERCES_CPP_NAMESPACE::DOMElement*>(
            parent->appendChild(handler.CreateDOMElement(L"g")));
    std::wstring out;
    EXPECT_FALSE(handler.ReadXMLText(L"e1", text));
    EXPECT_FALSE(handler.WriteXMLToString(out));
    EXPECT_FALSE(handler.WriteXMLToFile());
    EXPECT_TRUE(CVeLXMLHandler{file}.IsValidXML()); // the file still holds the last good document
}

TEST_F(XMLSafetyTest, DocumentCannotBringItsOwnSchema)
{
    const fs::path permissive =
        Write("permissive.xsd", "<?xml version=\"1.0\"?>"
                                "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">"
                                "<xs:element name=\"Evil\"/><xs:element name=\"Config\"/>"
                                "</xs:schema>");
    const fs::path permissiveNs =
        Write("permissive-ns.xsd", "<?xml version=\"1.0\"?>"
                                   "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\""
                                   " targetNamespace=\"urn:evil\">"
                                   "<xs:element name=\"Evil\"/></xs:schema>");
    const std::string xsi = "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";
    const std::vector<std::string> documents = {
        "<?xml version=\"1.0\"?><Evil " + xsi + " xsi:noNamespaceSchemaLocation=\"" + permissive.string() +
            "\"/>",
        "<?xml version=\"1.0\"?><Config " + xsi + " xsi:noNamespaceSchemaLocation=\"" + permissive.string() +
            "\"><Item id=\"not a number\"/><Other/></Config>",
        "<?xml version=\"1.0\"?><e:Evil xmlns:e=\"urn:evil\" " + xsi + " xsi:schemaLocation=\"urn:evil " +
            permissiveNs.string() + "\"/>",
        "<?xml version=\"1.0\"?><!DOCTYPE Evil [<!ELEMENT Evil ANY>]><Evil/>",
        "<?xml version=\"1.0\"?><Evil/>",
    };
    const fs::path schemaFile = Write("schema.xsd", Utf8(kSchema));
    for (const std::string& doc : documents)
    {
        const fs::path file = Write("doc.xml", doc);
        EXPECT_FALSE(CVeLXMLHandler(Wide(doc), std::wstring(kSchema)).IsValidXML()) << doc;
        EXPECT_FALSE(CVeLXMLHandler(file, std::wstring(kSchema)).IsValidXML()) << doc;
        EXPECT_FALSE(CVeLXMLHandler(file, schemaFile).IsValidXML()) << doc;
    }
    // A document that only names a schema is judged by the caller's.
    const std::string good = "<?xml version=\"1.0\"?><Config " + xsi + " xsi:noNamespaceSchemaLocation=\"" +
                             permissive.string() + "\"><Item id=\"1\"/></Config>";
    EXPECT_TRUE(CVeLXMLHandler(Wide(good), std::wstring(kSchema)).IsValidXML());
}

TEST_F(XMLSafetyTest, ForbiddenCharactersAreRefusedAndChangeNothing)
{
    CVeLXMLHandler handler(std::wstring(L"<?xml version=\"1.0\"?><R><A k=\"v\">t</A></R>"));
    const std::wstring bad[] = {std::wstring(L"a\x01"
                                             L"b"),
                                std::wstring(1, L'\0'),
                                L"\uFFFE",
                                L"\uFFFF",
                                std::wstring(1, wchar_t(0xD800)),
                                std::wstring(1, wchar_t(0xDC00)) + L"x",
                                std::wstring(1, wchar_t(0x110000))};
    for (const std::wstring& text : bad)
    {
        EXPECT_FALSE(handler.WriteXMLText(L"R/A", text));
        EXPECT_FALSE(handler.WriteXMLAttribute(L"R/A", L"k", text));
        EXPECT_FALSE(handler.AppendNode(L"R", L"C", {{{L"k", text}}}));
    }
    std::wstring value;
    EXPECT_TRUE(handler.ReadXMLText(L"R/A", value));
    EXPECT_EQ(L"t", value);
    EXPECT_TRUE(handler.ReadXMLAttribute(L"R/A", L"k", value));
    EXPECT_EQ(L"v", value);
    EXPECT_FALSE(handler.NodeIsSelectable(L"R/C"));

    // What XML allows still goes through, astral characters and the allowed controls included.
    const std::wstring good = L"tab\there\nline\r\U0001F600\uD7FF\uE000\uFFFD";
    EXPECT_TRUE(handler.WriteXMLText(L"R/A", good));
    EXPECT_TRUE(handler.WriteXMLAttribute(L"R/A", L"k", good));
    CVeLXMLHandler again{handler.ToString()};
    EXPECT_TRUE(again.ReadXMLText(L"R/A", value));
    EXPECT_EQ(good, value);
}

TEST_F(XMLSafetyTest, FailingWriteBackLeavesTheFileByteForByte)
{
    const std::string original =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R>\n  <A>t\xC3\xA9</A>\n</R>\n";
    const fs::path file = Write("settings.xml", original);
    CVeLXMLHandler handler{file};
    ASSERT_TRUE(handler.IsValidXML());

    // A character XML forbids, placed through the DOM, makes the serializer fail.
    XERCES_CPP_NAMESPACE::DOMElement* element = nullptr;
    ASSERT_TRUE(handler.GetDOMBranch(L"A", element));
    const XMLCh forbidden[] = {u'x', 0x01, u'y', 0};
    element->setTextContent(forbidden);
    EXPECT_FALSE(handler.WriteXMLToFile());
    EXPECT_FALSE(handler.WriteXMLToFile(file, false));
    EXPECT_EQ(original, ReadFile(file));
    EXPECT_EQ(1, EntryCount()); // no temporary file left beside it

    // A read-only file is not replaced either; a good document then writes as before.
    ASSERT_TRUE(handler.WriteXMLText(L"A", L"fixed"));
    MakeReadOnly(file);
    EXPECT_FALSE(handler.WriteXMLToFile(file, false));
    EXPECT_EQ(original, ReadFile(file));
    fs::permissions(file, fs::owner_write | fs::add_perms);
    ASSERT_TRUE(handler.WriteXMLToFile(file, false));
    std::wstring text;
    EXPECT_TRUE(CVeLXMLHandler{file}.ReadXMLText(L"A", text));
    EXPECT_EQ(L"fixed", text);
    EXPECT_EQ(1, EntryCount()); // no temporary file left beside it
}
