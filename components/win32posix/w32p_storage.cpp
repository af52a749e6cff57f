// Structured storage over libgsf. See w32p_storage.h for the model (whole tree in memory, written back
// complete on commit and at the last release) and where Linux differs from Windows.
#include "w32p_storage.h"
#include "w32p_path.h"

#include <gsf/gsf.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

const IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_ISequentialStream = {
    0x0c733a30, 0x2a1c, 0x11ce, {0xad, 0xe5, 0x00, 0xaa, 0x00, 0x44, 0x77, 0x3d}};
const IID IID_IStream = {0x0000000C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_IStorage = {0x0000000B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_IEnumSTATSTG = {0x0000000D, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const CLSID CLSID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

BOOL IsEqualGUID(REFIID a, REFIID b)
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0 ? TRUE : FALSE;
}

LPVOID CoTaskMemAlloc(SIZE_T size)
{
    return std::malloc(size == 0 ? 1 : size);
}

void CoTaskMemFree(LPVOID memory)
{
    std::free(memory);
}

namespace
{

// The compound file format limits an element name to 31 UTF-16 code units and forbids these characters.
constexpr std::size_t kMaxNameLength = 31;
// A stream larger than this is refused when a file is read: the whole tree is kept in memory.
constexpr gsf_off_t kMaxStreamSize = gsf_off_t(1) << 31;

// One element of a file's tree.
struct Node
{
    bool storage = false;                     // a storage (folder) rather than a stream
    std::wstring name;                        // as given at creation; compared without case
    std::vector<unsigned char> data;          // stream content
    std::vector<std::shared_ptr<Node>> items; // storage children in creation order
    CLSID clsid = CLSID_NULL;                 // storage class
    bool removed = false;                     // destroyed while an object still referred to it
};

// One open compound file. The following fields are protected by lock.
struct Document
{
    std::mutex lock;
    std::string path;           // UTF-8 file name; set once before the document is shared
    bool writable = false;      // set once before the document is shared
    bool dirty = false;         // the tree changed since it was last written
    std::shared_ptr<Node> root; // the tree
};

bool SameName(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::towupper(static_cast<wint_t>(a[i])) != std::towupper(static_cast<wint_t>(b[i])))
            return false;
    return true;
}

// Caller holds the document lock.
std::shared_ptr<Node> FindChildLocked(const Node& storage, const std::wstring& name)
{
    for (const std::shared_ptr<Node>& child : storage.items)
        if (SameName(child->name, name))
            return child;
    return nullptr;
}

HRESULT CheckName(const OLECHAR* name)
{
    if (name == nullptr)
        return STG_E_INVALIDPOINTER;
    const std::size_t length = std::wcslen(name);
    if (length == 0 || length > kMaxNameLength)
        return STG_E_INVALIDNAME;
    for (const OLECHAR* c = name; *c != 0; ++c)
        if (*c == L'/' || *c == L'\\' || *c == L':' || *c == L'!')
            return STG_E_INVALIDNAME;
    return S_OK;
}

bool Writes(DWORD mode)
{
    return (mode & (STGM_WRITE | STGM_READWRITE)) != 0;
}

HRESULT CheckMode(DWORD mode)
{
    const DWORD access = mode & 3;
    const DWORD share = mode & 0x70;
    if (access == 3 || (share != 0 && share != STGM_SHARE_DENY_NONE && share != STGM_SHARE_DENY_READ &&
                        share != STGM_SHARE_DENY_WRITE && share != STGM_SHARE_EXCLUSIVE))
        return STG_E_INVALIDFLAG;
    return S_OK;
}

void Fill(STATSTG* statistics, const Node& node, DWORD mode, DWORD flags)
{
    std::memset(statistics, 0, sizeof *statistics);
    statistics->type = node.storage ? STGTY_STORAGE : STGTY_STREAM;
    statistics->cbSize.QuadPart = node.storage ? 0 : node.data.size();
    statistics->grfMode = mode;
    statistics->clsid = node.clsid;
    if ((flags & STATFLAG_NONAME) == 0)
    {
        const std::size_t bytes = (node.name.size() + 1) * sizeof(OLECHAR);
        statistics->pwcsName = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
        if (statistics->pwcsName != nullptr)
            std::memcpy(statistics->pwcsName, node.name.c_str(), bytes);
    }
}

// ---- Reading and writing the format through libgsf ----

void EnsureGsf()
{
    static std::once_flag once;
    std::call_once(once, [] { gsf_init(); });
}

std::wstring FromGsfName(const char* utf8)
{
    return W32pUtf8ToWide(utf8 != nullptr ? utf8 : "");
}

// Reads the children of infile into storage; false when a stream cannot be read whole.
bool LoadChildren(GsfInfile* infile, Node& storage, int depth)
{
    if (depth > 64)
        return false; // a deeper tree than any writer makes: treat as corrupt rather than recurse on
    const int count = gsf_infile_num_children(infile);
    for (int i = 0; i < count; ++i)
    {
        GsfInput* child = gsf_infile_child_by_index(infile, i);
        if (child == nullptr)
            return false;
        auto node = std::make_shared<Node>();
        node->name = FromGsfName(gsf_input_name(child));
        bool ok = true;
        if (GSF_IS_INFILE(child) && gsf_infile_num_children(GSF_INFILE(child)) >= 0)
        {
            node->storage = true;
            guint8 clsid[16];
            if (gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(child), clsid))
                std::memcpy(&node->clsid, clsid, sizeof clsid);
            ok = LoadChildren(GSF_INFILE(child), *node, depth + 1);
        }
        else
        {
            const gsf_off_t size = gsf_input_size(child);
            ok = size >= 0 && size <= kMaxStreamSize;
            if (ok && size > 0)
            {
                node->data.resize(static_cast<std::size_t>(size));
                ok = gsf_input_read(child, static_cast<size_t>(size), node->data.data()) != nullptr;
            }
        }
        g_object_unref(child);
        if (!ok)
            return false;
        storage.items.push_back(node);
    }
    return true;
}

bool SaveChildren(GsfOutfile* outfile, const Node& storage)
{
    for (const std::shared_ptr<Node>& child : storage.items)
    {
        const std::string name = W32pWideToUtf8(child->name);
        GsfOutput* output = gsf_outfile_new_child(outfile, name.c_str(), child->storage ? TRUE : FALSE);
        if (output == nullptr)
            return false;
        bool ok = true;
        if (child->storage)
        {
            gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(output),
                                           reinterpret_cast<const guint8*>(&child->clsid));
            ok = SaveChildren(GSF_OUTFILE(output), *child);
        }
        else if (!child->data.empty())
            ok = gsf_output_write(output, child->data.size(), child->data.data()) != FALSE;
        ok = gsf_output_close(output) != FALSE && ok;
        g_object_unref(output);
        if (!ok)
            return false;
    }
    return true;
}

HRESULT ErrorOfErrno(int error)
{
    switch (error)
    {
    case ENOENT:
    case ENOTDIR:
        return STG_E_PATHNOTFOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return STG_E_ACCESSDENIED;
    case ENOSPC:
    case EDQUOT:
        return STG_E_MEDIUMFULL;
    default:
        return STG_E_WRITEFAULT;
    }
}

// Writes the whole tree as a compound file. Caller holds the document lock.
HRESULT SaveLocked(Document& document)
{
    EnsureGsf();
    // libgsf writes to a temporary name beside the file and renames it over the file when closed, so a
    // failed write leaves the previous file as it was.
    GError* error = nullptr;
    errno = 0;
    GsfOutput* sink = gsf_output_stdio_new(document.path.c_str(), &error);
    if (sink == nullptr)
    {
        const int saved = errno;
        if (error != nullptr)
            g_error_free(error);
        return ErrorOfErrno(saved);
    }
    GsfOutfile* outfile = gsf_outfile_msole_new(sink);
    bool ok = outfile != nullptr;
    if (ok)
    {
        gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(outfile),
                                       reinterpret_cast<const guint8*>(&document.root->clsid));
        ok = SaveChildren(outfile, *document.root);
        ok = gsf_output_close(GSF_OUTPUT(outfile)) != FALSE && ok;
        g_object_unref(outfile);
    }
    // Closing the compound writer closes its sink too (and renames the temporary file into place).
    if (!gsf_output_is_closed(sink))
        ok = gsf_output_close(sink) != FALSE && ok;
    g_object_unref(sink);
    if (!ok)
        return STG_E_WRITEFAULT;
    document.dirty = false;
    return S_OK;
}

HRESULT Load(Document& document)
{
    EnsureGsf();
    struct stat st;
    if (stat(document.path.c_str(), &st) != 0)
        return errno == ENOENT ? STG_E_FILENOTFOUND : ErrorOfErrno(errno);
    if (!S_ISREG(st.st_mode))
        return STG_E_ACCESSDENIED;
    GError* error = nullptr;
    GsfInput* input = gsf_input_stdio_new(document.path.c_str(), &error);
    if (input == nullptr)
    {
        const int saved = errno;
        if (error != nullptr)
            g_error_free(error);
        return saved == EACCES ? STG_E_ACCESSDENIED : STG_E_FILENOTFOUND;
    }
    // A file that does not start with the format's signature is not a compound file; Windows answers
    // that with STG_E_FILEALREADYEXISTS.
    static const guint8 signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    const guint8* head = gsf_input_size(input) >= 8 ? gsf_input_read(input, 8, nullptr) : nullptr;
    if (head == nullptr || std::memcmp(head, signature, 8) != 0)
    {
        g_object_unref(input);
        return STG_E_FILEALREADYEXISTS;
    }
    gsf_input_seek(input, 0, G_SEEK_SET);
    GsfInfile* infile = gsf_infile_msole_new(input, &error);
    g_object_unref(input);
    if (infile == nullptr)
    {
        if (error != nullptr)
            g_error_free(error);
        return STG_E_DOCFILECORRUPT;
    }
    document.root = std::make_shared<Node>();
    document.root->storage = true;
    document.root->name = L"Root Entry";
    guint8 clsid[16];
    if (gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(infile), clsid))
        std::memcpy(&document.root->clsid, clsid, sizeof clsid);
    const bool ok = LoadChildren(infile, *document.root, 0);
    g_object_unref(infile);
    return ok ? S_OK : STG_E_DOCFILECORRUPT;
}

// ---- The COM objects ----

// Reference counting shared by the three object kinds; each deletes itself at its last Release.
template <typename Interface>
class Counted : public Interface
{
public:
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --m_references;
        if (left == 0)
            delete this;
        return left;
    }

protected:
    virtual ~Counted() = default;
    HRESULT Answer(REFIID riid, const IID& own, void** object)
    {
        if (object == nullptr)
            return E_POINTER;
        if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, own))
        {
            *object = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }

private:
    std::atomic<ULONG> m_references{1};
};

// Keeps a document open; the last holder writes back what changed since the last commit.
struct DocumentHold
{
    explicit DocumentHold(std::shared_ptr<Document> document) : document(std::move(document)) {}
    ~DocumentHold()
    {
        std::lock_guard<std::mutex> guard(document->lock);
        if (document->writable && document->dirty)
            SaveLocked(*document); // no one is left to be told of a failure; Commit reports it
    }
    std::shared_ptr<Document> document;
};

class Stream final : public Counted<IStream>
{
public:
    Stream(std::shared_ptr<DocumentHold> hold, std::shared_ptr<Node> node, DWORD mode)
        : m_hold(std::move(hold)), m_node(std::move(node)), m_mode(mode)
    {
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (object != nullptr && IsEqualGUID(riid, IID_ISequentialStream))
        {
            *object = static_cast<IStream*>(this);
            AddRef();
            return S_OK;
        }
        return Answer(riid, IID_IStream, object);
    }

    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override
    {
        if (read != nullptr)
            *read = 0;
        if (buffer == nullptr && count > 0)
            return STG_E_INVALIDPOINTER;
        std::lock_guard<std::mutex> guard(Lock());
        if (m_node->removed)
            return STG_E_REVERTED;
        const std::vector<unsigned char>& data = m_node->data;
        const ULONGLONG available = m_position < data.size() ? data.size() - m_position : 0;
        const ULONG n = static_cast<ULONG>(available < count ? available : count);
        if (n > 0)
            std::memcpy(buffer, data.data() + m_position, n);
        m_position += n;
        if (read != nullptr)
            *read = n;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override
    {
        if (written != nullptr)
            *written = 0;
        if (buffer == nullptr && count > 0)
            return STG_E_INVALIDPOINTER;
        if (!Writes(m_mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(Lock());
        if (m_node->removed)
            return STG_E_REVERTED;
        std::vector<unsigned char>& data = m_node->data;
        const ULONGLONG end = m_position + count;
        if (end > static_cast<ULONGLONG>(kMaxStreamSize))
            return STG_E_MEDIUMFULL;
        try
        {
            if (end > data.size())
                data.resize(static_cast<std::size_t>(end));
        }
        catch (const std::bad_alloc&)
        {
            return E_OUTOFMEMORY;
        }
        if (count > 0)
            std::memcpy(data.data() + m_position, buffer, count);
        m_position = end;
        m_hold->document->dirty = true;
        if (written != nullptr)
            *written = count;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override
    {
        std::lock_guard<std::mutex> guard(Lock());
        LONGLONG base;
        switch (origin)
        {
        case STREAM_SEEK_SET:
            base = 0;
            break;
        case STREAM_SEEK_CUR:
            base = static_cast<LONGLONG>(m_position);
            break;
        case STREAM_SEEK_END:
            base = static_cast<LONGLONG>(m_node->data.size());
            break;
        default:
            return STG_E_INVALIDFUNCTION;
        }
        const LONGLONG target = base + move.QuadPart;
        if (target < 0)
            return STG_E_INVALIDFUNCTION;
        m_position = static_cast<ULONGLONG>(target);
        if (newPosition != nullptr)
            newPosition->QuadPart = m_position;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER newSize) override
    {
        if (!Writes(m_mode))
            return STG_E_ACCESSDENIED;
        if (newSize.QuadPart > static_cast<ULONGLONG>(kMaxStreamSize))
            return STG_E_MEDIUMFULL;
        std::lock_guard<std::mutex> guard(Lock());
        if (m_node->removed)
            return STG_E_REVERTED;
        try
        {
            m_node->data.resize(static_cast<std::size_t>(newSize.QuadPart));
        }
        catch (const std::bad_alloc&)
        {
            return E_OUTOFMEMORY;
        }
        m_hold->document->dirty = true;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override
    {
        return STG_E_UNIMPLEMENTEDFUNCTION;
    }
    // Streams have no transaction of their own; the file is written when a storage commits.
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }

    HRESULT STDMETHODCALLTYPE Stat(STATSTG* statistics, DWORD flags) override
    {
        if (statistics == nullptr)
            return STG_E_INVALIDPOINTER;
        std::lock_guard<std::mutex> guard(Lock());
        Fill(statistics, *m_node, m_mode, flags);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return STG_E_UNIMPLEMENTEDFUNCTION; }

private:
    std::mutex& Lock() { return m_hold->document->lock; }

    std::shared_ptr<DocumentHold> m_hold;
    std::shared_ptr<Node> m_node;
    const DWORD m_mode;
    ULONGLONG m_position = 0; // guarded by the document lock
};

class Enumerator final : public Counted<IEnumSTATSTG>
{
public:
    explicit Enumerator(std::vector<std::shared_ptr<Node>> items) : m_items(std::move(items)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return Answer(riid, IID_IEnumSTATSTG, object);
    }

    // The snapshot taken at EnumElements: later changes of the storage are not seen.
    HRESULT STDMETHODCALLTYPE Next(ULONG count, STATSTG* elements, ULONG* fetched) override
    {
        if (elements == nullptr || (count > 1 && fetched == nullptr))
            return STG_E_INVALIDPOINTER;
        ULONG n = 0;
        while (n < count && m_next < m_items.size())
            Fill(&elements[n++], *m_items[m_next++], 0, STATFLAG_DEFAULT);
        if (fetched != nullptr)
            *fetched = n;
        return n == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const std::size_t left = m_items.size() - m_next;
        m_next += count < left ? count : left;
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_next = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumSTATSTG** clone) override
    {
        if (clone == nullptr)
            return STG_E_INVALIDPOINTER;
        auto* copy = new (std::nothrow) Enumerator(m_items);
        if (copy == nullptr)
            return E_OUTOFMEMORY;
        copy->m_next = m_next;
        *clone = copy;
        return S_OK;
    }

private:
    std::vector<std::shared_ptr<Node>> m_items; // copies of the element records' owners
    std::size_t m_next = 0;                     // one enumerator serves one thread, as on Windows
};

class Storage final : public Counted<IStorage>
{
public:
    Storage(std::shared_ptr<DocumentHold> hold, std::shared_ptr<Node> node, DWORD mode)
        : m_hold(std::move(hold)), m_node(std::move(node)), m_mode(mode)
    {
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return Answer(riid, IID_IStorage, object);
    }

    HRESULT STDMETHODCALLTYPE CreateStream(const OLECHAR* name, DWORD mode, DWORD, DWORD,
                                           IStream** stream) override
    {
        return CreateElement(name, mode, false, reinterpret_cast<void**>(stream));
    }

    HRESULT STDMETHODCALLTYPE OpenStream(const OLECHAR* name, void*, DWORD mode, DWORD,
                                         IStream** stream) override
    {
        return OpenElement(name, mode, false, reinterpret_cast<void**>(stream));
    }

    HRESULT STDMETHODCALLTYPE CreateStorage(const OLECHAR* name, DWORD mode, DWORD, DWORD,
                                            IStorage** storage) override
    {
        return CreateElement(name, mode, true, reinterpret_cast<void**>(storage));
    }

    HRESULT STDMETHODCALLTYPE OpenStorage(const OLECHAR* name, IStorage* priority, DWORD mode, SNB exclude,
                                          DWORD, IStorage** storage) override
    {
        if (priority != nullptr || exclude != nullptr)
            return STG_E_UNIMPLEMENTEDFUNCTION;
        return OpenElement(name, mode, true, reinterpret_cast<void**>(storage));
    }

    HRESULT STDMETHODCALLTYPE CopyTo(DWORD, const IID*, SNB, IStorage*) override
    {
        return STG_E_UNIMPLEMENTEDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE MoveElementTo(const OLECHAR*, IStorage*, const OLECHAR*, DWORD) override
    {
        return STG_E_UNIMPLEMENTEDFUNCTION;
    }

    // Writes the whole file, whichever storage of it commits.
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override
    {
        Document& document = *m_hold->document;
        std::lock_guard<std::mutex> guard(document.lock);
        if (!document.writable || !document.dirty)
            return S_OK;
        return SaveLocked(document);
    }

    HRESULT STDMETHODCALLTYPE Revert() override { return STG_E_UNIMPLEMENTEDFUNCTION; }

    HRESULT STDMETHODCALLTYPE EnumElements(DWORD, void*, DWORD, IEnumSTATSTG** enumerator) override
    {
        if (enumerator == nullptr)
            return STG_E_INVALIDPOINTER;
        *enumerator = nullptr;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        if (m_node->removed)
            return STG_E_REVERTED;
        auto* created = new (std::nothrow) Enumerator(m_node->items);
        if (created == nullptr)
            return E_OUTOFMEMORY;
        *enumerator = created;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE DestroyElement(const OLECHAR* name) override
    {
        const HRESULT valid = CheckName(name);
        if (FAILED(valid))
            return valid;
        if (!Writes(m_mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        if (m_node->removed)
            return STG_E_REVERTED;
        std::vector<std::shared_ptr<Node>>& items = m_node->items;
        for (auto it = items.begin(); it != items.end(); ++it)
            if (SameName((*it)->name, name))
            {
                MarkRemoved(**it);
                items.erase(it);
                m_hold->document->dirty = true;
                return S_OK;
            }
        return STG_E_FILENOTFOUND;
    }

    HRESULT STDMETHODCALLTYPE RenameElement(const OLECHAR* oldName, const OLECHAR* newName) override
    {
        HRESULT valid = CheckName(oldName);
        if (SUCCEEDED(valid))
            valid = CheckName(newName);
        if (FAILED(valid))
            return valid;
        if (!Writes(m_mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        std::shared_ptr<Node> node = FindChildLocked(*m_node, oldName);
        if (!node)
            return STG_E_FILENOTFOUND;
        if (FindChildLocked(*m_node, newName))
            return STG_E_ACCESSDENIED;
        node->name = newName;
        m_hold->document->dirty = true;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetElementTimes(const OLECHAR*, const FILETIME*, const FILETIME*,
                                              const FILETIME*) override
    {
        return S_OK; // element times are not kept (see the header)
    }

    HRESULT STDMETHODCALLTYPE SetClass(REFCLSID clsid) override
    {
        if (!Writes(m_mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        m_node->clsid = clsid;
        m_hold->document->dirty = true;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetStateBits(DWORD, DWORD) override { return STG_E_UNIMPLEMENTEDFUNCTION; }

    HRESULT STDMETHODCALLTYPE Stat(STATSTG* statistics, DWORD flags) override
    {
        if (statistics == nullptr)
            return STG_E_INVALIDPOINTER;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        Fill(statistics, *m_node, m_mode, flags);
        return S_OK;
    }

private:
    static void MarkRemoved(Node& node)
    {
        node.removed = true;
        for (const std::shared_ptr<Node>& child : node.items)
            MarkRemoved(*child);
    }

    void* MakeObject(const std::shared_ptr<Node>& node, DWORD mode)
    {
        if (node->storage)
            return static_cast<IStorage*>(new (std::nothrow) Storage(m_hold, node, mode));
        return static_cast<IStream*>(new (std::nothrow) Stream(m_hold, node, mode));
    }

    HRESULT CreateElement(const OLECHAR* name, DWORD mode, bool storage, void** object)
    {
        if (object == nullptr)
            return STG_E_INVALIDPOINTER;
        *object = nullptr;
        HRESULT valid = CheckName(name);
        if (SUCCEEDED(valid))
            valid = CheckMode(mode);
        if (FAILED(valid))
            return valid;
        if (!Writes(m_mode) || !Writes(mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        if (m_node->removed)
            return STG_E_REVERTED;
        std::vector<std::shared_ptr<Node>>& items = m_node->items;
        for (auto it = items.begin(); it != items.end(); ++it)
            if (SameName((*it)->name, name))
            {
                if ((mode & STGM_CREATE) == 0)
                    return STG_E_FILEALREADYEXISTS;
                MarkRemoved(**it);
                items.erase(it);
                break;
            }
        auto node = std::make_shared<Node>();
        node->storage = storage;
        node->name = name;
        items.push_back(node);
        m_hold->document->dirty = true;
        *object = MakeObject(node, mode);
        return *object != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT OpenElement(const OLECHAR* name, DWORD mode, bool storage, void** object)
    {
        if (object == nullptr)
            return STG_E_INVALIDPOINTER;
        *object = nullptr;
        HRESULT valid = CheckName(name);
        if (SUCCEEDED(valid))
            valid = CheckMode(mode);
        if (FAILED(valid))
            return valid;
        if ((mode & STGM_CREATE) != 0)
            return STG_E_INVALIDFLAG;
        if (Writes(mode) && !Writes(m_mode))
            return STG_E_ACCESSDENIED;
        std::lock_guard<std::mutex> guard(m_hold->document->lock);
        if (m_node->removed)
            return STG_E_REVERTED;
        std::shared_ptr<Node> node = FindChildLocked(*m_node, name);
        if (!node || node->storage != storage)
            return STG_E_FILENOTFOUND;
        *object = MakeObject(node, mode);
        return *object != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    std::shared_ptr<DocumentHold> m_hold;
    std::shared_ptr<Node> m_node;
    const DWORD m_mode;
};

HRESULT Begin(const WCHAR* name, DWORD mode, DWORD format, REFIID riid, void** object,
              std::shared_ptr<Document>& document)
{
    if (object == nullptr)
        return STG_E_INVALIDPOINTER;
    *object = nullptr;
    if (name == nullptr)
        return STG_E_INVALIDNAME;
    if (format != STGFMT_DOCFILE && format != STGFMT_STORAGE && format != STGFMT_ANY)
        return STG_E_INVALIDPARAMETER;
    if (!IsEqualGUID(riid, IID_IStorage))
        return E_NOINTERFACE;
    const HRESULT valid = CheckMode(mode);
    if (FAILED(valid))
        return valid;
    document = std::make_shared<Document>();
    if (!W32pPathToUtf8(name, document->path) || document->path.empty())
        return STG_E_INVALIDNAME;
    document->writable = Writes(mode);
    return S_OK;
}

HRESULT Finish(const std::shared_ptr<Document>& document, DWORD mode, void** object)
{
    auto hold = std::make_shared<DocumentHold>(document);
    auto* storage = new (std::nothrow) Storage(hold, document->root, mode);
    if (storage == nullptr)
        return E_OUTOFMEMORY;
    *object = static_cast<IStorage*>(storage);
    return S_OK;
}

} // namespace

HRESULT StgCreateStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD /*attributes*/,
                           STGOPTIONS* /*options*/, PSECURITY_DESCRIPTOR /*securityDescriptor*/, REFIID riid,
                           void** object)
{
    std::shared_ptr<Document> document;
    HRESULT result = Begin(name, mode, format, riid, object, document);
    if (FAILED(result))
        return result;
    if (!document->writable)
        return STG_E_INVALIDFLAG;
    struct stat st;
    if ((mode & STGM_CREATE) == 0 && lstat(document->path.c_str(), &st) == 0)
        return STG_E_FILEALREADYEXISTS;
    document->root = std::make_shared<Node>();
    document->root->storage = true;
    document->root->name = L"Root Entry";
    {
        std::lock_guard<std::mutex> guard(document->lock);
        result = SaveLocked(*document);
    }
    return FAILED(result) ? result : Finish(document, mode, object);
}

HRESULT StgOpenStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD /*attributes*/,
                         STGOPTIONS* /*options*/, PSECURITY_DESCRIPTOR /*securityDescriptor*/, REFIID riid,
                         void** object)
{
    std::shared_ptr<Document> document;
    HRESULT result = Begin(name, mode, format, riid, object, document);
    if (FAILED(result))
        return result;
    if ((mode & STGM_CREATE) != 0)
        return STG_E_INVALIDFLAG;
    if (document->writable && access(document->path.c_str(), W_OK) != 0 && errno == EACCES)
        return STG_E_ACCESSDENIED;
    result = Load(*document);
    return FAILED(result) ? result : Finish(document, mode, object);
}
