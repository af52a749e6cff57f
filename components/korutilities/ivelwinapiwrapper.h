// IVeLWinAPIWrapper: the one seam between the library's logic and the operating system.
//
// Every implementation class that needs a system call holds a shared pointer to this interface and calls
// the system only through it, so a test can put a replacement in its place and see exactly the calls a class
// makes. Each operation has the signature of the Win32 function named after "WAPI_" (the wide-character
// variant where there is one) and, in the default implementation CVeLWinAPIWrapper, forwards to it: success
// and failure are that function's, read with WAPI_GetLastError where the function sets the last error.
// Exceptions: the cryptography operations wrap their NTSTATUS in CVeLResult<LONG> (success when the status
// is not negative; the status is kept either way) and WAPI_NTGetSizeOfSharedMemory, which has no Win32
// counterpart. The operations are const and keep no state, so one instance may serve many threads.
// The order of the operations is fixed: replacements and binary users depend on it.
#pragma once

#include "velresult.h"
#include "velwin32.h"

class IVeLWinAPIWrapper
{
public:
    virtual ~IVeLWinAPIWrapper() {}
    // Also writes the arguments to the trace at debug level 3 before the call.
    virtual BOOL WAPI_CreateProcess(LPCWSTR applicationName, LPWSTR commandLine,
                                    LPSECURITY_ATTRIBUTES processAttributes,
                                    LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles,
                                    DWORD creationFlags, LPVOID environment, LPCWSTR currentDirectory,
                                    LPSTARTUPINFOW startupInfo,
                                    LPPROCESS_INFORMATION processInformation) const = 0; // 1
    virtual LONG WAPI_RegQueryInfoKey(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved,
                                      LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                                      LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                                      LPDWORD securityDescriptor, PFILETIME lastWriteTime) const = 0; // 2
    virtual BOOL WAPI_ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength,
                                            BOOL watchSubtree, DWORD notifyFilter, LPDWORD bytesReturned,
                                            LPOVERLAPPED overlapped,
                                            LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine) const = 0; // 3
    virtual HANDLE WAPI_CreateFile(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                                   LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                                   DWORD flagsAndAttributes, HANDLE templateFile) const = 0; // 4
    virtual DWORD WAPI_RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[],
                                           UINT applicationCount, RM_UNIQUE_PROCESS applications[],
                                           UINT serviceCount, LPCWSTR serviceNames[]) const = 0; // 5
    virtual HANDLE WAPI_CreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                          DWORD maximumSizeHigh, DWORD maximumSizeLow,
                                          LPCWSTR name) const = 0; // 6
    virtual LPVOID WAPI_MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh,
                                      DWORD fileOffsetLow, SIZE_T bytesToMap) const = 0; // 7
    virtual DWORD WAPI_GetPrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue,
                                               LPWSTR buffer, DWORD size, LPCWSTR fileName) const = 0; // 8
    virtual DWORD WAPI_RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                                 RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons) const = 0; // 9
    virtual BOOL WAPI_WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
                                LPOVERLAPPED overlapped) const = 0; // 10
    virtual BOOL WAPI_ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read,
                               LPOVERLAPPED overlapped) const = 0; // 11
    virtual LONG WAPI_RegQueryValueEx(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type,
                                      LPBYTE data, LPDWORD dataSize) const = 0; // 12
    virtual HANDLE WAPI_CreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                                    LPCWSTR name) const = 0; // 13
    virtual BOOL WAPI_GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred,
                                          BOOL wait) const = 0; // 14
    virtual BOOL WAPI_WritePrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR value,
                                                LPCWSTR fileName) const = 0; // 15
    virtual LONG WAPI_RegOpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired,
                                   PHKEY result) const = 0; // 16
    virtual UINT WAPI_GetPrivateProfileInt(LPCWSTR section, LPCWSTR key, INT defaultValue,
                                           LPCWSTR fileName) const = 0; // 17
    virtual BOOL WAPI_QueryFullProcessImageName(HANDLE process, DWORD flags, LPWSTR exeName,
                                                PDWORD size) const = 0; // 18
    virtual DWORD WAPI_GetModuleFileNameEx(HANDLE process, HMODULE module, LPWSTR fileName,
                                           DWORD size) const = 0; // 19
    virtual DWORD WAPI_RmStartSession(DWORD* sessionHandle, DWORD sessionFlags,
                                      WCHAR sessionKey[]) const = 0;                                     // 20
    virtual HANDLE WAPI_OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId) const = 0; // 21
    virtual HANDLE WAPI_OpenFileMapping(DWORD desiredAccess, BOOL inheritHandle,
                                        LPCWSTR name) const = 0;                                       // 22
    virtual BOOL WAPI_EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter) const = 0; // 23
    virtual DWORD WAPI_GetEnvironmentVariable(LPCWSTR name, LPWSTR buffer, DWORD size) const = 0;      // 24
    virtual HANDLE WAPI_FindFirstFile(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) const = 0;        // 25
    virtual LONG WAPI_RegEnumKey(HKEY key, DWORD index, LPWSTR name, DWORD nameSize) const = 0;        // 26
    virtual BOOL WAPI_FindNextFile(HANDLE findFile, LPWIN32_FIND_DATAW findData) const = 0;            // 27
    virtual BOOL WAPI_PostMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) const = 0;  // 28
    virtual BOOL WAPI_SetFileAttributes(LPCWSTR fileName, DWORD attributes) const = 0;                 // 29
    virtual HANDLE WAPI_CreateToolhelp32Snapshot(DWORD flags, DWORD processId) const = 0;              // 30
    virtual DWORD WAPI_GetWindowThreadProcessId(HWND window, LPDWORD processId) const = 0;             // 31
    virtual BOOL WAPI_GetExitCodeProcess(HANDLE process, LPDWORD exitCode) const = 0;                  // 32
    virtual DWORD WAPI_WaitForInputIdle(HANDLE process, DWORD milliseconds) const = 0;                 // 33
    virtual BOOL WAPI_SetEnvironmentVariable(LPCWSTR name, LPCWSTR value) const = 0;                   // 34
    virtual BOOL WAPI_Process32First(HANDLE snapshot, LPPROCESSENTRY32W entry) const = 0;              // 35
    virtual BOOL WAPI_Process32Next(HANDLE snapshot, LPPROCESSENTRY32W entry) const = 0;               // 36
    virtual BOOL WAPI_EnumWindows(WNDENUMPROC callback, LPARAM parameter) const = 0;                   // 37
    virtual BOOL WAPI_TerminateProcess(HANDLE process, UINT exitCode) const = 0;                       // 38
    // The size of a shared-memory section, which the documented calls do not give. A failed result for a
    // null handle or when the section query can't be found; the query's own
    // status is not examined, the caller validates the size.
    virtual CVeLResult<__int64> WAPI_NTGetSizeOfSharedMemory(HANDLE mapping) const = 0; // 39
    virtual void WAPI_GetLocalTime(LPSYSTEMTIME systemTime) const = 0;                  // 40
    virtual BOOL WAPI_UnmapViewOfFile(LPCVOID baseAddress) const = 0;                   // 41
    virtual DWORD WAPI_GetFileAttributes(LPCWSTR fileName) const = 0;                   // 42
    virtual BOOL WAPI_PathIsDirectoryEmpty(LPCWSTR path) const = 0;                     // 43
    virtual BOOL WAPI_RemoveDirectory(LPCWSTR path) const = 0;                          // 44
    virtual DWORD WAPI_RmEndSession(DWORD sessionHandle) const = 0;                     // 45
    virtual BOOL WAPI_PathIsDirectory(LPCWSTR path) const = 0;                          // 46
    virtual BOOL WAPI_DeleteFile(LPCWSTR fileName) const = 0;                           // 47
    virtual HANDLE WAPI_GetStdHandle(DWORD which) const = 0;                            // 48
    virtual BOOL WAPI_CloseHandle(HANDLE handle) const = 0;                             // 49
    virtual BOOL WAPI_FindClose(HANDLE findFile) const = 0;                             // 50
    virtual BOOL WAPI_ResetEvent(HANDLE event) const = 0;                               // 51
    virtual BOOL WAPI_SetEvent(HANDLE event) const = 0;                                 // 52
    virtual LONG WAPI_RegCloseKey(HKEY key) const = 0;                                  // 53
    virtual DWORD WAPI_GetCurrentProcessId() const = 0;                                 // 54
    virtual HWND WAPI_GetForegroundWindow() const = 0;                                  // 55
    virtual BOOL WAPI_IsWindow(HWND window) const = 0;                                  // 56
    virtual DWORD WAPI_GetLastError() const = 0;                                        // 57
    // Cryptography: the NTSTATUS in a CVeLResult<LONG>, successful when the status is not negative.
    virtual CVeLResult<LONG> WAPI_BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                                PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                                ULONG outputLength, ULONG* resultLength,
                                                ULONG flags) const = 0; // 58
    virtual CVeLResult<LONG> WAPI_BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                                PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                                ULONG outputLength, ULONG* resultLength,
                                                ULONG flags) const = 0; // 59
    virtual CVeLResult<LONG> WAPI_BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm,
                                                             BCRYPT_KEY_HANDLE* key, PUCHAR keyObject,
                                                             ULONG keyObjectLength, PUCHAR secret,
                                                             ULONG secretLength, ULONG flags) const = 0; // 60
    virtual CVeLResult<LONG> WAPI_BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash,
                                                   PUCHAR hashObject, ULONG hashObjectLength, PUCHAR secret,
                                                   ULONG secretLength, ULONG flags) const = 0; // 61
    virtual CVeLResult<LONG> WAPI_BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output,
                                                    ULONG outputLength, ULONG* resultLength,
                                                    ULONG flags) const = 0; // 62
    virtual CVeLResult<LONG> WAPI_BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm,
                                                              LPCWSTR algorithmId, LPCWSTR implementation,
                                                              ULONG flags) const = 0; // 63
    virtual CVeLResult<LONG> WAPI_BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input,
                                                    ULONG inputLength, ULONG flags) const = 0; // 64
    virtual CVeLResult<LONG> WAPI_BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length,
                                                  ULONG flags) const = 0; // 65
    virtual CVeLResult<LONG> WAPI_BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength,
                                                   ULONG flags) const = 0; // 66
    virtual CVeLResult<LONG> WAPI_BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength,
                                                 ULONG flags) const = 0; // 67
    virtual CVeLResult<LONG> WAPI_BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm,
                                                               ULONG flags) const = 0;  // 68
    virtual CVeLResult<LONG> WAPI_BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) const = 0; // 69
    virtual CVeLResult<LONG> WAPI_BCryptDestroyKey(BCRYPT_KEY_HANDLE key) const = 0;    // 70

    // Crash-safe file replacement: renaming a finished file over another, flushing a file to the disk.
    virtual BOOL WAPI_MoveFileEx(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) const = 0; // 71
    virtual BOOL WAPI_FlushFileBuffers(HANDLE file) const = 0;                                          // 72

    // Hashing, packing and compound files: file positions for archives, structured storage for compound
    // files, the registry value that identifies this machine. Each forwards to the Win32 function of its
    // name.
    virtual BOOL WAPI_SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                                       DWORD moveMethod) const = 0;              // 73
    virtual BOOL WAPI_GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) const = 0; // 74
    virtual HRESULT WAPI_StgCreateStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                            STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor,
                                            REFIID riid, void** object) const = 0; // 75
    virtual HRESULT WAPI_StgOpenStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                          STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor,
                                          REFIID riid, void** object) const = 0; // 76
    virtual void WAPI_CoTaskMemFree(LPVOID memory) const = 0;                    // 77
    virtual LONG WAPI_RegGetValue(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type,
                                  PVOID data, LPDWORD dataSize) const = 0; // 78
    // Watchers, well-known folders and file times.
    virtual BOOL WAPI_CancelIoEx(HANDLE file, LPOVERLAPPED overlapped) const = 0; // 79
    virtual HRESULT WAPI_SHGetKnownFolderPath(REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token,
                                              PWSTR* path) const = 0;                            // 80
    virtual DWORD WAPI_GetTempPath(DWORD size, LPWSTR buffer) const = 0;                         // 81
    virtual DWORD WAPI_GetModuleFileName(HMODULE module, LPWSTR fileName, DWORD size) const = 0; // 82
    virtual BOOL WAPI_GetFileAttributesEx(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel,
                                          LPVOID information) const = 0; // 83
    virtual BOOL WAPI_SetFileTime(HANDLE file, const FILETIME* creationTime, const FILETIME* lastAccessTime,
                                  const FILETIME* lastWriteTime) const = 0;                              // 84
    virtual BOOL WAPI_FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime) const = 0; // 85
    virtual BOOL WAPI_SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* timeZone,
                                                      const SYSTEMTIME* universalTime,
                                                      LPSYSTEMTIME localTime) const = 0; // 86

    // Processes and libraries: loading modules and finding their functions, the whole environment block,
    // the polite console request to end, the id behind a process handle, and the Restart Manager's
    // shutdown and restart. Each forwards to the Win32 function of its name.
    virtual HMODULE WAPI_LoadLibrary(LPCWSTR fileName) const = 0;                                // 87
    virtual FARPROC WAPI_GetProcAddress(HMODULE module, LPCSTR procName) const = 0;              // 88
    virtual BOOL WAPI_FreeLibrary(HMODULE module) const = 0;                                     // 89
    virtual LPWCH WAPI_GetEnvironmentStrings() const = 0;                                        // 90
    virtual BOOL WAPI_FreeEnvironmentStrings(LPWCH block) const = 0;                             // 91
    virtual BOOL WAPI_GenerateConsoleCtrlEvent(DWORD ctrlEvent, DWORD processGroupId) const = 0; // 92
    virtual DWORD WAPI_GetProcessId(HANDLE process) const = 0;                                   // 93
    virtual DWORD WAPI_RmShutdown(DWORD sessionHandle, ULONG actionFlags,
                                  RM_WRITE_STATUS_CALLBACK status) const = 0; // 94
    virtual DWORD WAPI_RmRestart(DWORD sessionHandle, DWORD restartFlags,
                                 RM_WRITE_STATUS_CALLBACK status) const = 0; // 95
    // Configuration and versions: registry values by index, environment expansion of REG_EXPAND_SZ text,
    // version resources of executable files.
    virtual LONG WAPI_RegEnumValue(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize,
                                   LPDWORD reserved, LPDWORD type, LPBYTE data,
                                   LPDWORD dataSize) const = 0;                                       // 96
    virtual DWORD WAPI_ExpandEnvironmentStrings(LPCWSTR source, LPWSTR buffer, DWORD size) const = 0; // 97
    virtual DWORD WAPI_GetFileVersionInfoSize(LPCWSTR fileName, LPDWORD handle) const = 0;            // 98
    virtual BOOL WAPI_GetFileVersionInfo(LPCWSTR fileName, DWORD handle, DWORD size,
                                         LPVOID data) const = 0; // 99
    virtual BOOL WAPI_VerQueryValue(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer,
                                    PUINT length) const = 0; // 100

    // Resource strings: a module opened as a data file, and a text of its string table. Each forwards to
    // the Win32 function of its name.
    virtual HMODULE WAPI_LoadLibraryEx(LPCWSTR fileName, HANDLE file, DWORD flags) const = 0;         // 101
    virtual int WAPI_LoadString(HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax) const = 0; // 102
};
