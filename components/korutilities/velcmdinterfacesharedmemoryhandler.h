// CVeLCmdInterfaceSharedMemoryHandler: the public shared-memory text channel. Builds its implementation
// (CVeLCmdInterfaceSharedMemoryImpl) over a new default operating-system facade and forwards every call to
// it; lives and behaves exactly as the implementation does (see there for the block's format, ownership
// and threading). A missing implementation is traced and every call fails.
#pragma once

#include "korutilities_export.h"
#include "ivelcmdinterfacesharedmemory.h"

#include <memory>
#include <string>

class CVeLCmdInterfaceSharedMemoryImpl;

class KORUTILITIES_API CVeLCmdInterfaceSharedMemoryHandler : public IVeLCmdInterfaceSharedMemory
{
public:
    // create true makes the block named name (or joins it), false opens an existing one.
    CVeLCmdInterfaceSharedMemoryHandler(bool create, const std::wstring& name);
    ~CVeLCmdInterfaceSharedMemoryHandler() override;

    // Empty without an implementation.
    std::wstring GetSharedMemoryName() override;
    bool IsSharedMemoryAvailable() const override;
    bool ReadDataFromMemory(std::wstring& text) const override;
    bool WriteDataToMemory(const std::wstring& text) const override;
    bool ClearDataMemory() const override;

private:
    std::shared_ptr<CVeLCmdInterfaceSharedMemoryImpl> m_impl;
};
