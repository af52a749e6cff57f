// CFakeWinAPIWrapper: a replacement operating-system facade for tests. It is the real facade with a row
// below for each operation a test replaces or counts: such an operation is recorded by name and forwards to
// the system unless the test sets the matching On<Operation> function, so a test can fail exactly one
// operation (for example OnCreateFile returning INVALID_HANDLE_VALUE after SetLastError(5)) and let the rest
// reach the system. Operations without a row reach the system unrecorded; a test that needs one adds its
// row. Thread-safe for recording; set the overrides before the object under test starts using the facade.
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
        return On##Name ? On##Name Arguments : CVeLWinAPIWrapper::WAPI_##Name Arguments;                     \
    }

// An override for any On<Operation> that fails as the system does: sets the last error to error and answers
// value, whatever the arguments.
template <typename Value>
auto FailWith(Value value, DWORD error)
{
    return [value, error](auto&&...)
    {
        SetLastError(error);
        return value;
    };
}

class CFakeWinAPIWrapper : public CVeLWinAPIWrapper
{
public:
    // The names of the recorded operations called so far, without the "WAPI_" prefix, in call order.
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
    KOR_FAKE_OPERATION(BOOL, WritePrivateProfileString,
                       (LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR fileName),
                       (section, key, value, fileName))
    KOR_FAKE_OPERATION(LONG, RegOpenKeyEx,
                       (HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired, PHKEY result),
                       (key, subKey, options, desired, result))
    KOR_FAKE_OPERATION(DWORD, RmStartSession, (DWORD * sessionHandle, DWORD sessionFlags, WCHAR sessionKey[]),
                       (sessionHandle, sessionFlags, sessionKey))
    KOR_FAKE_OPERATION(HANDLE, OpenFileMapping, (DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name),
                       (desiredAccess, inheritHandle, name))
    KOR_FAKE_OPERATION(HANDLE, FindFirstFile, (LPCWSTR fileName, LPWIN32_FIND_DATAW findData),
                       (fileName, findData))
    KOR_FAKE_OPERATION(CVeLResult<__int64>, NTGetSizeOfSharedMemory, (HANDLE mapping), (mapping))
    KOR_FAKE_OPERATION(BOOL, UnmapViewOfFile, (LPCVOID baseAddress), (baseAddress))
    KOR_FAKE_OPERATION(DWORD, GetFileAttributes, (LPCWSTR fileName), (fileName))
    KOR_FAKE_OPERATION(DWORD, RmEndSession, (DWORD sessionHandle), (sessionHandle))
    KOR_FAKE_OPERATION(BOOL, DeleteFile, (LPCWSTR fileName), (fileName))
    KOR_FAKE_OPERATION(BOOL, CloseHandle, (HANDLE handle), (handle))
    KOR_FAKE_OPERATION(LONG, RegCloseKey, (HKEY key), (key))
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
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptHashData,
                       (BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength, ULONG flags),
                       (hash, input, inputLength, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptCloseAlgorithmProvider,
                       (BCRYPT_ALG_HANDLE algorithm, ULONG flags), (algorithm, flags))
    KOR_FAKE_OPERATION(CVeLResult<LONG>, BCryptDestroyHash, (BCRYPT_HASH_HANDLE hash), (hash))
    KOR_FAKE_OPERATION(BOOL, MoveFileEx, (LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags),
                       (existingFileName, newFileName, flags))
    KOR_FAKE_OPERATION(BOOL, FlushFileBuffers, (HANDLE file), (file))
    KOR_FAKE_OPERATION(void, CoTaskMemFree, (LPVOID memory), (memory))
    KOR_FAKE_OPERATION(LONG, RegGetValue,
                       (HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type, PVOID data,
                        LPDWORD dataSize),
                       (key, subKey, value, flags, type, data, dataSize))
    KOR_FAKE_OPERATION(BOOL, CancelIoEx, (HANDLE file, LPOVERLAPPED overlapped), (file, overlapped))
    KOR_FAKE_OPERATION(HRESULT, SHGetKnownFolderPath,
                       (REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token, PWSTR* path),
                       (folderId, flags, token, path))
    KOR_FAKE_OPERATION(DWORD, GetModuleFileName, (HMODULE module, LPWSTR fileName, DWORD size),
                       (module, fileName, size))
    KOR_FAKE_OPERATION(BOOL, FreeLibrary, (HMODULE module), (module))
    KOR_FAKE_OPERATION(LPWCH, GetEnvironmentStrings, (), ())
    KOR_FAKE_OPERATION(BOOL, VerQueryValue, (LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, PUINT length),
                       (block, subBlock, buffer, length))

private:
    void Record(const char* name) const
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_calls.push_back(name);
    }

    mutable std::mutex m_lock; // guards m_calls
    mutable std::vector<std::string> m_calls;
};

#undef KOR_FAKE_OPERATION
