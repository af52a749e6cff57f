// korutil sha256, gzip, gunzip, pack, unpack, list and cfb: thin verbs over the hashing and packing
// services. Outputs of gzip, gunzip and cfb get are written under a temporary name and renamed into place
// by the services (or here, for cfb get) only when complete.
#include "korutil.h"

#include <velcompoundfile.h>
#include <veldirectorypacker.h>
#include <velencryptionhandler.h>
#include <velsha256.h>
#include <velzlibpacker.h>

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>

#include <cstring>
#include <iterator>
#include <memory>

namespace korutil
{

namespace
{

std::string Narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end()); // hex digits only
}

std::string ResultReason(const CVeLResult<CVeLFilesystemError>& result)
{
    const CVeLFilesystemError& error = result.GetValue();
    if (error.isLinkDetected())
        return "symbolic link detected";
    std::string reason = PathText(error.GetErrorPath());
    return (reason.empty() ? std::string("failed") : reason) +
           DescribeError(static_cast<std::uint32_t>(error.GetOperationResult()));
}

bool ReadWholeFile(const boost::filesystem::path& file, CVeLByteArray& bytes)
{
    boost::filesystem::ifstream in(file, std::ios::binary);
    if (!in)
        return false;
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        return false;
    std::shared_ptr<unsigned char> buffer(new unsigned char[content.size() + 1],
                                          std::default_delete<unsigned char[]>());
    std::memcpy(buffer.get(), content.data(), content.size());
    bytes = CVeLByteArray(buffer, static_cast<ULONG>(content.size()));
    return true;
}

bool WriteWholeFile(const boost::filesystem::path& file, const CVeLByteArray& bytes)
{
    boost::filesystem::path partial = file;
    partial += ".korutil-partial";
    {
        boost::filesystem::ofstream out(partial, std::ios::binary | std::ios::trunc);
        if (bytes.IsValid())
            out.write(reinterpret_cast<const char*>(bytes.GetArrayBytes()), bytes.GetArrayLength());
        out.close();
        if (!out)
        {
            boost::system::error_code ignored;
            boost::filesystem::remove(partial, ignored);
            return false;
        }
    }
    boost::system::error_code error;
    boost::filesystem::rename(partial, file, error);
    if (error)
        boost::filesystem::remove(partial, error);
    return !error;
}

// Two positionals IN OUT for the verbs that take them.
bool TwoPaths(Invocation& invocation, CVeLCommandLine& cmd, std::size_t skip = 0)
{
    if (!ParseArguments(invocation, cmd, skip))
        return false;
    return cmd.GetPositionals().size() == 2;
}

} // namespace

int RunSha256(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"quiet", L'q', false);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    if (cmd.GetPositionals().empty())
        return UsageError(invocation, "no path given");
    const CVeLSha256 sha;
    int status = kExitOk;
    for (const std::wstring& argument : cmd.GetPositionals())
    {
        const boost::filesystem::path path = ToPath(argument);
        boost::system::error_code error;
        const bool folder = boost::filesystem::is_directory(path, error);
        const CVeLResult<CVeLByteArray> digest = folder ? sha.HashFolder(path) : sha.HashFile(path);
        if (!digest.IsSuccess())
        {
            status = Failure("sha256", ToText(argument) + ": cannot hash" + DescribeError(LastError()));
            continue;
        }
        PrintLine(Narrow(CVeLSha256::ToHex(digest.GetValue())) + "  " + ToText(argument));
    }
    return status;
}

int RunGzip(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!TwoPaths(invocation, cmd))
        return cmd.GetError().empty() ? UsageError(invocation, "IN and OUT expected") : kExitUsage;
    const auto& paths = cmd.GetPositionals();
    if (!CVeLZlibPacker().Compress(ToPath(paths[0]), ToPath(paths[1])))
        return Failure("gzip", ToText(paths[0]) + ": cannot compress" + DescribeError(LastError()));
    return kExitOk;
}

int RunGunzip(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!TwoPaths(invocation, cmd))
        return cmd.GetError().empty() ? UsageError(invocation, "IN and OUT expected") : kExitUsage;
    const auto& paths = cmd.GetPositionals();
    if (!CVeLZlibPacker().Expand(ToPath(paths[0]), ToPath(paths[1])))
        return Failure("gunzip", ToText(paths[0]) + ": cannot expand (damaged, truncated or not gzip)");
    return kExitOk;
}

int RunPack(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"quiet", L'q', false);
    if (!TwoPaths(invocation, cmd))
        return cmd.GetError().empty() ? UsageError(invocation, "DIR and ARCHIVE expected") : kExitUsage;
    const auto& paths = cmd.GetPositionals();
    const CVeLResult<CVeLFilesystemError> result =
        CVeLDirectoryPacker().Pack(ToPath(paths[0]), ToPath(paths[1]));
    return result.IsSuccess() ? kExitOk : Failure("pack", ResultReason(result));
}

int RunUnpack(Invocation& invocation)
{
    CVeLCommandLine cmd;
    cmd.AddOption(L"quiet", L'q', false);
    if (!TwoPaths(invocation, cmd))
        return cmd.GetError().empty() ? UsageError(invocation, "ARCHIVE and DIR expected") : kExitUsage;
    const auto& paths = cmd.GetPositionals();
    const CVeLResult<CVeLFilesystemError> result =
        CVeLDirectoryPacker().Unpack(ToPath(paths[0]), ToPath(paths[1]));
    return result.IsSuccess() ? kExitOk : Failure("unpack", ResultReason(result));
}

int RunList(Invocation& invocation)
{
    CVeLCommandLine cmd;
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    if (cmd.GetPositionals().size() != 1)
        return UsageError(invocation, "one ARCHIVE expected");
    std::vector<CVeLPackEntry> entries;
    const CVeLResult<CVeLFilesystemError> result =
        CVeLDirectoryPacker().List(ToPath(cmd.GetPositionals()[0]), entries);
    if (!result.IsSuccess())
        return Failure("list", ResultReason(result));
    for (const CVeLPackEntry& entry : entries)
        PrintLine(std::to_string(entry.size) + " " + ToText(entry.path));
    return kExitOk;
}

int RunCfb(Invocation& invocation)
{
    if (invocation.arguments.empty())
        return UsageError(invocation, "list, get or put expected");
    const std::wstring sub = invocation.arguments[0];
    CVeLCommandLine cmd;
    cmd.AddOption(L"key-file", 0, true);
    if (!ParseArguments(invocation, cmd, 1))
        return kExitUsage;
    const auto& positionals = cmd.GetPositionals();
    std::shared_ptr<IVeLEncryptionHandler> encryption;
    if (cmd.Has(L"key-file"))
    {
        CVeLByteArray key;
        if (!ReadWholeFile(ToPath(cmd.GetValue(L"key-file")), key))
            return Failure("cfb", ToText(cmd.GetValue(L"key-file")) + ": cannot read key file");
        if (key.GetArrayLength() != 16 && key.GetArrayLength() != 24 && key.GetArrayLength() != 32)
            return Failure("cfb", "the key file must hold 16, 24 or 32 bytes");
        encryption = std::make_shared<CVeLEncryptionHandler>(key);
    }
    CVeLCompoundFile cfb(encryption);
    if (sub == L"list" && positionals.size() == 1)
    {
        std::vector<CVeLCompoundEntry> entries;
        if (!cfb.Open(ToPath(positionals[0]), false) || !cfb.ListElements(entries))
            return Failure("cfb", ToText(positionals[0]) + ": cannot read compound file");
        for (const CVeLCompoundEntry& entry : entries)
            if (!entry.isStorage)
                PrintLine(std::to_string(entry.size) + " " + ToText(entry.path));
        return kExitOk;
    }
    if (sub == L"get" && positionals.size() == 3)
    {
        if (!cfb.Open(ToPath(positionals[0]), false))
            return Failure("cfb", ToText(positionals[0]) + ": cannot read compound file");
        const CVeLResult<CVeLByteArray> content =
            cfb.ReadStream(positionals[1], static_cast<bool>(encryption));
        if (!content.IsSuccess())
            return Failure("cfb", ToText(positionals[1]) + ": cannot read stream");
        if (!WriteWholeFile(ToPath(positionals[2]), content.GetValue()))
            return Failure("cfb", ToText(positionals[2]) + ": cannot write");
        return kExitOk;
    }
    if (sub == L"put" && positionals.size() == 3)
    {
        CVeLByteArray content;
        if (!ReadWholeFile(ToPath(positionals[2]), content))
            return Failure("cfb", ToText(positionals[2]) + ": cannot read");
        const boost::filesystem::path file = ToPath(positionals[0]);
        boost::system::error_code error;
        const bool opened = boost::filesystem::exists(file, error) ? cfb.Open(file, true) : cfb.Create(file);
        if (!opened)
            return Failure("cfb", ToText(positionals[0]) + ": cannot open compound file for writing");
        if (!cfb.WriteStream(positionals[1], content, static_cast<bool>(encryption)) || !cfb.Close())
            return Failure("cfb", ToText(positionals[1]) + ": cannot write stream");
        return kExitOk;
    }
    return UsageError(invocation, "list FILE, get FILE STREAM OUT or put FILE STREAM IN expected");
}

} // namespace korutil
