// korutil as a user runs it: the installed binary (KORUTIL_BINARY) started as a real process, its exit
// status, stdout and stderr checked, and the files it leaves behind.
#include <gtest/gtest.h>
#include <zlib.h>

#include <boost/filesystem.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = boost::filesystem;

namespace
{

struct Outcome
{
    int status;
    std::string out;
    std::string err;
};

std::string Slurp(const fs::path& file)
{
    std::ifstream in(file.string(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void Spit(const fs::path& file, const std::string& content)
{
    std::ofstream(file.string(), std::ios::binary) << content;
}

class Korutil : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_dir = fs::temp_directory_path() / fs::unique_path("korutil-test-%%%%%%%%");
        fs::create_directories(m_dir);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    // Runs korutil with the arguments (each quoted for the shell) in the test folder.
    Outcome Run(const std::vector<std::string>& args)
    {
        std::string command = "cd '" + m_dir.string() + "' && '" + Binary() + "'";
        for (const std::string& arg : args)
            command += " '" + arg + "'";
        command += " >'" + (m_dir / ".out").string() + "' 2>'" + (m_dir / ".err").string() + "'";
        const int raw = std::system(command.c_str());
        Outcome outcome{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(m_dir / ".out"), Slurp(m_dir / ".err")};
        fs::remove(m_dir / ".out");
        fs::remove(m_dir / ".err");
        return outcome;
    }
    static std::string Binary()
    {
        const char* binary = std::getenv("KORUTIL_BINARY");
        return binary ? binary : "korutil";
    }
    // The names in the test folder, sorted.
    std::vector<std::string> Listing()
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_dir))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path m_dir;
};

} // namespace

TEST_F(Korutil, HelpUsageAndUnknownVerbs)
{
    Outcome help = Run({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* verb : {"channel", "copy", "crc32", "decrypt", "encrypt", "proc", "rmtree", "xml"})
        EXPECT_NE(help.out.find(std::string("\n  ") + verb + " "), std::string::npos) << verb;
    EXPECT_EQ(help.err, "");
    Outcome verbHelp = Run({"xml", "--help"});
    EXPECT_EQ(verbHelp.status, 0);
    EXPECT_NE(verbHelp.out.find("xml validate FILE XSD"), std::string::npos);
    EXPECT_EQ(Run({}).status, 2);
    Outcome unknown = Run({"frobnicate"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("unknown verb 'frobnicate'"), std::string::npos);
    Outcome badOption = Run({"crc32", "--bogus", "x"});
    EXPECT_EQ(badOption.status, 2);
    EXPECT_NE(badOption.err.find("korutil: crc32: unknown option --bogus"), std::string::npos);
    EXPECT_NE(badOption.err.find("usage: korutil crc32 [--json] FILE..."), std::string::npos);
    EXPECT_EQ(Run({"encrypt", "a", "b"}).status, 2); // no key file
    EXPECT_EQ(Run({"xml", "frob"}).status, 2);
    EXPECT_EQ(Run({"channel", "read"}).status, 2);
}

TEST_F(Korutil, Crc32PrintsEachFileAndReportsTheMissingOne)
{
    const std::string content = "123456789";
    Spit(m_dir / "a", content);
    Spit(m_dir / "empty", "");
    Spit(m_dir / "-dash", "x");
    Outcome crc = Run({"crc32", "a", "missing", "empty", "--", "-dash"});
    EXPECT_EQ(crc.status, 1);
    char expected[16];
    std::snprintf(expected, sizeof expected, "%08lx", crc32(0, reinterpret_cast<const Bytef*>("x"), 1));
    EXPECT_EQ(crc.out, "cbf43926  a\n00000000  empty\n" + std::string(expected) + "  -dash\n");
    EXPECT_NE(crc.err.find("korutil: crc32: missing: no such file\n"), std::string::npos);
    EXPECT_EQ(Run({"crc32", "."}).status, 1);
    Spit(m_dir / "q\"\t", "123456789");
    EXPECT_EQ(
        Run({"crc32", "--json", "a", "q\"\t"}).out,
        "[{\"file\":\"a\",\"crc32\":\"cbf43926\"},{\"file\":\"q\\\"\\u0009\",\"crc32\":\"cbf43926\"}]\n");
}

TEST_F(Korutil, EncryptDecryptRoundTripAndRefuseBadKeys)
{
    std::string key(32, '\0'), data;
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<char>(i * 7 + 1);
    for (int i = 0; i < 100000; ++i)
        data += static_cast<char>(i * 31);
    Spit(m_dir / "key", key);
    Spit(m_dir / "data", data);
    ASSERT_EQ(Run({"encrypt", "--key-file", "key", "data", "enc"}).status, 0);
    EXPECT_NE(Slurp(m_dir / "enc"), data);
    ASSERT_EQ(Run({"decrypt", "--key-file=key", "enc", "dec"}).status, 0);
    EXPECT_EQ(Slurp(m_dir / "dec"), data);

    Spit(m_dir / "short", "0123456789");
    Outcome shortKey = Run({"encrypt", "-k", "short", "data", "never"});
    EXPECT_EQ(shortKey.status, 1);
    EXPECT_NE(shortKey.err.find("holds 10 bytes"), std::string::npos);
    // A wrong key fails and leaves an existing output as it was, with no temporary beside it.
    Spit(m_dir / "wrong", std::string(32, 'w'));
    Spit(m_dir / "out", "previous");
    Outcome wrong = Run({"decrypt", "-k", "wrong", "enc", "out"});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("korutil: decrypt: enc: not decryptable"), std::string::npos);
    EXPECT_EQ(Slurp(m_dir / "out"), "previous");
    EXPECT_EQ(Listing(), (std::vector<std::string>{"data", "dec", "enc", "key", "out", "short", "wrong"}));
    EXPECT_EQ(Run({"decrypt", "-k", "key", "data", "out"}).status, 1); // not a ciphertext
}

TEST_F(Korutil, XmlGetSetAndValidate)
{
    Spit(m_dir / "doc.xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root><a x=\"1\">hi</a></root>\n");
    Outcome get = Run({"xml", "get", "doc.xml", "root/a"});
    EXPECT_EQ(get.status, 0);
    EXPECT_EQ(get.out, "hi\n");
    EXPECT_EQ(Run({"xml", "get", "doc.xml", "root/a", "x"}).out, "1\n");
    ASSERT_EQ(Run({"xml", "set", "doc.xml", "root/a", "gr\xC3\xBC\xC3\x9F"}).status, 0);
    ASSERT_EQ(Run({"xml", "set", "doc.xml", "root/b/c", "id", "7"}).status, 0);
    EXPECT_EQ(Run({"xml", "get", "doc.xml", "root/a"}).out, "gr\xC3\xBC\xC3\x9F\n");
    EXPECT_EQ(Run({"xml", "get", "doc.xml", "root/b/c", "id"}).out, "7\n");
    Outcome missing = Run({"xml", "get", "doc.xml", "root/zz"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("korutil: xml get: root/zz: not found in doc.xml"), std::string::npos);

    Spit(m_dir / "bad.xml", "<root><a></root>");
    EXPECT_EQ(Run({"xml", "set", "bad.xml", "root/a", "v"}).status, 1);
    EXPECT_EQ(Slurp(m_dir / "bad.xml"), "<root><a></root>");

    Spit(m_dir / "s.xsd", "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"><xs:element name=\"n\" "
                          "type=\"xs:int\"/></xs:schema>");
    Spit(m_dir / "good.xml", "<n>5</n>");
    Spit(m_dir / "wrong.xml", "<n>five</n>");
    EXPECT_EQ(Run({"xml", "validate", "good.xml", "s.xsd"}).status, 0);
    Outcome invalid = Run({"xml", "validate", "wrong.xml", "s.xsd"});
    EXPECT_EQ(invalid.status, 1);
    EXPECT_NE(invalid.err.find("korutil: xml validate: wrong.xml: not valid against s.xsd"),
              std::string::npos);
}

TEST_F(Korutil, ChannelCreateWriteReadAndMissingChannel)
{
    const std::string name = "korutil-test-" + std::to_string(getpid());
    const std::string ready = (m_dir / "ready").string();
    const pid_t holder = fork();
    ASSERT_GE(holder, 0);
    if (holder == 0)
    {
        std::freopen(ready.c_str(), "w", stdout);
        execl(Binary().c_str(), "korutil", "channel", "create", name.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 100 && Slurp(ready).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(Slurp(ready), "holding " + name + "\n");
    EXPECT_EQ(Run({"channel", "write", name, "h\xC3\xA9llo world"}).status, 0);
    Outcome read = Run({"channel", "read", name});
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.out, "h\xC3\xA9llo world\n");
    EXPECT_EQ(Run({"channel", "write", name, std::string(70000, 'x')}).status, 1);
    kill(holder, SIGINT);
    int status = 0;
    waitpid(holder, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    // The block went with its last holder.
    Outcome gone = Run({"channel", "read", name});
    EXPECT_EQ(gone.status, 1);
    EXPECT_NE(gone.err.find("no such channel"), std::string::npos);
}

TEST_F(Korutil, ProcHoldersNamesAProcessHoldingTheFile)
{
    Spit(m_dir / "held", "x");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        std::FILE* file = std::fopen((m_dir / "held").c_str(), "r");
        pause();
        std::fclose(file);
        _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    Outcome holders = Run({"proc", "holders", "held"});
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(holders.status, 0);
    EXPECT_NE(holders.out.find(std::to_string(child) + " "), std::string::npos) << holders.out;
    Outcome json = Run({"proc", "holders", "--json", "held"});
    EXPECT_EQ(json.out, "[]\n");
    EXPECT_EQ(Run({"proc", "holders", "nothing"}).status, 1);
}

TEST_F(Korutil, ProcRunStartListWaitKill)
{
    Outcome run = Run({"proc", "run", "--timeout", "10000", "--", "sh", "-c", "exit 7"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "7\n");
    Outcome started = Run({"proc", "start", "--", "sleep", "60"});
    ASSERT_EQ(started.status, 0) << started.err;
    const std::string pid = started.out.substr(0, started.out.find('\n'));
    EXPECT_NE(Run({"proc", "list", "SLEEP"}).out.find(pid + " sleep\n"), std::string::npos);
    EXPECT_EQ(Run({"proc", "wait", pid, "100"}).status, 1);
    EXPECT_EQ(Run({"proc", "kill", pid}).status, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(Run({"proc", "list", "sleep"}).out.find(pid + " sleep\n"), std::string::npos);
    for (const auto& usage : std::vector<std::vector<std::string>>{
             {"proc", "run"}, {"proc", "wait", "abc"}, {"proc", "kill", "0"}, {"proc", "frobnicate"}})
        EXPECT_EQ(Run(usage).status, 2) << usage[1];
    EXPECT_EQ(Run({"proc", "start", "--", "/no/such/program"}).status, 1);
    EXPECT_EQ(Run({"proc", "wait", "1073741808"}).status, 1);
}

TEST_F(Korutil, CopyAndRmtree)
{
    Spit(m_dir / "src", std::string(300000, 's'));
    ASSERT_EQ(Run({"copy", "src", "dst"}).status, 0);
    EXPECT_EQ(Slurp(m_dir / "dst"), Slurp(m_dir / "src"));
    fs::create_directories(m_dir / "tree/sub");
    Spit(m_dir / "tree/sub/f", "f");
    ASSERT_EQ(Run({"copy", "tree", "tree2"}).status, 0);
    EXPECT_EQ(Slurp(m_dir / "tree2/sub/f"), "f");
    ASSERT_EQ(Run({"copy", "src", "tree"}).status, 0); // into a directory
    EXPECT_TRUE(fs::exists(m_dir / "tree/src"));
    EXPECT_EQ(Run({"copy", "src", "src"}).status, 1);
    EXPECT_EQ(Run({"copy", "missing", "x"}).status, 1);
    EXPECT_EQ(Run({"copy", "src", "nodir/x"}).status, 1);
    EXPECT_EQ(Run({"rmtree", "tree2"}).status, 0);
    EXPECT_FALSE(fs::exists(m_dir / "tree2"));
    EXPECT_EQ(Run({"rmtree", "tree2"}).status, 1);
    EXPECT_EQ(Run({"rmtree", "/"}).status, 1);
    EXPECT_EQ(Run({"rmtree", "."}).status, 1);
    EXPECT_EQ(Listing(), (std::vector<std::string>{"dst", "src", "tree"}));
}

TEST_F(Korutil, InterruptedCopyLeavesNoHalfWrittenDestination)
{
    // A large sparse source takes long enough to copy that the interrupt lands mid-way.
    {
        std::ofstream big((m_dir / "big").string(), std::ios::binary);
        big.seekp((1ll << 30) - 1);
        big.put('e');
    }
    Spit(m_dir / "dst", "previous");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        chdir(m_dir.c_str());
        execl(Binary().c_str(), "korutil", "copy", "--quiet", "big", "dst", static_cast<char*>(nullptr));
        _exit(127);
    }
    // Interrupt once the copy has begun writing its temporary file.
    for (int i = 0; i < 200 && Listing().size() < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        GTEST_SKIP() << "the copy finished before the interrupt";
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
    EXPECT_EQ(Slurp(m_dir / "dst"), "previous");
    EXPECT_EQ(Listing(), (std::vector<std::string>{"big", "dst"}));
}

TEST_F(Korutil, ConfigurationVerbsReadWriteAndCompare)
{
    ASSERT_EQ(Run({"ini", "set", "a.ini", "Main", "Key", "v=1;x"}).status, 0);
    EXPECT_EQ(Slurp(m_dir / "a.ini"), "[Main]\r\nKey=v=1;x\r\n");
    EXPECT_EQ(Run({"ini", "get", "a.ini", "MAIN", "key"}).out, "v=1;x\n");
    EXPECT_EQ(Run({"ini", "get", "a.ini", "Main", "other"}).status, 1);
    EXPECT_EQ(Run({"version", "compare", "1.10", "1.9"}).out, "1\n");
    EXPECT_EQ(Run({"version", "compare", "1.2", "01.2.0.0"}).out, "0\n");
    EXPECT_EQ(Run({"version", "compare", "1.2.3.4.5", "1"}).status, 1);
    Spit(m_dir / "v.xml",
         "<?xml version=\"1.0\"?><Versions><Component name=\"K\" version=\"2.1\" path=\"/k\"/>"
         "</Versions>");
    EXPECT_EQ(Run({"versions", "list", "v.xml"}).out, "K 2.1.0.0 /k\n");
    Spit(m_dir / "bad.xml", "<?xml version=\"1.0\"?><Versions><Component name=\"K\"/></Versions>");
    EXPECT_EQ(Run({"versions", "list", "bad.xml"}).status, 1);
    EXPECT_EQ(Run({"reg", "query", "HKXX\\Software"}).status, 2);
}
