// A small host program: starts tracing, runs a transaction of commands that fails half-way and rolls
// back, and checksums a file.
#include <korutilitesbtracedef.h>
#include <velbtracetool.h>
#include <velcommandprocessor.h>
#include <velcrc32.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace
{

class PrintCommand : public IVeLCommand
{
public:
    PrintCommand(std::string name, bool succeeds) : m_name(std::move(name)), m_succeeds(succeeds) {}
    bool Execute() override
    {
        std::cout << "  execute " << m_name << (m_succeeds ? "" : " (fails)") << "\n";
        return m_succeeds;
    }
    bool ExecuteRetrogressive() override
    {
        std::cout << "  undo    " << m_name << "\n";
        return true;
    }

private:
    std::string m_name;
    bool m_succeeds;
};

class ConsoleProgress : public IVeLProgressClient
{
public:
    void SetRange(int minimum, int maximum) override
    {
        std::cout << "  progress range " << minimum << ".." << maximum << "\n";
    }
    void StepForward() override { std::cout << "  progress " << ++m_position << "\n"; }
    void StepBackward() override { std::cout << "  progress " << --m_position << "\n"; }

private:
    int m_position = 0;
};

} // namespace

int main(int argc, char** argv)
{
    CVeLBTraceTool::InitializeBTrace(L"kordemo", L"kordemo.trace", 64, L"korutilities demo");
    VEL_TRACE(VEL_INF, "Demo started with %d argument(s)", argc - 1);

    std::cout << "Transaction of three commands, the third fails:\n";
    CVeLCommandProcessor processor;
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new PrintCommand("create folder", true)));
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new PrintCommand("write settings", true)));
    processor.AddCommand(boost::shared_ptr<IVeLCommand>(new PrintCommand("register service", false)));
    ConsoleProgress progress;
    bool ok = processor.Execute(&progress);
    std::cout << "  result: " << (ok ? "success" : "rolled back") << "\n";

    const std::string path = argc > 1 ? argv[1] : argv[0];
    std::ifstream file(path, std::ios::binary);
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)),
                                     std::istreambuf_iterator<char>());
    CVeLCRC32 crc;
    unsigned long sum = crc.GetCRC32(bytes.data(), static_cast<ULONG>(bytes.size()));
    std::printf("CRC-32 of %s (%zu bytes): %08lx\n", path.c_str(), bytes.size(), sum);
    VEL_TRACE(VEL_INF, "Checksum of %s is 0x%08X", path.c_str(), sum);

    CVeLBTraceTool::ShutdownBTrace();
    return 0;
}
