#include "velencryptionhandler.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velencryptionhandlerimpl.h"
#include "velwinapiwrapper.h"

CVeLEncryptionHandler::CVeLEncryptionHandler(const std::wstring& key)
    : m_impl(new CVeLEncryptionHandlerImpl(std::make_shared<CVeLWinAPIWrapper>(), key))
{
}

CVeLEncryptionHandler::CVeLEncryptionHandler(const CVeLByteArray& key)
    : m_impl(new CVeLEncryptionHandlerImpl(std::make_shared<CVeLWinAPIWrapper>(), key))
{
}

CVeLEncryptionHandler::CVeLEncryptionHandler(unsigned char* const key, ULONG keySize)
    : m_impl(new CVeLEncryptionHandlerImpl(std::make_shared<CVeLWinAPIWrapper>(), key, keySize))
{
}

CVeLEncryptionHandler::~CVeLEncryptionHandler() {}

CVeLResult<CVeLByteArray> CVeLEncryptionHandler::EncryptBytes(unsigned char* const data, ULONG size) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Invalid initialization", EncryptBytes(data, size));
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandler::EncryptBytes(const CVeLByteArray& data) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Invalid initialization", EncryptBytes(data));
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandler::DecryptBytes(unsigned char* const data, ULONG size) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Invalid initialization", DecryptBytes(data, size));
}

CVeLResult<CVeLByteArray> CVeLEncryptionHandler::DecryptBytes(const CVeLByteArray& data) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Invalid initialization", DecryptBytes(data));
}
