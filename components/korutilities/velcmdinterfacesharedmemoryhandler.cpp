#include "velcmdinterfacesharedmemoryhandler.h"
#include "korutilitesbtracedef.h"
#include "velcalltrace.h"
#include "velcmdinterfacesharedmemimpl.h"
#include "velwinapiwrapper.h"

CVeLCmdInterfaceSharedMemoryHandler::CVeLCmdInterfaceSharedMemoryHandler(bool create,
                                                                         const std::wstring& name)
    : m_impl(std::make_shared<CVeLCmdInterfaceSharedMemoryImpl>(std::make_shared<CVeLWinAPIWrapper>(), create,
                                                                name))
{
}

CVeLCmdInterfaceSharedMemoryHandler::~CVeLCmdInterfaceSharedMemoryHandler() {}

std::wstring CVeLCmdInterfaceSharedMemoryHandler::GetSharedMemoryName()
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Can't access InterfaceSharedMemoryImpl!",
                               GetSharedMemoryName());
}

bool CVeLCmdInterfaceSharedMemoryHandler::IsSharedMemoryAvailable() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Can't access InterfaceSharedMemoryImpl!",
                               IsSharedMemoryAvailable());
}

bool CVeLCmdInterfaceSharedMemoryHandler::ReadDataFromMemory(std::wstring& text) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Can't access InterfaceSharedMemoryImpl!",
                               ReadDataFromMemory(text));
}

bool CVeLCmdInterfaceSharedMemoryHandler::WriteDataToMemory(const std::wstring& text) const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Can't access InterfaceSharedMemoryImpl!",
                               WriteDataToMemory(text));
}

bool CVeLCmdInterfaceSharedMemoryHandler::ClearDataMemory() const
{
    return VEL_FORWARD_TRACING(m_impl, VEL_ERR, "Can't access InterfaceSharedMemoryImpl!", ClearDataMemory());
}
