// CVeLFileStream: one file opened through the operating-system facade for sequential reading or writing,
// for the hashing and packing classes. It owns the file handle (closed at destruction). An output may be
// written under a temporary name beside its destination and renamed into place by Commit, so a reader
// never sees a half-written file and a failed write leaves no partial output: destruction without Commit
// deletes the temporary file. One thread uses an object at a time. Internal to the library.
//
// Every failure returns false and keeps the system error code in LastError(); the caller traces it with
// its own message, since it knows what the file was for.
#pragma once

#include "ivelwinapiwrapper.h"

#include <boost/filesystem/path.hpp>

#include <cstdint>
#include <memory>

class CVeLFileStream
{
public:
    explicit CVeLFileStream(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLFileStream();
    CVeLFileStream(const CVeLFileStream&) = delete;
    CVeLFileStream& operator=(const CVeLFileStream&) = delete;

    // Opens an existing file for reading (exclusive, as the library opens files).
    bool OpenRead(const boost::filesystem::path& file);
    // Creates (or truncates) file for writing and reading back, directly under its name.
    bool OpenWrite(const boost::filesystem::path& file);
    // Creates a temporary file beside target; Commit renames it to target.
    bool OpenPartial(const boost::filesystem::path& target);

    // Reads up to size bytes; read is 0 only at the end of the file.
    bool Read(void* buffer, std::size_t size, std::size_t& read);
    // Reads exactly size bytes; false (ERROR_HANDLE_EOF) when the file ends first.
    bool ReadExactly(void* buffer, std::size_t size);
    bool Write(const void* buffer, std::size_t size);
    // Moves the position (FILE_BEGIN, FILE_CURRENT or FILE_END) and returns the new one in position.
    bool Seek(std::int64_t distance, DWORD method, std::uint64_t& position);
    bool Size(std::uint64_t& size);

    // Closes the file and, for an output opened by OpenPartial, renames it to its target.
    bool Commit();
    // Closes the file; a partial output is deleted.
    void Discard();

    DWORD LastError() const { return m_lastError; }
    bool IsOpen() const { return m_file != nullptr; }

private:
    bool Open(const boost::filesystem::path& file, DWORD access, DWORD disposition);
    bool Fail();
    // Closes the handle and reports whether the system accepted the close (which can report a failed
    // write-back).
    bool Close();

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    HANDLE m_file = nullptr;           // owned; null when closed
    boost::filesystem::path m_partial; // the temporary name while an OpenPartial output is open
    boost::filesystem::path m_target;  // where Commit puts it
    DWORD m_lastError = 0;
};
