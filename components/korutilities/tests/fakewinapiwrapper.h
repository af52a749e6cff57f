// CFakeWinAPIWrapper: a replacement operating-system facade for tests. Every operation is recorded by name
// and forwards to a real CVeLWinAPIWrapper unless the test sets the matching On<Operation> function, so a
// test can fail exactly one operation (for example OnCreateFile returning INVALID_HANDLE_VALUE after
// SetLastError(5)) and let the rest reach the system. Thread-safe for recording; set the overrides before
// the object under test starts using the facade.
#pragma once

#include "velwinapiwrapper.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

class CFakeWinAPIWrapper : public IVeLWinAPIWrapper
{
public:
    // The names of the operations called so far, without the "WAPI_" prefix, in call order.
    std::vector<std::string> Calls() const
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_calls;
    }
    std::size_t CallCount(const std::string& name) const
    {
        std::lock_guard<std::mutex> guard(m_lock);
        return static_cast<std::size_t>(std::count(m_calls.begin(), m_calls.end(), name));
    }
    void ClearCalls()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_calls.clear();
    }

    std::function<BOOL(LPCWSTR applicationName, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                       LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                       LPVOID environment, LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                       LPPROCESS_INFORMATION processInformation)>
        OnCreateProcess;
    BOOL WAPI_CreateProcess(LPCWSTR applicationName, LPWSTR commandLine,
                            LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                            BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                            LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                            LPPROCESS_INFORMATION processInformation) const override
    {
        Record("CreateProcess");
        return OnCreateProcess
                   ? OnCreateProcess(applicationName, commandLine, processAttributes, threadAttributes,
                                     inheritHandles, creationFlags, environment, currentDirectory,
                                     startupInfo, processInformation)
                   : m_real.WAPI_CreateProcess(applicationName, commandLine, processAttributes,
                                               threadAttributes, inheritHandles, creationFlags, environment,
                                               currentDirectory, startupInfo, processInformation);
    }
    std::function<LONG(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved, LPDWORD subKeys,
                       LPDWORD maxSubKeyLength, LPDWORD maxClassLength, LPDWORD values,
                       LPDWORD maxValueNameLength, LPDWORD maxValueLength, LPDWORD securityDescriptor,
                       PFILETIME lastWriteTime)>
        OnRegQueryInfoKey;
    LONG WAPI_RegQueryInfoKey(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved,
                              LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                              LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                              LPDWORD securityDescriptor, PFILETIME lastWriteTime) const override
    {
        Record("RegQueryInfoKey");
        return OnRegQueryInfoKey
                   ? OnRegQueryInfoKey(key, className, classLength, reserved, subKeys, maxSubKeyLength,
                                       maxClassLength, values, maxValueNameLength, maxValueLength,
                                       securityDescriptor, lastWriteTime)
                   : m_real.WAPI_RegQueryInfoKey(key, className, classLength, reserved, subKeys,
                                                 maxSubKeyLength, maxClassLength, values, maxValueNameLength,
                                                 maxValueLength, securityDescriptor, lastWriteTime);
    }
    std::function<BOOL(HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                       DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                       LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine)>
        OnReadDirectoryChangesW;
    BOOL WAPI_ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                                    DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                                    LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine) const override
    {
        Record("ReadDirectoryChangesW");
        return OnReadDirectoryChangesW
                   ? OnReadDirectoryChangesW(directory, buffer, bufferLength, watchSubtree, notifyFilter,
                                             bytesReturned, overlapped, completionRoutine)
                   : m_real.WAPI_ReadDirectoryChangesW(directory, buffer, bufferLength, watchSubtree,
                                                       notifyFilter, bytesReturned, overlapped,
                                                       completionRoutine);
    }
    std::function<HANDLE(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                         LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                         DWORD flagsAndAttributes, HANDLE templateFile)>
        OnCreateFile;
    HANDLE WAPI_CreateFile(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                           LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                           DWORD flagsAndAttributes, HANDLE templateFile) const override
    {
        Record("CreateFile");
        return OnCreateFile ? OnCreateFile(fileName, desiredAccess, shareMode, securityAttributes,
                                           creationDisposition, flagsAndAttributes, templateFile)
                            : m_real.WAPI_CreateFile(fileName, desiredAccess, shareMode, securityAttributes,
                                                     creationDisposition, flagsAndAttributes, templateFile);
    }
    std::function<DWORD(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[], UINT applicationCount,
                        RM_UNIQUE_PROCESS applications[], UINT serviceCount, LPCWSTR serviceNames[])>
        OnRmRegisterResources;
    DWORD WAPI_RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[],
                                   UINT applicationCount, RM_UNIQUE_PROCESS applications[], UINT serviceCount,
                                   LPCWSTR serviceNames[]) const override
    {
        Record("RmRegisterResources");
        return OnRmRegisterResources
                   ? OnRmRegisterResources(sessionHandle, fileCount, fileNames, applicationCount,
                                           applications, serviceCount, serviceNames)
                   : m_real.WAPI_RmRegisterResources(sessionHandle, fileCount, fileNames, applicationCount,
                                                     applications, serviceCount, serviceNames);
    }
    std::function<HANDLE(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect, DWORD maximumSizeHigh,
                         DWORD maximumSizeLow, LPCWSTR name)>
        OnCreateFileMapping;
    HANDLE WAPI_CreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                  DWORD maximumSizeHigh, DWORD maximumSizeLow, LPCWSTR name) const override
    {
        Record("CreateFileMapping");
        return OnCreateFileMapping
                   ? OnCreateFileMapping(file, attributes, protect, maximumSizeHigh, maximumSizeLow, name)
                   : m_real.WAPI_CreateFileMapping(file, attributes, protect, maximumSizeHigh, maximumSizeLow,
                                                   name);
    }
    std::function<LPVOID(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                         SIZE_T bytesToMap)>
        OnMapViewOfFile;
    LPVOID WAPI_MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                              SIZE_T bytesToMap) const override
    {
        Record("MapViewOfFile");
        return OnMapViewOfFile
                   ? OnMapViewOfFile(mapping, desiredAccess, fileOffsetHigh, fileOffsetLow, bytesToMap)
                   : m_real.WAPI_MapViewOfFile(mapping, desiredAccess, fileOffsetHigh, fileOffsetLow,
                                               bytesToMap);
    }
    std::function<DWORD(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                        LPCWSTR fileName)>
        OnGetPrivateProfileString;
    DWORD WAPI_GetPrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer,
                                       DWORD size, LPCWSTR fileName) const override
    {
        Record("GetPrivateProfileString");
        return OnGetPrivateProfileString
                   ? OnGetPrivateProfileString(section, key, defaultValue, buffer, size, fileName)
                   : m_real.WAPI_GetPrivateProfileString(section, key, defaultValue, buffer, size, fileName);
    }
    std::function<DWORD(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                        RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons)>
        OnRmGetList;
    DWORD WAPI_RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                         RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons) const override
    {
        Record("RmGetList");
        return OnRmGetList ? OnRmGetList(sessionHandle, procInfoNeeded, procInfo, affectedApps, rebootReasons)
                           : m_real.WAPI_RmGetList(sessionHandle, procInfoNeeded, procInfo, affectedApps,
                                                   rebootReasons);
    }
    std::function<BOOL(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped)>
        OnWriteFile;
    BOOL WAPI_WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
                        LPOVERLAPPED overlapped) const override
    {
        Record("WriteFile");
        return OnWriteFile ? OnWriteFile(file, buffer, toWrite, written, overlapped)
                           : m_real.WAPI_WriteFile(file, buffer, toWrite, written, overlapped);
    }
    std::function<BOOL(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped)>
        OnReadFile;
    BOOL WAPI_ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read,
                       LPOVERLAPPED overlapped) const override
    {
        Record("ReadFile");
        return OnReadFile ? OnReadFile(file, buffer, toRead, read, overlapped)
                          : m_real.WAPI_ReadFile(file, buffer, toRead, read, overlapped);
    }
    std::function<LONG(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                       LPDWORD dataSize)>
        OnRegQueryValueEx;
    LONG WAPI_RegQueryValueEx(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                              LPDWORD dataSize) const override
    {
        Record("RegQueryValueEx");
        return OnRegQueryValueEx
                   ? OnRegQueryValueEx(key, valueName, reserved, type, data, dataSize)
                   : m_real.WAPI_RegQueryValueEx(key, valueName, reserved, type, data, dataSize);
    }
    std::function<HANDLE(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name)>
        OnCreateEvent;
    HANDLE WAPI_CreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                            LPCWSTR name) const override
    {
        Record("CreateEvent");
        return OnCreateEvent ? OnCreateEvent(attributes, manualReset, initialState, name)
                             : m_real.WAPI_CreateEvent(attributes, manualReset, initialState, name);
    }
    std::function<BOOL(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait)>
        OnGetOverlappedResult;
    BOOL WAPI_GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred,
                                  BOOL wait) const override
    {
        Record("GetOverlappedResult");
        return OnGetOverlappedResult ? OnGetOverlappedResult(file, overlapped, transferred, wait)
                                     : m_real.WAPI_GetOverlappedResult(file, overlapped, transferred, wait);
    }
    std::function<BOOL(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR fileName)>
        OnWritePrivateProfileString;
    BOOL WAPI_WritePrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR value,
                                        LPCWSTR fileName) const override
    {
        Record("WritePrivateProfileString");
        return OnWritePrivateProfileString
                   ? OnWritePrivateProfileString(section, key, value, fileName)
                   : m_real.WAPI_WritePrivateProfileString(section, key, value, fileName);
    }
    std::function<LONG(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result)> OnRegOpenKeyEx;
    LONG WAPI_RegOpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired,
                           PHKEY result) const override
    {
        Record("RegOpenKeyEx");
        return OnRegOpenKeyEx ? OnRegOpenKeyEx(key, subKey, options, desired, result)
                              : m_real.WAPI_RegOpenKeyEx(key, subKey, options, desired, result);
    }
    std::function<UINT(LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName)>
        OnGetPrivateProfileInt;
    UINT WAPI_GetPrivateProfileInt(LPCWSTR section, LPCWSTR key, INT defaultValue,
                                   LPCWSTR fileName) const override
    {
        Record("GetPrivateProfileInt");
        return OnGetPrivateProfileInt
                   ? OnGetPrivateProfileInt(section, key, defaultValue, fileName)
                   : m_real.WAPI_GetPrivateProfileInt(section, key, defaultValue, fileName);
    }
    std::function<BOOL(HANDLE process, DWORD flags, LPWSTR exeName, PDWORD size)> OnQueryFullProcessImageName;
    BOOL WAPI_QueryFullProcessImageName(HANDLE process, DWORD flags, LPWSTR exeName,
                                        PDWORD size) const override
    {
        Record("QueryFullProcessImageName");
        return OnQueryFullProcessImageName
                   ? OnQueryFullProcessImageName(process, flags, exeName, size)
                   : m_real.WAPI_QueryFullProcessImageName(process, flags, exeName, size);
    }
    std::function<DWORD(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size)> OnGetModuleFileNameEx;
    DWORD WAPI_GetModuleFileNameEx(HANDLE process, HMODULE module, LPWSTR fileName, DWORD size) const override
    {
        Record("GetModuleFileNameEx");
        return OnGetModuleFileNameEx ? OnGetModuleFileNameEx(process, module, fileName, size)
                                     : m_real.WAPI_GetModuleFileNameEx(process, module, fileName, size);
    }
    std::function<DWORD(DWORD* sessionHandle, DWORD sessionFlags, WCHAR sessionKey[])> OnRmStartSession;
    DWORD WAPI_RmStartSession(DWORD* sessionHandle, DWORD sessionFlags, WCHAR sessionKey[]) const override
    {
        Record("RmStartSession");
        return OnRmStartSession ? OnRmStartSession(sessionHandle, sessionFlags, sessionKey)
                                : m_real.WAPI_RmStartSession(sessionHandle, sessionFlags, sessionKey);
    }
    std::function<HANDLE(DWORD desiredAccess, BOOL inheritHandle, DWORD processId)> OnOpenProcess;
    HANDLE WAPI_OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId) const override
    {
        Record("OpenProcess");
        return OnOpenProcess ? OnOpenProcess(desiredAccess, inheritHandle, processId)
                             : m_real.WAPI_OpenProcess(desiredAccess, inheritHandle, processId);
    }
    std::function<HANDLE(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name)> OnOpenFileMapping;
    HANDLE WAPI_OpenFileMapping(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name) const override
    {
        Record("OpenFileMapping");
        return OnOpenFileMapping ? OnOpenFileMapping(desiredAccess, inheritHandle, name)
                                 : m_real.WAPI_OpenFileMapping(desiredAccess, inheritHandle, name);
    }
    std::function<BOOL(HWND parent, WNDENUMPROC callback, LPARAM parameter)> OnEnumChildWindows;
    BOOL WAPI_EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter) const override
    {
        Record("EnumChildWindows");
        return OnEnumChildWindows ? OnEnumChildWindows(parent, callback, parameter)
                                  : m_real.WAPI_EnumChildWindows(parent, callback, parameter);
    }
    std::function<DWORD(LPCWSTR name, LPWSTR buffer, DWORD size)> OnGetEnvironmentVariable;
    DWORD WAPI_GetEnvironmentVariable(LPCWSTR name, LPWSTR buffer, DWORD size) const override
    {
        Record("GetEnvironmentVariable");
        return OnGetEnvironmentVariable ? OnGetEnvironmentVariable(name, buffer, size)
                                        : m_real.WAPI_GetEnvironmentVariable(name, buffer, size);
    }
    std::function<HANDLE(LPCWSTR fileName, LPWIN32_FIND_DATAW findData)> OnFindFirstFile;
    HANDLE WAPI_FindFirstFile(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) const override
    {
        Record("FindFirstFile");
        return OnFindFirstFile ? OnFindFirstFile(fileName, findData)
                               : m_real.WAPI_FindFirstFile(fileName, findData);
    }
    std::function<LONG(HKEY key, DWORD index, LPWSTR name, DWORD nameSize)> OnRegEnumKey;
    LONG WAPI_RegEnumKey(HKEY key, DWORD index, LPWSTR name, DWORD nameSize) const override
    {
        Record("RegEnumKey");
        return OnRegEnumKey ? OnRegEnumKey(key, index, name, nameSize)
                            : m_real.WAPI_RegEnumKey(key, index, name, nameSize);
    }
    std::function<BOOL(HANDLE findFile, LPWIN32_FIND_DATAW findData)> OnFindNextFile;
    BOOL WAPI_FindNextFile(HANDLE findFile, LPWIN32_FIND_DATAW findData) const override
    {
        Record("FindNextFile");
        return OnFindNextFile ? OnFindNextFile(findFile, findData)
                              : m_real.WAPI_FindNextFile(findFile, findData);
    }
    std::function<BOOL(HWND window, UINT message, WPARAM wParam, LPARAM lParam)> OnPostMessage;
    BOOL WAPI_PostMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) const override
    {
        Record("PostMessage");
        return OnPostMessage ? OnPostMessage(window, message, wParam, lParam)
                             : m_real.WAPI_PostMessage(window, message, wParam, lParam);
    }
    std::function<BOOL(LPCWSTR fileName, DWORD attributes)> OnSetFileAttributes;
    BOOL WAPI_SetFileAttributes(LPCWSTR fileName, DWORD attributes) const override
    {
        Record("SetFileAttributes");
        return OnSetFileAttributes ? OnSetFileAttributes(fileName, attributes)
                                   : m_real.WAPI_SetFileAttributes(fileName, attributes);
    }
    std::function<HANDLE(DWORD flags, DWORD processId)> OnCreateToolhelp32Snapshot;
    HANDLE WAPI_CreateToolhelp32Snapshot(DWORD flags, DWORD processId) const override
    {
        Record("CreateToolhelp32Snapshot");
        return OnCreateToolhelp32Snapshot ? OnCreateToolhelp32Snapshot(flags, processId)
                                          : m_real.WAPI_CreateToolhelp32Snapshot(flags, processId);
    }
    std::function<DWORD(HWND window, LPDWORD processId)> OnGetWindowThreadProcessId;
    DWORD WAPI_GetWindowThreadProcessId(HWND window, LPDWORD processId) const override
    {
        Record("GetWindowThreadProcessId");
        return OnGetWindowThreadProcessId ? OnGetWindowThreadProcessId(window, processId)
                                          : m_real.WAPI_GetWindowThreadProcessId(window, processId);
    }
    std::function<BOOL(HANDLE process, LPDWORD exitCode)> OnGetExitCodeProcess;
    BOOL WAPI_GetExitCodeProcess(HANDLE process, LPDWORD exitCode) const override
    {
        Record("GetExitCodeProcess");
        return OnGetExitCodeProcess ? OnGetExitCodeProcess(process, exitCode)
                                    : m_real.WAPI_GetExitCodeProcess(process, exitCode);
    }
    std::function<DWORD(HANDLE process, DWORD milliseconds)> OnWaitForInputIdle;
    DWORD WAPI_WaitForInputIdle(HANDLE process, DWORD milliseconds) const override
    {
        Record("WaitForInputIdle");
        return OnWaitForInputIdle ? OnWaitForInputIdle(process, milliseconds)
                                  : m_real.WAPI_WaitForInputIdle(process, milliseconds);
    }
    std::function<BOOL(LPCWSTR name, LPCWSTR value)> OnSetEnvironmentVariable;
    BOOL WAPI_SetEnvironmentVariable(LPCWSTR name, LPCWSTR value) const override
    {
        Record("SetEnvironmentVariable");
        return OnSetEnvironmentVariable ? OnSetEnvironmentVariable(name, value)
                                        : m_real.WAPI_SetEnvironmentVariable(name, value);
    }
    std::function<BOOL(HANDLE snapshot, LPPROCESSENTRY32W entry)> OnProcess32First;
    BOOL WAPI_Process32First(HANDLE snapshot, LPPROCESSENTRY32W entry) const override
    {
        Record("Process32First");
        return OnProcess32First ? OnProcess32First(snapshot, entry)
                                : m_real.WAPI_Process32First(snapshot, entry);
    }
    std::function<BOOL(HANDLE snapshot, LPPROCESSENTRY32W entry)> OnProcess32Next;
    BOOL WAPI_Process32Next(HANDLE snapshot, LPPROCESSENTRY32W entry) const override
    {
        Record("Process32Next");
        return OnProcess32Next ? OnProcess32Next(snapshot, entry)
                               : m_real.WAPI_Process32Next(snapshot, entry);
    }
    std::function<BOOL(WNDENUMPROC callback, LPARAM parameter)> OnEnumWindows;
    BOOL WAPI_EnumWindows(WNDENUMPROC callback, LPARAM parameter) const override
    {
        Record("EnumWindows");
        return OnEnumWindows ? OnEnumWindows(callback, parameter)
                             : m_real.WAPI_EnumWindows(callback, parameter);
    }
    std::function<BOOL(HANDLE process, UINT exitCode)> OnTerminateProcess;
    BOOL WAPI_TerminateProcess(HANDLE process, UINT exitCode) const override
    {
        Record("TerminateProcess");
        return OnTerminateProcess ? OnTerminateProcess(process, exitCode)
                                  : m_real.WAPI_TerminateProcess(process, exitCode);
    }
    std::function<CVeLResult<__int64>(HANDLE mapping)> OnNTGetSizeOfSharedMemory;
    CVeLResult<__int64> WAPI_NTGetSizeOfSharedMemory(HANDLE mapping) const override
    {
        Record("NTGetSizeOfSharedMemory");
        return OnNTGetSizeOfSharedMemory ? OnNTGetSizeOfSharedMemory(mapping)
                                         : m_real.WAPI_NTGetSizeOfSharedMemory(mapping);
    }
    std::function<void(LPSYSTEMTIME systemTime)> OnGetLocalTime;
    void WAPI_GetLocalTime(LPSYSTEMTIME systemTime) const override
    {
        Record("GetLocalTime");
        return OnGetLocalTime ? OnGetLocalTime(systemTime) : m_real.WAPI_GetLocalTime(systemTime);
    }
    std::function<BOOL(LPCVOID baseAddress)> OnUnmapViewOfFile;
    BOOL WAPI_UnmapViewOfFile(LPCVOID baseAddress) const override
    {
        Record("UnmapViewOfFile");
        return OnUnmapViewOfFile ? OnUnmapViewOfFile(baseAddress) : m_real.WAPI_UnmapViewOfFile(baseAddress);
    }
    std::function<DWORD(LPCWSTR fileName)> OnGetFileAttributes;
    DWORD WAPI_GetFileAttributes(LPCWSTR fileName) const override
    {
        Record("GetFileAttributes");
        return OnGetFileAttributes ? OnGetFileAttributes(fileName) : m_real.WAPI_GetFileAttributes(fileName);
    }
    std::function<BOOL(LPCWSTR path)> OnPathIsDirectoryEmpty;
    BOOL WAPI_PathIsDirectoryEmpty(LPCWSTR path) const override
    {
        Record("PathIsDirectoryEmpty");
        return OnPathIsDirectoryEmpty ? OnPathIsDirectoryEmpty(path) : m_real.WAPI_PathIsDirectoryEmpty(path);
    }
    std::function<BOOL(LPCWSTR path)> OnRemoveDirectory;
    BOOL WAPI_RemoveDirectory(LPCWSTR path) const override
    {
        Record("RemoveDirectory");
        return OnRemoveDirectory ? OnRemoveDirectory(path) : m_real.WAPI_RemoveDirectory(path);
    }
    std::function<DWORD(DWORD sessionHandle)> OnRmEndSession;
    DWORD WAPI_RmEndSession(DWORD sessionHandle) const override
    {
        Record("RmEndSession");
        return OnRmEndSession ? OnRmEndSession(sessionHandle) : m_real.WAPI_RmEndSession(sessionHandle);
    }
    std::function<BOOL(LPCWSTR path)> OnPathIsDirectory;
    BOOL WAPI_PathIsDirectory(LPCWSTR path) const override
    {
        Record("PathIsDirectory");
        return OnPathIsDirectory ? OnPathIsDirectory(path) : m_real.WAPI_PathIsDirectory(path);
    }
    std::function<BOOL(LPCWSTR fileName)> OnDeleteFile;
    BOOL WAPI_DeleteFile(LPCWSTR fileName) const override
    {
        Record("DeleteFile");
        return OnDeleteFile ? OnDeleteFile(fileName) : m_real.WAPI_DeleteFile(fileName);
    }
    std::function<HANDLE(DWORD which)> OnGetStdHandle;
    HANDLE WAPI_GetStdHandle(DWORD which) const override
    {
        Record("GetStdHandle");
        return OnGetStdHandle ? OnGetStdHandle(which) : m_real.WAPI_GetStdHandle(which);
    }
    std::function<BOOL(HANDLE handle)> OnCloseHandle;
    BOOL WAPI_CloseHandle(HANDLE handle) const override
    {
        Record("CloseHandle");
        return OnCloseHandle ? OnCloseHandle(handle) : m_real.WAPI_CloseHandle(handle);
    }
    std::function<BOOL(HANDLE findFile)> OnFindClose;
    BOOL WAPI_FindClose(HANDLE findFile) const override
    {
        Record("FindClose");
        return OnFindClose ? OnFindClose(findFile) : m_real.WAPI_FindClose(findFile);
    }
    std::function<BOOL(HANDLE event)> OnResetEvent;
    BOOL WAPI_ResetEvent(HANDLE event) const override
    {
        Record("ResetEvent");
        return OnResetEvent ? OnResetEvent(event) : m_real.WAPI_ResetEvent(event);
    }
    std::function<BOOL(HANDLE event)> OnSetEvent;
    BOOL WAPI_SetEvent(HANDLE event) const override
    {
        Record("SetEvent");
        return OnSetEvent ? OnSetEvent(event) : m_real.WAPI_SetEvent(event);
    }
    std::function<LONG(HKEY key)> OnRegCloseKey;
    LONG WAPI_RegCloseKey(HKEY key) const override
    {
        Record("RegCloseKey");
        return OnRegCloseKey ? OnRegCloseKey(key) : m_real.WAPI_RegCloseKey(key);
    }
    std::function<DWORD()> OnGetCurrentProcessId;
    DWORD WAPI_GetCurrentProcessId() const override
    {
        Record("GetCurrentProcessId");
        return OnGetCurrentProcessId ? OnGetCurrentProcessId() : m_real.WAPI_GetCurrentProcessId();
    }
    std::function<HWND()> OnGetForegroundWindow;
    HWND WAPI_GetForegroundWindow() const override
    {
        Record("GetForegroundWindow");
        return OnGetForegroundWindow ? OnGetForegroundWindow() : m_real.WAPI_GetForegroundWindow();
    }
    std::function<BOOL(HWND window)> OnIsWindow;
    BOOL WAPI_IsWindow(HWND window) const override
    {
        Record("IsWindow");
        return OnIsWindow ? OnIsWindow(window) : m_real.WAPI_IsWindow(window);
    }
    std::function<DWORD()> OnGetLastError;
    DWORD WAPI_GetLastError() const override
    {
        Record("GetLastError");
        return OnGetLastError ? OnGetLastError() : m_real.WAPI_GetLastError();
    }
    std::function<CVeLResult<LONG>(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                   PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                   ULONG* resultLength, ULONG flags)>
        OnBCryptDecrypt;
    CVeLResult<LONG> WAPI_BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                        PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                        ULONG outputLength, ULONG* resultLength, ULONG flags) const override
    {
        Record("BCryptDecrypt");
        return OnBCryptDecrypt ? OnBCryptDecrypt(key, input, inputLength, paddingInfo, iv, ivLength, output,
                                                 outputLength, resultLength, flags)
                               : m_real.WAPI_BCryptDecrypt(key, input, inputLength, paddingInfo, iv, ivLength,
                                                           output, outputLength, resultLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo,
                                   PUCHAR iv, ULONG ivLength, PUCHAR output, ULONG outputLength,
                                   ULONG* resultLength, ULONG flags)>
        OnBCryptEncrypt;
    CVeLResult<LONG> WAPI_BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                        PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                        ULONG outputLength, ULONG* resultLength, ULONG flags) const override
    {
        Record("BCryptEncrypt");
        return OnBCryptEncrypt ? OnBCryptEncrypt(key, input, inputLength, paddingInfo, iv, ivLength, output,
                                                 outputLength, resultLength, flags)
                               : m_real.WAPI_BCryptEncrypt(key, input, inputLength, paddingInfo, iv, ivLength,
                                                           output, outputLength, resultLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR keyObject,
                                   ULONG keyObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags)>
        OnBCryptGenerateSymmetricKey;
    CVeLResult<LONG> WAPI_BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key,
                                                     PUCHAR keyObject, ULONG keyObjectLength, PUCHAR secret,
                                                     ULONG secretLength, ULONG flags) const override
    {
        Record("BCryptGenerateSymmetricKey");
        return OnBCryptGenerateSymmetricKey
                   ? OnBCryptGenerateSymmetricKey(algorithm, key, keyObject, keyObjectLength, secret,
                                                  secretLength, flags)
                   : m_real.WAPI_BCryptGenerateSymmetricKey(algorithm, key, keyObject, keyObjectLength,
                                                            secret, secretLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                                   ULONG hashObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags)>
        OnBCryptCreateHash;
    CVeLResult<LONG> WAPI_BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash,
                                           PUCHAR hashObject, ULONG hashObjectLength, PUCHAR secret,
                                           ULONG secretLength, ULONG flags) const override
    {
        Record("BCryptCreateHash");
        return OnBCryptCreateHash
                   ? OnBCryptCreateHash(algorithm, hash, hashObject, hashObjectLength, secret, secretLength,
                                        flags)
                   : m_real.WAPI_BCryptCreateHash(algorithm, hash, hashObject, hashObjectLength, secret,
                                                  secretLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputLength,
                                   ULONG* resultLength, ULONG flags)>
        OnBCryptGetProperty;
    CVeLResult<LONG> WAPI_BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output,
                                            ULONG outputLength, ULONG* resultLength,
                                            ULONG flags) const override
    {
        Record("BCryptGetProperty");
        return OnBCryptGetProperty
                   ? OnBCryptGetProperty(object, property, output, outputLength, resultLength, flags)
                   : m_real.WAPI_BCryptGetProperty(object, property, output, outputLength, resultLength,
                                                   flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId, LPCWSTR implementation,
                                   ULONG flags)>
        OnBCryptOpenAlgorithmProvider;
    CVeLResult<LONG> WAPI_BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                                      LPCWSTR implementation, ULONG flags) const override
    {
        Record("BCryptOpenAlgorithmProvider");
        return OnBCryptOpenAlgorithmProvider
                   ? OnBCryptOpenAlgorithmProvider(algorithm, algorithmId, implementation, flags)
                   : m_real.WAPI_BCryptOpenAlgorithmProvider(algorithm, algorithmId, implementation, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength,
                                   ULONG flags)>
        OnBCryptSetProperty;
    CVeLResult<LONG> WAPI_BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input,
                                            ULONG inputLength, ULONG flags) const override
    {
        Record("BCryptSetProperty");
        return OnBCryptSetProperty
                   ? OnBCryptSetProperty(object, property, input, inputLength, flags)
                   : m_real.WAPI_BCryptSetProperty(object, property, input, inputLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags)>
        OnBCryptGenRandom;
    CVeLResult<LONG> WAPI_BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length,
                                          ULONG flags) const override
    {
        Record("BCryptGenRandom");
        return OnBCryptGenRandom ? OnBCryptGenRandom(algorithm, buffer, length, flags)
                                 : m_real.WAPI_BCryptGenRandom(algorithm, buffer, length, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG flags)>
        OnBCryptFinishHash;
    CVeLResult<LONG> WAPI_BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength,
                                           ULONG flags) const override
    {
        Record("BCryptFinishHash");
        return OnBCryptFinishHash ? OnBCryptFinishHash(hash, output, outputLength, flags)
                                  : m_real.WAPI_BCryptFinishHash(hash, output, outputLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG flags)>
        OnBCryptHashData;
    CVeLResult<LONG> WAPI_BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength,
                                         ULONG flags) const override
    {
        Record("BCryptHashData");
        return OnBCryptHashData ? OnBCryptHashData(hash, input, inputLength, flags)
                                : m_real.WAPI_BCryptHashData(hash, input, inputLength, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_ALG_HANDLE algorithm, ULONG flags)> OnBCryptCloseAlgorithmProvider;
    CVeLResult<LONG> WAPI_BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm,
                                                       ULONG flags) const override
    {
        Record("BCryptCloseAlgorithmProvider");
        return OnBCryptCloseAlgorithmProvider ? OnBCryptCloseAlgorithmProvider(algorithm, flags)
                                              : m_real.WAPI_BCryptCloseAlgorithmProvider(algorithm, flags);
    }
    std::function<CVeLResult<LONG>(BCRYPT_HASH_HANDLE hash)> OnBCryptDestroyHash;
    CVeLResult<LONG> WAPI_BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) const override
    {
        Record("BCryptDestroyHash");
        return OnBCryptDestroyHash ? OnBCryptDestroyHash(hash) : m_real.WAPI_BCryptDestroyHash(hash);
    }
    std::function<CVeLResult<LONG>(BCRYPT_KEY_HANDLE key)> OnBCryptDestroyKey;
    CVeLResult<LONG> WAPI_BCryptDestroyKey(BCRYPT_KEY_HANDLE key) const override
    {
        Record("BCryptDestroyKey");
        return OnBCryptDestroyKey ? OnBCryptDestroyKey(key) : m_real.WAPI_BCryptDestroyKey(key);
    }

private:
    void Record(const char* name) const
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_calls.push_back(name);
    }

    CVeLWinAPIWrapper m_real;
    mutable std::mutex m_lock; // guards m_calls
    mutable std::vector<std::string> m_calls;
};
