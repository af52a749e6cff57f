// PE resource lookup; see w32p_peimage.h. Layout (all little-endian): the DOS header's e_lfanew at 0x3C
// points at "PE\0\0", then the 20-byte file header (section count at +2, optional-header size at +16), the
// optional header (magic 0x10B or 0x20B; the resource entry of the data directory at +112 or +128), then
// 40-byte section records (virtual size +8, virtual address +12, raw size +16, raw offset +20). A resource
// directory is 16 bytes (named and id entry counts at +12 and +14) followed by 8-byte entries (name or id,
// then an offset whose top bit marks a sub-directory); a data entry holds the data's address and size.
#include "w32p_peimage.h"
#include "w32p_path.h"

#include <cerrno>
#include <cstdint>
#include <fstream>

namespace
{

const std::uint64_t kLargestImage = 1ull << 30; // no DLL is bigger; larger files are refused unread

// A bounds-checked view of the file's bytes.
class Bytes
{
public:
    explicit Bytes(const std::string& image) : m_image(image) {}
    bool Has(std::uint64_t offset, std::uint64_t length) const
    {
        return offset <= m_image.size() && length <= m_image.size() - offset;
    }
    bool U16(std::uint64_t offset, std::uint32_t& value) const
    {
        if (!Has(offset, 2))
            return false;
        value = Byte(offset) | Byte(offset + 1) << 8;
        return true;
    }
    bool U32(std::uint64_t offset, std::uint32_t& value) const
    {
        std::uint32_t low, high;
        if (!U16(offset, low) || !U16(offset + 2, high))
            return false;
        value = low | high << 16;
        return true;
    }

private:
    std::uint32_t Byte(std::uint64_t offset) const { return static_cast<unsigned char>(m_image[offset]); }
    const std::string& m_image;
};

// The file offset of a virtual address, through the section that holds it in the file.
bool FileOffset(const Bytes& bytes, std::uint64_t sections, std::uint32_t count, std::uint32_t address,
                std::uint64_t& offset)
{
    for (std::uint32_t i = 0; i < count; ++i)
    {
        std::uint32_t start, rawSize, rawOffset;
        const std::uint64_t record = sections + 40ull * i;
        if (!bytes.U32(record + 12, start) || !bytes.U32(record + 16, rawSize) ||
            !bytes.U32(record + 20, rawOffset))
            return false;
        if (address >= start && address - start < rawSize)
        {
            offset = static_cast<std::uint64_t>(rawOffset) + (address - start);
            return true;
        }
    }
    return false;
}

// The file offset of the resource directory, with the section table for later address lookups.
bool ResourceDirectory(const Bytes& bytes, std::uint64_t& directory, std::uint64_t& sections,
                       std::uint32_t& count)
{
    std::uint32_t mz, peOffset, signature, optionalSize, magic, address;
    if (!bytes.U16(0, mz) || mz != 0x5A4D || !bytes.U32(0x3C, peOffset) || !bytes.U32(peOffset, signature) ||
        signature != 0x00004550)
        return false;
    const std::uint64_t fileHeader = static_cast<std::uint64_t>(peOffset) + 4;
    const std::uint64_t optional = fileHeader + 20;
    if (!bytes.U16(fileHeader + 2, count) || !bytes.U16(fileHeader + 16, optionalSize) ||
        !bytes.U16(optional, magic))
        return false;
    const std::uint64_t entry = optional + (magic == 0x20B ? 128 : magic == 0x10B ? 112 : 0);
    if (entry == optional || entry + 8 > optional + optionalSize || !bytes.U32(entry, address) ||
        address == 0)
        return false;
    sections = optional + optionalSize;
    return FileOffset(bytes, sections, count, address, directory);
}

// The entry of a directory with that id (0: the first id entry); its offset field.
bool FindEntry(const Bytes& bytes, std::uint64_t directory, std::uint32_t id, std::uint32_t& target)
{
    std::uint32_t named, ids;
    if (!bytes.U16(directory + 12, named) || !bytes.U16(directory + 14, ids))
        return false;
    for (std::uint32_t i = 0; i < ids; ++i)
    {
        std::uint32_t name;
        const std::uint64_t entry = directory + 16 + 8ull * (named + i);
        if (!bytes.U32(entry, name) || !bytes.U32(entry + 4, target))
            return false;
        if (id == 0 || name == id)
            return true;
    }
    return false;
}

} // namespace

W32pPeLookup W32pLookupPeResource(const std::string& image, WORD type, WORD id, std::string& data)
{
    const Bytes bytes(image);
    std::uint64_t root, sections, dataOffset;
    std::uint32_t count;
    if (!ResourceDirectory(bytes, root, sections, count))
        return W32pPeLookup::NoResources;
    // Type, name and language levels are directories; the language entry points at the data entry. Each
    // level must point at the kind it should, so a directory that points at itself can't loop.
    const std::uint32_t wanted[3] = {type, id, 0};
    std::uint64_t current = root;
    for (int level = 0; level < 3; ++level)
    {
        std::uint32_t target;
        if (!FindEntry(bytes, current, wanted[level], target))
            return level == 0 ? W32pPeLookup::NoType : W32pPeLookup::NoName;
        const bool directory = (target & 0x80000000u) != 0;
        if (directory != (level < 2))
            return W32pPeLookup::NoName;
        current = root + (target & 0x7FFFFFFFu);
    }
    std::uint32_t address, size;
    if (!bytes.U32(current, address) || !bytes.U32(current + 4, size) ||
        !FileOffset(bytes, sections, count, address, dataOffset) || !bytes.Has(dataOffset, size))
        return W32pPeLookup::NoName;
    data.assign(image, static_cast<std::size_t>(dataOffset), size);
    return W32pPeLookup::Found;
}

bool W32pIsPeImage(const std::string& image)
{
    const Bytes bytes(image);
    std::uint32_t mz, peOffset, signature;
    return bytes.U16(0, mz) && mz == 0x5A4D && bytes.U32(0x3C, peOffset) && bytes.U32(peOffset, signature) &&
           signature == 0x00004550;
}

bool W32pFindPeResource(const std::string& image, WORD type, WORD id, std::string& data)
{
    return W32pLookupPeResource(image, type, id, data) == W32pPeLookup::Found;
}

bool W32pReadImageFile(LPCWSTR fileName, std::string& image)
{
    std::string path;
    if (!W32pPathToUtf8(fileName, path) || path.empty())
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
    {
        SetLastError(W32pPathErrorFromErrno(path, errno));
        return false;
    }
    const std::streamoff size = in.tellg();
    if (size <= 0 || static_cast<std::uint64_t>(size) > kLargestImage)
    {
        SetLastError(ERROR_BAD_EXE_FORMAT);
        return false;
    }
    image.resize(static_cast<std::size_t>(size));
    in.seekg(0);
    if (!in.read(&image[0], size))
    {
        SetLastError(ERROR_IO_DEVICE);
        return false;
    }
    return true;
}
