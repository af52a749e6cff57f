// CVeLFileHelperImpl: does the work of CVeLFileHelper for one file path. Holds the operating-system facade
// (every open, read, write and attribute change goes through it), the file basics (existence, removal,
// renaming), the path and the caller's flag, which is only stored and handed back by Reset. Used by one
// thread at a time; it lives as long as its CVeLFileHelper.
//
// Decisions where the contract leaves room:
// - Files are opened exclusively (share mode 0) with normal attributes.
// - Wide-string contents are UTF-16LE code units without a byte-order mark on every platform (characters
//   beyond U+FFFF as surrogate pairs), so files written on one platform read the same on another; when
//   read back an odd last byte is dropped and an unpaired surrogate becomes U+FFFD.
// - The read-only flag is reset before a read-only file is removed and before a read-only destination is
//   overwritten by Copy or Create. WriteContent does not reset it: it refuses a file that isn't writeable.
// - GetSize answers the low 32 bits of larger sizes (its result is 32 bits wide); Copy compares the full
//   64-bit sizes, so a copy of a file beyond 4 GiB is still checked exactly.
#pragma once

#include "ivelfilebasics.h"
#include "ivelfilehelper.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLFileHelperImpl : public IVeLFileHelper
{
public:
    CVeLFileHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLFileBasics> fileBasics,
                       boost::filesystem::path path, bool flag);
    ~CVeLFileHelperImpl() override;

    boost::filesystem::path GetPath() override;
    boost::filesystem::path GetDirPath() override;
    ULONG GetSize() const override;
    bool Exists() const override;
    bool Copy(boost::filesystem::path destination) const override;
    bool Rename(boost::filesystem::path newPath) override;
    bool Create() const override;
    bool Remove() const override;
    bool Deflate() const override;
    bool WriteContent(const unsigned char* content, ULONG length) override;
    bool WriteContent(const std::wstring& content) override;
    bool ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const override;
    bool ReadContent(std::wstring& content) const override;
    bool WriteUtf8Content(const std::wstring& content) override;
    bool ReadUtf8Content(std::wstring& content) const override;
    bool IsWriteable() const override;
    bool IsRegularFile() const override;
    boost::filesystem::path GetFileName() override;
    std::wstring GetFileNameWithoutExtension() override;
    std::wstring GetFileExtension() override;
    std::wstring GetFileExtensionWithoutLeadingDot() override;
    void Reset(boost::filesystem::path path, bool flag) override;
    std::wstring ToString() override;

    // Crash-safe whole-file write (see CVeLFileHelper).
    bool ReplaceContentAtomically(const unsigned char* content, size_t length) override;

private:
    // The steps of ReplaceContentAtomically; each traces its own failure.
    bool CheckReplaceableTarget() const;
    HANDLE CreateTemporaryBeside(boost::filesystem::path& temporary) const;
    bool WriteAllAndFlush(HANDLE file, const unsigned char* content, size_t length) const;

    // Opens path exclusively with normal attributes; the caller traces a failure.
    HANDLE OpenFile(const boost::filesystem::path& path, DWORD access, DWORD disposition) const;
    // The full size; false (traced) for an empty path or an unreadable status.
    bool QuerySize(unsigned long long& size) const;
    // Sets the attributes of path to normal; false (traced) on failure.
    bool ResetReadOnly(const boost::filesystem::path& path) const;
    // Resets the flag of an existing file at path that isn't writeable; true when nothing had to be done.
    bool ResetReadOnlyIfNeeded(const boost::filesystem::path& path) const;
    bool SourceExists() const;
    bool HasApi() const;
    bool HasFileBasics() const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLFileBasics> m_fileBasics;
    boost::filesystem::path m_path;
    bool m_flag;
};
