#include "velshmspinlockobject.h"
#include "korutilitesbtracedef.h"
#include "velstopwatch.h"

namespace
{
const wchar_t* const kMappingName = L"TEST_SHM_0";
constexpr DWORD kMappingSize = 2048;
constexpr unsigned int kRequestedSize = 256; // passed along, not used for the mapping
} // namespace

CVeLShMSpinlockObject::CVeLShMSpinlockObject(const std::wstring& name, unsigned int index)
    : CVeLShMSpinlockObject(name, index, INFINITE)
{
}

CVeLShMSpinlockObject::CVeLShMSpinlockObject(const std::wstring& name, unsigned int index, DWORD timeout)
    : m_view(nullptr), m_lockWord(nullptr), m_timeout(timeout)
{
    if (!OpenShm(name, index, kRequestedSize))
        VEL_TRACE(VEL_ERR, "OpenShm failed!");
}

CVeLShMSpinlockObject::~CVeLShMSpinlockObject() {}

void CVeLShMSpinlockObject::Init(const std::wstring& name, unsigned int index)
{
    if (!OpenShm(name, index, kRequestedSize))
        VEL_TRACE(VEL_ERR, "OpenShm failed!");
}

bool CVeLShMSpinlockObject::OpenShm(const std::wstring& /*name*/, unsigned int index, unsigned int /*size*/)
{
    m_mapping =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kMappingSize, kMappingName);
    if (!m_mapping.IsValid())
        return false;
    void* view = MapViewOfFile(m_mapping.GetHandle(), FILE_MAP_ALL_ACCESS, 0, 0, kMappingSize);
    if (view == nullptr)
    {
        CloseHandle(m_mapping.GetHandle());
        return false;
    }
    m_view = view;
    m_lockWord = reinterpret_cast<volatile LONG*>(static_cast<unsigned char*>(view) +
                                                  static_cast<std::size_t>(index) * 4);
    return true;
}

bool CVeLShMSpinlockObject::Lock()
{
    if (!IsValid())
        return false;
    VEL_TRACE(VEL_DBG3, "Lock called.");
    CVeLStopWatch watch(true);
    if (InterlockedExchange(m_lockWord, 1) == 0)
        return true;
    for (;;)
    {
        if (m_timeout != INFINITE && m_timeout < watch.GetElapsedTime())
            return false;
        if (InterlockedExchange(m_lockWord, 1) == 0)
            return true;
    }
}

bool CVeLShMSpinlockObject::TryLock()
{
    if (!IsValid())
        return false;
    VEL_TRACE(VEL_DBG3, "TryLock called.");
    return InterlockedExchange(m_lockWord, 1) == 0;
}

bool CVeLShMSpinlockObject::Release()
{
    if (!IsValid())
        return false;
    VEL_TRACE(VEL_DBG3, "Reset called.");
    InterlockedExchange(m_lockWord, 0);
    return true;
}

bool CVeLShMSpinlockObject::IsValid() const
{
    return m_mapping.GetHandle() != nullptr && m_view != nullptr && m_lockWord != nullptr;
}

void* CVeLShMSpinlockObject::GetHandle() const
{
    return nullptr;
}

bool CVeLShMSpinlockObject::Reset()
{
    VEL_TRACE(VEL_DBG3, "Reset called.");
    InterlockedExchange(m_lockWord, 0);
    return true;
}
