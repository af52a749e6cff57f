// CVeLXMLCommandLinkImpl: the XML command link over the operating-system facade it is given. It owns the
// shared-memory command channel named N and two auto-reset named events, "N.request" (a command is in the
// block) and "N.reply" (a reply is in the block). The block is used in turns: the caller writes a command
// and sets the request event; the server, woken by it, reads the command, later writes the reply and sets
// the reply event; the caller, woken by that, reads the reply. Neither side reads the block before the
// other side's event says its text is complete, so no half-written text is ever read.
// Each command carries a sequence number, and a reply counts only when it carries the number of the
// command the caller waits for: a late reply to a command that timed out is dropped, never taken for the
// answer to the next one. Waits go through the wait helper with the time-out as a deadline; a server that
// died, hangs or never started yields a failed result after the time-out, never a hang.
// Thread-safety: any number of threads of a process may call Request on one link; a lock (m_callerLock)
// serialises them, so one command is in flight per link at a time and each caller gets its own reply.
// ReceiveCommand and SendReply belong to one serving thread. Several caller processes on one name are not
// supported: they would overwrite each other's commands. The object lives as long as its owner keeps it;
// the channel and events close at destruction.
// Failures are traced at ERR and answered with a failed result or false; nothing throws.
#pragma once

#include "ivelwinapiwrapper.h"
#include "ivelxmlcommandlink.h"
#include "korutilities_export.h"
#include "velcmdinterfacesharedmemimpl.h"
#include "velhandle.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

class KORUTILITIES_API CVeLXMLCommandLinkImpl : public IVeLXMLCommandLink
{
public:
    // host true creates the channel and events (or joins them); false opens a channel a host created.
    CVeLXMLCommandLinkImpl(std::shared_ptr<IVeLWinAPIWrapper> api, bool host, const std::wstring& name);
    ~CVeLXMLCommandLinkImpl() override;

    bool IsAvailable() const override;
    CVeLResult<CVeLXMLCommand> Request(const CVeLXMLCommand& command, DWORD timeout) override;
    CVeLResult<CVeLXMLCommand> ReceiveCommand(DWORD timeout) override;
    bool SendReply(const CVeLXMLCommand& reply) override;

private:
    // Waits for event until the deadline; true when it was signalled.
    bool WaitUntil(HANDLE event, unsigned long long deadline) const;
    bool Send(const CVeLXMLCommand& message, HANDLE event);

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    std::wstring m_name;
    std::unique_ptr<CVeLCmdInterfaceSharedMemoryImpl> m_channel;
    CVeLHANDLE m_requestEvent;
    CVeLHANDLE m_replyEvent;
    std::mutex m_callerLock; // guards the block and the reply event while a request is in flight
    std::atomic<std::uint64_t> m_sequence;
};
