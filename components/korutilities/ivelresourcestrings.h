// IVeLResourceStrings: the texts of a module's string table, each found by its numeric id.
#pragma once

#include <string>

class IVeLResourceStrings
{
public:
    virtual ~IVeLResourceStrings() {}
    // Whether a module is there to read from (a file that opened, or a module handle given).
    virtual bool IsOpen() const = 0;
    // The text of string id; false when the module has no such string (an empty text counts as none).
    virtual bool GetString(unsigned int id, std::wstring& text) const = 0;
};
