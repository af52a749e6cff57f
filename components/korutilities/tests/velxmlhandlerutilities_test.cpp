#include "korutilitesbtracedef.h"
#include "velxmlcharconverter.h"
#include "velxmlhandler.h"
#include "velxmlhandlerutilities.h"

#include <gtest/gtest.h>

using namespace XERCES_CPP_NAMESPACE;

namespace
{

const wchar_t* const kDocument = LR"(<?xml version="1.0"?>
<Root>
  <A id="1">
    <B name="b1">text b</B>
  </A>
  <A id="2"/>
  <List>
    <Item key="k1" v="1">one</Item>
    <Item key="k2">two</Item>
    <Other>x</Other>
    <Item key="k3">three</Item>
  </List>
  <Empty/>
</Root>)";

class XMLUtilitiesTest : public ::testing::Test
{
protected:
    XMLUtilitiesTest() : handler(std::wstring(kDocument))
    {
        BTraceSetLevel(&g_korutilitiesTraceModule, VEL_WRN);
        DOMElement* root = nullptr;
        handler.GetDOMBranch(L"", root);
        doc = root != nullptr ? root->getOwnerDocument() : nullptr;
    }

    DOMElement* Root() const { return doc->getDocumentElement(); }
    DOMElement* At(const std::wstring& path) const { return utilities.GetXPathElement(Root(), path); }
    // The attribute's value, or a marker when the read fails.
    std::wstring Attribute(const std::wstring& path, const std::wstring& name) const
    {
        std::wstring value;
        return utilities.ReadElementNodeAttribute(doc, path, name, value) ? value : L"(failed)";
    }
    std::wstring Text(const std::wstring& path) const
    {
        std::wstring text;
        return utilities.ReadElementNodeText(doc, path, text) ? text : L"(failed)";
    }

    CVeLXMLHandler handler;
    XERCES_CPP_NAMESPACE::DOMDocument* doc = nullptr; // qualified: <windows.h> declares one too
    CVeLXMLHandlerUtilities utilities;
};

} // namespace

TEST_F(XMLUtilitiesTest, PathRules)
{
    ASSERT_NE(nullptr, doc);
    DOMElement* b = At(L"Root/A/B");
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(b, At(L"A/B"));
    EXPECT_EQ(b, At(L"/Root//A/B/"));
    EXPECT_EQ(b, At(L"A/A/B")); // a step that names the current element stays on it
    EXPECT_EQ(Root(), At(L""));
    EXPECT_EQ(Root(), At(L"Root"));
    EXPECT_EQ(L"1", Attribute(L"A/A", L"id")); // the first A, never its namesake sibling
    EXPECT_EQ(nullptr, At(L"root"));           // names are case-sensitive
    EXPECT_EQ(nullptr, At(L"B"));              // one level per step, no search below
    EXPECT_EQ(nullptr, At(L"A/Missing/B"));
    EXPECT_EQ(nullptr, utilities.GetXPathElement(nullptr, L"A"));
}

TEST_F(XMLUtilitiesTest, FindersLookOneLevelDeep)
{
    EXPECT_EQ(Root(), utilities.GetRootElement(doc, L"Root"));
    EXPECT_EQ(At(L"List"), utilities.GetRootElement(doc, L"List"));
    EXPECT_EQ(nullptr, utilities.GetRootElement(doc, L"Item"));
    EXPECT_EQ(nullptr, utilities.GetRootElement(nullptr, L"Root"));

    DOMElement* list = At(L"List");
    EXPECT_EQ(list, utilities.FindElementNode(list, L"List"));
    EXPECT_EQ(list->getFirstElementChild(), utilities.FindElementNode(list, L"Item"));
    EXPECT_EQ(nullptr, utilities.FindElementNode(Root(), L"Item"));
    EXPECT_EQ(3u, utilities.FindElementNodes(list, L"Item").size());
    EXPECT_TRUE(utilities.FindElementNodes(list, L"List").empty());

    DOMNode* k2 = utilities.FindElementNodeWithAttribute(list, L"Item", L"key", L"k2");
    ASSERT_NE(nullptr, k2);
    EXPECT_EQ(L"two", CVeLXMLCharConverter::ToWString(k2->getTextContent()));
    EXPECT_EQ(nullptr, utilities.FindElementNodeWithAttribute(list, L"Item", L"key", L"K2"));
    EXPECT_EQ(2u, utilities.FindElementNodesWithAttribute(Root(), L"A", L"id", L"2").size() +
                      utilities.FindElementNodesWithAttribute(Root(), L"A", L"id", L"1").size());
    EXPECT_TRUE(utilities.FindElementNodesWithAttribute(nullptr, L"A", L"id", L"1").empty());
}

TEST_F(XMLUtilitiesTest, CountsEveryChildNodeIncludingWhitespaceText)
{
    CVeLXMLHandler spaced(std::wstring(L"<?xml version=\"1.0\"?><R>\n<a/>\n<b/>\n<c/>\n</R>"));
    unsigned int count = 99;
    EXPECT_TRUE(spaced.GetCountOfElements(L"R", count));
    EXPECT_EQ(7u, count);
    CVeLXMLHandler tight(std::wstring(L"<?xml version=\"1.0\"?><R><a/><b>t</b></R>"));
    EXPECT_TRUE(tight.GetCountOfElements(L"", count));
    EXPECT_EQ(2u, count);
    EXPECT_FALSE(utilities.GetCountOfElements(doc, L"Empty", count));
    EXPECT_EQ(0u, count);
    EXPECT_FALSE(utilities.GetCountOfElements(doc, L"Nope", count));
    EXPECT_FALSE(utilities.GetCountOfElements(nullptr, L"", count));
}

TEST_F(XMLUtilitiesTest, ReadsAndWritesTextAndAttributes)
{
    EXPECT_EQ(L"text b", Text(L"A/B"));
    EXPECT_NE(std::wstring::npos, Text(L"A").find(L"text b")); // all descendant text
    EXPECT_EQ(L"(failed)", Text(L"A/C"));
    EXPECT_EQ(L"b1", Attribute(L"A/B", L"name"));
    EXPECT_EQ(L"", Attribute(L"A/B", L"absent"));
    EXPECT_EQ(L"(failed)", Attribute(L"A/C", L"name"));

    EXPECT_TRUE(utilities.WriteElementNodeAttribute(doc, L"A/B", L"name", L"changed \u00e9\U0001F600"));
    EXPECT_TRUE(utilities.WriteElementNodeAttribute(doc, L"A/B", L"fresh", L"new"));
    EXPECT_EQ(L"changed \u00e9\U0001F600", Attribute(L"A/B", L"name"));
    EXPECT_EQ(L"new", Attribute(L"A/B", L"fresh"));
    EXPECT_FALSE(utilities.WriteElementNodeAttribute(doc, L"A/B", L"1 bad", L"x")); // refused name, no throw
    EXPECT_FALSE(utilities.WriteElementNodeAttribute(doc, L"Nope", L"a", L"x"));

    // Writing text replaces the whole content, child elements included.
    EXPECT_TRUE(utilities.WriteElementNodeText(doc, L"A", L"<plain & text>"));
    EXPECT_EQ(L"<plain & text>", Text(L"A"));
    EXPECT_EQ(nullptr, At(L"A/B"));
    EXPECT_FALSE(utilities.WriteElementNodeText(doc, L"Nope", L"x"));
    EXPECT_FALSE(utilities.WriteElementNodeText(static_cast<DOMElement*>(nullptr), L"x"));
}

TEST_F(XMLUtilitiesTest, ArrayReaders)
{
    std::vector<std::wstring> out{L"old"};
    EXPECT_TRUE(utilities.ReadElementNodeTextArray(doc, L"List", L"Item", out));
    EXPECT_EQ((std::vector<std::wstring>{L"one", L"two", L"three"}), out);
    EXPECT_TRUE(utilities.ReadElementNodeAttributeArray(doc, L"List", L"Item", L"key", out));
    EXPECT_EQ((std::vector<std::wstring>{L"k1", L"k2", L"k3"}), out);
    EXPECT_TRUE(utilities.ReadElementNodeAttributeArray(doc, L"List", L"Item", L"v", out));
    EXPECT_EQ((std::vector<std::wstring>{L"1", L"", L""}), out);
    EXPECT_TRUE(utilities.ReadElementNodeTextArray(doc, L"List", L"None", out));
    EXPECT_TRUE(out.empty());
    out.push_back(L"old");
    EXPECT_FALSE(utilities.ReadElementNodeTextArray(doc, L"Missing", L"Item", out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(utilities.ReadElementNodeAttributeArray(nullptr, L"List", L"Item", L"key", out));
}

TEST_F(XMLUtilitiesTest, SiblingAttributesSkipLineFeedTextNodes)
{
    BTraceCapture capture;
    std::vector<CVeLXMLHandlerUtilities::AttributeMap> out;
    EXPECT_TRUE(utilities.ReadSiblingsElementNodeAttributes(doc, L"List", out));
    ASSERT_EQ(4u, out.size()); // three Items and Other; the five line-feed text nodes give none
    EXPECT_EQ((CVeLXMLHandlerUtilities::AttributeMap{{L"key", L"k1"}, {L"v", L"1"}}), out[0]);
    EXPECT_EQ(L"k2", out[1].at(L"key"));
    EXPECT_TRUE(out[2].empty());
    EXPECT_EQ(L"k3", out[3].at(L"key"));

    EXPECT_FALSE(utilities.ReadSiblingsElementNodeAttributes(nullptr, L"List", out));
    EXPECT_FALSE(utilities.ReadSiblingsElementNodeAttributes(doc, L"Missing", out));
    EXPECT_FALSE(utilities.ReadSiblingsElementNodeAttributes(doc, L"Empty", out));
    EXPECT_EQ(4u, out.size());
}

TEST_F(XMLUtilitiesTest, AppendNodeAddsOneChildPerMapAndRemoveNodeDetaches)
{
    unsigned int before = 0, after = 0;
    ASSERT_TRUE(utilities.GetCountOfElements(doc, L"List", before));
    EXPECT_TRUE(utilities.AppendNode(doc, L"List", L"Item", {}));
    ASSERT_TRUE(utilities.GetCountOfElements(doc, L"List", after));
    EXPECT_EQ(before, after);

    EXPECT_TRUE(
        utilities.AppendNode(doc, L"List", L"Item", {{{L"z", L"1"}, {L"key", L"k4"}}, {{L"key", L"k5"}}}));
    std::vector<std::wstring> keys;
    EXPECT_TRUE(utilities.ReadElementNodeAttributeArray(doc, L"List", L"Item", L"key", keys));
    EXPECT_EQ((std::vector<std::wstring>{L"k1", L"k2", L"k3", L"k4", L"k5"}), keys);
    EXPECT_EQ(L"1", CVeLXMLCharConverter::ToWString(
                        At(L"List")->getLastElementChild()->getPreviousElementSibling()->getAttribute(u"z")));

    EXPECT_FALSE(utilities.AppendNode(doc, L"Missing", L"Item", {{{L"a", L"b"}}}));
    EXPECT_FALSE(utilities.AppendNode(nullptr, L"List", L"Item", {{{L"a", L"b"}}}));
    EXPECT_FALSE(utilities.AppendNode(doc, L"Empty", L"1bad", {{{L"a", L"b"}}})); // not an element name
    EXPECT_FALSE(utilities.GetCountOfElements(doc, L"Empty", after));

    // Removing detaches the first element the path names.
    EXPECT_TRUE(utilities.RemoveNode(doc, L"A"));
    EXPECT_EQ(L"2", Attribute(L"A", L"id")); // the second A is now the first
    EXPECT_TRUE(utilities.RemoveNode(doc, L"Root/A"));
    EXPECT_EQ(nullptr, At(L"A"));
    EXPECT_FALSE(utilities.RemoveNode(doc, L"A"));
    EXPECT_FALSE(utilities.RemoveNode(nullptr, L"List"));
}
