// Every operation that the library and the host kit ask of Windows, under its own name. Two
// implementations stand behind it and are chosen when linking: one forwards to Windows, the other
// is a simulated machine whose disks are image files.
//
// For all of them: a failure is reported by the result and its reason is left in GetLastError; a
// success leaves the last error as it was, unless a line here says otherwise. The last error
// belongs to the calling thread. Narrow texts are NUL-terminated; a narrow path is UTF-8 on the
// simulated machine and in the process's code page on Windows. Wide texts are UTF-16. Nothing here
// throws (a test of the simulated machine may end an endless walk by a call budget that does), and
// nothing keeps a pointer behind the call.
//
// Public source of each contract: Microsoft's documentation of the function of that name.
#pragma once

#include <cstdio>

#include "platform/win32_device_types.h"
#include "platform/win32_types.h"

namespace win32 {

// ---- Files and devices -------------------------------------------------------------------------

// Opens a disk (`\\.\PhysicalDrive0`), a volume (a volume path without its trailing backslash, or
// `\\.\C:`), a file, or with FILE_FLAG_BACKUP_SEMANTICS a folder. `access` takes GENERIC_ bits,
// `share` FILE_SHARE_ bits. Devices open with OPEN_EXISTING only. The position starts at 0. Returns
// a handle that the caller closes, or INVALID_HANDLE_VALUE. CREATE_ALWAYS of an existing file
// succeeds with error 183.
HANDLE CreateFileA(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE template_file);
HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE template_file);

// Zero for a handle that is not open (error 6); INVALID_HANDLE_VALUE does no harm.
BOOL CloseHandle(HANDLE handle);

// Moves the position to the 64-bit distance made of `low` and `*high` from `method`. With a `high`
// pointer the upper half of the new position is written back through it. Returns the lower half,
// or INVALID_SET_FILE_POINTER: a position whose lower half has all bits set looks like a failure.
DWORD SetFilePointer(HANDLE handle, LONG low, LONG* high, DWORD method);
// The same in one piece; `position`, which may be null, receives the new position.
BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method);

// Transfer at the current position, which moves by the bytes done. On a device, position and
// length are multiples of the sector size (else error 87); a disk refuses a transfer that runs
// past its end as a whole (error 27). A write into the extent of a mounted volume is refused with
// error 5 (see the rules of WriteFile). `done` receives the count, 0 after a failure. `overlapped`
// is null here.
BOOL ReadFile(HANDLE handle, void* buffer, DWORD length, DWORD* done, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE handle, const void* buffer, DWORD length, DWORD* done,
               OVERLAPPED* overlapped);

// Sends a control code. `in` is read only. FSCTL_GET_VOLUME_BITMAP and FSCTL_GET_RETRIEVAL_POINTERS
// with a buffer that is too small give what fits and error 234; a file without clusters is error
// 38; FSCTL_MOVE_FILE to clusters that are not all free is error 87. `returned` receives the bytes
// written to `out`; it is given always, since a null one is legal only with an OVERLAPPED. Error 6
// on a handle that is not open, 1 for a code that the device does not know.
BOOL DeviceIoControl(HANDLE handle, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
                     DWORD* returned, OVERLAPPED* overlapped);

// Removes a file. Zero when there is none (error 2, or 3 for its folder) or it cannot be removed.
BOOL DeleteFileA(const char* path);

// Lists what a pattern such as `C:\\folder\\*` names. A folder's listing begins with "." and "..",
// that of a drive's or volume's root does not. INVALID_HANDLE_VALUE when nothing matches or the
// folder is missing; the end is error 18. The caller closes the handle with FindClose.
HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data);
BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data);
BOOL FindClose(HANDLE find);

// Replaces the settable attributes (read-only, hidden, system, archive) of a file or folder;
// FILE_ATTRIBUTE_NORMAL alone clears them all. Zero for a missing one (error 2, or 3 for a folder
// on the way) and for a damaged one (error 1392).
BOOL SetFileAttributesW(const WCHAR* path, DWORD attributes);

// Convert between wide text and a code page; CP_ACP is the one that narrow paths are in. A length
// of -1 means up to and with the NUL; any other counts characters, and no NUL is added. A `size` of
// 0 asks for the size that is needed. Returns the number of characters of the result, or 0: a
// buffer that is too small is error 122. A character that the code page lacks is replaced
// and `*used_fallback` (which may be null, as `fallback` may) set, or is error 1113 with
// WC_ERR_INVALID_CHARS or MB_ERR_INVALID_CHARS. CP_UTF8 takes no other flags, and no
// `used_fallback`.
int WideCharToMultiByte(UINT code_page, DWORD flags, const WCHAR* wide, int wide_length,
                        char* narrow, int size, const char* fallback, BOOL* used_fallback);
int MultiByteToWideChar(UINT code_page, DWORD flags, const char* narrow, int narrow_length,
                        WCHAR* wide, int size);

DWORD GetLastError();
void SetLastError(DWORD error);

// ---- Volumes and letters -----------------------------------------------------------------------

// The walk over all volumes, with and without letters. Each name is a volume root, with its
// trailing backslash. `length` counts the characters of `name`. The end is error 18. The caller
// closes the handle with FindVolumeClose.
HANDLE FindFirstVolumeA(char* name, DWORD length);
BOOL FindNextVolumeA(HANDLE find, char* name, DWORD length);
BOOL FindVolumeClose(HANDLE find);

// Writes the mount points of a volume root as a multi-string and its length, with all terminators,
// to `returned`: a volume without one gives a single NUL and 1. A buffer that is too small is
// error 234 with the length that is needed.
BOOL GetVolumePathNamesForVolumeNameA(const char* volume_root, char* names, DWORD length,
                                      DWORD* returned);

// Gives the letter path `X:\` to a volume root, or takes a letter path away. A letter in use is
// error 145.
BOOL SetVolumeMountPointA(const char* letter_path, const char* volume_root);
BOOL DeleteVolumeMountPointA(const char* letter_path);

// The letters in use, bit 0 for A. Zero on failure.
DWORD GetLogicalDrives();

// Writes the system directory, without a trailing backslash. Returns its length without the NUL,
// the length that is needed with it if `size` is too small, or 0 on failure.
UINT GetSystemDirectoryA(char* buffer, UINT size);

// ---- Device setup ------------------------------------------------------------------------------

// Opens the set of devices that offer an interface class; with DIGCF_PRESENT only of those that are
// there now. INVALID_HANDLE_VALUE on failure; a class that nothing offers gives an empty set.
HDEVINFO SetupDiGetClassDevsW(const GUID* interface_class, const WCHAR* enumerator, HWND parent,
                              DWORD flags);

// Fills `data`, whose cbSize is set, with the set's interface number `index`, from 0. The end is
// error 259. `device` is null here.
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device, const GUID* interface_class,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data);

// Writes the path of an interface, NUL-terminated, behind the first word of `detail`, whose cbSize
// is set to the structure's size and not to the buffer's, which is `detail_size`. Error 122 when
// the path does not fit; `required`, which may be null, receives the size that does.
BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD detail_size,
                                      DWORD* required, SP_DEVINFO_DATA* device);

// ---- Processes ---------------------------------------------------------------------------------

// Starts `lpFile` with `lpParameters`. With SEE_MASK_NOCLOSEPROCESS the process handle comes back
// in `hProcess`, and the caller owns it.
BOOL ShellExecuteExW(SHELLEXECUTEINFOW* info);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all, DWORD milliseconds);
BOOL GetExitCodeProcess(HANDLE process, DWORD* exit_code);

// The calling process, as a handle that needs no closing, its number, and the calling thread's.
HANDLE GetCurrentProcess();
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();

// Loads a library by name and finds a function of it. Null on failure. Each load is given back with
// FreeLibrary.
HMODULE LoadLibraryW(const WCHAR* name);
FARPROC GetProcAddress(HMODULE library, const char* name);
BOOL FreeLibrary(HMODULE library);

// ---- COM ---------------------------------------------------------------------------------------

// S_OK, or a failure with `*guid` untouched.
HRESULT CoCreateGuid(GUID* guid);

// ---- C runtime calls that touch the machine ----------------------------------------------------

// Runs a line in the shell that COMSPEC names. Returns the shell's exit status, or -1 if no shell
// could be started.
int system(const char* line);

// Opens a file by its wide path. 0 and `*file`, or an errno value with `*file` null. The last
// error may change either way.
errno_t _wfopen_s(std::FILE** file, const WCHAR* path, const WCHAR* mode);
std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file);
int fclose(std::FILE* file);

// Opens a file by its narrow path, or gives null. In a text mode a CR LF of the file is read as a
// line feed.
std::FILE* fopen(const char* path, const char* mode);

// Reads up to `count` items of `size` bytes and returns how many it has read whole: fewer at the
// end of the file or after a failure.
std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file);

// Zero, or a nonzero value. `origin` is SEEK_SET, SEEK_CUR or SEEK_END.
int fseek(std::FILE* file, std::int32_t offset, int origin);
// The position, or -1 where it fails or does not fit.
std::int32_t ftell(std::FILE* file);
void rewind(std::FILE* file);

// Removes a file. Nonzero on failure.
int remove(const char* path);

// Seconds since 1970; also written to `*out` if it is not null.
std::int64_t time(std::int64_t* out);

// ---- Calls of applications ---------------------------------------------------------------------

// What the library itself does not call, and applications do.

// Returns once what was written to the file, disk or volume is on its medium and no longer in a
// cache only. Error 5 for a handle without GENERIC_WRITE, 6 for one that is not open.
BOOL FlushFileBuffers(HANDLE handle);

}  // namespace win32
