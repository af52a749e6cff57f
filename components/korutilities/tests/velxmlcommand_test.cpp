// The XML command interface: command and reply documents (every parameter type, refused documents) and
// the request/reply link between real processes (time-outs, a server killed mid-request, many threads).
#include "childprocess.h"
#include "kortestsupport.h"
#include "velxmlcommand.h"
#include "velxmlcommandlink.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <limits>
#include <numeric>
#include <thread>

namespace
{

std::wstring LinkName()
{
    static int counter = 0;
    return L"xmlcmd_test_" + std::to_wstring(kortest::ProcessId()) + L"_" + std::to_wstring(++counter);
}

CVeLXMLCommand EveryType()
{
    CVeLXMLCommand command(L"SetAxis");
    command.AddText(L"text", L"Gr\u00FC\u00DFe <&> \"quoted\" \U0001F600");
    command.AddText(L"empty", L"");
    command.AddInteger(L"min", std::numeric_limits<std::int64_t>::min());
    command.AddInteger(L"max", std::numeric_limits<std::int64_t>::max());
    command.AddReal(L"real", 0.1);
    command.AddReal(L"tiny", -4.9e-324);
    command.AddBoolean(L"yes", true);
    command.AddBoolean(L"no", false);
    std::vector<unsigned char> bytes(256);
    std::iota(bytes.begin(), bytes.end(), 0);
    command.AddBytes(L"bytes", bytes);
    command.AddBytes(L"one", {0xFF});
    const CVeLXMLCommand::Parameter inner{L"inner", CVeLXMLCommand::TypeInteger, L"", 42, 0, false, {}, {}};
    const CVeLXMLCommand::Parameter nested{L"nested", CVeLXMLCommand::TypeGroup, L"", 0, 0, false, {},
                                           {inner}};
    command.AddGroup(L"group", {nested, inner});
    return command;
}

void ExpectSameParameters(const std::vector<CVeLXMLCommand::Parameter>& a,
                          const std::vector<CVeLXMLCommand::Parameter>& b)
{
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        EXPECT_EQ(a[i].name, b[i].name);
        EXPECT_EQ(a[i].type, b[i].type);
        EXPECT_EQ(a[i].text, b[i].text);
        EXPECT_EQ(a[i].integer, b[i].integer);
        EXPECT_EQ(a[i].real, b[i].real);
        EXPECT_EQ(a[i].boolean, b[i].boolean);
        EXPECT_EQ(a[i].bytes, b[i].bytes);
        ExpectSameParameters(a[i].children, b[i].children);
    }
}

// Serves commands on the link: "Echo" answers with the command's parameters, "Die" kills the server in
// the middle of the request, "Stop" ends serving.
int Serve(CVeLXMLCommandLink& link)
{
    for (;;)
    {
        const CVeLResult<CVeLXMLCommand> received = link.ReceiveCommand(10000);
        if (!received.IsSuccess())
            return 3;
        const CVeLXMLCommand& command = received.GetValue();
        if (command.GetName() == L"Die")
            kortest::KillProcess(kortest::ProcessId());
        CVeLXMLCommand reply = CVeLXMLCommand::MakeReply(command, 0, L"done " + command.GetName());
        for (const auto& p : command.GetParameters())
            reply.AddParameter(p);
        if (!link.SendReply(reply))
            return 4;
        if (command.GetName() == L"Stop")
            return 0;
    }
}

} // namespace

KOR_CHILD_ROLE(xml_command_server)
{
    const std::string name = kortest::ChildParameter("LINK_NAME");
    CVeLXMLCommandLink link(false, std::wstring(name.begin(), name.end()));
    return link.IsAvailable() ? Serve(link) : 2;
}

TEST(CVeLXMLCommand, EveryParameterTypeRoundTrips)
{
    CVeLXMLCommand command = EveryType();
    command.SetId(18446744073709551615ull);
    std::wstring xml;
    ASSERT_TRUE(command.ToXML(xml)) << command.GetError();
    CVeLXMLCommand back;
    ASSERT_TRUE(back.FromXML(xml)) << back.GetError();
    EXPECT_FALSE(back.IsReply());
    EXPECT_EQ(back.GetName(), L"SetAxis");
    EXPECT_EQ(back.GetId(), command.GetId());
    ExpectSameParameters(back.GetParameters(), command.GetParameters());
    ASSERT_NE(back.Find(L"group"), nullptr);
    EXPECT_EQ(back.Find(L"group")->children[0].children[0].integer, 42);

    CVeLXMLCommand reply = CVeLXMLCommand::MakeReply(command, -5, L"axis \u00FC locked");
    reply.AddReal(L"position", 12.5);
    ASSERT_TRUE(reply.ToXML(xml));
    CVeLXMLCommand replyBack;
    ASSERT_TRUE(replyBack.FromXML(xml)) << replyBack.GetError();
    EXPECT_TRUE(replyBack.IsReply());
    EXPECT_EQ(replyBack.GetStatus(), -5);
    EXPECT_EQ(replyBack.GetMessage(), L"axis \u00FC locked");
    EXPECT_EQ(replyBack.GetId(), command.GetId());
    EXPECT_EQ(replyBack.Find(L"position")->real, 12.5);
}

TEST(CVeLXMLCommand, MalformedOversizedAndInvalidDocumentsAreRefused)
{
    const std::vector<std::wstring> refused = {
        L"",
        L"<command name=\"a\" id=\"1\">", // not well-formed
        L"<command name=\"a\"/>",         // no id
        L"<command name=\"\" id=\"1\"/>", // empty name
        L"<order name=\"a\" id=\"1\"/>",  // unknown root
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"blob\"/></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"integer\">12x</param></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" "
        L"type=\"integer\">99999999999999999999</param></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"real\">inf</param></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"boolean\">maybe</param></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"bytes\">AB=C</param></command>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"bytes\">ABC</param></command>",
        L"<reply name=\"a\" id=\"1\" status=\"0\"/>", // a reply needs its message
        L"<!DOCTYPE command [<!ENTITY e \"x\">]><command name=\"&e;\" id=\"1\"/>",
        L"<command name=\"a\" id=\"1\"><param name=\"p\" type=\"text\">" + std::wstring(70000, L'x') +
            L"</param></command>",
    };
    for (const std::wstring& xml : refused)
    {
        CVeLXMLCommand command(L"kept");
        EXPECT_FALSE(command.FromXML(xml))
            << std::string(xml.begin(), xml.begin() + std::min<std::size_t>(80, xml.size()));
        EXPECT_FALSE(command.GetError().empty());
        EXPECT_EQ(command.GetName(), L"kept");
    }
    CVeLXMLCommand unnamed;
    std::wstring xml;
    EXPECT_FALSE(unnamed.ToXML(xml));
    CVeLXMLCommand notFinite(L"n");
    notFinite.AddReal(L"r", std::numeric_limits<double>::infinity());
    EXPECT_FALSE(notFinite.ToXML(xml));
}

TEST(CVeLXMLCommand, Base64MatchesTheStandardAlphabet)
{
    EXPECT_EQ(CVeLXMLCommand::EncodeBase64({'f', 'o', 'o', 'b', 'a'}), "Zm9vYmE=");
    EXPECT_EQ(CVeLXMLCommand::EncodeBase64({}), "");
    std::vector<unsigned char> bytes;
    EXPECT_TRUE(CVeLXMLCommand::DecodeBase64(L"Zm9v\nYmE=", bytes));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "fooba");
    EXPECT_FALSE(CVeLXMLCommand::DecodeBase64(L"Zm9vYmE=Zm9v", bytes));
}

TEST(CVeLXMLCommandLink, RequestAndReplyBetweenProcesses)
{
    const std::wstring name = LinkName();
    CVeLXMLCommandLink link(true, name);
    ASSERT_TRUE(link.IsAvailable());
    const pid_t server =
        kortest::StartChild("xml_command_server", {"LINK_NAME=" + std::string(name.begin(), name.end())});
    const CVeLResult<CVeLXMLCommand> reply = link.Request(EveryType(), 10000);
    ASSERT_TRUE(reply.IsSuccess());
    EXPECT_EQ(reply.GetValue().GetMessage(), L"done SetAxis");
    ExpectSameParameters(reply.GetValue().GetParameters(), EveryType().GetParameters());

    // Several threads share the link; each gets the reply to its own command.
    std::atomic<int> matched{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 10; ++i)
                {
                    CVeLXMLCommand command(L"Echo");
                    command.AddInteger(L"n", t * 100 + i);
                    const auto answer = link.Request(command, 10000);
                    if (answer.IsSuccess() && answer.GetValue().Find(L"n") &&
                        answer.GetValue().Find(L"n")->integer == t * 100 + i)
                        ++matched;
                }
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(matched.load(), 40);
    EXPECT_TRUE(link.Request(CVeLXMLCommand(L"Stop"), 10000).IsSuccess());
    EXPECT_EQ(kortest::WaitChild(server), 0);
}

TEST(CVeLXMLCommandLink, MissingLinkNoServerOrAKilledServerFailAndANewServerIsAnswered)
{
    CVeLXMLCommandLink missing(false, LinkName());
    EXPECT_FALSE(missing.IsAvailable());
    EXPECT_FALSE(missing.Request(CVeLXMLCommand(L"Echo"), 10).IsSuccess());
    EXPECT_FALSE(missing.ReceiveCommand(10).IsSuccess());

    const std::wstring name = LinkName();
    CVeLXMLCommandLink link(true, name);
    ASSERT_TRUE(link.IsAvailable());
    EXPECT_FALSE(link.Request(CVeLXMLCommand(L"Echo"), 200).IsSuccess());

    const std::string param = "LINK_NAME=" + std::string(name.begin(), name.end());
    const pid_t doomed = kortest::StartChild("xml_command_server", {param});
    EXPECT_FALSE(link.Request(CVeLXMLCommand(L"Die"), 3000).IsSuccess());
    EXPECT_EQ(kortest::WaitChild(doomed), kortest::KilledExitCode);

    const pid_t next = kortest::StartChild("xml_command_server", {param});
    const auto answer = link.Request(CVeLXMLCommand(L"Echo"), 10000);
    ASSERT_TRUE(answer.IsSuccess());
    EXPECT_EQ(answer.GetValue().GetMessage(), L"done Echo");
    EXPECT_TRUE(link.Request(CVeLXMLCommand(L"Stop"), 10000).IsSuccess());
    EXPECT_EQ(kortest::WaitChild(next), 0);
}
