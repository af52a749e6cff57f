// CVeLCompoundFile: the public compound file service (see IVeLCompoundFile for paths and encryption,
// CVeLCompoundFileImpl for the system objects it holds). Owns its implementation, built over the given
// facade or a new default one; every operation forwards to it. One thread uses an object at a time. Every
// failure is traced at ERR and answered with false or a failed result; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelcompoundfile.h"
#include "ivelencryptionhandler.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class CVeLCompoundFileImpl;

class KORUTILITIES_API CVeLCompoundFile : public IVeLCompoundFile
{
public:
    // encryption may be null when no stream is to be encrypted.
    explicit CVeLCompoundFile(std::shared_ptr<IVeLEncryptionHandler> encryption = nullptr);
    CVeLCompoundFile(std::shared_ptr<IVeLWinAPIWrapper> api,
                     std::shared_ptr<IVeLEncryptionHandler> encryption);
    ~CVeLCompoundFile() override;
    CVeLCompoundFile(const CVeLCompoundFile&) = delete;
    CVeLCompoundFile& operator=(const CVeLCompoundFile&) = delete;

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
    std::unique_ptr<CVeLCompoundFileImpl> m_impl;
};
