// Structured storage: StgCreateStorageEx, StgOpenStorageEx and the IStorage, IStream and IEnumSTATSTG
// interfaces they hand out, writing and reading the compound file binary format through libgsf.
//
// The interfaces have the Windows method order, so code written against the Windows declarations calls
// them unchanged; the objects are reference-counted and end at their last Release. Text is wchar_t.
//
// How it works: libgsf reads a compound file or writes a new one but cannot change one in place, so a
// storage file is read whole into a tree of storages and streams in memory when it is opened, every change
// is made to that tree, and the tree is written back as a complete compound file (to a temporary name
// beside the file, then renamed over it) when any storage of the file is committed and again, if anything
// changed since, when the last object of the file is released. Streams therefore live in memory while the
// file is open; this layer is meant for settings and licence files, not for gigabytes.
//
// Linux differs: the share flags are checked for validity but not enforced between processes (two
// processes that open one file for writing each write their own tree; the last writer wins); transacted
// mode behaves like direct mode (Revert is not supported); element times are not kept; sub-storage and
// stream opens do not require STGM_SHARE_EXCLUSIVE. Objects of one file may be used from several threads:
// one lock per file guards its tree.
#pragma once

#include "w32p_base.h"

typedef LONG HRESULT;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef OLECHAR** SNB;
typedef void* PSECURITY_DESCRIPTOR;
typedef unsigned short USHORT;

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define STDMETHODCALLTYPE

#ifndef S_OK
#define S_OK static_cast<HRESULT>(0)
#endif
#define S_FALSE static_cast<HRESULT>(1)
#define E_NOTIMPL static_cast<HRESULT>(0x80004001)
#define E_NOINTERFACE static_cast<HRESULT>(0x80004002)
#define E_POINTER static_cast<HRESULT>(0x80004003)
#ifndef E_FAIL
#define E_FAIL static_cast<HRESULT>(0x80004005)
#endif
#define E_OUTOFMEMORY static_cast<HRESULT>(0x8007000E)
#ifndef E_INVALIDARG
#define E_INVALIDARG static_cast<HRESULT>(0x80070057)
#endif
#define STG_E_INVALIDFUNCTION static_cast<HRESULT>(0x80030001)
#define STG_E_FILENOTFOUND static_cast<HRESULT>(0x80030002)
#define STG_E_PATHNOTFOUND static_cast<HRESULT>(0x80030003)
#define STG_E_ACCESSDENIED static_cast<HRESULT>(0x80030005)
#define STG_E_INVALIDPOINTER static_cast<HRESULT>(0x80030009)
#define STG_E_SEEKERROR static_cast<HRESULT>(0x80030019)
#define STG_E_WRITEFAULT static_cast<HRESULT>(0x8003001D)
#define STG_E_READFAULT static_cast<HRESULT>(0x8003001E)
#define STG_E_FILEALREADYEXISTS static_cast<HRESULT>(0x80030050)
#define STG_E_INVALIDPARAMETER static_cast<HRESULT>(0x80030057)
#define STG_E_MEDIUMFULL static_cast<HRESULT>(0x80030070)
#define STG_E_INVALIDHEADER static_cast<HRESULT>(0x800300FB)
#define STG_E_INVALIDNAME static_cast<HRESULT>(0x800300FC)
#define STG_E_UNIMPLEMENTEDFUNCTION static_cast<HRESULT>(0x800300FE)
#define STG_E_INVALIDFLAG static_cast<HRESULT>(0x800300FF)
#define STG_E_REVERTED static_cast<HRESULT>(0x80030102)
#define STG_E_DOCFILECORRUPT static_cast<HRESULT>(0x80030109)

#define STGM_DIRECT 0x00000000L
#define STGM_TRANSACTED 0x00010000L
#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L
#define STGM_SHARE_DENY_NONE 0x00000040L
#define STGM_SHARE_DENY_READ 0x00000030L
#define STGM_SHARE_DENY_WRITE 0x00000020L
#define STGM_SHARE_EXCLUSIVE 0x00000010L
#define STGM_FAILIFTHERE 0x00000000L
#define STGM_CREATE 0x00001000L

#define STGFMT_STORAGE 0
#define STGFMT_FILE 3
#define STGFMT_ANY 4
#define STGFMT_DOCFILE 5

#define STGTY_STORAGE 1
#define STGTY_STREAM 2
#define STATFLAG_DEFAULT 0
#define STATFLAG_NONAME 1
#define STGC_DEFAULT 0
#define STREAM_SEEK_SET 0
#define STREAM_SEEK_CUR 1
#define STREAM_SEEK_END 2

// Guarded as in the Windows headers, so that another area of this layer may define it too.
#ifndef GUID_DEFINED
#define GUID_DEFINED
typedef struct _GUID
{
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
} GUID;
#endif
typedef GUID IID;
typedef GUID CLSID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

W32P_API extern const IID IID_IUnknown;
W32P_API extern const IID IID_ISequentialStream;
W32P_API extern const IID IID_IStream;
W32P_API extern const IID IID_IStorage;
W32P_API extern const IID IID_IEnumSTATSTG;
W32P_API extern const CLSID CLSID_NULL;
W32P_API BOOL IsEqualGUID(REFIID a, REFIID b);

typedef struct tagSTGOPTIONS
{
    USHORT usVersion;
    USHORT reserved;
    ULONG ulSectorSize;
    const WCHAR* pwcsTemplateFile;
} STGOPTIONS;

typedef struct tagSTATSTG
{
    LPOLESTR pwcsName; // allocated with CoTaskMemAlloc; the caller frees it with CoTaskMemFree
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
} STATSTG;

struct IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};

struct ISequentialStream : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) = 0;

protected:
    ~ISequentialStream() = default;
};

struct IStream : ISequentialStream
{
    virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER newSize) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                             ULARGE_INTEGER* written) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
    virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count,
                                                   DWORD type) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* statistics, DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IStream** clone) = 0;

protected:
    ~IStream() = default;
};

struct IEnumSTATSTG : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, STATSTG* elements, ULONG* fetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumSTATSTG** clone) = 0;

protected:
    ~IEnumSTATSTG() = default;
};

struct IStorage : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE CreateStream(const OLECHAR* name, DWORD mode, DWORD reserved1,
                                                   DWORD reserved2, IStream** stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStream(const OLECHAR* name, void* reserved1, DWORD mode,
                                                 DWORD reserved2, IStream** stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateStorage(const OLECHAR* name, DWORD mode, DWORD reserved1,
                                                    DWORD reserved2, IStorage** storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenStorage(const OLECHAR* name, IStorage* priority, DWORD mode,
                                                  SNB exclude, DWORD reserved, IStorage** storage) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyTo(DWORD excludeCount, const IID* excludeIids, SNB exclude,
                                             IStorage* target) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveElementTo(const OLECHAR* name, IStorage* target,
                                                    const OLECHAR* newName, DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumElements(DWORD reserved1, void* reserved2, DWORD reserved3,
                                                   IEnumSTATSTG** enumerator) = 0;
    virtual HRESULT STDMETHODCALLTYPE DestroyElement(const OLECHAR* name) = 0;
    virtual HRESULT STDMETHODCALLTYPE RenameElement(const OLECHAR* oldName, const OLECHAR* newName) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetElementTimes(const OLECHAR* name, const FILETIME* created,
                                                      const FILETIME* accessed, const FILETIME* modified) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetClass(REFCLSID clsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetStateBits(DWORD stateBits, DWORD mask) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* statistics, DWORD flags) = 0;

protected:
    ~IStorage() = default;
};

W32P_API LPVOID CoTaskMemAlloc(SIZE_T size);
W32P_API void CoTaskMemFree(LPVOID memory);

// Creates a compound file (format STGFMT_DOCFILE or STGFMT_STORAGE, interface IID_IStorage). With
// STGM_CREATE an existing file is replaced; without it an existing file fails with STG_E_FILEALREADYEXISTS.
// The empty file is written at once, so a missing folder (STG_E_PATHNOTFOUND) or a read-only place
// (STG_E_ACCESSDENIED) fails here. Options, attributes and the security descriptor are ignored.
W32P_API HRESULT StgCreateStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                    STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                    void** object);
// Opens a compound file: STG_E_FILENOTFOUND when missing, STG_E_FILEALREADYEXISTS when the file is not a
// compound file (as Windows answers), STG_E_DOCFILECORRUPT when its structure cannot be read.
W32P_API HRESULT StgOpenStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                  STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                  void** object);
