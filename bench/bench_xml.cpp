// XML loads and path reads through CVeLXMLHandler beside the same work done with the parser directly.
#include "velxmlcharconverter.h"
#include "velxmlhandler.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <fstream>
#include <map>

namespace fs = boost::filesystem;
using namespace XERCES_CPP_NAMESPACE;

namespace
{

// A settings-like document of about sizeBytes: groups of entries with attributes and text.
std::wstring MakeDocument(std::size_t sizeBytes)
{
    std::wstring doc = L"<?xml version=\"1.0\"?>\n<Root>\n";
    for (int group = 0; doc.size() < sizeBytes; ++group)
    {
        doc += L"  <Group name=\"g" + std::to_wstring(group) + L"\">\n";
        for (int entry = 0; entry < 20; ++entry)
            doc += L"    <Entry id=\"" + std::to_wstring(entry) + L"\" value=\"value " +
                   std::to_wstring(group) + L"\">text of entry " + std::to_wstring(entry) + L"</Entry>\n";
        doc += L"  </Group>\n";
    }
    return doc + L"</Root>\n";
}

struct Documents
{
    std::map<std::size_t, std::wstring> text;
    std::map<std::size_t, fs::path> file;

    Documents()
    {
        XMLPlatformUtils::Initialize();
        const fs::path dir = fs::temp_directory_path() / fs::unique_path("bench-xml-%%%%-%%%%");
        fs::create_directories(dir);
        for (std::size_t mib : {1, 10})
        {
            text[mib] = MakeDocument(mib << 20);
            file[mib] = dir / ("doc" + std::to_string(mib) + ".xml");
            std::ofstream out(file[mib].string(), std::ios::binary);
            for (wchar_t c : text[mib])
                out.put(static_cast<char>(c)); // ASCII only
        }
    }
    ~Documents()
    {
        boost::system::error_code ignored;
        fs::remove_all(file.begin()->second.parent_path(), ignored);
    }
};

Documents& Docs()
{
    static Documents docs;
    return docs;
}

void BM_HandlerLoadFile(benchmark::State& state)
{
    const fs::path& file = Docs().file[static_cast<std::size_t>(state.range(0))];
    for (auto _ : state)
    {
        CVeLXMLHandler handler(file);
        if (!handler.IsValidXML())
            state.SkipWithError("load failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(fs::file_size(file)));
}

void BM_XercesLoadFile(benchmark::State& state)
{
    const fs::path& file = Docs().file[static_cast<std::size_t>(state.range(0))];
    for (auto _ : state)
    {
        XercesDOMParser parser;
        parser.setValidationScheme(XercesDOMParser::Val_Never);
        parser.setDoNamespaces(false);
        parser.parse(file.string().c_str());
        if (parser.getDocument() == nullptr || parser.getDocument()->getDocumentElement() == nullptr)
            state.SkipWithError("load failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(fs::file_size(file)));
}

void BM_HandlerLoadString(benchmark::State& state)
{
    const std::wstring& text = Docs().text[static_cast<std::size_t>(state.range(0))];
    for (auto _ : state)
    {
        CVeLXMLHandler handler(text);
        benchmark::DoNotOptimize(handler.NodeIsSelectable(L"Root"));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

// What a user holding UTF-16 text would do with the parser directly.
void BM_XercesLoadString(benchmark::State& state)
{
    const std::wstring& text = Docs().text[static_cast<std::size_t>(state.range(0))];
    for (auto _ : state)
    {
        const XMLChString units = CVeLXMLCharConverter::ToXMLCh(text);
        XercesDOMParser parser;
        parser.setValidationScheme(XercesDOMParser::Val_Never);
        parser.setDoNamespaces(false);
        MemBufInputSource source(reinterpret_cast<const XMLByte*>(units.data()), units.size() * sizeof(XMLCh),
                                 "bench");
        source.setEncoding(u"UTF-16");
        parser.parse(source);
        benchmark::DoNotOptimize(parser.getDocument()->getDocumentElement());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

const wchar_t* const kSmall =
    L"<?xml version=\"1.0\"?><Root><Settings><Other/><Group><A/><B/><Entry id=\"7\" "
    L"value=\"x\"/></Group></Settings></Root>";

void BM_HandlerAttributeReads(benchmark::State& state)
{
    CVeLXMLHandler handler{std::wstring(kSmall)};
    std::wstring value;
    for (auto _ : state)
        for (int i = 0; i < 10000; ++i)
            benchmark::DoNotOptimize(handler.ReadXMLAttribute(L"Root/Settings/Group/Entry", L"value", value));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 10000);
}

DOMElement* ChildNamed(DOMElement* parent, const XMLCh* name)
{
    for (DOMElement* child = parent->getFirstElementChild(); child != nullptr;
         child = child->getNextElementSibling())
        if (XMLString::equals(child->getTagName(), name))
            return child;
    return nullptr;
}

void BM_XercesAttributeReads(benchmark::State& state)
{
    CVeLXMLHandler handler{std::wstring(kSmall)};
    DOMElement* root = nullptr;
    handler.GetDOMBranch(L"Root", root);
    std::wstring value;
    for (auto _ : state)
        for (int i = 0; i < 10000; ++i)
        {
            DOMElement* entry = ChildNamed(ChildNamed(root, u"Settings"), u"Group");
            entry = ChildNamed(entry, u"Entry");
            value = CVeLXMLCharConverter::ToWString(entry->getAttribute(u"value"));
            benchmark::DoNotOptimize(value);
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 10000);
}

} // namespace

BENCHMARK(BM_HandlerLoadFile)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XercesLoadFile)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HandlerLoadString)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XercesLoadString)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HandlerAttributeReads)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XercesAttributeReads)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
