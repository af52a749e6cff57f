// CVeLXMLCommand: one command or reply of the XML command interface, as a value. A command is a name and
// an ordered list of typed parameters (text, integer, real, boolean, bytes, and groups of parameters that
// nest); a reply carries the name and sequence number of the command it answers, a status (0 is success)
// and a message, and may carry parameters too. On the wire a command is the document
//   <command name="N" id="7"><param name="p" type="integer">5</param>...</command>
// and a reply is <reply name="N" id="7" status="0"><message>...</message><param .../></reply>; bytes are
// base64, reals are written so that they read back exactly, and groups are params of type "group" holding
// params. Documents are built and read with the XML handler (the command's element is grafted into and
// obtained from the handler's document through IVeLXMLDOMAccessProvider) and checked against the
// schema shipped beside the headers (velxmlcommand.xsd, the same text as Schema()).
// Plain value; copies are independent; one object is not for concurrent change.
// Failures: FromXML answers false for a document that is oversized, not well-formed, not valid against
// the schema or carries a value that does not read as its declared type; the reason is traced at ERR and
// kept for GetError. Nothing throws.
#pragma once

#include "korutilities_export.h"
#include "velwin32.h"

#include <cstdint>
#include <string>
#include <vector>

class KORUTILITIES_API CVeLXMLCommand
{
public:
    enum ParameterType
    {
        TypeText,
        TypeInteger,
        TypeReal,
        TypeBoolean,
        TypeBytes,
        TypeGroup,
    };
    struct Parameter
    {
        std::wstring name;
        ParameterType type = TypeText;
        std::wstring text;                // TypeText
        std::int64_t integer = 0;         // TypeInteger
        double real = 0;                  // TypeReal
        bool boolean = false;             // TypeBoolean
        std::vector<unsigned char> bytes; // TypeBytes
        std::vector<Parameter> children;  // TypeGroup
    };

    // The largest document FromXML accepts, in characters: what fits the command channel's block.
    static const std::size_t kMaxDocumentLength = 65535;

    CVeLXMLCommand();
    explicit CVeLXMLCommand(const std::wstring& name);
    virtual ~CVeLXMLCommand();

    // A reply to request: its name and id, with status and message.
    static CVeLXMLCommand MakeReply(const CVeLXMLCommand& request, LONG status, const std::wstring& message);

    const std::wstring& GetName() const { return m_name; }
    std::uint64_t GetId() const { return m_id; }
    void SetId(std::uint64_t id) { m_id = id; }
    bool IsReply() const { return m_reply; }
    LONG GetStatus() const { return m_status; }
    const std::wstring& GetMessage() const { return m_message; }

    void AddText(const std::wstring& name, const std::wstring& value);
    void AddInteger(const std::wstring& name, std::int64_t value);
    void AddReal(const std::wstring& name, double value);
    void AddBoolean(const std::wstring& name, bool value);
    void AddBytes(const std::wstring& name, const std::vector<unsigned char>& value);
    void AddGroup(const std::wstring& name, const std::vector<Parameter>& children);
    void AddParameter(const Parameter& parameter);
    const std::vector<Parameter>& GetParameters() const { return m_parameters; }
    // The first parameter of that name at the top level; null when there is none.
    const Parameter* Find(const std::wstring& name) const;

    // The document text (UTF-16 serialisation of the handler, without declaration). False (traced) when
    // the name or a parameter name is empty or a real is not finite.
    bool ToXML(std::wstring& xml) const;
    // Replaces this object by the command or reply in xml; on failure the object is left as it was.
    bool FromXML(const std::wstring& xml);
    // The reason the last FromXML or ToXML failed; empty after success.
    const std::wstring& GetError() const { return m_error; }

    // The XML Schema of command and reply documents.
    static const std::wstring& Schema();

    static std::string EncodeBase64(const std::vector<unsigned char>& bytes);
    // False for text that is not base64 (whitespace is skipped).
    static bool DecodeBase64(const std::wstring& text, std::vector<unsigned char>& bytes);

private:
    bool Fail(const std::wstring& reason) const;

    std::wstring m_name;
    std::uint64_t m_id = 0;
    bool m_reply = false;
    LONG m_status = 0;
    std::wstring m_message;
    std::vector<Parameter> m_parameters;
    mutable std::wstring m_error;
};
