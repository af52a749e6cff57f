// IVeLHostBinding: a checksum that binds data such as a licence to this machine: stable on every call and
// across restarts, different on another machine. It is the SHA-256 (64 lower-case hex digits) of the text
// "korutilities host binding\n" followed by the machine GUID in lower case, hashed as UTF-16LE. The
// machine GUID is the value "MachineGuid" under HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Cryptography, which
// Windows creates at installation (64-bit view); on Linux the platform layer gives /etc/machine-id (or
// /var/lib/dbus/machine-id) in the same form. Reinstalling the system changes it; renaming the computer,
// changing disks or network adapters does not. The order of the operations is fixed.
#pragma once

#include "velresult.h"
#include "velwin32.h"

#include <string>

class IVeLHostBinding
{
public:
    virtual ~IVeLHostBinding() {}
    // The checksum of this machine.
    virtual CVeLResult<std::wstring> GetChecksum() const = 0;
    // True when checksum (any letter case) is this machine's.
    virtual bool IsThisHost(const std::wstring& checksum) const = 0;
};
