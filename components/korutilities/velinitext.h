// CVeLIniText: one change to the text of an INI file, made in memory so that CVeLIniFile can put the changed
// file in place with one crash-safe replace. It follows the rules the profile reads apply: lines end at CR,
// LF or CRLF; "[name]" opens a section; "key=value" is a key line and any line starting with ";" a comment;
// names are trimmed of spaces and tabs and compare without regard to case; the first section of a name is
// the one changed. The file keeps its encoding (UTF-16LE with its byte-order mark, else UTF-8 with or
// without one) and the line ending of its first line (CRLF for a new file). Stateless; any thread may call
// it. Internal to the library.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CVeLIniText
{
public:
    // The file's bytes after setting key in section to value (adding the section or key at its end when
    // missing); a null value deletes the key, a null key the whole section. bytes may be empty (no file).
    static std::vector<unsigned char> Change(const unsigned char* bytes, std::size_t size,
                                             const std::wstring& section, const wchar_t* key,
                                             const wchar_t* value);
};
