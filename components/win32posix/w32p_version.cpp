// GetFileVersionInfoSizeW, GetFileVersionInfoW and VerQueryValueW over PE files; see w32p_version.h.
//
// A version resource is a tree of nodes: WORD total length, WORD value length (characters for a text, bytes
// otherwise), WORD type (1 text, 0 binary), the UTF-16 key with its terminator, padding to 4 bytes, the
// value, padding, then the child nodes up to the total length. Every node is checked to lie inside its
// parent before any field of it is read.
//
// The block: "W32V", the resource's size (32-bit), the resource as stored, padding to 4 bytes, then the wide
// area. A text whose value starts at resource offset r is kept in the wide area from WCHAR index r / 2: a
// UTF-16 unit (2 bytes) becomes at most one 4-byte WCHAR, so texts never overlap, and VerQueryValueW finds
// each one without a table.
#include "w32p_version.h"
#include "w32p_path.h"
#include "w32p_peimage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwctype>
#include <fstream>
#include <vector>

namespace
{

const char kMagic[4] = {'W', '3', '2', 'V'};
const std::size_t kHeaderSize = 8;
const WORD kVersionType = 16; // RT_VERSION

struct Node
{
    std::size_t end;        // one past the node
    std::wstring key;       // lower-case
    std::size_t value;      // offset of the value
    std::size_t valueBytes; // clipped to the node
    bool text;              // the value is UTF-16 text
    std::size_t children;   // offset of the first child
};

std::size_t Align4(std::size_t offset)
{
    return (offset + 3) & ~static_cast<std::size_t>(3);
}

unsigned Unit(const unsigned char* raw, std::size_t at)
{
    return raw[at] | static_cast<unsigned>(raw[at + 1]) << 8;
}

// The node at begin, which must lie within [begin, limit).
bool ParseNode(const unsigned char* raw, std::size_t begin, std::size_t limit, Node& node)
{
    if (begin > limit || limit - begin < 6)
        return false;
    const std::size_t length = Unit(raw, begin);
    if (length < 6 || length > limit - begin)
        return false;
    node.end = begin + length;
    const std::size_t valueLength = Unit(raw, begin + 2);
    node.text = Unit(raw, begin + 4) == 1;
    node.key.clear();
    std::size_t at = begin + 6;
    for (;; at += 2)
    {
        if (node.end - at < 2)
            return false;
        const unsigned unit = Unit(raw, at);
        if (unit == 0)
            break;
        node.key.push_back(static_cast<wchar_t>(std::towlower(static_cast<wint_t>(unit))));
    }
    node.value = std::min(Align4(at + 2), node.end);
    node.valueBytes = std::min(node.text ? valueLength * 2 : valueLength, node.end - node.value);
    node.children = std::min(Align4(node.value + node.valueBytes), node.end);
    return true;
}

// Writes the text of node into the wide area (units joined into characters where they pair).
void WidenText(const unsigned char* raw, const Node& node, WCHAR* wide)
{
    WCHAR* out = wide + node.value / 2;
    for (std::size_t at = node.value; at + 1 < node.value + node.valueBytes; at += 2)
    {
        unsigned unit = Unit(raw, at);
        if (unit >= 0xD800 && unit < 0xDC00 && at + 3 < node.value + node.valueBytes)
        {
            const unsigned low = Unit(raw, at + 2);
            if (low >= 0xDC00 && low < 0xE000)
            {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                at += 2;
            }
        }
        *out++ = static_cast<WCHAR>(unit);
    }
    *out = L'\0';
}

// Widens the texts of the children of [begin, end); the real tree is four levels deep, deeper ones are
// left alone.
void WidenChildren(const unsigned char* raw, std::size_t begin, std::size_t end, WCHAR* wide, int depth)
{
    Node node;
    for (std::size_t at = begin; depth < 6 && ParseNode(raw, at, end, node); at = Align4(node.end))
    {
        if (node.text)
            WidenText(raw, node, wide);
        WidenChildren(raw, node.children, node.end, wide, depth + 1);
    }
}

// The version resource of a file; false with the last error set.
bool ReadResource(LPCWSTR fileName, std::string& resource)
{
    std::string image;
    if (!W32pReadImageFile(fileName, image))
    {
        if (GetLastError() == ERROR_BAD_EXE_FORMAT)
            SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return false;
    }
    Node root;
    if (!W32pFindPeResource(image, kVersionType, 0, resource) ||
        !ParseNode(reinterpret_cast<const unsigned char*>(resource.data()), 0, resource.size(), root))
    {
        SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return false;
    }
    resource.resize(root.end);
    return true;
}

DWORD BlockSize(std::size_t resource)
{
    return static_cast<DWORD>(kHeaderSize + Align4(resource) + 2 * resource + 2 * sizeof(WCHAR));
}

} // namespace

DWORD GetFileVersionInfoSizeW(LPCWSTR fileName, LPDWORD handle)
{
    if (handle != nullptr)
        *handle = 0;
    std::string resource;
    return ReadResource(fileName, resource) ? BlockSize(resource.size()) : 0;
}

BOOL GetFileVersionInfoW(LPCWSTR fileName, DWORD, DWORD size, LPVOID data)
{
    std::string resource;
    if (data == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!ReadResource(fileName, resource))
        return FALSE;
    if (size < BlockSize(resource.size()))
    {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    unsigned char* block = static_cast<unsigned char*>(data);
    const std::uint32_t rawSize = static_cast<std::uint32_t>(resource.size());
    std::memset(block, 0, BlockSize(resource.size()));
    std::memcpy(block, kMagic, 4);
    std::memcpy(block + 4, &rawSize, 4);
    std::memcpy(block + kHeaderSize, resource.data(), resource.size());
    WCHAR* wide = reinterpret_cast<WCHAR*>(block + kHeaderSize + Align4(resource.size()));
    Node root;
    ParseNode(block + kHeaderSize, 0, rawSize, root);
    WidenChildren(block + kHeaderSize, root.children, root.end, wide, 0);
    return TRUE;
}

BOOL VerQueryValueW(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, PUINT length)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(block);
    std::uint32_t rawSize = 0;
    Node node;
    if (bytes == nullptr || subBlock == nullptr || buffer == nullptr || std::memcmp(bytes, kMagic, 4) != 0)
        return FALSE;
    std::memcpy(&rawSize, bytes + 4, 4);
    const unsigned char* raw = bytes + kHeaderSize;
    if (!ParseNode(raw, 0, rawSize, node))
        return FALSE;
    std::wstring path(subBlock);
    std::size_t start = 0;
    bool atRoot = true;
    while (start < path.size())
    {
        std::size_t end = std::min(path.find(L'\\', start), path.size());
        std::wstring wanted = path.substr(start, end - start);
        start = end + 1;
        if (wanted.empty())
            continue;
        for (wchar_t& c : wanted)
            c = static_cast<wchar_t>(std::towlower(c));
        Node child;
        bool found = false;
        for (std::size_t at = node.children; !found && ParseNode(raw, at, node.end, child);
             at = Align4(child.end))
            found = child.key == wanted;
        if (!found)
            return FALSE;
        node = child;
        atRoot = false;
    }
    if (atRoot && node.valueBytes < sizeof(VS_FIXEDFILEINFO))
        return FALSE;
    if (node.text && !atRoot)
    {
        const WCHAR* text = reinterpret_cast<const WCHAR*>(raw + Align4(rawSize)) + node.value / 2;
        *buffer = const_cast<WCHAR*>(text);
        if (length != nullptr)
            *length = static_cast<UINT>(std::wcslen(text) + 1);
        return TRUE;
    }
    *buffer = const_cast<unsigned char*>(raw + node.value);
    if (length != nullptr)
        *length = static_cast<UINT>(node.valueBytes);
    return TRUE;
}
