#include "velencryptionhandlerimpl.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velstringconverter.h"

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

namespace
{

void Wipe(std::vector<unsigned char>& bytes)
{
    volatile unsigned char* p = bytes.data();
    for (std::size_t i = 0; i < bytes.size(); ++i)
        p[i] = 0;
}

std::shared_ptr<unsigned char> Allocate(ULONG size)
{
    return std::shared_ptr<unsigned char>(new (std::nothrow) unsigned char[size],
                                          std::default_delete<unsigned char[]>());
}

} // namespace

CVeLEncryptionHandlerImpl::CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                     const std::wstring& key)
    : m_ivSize(0), m_randomProvider(nullptr), m_cryptoProvider(nullptr), m_key(nullptr), m_api(std::move(api))
{
    // A wide-string key is its UTF-16LE code units on every platform.
    std::vector<unsigned char> bytes = CVeLStringConverter::ConvertStdWStringToUTF16LE(key);
    Initialize(bytes.data(), static_cast<ULONG>(bytes.size()));
    Wipe(bytes);
}

CVeLEncryptionHandlerImpl::CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                     const CVeLByteArray& key)
    : m_ivSize(0), m_randomProvider(nullptr), m_cryptoProvider(nullptr), m_key(nullptr), m_api(std::move(api))
{
    Initialize(key.IsValid() ? key.GetArrayBytes() : nullptr, key.GetArrayLength());
}

CVeLEncryptionHandlerImpl::CVeLEncryptionHandlerImpl(std::shared_ptr<IVeLWinAPIWrapper> api,
                                                     unsigned char* const key, ULONG keySize)
    : m_ivSize(0), m_randomProvider(nullptr), m_cryptoProvider(nullptr), m_key(nullptr), m_api(std::move(api))
{
    Initialize(key, keySize);
}

void CVeLEncryptionHandlerImpl::Initialize(unsigned char* key, ULONG keySize)
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    if (key == nullptr || keySize == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return;
    }
    CVeLResult<LONG> status =
        m_api->WAPI_BCryptOpenAlgorithmProvider(&m_randomProvider, BCRYPT_RNG_ALGORITHM, nullptr, 0);
    if (!status.IsSuccess())
    {
        m_randomProvider = nullptr;
        VEL_TRACE(VEL_ERR, "Opening random provider failed, error code: 0x%08X", status.GetValue());
        return;
    }
    status = m_api->WAPI_BCryptOpenAlgorithmProvider(&m_cryptoProvider, BCRYPT_AES_ALGORITHM, nullptr, 0);
    if (!status.IsSuccess())
    {
        m_cryptoProvider = nullptr;
        VEL_TRACE(VEL_ERR, "Opening crypto provider failed, error code: 0x%08X", status.GetValue());
        return;
    }
    // The mode name with its terminator: 32 bytes where a wide character has 16 bits.
    static const WCHAR kChainingMode[] = BCRYPT_CHAIN_MODE_CBC;
    status = m_api->WAPI_BCryptSetProperty(m_cryptoProvider, BCRYPT_CHAINING_MODE,
                                           reinterpret_cast<PUCHAR>(const_cast<WCHAR*>(kChainingMode)),
                                           static_cast<ULONG>(sizeof(kChainingMode)), 0);
    VEL_RETURN_IF_STATUS_FAILED(status, , VEL_ERR, "Setting chaining mode failed, error code: 0x%08X");
    ULONG blockLength = 0;
    ULONG resultLength = 0;
    status = m_api->WAPI_BCryptGetProperty(m_cryptoProvider, BCRYPT_BLOCK_LENGTH,
                                           reinterpret_cast<PUCHAR>(&blockLength), sizeof(blockLength),
                                           &resultLength, 0);
    VEL_RETURN_IF_STATUS_FAILED(status, , VEL_ERR,
                                "Getting initialization vector size failed, error code: 0x%08X");
    m_ivSize = blockLength;
    BCRYPT_KEY_HANDLE created = nullptr;
    status = m_api->WAPI_BCryptGenerateSymmetricKey(m_cryptoProvider, &created, nullptr, 0, key, keySize, 0);
    VEL_RETURN_IF_STATUS_FAILED(status, , VEL_ERR, "Creating crypto key failed, error code: 0x%08X");
    m_key = created;
}

CVeLEncryptionHandlerImpl::~CVeLEncryptionHandlerImpl()
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return;
    }
    if (m_key != nullptr)
    {
        CVeLResult<LONG> status = m_api->WAPI_BCryptDestroyKey(m_key);
        if (!status.IsSuccess())
            VEL_TRACE(VEL_WRN, "Destroying crypto key failed, error code: 0x%08X", status.GetValue());
    }
    if (m_cryptoProvider != nullptr)
    {
        CVeLResult<LONG> status = m_api->WAPI_BCryptCloseAlgorithmProvider(m_cryptoProvider, 0);
        if (!status.IsSuccess())
            VEL_TRACE(VEL_WRN, "Closing crypto provider failed, error code: 0x%08X", status.GetValue());
    }
    if (m_randomProvider != nullptr)
    {
        CVeLResult<LONG> status = m_api->WAPI_BCryptCloseAlgorithmProvider(m_randomProvider, 0);
        if (!status.IsSuccess())
            VEL_TRACE(VEL_WRN, "Closing random provider failed, error code: 0x%08X", status.GetValue());
    }
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandlerImpl::EncryptBytes(unsigned char* const data, ULONG size) const
{
    if (!m_api || m_key == nullptr || m_randomProvider == nullptr || m_ivSize == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<CVeLByteArray>();
    }
    if (data == nullptr || size == 0)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return CVeLResult<CVeLByteArray>();
    }
    std::vector<unsigned char> iv(m_ivSize);
    CVeLResult<LONG> status = m_api->WAPI_BCryptGenRandom(m_randomProvider, iv.data(), m_ivSize, 0);
    VEL_RETURN_IF_STATUS_FAILED(status, CVeLResult<CVeLByteArray>(), VEL_ERR,
                                "Generating initialization vector failed, error code: 0x%08X");
    ULONG cryptSize = 0;
    status = m_api->WAPI_BCryptEncrypt(m_key, data, size, nullptr, iv.data(), m_ivSize, nullptr, 0,
                                       &cryptSize, BCRYPT_BLOCK_PADDING);
    VEL_RETURN_IF_STATUS_FAILED(status, CVeLResult<CVeLByteArray>(), VEL_ERR,
                                "Getting crypt buffer size for encryption failed, error code: 0x%08X");
    // The IV and the ciphertext must fit one array length.
    if (cryptSize == 0 || cryptSize < size || cryptSize > std::numeric_limits<ULONG>::max() - m_ivSize)
    {
        VEL_TRACE(VEL_ERR, "Got invalid crypt buffer size for encryption");
        return CVeLResult<CVeLByteArray>();
    }
    const ULONG total = cryptSize + m_ivSize;
    std::shared_ptr<unsigned char> buffer = Allocate(total);
    if (!buffer)
    {
        VEL_TRACE(VEL_ERR, "Not enough memory for %u bytes", total);
        return CVeLResult<CVeLByteArray>();
    }
    std::copy(iv.begin(), iv.end(), buffer.get());
    ULONG written = 0;
    status = m_api->WAPI_BCryptEncrypt(m_key, data, size, nullptr, iv.data(), m_ivSize,
                                       buffer.get() + m_ivSize, cryptSize, &written, BCRYPT_BLOCK_PADDING);
    VEL_RETURN_IF_STATUS_FAILED(status, CVeLResult<CVeLByteArray>(), VEL_ERR,
                                "Encryption bytes failed, error code: 0x%08X");
    return CVeLResult<CVeLByteArray>(true, CVeLByteArray(buffer, total));
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandlerImpl::EncryptBytes(const CVeLByteArray& data) const
{
    return EncryptBytes(data.IsValid() ? data.GetArrayBytes() : nullptr, data.GetArrayLength());
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandlerImpl::DecryptBytes(unsigned char* const data, ULONG size) const
{
    if (!m_api || m_key == nullptr)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return CVeLResult<CVeLByteArray>();
    }
    if (data == nullptr || size == 0 || size <= m_ivSize)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return CVeLResult<CVeLByteArray>();
    }
    unsigned char* const iv = data; // used in place: the chaining update lands in the caller's buffer
    unsigned char* const cipher = data + m_ivSize;
    const ULONG cipherSize = size - m_ivSize;
    ULONG plainSize = 0;
    CVeLResult<LONG> status = m_api->WAPI_BCryptDecrypt(m_key, cipher, cipherSize, nullptr, iv, m_ivSize,
                                                        nullptr, 0, &plainSize, BCRYPT_BLOCK_PADDING);
    VEL_RETURN_IF_STATUS_FAILED(status, CVeLResult<CVeLByteArray>(), VEL_ERR,
                                "Getting crypt buffer size for decryption failed, error code: 0x%08X");
    if (plainSize == 0)
    {
        VEL_TRACE(VEL_ERR, "Got invalid crypt buffer size for decryption");
        return CVeLResult<CVeLByteArray>();
    }
    std::shared_ptr<unsigned char> buffer = Allocate(plainSize);
    if (!buffer)
    {
        VEL_TRACE(VEL_ERR, "Not enough memory for %u bytes", plainSize);
        return CVeLResult<CVeLByteArray>();
    }
    ULONG written = 0;
    status = m_api->WAPI_BCryptDecrypt(m_key, cipher, cipherSize, nullptr, iv, m_ivSize, buffer.get(),
                                       plainSize, &written, BCRYPT_BLOCK_PADDING);
    VEL_RETURN_IF_STATUS_FAILED(status, CVeLResult<CVeLByteArray>(), VEL_ERR,
                                "Decryption bytes failed, error code: 0x%08X");
    // A facade that reports more than the buffer holds must not make the array claim foreign bytes.
    return CVeLResult<CVeLByteArray>(true, CVeLByteArray(buffer, std::min(written, plainSize)));
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandlerImpl::DecryptBytes(const CVeLByteArray& data) const
{
    return DecryptBytes(data.IsValid() ? data.GetArrayBytes() : nullptr, data.GetArrayLength());
}
