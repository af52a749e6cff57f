// IVeLPathHelper: path arithmetic (join, normalise, relative) and the well-known folders, with the same
// names on every platform.
#pragma once

#include <boost/filesystem/path.hpp>

class IVeLPathHelper
{
public:
    virtual ~IVeLPathHelper() {}
    // relative appended to base, normalised. Refuses (false) a relative part that is absolute or has a
    // root, or that climbs out of base with "..": a name taken from outside can't leave the base folder.
    virtual bool Join(const boost::filesystem::path& base, const boost::filesystem::path& relative,
                      boost::filesystem::path& result) const = 0;
    // Lexically normalised: "." elements dropped, "name/.." pairs removed, repeated separators merged;
    // ".." that can't be removed stays at the front of a relative path and is dropped after a root. An
    // empty path stays empty; a path that normalises to nothing is ".". The file system is not consulted.
    virtual boost::filesystem::path Normalize(const boost::filesystem::path& path) const = 0;
    // The path that leads from base to target, both normalised first; "." when they are the same. False
    // when one is absolute and the other not, or their roots differ (another drive).
    virtual bool MakeRelative(const boost::filesystem::path& target, const boost::filesystem::path& base,
                              boost::filesystem::path& result) const = 0;

    // The folder of the running program's executable.
    virtual bool GetProgramFolder(boost::filesystem::path& folder) const = 0;
    // The temporary folder (without a trailing separator).
    virtual bool GetTempFolder(boost::filesystem::path& folder) const = 0;
    // Per-user application data that roams with the user (Windows: RoamingAppData; Linux: XDG config
    // home), and per-user data that stays on this machine (LocalAppData; XDG data home). With create, a
    // missing folder is created.
    virtual bool GetUserAppDataFolder(boost::filesystem::path& folder, bool create) const = 0;
    virtual bool GetLocalAppDataFolder(boost::filesystem::path& folder, bool create) const = 0;
    // Machine-wide application data (Windows: ProgramData; Linux: the first XDG data folder).
    virtual bool GetMachineAppDataFolder(boost::filesystem::path& folder) const = 0;
    // The user's documents (Windows: Documents; Linux: XDG_DOCUMENTS_DIR, ~/Documents by default).
    virtual bool GetDocumentsFolder(boost::filesystem::path& folder, bool create) const = 0;
};
