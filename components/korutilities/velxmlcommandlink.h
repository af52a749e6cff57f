// CVeLXMLCommandLink: the public XML command link between two processes (see CVeLXMLCommandLinkImpl for
// the protocol, the threading rules and the failures). Builds its implementation over a new default
// operating-system facade and forwards every call. Not copyable.
#pragma once

#include "ivelxmlcommandlink.h"
#include "korutilities_export.h"
#include "velnoncopyable.h"

#include <memory>
#include <string>

class CVeLXMLCommandLinkImpl;

class KORUTILITIES_API CVeLXMLCommandLink : public IVeLXMLCommandLink, public CVeLNonCopyable
{
public:
    CVeLXMLCommandLink(bool host, const std::wstring& name);
    ~CVeLXMLCommandLink() override;

    bool IsAvailable() const override;
    CVeLResult<CVeLXMLCommand> Request(const CVeLXMLCommand& command, DWORD timeout) override;
    CVeLResult<CVeLXMLCommand> ReceiveCommand(DWORD timeout) override;
    bool SendReply(const CVeLXMLCommand& reply) override;

private:
    std::unique_ptr<CVeLXMLCommandLinkImpl> m_impl;
};
