// Paging-file-backed sections: named in POSIX shared memory (after the object's header page), unnamed in a
// memfd.
// The contract, and where Linux differs from Windows, are in w32p_mapping.h.
#include "w32p_mapping.h"

#include "w32p_file.h"
#include "w32p_waitable.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include <map>
#include <mutex>
#include <vector>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr std::uint64_t kPage = 4096;
// Views start at multiples of this, as on Windows (its allocation granularity).
constexpr std::uint64_t kGranularity = 65536;

// What a section's protection lets views do, and what a handle's access lets its caller map.
enum Rights : unsigned
{
    kMapRead = 1,
    kMapWrite = 2,
    kMapExecute = 4,
};

// The rights a section protection grants (copy-on-write views need only reading); false for anything but
// one of the six page protections, with only the section flags Windows knows beside it.
bool SectionRights(DWORD protect, unsigned& rights)
{
    constexpr DWORD kKnownFlags = SEC_COMMIT | SEC_RESERVE | SEC_NOCACHE | SEC_WRITECOMBINE | SEC_LARGE_PAGES;
    if ((protect & ~(0xFFu | kKnownFlags)) != 0 ||
        (protect & (SEC_COMMIT | SEC_RESERVE)) == (SEC_COMMIT | SEC_RESERVE))
        return false;
    switch (protect & 0xFF)
    {
    case PAGE_READONLY:
    case PAGE_WRITECOPY:
        rights = kMapRead;
        return true;
    case PAGE_READWRITE:
        rights = kMapRead | kMapWrite;
        return true;
    case PAGE_EXECUTE_READ:
    case PAGE_EXECUTE_WRITECOPY:
        rights = kMapRead | kMapExecute;
        return true;
    case PAGE_EXECUTE_READWRITE:
        rights = kMapRead | kMapWrite | kMapExecute;
        return true;
    default:
        return false;
    }
}

// The rights a handle opened with access holds (a right to write views includes reading them).
unsigned HandleRights(DWORD access)
{
    unsigned rights = 0;
    if (access & (SECTION_MAP_READ | GENERIC_READ | GENERIC_ALL))
        rights |= kMapRead;
    if (access & (SECTION_MAP_WRITE | GENERIC_WRITE | GENERIC_ALL))
        rights |= kMapRead | kMapWrite;
    if (access & (SECTION_MAP_EXECUTE | FILE_MAP_EXECUTE | GENERIC_EXECUTE | GENERIC_ALL))
        rights |= kMapExecute;
    return rights;
}

// One mapping of a paging-file-backed section that is handed out again for every view of the same
// range and access. Mapping and unmapping per view costs a system call pair and a page fault per page
// touched; the command channel maps its block on every read and write.
struct SharedView
{
    std::uint64_t offset;
    std::size_t length;
    int protection;
    void* address;
};

class Section : public W32pObject
{
public:
    Section(int fd, std::uint64_t dataOffset, std::uint64_t size, unsigned rights,
            std::shared_ptr<W32pNamedSegment> segment, bool pagingFile)
        : W32pObject(W32pKind::FileMapping), fd(fd), dataOffset(dataOffset), size(size), rights(rights),
          pagingFile(pagingFile), segment(std::move(segment))
    {
    }
    ~Section() override
    {
        for (const SharedView& view : sharedViews)
            munmap(view.address, view.length);
        if (fd >= 0)
            close(fd);
    }
    // Maps length bytes at offset of the section (through a descriptor opened for the call when named).
    void* Map(std::size_t length, int protection, int flags, std::uint64_t offset) const
    {
        const int mapped = segment ? segment->OpenFile() : fd;
        if (mapped < 0)
            return MAP_FAILED;
        void* address =
            mmap(nullptr, length, protection, flags, mapped, static_cast<off_t>(dataOffset + offset));
        const int error = errno;
        if (segment)
            close(mapped);
        if (address == MAP_FAILED)
        {
            errno = error;
            W32pSetLastErrorFromErrno();
        }
        return address;
    }
    const int fd;                   // the memory: the memfd or file (owned); -1 for a named section
    const std::uint64_t dataOffset; // where the section's bytes start in fd
    const std::uint64_t size;       // section size, a multiple of the page size
    const unsigned rights;          // Rights of views: the section's protection and this handle's access
    const bool pagingFile;          // not over a file: its views may be shared and kept mapped
    const std::shared_ptr<W32pNamedSegment> segment; // named sections only
    std::mutex sharedLock;                           // guards sharedViews
    std::vector<SharedView> sharedViews;             // mapped until the section ends
};

struct View
{
    std::size_t length;
    std::shared_ptr<Section> section; // a view keeps its section (and so its name) alive
    bool shared;                      // one of the section's shared views: not unmapped on its own
    std::size_t references;           // MapViewOfFile calls that returned this address and are not unmapped
};

struct Views
{
    std::mutex lock; // guards byAddress
    std::map<std::uintptr_t, View> byAddress;
};

Views& TheViews()
{
    static Views* views = new Views; // never destroyed: views may be unmapped during exit
    return *views;
}
HANDLE InsertSection(std::shared_ptr<Section> section, bool created)
{
    HANDLE handle = W32pInsertHandle(std::move(section));
    if (handle != nullptr)
        SetLastError(created ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return handle;
}

// A section over an open file: the file's size when requested is 0, otherwise requested bytes (a
// writable section extends a shorter file, as on Windows). Named file-backed sections are not offered.
HANDLE CreateFileSection(HANDLE file, unsigned rights, std::uint64_t requested, LPCWSTR name)
{
    if (name != nullptr && *name != L'\0')
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    const int fileFd = W32pFileDescriptorOfHandle(file);
    if (fileFd < 0)
        return nullptr;
    struct stat st;
    if (fstat(fileFd, &st) != 0)
    {
        W32pSetLastErrorFromErrno();
        return nullptr;
    }
    // The file handle must allow what the protection asks for: reading, and writing for a writable section.
    const int mode = fcntl(fileFd, F_GETFL) & O_ACCMODE;
    if (mode == O_WRONLY || ((rights & kMapWrite) && mode != O_RDWR))
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    const bool writable = (rights & kMapWrite) != 0;
    const std::uint64_t fileSize = static_cast<std::uint64_t>(st.st_size);
    const std::uint64_t size = requested != 0 ? requested : fileSize;
    if (size == 0)
    {
        SetLastError(ERROR_FILE_INVALID);
        return nullptr;
    }
    if (size > fileSize)
    {
        if (!writable)
        {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        if (ftruncate(fileFd, static_cast<off_t>(size)) != 0)
        {
            W32pSetLastErrorFromErrno();
            return nullptr;
        }
    }
    const int fd = fcntl(fileFd, F_DUPFD_CLOEXEC, 0); // the section outlives the file handle
    if (fd < 0)
    {
        W32pSetLastErrorFromErrno();
        return nullptr;
    }
    return InsertSection(std::make_shared<Section>(fd, 0, size, rights, nullptr, false), true);
}

// A view of a paging-file-backed section: the section's mapping of that range and access, made on first
// use and kept until the section ends.
LPVOID MapSharedView(std::shared_ptr<Section> section, std::uint64_t offset, std::size_t length,
                     int protection)
{
    void* address = nullptr;
    {
        std::lock_guard<std::mutex> guard(section->sharedLock);
        for (const SharedView& shared : section->sharedViews)
            if (shared.offset == offset && shared.length == length && shared.protection == protection)
                address = shared.address;
        if (address == nullptr)
        {
            address = section->Map(length, protection, MAP_SHARED, offset);
            if (address == MAP_FAILED)
                return nullptr;
            section->sharedViews.push_back(SharedView{offset, length, protection, address});
        }
    }
    Views& views = TheViews();
    std::lock_guard<std::mutex> guard(views.lock);
    auto found = views.byAddress.find(reinterpret_cast<std::uintptr_t>(address));
    if (found != views.byAddress.end())
        ++found->second.references;
    else
        views.byAddress[reinterpret_cast<std::uintptr_t>(address)] =
            View{length, std::move(section), true, 1};
    return address;
}

} // namespace

namespace
{

// The protection of a named section as its creator gave it, kept in its header for later opens (0 in a
// section of an older layout).
DWORD StoredProtection(const W32pNamedHeader& header)
{
    DWORD protect = 0;
    std::memcpy(&protect, &header.reserved[0], sizeof protect);
    return protect;
}

void StoreProtection(W32pNamedHeader& header, DWORD protect)
{
    std::memcpy(&header.reserved[0], &protect, sizeof protect);
}

// The rights a named section's own protection grants (a section of an older layout: read and write).
unsigned NamedSectionRights(const W32pNamedHeader& header)
{
    unsigned rights = kMapRead | kMapWrite;
    if (StoredProtection(header) != 0)
        SectionRights(StoredProtection(header), rights); // checked when it was stored
    return rights;
}

// A named paging-file-backed section of size bytes, or the existing one of that name.
HANDLE CreateNamedSection(LPCWSTR name, DWORD protect, std::uint64_t size)
{
    bool created = false;
    std::shared_ptr<W32pNamedSegment> segment = W32pNamedSegment::Open(
        name, W32pKind::FileMapping, true, size,
        [protect](W32pNamedHeader& header) { StoreProtection(header, protect); }, created);
    if (!segment)
        return nullptr;
    const std::uint64_t existing = segment->Header().sectionSize;
    const unsigned rights = NamedSectionRights(segment->Header());
    return InsertSection(
        std::make_shared<Section>(-1, W32pNamedSegment::kHeaderSize, existing, rights, segment, true),
        created);
}

// The rights a view asked for with access needs (copy tells a copy-on-write view); 0 asks for reading.
unsigned ViewNeeds(DWORD access, bool& copy)
{
    const bool write = (access & FILE_MAP_WRITE) != 0; // also FILE_MAP_ALL_ACCESS: writing wins over copying
    copy = !write && (access & FILE_MAP_COPY) != 0;
    const unsigned execute = (access & FILE_MAP_EXECUTE) != 0 ? kMapExecute : 0u;
    return (write ? kMapRead | kMapWrite : kMapRead) | execute;
}

// Checks a view of length bytes (0: to the end) at offset against the section; false with the error set.
bool ViewFits(const Section& section, std::uint64_t offset, SIZE_T& length)
{
    if (offset % kGranularity != 0)
    {
        SetLastError(ERROR_MAPPED_ALIGNMENT);
        return false;
    }
    if (offset >= section.size)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (length > section.size - offset)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    if (length == 0)
        length = static_cast<SIZE_T>(section.size - offset);
    return true;
}

} // namespace

HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES, DWORD protect, DWORD maximumSizeHigh,
                          DWORD maximumSizeLow, LPCWSTR name)
{
    unsigned rights = 0;
    if (!SectionRights(protect, rights))
    {
        SetLastError((protect & SEC_IMAGE) != 0 ? ERROR_BAD_EXE_FORMAT : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const std::uint64_t requested = (static_cast<std::uint64_t>(maximumSizeHigh) << 32) | maximumSizeLow;
    if (file != INVALID_HANDLE_VALUE)
        return CreateFileSection(file, rights, requested, name);
    if (requested == 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const std::uint64_t size = (requested + kPage - 1) / kPage * kPage;
    if (name != nullptr && *name != L'\0')
        return CreateNamedSection(name, protect, size);
    const int fd = memfd_create("w32p-section", MFD_CLOEXEC);
    if (fd < 0)
    {
        W32pSetLastErrorFromErrno();
        return nullptr;
    }
    if (ftruncate(fd, static_cast<off_t>(size)) != 0)
    {
        W32pSetLastErrorFromErrno();
        close(fd);
        return nullptr;
    }
    return InsertSection(std::make_shared<Section>(fd, 0, size, rights, nullptr, true), true);
}

HANDLE OpenFileMappingW(DWORD desiredAccess, BOOL, LPCWSTR name)
{
    if (name == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (*name == L'\0')
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    bool created = false;
    std::shared_ptr<W32pNamedSegment> segment =
        W32pNamedSegment::Open(name, W32pKind::FileMapping, false, 0, nullptr, created);
    if (!segment)
        return nullptr;
    const unsigned rights = NamedSectionRights(segment->Header()) & HandleRights(desiredAccess);
    return InsertSection(std::make_shared<Section>(-1, W32pNamedSegment::kHeaderSize,
                                                   segment->Header().sectionSize, rights, segment, true),
                         true);
}

LPVOID MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                     SIZE_T bytesToMap)
{
    std::shared_ptr<Section> section = W32pLookupHandleAs<Section>(mapping, W32pKind::FileMapping);
    if (!section)
        return nullptr;
    bool copy = false;
    const unsigned needs = ViewNeeds(desiredAccess, copy);
    if ((needs & section->rights) != needs)
    {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    const std::uint64_t offset = (static_cast<std::uint64_t>(fileOffsetHigh) << 32) | fileOffsetLow;
    SIZE_T length = bytesToMap;
    if (!ViewFits(*section, offset, length))
        return nullptr;
    // Never executable here: shared memory is mounted without execute permission on most systems.
    const int protection = (needs & kMapWrite) || copy ? PROT_READ | PROT_WRITE : PROT_READ;
    if (!copy && section->pagingFile)
        return MapSharedView(std::move(section), offset, length, protection);
    void* address = section->Map(length, protection, copy ? MAP_PRIVATE : MAP_SHARED, offset);
    if (address == MAP_FAILED)
        return nullptr;
    Views& views = TheViews();
    std::lock_guard<std::mutex> guard(views.lock);
    views.byAddress[reinterpret_cast<std::uintptr_t>(address)] = View{length, std::move(section), false, 1};
    return address;
}

BOOL UnmapViewOfFile(LPCVOID baseAddress)
{
    View view;
    {
        Views& views = TheViews();
        std::lock_guard<std::mutex> guard(views.lock);
        auto found = views.byAddress.find(reinterpret_cast<std::uintptr_t>(baseAddress));
        if (found == views.byAddress.end())
        {
            SetLastError(ERROR_INVALID_ADDRESS);
            return FALSE;
        }
        if (--found->second.references != 0)
            return TRUE;
        view = std::move(found->second);
        views.byAddress.erase(found);
    }
    if (!view.shared)
        munmap(const_cast<void*>(baseAddress), view.length);
    return TRUE; // the section (and with it its shared views) may end here, outside the lock
}

bool W32pQuerySectionSize(HANDLE mapping, ULONGLONG& size)
{
    std::shared_ptr<Section> section = W32pLookupHandleAs<Section>(mapping, W32pKind::FileMapping);
    if (!section)
        return false;
    size = section->size;
    return true;
}
