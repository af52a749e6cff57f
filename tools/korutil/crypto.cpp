// korutil encrypt / decrypt: the encryption handler's file format (the IV, then the AES-CBC ciphertext),
// with the key read as 16, 24 or 32 raw bytes from a key file.
#include "korutil.h"

#include <velbytearray.h>
#include <velencryptionhandler.h>

namespace korutil
{

namespace
{

int Transform(Invocation& invocation, bool encrypt)
{
    const std::string verb = encrypt ? "encrypt" : "decrypt";
    CVeLCommandLine cmd;
    cmd.AddOption(L"key-file", L'k', true);
    if (!ParseArguments(invocation, cmd))
        return kExitUsage;
    if (!cmd.Has(L"key-file"))
        return UsageError(invocation, "--key-file is required");
    if (cmd.GetPositionals().size() != 2)
        return UsageError(invocation, "expected IN and OUT");
    std::vector<unsigned char> key, input;
    std::string reason;
    if (!ReadWholeFile(ToPath(cmd.GetValue(L"key-file")), key, reason))
        return Failure(verb, "key file " + reason);
    if (key.size() != 16 && key.size() != 24 && key.size() != 32)
        return Failure(verb, "key file " + ToText(cmd.GetValue(L"key-file")) + " holds " +
                                 std::to_string(key.size()) + " bytes; a key is 16, 24 or 32 bytes");
    if (!ReadWholeFile(ToPath(cmd.GetPositionals()[0]), input, reason))
        return Failure(verb, reason);
    if (input.size() > 0xFFFFFFF0u)
        return Failure(verb, ToText(cmd.GetPositionals()[0]) + ": too large");
    CVeLEncryptionHandler handler(key.data(), static_cast<ULONG>(key.size()));
    unsigned char none = 0;
    unsigned char* data = input.empty() ? &none : input.data();
    const CVeLResult<CVeLByteArray> result =
        encrypt ? handler.EncryptBytes(data, static_cast<ULONG>(input.size()))
                : handler.DecryptBytes(data, static_cast<ULONG>(input.size()));
    if (!result.IsSuccess())
        return Failure(verb, ToText(cmd.GetPositionals()[0]) +
                                 (encrypt ? ": encryption failed"
                                          : ": not decryptable with this key (wrong key or damaged data)"));
    const CVeLByteArray& output = result.GetValue();
    if (!WriteFileAtomically(ToPath(cmd.GetPositionals()[1]), output.GetArrayBytes(), output.GetArrayLength(),
                             reason))
        return Failure(verb, reason);
    return kExitOk;
}

} // namespace

int RunEncrypt(Invocation& invocation)
{
    return Transform(invocation, true);
}

int RunDecrypt(Invocation& invocation)
{
    return Transform(invocation, false);
}

} // namespace korutil
