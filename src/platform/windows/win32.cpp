// The seam on Windows: every operation goes straight to the call of its name.
#include "platform/win32.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <objbase.h>

namespace win32 {

// ---- Files and devices -------------------------------------------------------------------------

HANDLE CreateFileA(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE template_file) {
  return ::CreateFileA(path, access, share, security, disposition, flags, template_file);
}

HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE template_file) {
  return ::CreateFileW(path, access, share, security, disposition, flags, template_file);
}

BOOL CloseHandle(HANDLE handle) {
  return ::CloseHandle(handle);
}

DWORD SetFilePointer(HANDLE handle, LONG low, LONG* high, DWORD method) {
  return ::SetFilePointer(handle, low, high, method);
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position,
                      DWORD method) {
  return ::SetFilePointerEx(handle, distance, position, method);
}

BOOL DeleteFileA(const char* path) {
  return ::DeleteFileA(path);
}

BOOL ReadFile(HANDLE handle, void* buffer, DWORD length, DWORD* done, OVERLAPPED* overlapped) {
  return ::ReadFile(handle, buffer, length, done, overlapped);
}

BOOL WriteFile(HANDLE handle, const void* buffer, DWORD length, DWORD* done,
               OVERLAPPED* overlapped) {
  return ::WriteFile(handle, buffer, length, done, overlapped);
}

BOOL DeviceIoControl(HANDLE handle, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
                     DWORD* returned, OVERLAPPED* overlapped) {
  return ::DeviceIoControl(handle, code, in, in_size, out, out_size, returned, overlapped);
}

HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data) {
  return ::FindFirstFileW(pattern, data);
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data) {
  return ::FindNextFileW(find, data);
}

BOOL FindClose(HANDLE find) {
  return ::FindClose(find);
}

BOOL SetFileAttributesW(const WCHAR* path, DWORD attributes) {
  return ::SetFileAttributesW(path, attributes);
}

int WideCharToMultiByte(UINT code_page, DWORD flags, const WCHAR* wide, int wide_length,
                        char* narrow, int size, const char* fallback, BOOL* used_fallback) {
  return ::WideCharToMultiByte(code_page, flags, wide, wide_length, narrow, size, fallback,
                               used_fallback);
}

int MultiByteToWideChar(UINT code_page, DWORD flags, const char* narrow, int narrow_length,
                        WCHAR* wide, int size) {
  return ::MultiByteToWideChar(code_page, flags, narrow, narrow_length, wide, size);
}

DWORD GetLastError() {
  return ::GetLastError();
}

void SetLastError(DWORD error) {
  ::SetLastError(error);
}

// ---- Volumes and letters -----------------------------------------------------------------------

HANDLE FindFirstVolumeA(char* name, DWORD length) {
  return ::FindFirstVolumeA(name, length);
}

BOOL FindNextVolumeA(HANDLE find, char* name, DWORD length) {
  return ::FindNextVolumeA(find, name, length);
}

BOOL FindVolumeClose(HANDLE find) {
  return ::FindVolumeClose(find);
}

BOOL GetVolumePathNamesForVolumeNameA(const char* volume_root, char* names, DWORD length,
                                      DWORD* returned) {
  return ::GetVolumePathNamesForVolumeNameA(volume_root, names, length, returned);
}

BOOL SetVolumeMountPointA(const char* letter_path, const char* volume_root) {
  return ::SetVolumeMountPointA(letter_path, volume_root);
}

BOOL DeleteVolumeMountPointA(const char* letter_path) {
  return ::DeleteVolumeMountPointA(letter_path);
}

DWORD GetLogicalDrives() {
  return ::GetLogicalDrives();
}

UINT GetSystemDirectoryA(char* buffer, UINT size) {
  return ::GetSystemDirectoryA(buffer, size);
}

// ---- Device setup ------------------------------------------------------------------------------

HDEVINFO SetupDiGetClassDevsW(const GUID* interface_class, const WCHAR* enumerator, HWND parent,
                              DWORD flags) {
  return ::SetupDiGetClassDevsW(interface_class, enumerator, parent, flags);
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device, const GUID* interface_class,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data) {
  return ::SetupDiEnumDeviceInterfaces(set, device, interface_class, index, data);
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD detail_size,
                                      DWORD* required, SP_DEVINFO_DATA* device) {
  return ::SetupDiGetDeviceInterfaceDetailA(set, data, detail, detail_size, required, device);
}

// ---- Processes ---------------------------------------------------------------------------------

BOOL ShellExecuteExW(SHELLEXECUTEINFOW* info) {
  return ::ShellExecuteExW(info);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                             DWORD milliseconds) {
  return ::WaitForMultipleObjects(count, handles, wait_all, milliseconds);
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* exit_code) {
  return ::GetExitCodeProcess(process, exit_code);
}

HANDLE GetCurrentProcess() {
  return ::GetCurrentProcess();
}

DWORD GetCurrentProcessId() {
  return ::GetCurrentProcessId();
}

DWORD GetCurrentThreadId() {
  return ::GetCurrentThreadId();
}

HMODULE LoadLibraryW(const WCHAR* name) {
  return ::LoadLibraryW(name);
}

FARPROC GetProcAddress(HMODULE library, const char* name) {
  return ::GetProcAddress(library, name);
}

BOOL FreeLibrary(HMODULE library) {
  return ::FreeLibrary(library);
}

// ---- COM ---------------------------------------------------------------------------------------

HRESULT CoCreateGuid(GUID* guid) {
  return ::CoCreateGuid(guid);
}

// ---- C runtime calls that touch the machine ----------------------------------------------------

int system(const char* line) {
  return ::system(line);
}

errno_t _wfopen_s(std::FILE** file, const WCHAR* path, const WCHAR* mode) {
  return ::_wfopen_s(file, path, mode);
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  return std::fwrite(data, size, count, file);
}

int fclose(std::FILE* file) {
  return std::fclose(file);
}

std::FILE* fopen(const char* path, const char* mode) {
  return std::fopen(path, mode);
}

std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  return std::fread(data, size, count, file);
}

int fseek(std::FILE* file, std::int32_t offset, int origin) {
  return std::fseek(file, offset, origin);
}

std::int32_t ftell(std::FILE* file) {
  return std::ftell(file);
}

void rewind(std::FILE* file) {
  std::rewind(file);
}

int remove(const char* path) {
  return std::remove(path);
}

std::int64_t time(std::int64_t* out) {
  return ::_time64(out);
}

// ---- Calls of applications ---------------------------------------------------------------------

BOOL FlushFileBuffers(HANDLE handle) {
  return ::FlushFileBuffers(handle);
}

}  // namespace win32
