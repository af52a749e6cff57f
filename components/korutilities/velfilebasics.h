// CVeLFileBasics: the default single-file primitives, over boost.filesystem. No state, so one instance may
// serve every helper and thread. Exceptions of boost.filesystem stop here: each is traced at ERR and the
// operation answers false.
#pragma once

#include "ivelfilebasics.h"
#include "korutilities_export.h"

class KORUTILITIES_API CVeLFileBasics : public IVeLFileBasics
{
public:
    CVeLFileBasics();
    ~CVeLFileBasics() override;

    // True only for a regular file (links followed); false when the status can't be read.
    bool IsRegularFile(const boost::filesystem::path& path) const override;
    // Removes a file or an empty directory; a missing path also succeeds.
    bool Remove(const boost::filesystem::path& path) const override;
    // Renames or moves; an existing file at to is replaced.
    bool Rename(const boost::filesystem::path& from, const boost::filesystem::path& to) const override;
    // True when the status can be read and is not "not found" (links followed).
    bool Exists(const boost::filesystem::path& path) const override;
};
