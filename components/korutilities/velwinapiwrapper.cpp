#include "velwinapiwrapper.h"
#include "velmoduleloaderimpl.h"
#include "korutilitesbtracedef.h"
#include "velstringconverter.h"

#include <sstream>

namespace
{

// The basic-information record of a section, as the section query fills it (information class 0).
struct SectionBasicRecord
{
    PVOID BaseAddress;
    ULONG AllocationAttributes;
    LARGE_INTEGER MaximumSize;
};
static_assert(sizeof(SectionBasicRecord) == 24, "the section query expects a 24-byte record");

typedef LONG(NTAPI* NtQuerySectionFunction)(HANDLE section, int informationClass, PVOID information,
                                            ULONG informationLength, PULONG resultLength);

std::wstring TextOrNull(const wchar_t* text)
{
    return text != nullptr ? std::wstring(text) : std::wstring(L"Null");
}

std::wstring Hex(const void* pointer)
{
    std::wostringstream out;
    out << std::hex << reinterpret_cast<std::uintptr_t>(pointer);
    return out.str();
}

} // namespace

CVeLWinAPIWrapper::CVeLWinAPIWrapper() {}

CVeLWinAPIWrapper::CVeLWinAPIWrapper(const CVeLWinAPIWrapper& /*other*/) : IVeLWinAPIWrapper() {}

CVeLWinAPIWrapper& CVeLWinAPIWrapper::operator=(const CVeLWinAPIWrapper& /*other*/)
{
    return *this;
}

CVeLWinAPIWrapper::~CVeLWinAPIWrapper() {}

std::wstring CVeLWinAPIWrapper::STARTUPINFOToString(STARTUPINFOW* startupInfo) const
{
    if (startupInfo == nullptr)
        return L"Null";
    std::wostringstream out;
    out << L"lpReserved=" << TextOrNull(startupInfo->lpReserved) << L", lpDesktop="
        << TextOrNull(startupInfo->lpDesktop) << L", lpTitle=" << TextOrNull(startupInfo->lpTitle)
        << L", dwX=" << startupInfo->dwX << L", dwY=" << startupInfo->dwY << L", dwXSize="
        << startupInfo->dwXSize << L", dwYSize=" << startupInfo->dwYSize << L", dwXCountChars="
        << startupInfo->dwXCountChars << L", dwYCountChars=" << startupInfo->dwYCountChars
        << L", dwFillAttribute=" << startupInfo->dwFillAttribute << L", dwFlags=" << startupInfo->dwFlags
        << L", wShowWindow=" << startupInfo->wShowWindow << L", cbReserved2=" << startupInfo->cbReserved2
        << L", lpReserved2=0x" << Hex(startupInfo->lpReserved2) << L", hStdInput=0x"
        << Hex(startupInfo->hStdInput) << L", hStdOutput=0x" << Hex(startupInfo->hStdOutput)
        << L", hStdError=0x" << Hex(startupInfo->hStdError);
    return out.str();
}

BOOL CVeLWinAPIWrapper::WAPI_CreateProcess(LPCWSTR applicationName, LPWSTR commandLine,
                                           LPSECURITY_ATTRIBUTES processAttributes,
                                           LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles,
                                           DWORD creationFlags, LPVOID environment, LPCWSTR currentDirectory,
                                           LPSTARTUPINFOW startupInfo,
                                           LPPROCESS_INFORMATION processInformation) const
{
    // The rendering is built only when level 3 is on: VEL_TRACE evaluates its arguments after the level test.
    auto render = [&]()
    {
        std::wostringstream out;
        out << L"lpApplicationName=" << TextOrNull(applicationName) << L", lpCommandLine="
            << TextOrNull(commandLine) << L", lpProcessAttributes=0x" << Hex(processAttributes)
            << L", lpThreadAttributes=0x" << Hex(threadAttributes) << L", bInheritHandles=" << inheritHandles
            << L", dwCreationFlags=" << creationFlags << L", lpEnvironment=0x" << Hex(environment)
            << L", lpCurrentDirectory=" << TextOrNull(currentDirectory) << L", lpStartupInfo=["
            << STARTUPINFOToString(startupInfo) << L"], lpProcessInformation=0x" << Hex(processInformation);
        return CVeLStringConverter::ConvertStdWStringToStdString(out.str());
    };
    VEL_TRACE(VEL_DBG3, "CreateProcess: %s", render().c_str());
    return ::CreateProcessW(applicationName, commandLine, processAttributes, threadAttributes, inheritHandles,
                            creationFlags, environment, currentDirectory, startupInfo, processInformation);
}

CVeLResult<__int64> CVeLWinAPIWrapper::WAPI_NTGetSizeOfSharedMemory(HANDLE mapping) const
{
    if (mapping == nullptr)
    {
        VEL_TRACE(VEL_ERR, "No handle available!");
        return CVeLResult<__int64>();
    }
    // The loader traces "LoadLibrary %s failed (code=0x%08X)!" or "GetProcAddress failed (code=0x%08X)!"
    // itself; ntdll stays loaded by the process, so unloading the loader's reference is harmless.
    CVeLModuleLoaderImpl ntdll(std::make_shared<CVeLWinAPIWrapper>());
    if (!ntdll.Load(L"ntdll.dll"))
        return CVeLResult<__int64>();
    FARPROC address = ntdll.GetFunction("NtQuerySection");
    if (address == nullptr)
        return CVeLResult<__int64>();
    // Through void*: the loader hands out a generic function pointer.
    auto query = reinterpret_cast<NtQuerySectionFunction>(reinterpret_cast<void*>(address));
    SectionBasicRecord information = {};
    ULONG resultLength = 0;
    // The status is deliberately not examined: the caller validates the size it gets.
    query(mapping, 0, &information, sizeof information, &resultLength);
    return CVeLResult<__int64>(true, information.MaximumSize.QuadPart);
}

LONG CVeLWinAPIWrapper::WAPI_RegQueryInfoKey(HKEY key, LPWSTR className, LPDWORD classLength,
                                             LPDWORD reserved, LPDWORD subKeys, LPDWORD maxSubKeyLength,
                                             LPDWORD maxClassLength, LPDWORD values,
                                             LPDWORD maxValueNameLength, LPDWORD maxValueLength,
                                             LPDWORD securityDescriptor, PFILETIME lastWriteTime) const
{
    return ::RegQueryInfoKeyW(key, className, classLength, reserved, subKeys, maxSubKeyLength, maxClassLength,
                              values, maxValueNameLength, maxValueLength, securityDescriptor, lastWriteTime);
}

BOOL CVeLWinAPIWrapper::WAPI_ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD bufferLength,
                                                   BOOL watchSubtree, DWORD notifyFilter,
                                                   LPDWORD bytesReturned, LPOVERLAPPED overlapped,
                                                   LPOVERLAPPED_COMPLETION_ROUTINE completionRoutine) const
{
    return ::ReadDirectoryChangesW(directory, buffer, bufferLength, watchSubtree, notifyFilter, bytesReturned,
                                   overlapped, completionRoutine);
}

HANDLE CVeLWinAPIWrapper::WAPI_CreateFile(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                                          LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                                          DWORD flagsAndAttributes, HANDLE templateFile) const
{
    return ::CreateFileW(fileName, desiredAccess, shareMode, securityAttributes, creationDisposition,
                         flagsAndAttributes, templateFile);
}

DWORD CVeLWinAPIWrapper::WAPI_RmRegisterResources(DWORD sessionHandle, UINT fileCount, LPCWSTR fileNames[],
                                                  UINT applicationCount, RM_UNIQUE_PROCESS applications[],
                                                  UINT serviceCount, LPCWSTR serviceNames[]) const
{
    return ::RmRegisterResources(sessionHandle, fileCount, fileNames, applicationCount, applications,
                                 serviceCount, serviceNames);
}

HANDLE CVeLWinAPIWrapper::WAPI_CreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES attributes, DWORD protect,
                                                 DWORD maximumSizeHigh, DWORD maximumSizeLow,
                                                 LPCWSTR name) const
{
    return ::CreateFileMappingW(file, attributes, protect, maximumSizeHigh, maximumSizeLow, name);
}

LPVOID CVeLWinAPIWrapper::WAPI_MapViewOfFile(HANDLE mapping, DWORD desiredAccess, DWORD fileOffsetHigh,
                                             DWORD fileOffsetLow, SIZE_T bytesToMap) const
{
    return ::MapViewOfFile(mapping, desiredAccess, fileOffsetHigh, fileOffsetLow, bytesToMap);
}

DWORD CVeLWinAPIWrapper::WAPI_GetPrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR defaultValue,
                                                      LPWSTR buffer, DWORD size, LPCWSTR fileName) const
{
    return ::GetPrivateProfileStringW(section, key, defaultValue, buffer, size, fileName);
}

DWORD CVeLWinAPIWrapper::WAPI_RmGetList(DWORD sessionHandle, UINT* procInfoNeeded, UINT* procInfo,
                                        RM_PROCESS_INFO affectedApps[], LPDWORD rebootReasons) const
{
    return ::RmGetList(sessionHandle, procInfoNeeded, procInfo, affectedApps, rebootReasons);
}

BOOL CVeLWinAPIWrapper::WAPI_WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
                                       LPOVERLAPPED overlapped) const
{
    return ::WriteFile(file, buffer, toWrite, written, overlapped);
}

BOOL CVeLWinAPIWrapper::WAPI_ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read,
                                      LPOVERLAPPED overlapped) const
{
    return ::ReadFile(file, buffer, toRead, read, overlapped);
}

LONG CVeLWinAPIWrapper::WAPI_RegQueryValueEx(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type,
                                             LPBYTE data, LPDWORD dataSize) const
{
    return ::RegQueryValueExW(key, valueName, reserved, type, data, dataSize);
}

HANDLE CVeLWinAPIWrapper::WAPI_CreateEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset,
                                           BOOL initialState, LPCWSTR name) const
{
    return ::CreateEventW(attributes, manualReset, initialState, name);
}

BOOL CVeLWinAPIWrapper::WAPI_GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred,
                                                 BOOL wait) const
{
    return ::GetOverlappedResult(file, overlapped, transferred, wait);
}

BOOL CVeLWinAPIWrapper::WAPI_WritePrivateProfileString(LPCWSTR section, LPCWSTR key, LPCWSTR value,
                                                       LPCWSTR fileName) const
{
    return ::WritePrivateProfileStringW(section, key, value, fileName);
}

LONG CVeLWinAPIWrapper::WAPI_RegOpenKeyEx(HKEY key, LPCWSTR subKey, DWORD options, REGSAM desired,
                                          PHKEY result) const
{
    return ::RegOpenKeyExW(key, subKey, options, desired, result);
}

UINT CVeLWinAPIWrapper::WAPI_GetPrivateProfileInt(LPCWSTR section, LPCWSTR key, INT defaultValue,
                                                  LPCWSTR fileName) const
{
    return ::GetPrivateProfileIntW(section, key, defaultValue, fileName);
}

BOOL CVeLWinAPIWrapper::WAPI_QueryFullProcessImageName(HANDLE process, DWORD flags, LPWSTR exeName,
                                                       PDWORD size) const
{
    return ::QueryFullProcessImageNameW(process, flags, exeName, size);
}

DWORD CVeLWinAPIWrapper::WAPI_GetModuleFileNameEx(HANDLE process, HMODULE module, LPWSTR fileName,
                                                  DWORD size) const
{
    return ::GetModuleFileNameExW(process, module, fileName, size);
}

DWORD CVeLWinAPIWrapper::WAPI_RmStartSession(DWORD* sessionHandle, DWORD sessionFlags,
                                             WCHAR sessionKey[]) const
{
    return ::RmStartSession(sessionHandle, sessionFlags, sessionKey);
}

HANDLE CVeLWinAPIWrapper::WAPI_OpenProcess(DWORD desiredAccess, BOOL inheritHandle, DWORD processId) const
{
    return ::OpenProcess(desiredAccess, inheritHandle, processId);
}

HANDLE CVeLWinAPIWrapper::WAPI_OpenFileMapping(DWORD desiredAccess, BOOL inheritHandle, LPCWSTR name) const
{
    return ::OpenFileMappingW(desiredAccess, inheritHandle, name);
}

BOOL CVeLWinAPIWrapper::WAPI_EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter) const
{
    return ::EnumChildWindows(parent, callback, parameter);
}

DWORD CVeLWinAPIWrapper::WAPI_GetEnvironmentVariable(LPCWSTR name, LPWSTR buffer, DWORD size) const
{
    return ::GetEnvironmentVariableW(name, buffer, size);
}

HANDLE CVeLWinAPIWrapper::WAPI_FindFirstFile(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) const
{
    return ::FindFirstFileW(fileName, findData);
}

LONG CVeLWinAPIWrapper::WAPI_RegEnumKey(HKEY key, DWORD index, LPWSTR name, DWORD nameSize) const
{
    return ::RegEnumKeyW(key, index, name, nameSize);
}

BOOL CVeLWinAPIWrapper::WAPI_FindNextFile(HANDLE findFile, LPWIN32_FIND_DATAW findData) const
{
    return ::FindNextFileW(findFile, findData);
}

BOOL CVeLWinAPIWrapper::WAPI_PostMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) const
{
    return ::PostMessageW(window, message, wParam, lParam);
}

BOOL CVeLWinAPIWrapper::WAPI_SetFileAttributes(LPCWSTR fileName, DWORD attributes) const
{
    return ::SetFileAttributesW(fileName, attributes);
}

HANDLE CVeLWinAPIWrapper::WAPI_CreateToolhelp32Snapshot(DWORD flags, DWORD processId) const
{
    return ::CreateToolhelp32Snapshot(flags, processId);
}

DWORD CVeLWinAPIWrapper::WAPI_GetWindowThreadProcessId(HWND window, LPDWORD processId) const
{
    return ::GetWindowThreadProcessId(window, processId);
}

BOOL CVeLWinAPIWrapper::WAPI_GetExitCodeProcess(HANDLE process, LPDWORD exitCode) const
{
    return ::GetExitCodeProcess(process, exitCode);
}

DWORD CVeLWinAPIWrapper::WAPI_WaitForInputIdle(HANDLE process, DWORD milliseconds) const
{
    return ::WaitForInputIdle(process, milliseconds);
}

BOOL CVeLWinAPIWrapper::WAPI_SetEnvironmentVariable(LPCWSTR name, LPCWSTR value) const
{
    return ::SetEnvironmentVariableW(name, value);
}

BOOL CVeLWinAPIWrapper::WAPI_Process32First(HANDLE snapshot, LPPROCESSENTRY32W entry) const
{
    return ::Process32FirstW(snapshot, entry);
}

BOOL CVeLWinAPIWrapper::WAPI_Process32Next(HANDLE snapshot, LPPROCESSENTRY32W entry) const
{
    return ::Process32NextW(snapshot, entry);
}

BOOL CVeLWinAPIWrapper::WAPI_EnumWindows(WNDENUMPROC callback, LPARAM parameter) const
{
    return ::EnumWindows(callback, parameter);
}

BOOL CVeLWinAPIWrapper::WAPI_TerminateProcess(HANDLE process, UINT exitCode) const
{
    return ::TerminateProcess(process, exitCode);
}

void CVeLWinAPIWrapper::WAPI_GetLocalTime(LPSYSTEMTIME systemTime) const
{
    ::GetLocalTime(systemTime);
}

BOOL CVeLWinAPIWrapper::WAPI_UnmapViewOfFile(LPCVOID baseAddress) const
{
    return ::UnmapViewOfFile(baseAddress);
}

DWORD CVeLWinAPIWrapper::WAPI_GetFileAttributes(LPCWSTR fileName) const
{
    return ::GetFileAttributesW(fileName);
}

BOOL CVeLWinAPIWrapper::WAPI_PathIsDirectoryEmpty(LPCWSTR path) const
{
    return ::PathIsDirectoryEmptyW(path);
}

BOOL CVeLWinAPIWrapper::WAPI_RemoveDirectory(LPCWSTR path) const
{
    return ::RemoveDirectoryW(path);
}

DWORD CVeLWinAPIWrapper::WAPI_RmEndSession(DWORD sessionHandle) const
{
    return ::RmEndSession(sessionHandle);
}

BOOL CVeLWinAPIWrapper::WAPI_PathIsDirectory(LPCWSTR path) const
{
    return ::PathIsDirectoryW(path);
}

BOOL CVeLWinAPIWrapper::WAPI_DeleteFile(LPCWSTR fileName) const
{
    return ::DeleteFileW(fileName);
}

HANDLE CVeLWinAPIWrapper::WAPI_GetStdHandle(DWORD which) const
{
    return ::GetStdHandle(which);
}

BOOL CVeLWinAPIWrapper::WAPI_CloseHandle(HANDLE handle) const
{
    return ::CloseHandle(handle);
}

BOOL CVeLWinAPIWrapper::WAPI_FindClose(HANDLE findFile) const
{
    return ::FindClose(findFile);
}

BOOL CVeLWinAPIWrapper::WAPI_ResetEvent(HANDLE event) const
{
    return ::ResetEvent(event);
}

BOOL CVeLWinAPIWrapper::WAPI_SetEvent(HANDLE event) const
{
    return ::SetEvent(event);
}

LONG CVeLWinAPIWrapper::WAPI_RegCloseKey(HKEY key) const
{
    return ::RegCloseKey(key);
}

DWORD CVeLWinAPIWrapper::WAPI_GetCurrentProcessId() const
{
    return ::GetCurrentProcessId();
}

HWND CVeLWinAPIWrapper::WAPI_GetForegroundWindow() const
{
    return ::GetForegroundWindow();
}

BOOL CVeLWinAPIWrapper::WAPI_IsWindow(HWND window) const
{
    return ::IsWindow(window);
}

DWORD CVeLWinAPIWrapper::WAPI_GetLastError() const
{
    return ::GetLastError();
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptDecrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                                       PVOID paddingInfo, PUCHAR iv, ULONG ivLength,
                                                       PUCHAR output, ULONG outputLength, ULONG* resultLength,
                                                       ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptDecrypt(key, input, inputLength, paddingInfo, iv, ivLength,
                                                          output, outputLength, resultLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptEncrypt(BCRYPT_KEY_HANDLE key, PUCHAR input, ULONG inputLength,
                                                       PVOID paddingInfo, PUCHAR iv, ULONG ivLength,
                                                       PUCHAR output, ULONG outputLength, ULONG* resultLength,
                                                       ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptEncrypt(key, input, inputLength, paddingInfo, iv, ivLength,
                                                          output, outputLength, resultLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptGenerateSymmetricKey(BCRYPT_ALG_HANDLE algorithm,
                                                                    BCRYPT_KEY_HANDLE* key, PUCHAR keyObject,
                                                                    ULONG keyObjectLength, PUCHAR secret,
                                                                    ULONG secretLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptGenerateSymmetricKey(
        algorithm, key, keyObject, keyObjectLength, secret, secretLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm,
                                                          BCRYPT_HASH_HANDLE* hash, PUCHAR hashObject,
                                                          ULONG hashObjectLength, PUCHAR secret,
                                                          ULONG secretLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(
        ::BCryptCreateHash(algorithm, hash, hashObject, hashObjectLength, secret, secretLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property,
                                                           PUCHAR output, ULONG outputLength,
                                                           ULONG* resultLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(
        ::BCryptGetProperty(object, property, output, outputLength, resultLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm,
                                                                     LPCWSTR algorithmId,
                                                                     LPCWSTR implementation,
                                                                     ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(
        ::BCryptOpenAlgorithmProvider(algorithm, algorithmId, implementation, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptSetProperty(BCRYPT_HANDLE object, LPCWSTR property,
                                                           PUCHAR input, ULONG inputLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptSetProperty(object, property, input, inputLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, PUCHAR buffer,
                                                         ULONG length, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptGenRandom(algorithm, buffer, length, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output,
                                                          ULONG outputLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptFinishHash(hash, output, outputLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input,
                                                        ULONG inputLength, ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptHashData(hash, input, inputLength, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm,
                                                                      ULONG flags) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptCloseAlgorithmProvider(algorithm, flags));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptDestroyHash(hash));
}

CVeLResult<LONG> CVeLWinAPIWrapper::WAPI_BCryptDestroyKey(BCRYPT_KEY_HANDLE key) const
{
    return CVeLResult<LONG>::FromNTStatus(::BCryptDestroyKey(key));
}

// Crash-safe file replacement.

BOOL CVeLWinAPIWrapper::WAPI_MoveFileEx(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) const
{
    return ::MoveFileExW(existingFileName, newFileName, flags);
}

BOOL CVeLWinAPIWrapper::WAPI_FlushFileBuffers(HANDLE file) const
{
    return ::FlushFileBuffers(file);
}

// Hashing, packing and compound files.

BOOL CVeLWinAPIWrapper::WAPI_SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                                              DWORD moveMethod) const
{
    return ::SetFilePointerEx(file, distance, newPosition, moveMethod);
}

BOOL CVeLWinAPIWrapper::WAPI_GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) const
{
    return ::GetFileSizeEx(file, size);
}

HRESULT CVeLWinAPIWrapper::WAPI_StgCreateStorageEx(const WCHAR* name, DWORD mode, DWORD format,
                                                   DWORD attributes, STGOPTIONS* options,
                                                   PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                                   void** object) const
{
    return ::StgCreateStorageEx(name, mode, format, attributes, options, securityDescriptor, riid, object);
}

HRESULT CVeLWinAPIWrapper::WAPI_StgOpenStorageEx(const WCHAR* name, DWORD mode, DWORD format,
                                                 DWORD attributes, STGOPTIONS* options,
                                                 PSECURITY_DESCRIPTOR securityDescriptor, REFIID riid,
                                                 void** object) const
{
    return ::StgOpenStorageEx(name, mode, format, attributes, options, securityDescriptor, riid, object);
}

// Watchers, well-known folders and file times.

BOOL CVeLWinAPIWrapper::WAPI_CancelIoEx(HANDLE file, LPOVERLAPPED overlapped) const
{
    return ::CancelIoEx(file, overlapped);
}

HRESULT CVeLWinAPIWrapper::WAPI_SHGetKnownFolderPath(REFKNOWNFOLDERID folderId, DWORD flags, HANDLE token,
                                                     PWSTR* path) const
{
    return ::SHGetKnownFolderPath(folderId, flags, token, path);
}

void CVeLWinAPIWrapper::WAPI_CoTaskMemFree(LPVOID memory) const
{
    ::CoTaskMemFree(memory);
}

LONG CVeLWinAPIWrapper::WAPI_RegGetValue(HKEY key, LPCWSTR subKey, LPCWSTR value, DWORD flags, LPDWORD type,
                                         PVOID data, LPDWORD dataSize) const
{
    return ::RegGetValueW(key, subKey, value, flags, type, data, dataSize);
}

DWORD CVeLWinAPIWrapper::WAPI_GetTempPath(DWORD size, LPWSTR buffer) const
{
    return ::GetTempPathW(size, buffer);
}

DWORD CVeLWinAPIWrapper::WAPI_GetModuleFileName(HMODULE module, LPWSTR fileName, DWORD size) const
{
    return ::GetModuleFileNameW(module, fileName, size);
}

BOOL CVeLWinAPIWrapper::WAPI_GetFileAttributesEx(LPCWSTR fileName, GET_FILEEX_INFO_LEVELS infoLevel,
                                                 LPVOID information) const
{
    return ::GetFileAttributesExW(fileName, infoLevel, information);
}

BOOL CVeLWinAPIWrapper::WAPI_SetFileTime(HANDLE file, const FILETIME* creationTime,
                                         const FILETIME* lastAccessTime, const FILETIME* lastWriteTime) const
{
    return ::SetFileTime(file, creationTime, lastAccessTime, lastWriteTime);
}

BOOL CVeLWinAPIWrapper::WAPI_FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime) const
{
    return ::FileTimeToSystemTime(fileTime, systemTime);
}

BOOL CVeLWinAPIWrapper::WAPI_SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* timeZone,
                                                             const SYSTEMTIME* universalTime,
                                                             LPSYSTEMTIME localTime) const
{
    return ::SystemTimeToTzSpecificLocalTime(timeZone, universalTime, localTime);
}

// Processes and libraries.

HMODULE CVeLWinAPIWrapper::WAPI_LoadLibrary(LPCWSTR fileName) const
{
    return ::LoadLibraryW(fileName);
}

FARPROC CVeLWinAPIWrapper::WAPI_GetProcAddress(HMODULE module, LPCSTR procName) const
{
    return ::GetProcAddress(module, procName);
}

BOOL CVeLWinAPIWrapper::WAPI_FreeLibrary(HMODULE module) const
{
    return ::FreeLibrary(module);
}

LPWCH CVeLWinAPIWrapper::WAPI_GetEnvironmentStrings() const
{
    return ::GetEnvironmentStringsW();
}

BOOL CVeLWinAPIWrapper::WAPI_FreeEnvironmentStrings(LPWCH block) const
{
    return ::FreeEnvironmentStringsW(block);
}

BOOL CVeLWinAPIWrapper::WAPI_GenerateConsoleCtrlEvent(DWORD ctrlEvent, DWORD processGroupId) const
{
    return ::GenerateConsoleCtrlEvent(ctrlEvent, processGroupId);
}

DWORD CVeLWinAPIWrapper::WAPI_GetProcessId(HANDLE process) const
{
    return ::GetProcessId(process);
}

DWORD CVeLWinAPIWrapper::WAPI_RmShutdown(DWORD sessionHandle, ULONG actionFlags,
                                         RM_WRITE_STATUS_CALLBACK status) const
{
    return ::RmShutdown(sessionHandle, actionFlags, status);
}

DWORD CVeLWinAPIWrapper::WAPI_RmRestart(DWORD sessionHandle, DWORD restartFlags,
                                        RM_WRITE_STATUS_CALLBACK status) const
{
    return ::RmRestart(sessionHandle, restartFlags, status);
}

// Configuration and versions.
LONG CVeLWinAPIWrapper::WAPI_RegEnumValue(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameSize,
                                          LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD dataSize) const
{
    return ::RegEnumValueW(key, index, valueName, valueNameSize, reserved, type, data, dataSize);
}

DWORD CVeLWinAPIWrapper::WAPI_ExpandEnvironmentStrings(LPCWSTR source, LPWSTR buffer, DWORD size) const
{
    return ::ExpandEnvironmentStringsW(source, buffer, size);
}

DWORD CVeLWinAPIWrapper::WAPI_GetFileVersionInfoSize(LPCWSTR fileName, LPDWORD handle) const
{
    return ::GetFileVersionInfoSizeW(fileName, handle);
}

BOOL CVeLWinAPIWrapper::WAPI_GetFileVersionInfo(LPCWSTR fileName, DWORD handle, DWORD size, LPVOID data) const
{
    return ::GetFileVersionInfoW(fileName, handle, size, data);
}

BOOL CVeLWinAPIWrapper::WAPI_VerQueryValue(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer,
                                           PUINT length) const
{
    return ::VerQueryValueW(block, subBlock, buffer, length);
}

// Resource strings.

HMODULE CVeLWinAPIWrapper::WAPI_LoadLibraryEx(LPCWSTR fileName, HANDLE file, DWORD flags) const
{
    return ::LoadLibraryExW(fileName, file, flags);
}

int CVeLWinAPIWrapper::WAPI_LoadString(HINSTANCE instance, UINT id, LPWSTR buffer, int bufferMax) const
{
    return ::LoadStringW(instance, id, buffer, bufferMax);
}
