// CVeLCompoundFileImpl: compound files through the system's structured storage, reached through the
// facade (StgCreateStorageEx, StgOpenStorageEx) and the IStorage and IStream interfaces they hand out.
// Holds the root storage of the open file (released by Close and at destruction, which also writes what
// changed) and the shared encryption handler. Files are opened in direct mode and exclusively for writing
// or deny-write for reading. One thread uses an object at a time. Every failure is traced at ERR with the
// system's HRESULT and answered with false or a failed result; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelcompoundfile.h"
#include "ivelencryptionhandler.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class KORUTILITIES_API CVeLCompoundFileImpl : public IVeLCompoundFile
{
public:
    CVeLCompoundFileImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                         std::shared_ptr<IVeLEncryptionHandler> encryption);
    ~CVeLCompoundFileImpl() override;
    CVeLCompoundFileImpl(const CVeLCompoundFileImpl&) = delete;
    CVeLCompoundFileImpl& operator=(const CVeLCompoundFileImpl&) = delete;

    bool Create(const boost::filesystem::path& file) override;
    bool Open(const boost::filesystem::path& file, bool writable) override;
    bool Close() override;
    bool IsOpen() const override;
    bool Commit() override;
    bool WriteStream(const std::wstring& path, const CVeLByteArray& data, bool encrypt) override;
    CVeLResult<CVeLByteArray> ReadStream(const std::wstring& path, bool decrypt) const override;
    bool ListElements(std::vector<CVeLCompoundEntry>& entries) const override;
    bool DeleteElement(const std::wstring& path) override;

private:
    bool Usable(bool forWriting) const;
    // The storage that holds the last element of path, opened step by step (for writing when writable,
    // missing storages created when create); null (traced) on failure. The caller releases it.
    IStorage* OpenParent(const std::vector<std::wstring>& elements, bool create, bool writable) const;
    bool ListStorage(IStorage* storage, const std::wstring& prefix, std::vector<CVeLCompoundEntry>& entries,
                     int depth) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLEncryptionHandler> m_encryption;
    IStorage* m_root = nullptr; // the open file's root storage, owned (one reference)
    bool m_writable = false;
};
