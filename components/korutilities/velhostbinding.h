// CVeLHostBinding: the host-binding checksum (see IVeLHostBinding for what it is derived from). Reads the
// machine identifier through the facade (given or a new default one) on every call, so it keeps no state
// and may be used from several threads. Every failure is traced at ERR and answered with a failed result
// or false; nothing throws.
#pragma once

#include "korutilities_export.h"
#include "ivelhostbinding.h"
#include "ivelwinapiwrapper.h"

#include <memory>

class KORUTILITIES_API CVeLHostBinding : public IVeLHostBinding
{
public:
    CVeLHostBinding();
    explicit CVeLHostBinding(std::shared_ptr<IVeLWinAPIWrapper> api);
    ~CVeLHostBinding() override;

    CVeLResult<std::wstring> GetChecksum() const override;
    bool IsThisHost(const std::wstring& checksum) const override;

private:
    CVeLResult<std::wstring> ReadMachineGuid() const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
