// LoadLibraryExW for data files and LoadStringW; see w32p_resource.h.
//
// Strings live in blocks of 16: string id is entry id % 16 of the RT_STRING resource numbered id / 16 + 1.
// A block is 16 counted texts, each a 16-bit length in UTF-16 units followed by that many units; an absent
// string has length 0. A block that ends before the wanted entry counts as damaged and the string as absent.
#include "w32p_resource.h"
#include "w32p_module.h"
#include "w32p_peimage.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace
{

const WORD kStringType = 6; // RT_STRING
const DWORD kDataFileFlags =
    LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;

// A PE file opened as data: its bytes, and each text widened once so that the pointer handed out for a
// zero buffer size stays valid until the module is freed.
struct DataModule
{
    std::string image;
    std::mutex lock;                          // guards texts
    std::map<UINT, std::vector<WCHAR>> texts; // id -> text with terminator
    std::map<UINT, DWORD> missing;            // id -> the error it answered
};

struct DataModules
{
    std::mutex lock;               // guards modules
    std::set<DataModule*> modules; // owned; deleted by W32pFreeDataModule
};

DataModules& Modules()
{
    static DataModules* modules = new DataModules; // never destroyed: modules may be freed during exit
    return *modules;
}

DataModule* FindDataModule(HMODULE module)
{
    DataModules& modules = Modules();
    std::lock_guard<std::mutex> guard(modules.lock);
    auto known = modules.modules.find(static_cast<DataModule*>(module));
    return known == modules.modules.end() ? nullptr : *known;
}

unsigned Unit(const std::string& block, std::size_t at)
{
    return static_cast<unsigned char>(block[at]) |
           static_cast<unsigned>(static_cast<unsigned char>(block[at + 1])) << 8;
}

// Entry index of a string block as WCHARs (surrogate pairs joined; a lone surrogate kept as it is); false
// when the block ends before the entry is complete.
bool BlockEntry(const std::string& block, unsigned index, std::vector<WCHAR>& text)
{
    std::size_t at = 0;
    for (unsigned entry = 0;; ++entry)
    {
        if (block.size() - at < 2)
            return false;
        const std::size_t units = Unit(block, at);
        at += 2;
        if ((block.size() - at) / 2 < units)
            return false;
        if (entry == index)
        {
            text.clear();
            for (std::size_t i = 0; i < units; ++i)
            {
                unsigned unit = Unit(block, at + 2 * i);
                if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < units)
                {
                    const unsigned low = Unit(block, at + 2 * (i + 1));
                    if (low >= 0xDC00 && low < 0xE000)
                    {
                        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                        ++i;
                    }
                }
                text.push_back(static_cast<WCHAR>(unit));
            }
            return true;
        }
        at += 2 * units;
    }
}

// The text of id, widened and kept in the module; null with the error to answer.
const std::vector<WCHAR>* FindText(DataModule& module, UINT id, DWORD& error)
{
    std::lock_guard<std::mutex> guard(module.lock);
    auto known = module.texts.find(id);
    if (known != module.texts.end())
        return &known->second;
    auto absent = module.missing.find(id);
    if (absent != module.missing.end())
    {
        error = absent->second;
        return nullptr;
    }
    std::string block;
    std::vector<WCHAR> text;
    const W32pPeLookup found =
        W32pLookupPeResource(module.image, kStringType, static_cast<WORD>(id / 16 + 1), block);
    error = found == W32pPeLookup::NoResources ? ERROR_RESOURCE_DATA_NOT_FOUND
            : found == W32pPeLookup::NoType    ? ERROR_RESOURCE_TYPE_NOT_FOUND
                                               : ERROR_RESOURCE_NAME_NOT_FOUND;
    if (found != W32pPeLookup::Found || !BlockEntry(block, id % 16, text) || text.empty())
    {
        module.missing[id] = error;
        return nullptr;
    }
    text.push_back(L'\0');
    return &(module.texts[id] = std::move(text));
}

HMODULE LoadDataFile(LPCWSTR fileName)
{
    std::unique_ptr<DataModule> module(new DataModule);
    if (!W32pReadImageFile(fileName, module->image))
        return nullptr;
    if (!W32pIsPeImage(module->image))
    {
        SetLastError(ERROR_BAD_EXE_FORMAT);
        return nullptr;
    }
    DataModules& modules = Modules();
    std::lock_guard<std::mutex> guard(modules.lock);
    modules.modules.insert(module.get());
    return module.release();
}

} // namespace

HMODULE LoadLibraryExW(LPCWSTR fileName, HANDLE file, DWORD flags)
{
    if (file != nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return (flags & kDataFileFlags) != 0 ? LoadDataFile(fileName) : LoadLibraryW(fileName);
}

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax)
{
    if (buffer == nullptr || bufferMax < 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (bufferMax > 0)
        buffer[0] = L'\0'; // a failed load leaves an empty text
    DataModule* module = FindDataModule(instance);
    std::string path;
    if (module == nullptr)
    {
        // The main program (null), the built-in ntdll and dlopen modules are Linux files without resources.
        SetLastError(instance == nullptr || W32pModulePath(instance, path) ? ERROR_RESOURCE_DATA_NOT_FOUND
                                                                           : ERROR_INVALID_HANDLE);
        return 0;
    }
    DWORD error = ERROR_SUCCESS;
    const std::vector<WCHAR>* text = FindText(*module, id, error);
    if (text == nullptr)
    {
        SetLastError(error);
        return 0;
    }
    const std::size_t length = text->size() - 1;
    if (bufferMax == 0)
    {
        *reinterpret_cast<const WCHAR**>(buffer) = text->data();
        return static_cast<int>(length);
    }
    const std::size_t copied = std::min(length, static_cast<std::size_t>(bufferMax - 1));
    std::copy(text->begin(), text->begin() + static_cast<std::ptrdiff_t>(copied), buffer);
    buffer[copied] = L'\0';
    return static_cast<int>(copied);
}

bool W32pFreeDataModule(HMODULE module)
{
    DataModules& modules = Modules();
    std::lock_guard<std::mutex> guard(modules.lock);
    auto known = modules.modules.find(static_cast<DataModule*>(module));
    if (known == modules.modules.end())
        return false;
    delete *known;
    modules.modules.erase(known);
    return true;
}
