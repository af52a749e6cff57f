#include "velresourcestrings.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velresourcestringsimpl.h"
#include "velwinapiwrapper.h"

namespace fs = boost::filesystem;

CVeLResourceStrings::CVeLResourceStrings(const fs::path& file)
    : m_impl(new CVeLResourceStringsImpl(std::make_shared<CVeLWinAPIWrapper>(), file))
{
}

CVeLResourceStrings::CVeLResourceStrings(std::shared_ptr<IVeLWinAPIWrapper> api, const fs::path& file)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLResourceStringsImpl(std::move(api), file));
}

CVeLResourceStrings::CVeLResourceStrings(std::shared_ptr<IVeLWinAPIWrapper> api, HMODULE module)
{
    if (!api)
    {
        VEL_TRACE(VEL_ERR, "Can't access winapi wrapper!");
        return;
    }
    m_impl.reset(new CVeLResourceStringsImpl(std::move(api), module));
}

CVeLResourceStrings::~CVeLResourceStrings() {}

bool CVeLResourceStrings::IsOpen() const
{
    return VEL_FORWARD(m_impl, IsOpen());
}

bool CVeLResourceStrings::GetString(unsigned int id, std::wstring& text) const
{
    return VEL_FORWARD(m_impl, GetString(id, text));
}
