// IVeLXMLCommandLink: request and reply of XML commands between two processes over a named
// shared-memory command channel (see CVeLXMLCommandLinkImpl for the protocol, threading and failures).
#pragma once

#include "korutilities_export.h"
#include "velresult.h"
#include "velxmlcommand.h"

class KORUTILITIES_API IVeLXMLCommandLink
{
public:
    virtual ~IVeLXMLCommandLink() {}
    // True when the channel and both events are open.
    virtual bool IsAvailable() const = 0;
    // Caller side: sends command and waits up to timeout ms for its reply.
    virtual CVeLResult<CVeLXMLCommand> Request(const CVeLXMLCommand& command, DWORD timeout) = 0;
    // Serving side: waits up to timeout ms for the next command.
    virtual CVeLResult<CVeLXMLCommand> ReceiveCommand(DWORD timeout) = 0;
    // Serving side: sends the reply to the command last received (made with CVeLXMLCommand::MakeReply).
    virtual bool SendReply(const CVeLXMLCommand& reply) = 0;
};
