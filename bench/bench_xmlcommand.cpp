// The XML command link: one request/reply round trip of a small command between two processes, beside the
// same exchange (the same documents built and parsed the same way) over a Unix domain socket, and the
// parts of the round trip measured alone (building, parsing with validation, the channel, the wake-up).
#include <velcmdinterfacesharedmemoryhandler.h>
#include <velstringconverter.h>
#include <velxmlcommand.h>
#include <velxmlcommandlink.h>

#include <benchmark/benchmark.h>

#include <csignal>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

CVeLXMLCommand SmallCommand()
{
    CVeLXMLCommand command(L"MoveAxis");
    command.AddText(L"axis", L"X");
    command.AddReal(L"position", 125.5);
    command.AddInteger(L"feed", 1200);
    command.AddBoolean(L"relative", false);
    return command;
}

CVeLXMLCommand Answer(const CVeLXMLCommand& command)
{
    CVeLXMLCommand reply = CVeLXMLCommand::MakeReply(command, 0, L"ok");
    reply.AddReal(L"position", 125.5);
    return reply;
}

std::wstring LinkName()
{
    return L"bench_xmlcmd_" + std::to_wstring(getpid());
}

void BM_LinkRoundTrip(benchmark::State& state)
{
    const std::wstring name = LinkName();
    CVeLXMLCommandLink link(true, name);
    const pid_t server = fork();
    if (server == 0)
    {
        CVeLXMLCommandLink serving(false, name);
        for (;;)
        {
            const auto command = serving.ReceiveCommand(10000);
            if (!command.IsSuccess() || command.GetValue().GetName() == L"Stop")
                _exit(0);
            serving.SendReply(Answer(command.GetValue()));
        }
    }
    const CVeLXMLCommand command = SmallCommand();
    for (auto _ : state)
        if (!link.Request(command, 10000).IsSuccess())
            state.SkipWithError("no reply");
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
}
BENCHMARK(BM_LinkRoundTrip)->UseRealTime();

// The same documents over a socket pair: the caller builds the command and parses the reply, the server
// parses the command and builds the reply, each text sent as UTF-8.
void BM_UnixSocketRoundTrip(benchmark::State& state)
{
    int sockets[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);
    auto send = [](int fd, const std::wstring& xml)
    {
        const std::string utf8 = CVeLStringConverter::ConvertStdWStringToStdString(xml);
        const std::uint32_t size = static_cast<std::uint32_t>(utf8.size());
        return write(fd, &size, 4) == 4 && write(fd, utf8.data(), size) == static_cast<ssize_t>(size);
    };
    auto receive = [](int fd, std::wstring& xml)
    {
        std::uint32_t size = 0;
        if (read(fd, &size, 4) != 4)
            return false;
        std::string utf8(size, '\0');
        std::size_t got = 0;
        while (got < size)
        {
            const ssize_t n = read(fd, &utf8[got], size - got);
            if (n <= 0)
                return false;
            got += static_cast<std::size_t>(n);
        }
        return CVeLStringConverter::ConvertUTF8Chars2StdWString(utf8.data(), size, xml);
    };
    const pid_t server = fork();
    if (server == 0)
    {
        close(sockets[0]);
        std::wstring xml;
        CVeLXMLCommand command;
        while (receive(sockets[1], xml) && command.FromXML(xml))
        {
            std::wstring reply;
            Answer(command).ToXML(reply);
            send(sockets[1], reply);
        }
        _exit(0);
    }
    close(sockets[1]);
    const CVeLXMLCommand command = SmallCommand();
    for (auto _ : state)
    {
        std::wstring xml;
        CVeLXMLCommand numbered(command), reply;
        numbered.SetId(1);
        if (!numbered.ToXML(xml) || !send(sockets[0], xml) || !receive(sockets[0], xml) ||
            !reply.FromXML(xml))
            state.SkipWithError("exchange failed");
    }
    close(sockets[0]);
    waitpid(server, nullptr, 0);
}
BENCHMARK(BM_UnixSocketRoundTrip)->UseRealTime();

// Where the time goes: building a command document, parsing and validating it, and the channel's
// write and read of its text.
void BM_CommandToXml(benchmark::State& state)
{
    const CVeLXMLCommand command = SmallCommand();
    std::wstring xml;
    for (auto _ : state)
        command.ToXML(xml);
}
BENCHMARK(BM_CommandToXml);

void BM_CommandFromXml(benchmark::State& state)
{
    std::wstring xml;
    SmallCommand().ToXML(xml);
    CVeLXMLCommand command;
    for (auto _ : state)
        command.FromXML(xml);
}
BENCHMARK(BM_CommandFromXml);

void BM_ChannelTextOfCommand(benchmark::State& state)
{
    std::wstring xml, read;
    SmallCommand().ToXML(xml);
    CVeLCmdInterfaceSharedMemoryHandler channel(true, LinkName() + L"_channel");
    for (auto _ : state)
    {
        channel.WriteDataToMemory(xml);
        channel.ReadDataFromMemory(read);
    }
}
BENCHMARK(BM_ChannelTextOfCommand);

// The bare wake-up: an event ping-pong between two processes with no text at all.
void BM_EventPingPong(benchmark::State& state)
{
    const std::wstring name = LinkName() + L"_ping";
    HANDLE ping = CreateEventW(nullptr, FALSE, FALSE, (name + L".a").c_str());
    HANDLE pong = CreateEventW(nullptr, FALSE, FALSE, (name + L".b").c_str());
    const pid_t server = fork();
    if (server == 0)
    {
        HANDLE a = CreateEventW(nullptr, FALSE, FALSE, (name + L".a").c_str());
        HANDLE b = CreateEventW(nullptr, FALSE, FALSE, (name + L".b").c_str());
        while (WaitForSingleObject(a, 10000) == WAIT_OBJECT_0)
            SetEvent(b);
        _exit(0);
    }
    for (auto _ : state)
    {
        SetEvent(ping);
        WaitForSingleObject(pong, 10000);
    }
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
    CloseHandle(ping);
    CloseHandle(pong);
}
BENCHMARK(BM_EventPingPong)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
