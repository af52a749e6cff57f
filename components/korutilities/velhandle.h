// CVeLHANDLE: owns one kernel handle and closes it exactly once through the operating-system facade
// (on destruction, on assignment of another handle). Not copyable; one thread uses it at a time.
// A handle counts as valid when it is neither 0 nor INVALID_HANDLE_VALUE; only a valid one is closed.
#pragma once

#include "korutilities_export.h"
#include "ivelwinapiwrapper.h"
#include "velnoncopyable.h"

#include <memory>

class KORUTILITIES_API CVeLHANDLE : public CVeLNonCopyable
{
public:
    // Empty, with a facade of its own.
    CVeLHANDLE();
    // Takes ownership of handle, with a facade of its own.
    explicit CVeLHANDLE(void* handle);
    // Empty, closing through api.
    explicit CVeLHANDLE(std::shared_ptr<IVeLWinAPIWrapper> api);
    // Takes ownership of handle, closing through api.
    CVeLHANDLE(std::shared_ptr<IVeLWinAPIWrapper> api, void* handle);
    // Closes a valid handle; without a facade traces and closes nothing.
    ~CVeLHANDLE() override;

    // Closes the current handle as the destructor does, then stores handle (also without a facade).
    // Assigning the handle already held closes it first.
    void operator=(void* handle);
    // The address of the stored handle, for calls that take an array of handles; null when the stored
    // handle is 0, so that a wait on an empty wrapper fails inside the wait function.
    void* const* operator&();
    void* GetHandle() const;
    bool IsValid() const;

private:
    void CloseHandle();

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
    void* m_handle;
};
