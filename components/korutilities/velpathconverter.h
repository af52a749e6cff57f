// CVeLPathConverter: the text forms of a boost::filesystem::path that the file and directory classes need
// (wide text for the facade, UTF-8 for trace arguments) and back. A path keeps its native text: any bytes
// on Linux, UTF-16 on Windows. Stateless; any thread may call it; nothing throws.
//
// Where the native text is bytes, the wide form uses the same lossless mapping as the system layer below
// the facade, so a name read from a listing reaches the facade as the very same file:
// - valid UTF-8 becomes its characters, except "\ : * ? \" < > |" and U+0001-U+001F, which Windows forbids
//   in names and which are carried as U+F000 + the character (so a name never carries a separator);
// - a byte that is not part of valid UTF-8 is carried as U+DC00 + the byte (U+DC80-U+DCFF);
// - a character that itself lies in U+F000-U+F0FF or U+DC80-U+DCFF is carried byte by byte as U+DCxx.
// Back from wide text, U+DC80-U+DCFF become their bytes, U+F000 + a forbidden character becomes that
// character, "\" and "/" both separate elements, and other lone surrogates get their three-byte
// generalised UTF-8 form. Every native path has exactly one wide form, and FromWide(ToWide(p)) is p.
// ToUtf8 gives the native bytes (for trace arguments); on Windows it is the UTF-8 of the wide text.
#pragma once

#include "korutilities_export.h"

#include <boost/filesystem/path.hpp>

#include <string>

class KORUTILITIES_API CVeLPathConverter
{
public:
    static std::wstring ToWide(const boost::filesystem::path& path);
    static std::string ToUtf8(const boost::filesystem::path& path);
    static boost::filesystem::path FromWide(const std::wstring& text);
    // The wide form of the path's last element (the text after its last separator) into name, whose
    // storage is reused: for listings, which convert one name per entry.
    static void LastElementToWide(const boost::filesystem::path& path, std::wstring& name);

    // The mapping itself, for byte strings that are not paths yet (a name from a listing, say).
    static std::wstring NativeBytesToWide(const std::string& bytes);
    static std::string WideToNativeBytes(const std::wstring& text);
};
