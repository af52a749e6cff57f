// Crash-safe writes beside what a user would do instead: CVeLFileHelper::ReplaceContentAtomically against
// the same steps written by hand with POSIX calls, and against the plain, unsafe overwrite (WriteContent);
// CVeLXMLHandler::WriteXMLToFile (serialise in memory, replace in one step) against the parser's serializer
// writing straight into the file.
#include "velfilehelper.h"
#include "velxmlhandler.h"

#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileFormatTarget.hpp>

#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace fs = boost::filesystem;
using namespace XERCES_CPP_NAMESPACE;

namespace
{

struct Folder
{
    Folder() : path(fs::temp_directory_path() / fs::unique_path("bench-safewrite-%%%%-%%%%"))
    {
        fs::create_directories(path);
    }
    ~Folder()
    {
        boost::system::error_code ignored;
        fs::remove_all(path, ignored);
    }
    fs::path path;
};

std::string Payload(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>('a' + i % 26);
    return bytes;
}

void BM_ReplaceContentAtomically(benchmark::State& state)
{
    Folder folder;
    const std::string bytes = Payload(static_cast<std::size_t>(state.range(0)));
    CVeLFileHelper helper(folder.path / "file.bin", false);
    for (auto _ : state)
        if (!helper.ReplaceContentAtomically(reinterpret_cast<const unsigned char*>(bytes.data()),
                                             bytes.size()))
            state.SkipWithError("replace failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// The same guarantee written by hand: temporary file, write, fsync, rename, fsync of the folder.
void BM_PosixTemporaryRename(benchmark::State& state)
{
    Folder folder;
    const std::string bytes = Payload(static_cast<std::size_t>(state.range(0)));
    const std::string target = (folder.path / "file.bin").string();
    const std::string temporary = (folder.path / ".file.bin.tmp").string();
    for (auto _ : state)
    {
        const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const bool ok = fd >= 0 &&
                        write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                        fsync(fd) == 0;
        if (fd >= 0)
            close(fd);
        const int dir = open(folder.path.string().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (!ok || rename(temporary.c_str(), target.c_str()) != 0 || dir < 0 || fsync(dir) != 0)
            state.SkipWithError("write failed");
        if (dir >= 0)
            close(dir);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// The plain overwrite, which loses the file when it is interrupted: the price of the guarantee.
void BM_WriteContentInPlace(benchmark::State& state)
{
    Folder folder;
    const std::string bytes = Payload(static_cast<std::size_t>(state.range(0)));
    CVeLFileHelper helper(folder.path / "file.bin", false);
    helper.Create();
    for (auto _ : state)
        if (!helper.WriteContent(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<ULONG>(bytes.size())))
            state.SkipWithError("write failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

std::wstring SettingsDocument()
{
    std::wstring doc = L"<?xml version=\"1.0\"?>\n<Root>\n";
    for (int group = 0; group < 200; ++group)
    {
        doc += L"<Group name=\"g" + std::to_wstring(group) + L"\">";
        for (int entry = 0; entry < 20; ++entry)
            doc +=
                L"<Entry id=\"" + std::to_wstring(entry) + L"\">text " + std::to_wstring(entry) + L"</Entry>";
        doc += L"</Group>\n";
    }
    return doc + L"</Root>\n";
}

void BM_HandlerWriteXMLToFile(benchmark::State& state)
{
    Folder folder;
    CVeLXMLHandler handler{SettingsDocument()};
    const fs::path file = folder.path / "settings.xml";
    for (auto _ : state)
        if (!handler.WriteXMLToFile(file, false))
            state.SkipWithError("write failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(fs::file_size(file)));
}

// The parser's serializer writing straight into the file, as a user of the parser alone would.
void BM_XercesSerializeToFile(benchmark::State& state)
{
    Folder folder;
    CVeLXMLHandler handler{SettingsDocument()};
    XERCES_CPP_NAMESPACE::DOMElement* root = nullptr;
    handler.GetDOMBranch(L"Root", root);
    const fs::path file = folder.path / "settings.xml";
    DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(u"LS");
    for (auto _ : state)
    {
        DOMLSSerializer* serializer = implementation->createLSSerializer();
        DOMLSOutput* output = implementation->createLSOutput();
        serializer->getDomConfig()->setParameter(XMLUni::fgDOMWRTFormatPrettyPrint, true);
        output->setEncoding(u"UTF-8");
        LocalFileFormatTarget target(file.string().c_str());
        output->setByteStream(&target);
        if (!serializer->write(root->getOwnerDocument(), output))
            state.SkipWithError("write failed");
        output->release();
        serializer->release();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(fs::file_size(file)));
}

} // namespace

BENCHMARK(BM_ReplaceContentAtomically)->Arg(4 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PosixTemporaryRename)->Arg(4 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WriteContentInPlace)->Arg(4 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_HandlerWriteXMLToFile)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_XercesSerializeToFile)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
