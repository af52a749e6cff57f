#include "velcompoundfileimpl.h"
#include "korutilitesbtracedef.h"
#include "velpathconverter.h"
#include "velstringconverter.h"

#include <cstring>
#include <new>

namespace
{

constexpr std::size_t kMaxNameLength = 31; // the format's limit for one element name
constexpr ULONG kPieceSize = 1u << 20;

// Releases one interface reference at the end of a scope.
template <typename T>
class Held
{
public:
    explicit Held(T* object = nullptr) : m_object(object) {}
    ~Held()
    {
        if (m_object != nullptr)
            m_object->Release();
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    T* Get() const { return m_object; }
    T** Out() { return &m_object; }

private:
    T* m_object;
};

std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}

// The elements of a "/"-separated path; false (traced) for an empty path or an invalid element name.
bool SplitPath(const std::wstring& path, std::vector<std::wstring>& elements)
{
    elements.clear();
    std::wstring element;
    for (std::size_t i = 0; i <= path.size(); ++i)
    {
        if (i == path.size() || path[i] == L'/')
        {
            if (element.empty() || element.size() > kMaxNameLength ||
                element.find_first_of(L"\\:!") != std::wstring::npos)
            {
                VEL_TRACE(VEL_ERR, "Invalid element path \"%s\"!", Utf8(path).c_str());
                return false;
            }
            elements.push_back(element);
            element.clear();
        }
        else
            element += path[i];
    }
    return true;
}

// The size bytes of stream, read in pieces; a failed result when memory or a read fails.
CVeLResult<CVeLByteArray> ReadWhole(IStream* stream, ULONG size, const std::wstring& path)
{
    std::shared_ptr<unsigned char> buffer(new (std::nothrow) unsigned char[size],
                                          std::default_delete<unsigned char[]>());
    if (!buffer)
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
        return CVeLResult<CVeLByteArray>();
    }
    ULONG done = 0;
    while (done < size)
    {
        ULONG read = 0;
        const ULONG want = size - done < kPieceSize ? size - done : kPieceSize;
        const HRESULT result = stream->Read(buffer.get() + done, want, &read);
        if (FAILED(result) || read == 0)
        {
            VEL_TRACE(VEL_ERR, "Reading stream %s failed (HRESULT 0x%08X)!", Utf8(path).c_str(), result);
            return CVeLResult<CVeLByteArray>();
        }
        done += read;
    }
    return CVeLResult<CVeLByteArray>(true, CVeLByteArray(buffer, size));
}

} // namespace

CVeLCompoundFileImpl::CVeLCompoundFileImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                           std::shared_ptr<IVeLEncryptionHandler> encryption)
    : m_api(std::move(api)), m_encryption(std::move(encryption))
{
    if (!m_api)
        VEL_TRACE(VEL_ERR, "Invalid initialization");
}

CVeLCompoundFileImpl::~CVeLCompoundFileImpl()
{
    Close();
}

bool CVeLCompoundFileImpl::Usable(bool forWriting) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    if (m_root == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No compound file open!");
        return false;
    }
    if (forWriting && !m_writable)
    {
        VEL_TRACE(VEL_ERR, "Compound file is open for reading only!");
        return false;
    }
    return true;
}

bool CVeLCompoundFileImpl::Create(const boost::filesystem::path& file)
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    Close();
    const std::wstring name = CVeLPathConverter::ToWide(file);
    void* root = nullptr;
    const HRESULT result =
        m_api->WAPI_StgCreateStorageEx(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                       STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage, &root);
    if (FAILED(result) || root == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Creating compound file %s failed (HRESULT 0x%08X)!",
                  CVeLPathConverter::ToUtf8(file).c_str(), result);
        return false;
    }
    m_root = static_cast<IStorage*>(root);
    m_writable = true;
    return true;
}

bool CVeLCompoundFileImpl::Open(const boost::filesystem::path& file, bool writable)
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    Close();
    const std::wstring name = CVeLPathConverter::ToWide(file);
    const DWORD mode = writable ? STGM_READWRITE | STGM_SHARE_EXCLUSIVE : STGM_READ | STGM_SHARE_DENY_WRITE;
    void* root = nullptr;
    const HRESULT result = m_api->WAPI_StgOpenStorageEx(name.c_str(), mode, STGFMT_DOCFILE, 0, nullptr,
                                                        nullptr, IID_IStorage, &root);
    if (FAILED(result) || root == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Opening compound file %s failed (HRESULT 0x%08X)!",
                  CVeLPathConverter::ToUtf8(file).c_str(), result);
        return false;
    }
    m_root = static_cast<IStorage*>(root);
    m_writable = writable;
    return true;
}

bool CVeLCompoundFileImpl::Commit()
{
    if (!Usable(true))
        return false;
    const HRESULT result = m_root->Commit(STGC_DEFAULT);
    if (FAILED(result))
    {
        VEL_TRACE(VEL_ERR, "Writing compound file failed (HRESULT 0x%08X)!", result);
        return false;
    }
    return true;
}

bool CVeLCompoundFileImpl::Close()
{
    if (m_root == nullptr)
        return true;
    const bool committed = !m_writable || Commit();
    m_root->Release();
    m_root = nullptr;
    m_writable = false;
    return committed;
}

bool CVeLCompoundFileImpl::IsOpen() const
{
    return m_root != nullptr;
}

IStorage* CVeLCompoundFileImpl::OpenParent(const std::vector<std::wstring>& elements, bool create,
                                           bool writable) const
{
    IStorage* current = m_root;
    current->AddRef();
    const DWORD mode = (create || writable ? STGM_READWRITE : STGM_READ) | STGM_SHARE_EXCLUSIVE;
    for (std::size_t i = 0; i + 1 < elements.size(); ++i)
    {
        Held<IStorage> parent(current);
        IStorage* next = nullptr;
        HRESULT result = parent.Get()->OpenStorage(elements[i].c_str(), nullptr, mode, nullptr, 0, &next);
        if (result == STG_E_FILENOTFOUND && create)
            result = parent.Get()->CreateStorage(elements[i].c_str(), mode, 0, 0, &next);
        if (FAILED(result) || next == nullptr)
        {
            VEL_TRACE(VEL_ERR, "Opening storage %s failed (HRESULT 0x%08X)!", Utf8(elements[i]).c_str(),
                      result);
            return nullptr;
        }
        current = next;
    }
    return current;
}

bool CVeLCompoundFileImpl::WriteStream(const std::wstring& path, const CVeLByteArray& data, bool encrypt)
{
    std::vector<std::wstring> elements;
    if (!Usable(true) || !SplitPath(path, elements))
        return false;
    CVeLByteArray stored = data;
    if (encrypt)
    {
        if (!m_encryption)
        {
            VEL_TRACE(VEL_ERR, "No encryption handler for stream %s!", Utf8(path).c_str());
            return false;
        }
        const CVeLResult<CVeLByteArray> encrypted = m_encryption->EncryptBytes(data);
        if (!encrypted.IsSuccess())
        {
            VEL_TRACE(VEL_ERR, "Encrypting stream %s failed!", Utf8(path).c_str());
            return false;
        }
        stored = encrypted.GetValue();
    }
    Held<IStorage> parent(OpenParent(elements, true, true));
    if (parent.Get() == nullptr)
        return false;
    Held<IStream> stream;
    HRESULT result = parent.Get()->CreateStream(
        elements.back().c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.Out());
    const unsigned char* at = stored.IsValid() ? stored.GetArrayBytes() : nullptr;
    ULONG left = stored.IsValid() ? stored.GetArrayLength() : 0;
    while (SUCCEEDED(result) && left > 0)
    {
        ULONG written = 0;
        result = stream.Get()->Write(at, left < kPieceSize ? left : kPieceSize, &written);
        if (SUCCEEDED(result) && written == 0)
            result = STG_E_WRITEFAULT;
        at += written;
        left -= written;
    }
    if (FAILED(result))
    {
        VEL_TRACE(VEL_ERR, "Writing stream %s failed (HRESULT 0x%08X)!", Utf8(path).c_str(), result);
        return false;
    }
    return true;
}

CVeLResult<CVeLByteArray> CVeLCompoundFileImpl::ReadStream(const std::wstring& path, bool decrypt) const
{
    std::vector<std::wstring> elements;
    if (!Usable(false) || !SplitPath(path, elements))
        return CVeLResult<CVeLByteArray>();
    if (decrypt && !m_encryption)
    {
        VEL_TRACE(VEL_ERR, "No encryption handler for stream %s!", Utf8(path).c_str());
        return CVeLResult<CVeLByteArray>();
    }
    Held<IStorage> parent(OpenParent(elements, false, false));
    if (parent.Get() == nullptr)
        return CVeLResult<CVeLByteArray>();
    Held<IStream> stream;
    HRESULT result = parent.Get()->OpenStream(elements.back().c_str(), nullptr,
                                              STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.Out());
    STATSTG statistics;
    std::memset(&statistics, 0, sizeof statistics);
    if (SUCCEEDED(result))
        result = stream.Get()->Stat(&statistics, STATFLAG_NONAME);
    if (FAILED(result))
    {
        VEL_TRACE(VEL_ERR, "Opening stream %s failed (HRESULT 0x%08X)!", Utf8(path).c_str(), result);
        return CVeLResult<CVeLByteArray>();
    }
    const ULONGLONG size = statistics.cbSize.QuadPart;
    if (size > 0xFFFFFFFFull)
    {
        VEL_TRACE(VEL_ERR, "Stream %s is too large for a byte array!", Utf8(path).c_str());
        return CVeLResult<CVeLByteArray>();
    }
    if (size == 0 && decrypt)
    {
        VEL_TRACE(VEL_ERR, "Stream %s is empty, nothing to decrypt!", Utf8(path).c_str());
        return CVeLResult<CVeLByteArray>();
    }
    if (size == 0)
        return CVeLResult<CVeLByteArray>(true, CVeLByteArray());
    const CVeLResult<CVeLByteArray> content = ReadWhole(stream.Get(), static_cast<ULONG>(size), path);
    if (!content.IsSuccess() || !decrypt)
        return content;
    const CVeLResult<CVeLByteArray> plain = m_encryption->DecryptBytes(content.GetValue());
    if (!plain.IsSuccess())
        VEL_TRACE(VEL_ERR, "Decrypting stream %s failed!", Utf8(path).c_str());
    return plain;
}

bool CVeLCompoundFileImpl::ListStorage(IStorage* storage, const std::wstring& prefix,
                                       std::vector<CVeLCompoundEntry>& entries, int depth) const
{
    if (depth > 64)
    {
        VEL_TRACE(VEL_ERR, "Compound file nests storages too deeply!");
        return false;
    }
    Held<IEnumSTATSTG> enumerator;
    HRESULT result = storage->EnumElements(0, nullptr, 0, enumerator.Out());
    if (FAILED(result))
    {
        VEL_TRACE(VEL_ERR, "Listing storage failed (HRESULT 0x%08X)!", result);
        return false;
    }
    STATSTG statistics;
    while (enumerator.Get()->Next(1, &statistics, nullptr) == S_OK)
    {
        const std::wstring name = statistics.pwcsName != nullptr ? statistics.pwcsName : L"";
        m_api->WAPI_CoTaskMemFree(statistics.pwcsName);
        CVeLCompoundEntry entry;
        entry.path = prefix + name;
        entry.isStorage = statistics.type == STGTY_STORAGE;
        entry.size = entry.isStorage ? 0 : statistics.cbSize.QuadPart;
        entries.push_back(entry);
        if (!entry.isStorage)
            continue;
        Held<IStorage> child;
        result = storage->OpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                      child.Out());
        if (FAILED(result))
        {
            VEL_TRACE(VEL_ERR, "Opening storage %s failed (HRESULT 0x%08X)!", Utf8(entry.path).c_str(),
                      result);
            return false;
        }
        if (!ListStorage(child.Get(), entry.path + L"/", entries, depth + 1))
            return false;
    }
    return true;
}

bool CVeLCompoundFileImpl::ListElements(std::vector<CVeLCompoundEntry>& entries) const
{
    entries.clear();
    return Usable(false) && ListStorage(m_root, std::wstring(), entries, 0);
}

bool CVeLCompoundFileImpl::DeleteElement(const std::wstring& path)
{
    std::vector<std::wstring> elements;
    if (!Usable(true) || !SplitPath(path, elements))
        return false;
    Held<IStorage> parent(OpenParent(elements, false, true));
    if (parent.Get() == nullptr)
        return false;
    const HRESULT result = parent.Get()->DestroyElement(elements.back().c_str());
    if (FAILED(result))
    {
        VEL_TRACE(VEL_ERR, "Deleting %s failed (HRESULT 0x%08X)!", Utf8(path).c_str(), result);
        return false;
    }
    return true;
}
