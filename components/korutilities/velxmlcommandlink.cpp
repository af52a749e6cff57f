#include "velxmlcommandlink.h"
#include "korutilitesbtracedef.h"
#include "velwinapiwrapper.h"
#include "velxmlcommandlinkimpl.h"

CVeLXMLCommandLink::CVeLXMLCommandLink(bool host, const std::wstring& name)
    : m_impl(new CVeLXMLCommandLinkImpl(std::make_shared<CVeLWinAPIWrapper>(), host, name))
{
}

CVeLXMLCommandLink::~CVeLXMLCommandLink() {}

bool CVeLXMLCommandLink::IsAvailable() const
{
    return m_impl && m_impl->IsAvailable();
}

CVeLResult<CVeLXMLCommand> CVeLXMLCommandLink::Request(const CVeLXMLCommand& command, DWORD timeout)
{
    return m_impl->Request(command, timeout);
}

CVeLResult<CVeLXMLCommand> CVeLXMLCommandLink::ReceiveCommand(DWORD timeout)
{
    return m_impl->ReceiveCommand(timeout);
}

bool CVeLXMLCommandLink::SendReply(const CVeLXMLCommand& reply)
{
    return m_impl->SendReply(reply);
}
