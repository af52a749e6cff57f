// CVeLXMLHandler: loads from strings and files (validating or not), writing, round trips, DOM access and
// path creation, several threads at once, and mutated documents.
#include "korutilitesbtracedef.h"
#include "velxmlhandler.h"
#include "xmltestsupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

namespace fs = boost::filesystem;

namespace
{

using kortest::Utf8;
const wchar_t* const kSchema = kortest::kConfigSchema;
const wchar_t* const kAccepted =
    L"<?xml version=\"1.0\"?>\n<Config><Item id=\"1\"/><Item id=\"2\"/></Config>";
const wchar_t* const kRejected = L"<?xml version=\"1.0\"?>\n<Config><Item id=\"one\"/><Extra/></Config>";

using XMLHandlerTest = kortest::XMLFileTest;

} // namespace

TEST_F(XMLHandlerTest, LoadsFromStringsAndFiles)
{
    BTraceCapture capture;
    CVeLXMLHandler missing(Root() / "missing.xml");
    EXPECT_FALSE(missing.IsValidXML());
    EXPECT_TRUE(capture.Records().empty());
    CVeLXMLHandler empty{std::wstring()};
    EXPECT_FALSE(empty.IsValidXML());
    EXPECT_FALSE(empty.NodeIsSelectable(L""));
    EXPECT_EQ(nullptr, empty.CreateDOMElement(L"x"));

    // The text reaches the parser as UTF-16 code units even when it declares another encoding.
    CVeLXMLHandler handler(
        std::wstring(L"<?xml version=\"1.0\" encoding=\"UTF-8\"?><R a=\"Gr\u00fc\u00dfe \U0001F600\"/>"));
    EXPECT_TRUE(handler.IsValidXML());
    std::wstring value;
    EXPECT_TRUE(handler.ReadXMLAttribute(L"R", L"a", value));
    EXPECT_EQ(L"Gr\u00fc\u00dfe \U0001F600", value);

    CVeLXMLHandler undeclared(Write("undeclared.xml", "<R><A>t</A></R>"));
    EXPECT_FALSE(undeclared.IsValidXML());
    EXPECT_TRUE(undeclared.NodeIsSelectable(L"R/A")); // the parse itself succeeded
    CVeLXMLHandler declared(Write("decl \u00e4.xml", "<?xml version=\"1.0\"?><R><A>t</A></R>"));
    EXPECT_TRUE(declared.IsValidXML());
    EXPECT_TRUE(declared.ReadXMLText(L"R/A", value));
    EXPECT_EQ(L"t", value);
}

TEST_F(XMLHandlerTest, ValidatingLoadsAcceptAndReject)
{
    const fs::path schemaFile = Write("schema.xsd", Utf8(kSchema));
    const fs::path good = Write("good.xml", Utf8(kAccepted));
    const fs::path bad = Write("bad.xml", Utf8(kRejected));

    EXPECT_TRUE(CVeLXMLHandler(std::wstring(kAccepted), std::wstring(kSchema)).IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(std::wstring(kRejected), std::wstring(kSchema)).IsValidXML());
    EXPECT_TRUE(CVeLXMLHandler(good, schemaFile).IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(bad, schemaFile).IsValidXML());
    EXPECT_TRUE(CVeLXMLHandler(good, std::wstring(kSchema)).IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(bad, std::wstring(kSchema)).IsValidXML());

    // A second validating handler in the same process starts from nothing cached.
    CVeLXMLHandler again{std::wstring(kAccepted), std::wstring(kSchema)};
    EXPECT_TRUE(again.IsValidXML());
    EXPECT_TRUE(again.NodeIsSelectable(L"Config/Item"));

    EXPECT_FALSE(CVeLXMLHandler(Root() / "none.xml", schemaFile).IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(good, Root() / "none.xsd").IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(Root() / "none.xml", std::wstring(kSchema)).IsValidXML());
    EXPECT_FALSE(
        CVeLXMLHandler(std::wstring(kAccepted), std::wstring(L"<?xml version=\"1.0\"?><notaschema/>"))
            .IsValidXML());
    EXPECT_FALSE(CVeLXMLHandler(std::wstring(kAccepted), std::wstring()).IsValidXML());
}

// File, handler, file and handler again, in UTF-8 and UTF-16 (written without a byte order mark), and
// through a string: the content survives every step.
TEST_F(XMLHandlerTest, RoundTripFileHandlerFileHandlerKeepsContent)
{
    const fs::path source =
        Write("source.xml",
              Utf8(L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Root>\n  <S k=\"\u4e2d &amp; \U0001F600\">"
                   L"text &lt;1&gt;</S>\n  <L><I v=\"1\"/><I v=\"2\"/></L>\n</Root>\n"));
    CVeLXMLHandler first(source);
    ASSERT_TRUE(first.IsValidXML());
    ASSERT_TRUE(first.WriteXMLAttribute(L"Root/S", L"added", L"yes"));
    const fs::path copy = Root() / "copy.xml";
    ASSERT_TRUE(first.WriteXMLToFile(copy, false));
    ASSERT_TRUE(first.WriteXMLToFile()); // rewrites source.xml as UTF-16
    const std::string bytes8 = ReadFile(copy), bytes16 = ReadFile(source);
    EXPECT_EQ(0u, bytes8.find("<?xml version=\"1.0\" encoding=\"UTF-8\""));
    EXPECT_NE(std::string::npos, bytes8.find("k=\"\xE4\xB8\xAD"));
    EXPECT_EQ(std::string("<\0?\0x\0", 6), bytes16.substr(0, 6)); // no FF FE in front
    EXPECT_EQ(0u, bytes16.size() % 2);

    for (const fs::path& file : {copy, source})
    {
        CVeLXMLHandler second(file);
        ASSERT_TRUE(second.IsValidXML());
        std::wstring value;
        EXPECT_TRUE(second.ReadXMLAttribute(L"S", L"k", value));
        EXPECT_EQ(L"\u4e2d & \U0001F600", value);
        EXPECT_TRUE(second.ReadXMLAttribute(L"S", L"added", value));
        EXPECT_EQ(L"yes", value);
        EXPECT_TRUE(second.ReadXMLText(L"S", value));
        EXPECT_EQ(L"text <1>", value);
        std::vector<std::map<std::wstring, std::wstring>> items;
        EXPECT_TRUE(second.ReadSiblingsElementNodeAttributes(L"L", items));
        ASSERT_EQ(2u, items.size());
        EXPECT_EQ(L"2", items[1][L"v"]);
    }

    // Through a string as well: the serialised text loads again as the same document. Writing back to the
    // source works only for a handler built from a file.
    const std::wstring text = first.ToString();
    EXPECT_EQ(0u, text.find(L"<?xml version=\"1.0\" encoding=\"UTF-16\""));
    CVeLXMLHandler fromString(text);
    std::wstring value;
    EXPECT_TRUE(fromString.ReadXMLAttribute(L"Root/S", L"k", value));
    EXPECT_EQ(L"\u4e2d & \U0001F600", value);
    EXPECT_FALSE(fromString.WriteXMLToFile());
    EXPECT_FALSE(fromString.WriteXMLToFile(Root() / "no-such-dir" / "x.xml", false));
}

TEST_F(XMLHandlerTest, DOMAccessAndPathCreation)
{
    CVeLXMLHandler handler(std::wstring(L"<?xml version=\"1.0\"?><Root><A><B/></A></Root>"));
    IVeLXMLDOMAccessProvider& provider = handler;

    EXPECT_TRUE(provider.CheckAndCreateXMLPath(L"Root/A/B/C"));
    EXPECT_TRUE(provider.CheckAndCreateXMLPath(L"A\\B\\C"));
    EXPECT_TRUE(provider.CheckAndCreateXMLPath(L"/A//B/C/"));
    unsigned int count = 0;
    EXPECT_TRUE(handler.GetCountOfElements(L"A/B", count));
    EXPECT_EQ(1u, count); // C was made once
    EXPECT_TRUE(handler.GetCountOfElements(L"", count));
    EXPECT_EQ(1u, count); // no second A
    EXPECT_TRUE(provider.CheckAndCreateXMLPath(L"New/Deep"));
    EXPECT_TRUE(handler.NodeIsSelectable(L"Root/New/Deep"));
    EXPECT_FALSE(provider.CheckAndCreateXMLPath(L"A/1bad"));
    EXPECT_FALSE(handler.NodeIsSelectable(L"A/1bad"));

    XERCES_CPP_NAMESPACE::DOMElement* branch = provider.CreateDOMElement(L"Graft");
    ASSERT_NE(nullptr, branch);
    branch->setAttribute(u"n", u"1");
    EXPECT_FALSE(provider.InsertDOMBranch(L"Missing", branch));
    EXPECT_TRUE(provider.InsertDOMBranch(L"A/B", branch));
    XERCES_CPP_NAMESPACE::DOMElement* found = nullptr;
    EXPECT_TRUE(provider.GetDOMBranch(L"A/B/Graft", found));
    EXPECT_EQ(branch, found);
    EXPECT_FALSE(provider.GetDOMBranch(L"A/Graft", found));
    EXPECT_EQ(nullptr, found);
    EXPECT_EQ(nullptr, provider.CreateDOMElement(L"<bad>"));

    // A branch of another document is refused, not thrown.
    CVeLXMLHandler other(std::wstring(L"<?xml version=\"1.0\"?><O/>"));
    EXPECT_FALSE(provider.InsertDOMBranch(L"A", other.CreateDOMElement(L"Foreign")));
    EXPECT_TRUE(handler.RemoveNode(L"A/B/Graft"));
    EXPECT_FALSE(handler.NodeIsSelectable(L"A/B/Graft"));
}

TEST_F(XMLHandlerTest, HandlersOnSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&good, t]()
            {
                for (int i = 0; i < 25; ++i)
                {
                    CVeLXMLHandler handler(std::wstring(L"<?xml version=\"1.0\"?><R><A v=\"") +
                                           std::to_wstring(t) + L"\"/></R>");
                    std::wstring value;
                    if (handler.ReadXMLAttribute(L"R/A", L"v", value) && value == std::to_wstring(t) &&
                        !handler.ToString().empty())
                        ++good;
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(100, good.load());
}

// Malformed input of every kind ends in a handler that answers, never in a crash or an exception.
TEST_F(XMLHandlerTest, MutatedDocumentsNeverBreakTheHandler)
{
    BTraceSetLevel(&g_korutilitiesTraceModule, 0); // thousands of parse errors are expected here
    const std::wstring seed =
        L"<?xml version=\"1.0\"?>\n<Root a=\"1\" b='x'><!-- c --><A id=\"\u00e9\">t&amp;"
        L"<![CDATA[<x>]]></A><B/><?pi d?><C><D e=\"f\">\U0001F600</D></C></Root>";
    const wchar_t alphabet[] = L"<>/=\"'&;!?-[]:# \n\tabAB\u00e9\U0001F600";
    std::mt19937 random(12345);
    auto pick = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };

    const int kRounds = 2400;
    int valid = 0, invalid = 0;
    for (int round = 0; round < kRounds; ++round)
    {
        std::wstring doc = seed;
        switch (round % 6)
        {
        case 0: // truncated
            doc.resize(pick(doc.size() + 1));
            break;
        case 1: // characters replaced by markup-ish ones
            for (int i = 0, n = 1 + static_cast<int>(pick(8)); i < n; ++i)
                doc[pick(doc.size())] = alphabet[pick(sizeof alphabet / sizeof alphabet[0] - 1)];
            break;
        case 2: // random code units, surrogates and controls included
            for (int i = 0, n = 1 + static_cast<int>(pick(8)); i < n; ++i)
                doc.insert(doc.begin() + static_cast<std::ptrdiff_t>(pick(doc.size() + 1)),
                           static_cast<wchar_t>(pick(0x11000)));
            break;
        case 3: // deep nesting, sometimes unclosed
        {
            const std::size_t depth = 20 + (pick(20) == 0 ? 2000 : pick(200));
            doc = L"<?xml version=\"1.0\"?>";
            for (std::size_t i = 0; i < depth; ++i)
                doc += L"<n>";
            for (std::size_t i = pick(2) ? 0 : pick(depth); i < depth; ++i)
                doc += L"</n>";
            break;
        }
        case 4: // huge attribute values, sometimes unterminated
            doc = L"<?xml version=\"1.0\"?><R a=\"" +
                  std::wstring(pick(40) == 0 ? 256 * 1024 : 1000 + pick(16000), L'v') +
                  (pick(2) ? L"\"/>" : L"");
            break;
        default: // pieces of the document swapped around
        {
            const std::size_t a = pick(doc.size()), b = pick(doc.size());
            doc = doc.substr(std::max(a, b)) + doc.substr(std::min(a, b), std::max(a, b) - std::min(a, b)) +
                  doc.substr(0, std::min(a, b));
            break;
        }
        }
        CVeLXMLHandler handler(doc);
        (handler.IsValidXML() ? valid : invalid)++;
        // The object stays usable whatever came of the parse.
        std::wstring text;
        unsigned int count = 0;
        handler.ReadXMLText(L"Root/A", text);
        handler.GetCountOfElements(L"", count);
        handler.CheckAndCreateXMLPath(L"Root/Z");
        handler.WriteXMLAttribute(L"Root/Z", L"k", L"v");
        handler.ToString();
    }
    BTraceSetLevel(&g_korutilitiesTraceModule, VEL_WRN);
    EXPECT_EQ(kRounds, valid + invalid);
    EXPECT_GT(valid, 0);
}
