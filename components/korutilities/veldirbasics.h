// CVeLDirBasics: the default directory primitives. The queries and directory creation use boost.filesystem
// (its exceptions and error codes are traced at ERR here and become false); the tree deletion goes wholly
// through the operating-system facade, so it sees links as Windows does and never follows them: a
// symbolic link (or junction) to a directory inside a tree is removed as a link and its target is left as
// it is, and a link to a file is deleted without touching its target's attributes. Holds the facade and
// the wait helper for the pauses of the waiting removal; keeps no other state, so one instance may be
// shared, but the tree deletion is meant to run on one thread per tree.
//
// Tree deletion: every entry is tried, also after one has failed, so as much as possible is removed; a
// directory with an entry that could not be removed is not waited for (it can't become empty) and the
// failure is reported with the first failing element and its error code. A listed sub-folder's attributes
// are read again right before it is entered, so a folder swapped for a link after the listing is removed
// as a link; below that, the system layer resolves the paths of a folder being listed from the listing's
// open directory without following links, which closes the remaining window and lets trees deeper than
// the system's path limit go. A folder's read-only attribute does not protect its entries (as on
// Windows): it is cleared while they go and set again on a folder that stays. Recursion is one level of
// the call stack per folder level (some hundred bytes each).
#pragma once

#include "iveldirbasics.h"
#include "ivelwaithelper.h"
#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <memory>
#include <string>

class KORUTILITIES_API CVeLDirBasics : public IVeLDirBasics
{
public:
    // With the default facade and a wait helper of its own.
    CVeLDirBasics();
    CVeLDirBasics(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLWaitHelper> waitHelper);
    ~CVeLDirBasics() override;

    // Status neither error nor not found; false when the status cannot be read.
    bool Exists(const boost::filesystem::path& path) const override;
    // Fails for a missing parent, no permission or a file in the way. An existing directory also answers
    // true.
    bool CreateDirectory(const boost::filesystem::path& path) const override;
    // Fails for what is not a directory. Each entry that can't be removed is traced as it happens and the
    // rest still goes; then the waiting removal of the emptied directory.
    CVeLResult<CVeLFilesystemError> RemoveDirectory(const boost::filesystem::path& path) const override;
    CVeLResult<CVeLFilesystemError>
    RemoveDirectoryContents(const boost::filesystem::path& path) const override;
    // Always false.
    bool FollowsLinks() const override;
    bool IsDirectory(const boost::filesystem::path& path) const override;
    // Always true.
    bool WaitsForEmptyDirectory() const override;
    bool IsRegularFile(const boost::filesystem::path& path) const override;
    bool IsOther(const boost::filesystem::path& path) const override;
    bool IsSymlink(const boost::filesystem::path& path) const override;
    // The end iterator on failure.
    boost::filesystem::directory_iterator
    CreateDirectoryIterator(const boost::filesystem::path& path) const override;

    // Removes a directory that is being emptied by others (files whose last handles are still being
    // closed): polls up to 1000 times, 50 ms apart, until it reads empty, then resets its attributes to
    // normal and removes it (each wait traced at WRN). False on failure, with the system error code in
    // error.
    bool RemoveEmptiedDirectory(const std::wstring& path, DWORD& error) const;

private:
    // The first failure of one tree deletion (later ones are only traced) and whether any happened.
    struct FirstFailure
    {
        CVeLFilesystemError& error;
        bool complete = true;
        void Record(const std::wstring& element, DWORD code);
        void Adopt(const CVeLFilesystemError& nested);
    };

    // The tree deletion: the entries of path, then path itself when removeTop is set. Records the first
    // failure in firstError; answers whether everything asked for was removed.
    bool DeleteTree(const std::wstring& path, bool removeTop, CVeLFilesystemError& firstError) const;
    // Deletes every entry of path; false only when the entries cannot be listed.
    bool DeleteEntries(const std::wstring& path, FirstFailure& failure) const;
    // Deletes one entry found with attributes: a folder as a tree, a link as a link, else as a file.
    void DeleteEntry(const std::wstring& entry, DWORD attributes, FirstFailure& failure) const;
    // Removes the link at entry as a link.
    void RemoveLink(const std::wstring& entry, DWORD attributes, FirstFailure& failure) const;
    CVeLResult<CVeLFilesystemError> RemoveTree(const boost::filesystem::path& path, bool removeTop) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLWaitHelper> m_waitHelper;
};
