// The demo's peer program: serves XML commands on the link the host names, executing each through a
// command processor whose steps do real work with the library, and holds a named mutex for its whole
// life so that the host can see it come back abandoned when the peer is killed.
//   kordemo_peer LINK MUTEX
#include <korutilitesbtracedef.h>
#include <velasyncjobsynchronizer.h>
#include <velbtracetool.h>
#include <velbytearray.h>
#include <velcommandprocessor.h>
#include <velcrc32.h>
#include <veldirhelper.h>
#include <velencryptionhandler.h>
#include <velfilehelper.h>
#include <velpathconverter.h>
#include <velxmlcommandlink.h>
#include <velxmlhandler.h>

#include <boost/filesystem/path.hpp>

#include <chrono>
#include <cstdio>
#include <thread>

namespace fs = boost::filesystem;

namespace
{

std::wstring Text(const CVeLXMLCommand& command, const wchar_t* name)
{
    const CVeLXMLCommand::Parameter* p = command.Find(name);
    return p ? p->text : std::wstring();
}

class CreateFolderStep : public IVeLCommand
{
public:
    explicit CreateFolderStep(fs::path folder) : m_folder(std::move(folder)) {}
    bool Execute() override { return CVeLDirHelper(m_folder, false).Create(false); }
    bool ExecuteRetrogressive() override { return CVeLDirHelper(m_folder, false).Remove().IsSuccess(); }

private:
    fs::path m_folder;
};

class WriteFileStep : public IVeLCommand
{
public:
    WriteFileStep(fs::path file, std::wstring content)
        : m_file(std::move(file)), m_content(std::move(content))
    {
    }
    bool Execute() override
    {
        CVeLFileHelper file(m_file, false);
        return file.Create() && file.WriteUtf8Content(m_content);
    }
    bool ExecuteRetrogressive() override { return CVeLFileHelper(m_file, false).Remove(); }

private:
    fs::path m_file;
    std::wstring m_content;
};

class EncryptFileStep : public IVeLCommand
{
public:
    EncryptFileStep(fs::path source, fs::path target, std::vector<unsigned char> key)
        : m_source(std::move(source)), m_target(std::move(target)), m_key(std::move(key))
    {
    }
    bool Execute() override
    {
        boost::shared_ptr<unsigned char> content;
        ULONG size = 0;
        if (!CVeLFileHelper(m_source, false).ReadContent(content, size))
            return false;
        CVeLEncryptionHandler handler(m_key.data(), static_cast<ULONG>(m_key.size()));
        const CVeLResult<CVeLByteArray> sealed = handler.EncryptBytes(content.get(), size);
        CVeLFileHelper target(m_target, false);
        return sealed.IsSuccess() && target.Create() &&
               target.WriteContent(sealed.GetValue().GetArrayBytes(), sealed.GetValue().GetArrayLength());
    }
    bool ExecuteRetrogressive() override { return CVeLFileHelper(m_target, false).Remove(); }

private:
    fs::path m_source, m_target;
    std::vector<unsigned char> m_key;
};

// Records the CRC-32 of each file in an XML manifest.
class ManifestStep : public IVeLCommand
{
public:
    ManifestStep(fs::path manifest, std::vector<fs::path> files)
        : m_manifest(std::move(manifest)), m_files(std::move(files))
    {
    }
    bool Execute() override
    {
        CVeLXMLHandler manifest(std::wstring(L"<?xml version=\"1.0\"?><manifest/>"));
        const CVeLCRC32 crc;
        for (std::size_t i = 0; i < m_files.size(); ++i)
        {
            boost::shared_ptr<unsigned char> content;
            ULONG size = 0;
            if (!CVeLFileHelper(m_files[i], false).ReadContent(content, size))
                return false;
            wchar_t hex[16];
            std::swprintf(hex, 16, L"%08lx", static_cast<unsigned long>(crc.GetCRC32(content.get(), size)));
            const std::wstring path = L"manifest/file" + std::to_wstring(i);
            if (!manifest.CheckAndCreateXMLPath(path) ||
                !manifest.WriteXMLAttribute(path, L"name",
                                            CVeLPathConverter::ToWide(m_files[i].filename())) ||
                !manifest.WriteXMLAttribute(path, L"crc32", hex))
                return false;
        }
        return manifest.WriteXMLToFile(m_manifest, false);
    }
    bool ExecuteRetrogressive() override { return CVeLFileHelper(m_manifest, false).Remove(); }

private:
    fs::path m_manifest;
    std::vector<fs::path> m_files;
};

// A step that fails, as a full disk would half-way through a job.
class FailingStep : public IVeLCommand
{
public:
    bool Execute() override
    {
        VEL_TRACE(VEL_WRN, "Demo step fails on purpose");
        return false;
    }
    bool ExecuteRetrogressive() override { return true; }
};

CVeLXMLCommand PrepareJob(const CVeLXMLCommand& command)
{
    const fs::path folder = CVeLPathConverter::FromWide(Text(command, L"folder"));
    const CVeLXMLCommand::Parameter* key = command.Find(L"key");
    const CVeLXMLCommand::Parameter* fail = command.Find(L"failHalfWay");
    if (folder.empty() || key == nullptr)
        return CVeLXMLCommand::MakeReply(command, 87, L"folder and key are required");
    const fs::path settings = folder / "settings.ini", sealed = folder / "settings.enc",
                   manifest = folder / "manifest.xml";
    CVeLCommandProcessor processor;
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new CreateFolderStep(folder)));
    processor.AddCommand(
        boost::shared_ptr<IVeLCommand>(new WriteFileStep(settings, Text(command, L"settings"))));
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new EncryptFileStep(settings, sealed, key->bytes)));
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new ManifestStep(manifest, {settings, sealed})));
    if (fail != nullptr && fail->boolean)
        processor.AddCommand(boost::shared_ptr<IVeLCommand>(new FailingStep()));
    if (!processor.Execute(nullptr))
        return CVeLXMLCommand::MakeReply(command, 1, L"a step failed; the job was rolled back");
    CVeLXMLCommand reply = CVeLXMLCommand::MakeReply(command, 0, L"job prepared");
    reply.AddInteger(L"files", 3);
    return reply;
}

// A slow job on a worker thread, supervised with a time-out that each sign of life restarts: the job
// takes longer than the time-out, but is never silent for that long.
CVeLXMLCommand SlowJob(const CVeLXMLCommand& command)
{
    const CVeLXMLCommand::Parameter* steps = command.Find(L"steps");
    const int count = steps ? static_cast<int>(steps->integer) : 5;
    CVeLAsyncJobSynchronizer synchroniser;
    std::thread job(
        [&]
        {
            for (int i = 0; i < count; ++i)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                synchroniser.ResetTimeout();
            }
            synchroniser.SetJobFinished();
        });
    const bool finished = synchroniser.WaitForJobFinish(300);
    job.join();
    CVeLXMLCommand reply =
        CVeLXMLCommand::MakeReply(command, finished ? 0 : 1, finished ? L"finished" : L"timed out");
    reply.AddInteger(L"steps", count);
    return reply;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: kordemo_peer LINK MUTEX\n");
        return 2;
    }
    CVeLBTraceTool::InitializeBTrace(std::string("kordemo_peer"),
                                     "kordemo_peer." + std::to_string(GetCurrentProcessId()), 64,
                                     std::string("korutilities demo peer"));
    const std::wstring linkName = CVeLPathConverter::ToWide(fs::path(argv[1]));
    HANDLE mutex = CreateMutexW(nullptr, TRUE, CVeLPathConverter::ToWide(fs::path(argv[2])).c_str());
    CVeLXMLCommandLink link(false, linkName);
    if (mutex == nullptr || !link.IsAvailable())
        return 3;
    int status = 0;
    for (bool serving = true; serving;)
    {
        const CVeLResult<CVeLXMLCommand> received = link.ReceiveCommand(30000);
        if (!received.IsSuccess())
        {
            status = 4;
            break;
        }
        const CVeLXMLCommand& command = received.GetValue();
        VEL_TRACE(VEL_INF, "Peer executes %s",
                  CVeLPathConverter::ToUtf8(CVeLPathConverter::FromWide(command.GetName())).c_str());
        CVeLXMLCommand reply;
        if (command.GetName() == L"PrepareJob")
            reply = PrepareJob(command);
        else if (command.GetName() == L"SlowJob")
            reply = SlowJob(command);
        else if (command.GetName() == L"Calibrate")
            Sleep(INFINITE); // never answers: the host's time-out and its kill are the point
        else if (command.GetName() == L"Quit")
        {
            reply = CVeLXMLCommand::MakeReply(command, 0, L"bye");
            serving = false;
        }
        else
            reply = CVeLXMLCommand::MakeReply(command, 1, L"unknown command");
        link.SendReply(reply);
    }
    ReleaseMutex(mutex);
    CloseHandle(mutex);
    CVeLBTraceTool::ShutdownBTrace();
    return status;
}
