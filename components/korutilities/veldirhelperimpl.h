// CVeLDirHelperImpl: does the work of CVeLDirHelper for one directory path. Holds the operating-system
// facade (handed on to the file helpers that copy and delete single files), the directory basics (every
// directory query, creation, removal and listing), the file basics, the path and the caller's flag, which
// is only stored and handed back by Reset. Used by one thread at a time; it lives as long as its
// CVeLDirHelper.
//
// Decisions where the contract leaves room:
// - Masks and listing patterns are std::wregex in the default (ECMAScript) grammar, matched against the
//   whole file name of each element (not its path). An invalid pattern is traced and fails the call.
// - Listings never follow links into directories: a link to a directory is neither listed as a directory
//   nor descended into, so a link cycle can't make a listing run forever. A link to a file counts as a
//   file (copying it copies the target's content). Each listing replaces the contents of its vector.
// - The bool of RemoveFileSiblings chooses recursion into sub-directories, as for the listings.
// - Create(true) treats a path that begins with two separators ("//server/share/..." or
//   "\\server\share\...") as a network path: its share root (server and share) must exist as a directory,
//   or the call fails; the levels below the share are then created
//   one by one. Other paths, and every path with Create(false), are created level by level from the root.
// - Remove and RemoveSiblings refuse a path that is itself a symbolic link to a directory (a failed result
//   with the link-detected flag), since removing through it would empty the link's target.
// - A listing (and so Copy) fails when any folder of the tree can't be opened or read: an incomplete
//   listing is never reported as complete.
// - Names are reproduced byte for byte: a copy's target paths are the source paths' native text below the
//   destination, and every facade call reaches the file through the lossless name mapping of
//   CVeLPathConverter, so a name holding "\", ".." text or bytes that are not UTF-8 stays one element of
//   its own folder.
// - Copy copies the matching files of the whole tree, creating the destination and the directories that
//   receive files; directories without matching files are not created.
#pragma once

#include "iveldirbasics.h"
#include "iveldirhelper.h"
#include "ivelfilebasics.h"
#include "ivelwinapiwrapper.h"

#include <memory>
#include <regex>

class CVeLDirHelperImpl : public IVeLDirHelper
{
public:
    CVeLDirHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api, std::shared_ptr<IVeLDirBasics> dirBasics,
                      std::shared_ptr<IVeLFileBasics> fileBasics, boost::filesystem::path path, bool flag);
    ~CVeLDirHelperImpl() override;

    boost::filesystem::path GetPath() override;
    bool Create(bool networkPath) const override;
    CVeLResult<CVeLFilesystemError> Remove() override;
    CVeLResult<CVeLFilesystemError> RemoveSiblings() override;
    bool RemoveSiblingsAndCheck() const override;
    bool RemoveFileSiblings(const std::wstring& mask, bool recursive) const override;
    bool Exists() const override;
    bool IsDirectory() const override;
    bool HasSiblings() const override;
    bool Copy(const boost::filesystem::path& destination, const std::wstring& mask) const override;
    bool Copy(const boost::filesystem::path& destination) const override;
    bool GetTOC(std::vector<boost::filesystem::path>& files) const override;
    bool GetTOCByRegExp(std::vector<boost::filesystem::path>& files, const std::wstring& regex,
                        bool recursive) override;
    bool GetDirListByRegExp(std::vector<boost::filesystem::path>& directories, const std::wstring& regex,
                            bool recursive) override;
    void Reset(boost::filesystem::path path, bool flag) override;
    std::wstring ToString() override;

private:
    bool HasDirBasics() const;
    // True when folder opens through the facade and holds no entries.
    bool IsEmptyFolder(const boost::filesystem::path& folder) const;
    // Files (or, with directories set, sub-directories) whose names match pattern.
    bool List(std::vector<boost::filesystem::path>& found, const std::wstring& pattern, bool recursive,
              bool directories) const;
    // What one listing looks for; built once per listing, read by every folder of it.
    struct ListRequest
    {
        std::wregex regex;
        bool anyName = false; // the pattern is ".*": see ListRequest's use in the source
        bool recursive = false;
        bool directories = false;
    };
    // Lists one folder: matching entries to found, sub-folders to pending when recursive; false when it
    // cannot be read. name is a buffer reused for every entry's wide name.
    bool ListFolder(const boost::filesystem::path& folder, const ListRequest& request,
                    std::vector<boost::filesystem::path>& pending,
                    std::vector<boost::filesystem::path>& found, std::wstring& name) const;
    // Creates each missing level of path below start (an existing prefix of it).
    bool CreateLevels(const boost::filesystem::path& start, const boost::filesystem::path& rest) const;
    bool CreatePlain() const;
    bool CreateOnNetwork() const;
    CVeLResult<CVeLFilesystemError> RemoveContents() const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::shared_ptr<IVeLDirBasics> m_dirBasics;
    std::shared_ptr<IVeLFileBasics> m_fileBasics;
    boost::filesystem::path m_path;
    bool m_flag;
};
