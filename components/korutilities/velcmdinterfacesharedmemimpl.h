// CVeLCmdInterfaceSharedMemoryImpl: the shared-memory text channel, reached only through the
// operating-system facade it is given. Owns the mapping handle of the named block for its whole life; each
// read and write maps a view for the duration of the call and unmaps it again. The block is 65537 bytes
// backed by the paging file: a little-endian 16-bit length at offset 0, then that many bytes of UTF-8 text
// without terminator. A write leaves the bytes after its text as they were (remains of a longer earlier
// text may follow); readers go by the length only. The object takes no lock: its operations may run on
// several threads, but a reader may observe a write in progress, in this or another process.
//
// Every failure is traced at ERR and answered with false; nothing throws. Decisions of this implementation:
// - A block found under the name (opened, or joined on create) that is smaller than 65537 bytes is
//   refused at construction and the handle is closed, so a foreign object of the same name can never make a
//   read or write run past its end.
// - A text that cannot be converted to UTF-8 at all (longer than one conversion can take) is refused like
//   a text that is too long.
// - When the size of the block cannot be queried, the block is used as it is (traced at WRN), but every
//   view then asks for exactly 65537 bytes instead of "the whole section", so that a smaller section fails
//   to map rather than letting a length read from it reach past its end.
// - ClearDataMemory maps a view and does not unmap it: each clear leaves one view mapped in the calling
//   process until it ends. This is how the channel has always behaved, and it is kept.
// On Linux the named block is a POSIX shared-memory object; it lives while some process holds a handle.
#pragma once

#include "korutilities_export.h"
#include "ivelcmdinterfacesharedmemory.h"
#include "ivelwinapiwrapper.h"
#include "velhandle.h"

#include <memory>
#include <string>

class KORUTILITIES_API CVeLCmdInterfaceSharedMemoryImpl : public IVeLCmdInterfaceSharedMemory
{
public:
    // The size of the block: the 16-bit length and the longest text.
    static const DWORD kBlockSize = 65537;

    // create true makes the block (or joins one of that name), false opens an existing one. A failure
    // (traced with the facade's last error) leaves an object on which every operation fails; so does an
    // empty facade.
    CVeLCmdInterfaceSharedMemoryImpl(std::shared_ptr<IVeLWinAPIWrapper> api, bool create,
                                     const std::wstring& name);
    ~CVeLCmdInterfaceSharedMemoryImpl() override;

    std::wstring GetSharedMemoryName() override;
    bool IsSharedMemoryAvailable() const override;
    // A failed map or unmap is traced with the facade's last error. Invalid UTF-8 in the block reads as
    // U+FFFD.
    bool ReadDataFromMemory(std::wstring& text) const override;
    // A text too long fails and leaves the block unchanged; map and unmap fail as for a read.
    bool WriteDataToMemory(const std::wstring& text) const override;
    // The view stays mapped (see above).
    bool ClearDataMemory() const override;

private:
    void RefuseSmallBlock();
    // A view of the whole block, or null after tracing the failure.
    unsigned char* MapBlock(DWORD access) const;
    bool UnmapBlock(unsigned char* view) const;

    std::wstring m_name;
    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    CVeLHANDLE m_mapping;
    // The bytes each view asks for: 0 (the whole section) once the section is known to hold the block,
    // otherwise the block's size. Set at construction only.
    SIZE_T m_viewLength = kBlockSize;
};
