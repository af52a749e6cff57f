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

// One operation: its override (On<Name>) and the forward that records the call.
#define KOR_FAKE_OPERATION(Return, Name, Parameters, Arguments)                                              \
    std::function<Return Parameters> On##Name;                                                               \
    Return WAPI_##Name Parameters const override                                                             \
    {                                                                                                        \
        Record(#Name);                                                                                       \
        return On##Name ? On##Name Arguments : m_real.WAPI_##Name Arguments;                                 \
    }

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

    KOR_FAKE_OPERATION(BOOL, CreateProcess,
                       (LPCWSTR applicationName, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                        LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                        LPVOID environment, LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                        LPPROCESS_INFORMATION processInformation),
                       (applicationName, commandLine, processAttributes, threadAttributes, inheritHandles,
                        creationFlags, environment, currentDirectory, startupInfo, processInformation))
    KOR_FAKE_OPERATION(LONG, RegQueryInfoKey,
                       (HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved, LPDWORD subKeys,
                        LPDWORD maxSubKeyLength, LPDWORD maxClassLength, LPDWORD values,
                        LPDWORD maxValueNameLength, LPDWORD maxValueLength, LPDWORD securityDescriptor,
                        PFILETIME lastWriteTime),
                       (key, className, classLength, reserved, subKeys, maxSubKeyLength, maxClassLength,
                        values, maxValueNameLength, maxValueLength, securityDescriptor, lastWriteTime))
    KOR_FAKE_OPERATION(BOOL, ReadDirectoryChangesW,
                       (HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                        DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                        LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine),
                       (directory, buffer, bufferLength, watchSubtree, notifyFilter, bytesReturned,
                        overlapped, completionRoutine))
    KOR_FAKE_OPERATION(HANDLE, CreateFile,
                       (LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                        LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                        DWORD flagsAndAttributes, HANDLE templateFile),
                       (fileName, desiredAccess, shareMode, securityAttributes, creationDisposition,
                        flagsAndAttributes, templateFile))
    KOR_FAKE_OPERATION(DWORD, RmRegisterResources,
                       (DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[], UINT applicationCount,
                        RM_UNIQUE_PROCESS applications[], UINT serviceCount, LPCWSTR serviceNames[]),
                       (sessionHandle, fileCount, fileNames, applicationCount, applications, serviceCount,
                        serviceNames))
    KOR_FAKE_OPERATION(HANDLE, CreateFileMapping,
                       (HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect, DWORD maximumSizeHigh,
                        DWORD maximumSizeLow, LPCWSTR name),
                       (file, attributes, protect, maximumSizeHigh, maximumSizeLow, name))
    KOR_FAKE_OPERATION(LPVOID, MapViewOfFile,
                       (HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                        SIZE_T bytesToMap),
                       (mapping, desiredAccess, fileOffsetHigh, fileOffsetLow, bytesToMap))
    KOR_FAKE_OPERATION(DWORD, GetPrivateProfileString,
                       (LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer, DWORD size,
                        LPCWSTR fileName),
                       (section, key, defaultValue, buffer, size, fileName))
    KOR_FAKE_OPERATION(DWORD, RmGetList,
                       (DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                        RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons),
                       (sessionHandle, procInfoNeeded, procInfo, affectedApps, rebootReasons))
    KOR_FAKE_OPERATION(BOOL, WriteFile,
                       (HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped),
                       (file, buffer, toWrite, written, overlapped))
    KOR_FAKE_OPERATION(BOOL, ReadFile,
                       (HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped),
                       (file, buffer, toRead, read, overlapped))
    KOR_FAKE_OPERATION(LONG, RegQueryValueEx,
                       (HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataSize),
                       (key, valueName, reserved, type, data, dataSize))
    KOR_FAKE_OPERATION(HANDLE, CreateEvent,
                       (LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name),
                       (attributes, manualReset, initialState, name))
    KOR_FAKE_OPERATION(BOOL, GetOverlappedResult,
                       (HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait),
                       (file, overlapped, transferred, wait))
    KOR_FAKE_OPERATION(BOOL, WritePrivateProfileString,
                       (LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR fileName),
                       (section, key, value, fileName))
    KOR_FAKE_OPERATION(LONG, RegOpenKeyEx,
                       (HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result),
                       (key, subKey, options, desired, result))
    KOR_FAKE_OPERATION(UINT, GetPrivateProfileInt,
                       (LPCWSTR section, LPCWSTR key, INT defaultValue, LPCWSTR fileName),
                       (section, key, defaultValue, fileName))
    KOR_FAKE_OPERATION(BOOL, QueryFullProcessImageName,
                       (HANDLE process, DWORD flags, LPWSTR exeName, PDWORD size),
                       (process, flags, exeName, size))
    KOR_FAKE_OPERATION(DWORD, GetModuleFileNameEx,
                       (HANDLE process, HMODULE module, LPWSTR fileName, DWORD size),
                       (process, module, fileName, size))
    KOR_FAKE_OPERATION(DWORD, RmStartSession, (DWORD * sessionHandle, DWORD sessionFlags, WCHAR sessionKey[]),
                       (sessionHandle, sessionFlags, sessionKey))
    KOR_FAKE_OPERATION(HANDLE, OpenProcess, (DWORD desiredAccess, BOOL inheritHandle, DWORD processId),
                       (desiredAccess, inheritHandle, processId))
    KOR_FAKE_OPERATION(HANDLE, OpenFileMapping, (DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name),
                       (desiredAccess, inheritHandle, name))
    KOR_FAKE_OPERATION(BOOL, EnumChildWindows, (HWND parent, WNDENUMPROC callback, LPARAM parameter),
                       (parent, callback, parameter))
    KOR_FAKE_OPERATION(DWORD, GetEnvironmentVariable, (LPCWSTR name, LPWSTR buffer, DWORD size),
                       (name, buffer, size))
    KOR_FAKE_OPERATION(HANDLE, FindFirstFile, (LPCWSTR fileName, LPWIN32_FIND_DATAW findData),
                       (fileName, findData))
    KOR_FAKE_OPERATION(LONG, RegEnumKey, (HKEY key, DWORD index, LPWSTR name, DWORD nameSize),
                       (key, index, name, nameSize))
    KOR_FAKE_OPERATION(BOOL, FindNextFile, (HANDLE findFile, LPWIN32_FIND_DATAW findData),
                       (findFile, findData))
    KOR_FAKE_OPERATION(BOOL, PostMessage, (HWND window, UINT message, WPARAM wParam, LPARAM lParam),
                       (window, message, wParam, lParam))
    KOR_FAKE_OPERATION(BOOL, SetFileAttributes, (LPCWSTR fileName, DWORD attributes), (fileName, attributes))
    KOR_FAKE_OPERATION(HANDLE, CreateToolhelp32Snapshot, (DWORD flags, DWORD processId), (flags, processId))
    KOR_FAKE_OPERATION(DWORD, GetWindowThreadProcessId, (HWND window, LPDWORD processId), (window, processId))
    KOR_FAKE_OPERATION(BOOL, GetExitCodeProcess, (HANDLE process, LPDWORD exitCode), (process, exitCode))
    KOR_FAKE_OPERATION(DWORD, WaitForInputIdle, (HANDLE process, DWORD milliseconds), (process, milliseconds))
    KOR_FAKE_OPERATION(BOOL, SetEnvironmentVariable, (LPCWSTR name, LPCWSTR value), (name, value))
    KOR_FAKE_OPERATION(BOOL, Process32First, (HANDLE snapshot, LPPROCESSENTRY32W entry), (snapshot, entry))
    KOR_FAKE_OPERATION(BOOL, Process32Next, (HANDLE snapshot, LPPROCESSENTRY32W entry), (snapshot, entry))
    KOR_FAKE_OPERATION(BOOL, EnumWindows, (WNDENUMPROC callback, LPARAM parameter), (callback, parameter))
    KOR_FAKE_OPERATION(BOOL, TerminateProcess, (HANDLE process, UINT exitCode), (process, exitCode))
    KOR_FAKE_OPERATION(CVeLResult<__int64>, NTGetSizeOfSharedMemory, (HANDLE mapping), (mapping))
    KOR_FAKE_OPERATION(void, GetLocalTime, (LPSYSTEMTIME systemTime), (systemTime))
    KOR_FAKE_OPERATION(BOOL, UnmapViewOfFile, (LPCVOID baseAddress), (baseAddress))
    KOR_FAKE_OPERATION(DWORD, GetFileAttributes, (LPCWSTR fileName), (fileName))
    KOR_FAKE_OPERATION(BOOL, PathIsDirectoryEmpty, (LPCWSTR path), (path))
    KOR_FAKE_OPERATION(BOOL, RemoveDirectory, (LPCWSTR path), (path))
    KOR_FAKE_OPERATION(DWORD, RmEndSession, (DWORD sessionHandle), (sessionHandle))
    KOR_FAKE_OPERATION(BOOL, PathIsDirectory, (LPCWSTR path), (path))
    KOR_FAKE_OPERATION(BOOL, DeleteFile, (LPCWSTR fileName), (fileName))
    KOR_FAKE_OPERATION(HANDLE, GetStdHandle, (DWORD which), (which))
    KOR_FAKE_OPERATION(BOOL, CloseHandle, (HANDLE handle), (handle))
    KOR_FAKE_OPERATION(BOOL, FindClose, (HANDLE findFile), (findFile))
    KOR_FAKE_OPERATION(BOOL, ResetEvent, (HANDLE event), (event))
    KOR_FAKE_OPERATION(BOOL, SetEvent, (HANDLE event), (event))
    KOR_FAKE_OPERATION(LONG, RegCloseKey, (HKEY key), (key))
    KOR_FAKE_OPERATION(DWORD, GetCurrentProcessId, (), ())
    KOR_FAKE_OPERATION(HWND, GetForegroundWindow, (), ())
    KOR_FAKE_OPERATION(BOOL, IsWindow, (HWND window), (window))
    KOR_FAKE_OPERATION(DWORD, GetLastError, (), ())
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptDecrypt,
                       (BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo, PUCHAR iv,
                        ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength, ULONG flags),
                       (key, input, inputLength, paddingInfo, iv, ivLength, output, outputLength,
                        resultLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptEncrypt,
                       (BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength, PVOID paddingInfo, PUCHAR iv,
                        ULONG ivLength, PUCHAR output, ULONG outputLength, ULONG* resultLength, ULONG flags),
                       (key, input, inputLength, paddingInfo, iv, ivLength, output, outputLength,
                        resultLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptGenerateSymmetricKey,
                       (BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key, PUCHAR keyObject,
                        ULONG keyObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags),
                       (algorithm, key, keyObject, keyObjectLength, secret, secretLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptCreateHash,
                       (BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                        ULONG hashObjectLength, PUCHAR secret, ULONG secretLength, ULONG flags),
                       (algorithm, hash, hashObject, hashObjectLength, secret, secretLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptGetProperty,
                       (BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG outputLength,
                        ULONG* resultLength, ULONG flags),
                       (object, property, output, outputLength, resultLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptOpenAlgorithmProvider,
                       (BCRYPT_ALG_HANDLE * algorithm, LPCWSTR algorithmId, LPCWSTR implementation,
                        ULONG flags),
                       (algorithm, algorithmId, implementation, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptSetProperty,
                       (BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input, ULONG inputLength, ULONG flags),
                       (object, property, input, inputLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptGenRandom,
                       (BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length, ULONG flags),
                       (algorithm, buffer, length, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptFinishHash,
                       (BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength, ULONG flags),
                       (hash, output, outputLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptHashData,
                       (BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG flags),
                       (hash, input, inputLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptCloseAlgorithmProvider,
                       (BCRYPT_ALG_HANDLE algorithm, ULONG flags), (algorithm, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptDestroyHash, (BCRYPT_HASH_HANDLE hash), (hash))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptDestroyKey, (BCRYPT_KEY_HANDLE key), (key))

    // Crash-safe file replacement.
    KOR_FAKE_OPERATION(BOOL, MoveFileEx, (LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags),
                       (existingFileName, newFileName, flags))
    KOR_FAKE_OPERATION(BOOL, FlushFileBuffers, (HANDLE file), (file))
    // Hashing, packing and compound files.
    KOR_FAKE_OPERATION(BOOL, SetFilePointerEx,
                       (HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD moveMethod),
                       (file, distance, newPosition, moveMethod))
    KOR_FAKE_OPERATION(BOOL, GetFileSizeEx, (HANDLE file, PLARGE_INTEGER size), (file, size))
    KOR_FAKE_OPERATION(HRESULT, StgCreateStorageEx,
                       (const WCHAR* name, DWORD mode, DWORD format, DWORD attributes, STGOPTIONS* options,
                        PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid, void** object),
                       (name, mode, format, attributes, options, securityDescriptor, riid, object))
    KOR_FAKE_OPERATION(HRESULT, StgOpenStorageEx,
                       (const WCHAR* name, DWORD mode, DWORD format, DWORD attributes, STGOPTIONS* options,
                        PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid, void** object),
                       (name, mode, format, attributes, options, securityDescriptor, riid, object))
    KOR_FAKE_OPERATION(void, CoTaskMemFree, (LPVOID memory), (memory))
    KOR_FAKE_OPERATION(LONG, RegGetValue,
                       (HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type, PVOID data,
                        LPDWORD dataSize),
                       (key, subKey, value, flags, type, data, dataSize))
    // Watchers, well-known folders and file times.
    KOR_FAKE_OPERATION(BOOL, CancelIoEx, (HANDLE file, LPOVERLAPPED overlapped), (file, overlapped))
    KOR_FAKE_OPERATION(HRESULT, SHGetKnownFolderPath,
                       (REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token, PWSTR* path),
                       (folderId, flags, token, path))
    KOR_FAKE_OPERATION(DWORD, GetTempPath, (DWORD size, LPWSTR buffer), (size, buffer))
    KOR_FAKE_OPERATION(DWORD, GetModuleFileName, (HMODULE module, LPWSTR fileName, DWORD size),
                       (module, fileName, size))
    KOR_FAKE_OPERATION(BOOL, GetFileAttributesEx,
                       (LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel, LPVOID information),
                       (fileName, infoLevel, information))
    KOR_FAKE_OPERATION(BOOL, SetFileTime,
                       (HANDLE file, const FILETIME* creationTime, const FILETIME* lastAccessTime,
                        const FILETIME* lastWriteTime),
                       (file, creationTime, lastAccessTime, lastWriteTime))
    KOR_FAKE_OPERATION(BOOL, FileTimeToSystemTime, (const FILETIME* fileTime, LPSYSTEMTIME systemTime),
                       (fileTime, systemTime))
    KOR_FAKE_OPERATION(BOOL, SystemTimeToTzSpecificLocalTime,
                       (const TIME_ZONE_INFORMATION* timeZone, const SYSTEMTIME* universalTime,
                        LPSYSTEMTIME localTime),
                       (timeZone, universalTime, localTime))
    // Processes and libraries.
    KOR_FAKE_OPERATION(HMODULE, LoadLibrary, (LPCWSTR fileName), (fileName))
    KOR_FAKE_OPERATION(FARPROC, GetProcAddress, (HMODULE module, LPCSTR procName), (module, procName))
    KOR_FAKE_OPERATION(BOOL, FreeLibrary, (HMODULE module), (module))
    KOR_FAKE_OPERATION(LPWCH, GetEnvironmentStrings, (), ())
    KOR_FAKE_OPERATION(BOOL, FreeEnvironmentStrings, (LPWCH block), (block))
    KOR_FAKE_OPERATION(BOOL, GenerateConsoleCtrlEvent, (DWORD ctrlEvent, DWORD processGroupId),
                       (ctrlEvent, processGroupId))
    KOR_FAKE_OPERATION(DWORD, GetProcessId, (HANDLE process), (process))
    KOR_FAKE_OPERATION(DWORD, RmShutdown,
                       (DWORD sessionHandle, ULONG actionFlags, RM_WRITE_STATUS_CALLBACK status),
                       (sessionHandle, actionFlags, status))
    KOR_FAKE_OPERATION(DWORD, RmRestart,
                       (DWORD sessionHandle, DWORD restartFlags, RM_WRITE_STATUS_CALLBACK status),
                       (sessionHandle, restartFlags, status))
    // Configuration and versions.
    KOR_FAKE_OPERATION(LONG, RegEnumValue,
                       (HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize, LPDWORD reserved,
                        LPDWORD type, LPBYTE data, LPDWORD dataSize),
                       (key, index, valueName, valueNameSize, reserved, type, data, dataSize))
    KOR_FAKE_OPERATION(DWORD, ExpandEnvironmentStrings, (LPCWSTR source, LPWSTR buffer, DWORD size),
                       (source, buffer, size))
    KOR_FAKE_OPERATION(DWORD, GetFileVersionInfoSize, (LPCWSTR fileName, LPDWORD handle), (fileName, handle))
    KOR_FAKE_OPERATION(BOOL, GetFileVersionInfo, (LPCWSTR fileName, DWORD handle, DWORD size, LPVOID data),
                       (fileName, handle, size, data))
    KOR_FAKE_OPERATION(BOOL, VerQueryValue, (LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, PUINT length),
                       (block, subBlock, buffer, length))
    // Resource strings.
    KOR_FAKE_OPERATION(HMODULE, LoadLibraryEx, (LPCWSTR fileName, HANDLE file, DWORD flags),
                       (fileName, file, flags))
    KOR_FAKE_OPERATION(int, LoadString, (HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax),
                       (instance, id, buffer, bufferMax))

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

#undef KOR_FAKE_OPERATION
