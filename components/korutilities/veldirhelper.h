// CVeLDirHelper: the library's operations on one directory (create, remove with waiting, remove all
// contents, delete files by mask, copy, listings by regular expression). Owns its CVeLDirHelperImpl and
// forwards every call to it; see veldirhelperimpl.h for the decisions on patterns, links and network
// paths. Not copyable; used by one thread at a time. Every failure is traced at ERR and answered with false
// or a failed result; nothing throws.
#pragma once

#include "iveldirbasics.h"
#include "iveldirhelper.h"
#include "ivelfilebasics.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>

class CVeLDirHelperImpl;

class KORUTILITIES_API CVeLDirHelper : public IVeLDirHelper, public CVeLNonCopyable
{
public:
    // With the default facade, directory basics and file basics. The flag is stored with the path; Reset
    // replaces both.
    CVeLDirHelper(boost::filesystem::path path, bool flag);
    // A missing collaborator is traced and makes the operations that need it fail.
    CVeLDirHelper(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLDirBasics> dirBasics,
                  std::shared_ptr<IVeLFileBasics> fileBasics, boost::filesystem::path path, bool flag);
    ~CVeLDirHelper() override;

    boost::filesystem::path GetPath() override;
    // Creates the directory and its missing parents; an existing directory succeeds. Fails for something
    // else at the path, a level that can't be made and, with networkPath, an unreachable share.
    bool Create(bool networkPath) const override;
    // Removes the tree and the directory, never following links; waits up to 50 s for the directory to
    // read empty. A failure names the failing element with its system error code in the result.
    CVeLResult<CVeLFilesystemError> Remove() override;
    // Removes everything inside and keeps the directory; a missing directory fails.
    CVeLResult<CVeLFilesystemError> RemoveSiblings() override;
    // RemoveSiblings, then true only when the directory reads empty.
    bool RemoveSiblingsAndCheck() const override;
    // Removes the files whose names match mask (read-only ones too). An invalid mask fails; each file
    // that can't be removed is traced and makes the call fail.
    bool RemoveFileSiblings(const std::wstring& mask, bool recursive) const override;
    bool Exists() const override;
    bool IsDirectory() const override;
    // The directory has at least one entry.
    bool HasSiblings() const override;
    // Copies the files of the tree whose names match mask to the same places below destination, each
    // with CVeLFileHelper::Copy. A missing source, an invalid mask and each file that fails are traced.
    bool Copy(const boost::filesystem::path& destination, const std::wstring& mask) const override;
    // Copies every file.
    bool Copy(const boost::filesystem::path& destination) const override;
    // All files of the tree.
    bool GetTOC(std::vector<boost::filesystem::path>& files) const override;
    // Files whose names match regex, in this directory or, with recursive, the whole tree. An invalid
    // pattern and an unreadable directory fail.
    bool GetTOCByRegExp(std::vector<boost::filesystem::path>& files, const std::wstring& regex,
                        bool recursive) override;
    // Sub-directories whose names match regex; failures as GetTOCByRegExp.
    bool GetDirListByRegExp(std::vector<boost::filesystem::path>& directories, const std::wstring& regex,
                            bool recursive) override;
    void Reset(boost::filesystem::path path, bool flag) override;
    std::wstring ToString() override;

private:
    std::unique_ptr<CVeLDirHelperImpl> m_impl;
};
