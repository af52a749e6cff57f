// The registry tree read from ".reg" export files: the model the registry functions answer from, and the
// parser that builds it. Internal to win32posix; see w32p_registry.h for where the files are and the rules.
#pragma once

#include "w32p_base.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

struct W32pRegValue
{
    std::wstring name;      // as written; "" is the default value ("@")
    DWORD type = 0;         // REG_...
    std::vector<BYTE> data; // strings as WCHAR units of this platform with their terminators
};

struct W32pRegKey
{
    std::wstring name;                                            // as first written
    std::vector<W32pRegValue> values;                             // in the order the files gave them
    std::map<std::wstring, std::unique_ptr<W32pRegKey>> children; // by lower-case name
};

// One consistent state of the whole registry: the predefined roots by their lower-case full names.
struct W32pRegTree
{
    std::map<std::wstring, W32pRegKey> roots;
};

// Applies one file's text to tree; false (tree unchanged) with the 1-based line and the reason when the
// text is malformed.
bool W32pApplyRegText(const std::wstring& text, W32pRegTree& tree, std::size_t& badLine, std::string& reason);
// The lower-case key name used for lookups.
std::wstring W32pRegFold(const std::wstring& name);
