// CVeLVersion: a four-part version value (major, minor, build, revision), each part 0-65535 as in a
// version resource. A plain value: copyable, no shared state, usable from any thread. Parse refuses
// anything but one to four dot-separated decimal parts (missing parts are 0; leading zeros and blanks
// around the whole text are allowed); a refused text is traced at ERR and answered with a failed result.
// Nothing throws.
#pragma once

#include "korutilities_export.h"
#include "velresult.h"
#include "velwin32.h"

#include <string>

class KORUTILITIES_API CVeLVersion
{
public:
    // 0.0.0.0
    CVeLVersion();
    CVeLVersion(WORD major, WORD minor, WORD build = 0, WORD revision = 0);
    // From the two 32-bit halves of a version resource's fixed record (major in the high word of mostSig).
    static CVeLVersion FromFixed(DWORD mostSignificant, DWORD leastSignificant);
    static CVeLResult<CVeLVersion> Parse(const std::wstring& text);

    WORD GetMajor() const { return m_parts[0]; }
    WORD GetMinor() const { return m_parts[1]; }
    WORD GetBuild() const { return m_parts[2]; }
    WORD GetRevision() const { return m_parts[3]; }

    // -1, 0 or 1: part by part from major to revision.
    int Compare(const CVeLVersion& other) const;
    bool operator==(const CVeLVersion& other) const { return Compare(other) == 0; }
    bool operator!=(const CVeLVersion& other) const { return Compare(other) != 0; }
    bool operator<(const CVeLVersion& other) const { return Compare(other) < 0; }
    bool operator<=(const CVeLVersion& other) const { return Compare(other) <= 0; }
    bool operator>(const CVeLVersion& other) const { return Compare(other) > 0; }
    bool operator>=(const CVeLVersion& other) const { return Compare(other) >= 0; }

    // "major.minor.build.revision"
    std::wstring ToString() const;
    // Without trailing zero build and revision, but always with major and minor: "1.2", "1.2.3", "1.0".
    std::wstring ToShortString() const;

private:
    WORD m_parts[4];
};
