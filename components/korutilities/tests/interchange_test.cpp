// Data that crosses between the Linux and the Windows build: wide-string file contents, encrypted
// buffers, CRC values and serialised XML. The golden files under tests/data were written by the Linux
// build (run this program with KOR_WRITE_GOLDEN=1 to write them again); both builds must read them back
// and produce them byte for byte.
#include "filetestsupport.h"
#include "velbytearray.h"
#include "velcrc32.h"
#include "velencryptionhandler.h"
#include "velfilehelper.h"
#include "velxmlhandler.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace fs = boost::filesystem;

namespace
{

// ASCII, Latin-1, the euro sign, a character beyond U+FFFF (a surrogate pair in UTF-16) and CR LF.
const std::wstring kWideText = L"Zeile \u00e4\u00f6\u00fc \u20ac \U0001F600 end\r\n";
const std::wstring kKey = L"Schluessel-16ch!";
const std::string kPlain = "Interchange: the same bytes on every platform.\n";
const std::wstring kXml = L"<?xml version=\"1.0\"?><machine id=\"7\"><axis name=\"X\">12.5</axis>"
                          L"<label>\u00c4nderung \u20ac</label></machine>";

class InterchangeTest : public kortest::FileSystemTest
{
protected:
    static fs::path Golden(const char* name) { return fs::path(KOR_TEST_DATA_DIR) / name; }
    static bool Writing() { return std::getenv("KOR_WRITE_GOLDEN") != nullptr; }

    // Compares what this build made with the golden file, or makes it the golden file when writing.
    void Check(const char* name, const std::string& made)
    {
        if (Writing())
            WriteFile(Golden(name), made);
        EXPECT_EQ(ReadFile(Golden(name)), made) << name;
    }
};

TEST_F(InterchangeTest, WideStringFileContentsAreUtf16LE)
{
    CVeLFileHelper file(Root() / "wide.txt", false);
    ASSERT_TRUE(file.WriteContent(kWideText));
    Check("widetext.utf16le", ReadFile(Root() / "wide.txt"));

    std::wstring read;
    CVeLFileHelper golden(Golden("widetext.utf16le"), false);
    ASSERT_TRUE(golden.ReadContent(read));
    EXPECT_EQ(kWideText, read);
}

TEST_F(InterchangeTest, EncryptedBufferDecryptsOnEveryPlatform)
{
    const CVeLEncryptionHandler handler(kKey);
    if (Writing())
    {
        std::unique_ptr<unsigned char[]> plain(new unsigned char[kPlain.size()]);
        std::memcpy(plain.get(), kPlain.data(), kPlain.size());
        const CVeLResult<CVeLByteArray> sealed = handler.EncryptBytes(plain.get(), ULONG(kPlain.size()));
        ASSERT_TRUE(sealed.IsSuccess());
        const CVeLByteArray& bytes = sealed.GetValue();
        WriteFile(Golden("encrypted.bin"),
                  std::string(reinterpret_cast<const char*>(bytes.GetArrayBytes()), bytes.GetArrayLength()));
    }
    std::string sealed = ReadFile(Golden("encrypted.bin"));
    ASSERT_EQ(sealed.size(), 16u + (kPlain.size() / 16 + 1) * 16); // IV, then whole padded blocks
    const CVeLResult<CVeLByteArray> opened =
        handler.DecryptBytes(reinterpret_cast<unsigned char*>(&sealed[0]), ULONG(sealed.size()));
    ASSERT_TRUE(opened.IsSuccess());
    const CVeLByteArray& bytes = opened.GetValue();
    EXPECT_EQ(kPlain,
              std::string(reinterpret_cast<const char*>(bytes.GetArrayBytes()), bytes.GetArrayLength()));
}

TEST_F(InterchangeTest, Crc32OfTheGoldenFiles)
{
    // zlib's crc32 of the same bytes, computed once on Linux and kept here as the contract.
    const CVeLCRC32 crc;
    const std::string wide = ReadFile(Golden("widetext.utf16le"));
    EXPECT_EQ(0x4CB2C7ADu,
              crc.GetCRC32(reinterpret_cast<const unsigned char*>(wide.data()), ULONG(wide.size())));
    const std::string check = "123456789";
    EXPECT_EQ(0xCBF43926u, crc.GetCRC32(reinterpret_cast<const unsigned char*>(check.data()), 9));
}

TEST_F(InterchangeTest, SerialisedXmlIsTheSameBytes)
{
    CVeLXMLHandler xml(kXml);
    ASSERT_TRUE(xml.WriteXMLToFile(Root() / "utf8.xml", false));
    ASSERT_TRUE(xml.WriteXMLToFile(Root() / "utf16.xml", true));
    Check("document-utf8.xml", ReadFile(Root() / "utf8.xml"));
    Check("document-utf16.xml", ReadFile(Root() / "utf16.xml"));

    CVeLXMLHandler back(Golden("document-utf16.xml"));
    std::wstring text;
    ASSERT_TRUE(back.WriteXMLToString(text));
    std::wstring original;
    ASSERT_TRUE(xml.WriteXMLToString(original));
    EXPECT_EQ(original, text);
}

} // namespace
