#include "velxmlcommandlinkimpl.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"
#include "velwaithelper.h"

#include <algorithm>
#include <chrono>

namespace
{
// Milliseconds on the monotonic clock, for deadlines.
unsigned long long NowMs()
{
    return static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                               std::chrono::steady_clock::now().time_since_epoch())
                                               .count());
}
std::string Utf8(const std::wstring& text)
{
    return CVeLStringConverter::ConvertStdWStringToStdString(text);
}
} // namespace

CVeLXMLCommandLinkImpl::CVeLXMLCommandLinkImpl(std::shared_ptr<IVeLWinAPIWrapper> api, bool host,
                                               const std::wstring& name)
    : m_api(api), m_name(name), m_requestEvent(api), m_replyEvent(api), m_sequence(0)
{
    if (!m_api || name.empty())
    {
        VEL_TRACE(VEL_ERR, "XML command link: no facade or an empty name");
        return;
    }
    m_channel.reset(new CVeLCmdInterfaceSharedMemoryImpl(m_api, host, name));
    m_requestEvent = m_api->WAPI_CreateEvent(nullptr, FALSE, FALSE, (name + L".request").c_str());
    m_replyEvent = m_api->WAPI_CreateEvent(nullptr, FALSE, FALSE, (name + L".reply").c_str());
    // Sequence numbers start from the process id and the clock, so that two callers in turn (a caller that
    // restarted, say) do not reuse the numbers of late replies still on their way.
    m_sequence = (static_cast<std::uint64_t>(m_api->WAPI_GetCurrentProcessId()) << 32) ^ (NowMs() << 8);
    if (!IsAvailable())
        VEL_TRACE(VEL_ERR, "XML command link %s could not be opened (err = %ld)", Utf8(name).c_str(),
                  m_api->WAPI_GetLastError());
}

CVeLXMLCommandLinkImpl::~CVeLXMLCommandLinkImpl() {}

bool CVeLXMLCommandLinkImpl::IsAvailable() const
{
    return m_channel && m_channel->IsSharedMemoryAvailable() && m_requestEvent.IsValid() &&
           m_replyEvent.IsValid();
}

bool CVeLXMLCommandLinkImpl::WaitUntil(HANDLE event, unsigned long long deadline) const
{
    const unsigned long long now = NowMs();
    const DWORD remaining =
        now >= deadline ? 0 : static_cast<DWORD>(std::min<unsigned long long>(deadline - now, INFINITE - 1));
    WaitStatusEnum status = WaitError;
    return CVeLWaitHelper(false).WaitForEvent(event, remaining, status) && status == WaitSignaled;
}

bool CVeLXMLCommandLinkImpl::Send(const CVeLXMLCommand& message, HANDLE event)
{
    std::wstring xml;
    if (!message.ToXML(xml))
        return false;
    if (!m_channel->WriteDataToMemory(xml))
    {
        VEL_TRACE(VEL_ERR, "XML command %s does not fit the channel", Utf8(message.GetName()).c_str());
        return false;
    }
    if (!m_api->WAPI_SetEvent(event))
    {
        VEL_TRACE(VEL_ERR, "XML command link: SetEvent failed (err = %ld)", m_api->WAPI_GetLastError());
        return false;
    }
    return true;
}

CVeLResult<CVeLXMLCommand> CVeLXMLCommandLinkImpl::Request(const CVeLXMLCommand& command, DWORD timeout)
{
    if (!IsAvailable())
    {
        VEL_TRACE(VEL_ERR, "XML command link is not available");
        return CVeLResult<CVeLXMLCommand>();
    }
    std::lock_guard<std::mutex> lock(m_callerLock);
    const unsigned long long deadline = NowMs() + timeout;
    CVeLXMLCommand numbered(command);
    numbered.SetId(++m_sequence);
    // A reply left signalled by a server that answered after an earlier time-out must not wake this wait.
    m_api->WAPI_ResetEvent(m_replyEvent.GetHandle());
    if (!Send(numbered, m_requestEvent.GetHandle()))
        return CVeLResult<CVeLXMLCommand>();
    while (WaitUntil(m_replyEvent.GetHandle(), deadline))
    {
        std::wstring xml;
        CVeLXMLCommand reply;
        if (!m_channel->ReadDataFromMemory(xml) || !reply.FromXML(xml) || !reply.IsReply())
            continue;
        if (reply.GetId() == numbered.GetId())
            return CVeLResult<CVeLXMLCommand>(true, reply);
        VEL_TRACE(VEL_WRN, "XML command link: dropped a late reply to command %s",
                  Utf8(reply.GetName()).c_str());
    }
    VEL_TRACE(VEL_ERR, "XML command %s: no reply within %lu ms", Utf8(command.GetName()).c_str(),
              static_cast<unsigned long>(timeout));
    return CVeLResult<CVeLXMLCommand>();
}

CVeLResult<CVeLXMLCommand> CVeLXMLCommandLinkImpl::ReceiveCommand(DWORD timeout)
{
    if (!IsAvailable())
    {
        VEL_TRACE(VEL_ERR, "XML command link is not available");
        return CVeLResult<CVeLXMLCommand>();
    }
    const unsigned long long deadline = NowMs() + timeout;
    while (WaitUntil(m_requestEvent.GetHandle(), deadline))
    {
        std::wstring xml;
        CVeLXMLCommand command;
        if (m_channel->ReadDataFromMemory(xml) && command.FromXML(xml) && !command.IsReply())
            return CVeLResult<CVeLXMLCommand>(true, command);
        // A refused document is answered so that its caller learns why instead of waiting out its time.
        CVeLXMLCommand refusal(L"invalid");
        SendReply(CVeLXMLCommand::MakeReply(refusal, ERROR_INVALID_DATA, command.GetError()));
    }
    return CVeLResult<CVeLXMLCommand>();
}

bool CVeLXMLCommandLinkImpl::SendReply(const CVeLXMLCommand& reply)
{
    if (!IsAvailable() || !reply.IsReply())
    {
        VEL_TRACE(VEL_ERR, "XML command link: no link or not a reply");
        return false;
    }
    return Send(reply, m_replyEvent.GetHandle());
}
