#include "velsha256impl.h"
#include "korutilitesbtracedef.h"
#include "velfilestream.h"
#include "velpathconverter.h"
#include "velsha256.h"
#include "velstringconverter.h"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

namespace
{

constexpr ULONG kDigestSize = 32;
constexpr std::size_t kPieceSize = 1u << 20;

CVeLByteArray MakeArray(const unsigned char* bytes, ULONG size)
{
    std::shared_ptr<unsigned char> buffer(new (std::nothrow) unsigned char[size],
                                          std::default_delete<unsigned char[]>());
    if (!buffer)
        return CVeLByteArray();
    std::memcpy(buffer.get(), bytes, size);
    return CVeLByteArray(buffer, size);
}

struct FolderFile
{
    std::string relative;         // UTF-8, elements joined by "/"
    boost::filesystem::path full; // where to read it
};

// Collects the regular files below folder; false (traced) at a link, a special file or an unreadable folder.
bool CollectFiles(const boost::filesystem::path& folder, const std::string& prefix,
                  std::vector<FolderFile>& files)
{
    boost::system::error_code error;
    boost::filesystem::directory_iterator it(folder, error), end;
    for (; !error && it != end; it.increment(error))
    {
        const boost::filesystem::path& entry = it->path();
        const std::string relative = prefix + CVeLPathConverter::ToUtf8(entry.filename());
        const boost::filesystem::file_status status = boost::filesystem::symlink_status(entry, error);
        if (error)
            break;
        if (boost::filesystem::is_symlink(status))
        {
            VEL_TRACE(VEL_ERR, "Link detected at %s, folder hash refused!",
                      CVeLPathConverter::ToUtf8(entry).c_str());
            return false;
        }
        if (boost::filesystem::is_directory(status))
        {
            if (!CollectFiles(entry, relative + "/", files))
                return false;
        }
        else if (boost::filesystem::is_regular_file(status))
            files.push_back({relative, entry});
        else
        {
            VEL_TRACE(VEL_ERR, "%s is neither file nor folder, folder hash refused!",
                      CVeLPathConverter::ToUtf8(entry).c_str());
            return false;
        }
    }
    if (error)
    {
        VEL_TRACE(VEL_ERR, "Reading folder %s failed (error code: %d)!",
                  CVeLPathConverter::ToUtf8(folder).c_str(), error.value());
        return false;
    }
    return true;
}

} // namespace

CVeLSha256Impl::CVeLSha256Impl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api))
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    BCRYPT_ALG_HANDLE provider = nullptr;
    const CVeLResult<LONG> opened = m_api->WAPI_BCryptOpenAlgorithmProvider(&provider, L"SHA256", nullptr, 0);
    if (!opened.IsSuccess())
    {
        VEL_TRACE(VEL_ERR, "Opening hash provider failed, error code: 0x%08X", opened.GetValue());
        return;
    }
    m_provider = provider;
}

CVeLSha256Impl::~CVeLSha256Impl()
{
    if (m_api && m_provider != nullptr)
    {
        const CVeLResult<LONG> closed = m_api->WAPI_BCryptCloseAlgorithmProvider(m_provider, 0);
        if (!closed.IsSuccess())
            VEL_TRACE(VEL_WRN, "Closing hash provider failed, error code: 0x%08X", closed.GetValue());
    }
}

CVeLSha256Impl::Digest::Digest(const CVeLSha256Impl& owner) : m_owner(owner)
{
    if (!m_owner.m_api || m_owner.m_provider == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        m_failed = true;
        return;
    }
    const CVeLResult<LONG> created =
        m_owner.m_api->WAPI_BCryptCreateHash(m_owner.m_provider, &m_hash, nullptr, 0, nullptr, 0, 0);
    if (!created.IsSuccess())
    {
        VEL_TRACE(VEL_ERR, "Creating hash failed, error code: 0x%08X", created.GetValue());
        m_hash = nullptr;
        m_failed = true;
    }
}

CVeLSha256Impl::Digest::~Digest()
{
    if (m_hash != nullptr)
    {
        const CVeLResult<LONG> destroyed = m_owner.m_api->WAPI_BCryptDestroyHash(m_hash);
        if (!destroyed.IsSuccess())
            VEL_TRACE(VEL_WRN, "Destroying hash failed, error code: 0x%08X", destroyed.GetValue());
    }
}

bool CVeLSha256Impl::Digest::Add(const void* data, std::size_t size)
{
    const auto* at = static_cast<const unsigned char*>(data);
    while (!m_failed && size > 0)
    {
        const ULONG piece = static_cast<ULONG>(std::min<std::size_t>(size, 1u << 30));
        const CVeLResult<LONG> hashed =
            m_owner.m_api->WAPI_BCryptHashData(m_hash, const_cast<PUCHAR>(at), piece, 0);
        if (!hashed.IsSuccess())
        {
            VEL_TRACE(VEL_ERR, "Hashing data failed, error code: 0x%08X", hashed.GetValue());
            m_failed = true;
        }
        at += piece;
        size -= piece;
    }
    return !m_failed;
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::Digest::Finish()
{
    if (m_failed)
        return CVeLResult<CVeLByteArray>();
    unsigned char digest[kDigestSize];
    const CVeLResult<LONG> finished = m_owner.m_api->WAPI_BCryptFinishHash(m_hash, digest, kDigestSize, 0);
    m_failed = true; // a finished hash object takes no more data
    if (!finished.IsSuccess())
    {
        VEL_TRACE(VEL_ERR, "Finishing hash failed, error code: 0x%08X", finished.GetValue());
        return CVeLResult<CVeLByteArray>();
    }
    CVeLByteArray result = MakeArray(digest, kDigestSize);
    return CVeLResult<CVeLByteArray>(result.IsValid(), result);
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::HashBytes(const unsigned char* data, ULONG size) const
{
    if (data == nullptr && size > 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return CVeLResult<CVeLByteArray>();
    }
    Digest digest(*this);
    if (!digest.Add(data, size))
        return CVeLResult<CVeLByteArray>();
    return digest.Finish();
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::HashBytes(const CVeLByteArray& data) const
{
    return data.IsValid() ? HashBytes(data.GetArrayBytes(), data.GetArrayLength()) : HashBytes(nullptr, 0);
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::HashString(const std::wstring& text) const
{
    const std::vector<unsigned char> bytes = CVeLStringConverter::ConvertStdWStringToUTF16LE(text);
    return HashBytes(bytes.data(), static_cast<ULONG>(bytes.size()));
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::HashFile(const boost::filesystem::path& file) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<CVeLByteArray>();
    }
    CVeLFileStream input(m_api);
    if (!input.OpenRead(file))
    {
        VEL_TRACE(VEL_ERR, "Opening %s for hashing failed (error code: %d)!",
                  CVeLPathConverter::ToUtf8(file).c_str(), input.LastError());
        return CVeLResult<CVeLByteArray>();
    }
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kPieceSize]);
    if (!buffer)
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
        return CVeLResult<CVeLByteArray>();
    }
    Digest digest(*this);
    for (;;)
    {
        std::size_t got = 0;
        if (!input.Read(buffer.get(), kPieceSize, got))
        {
            VEL_TRACE(VEL_ERR, "Reading %s for hashing failed (error code: %d)!",
                      CVeLPathConverter::ToUtf8(file).c_str(), input.LastError());
            return CVeLResult<CVeLByteArray>();
        }
        if (got == 0)
            break;
        if (!digest.Add(buffer.get(), got))
            return CVeLResult<CVeLByteArray>();
    }
    return digest.Finish();
}

CVeLResult<CVeLByteArray> CVeLSha256Impl::HashFolder(const boost::filesystem::path& folder) const
{
    boost::system::error_code error;
    if (!boost::filesystem::is_directory(boost::filesystem::symlink_status(folder, error)))
    {
        VEL_TRACE(VEL_ERR, "%s is not a folder, folder hash refused!",
                  CVeLPathConverter::ToUtf8(folder).c_str());
        return CVeLResult<CVeLByteArray>();
    }
    std::vector<FolderFile> files;
    if (!CollectFiles(folder, std::string(), files))
        return CVeLResult<CVeLByteArray>();
    std::sort(files.begin(), files.end(),
              [](const FolderFile& a, const FolderFile& b) { return a.relative < b.relative; });
    Digest manifest(*this);
    for (const FolderFile& file : files)
    {
        const CVeLResult<CVeLByteArray> content = HashFile(file.full);
        if (!content.IsSuccess())
            return content;
        const std::wstring hex = CVeLSha256::ToHex(content.GetValue());
        const std::string line = std::string(hex.begin(), hex.end()) + "  " + file.relative + "\n";
        if (!manifest.Add(line.data(), line.size()))
            return CVeLResult<CVeLByteArray>();
    }
    return manifest.Finish();
}
