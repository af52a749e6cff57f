// CVeLWinAPIWrapper: the default operating-system facade. Each operation forwards its arguments unchanged
// to the system function of the same name and returns its result unchanged (see IVeLWinAPIWrapper); on
// Linux those functions come from win32posix. It has no data, so copies are free and one instance may be
// shared by every object and thread.
#pragma once

#include "ivelwinapiwrapper.h"
#include "korutilities_export.h"

#include <string>

class KORUTILITIES_API CVeLWinAPIWrapper : public IVeLWinAPIWrapper
{
public:
    CVeLWinAPIWrapper();
    CVeLWinAPIWrapper(const CVeLWinAPIWrapper& other);
    CVeLWinAPIWrapper& operator=(const CVeLWinAPIWrapper& other);
    ~CVeLWinAPIWrapper() override;

    BOOL WAPI_CreateProcess(LPCWSTR applicationName, LPWSTR commandLine,
                            LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                            BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                            LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                            LPPROCESS_INFORMATION processInformation) const override;
    LONG WAPI_RegQueryInfoKey(HKEY key, LPWSTR className, LPDWORD classLength, LPDWORD reserved,
                              LPDWORD subKeys, LPDWORD maxSubKeyLength, LPDWORD maxClassLength,
                              LPDWORD values, LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                              LPDWORD securityDescriptor, PFILETIME lastWriteTime) const override;
    BOOL WAPI_ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength, BOOL watchSubtree,
                                    DWORD notifyFilter, LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                                    LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine) const override;
    HANDLE WAPI_CreateFile(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                           LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                           DWORD flagsAndAttributes, HANDLE templateFile) const override;
    DWORD WAPI_RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[],
                                   UINT applicationCount, RM_UNIQUE_PROCESS applications[], UINT serviceCount,
                                   LPCWSTR serviceNames[]) const override;
    HANDLE WAPI_CreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                  DWORD maximumSizeHigh, DWORD maximumSizeLow, LPCWSTR name) const override;
    LPVOID WAPI_MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh, DWORD fileOffsetLow,
                              SIZE_T bytesToMap) const override;
    DWORD WAPI_GetPrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue, LPWSTR buffer,
                                       DWORD size, LPCWSTR fileName) const override;
    DWORD WAPI_RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                         RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons) const override;
    BOOL WAPI_WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
                        LPOVERLAPPED overlapped) const override;
    BOOL WAPI_ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read,
                       LPOVERLAPPED overlapped) const override;
    LONG WAPI_RegQueryValueEx(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                              LPDWORD dataSize) const override;
    HANDLE WAPI_CreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                            LPCWSTR name) const override;
    BOOL WAPI_GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred,
                                  BOOL wait) const override;
    BOOL WAPI_WritePrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR value,
                                        LPCWSTR fileName) const override;
    LONG WAPI_RegOpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired,
                           PHKEY result) const override;
    UINT WAPI_GetPrivateProfileInt(LPCWSTR section, LPCWSTR key, INT defaultValue,
                                   LPCWSTR fileName) const override;
    BOOL WAPI_QueryFullProcessImageName(HANDLE process, DWORD flags, LPWSTR exeName,
                                        PDWORD size) const override;
    DWORD WAPI_GetModuleFileNameEx(HANDLE process, HMODULE module, LPWSTR fileName,
                                   DWORD size) const override;
    DWORD WAPI_RmStartSession(DWORD* sessionHandle, DWORD sessionFlags, WCHAR sessionKey[]) const override;
    HANDLE WAPI_OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId) const override;
    HANDLE WAPI_OpenFileMapping(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name) const override;
    BOOL WAPI_EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter) const override;
    DWORD WAPI_GetEnvironmentVariable(LPCWSTR name, LPWSTR buffer, DWORD size) const override;
    HANDLE WAPI_FindFirstFile(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) const override;
    LONG WAPI_RegEnumKey(HKEY key, DWORD index, LPWSTR name, DWORD nameSize) const override;
    BOOL WAPI_FindNextFile(HANDLE findFile, LPWIN32_FIND_DATAW findData) const override;
    BOOL WAPI_PostMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) const override;
    BOOL WAPI_SetFileAttributes(LPCWSTR fileName, DWORD attributes) const override;
    HANDLE WAPI_CreateToolhelp32Snapshot(DWORD flags, DWORD processId) const override;
    DWORD WAPI_GetWindowThreadProcessId(HWND window, LPDWORD processId) const override;
    BOOL WAPI_GetExitCodeProcess(HANDLE process, LPDWORD exitCode) const override;
    DWORD WAPI_WaitForInputIdle(HANDLE process, DWORD milliseconds) const override;
    BOOL WAPI_SetEnvironmentVariable(LPCWSTR name, LPCWSTR value) const override;
    BOOL WAPI_Process32First(HANDLE snapshot, LPPROCESSENTRY32W entry) const override;
    BOOL WAPI_Process32Next(HANDLE snapshot, LPPROCESSENTRY32W entry) const override;
    BOOL WAPI_EnumWindows(WNDENUMPROC callback, LPARAM parameter) const override;
    BOOL WAPI_TerminateProcess(HANDLE process, UINT exitCode) const override;
    CVeLResult<__int64> WAPI_NTGetSizeOfSharedMemory(HANDLE mapping) const override;
    void WAPI_GetLocalTime(LPSYSTEMTIME systemTime) const override;
    BOOL WAPI_UnmapViewOfFile(LPCVOID baseAddress) const override;
    DWORD WAPI_GetFileAttributes(LPCWSTR fileName) const override;
    BOOL WAPI_PathIsDirectoryEmpty(LPCWSTR path) const override;
    BOOL WAPI_RemoveDirectory(LPCWSTR path) const override;
    DWORD WAPI_RmEndSession(DWORD sessionHandle) const override;
    BOOL WAPI_PathIsDirectory(LPCWSTR path) const override;
    BOOL WAPI_DeleteFile(LPCWSTR fileName) const override;
    HANDLE WAPI_GetStdHandle(DWORD which) const override;
    BOOL WAPI_CloseHandle(HANDLE handle) const override;
    BOOL WAPI_FindClose(HANDLE findFile) const override;
    BOOL WAPI_ResetEvent(HANDLE event) const override;
    BOOL WAPI_SetEvent(HANDLE event) const override;
    LONG WAPI_RegCloseKey(HKEY key) const override;
    DWORD WAPI_GetCurrentProcessId() const override;
    HWND WAPI_GetForegroundWindow() const override;
    BOOL WAPI_IsWindow(HWND window) const override;
    DWORD WAPI_GetLastError() const override;
    CVeLResult<LONG> WAPI_BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                        PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                        ULONG outputLength, ULONG* resultLength, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                        PVOID paddingInfo, PUCHAR iv, ULONG ivLength, PUCHAR output,
                                        ULONG outputLength, ULONG* resultLength, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm, BCRYPT_KEY_HANDLE* key,
                                                     PUCHAR keyObject, ULONG keyObjectLength, PUCHAR secret,
                                                     ULONG secretLength, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash,
                                           PUCHAR hashObject, ULONG hashObjectLength, PUCHAR secret,
                                           ULONG secretLength, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output,
                                            ULONG outputLength, ULONG* resultLength,
                                            ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR algorithmId,
                                                      LPCWSTR implementation, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR input,
                                            ULONG inputLength, ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer, ULONG length,
                                          ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG outputLength,
                                           ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG inputLength,
                                         ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm,
                                                       ULONG flags) const override;
    CVeLResult<LONG> WAPI_BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) const override;
    CVeLResult<LONG> WAPI_BCryptDestroyKey(BCRYPT_KEY_HANDLE key) const override;

    // Crash-safe file replacement.
    BOOL WAPI_MoveFileEx(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) const override;
    BOOL WAPI_FlushFileBuffers(HANDLE file) const override;
    // Hashing, packing and compound files.
    BOOL WAPI_SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                               DWORD moveMethod) const override;
    BOOL WAPI_GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) const override;
    HRESULT WAPI_StgCreateStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                    STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                    void** object) const override;
    HRESULT WAPI_StgOpenStorageEx(const WCHAR* name, DWORD mode, DWORD format, DWORD attributes,
                                  STGOPTIONS* options, PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                  void** object) const override;
    void WAPI_CoTaskMemFree(LPVOID memory) const override;
    LONG WAPI_RegGetValue(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type, PVOID data,
                          LPDWORD dataSize) const override;
    // Watchers, well-known folders and file times.
    BOOL WAPI_CancelIoEx(HANDLE file, LPOVERLAPPED overlapped) const override;
    HRESULT WAPI_SHGetKnownFolderPath(REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token,
                                      PWSTR* path) const override;
    DWORD WAPI_GetTempPath(DWORD size, LPWSTR buffer) const override;
    DWORD WAPI_GetModuleFileName(HMODULE module, LPWSTR fileName, DWORD size) const override;
    BOOL WAPI_GetFileAttributesEx(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel,
                                  LPVOID information) const override;
    BOOL WAPI_SetFileTime(HANDLE file, const FILETIME* creationTime, const FILETIME* lastAccessTime,
                          const FILETIME* lastWriteTime) const override;
    BOOL WAPI_FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime) const override;
    BOOL WAPI_SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* timeZone,
                                              const SYSTEMTIME* universalTime,
                                              LPSYSTEMTIME localTime) const override;
    // Processes and libraries.
    HMODULE WAPI_LoadLibrary(LPCWSTR fileName) const override;
    FARPROC WAPI_GetProcAddress(HMODULE module, LPCSTR procName) const override;
    BOOL WAPI_FreeLibrary(HMODULE module) const override;
    LPWCH WAPI_GetEnvironmentStrings() const override;
    BOOL WAPI_FreeEnvironmentStrings(LPWCH block) const override;
    BOOL WAPI_GenerateConsoleCtrlEvent(DWORD ctrlEvent, DWORD processGroupId) const override;
    DWORD WAPI_GetProcessId(HANDLE process) const override;
    DWORD WAPI_RmShutdown(DWORD sessionHandle, ULONG actionFlags,
                          RM_WRITE_STATUS_CALLBACK status) const override;
    DWORD WAPI_RmRestart(DWORD sessionHandle, DWORD restartFlags,
                         RM_WRITE_STATUS_CALLBACK status) const override;

    // Configuration and versions.
    LONG WAPI_RegEnumValue(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize, LPDWORD reserved,
                           LPDWORD type, LPBYTE data, LPDWORD dataSize) const override;
    DWORD WAPI_ExpandEnvironmentStrings(LPCWSTR source, LPWSTR buffer, DWORD size) const override;
    DWORD WAPI_GetFileVersionInfoSize(LPCWSTR fileName, LPDWORD handle) const override;
    BOOL WAPI_GetFileVersionInfo(LPCWSTR fileName, DWORD handle, DWORD size, LPVOID data) const override;
    BOOL WAPI_VerQueryValue(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, PUINT length) const override;

    // Resource strings.
    HMODULE WAPI_LoadLibraryEx(LPCWSTR fileName, HANDLE file, DWORD flags) const override;
    int WAPI_LoadString(HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax) const override;

private:
    // The start-up record as "name=value" entries for the process-creation trace; "Null" for a null record.
    std::wstring STARTUPINFOToString(STARTUPINFOW* startupInfo) const;
};
