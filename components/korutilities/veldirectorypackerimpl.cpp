#include "veldirectorypackerimpl.h"
#include "korutilitesbtracedef.h"
#include "velfilestream.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

#include <boost/date_time/c_time.hpp>
#include <boost/filesystem/operations.hpp>

#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <future>
#include <thread>

namespace
{

using Result = CVeLResult<CVeLFilesystemError>;
namespace fs = boost::filesystem;

constexpr unsigned long long kWholeFileLimit = 16ull << 20; // larger files are deflated as they are read
constexpr std::size_t kPieceSize = 1u << 20;
constexpr uLong kUtf8NameFlag = 1u << 11;
constexpr uLong kDosDirectory = 0x10;
constexpr uLong kDosArchive = 0x20;
constexpr unsigned kUnixLinkType = 0120000;
constexpr unsigned kUnixTypeMask = 0170000;

Result Success()
{
    return Result(true, CVeLFilesystemError());
}

Result Failure(const fs::path& path, LONG code)
{
    return Result(false, CVeLFilesystemError(path, code));
}

std::string Utf8(const fs::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

// ---- minizip's file access over CVeLFileStream, buffered because minizip reads and writes its headers a
// few bytes at a time ----

class BufferedIo
{
public:
    explicit BufferedIo(CVeLFileStream& file) : m_file(file) {}

    zlib_filefunc64_def Functions()
    {
        zlib_filefunc64_def functions;
        std::memset(&functions, 0, sizeof functions);
        functions.zopen64_file = [](voidpf opaque, const void*, int) -> voidpf { return opaque; };
        functions.zread_file = [](voidpf, voidpf io, void* buffer, uLong size) -> uLong
        { return static_cast<BufferedIo*>(io)->Read(static_cast<unsigned char*>(buffer), size); };
        functions.zwrite_file = [](voidpf, voidpf io, const void* buffer, uLong size) -> uLong
        { return static_cast<BufferedIo*>(io)->Write(static_cast<const unsigned char*>(buffer), size); };
        functions.ztell64_file = [](voidpf, voidpf io) -> ZPOS64_T
        { return static_cast<BufferedIo*>(io)->m_position; };
        functions.zseek64_file = [](voidpf, voidpf io, ZPOS64_T offset, int origin) -> long
        { return static_cast<BufferedIo*>(io)->Seek(offset, origin) ? 0 : -1; };
        functions.zclose_file = [](voidpf, voidpf io) -> int
        { return static_cast<BufferedIo*>(io)->Flush() ? 0 : -1; };
        functions.zerror_file = [](voidpf, voidpf io) -> int
        { return static_cast<BufferedIo*>(io)->m_failed ? -1 : 0; };
        functions.opaque = this;
        return functions;
    }

    bool Flush()
    {
        if (!m_writing.empty())
        {
            m_failed = m_failed || !m_file.Write(m_writing.data(), m_writing.size());
            m_writing.clear();
        }
        return !m_failed;
    }

    bool Failed() const { return m_failed; }

private:
    uLong Read(unsigned char* buffer, uLong size)
    {
        uLong done = 0;
        while (done < size)
        {
            if (m_readAt == m_reading.size())
            {
                // Large reads bypass the buffer.
                if (size - done >= kPieceSize)
                {
                    std::size_t got = 0;
                    if (!m_file.Read(buffer + done, size - done, got))
                        m_failed = true;
                    if (got == 0)
                        break;
                    done += static_cast<uLong>(got);
                    m_position += got;
                    continue;
                }
                m_reading.resize(64 * 1024);
                std::size_t got = 0;
                if (!m_file.Read(m_reading.data(), m_reading.size(), got))
                    m_failed = true;
                m_reading.resize(got);
                m_readAt = 0;
                if (got == 0)
                    break;
            }
            const std::size_t n = std::min<std::size_t>(size - done, m_reading.size() - m_readAt);
            std::memcpy(buffer + done, m_reading.data() + m_readAt, n);
            m_readAt += n;
            done += static_cast<uLong>(n);
            m_position += n;
        }
        return done;
    }

    uLong Write(const unsigned char* buffer, uLong size)
    {
        m_writing.insert(m_writing.end(), buffer, buffer + size);
        m_position += size;
        if (m_writing.size() >= kPieceSize && !Flush())
            return 0;
        return size;
    }

    bool Seek(ZPOS64_T offset, int origin)
    {
        if (!Flush())
            return false;
        DWORD method = FILE_BEGIN;
        if (origin == ZLIB_FILEFUNC_SEEK_CUR)
        {
            method = FILE_BEGIN;
            offset += m_position;
        }
        else if (origin == ZLIB_FILEFUNC_SEEK_END)
            method = FILE_END;
        std::uint64_t position = 0;
        if (!m_file.Seek(static_cast<std::int64_t>(offset), method, position))
            return false;
        m_position = position;
        m_reading.clear();
        m_readAt = 0;
        return true;
    }

    CVeLFileStream& m_file;
    std::vector<unsigned char> m_writing; // written but not yet passed to the file
    std::vector<unsigned char> m_reading; // read ahead from the file
    std::size_t m_readAt = 0;             // next unread byte of m_reading
    ZPOS64_T m_position = 0;              // the position minizip sees
    bool m_failed = false;
};

// ---- Packing ----

struct TreeEntry
{
    std::string name; // relative, UTF-8, "/" between elements, folders end in "/"
    fs::path full;
    bool folder = false;
    unsigned long long size = 0;
    std::time_t modified = 0;
};

// Collects the tree below folder in name order; a failure names the path (and a link by the flag).
Result CollectTree(const fs::path& folder, const std::string& prefix, std::vector<TreeEntry>& entries)
{
    boost::system::error_code error;
    std::vector<fs::path> children;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        children.push_back(it->path());
    if (error)
    {
        VEL_TRACE(VEL_ERR, "Reading folder %s failed (error code: %d)!", Utf8(folder).c_str(), error.value());
        return Failure(folder, error.value());
    }
    std::sort(children.begin(), children.end());
    for (const fs::path& child : children)
    {
        const fs::file_status status = fs::symlink_status(child, error);
        TreeEntry entry;
        entry.full = child;
        entry.name = prefix + CVeLPathConverter::ToUtf8(child.filename());
        if (!error)
            entry.modified = fs::last_write_time(child, error);
        if (error)
        {
            VEL_TRACE(VEL_ERR, "Reading %s failed (error code: %d)!", Utf8(child).c_str(), error.value());
            return Failure(child, error.value());
        }
        if (fs::is_symlink(status))
        {
            VEL_TRACE(VEL_ERR, "Link detected at %s, pack refused!", Utf8(child).c_str());
            return Result(false, CVeLFilesystemError(true));
        }
        if (fs::is_directory(status))
        {
            entry.folder = true;
            entry.name += "/";
            const std::string inner = entry.name;
            entries.push_back(entry);
            const Result nested = CollectTree(child, inner, entries);
            if (!nested.IsSuccess())
                return nested;
        }
        else if (fs::is_regular_file(status))
        {
            entry.size = fs::file_size(child, error);
            entries.push_back(entry);
        }
        else
        {
            VEL_TRACE(VEL_ERR, "%s is neither file nor folder, pack refused!", Utf8(child).c_str());
            return Failure(child, ERROR_NOT_SUPPORTED);
        }
    }
    return Success();
}

// One file read and deflated whole by a worker thread.
struct Deflated
{
    DWORD error = 0; // 0, or the system code of a failed read, or ERROR_INVALID_DATA for zlib
    std::vector<unsigned char> data;
    uLong crc = 0;
    unsigned long long size = 0;
};

Deflated DeflateFile(std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& file,
                     unsigned long long expected)
{
    Deflated result;
    CVeLFileStream input(std::move(api));
    std::vector<unsigned char> content;
    content.reserve(static_cast<std::size_t>(expected));
    if (!input.OpenRead(file))
    {
        result.error = input.LastError();
        return result;
    }
    std::vector<unsigned char> piece(
        std::min<std::size_t>(kPieceSize, static_cast<std::size_t>(expected) + 1));
    for (;;)
    {
        std::size_t got = 0;
        if (!input.Read(piece.data(), piece.size(), got))
        {
            result.error = input.LastError();
            return result;
        }
        if (got == 0)
            break;
        content.insert(content.end(), piece.data(), piece.data() + got);
    }
    z_stream stream;
    std::memset(&stream, 0, sizeof stream);
    if (deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
    {
        result.error = ERROR_NOT_ENOUGH_MEMORY;
        return result;
    }
    result.data.resize(deflateBound(&stream, static_cast<uLong>(content.size())) + 16);
    stream.next_in = content.data();
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = result.data.data();
    stream.avail_out = static_cast<uInt>(result.data.size());
    if (deflate(&stream, Z_FINISH) != Z_STREAM_END)
        result.error = ERROR_INVALID_DATA;
    result.data.resize(result.data.size() - stream.avail_out);
    deflateEnd(&stream);
    result.crc = crc32(0L, content.data(), static_cast<uInt>(content.size()));
    result.size = content.size();
    return result;
}

// The extended-timestamp extra field: the modification time in UTC seconds.
void TimestampField(std::time_t modified, unsigned char field[9])
{
    const std::uint32_t seconds = static_cast<std::uint32_t>(modified);
    field[0] = 0x55;
    field[1] = 0x54;
    field[2] = 5;
    field[3] = 0;
    field[4] = 1; // the modification time follows
    for (int i = 0; i < 4; ++i)
        field[5 + i] = static_cast<unsigned char>(seconds >> (8 * i));
}

zip_fileinfo FileInfo(const TreeEntry& entry)
{
    zip_fileinfo info;
    std::memset(&info, 0, sizeof info);
    std::tm local{};
    std::time_t modified = entry.modified;
    if (boost::date_time::c_time::localtime(&modified, &local) != nullptr)
    {
        info.tmz_date.tm_sec = static_cast<uInt>(local.tm_sec);
        info.tmz_date.tm_min = static_cast<uInt>(local.tm_min);
        info.tmz_date.tm_hour = static_cast<uInt>(local.tm_hour);
        info.tmz_date.tm_mday = static_cast<uInt>(local.tm_mday);
        info.tmz_date.tm_mon = static_cast<uInt>(local.tm_mon);
        info.tmz_date.tm_year = static_cast<uInt>(local.tm_year + 1900);
    }
    info.external_fa = entry.folder ? kDosDirectory : kDosArchive;
    return info;
}

// Opens the archive entry for one tree entry; raw for data deflated beforehand.
bool OpenEntry(zipFile zip, const TreeEntry& entry, bool raw)
{
    const zip_fileinfo info = FileInfo(entry);
    unsigned char field[9];
    TimestampField(entry.modified, field);
    const int method = entry.folder ? 0 : Z_DEFLATED;
    return zipOpenNewFileInZip4_64(zip, entry.name.c_str(), &info, field, sizeof field, field, sizeof field,
                                   nullptr, method, 6, raw ? 1 : 0, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY,
                                   nullptr, 0, 0, kUtf8NameFlag,
                                   entry.size >= 0xFFFFFFFFull ? 1 : 0) == ZIP_OK;
}

// Deflates a large file into the open archive as it is read, on the calling thread.
Result StreamLargeFile(zipFile zip, const std::shared_ptr<IVeLWinAPIWrapper>& api, const TreeEntry& entry,
                       const fs::path& archive)
{
    CVeLFileStream input(api);
    if (!input.OpenRead(entry.full))
    {
        VEL_TRACE(VEL_ERR, "Opening %s for packing failed (error code: %d)!", Utf8(entry.full).c_str(),
                  input.LastError());
        return Failure(entry.full, static_cast<LONG>(input.LastError()));
    }
    if (!OpenEntry(zip, entry, false))
        return Failure(archive, ERROR_WRITE_FAULT);
    std::vector<unsigned char> piece(kPieceSize);
    for (;;)
    {
        std::size_t got = 0;
        if (!input.Read(piece.data(), piece.size(), got))
        {
            VEL_TRACE(VEL_ERR, "Reading %s for packing failed (error code: %d)!", Utf8(entry.full).c_str(),
                      input.LastError());
            return Failure(entry.full, static_cast<LONG>(input.LastError()));
        }
        if (got == 0)
            break;
        if (zipWriteInFileInZip(zip, piece.data(), static_cast<unsigned>(got)) != ZIP_OK)
            return Failure(archive, ERROR_WRITE_FAULT);
    }
    return zipCloseFileInZip(zip) == ZIP_OK ? Success() : Failure(archive, ERROR_WRITE_FAULT);
}

// ---- Reading archives ----

struct ArchiveEntry
{
    std::string name; // as stored
    unz_file_info64 info;
    std::time_t modified = 0;
    bool link = false;
};

std::time_t ModifiedOf(const unz_file_info64& info, const std::vector<unsigned char>& extra)
{
    for (std::size_t at = 0; at + 4 <= extra.size();)
    {
        const unsigned id = extra[at] | (extra[at + 1] << 8);
        const std::size_t size = extra[at + 2] | (extra[at + 3] << 8);
        if (id == 0x5455 && size >= 5 && at + 4 + size <= extra.size() && (extra[at + 4] & 1) != 0)
        {
            std::uint32_t seconds = 0;
            for (int i = 0; i < 4; ++i)
                seconds |= static_cast<std::uint32_t>(extra[at + 5 + i]) << (8 * i);
            return static_cast<std::time_t>(seconds);
        }
        at += 4 + size;
    }
    std::tm local;
    std::memset(&local, 0, sizeof local);
    local.tm_sec = static_cast<int>(info.tmu_date.tm_sec);
    local.tm_min = static_cast<int>(info.tmu_date.tm_min);
    local.tm_hour = static_cast<int>(info.tmu_date.tm_hour);
    local.tm_mday = static_cast<int>(info.tmu_date.tm_mday);
    local.tm_mon = static_cast<int>(info.tmu_date.tm_mon);
    local.tm_year = static_cast<int>(info.tmu_date.tm_year) - 1900;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

// Reads the table of contents; a damaged archive fails with ERROR_INVALID_DATA.
Result ReadDirectory(unzFile unzip, const fs::path& archive, std::vector<ArchiveEntry>& entries)
{
    int status = unzGoToFirstFile(unzip);
    while (status == UNZ_OK)
    {
        ArchiveEntry entry;
        if (unzGetCurrentFileInfo64(unzip, &entry.info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
            break;
        std::vector<char> name(entry.info.size_filename + 1, '\0');
        std::vector<unsigned char> extra(entry.info.size_file_extra);
        if (unzGetCurrentFileInfo64(unzip, &entry.info, name.data(), static_cast<uLong>(name.size()),
                                    extra.empty() ? nullptr : extra.data(), static_cast<uLong>(extra.size()),
                                    nullptr, 0) != UNZ_OK)
            break;
        entry.name.assign(name.data(), entry.info.size_filename);
        entry.modified = ModifiedOf(entry.info, extra);
        // Made on a Unix system (upper byte 3) with the link file type in the upper attribute bits.
        entry.link = (entry.info.version >> 8) == 3 &&
                     ((entry.info.external_fa >> 16) & kUnixTypeMask) == kUnixLinkType;
        entries.push_back(entry);
        status = unzGoToNextFile(unzip);
    }
    if (status != UNZ_END_OF_LIST_OF_FILE)
    {
        VEL_TRACE(VEL_ERR, "Archive %s is damaged (table of contents)!", Utf8(archive).c_str());
        return Failure(archive, ERROR_INVALID_DATA);
    }
    return Success();
}

// The elements of an entry name that stays below the destination; false for an unsafe name.
bool SafeElements(const std::string& name, std::vector<std::string>& elements)
{
    elements.clear();
    if (name.empty() || name[0] == '/' || name[0] == '\\' || name.find('\0') != std::string::npos ||
        name.find(':') != std::string::npos)
        return false;
    std::string element;
    for (std::size_t i = 0; i <= name.size(); ++i)
    {
        if (i == name.size() || name[i] == '/' || name[i] == '\\')
        {
            if (element == "..")
                return false;
            if (!element.empty() && element != ".")
                elements.push_back(element);
            element.clear();
        }
        else
            element += name[i];
    }
    return !elements.empty();
}

fs::path ToPath(const std::string& utf8)
{
    std::wstring wide;
    CVeLStringConverter::ConvertUTF8Chars2StdWString(utf8.c_str(), wide);
    return CVeLPathConverter::FromWide(wide);
}

class Archive
{
public:
    explicit Archive(const std::shared_ptr<IVeLWinAPIWrapper>& api) : m_file(api), m_io(m_file) {}
    ~Archive()
    {
        if (m_unzip != nullptr)
            unzClose(m_unzip);
    }
    Result Open(const fs::path& archive)
    {
        if (!m_file.OpenRead(archive))
        {
            VEL_TRACE(VEL_ERR, "Opening archive %s failed (error code: %d)!", Utf8(archive).c_str(),
                      m_file.LastError());
            return Failure(archive, static_cast<LONG>(m_file.LastError()));
        }
        zlib_filefunc64_def functions = m_io.Functions();
        m_unzip = unzOpen2_64("archive", &functions);
        if (m_unzip == nullptr)
        {
            VEL_TRACE(VEL_ERR, "Archive %s is damaged or not an archive!", Utf8(archive).c_str());
            return Failure(archive, ERROR_INVALID_DATA);
        }
        return Success();
    }
    unzFile Get() const { return m_unzip; }

private:
    CVeLFileStream m_file;
    BufferedIo m_io;
    unzFile m_unzip = nullptr;
};

// What an unpack has done so far, undone when it fails.
struct UnpackWork
{
    std::vector<fs::path> createdFolders;                // in creation order
    std::vector<std::pair<fs::path, fs::path>> finished; // temporary file, target
    std::vector<std::pair<fs::path, std::time_t>> times; // targets and their times, set at the end

    void Undo(const std::shared_ptr<IVeLWinAPIWrapper>& api)
    {
        for (const auto& file : finished)
        {
            const std::wstring name = CVeLPathConverter::ToWide(file.first);
            api->WAPI_DeleteFile(name.c_str());
        }
        boost::system::error_code error;
        for (auto it = createdFolders.rbegin(); it != createdFolders.rend(); ++it)
            fs::remove(*it, error); // only empty folders go, and all of ours are empty by now
    }
};

// Makes sure the folders of elements exist below destination; never passes through a link.
Result PrepareFolders(const fs::path& destination, const std::vector<std::string>& elements,
                      std::size_t count, UnpackWork& work)
{
    fs::path at = destination;
    for (std::size_t i = 0; i < count; ++i)
    {
        at /= ToPath(elements[i]);
        boost::system::error_code error;
        const fs::file_status status = fs::symlink_status(at, error);
        if (fs::is_symlink(status))
        {
            VEL_TRACE(VEL_ERR, "Link detected at %s, unpack refused!", Utf8(at).c_str());
            return Result(false, CVeLFilesystemError(true));
        }
        if (fs::is_directory(status))
            continue;
        if (fs::exists(status))
        {
            VEL_TRACE(VEL_ERR, "%s is in the way of a folder, unpack refused!", Utf8(at).c_str());
            return Failure(at, ERROR_ALREADY_EXISTS);
        }
        if (!fs::create_directory(at, error) || error)
        {
            VEL_TRACE(VEL_ERR, "Creating folder %s failed (error code: %d)!", Utf8(at).c_str(),
                      error.value());
            return Failure(at, error.value());
        }
        work.createdFolders.push_back(at);
    }
    return Success();
}

Result ExtractFile(unzFile unzip, const std::shared_ptr<IVeLWinAPIWrapper>& api, const ArchiveEntry& entry,
                   const fs::path& target, const fs::path& archive, UnpackWork& work)
{
    boost::system::error_code error;
    if (fs::is_symlink(fs::symlink_status(target, error)))
    {
        VEL_TRACE(VEL_ERR, "Link detected at %s, unpack refused!", Utf8(target).c_str());
        return Result(false, CVeLFilesystemError(true));
    }
    fs::path temporary = target;
    temporary += "." + std::to_string(api->WAPI_GetCurrentProcessId()) + ".unpacking";
    CVeLFileStream output(api);
    if (!output.OpenWrite(temporary))
    {
        VEL_TRACE(VEL_ERR, "Creating %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return Failure(target, static_cast<LONG>(output.LastError()));
    }
    work.finished.emplace_back(temporary, target);
    if (unzOpenCurrentFile(unzip) != UNZ_OK)
    {
        VEL_TRACE(VEL_ERR, "Archive %s is damaged at %s!", Utf8(archive).c_str(), entry.name.c_str());
        return Failure(target, ERROR_INVALID_DATA);
    }
    std::vector<unsigned char> piece(kPieceSize);
    unsigned long long total = 0;
    int got;
    while ((got = unzReadCurrentFile(unzip, piece.data(), static_cast<unsigned>(piece.size()))) > 0)
    {
        total += static_cast<unsigned>(got);
        if (total > entry.info.uncompressed_size)
            break;
        if (!output.Write(piece.data(), static_cast<std::size_t>(got)))
        {
            unzCloseCurrentFile(unzip);
            VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(),
                      output.LastError());
            return Failure(target, static_cast<LONG>(output.LastError()));
        }
    }
    // Closing checks the CRC-32 once the whole entry was read.
    const int closed = unzCloseCurrentFile(unzip);
    if (got < 0 || closed != UNZ_OK || total != entry.info.uncompressed_size)
    {
        VEL_TRACE(VEL_ERR, "Archive %s is damaged at %s (data or checksum)!", Utf8(archive).c_str(),
                  entry.name.c_str());
        return Failure(target, ERROR_INVALID_DATA);
    }
    if (!output.Commit())
    {
        VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return Failure(target, static_cast<LONG>(output.LastError()));
    }
    work.times.emplace_back(target, entry.modified);
    return Success();
}

// A folder that can be packed: not a link, and a folder.
Result CheckPackSource(const fs::path& folder)
{
    boost::system::error_code error;
    const fs::file_status status = fs::symlink_status(folder, error);
    if (fs::is_symlink(status))
    {
        VEL_TRACE(VEL_ERR, "Link detected at %s, pack refused!", Utf8(folder).c_str());
        return Result(false, CVeLFilesystemError(true));
    }
    if (!fs::is_directory(status))
    {
        VEL_TRACE(VEL_ERR, "%s is not a folder, pack refused!", Utf8(folder).c_str());
        return Failure(folder, fs::exists(status) ? ERROR_DIRECTORY : ERROR_PATH_NOT_FOUND);
    }
    return Success();
}

// Deflates the files of a tree on threads of their own, at most twice as many in flight as there are
// processors, and writes the entries to the archive in tree order; a file too large to hold in memory is
// streamed once everything before it is written. The first failure is kept and ends the writing.
class ParallelZipWriter
{
public:
    ParallelZipWriter(zipFile zip, std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& archive)
        : m_zip(zip), m_api(std::move(api)), m_archive(archive)
    {
    }
    ~ParallelZipWriter() { Drain(); }

    const Result& Outcome() const { return m_result; }

    void Add(const TreeEntry& entry)
    {
        if (!entry.folder && entry.size > kWholeFileLimit)
        {
            Drain();
            if (m_result.IsSuccess())
                m_result = StreamLargeFile(m_zip, m_api, entry, m_archive);
            return;
        }
        Job job{&entry, {}};
        if (!entry.folder)
            job.deflated = std::async(std::launch::async, DeflateFile, m_api, entry.full, entry.size);
        m_pending.push_back(std::move(job));
        if (m_pending.size() >= 2 * m_threads)
            WriteOldest();
    }
    void Drain()
    {
        while (!m_pending.empty())
            WriteOldest();
    }

private:
    struct Job
    {
        const TreeEntry* entry;
        std::future<Deflated> deflated; // not valid for folders
    };

    void WriteOldest()
    {
        Job job = std::move(m_pending.front());
        m_pending.pop_front();
        if (!job.deflated.valid())
        {
            if (m_result.IsSuccess() &&
                (!OpenEntry(m_zip, *job.entry, false) || zipCloseFileInZip(m_zip) != ZIP_OK))
                m_result = Failure(m_archive, ERROR_WRITE_FAULT);
            return;
        }
        const Deflated deflated = job.deflated.get();
        if (!m_result.IsSuccess())
            return;
        if (deflated.error != 0)
        {
            VEL_TRACE(VEL_ERR, "Reading %s for packing failed (error code: %d)!",
                      Utf8(job.entry->full).c_str(), deflated.error);
            m_result = Failure(job.entry->full, static_cast<LONG>(deflated.error));
            return;
        }
        if (!OpenEntry(m_zip, *job.entry, true) ||
            zipWriteInFileInZip(m_zip, deflated.data.data(), static_cast<unsigned>(deflated.data.size())) !=
                ZIP_OK ||
            zipCloseFileInZipRaw64(m_zip, deflated.size, deflated.crc) != ZIP_OK)
            m_result = Failure(m_archive, ERROR_WRITE_FAULT);
    }

    zipFile m_zip;
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    const fs::path& m_archive;
    const unsigned m_threads = std::max(1u, std::min(std::thread::hardware_concurrency(), 16u));
    std::deque<Job> m_pending;
    Result m_result = Success();
};

// Every name of the archive is checked before anything is written; the elements of each go to elements.
Result CheckUnpackNames(const fs::path& archive, const std::vector<ArchiveEntry>& entries,
                        std::vector<std::vector<std::string>>& elements)
{
    elements.assign(entries.size(), {});
    for (std::size_t i = 0; i < entries.size(); ++i)
    {
        if (entries[i].link || !SafeElements(entries[i].name, elements[i]))
        {
            VEL_TRACE(VEL_ERR, "Archive %s holds the unsafe entry \"%s\", unpack refused!",
                      Utf8(archive).c_str(), entries[i].name.c_str());
            return Failure(ToPath(entries[i].name), ERROR_BAD_PATHNAME);
        }
    }
    return Success();
}

// The destination is not a link; a missing one is created (and noted, so that a failure removes it).
Result PrepareDestination(const fs::path& destination, UnpackWork& work)
{
    boost::system::error_code error;
    const fs::file_status status = fs::symlink_status(destination, error);
    if (fs::is_symlink(status))
    {
        VEL_TRACE(VEL_ERR, "Link detected at %s, unpack refused!", Utf8(destination).c_str());
        return Result(false, CVeLFilesystemError(true));
    }
    if (fs::exists(status))
        return Success();
    if (!fs::create_directories(destination, error) || error)
    {
        VEL_TRACE(VEL_ERR, "Creating folder %s failed (error code: %d)!", Utf8(destination).c_str(),
                  error.value());
        return Failure(destination, error.value());
    }
    work.createdFolders.push_back(destination);
    return Success();
}

// Makes the folders and extracts the files of every entry, each file to a temporary name beside its target.
Result ExtractEntries(unzFile unzip, const std::shared_ptr<IVeLWinAPIWrapper>& api, const fs::path& archive,
                      const fs::path& destination, const std::vector<ArchiveEntry>& entries,
                      const std::vector<std::vector<std::string>>& elements, UnpackWork& work)
{
    Result result = Success();
    int position = unzGoToFirstFile(unzip);
    for (std::size_t i = 0; i < entries.size() && result.IsSuccess(); ++i)
    {
        if (position != UNZ_OK)
            return Failure(archive, ERROR_INVALID_DATA);
        const bool folder = entries[i].name.back() == '/' || entries[i].name.back() == '\\';
        const std::vector<std::string>& path = elements[i];
        result = PrepareFolders(destination, path, folder ? path.size() : path.size() - 1, work);
        if (result.IsSuccess() && !folder)
        {
            fs::path target = destination;
            for (const std::string& element : path)
                target /= ToPath(element);
            result = ExtractFile(unzip, api, entries[i], target, archive, work);
        }
        position = unzGoToNextFile(unzip);
    }
    return result;
}

// All entries are complete: renames the extracted files into place. On a failure the files not yet renamed
// stay listed in work, for the undo.
Result MoveFinishedIntoPlace(UnpackWork& work)
{
    boost::system::error_code error;
    for (std::size_t i = 0; i < work.finished.size(); ++i)
    {
        fs::rename(work.finished[i].first, work.finished[i].second, error);
        if (error)
        {
            VEL_TRACE(VEL_ERR, "Renaming into %s failed (error code: %d)!",
                      Utf8(work.finished[i].second).c_str(), error.value());
            const Result failure = Failure(work.finished[i].second, error.value());
            work.finished.erase(work.finished.begin(),
                                work.finished.begin() + static_cast<std::ptrdiff_t>(i));
            return failure;
        }
    }
    return Success();
}

// Opens the archive and reads its directory, after checking that there is a facade to open it with.
Result OpenArchive(const std::shared_ptr<IVeLWinAPIWrapper>& api, const fs::path& archive, Archive& opened,
                   std::vector<ArchiveEntry>& entries)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return Result();
    }
    Result result = opened.Open(archive);
    if (!result.IsSuccess())
        return result;
    return ReadDirectory(opened.Get(), archive, entries);
}

} // namespace

CVeLDirectoryPackerImpl::CVeLDirectoryPackerImpl(std::shared_ptr<IVeLWinAPIWrapper> api)
    : m_api(std::move(api))
{
}

CVeLDirectoryPackerImpl::~CVeLDirectoryPackerImpl() = default;

CVeLResult<CVeLFilesystemError> CVeLDirectoryPackerImpl::Pack(const fs::path& folder,
                                                              const fs::path& archive) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return Result();
    }
    Result checked = CheckPackSource(folder);
    if (!checked.IsSuccess())
        return checked;
    std::vector<TreeEntry> entries;
    Result collected = CollectTree(folder, std::string(), entries);
    if (!collected.IsSuccess())
        return collected;

    CVeLFileStream output(m_api);
    if (!output.OpenPartial(archive))
    {
        VEL_TRACE(VEL_ERR, "Creating archive %s failed (error code: %d)!", Utf8(archive).c_str(),
                  output.LastError());
        return Failure(archive, static_cast<LONG>(output.LastError()));
    }
    BufferedIo io(output);
    zlib_filefunc64_def functions = io.Functions();
    zipFile zip = zipOpen2_64("archive", APPEND_STATUS_CREATE, nullptr, &functions);
    if (zip == nullptr)
        return Failure(archive, ERROR_WRITE_FAULT);
    Result result = Success();
    {
        ParallelZipWriter writer(zip, m_api, archive);
        for (std::size_t i = 0; i < entries.size() && writer.Outcome().IsSuccess(); ++i)
            writer.Add(entries[i]);
        writer.Drain();
        result = writer.Outcome();
    }
    const bool closed = zipClose(zip, nullptr) == ZIP_OK && !io.Failed();
    if (!result.IsSuccess())
        return result;
    if (!closed || !output.Commit())
    {
        VEL_TRACE(VEL_ERR, "Writing archive %s failed (error code: %d)!", Utf8(archive).c_str(),
                  output.LastError());
        return Failure(archive,
                       static_cast<LONG>(output.LastError() != 0 ? output.LastError() : ERROR_WRITE_FAULT));
    }
    return Success();
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPackerImpl::List(const fs::path& archive,
                                                              std::vector<CVeLPackEntry>& entries) const
{
    entries.clear();
    Archive opened(m_api);
    std::vector<ArchiveEntry> found;
    Result result = OpenArchive(m_api, archive, opened, found);
    if (!result.IsSuccess())
        return result;
    for (const ArchiveEntry& entry : found)
    {
        CVeLPackEntry listed;
        CVeLStringConverter::ConvertUTF8Chars2StdWString(entry.name.c_str(), listed.path);
        listed.size = entry.info.uncompressed_size;
        listed.compressedSize = entry.info.compressed_size;
        listed.modified = entry.modified;
        listed.isFolder = !entry.name.empty() && entry.name.back() == '/';
        entries.push_back(listed);
    }
    return Success();
}

CVeLResult<CVeLFilesystemError> CVeLDirectoryPackerImpl::Unpack(const fs::path& archive,
                                                                const fs::path& destination) const
{
    Archive opened(m_api);
    std::vector<ArchiveEntry> entries;
    Result result = OpenArchive(m_api, archive, opened, entries);
    if (!result.IsSuccess())
        return result;
    std::vector<std::vector<std::string>> elements;
    result = CheckUnpackNames(archive, entries, elements);
    if (!result.IsSuccess())
        return result;
    UnpackWork work;
    result = PrepareDestination(destination, work);
    if (!result.IsSuccess())
        return result;
    result = ExtractEntries(opened.Get(), m_api, archive, destination, entries, elements, work);
    if (result.IsSuccess())
        result = MoveFinishedIntoPlace(work);
    if (!result.IsSuccess())
    {
        work.Undo(m_api);
        return result;
    }
    boost::system::error_code error;
    for (const auto& time : work.times)
        fs::last_write_time(time.first, time.second, error);
    return Success();
}
