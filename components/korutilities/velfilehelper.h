// CVeLFileHelper: the library's operations on one file (existence, size, copy with a size check, rename,
// create, truncate, remove, whole-content reads and writes, name parts). Owns its CVeLFileHelperImpl and
// forwards every call to it; see velfilehelperimpl.h for the decisions on encodings, read-only files and
// sizes. Not copyable; used by one thread at a time. Every failure is traced at ERR (a missing source file
// at WRN) and answered with false, 0 or an empty value; nothing throws.
#pragma once

#include "ivelfilebasics.h"
#include "ivelfilehelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLFileHelperImpl;

class KORUTILITIES_API CVeLFileHelper : public IVeLFileHelper, public CVeLNonCopyable
{
public:
    // With the default facade and file basics. The flag is stored with the path; Reset replaces both.
    CVeLFileHelper(boost::filesystem::path path, bool flag);
    CVeLFileHelper(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLFileBasics> fileBasics,
                   boost::filesystem::path path, bool flag);
    ~CVeLFileHelper() override;

    boost::filesystem::path GetPath() override;
    // The parent directory of the path.
    boost::filesystem::path GetDirPath() override;
    // The size in bytes; 0 for an empty path or an unreadable status.
    ULONG GetSize() const override;
    bool Exists() const override;
    // Copies the file in 64 KiB steps through the facade, replacing destination, then compares both sizes:
    // a failed read or write shows as sizes that differ.
    bool Copy(boost::filesystem::path destination) const override;
    // On success the helper names newPath.
    bool Rename(boost::filesystem::path newPath) override;
    // Creates the file or empties an existing one.
    bool Create() const override;
    // Removes the file; a missing file succeeds.
    bool Remove() const override;
    // Truncates an existing file to length 0; a missing file fails.
    bool Deflate() const override;
    // Replaces the whole content of an existing, writeable file; never creates one (use Create first).
    // Empty content, a read-only file (WRN) and a short write fail.
    bool WriteContent(const unsigned char* content, ULONG length) override;
    // The text's UTF-16LE code units, two bytes per unit, no byte-order mark.
    bool WriteContent(const std::wstring& content) override;
    // The whole content in a new buffer.
    bool ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const override;
    // The content as UTF-16LE code units; an odd last byte is dropped.
    bool ReadContent(std::wstring& content) const override;
    // The text as UTF-8 bytes without a byte-order mark.
    bool WriteUtf8Content(const std::wstring& content) override;
    // The content read as UTF-8. An empty file fails.
    bool ReadUtf8Content(std::wstring& content) const override;
    // The owner may write the file; false when its status cannot be read.
    bool IsWriteable() const override;
    bool IsRegularFile() const override;
    boost::filesystem::path GetFileName() override;
    std::wstring GetFileNameWithoutExtension() override;
    // With its leading dot; empty when the name has none.
    std::wstring GetFileExtension() override;
    std::wstring GetFileExtensionWithoutLeadingDot() override;
    void Reset(boost::filesystem::path path, bool flag) override;
    std::wstring ToString() override;

    // Crash-safe whole-file write: the file holds either its old content or all of content, whatever
    // happens meanwhile (a crash, a full disk, a power cut). The content goes to a new temporary file in the
    // same folder, which is flushed to the disk and then renamed over the path in one step; the folder is
    // flushed after that. Creates the file when it is missing and keeps the permissions of one that exists;
    // a symbolic link at the path is replaced, its target left alone. Empty content makes an empty file. On
    // failure the old file is untouched and the temporary file is gone: a null content with a length, an
    // empty path, a folder or a read-only file at the path (WRN), or a create, write, flush or rename that
    // fails (traced with its error).
    bool ReplaceContentAtomically(const unsigned char* content, size_t length) override;

private:
    std::unique_ptr<CVeLFileHelperImpl> m_impl;
};
