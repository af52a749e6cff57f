#include "velcompoundfile.h"
#include "velencryptionhandler.h"

#include "filetestsupport.h"
#include "shelltestsupport.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

namespace fs = boost::filesystem;
using kortest::Quote;
using kortest::RunShell;

CVeLByteArray Bytes(const std::string& text)
{
    std::shared_ptr<unsigned char> buffer(new unsigned char[text.size() + 1],
                                          std::default_delete<unsigned char[]>());
    std::memcpy(buffer.get(), text.data(), text.size());
    return CVeLByteArray(buffer, static_cast<ULONG>(text.size()));
}

std::string Text(const CVeLResult<CVeLByteArray>& result)
{
    EXPECT_TRUE(result.IsSuccess());
    const CVeLByteArray& bytes = result.GetValue();
    return bytes.IsValid()
               ? std::string(reinterpret_cast<const char*>(bytes.GetArrayBytes()), bytes.GetArrayLength())
               : std::string();
}

class CompoundFileTest : public kortest::FileSystemTest
{
protected:
    std::shared_ptr<IVeLEncryptionHandler> m_key =
        std::make_shared<CVeLEncryptionHandler>(L"0123456789abcdef");
};

TEST_F(CompoundFileTest, NestedStoragesAndEncryptedStreamsRoundTripAndOlefileReadsThem)
{
    KORTEST_LINUX_ONLY("compares with the system's python3");
    const fs::path file = Root() / "settings.cfb";
    const std::string large(200000, 'L'); // above the format's small-stream limit of 4096 bytes
    {
        CVeLCompoundFile cfb(m_key);
        ASSERT_TRUE(cfb.Create(file));
        EXPECT_TRUE(cfb.WriteStream(L"top", Bytes("top level"), false));
        EXPECT_TRUE(cfb.WriteStream(L"machine/axes/x", Bytes("x axis"), false));
        EXPECT_TRUE(cfb.WriteStream(L"machine/axes/large", Bytes(large), false));
        EXPECT_TRUE(cfb.WriteStream(L"licence/key", Bytes("secret licence"), true));
        EXPECT_TRUE(cfb.WriteStream(L"empty", CVeLByteArray(), false));
        EXPECT_TRUE(cfb.WriteStream(L"machine/axes/x", Bytes("x axis, replaced"), false));
        EXPECT_TRUE(cfb.Close());
    }
    {
        CVeLCompoundFile cfb(m_key);
        ASSERT_TRUE(cfb.Open(file, false));
        EXPECT_EQ("top level", Text(cfb.ReadStream(L"top", false)));
        EXPECT_EQ("x axis, replaced", Text(cfb.ReadStream(L"machine/axes/x", false)));
        EXPECT_EQ(large, Text(cfb.ReadStream(L"machine/axes/large", false)));
        EXPECT_EQ("secret licence", Text(cfb.ReadStream(L"licence/key", true)));
        EXPECT_EQ("", Text(cfb.ReadStream(L"empty", false)));
        // Stored encrypted: IV and one padded block, not the text.
        const CVeLResult<CVeLByteArray> raw = cfb.ReadStream(L"licence/key", false);
        EXPECT_EQ(32u, raw.GetValue().GetArrayLength());
        EXPECT_EQ(std::string::npos, Text(raw).find("secret"));

        std::vector<CVeLCompoundEntry> entries;
        ASSERT_TRUE(cfb.ListElements(entries));
        std::vector<std::wstring> paths;
        for (const CVeLCompoundEntry& entry : entries)
            paths.push_back(entry.path + (entry.isStorage ? L"/" : L""));
        std::sort(paths.begin(), paths.end());
        EXPECT_EQ(
            (std::vector<std::wstring>{L"empty", L"licence/", L"licence/key", L"machine/", L"machine/axes/",
                                       L"machine/axes/large", L"machine/axes/x", L"top"}),
            paths);
        EXPECT_FALSE(cfb.WriteStream(L"top", Bytes("read only"), false));
    }

    // An independent reader of the format sees the same tree and content.
    const std::string script =
        "import olefile, sys\n"
        "o = olefile.OleFileIO(sys.argv[1])\n"
        "for p in sorted('/'.join(e) for e in o.listdir(streams=True, storages=True)):\n"
        "    print(p)\n"
        "print(o.openstream('machine/axes/x').read().decode())\n"
        "print(len(o.openstream('machine/axes/large').read()))\n";
    WriteFile(Root() / "read.py", script);
    const kortest::ShellResult olefile =
        RunShell("/usr/bin/python3 " + Quote(Root() / "read.py") + " " + Quote(file));
    ASSERT_EQ(0, olefile.status);
    EXPECT_EQ("empty\nlicence\nlicence/key\nmachine\nmachine/axes\nmachine/axes/large\nmachine/axes/x\ntop\n"
              "x axis, replaced\n200000\n",
              olefile.output);
}

TEST_F(CompoundFileTest, ChangesPersistAndDeletedElementsGo)
{
    const fs::path file = Root() / "data.cfb";
    CVeLCompoundFile cfb;
    ASSERT_TRUE(cfb.Create(file));
    ASSERT_TRUE(cfb.WriteStream(L"a/b/one", Bytes("1"), false));
    ASSERT_TRUE(cfb.WriteStream(L"a/two", Bytes("2"), false));
    ASSERT_TRUE(cfb.Close());

    ASSERT_TRUE(cfb.Open(file, true));
    EXPECT_TRUE(cfb.DeleteElement(L"a/b"));
    EXPECT_TRUE(cfb.WriteStream(L"a/three", Bytes("3"), false));
    EXPECT_FALSE(cfb.DeleteElement(L"a/missing"));
    ASSERT_TRUE(cfb.Close());

    ASSERT_TRUE(cfb.Open(file, false));
    EXPECT_FALSE(cfb.ReadStream(L"a/b/one", false).IsSuccess());
    EXPECT_EQ("2", Text(cfb.ReadStream(L"a/two", false)));
    EXPECT_EQ("3", Text(cfb.ReadStream(L"a/three", false)));
}

TEST_F(CompoundFileTest, BadPathsKeysAndFilesFailCleanly)
{
    const fs::path file = Root() / "data.cfb";
    CVeLCompoundFile cfb(m_key);
    ASSERT_TRUE(cfb.Create(file));
    for (const wchar_t* path : {L"", L"/lead", L"trail/", L"a//b", L"name:stream", L"back\\slash",
                                L"this-name-is-longer-than-the-31-allowed"})
        EXPECT_FALSE(cfb.WriteStream(path, Bytes("x"), false)) << path;
    ASSERT_TRUE(cfb.WriteStream(L"locked", Bytes("secret"), true));
    ASSERT_TRUE(cfb.Close());

    CVeLCompoundFile otherKey(std::make_shared<CVeLEncryptionHandler>(L"fedcba9876543210"));
    ASSERT_TRUE(otherKey.Open(file, false));
    EXPECT_FALSE(otherKey.ReadStream(L"locked", true).IsSuccess());
    CVeLCompoundFile noKey;
    ASSERT_TRUE(noKey.Open(file, false));
    EXPECT_FALSE(noKey.ReadStream(L"locked", true).IsSuccess());

    // Not a compound file, a truncated one, a missing one: the open fails and nothing is changed.
    WriteFile(Root() / "text.cfb", "plain text that is not a compound file at all, long enough for a header");
    const std::string whole = ReadFile(file);
    WriteFile(Root() / "truncated.cfb", whole.substr(0, 700));
    CVeLCompoundFile reader;
    EXPECT_FALSE(reader.Open(Root() / "text.cfb", false));
    EXPECT_FALSE(reader.Open(Root() / "missing.cfb", false));
    if (reader.Open(Root() / "truncated.cfb", false))
    {
        EXPECT_FALSE(reader.ReadStream(L"locked", false).IsSuccess());
    }
    EXPECT_EQ(whole.substr(0, 700), ReadFile(Root() / "truncated.cfb"));
    EXPECT_FALSE(reader.WriteStream(L"x", Bytes("x"), false));
}

} // namespace
