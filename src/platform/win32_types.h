// The types, constants and structure layouts of the Windows calls that the library makes. On
// Windows they are the SDK's own; elsewhere the same names and layouts stand here, so that one
// source compiles for both. The assertions at the end hold on either side.
//
// Public source: Microsoft's documentation of winioctl.h, fileapi.h and shellapi.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#ifdef _WIN32

// clang-format off
#include <windows.h>
#include <winioctl.h>
#include <shellapi.h>
#include <dbghelp.h>
// clang-format on

// A literal of the 16-bit characters that the wide calls take.
#define WIDE(text) L##text

#else

#define WIDE(text) u##text

using BYTE = std::uint8_t;
using BOOLEAN = std::uint8_t;
using WORD = std::uint16_t;
using BOOL = int;
using LONG = std::int32_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONGLONG = std::int64_t;
using DWORD64 = std::uint64_t;
using HRESULT = std::int32_t;
using errno_t = int;
using WCHAR = char16_t;
using HANDLE = void*;
using HWND = void*;
using HKEY = void*;
using HINSTANCE = void*;
using HMODULE = void*;
using FARPROC = std::intptr_t (*)();
#define WINAPI

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;
inline constexpr DWORD MAX_PATH = 260;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 1;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 2;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 4;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000;
inline constexpr DWORD FILE_FLAG_NO_BUFFERING = 0x20000000;
inline constexpr DWORD FILE_FLAG_RANDOM_ACCESS = 0x10000000;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;
inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
inline constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094;
inline constexpr LONG EXCEPTION_EXECUTE_HANDLER = 1;

inline constexpr HRESULT S_OK = 0;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_BAD_LENGTH = 24;
inline constexpr DWORD ERROR_SECTOR_NOT_FOUND = 27;
inline constexpr DWORD ERROR_WRITE_FAULT = 29;
inline constexpr DWORD ERROR_READ_FAULT = 30;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD ERROR_FILE_CORRUPT = 1392;
inline constexpr DWORD ERROR_DISK_CORRUPT = 1393;

inline constexpr DWORD IOCTL_DISK_CREATE_DISK = 0x7C058;
inline constexpr DWORD IOCTL_DISK_SET_DRIVE_LAYOUT_EX = 0x7C054;
inline constexpr DWORD IOCTL_DISK_GET_DRIVE_LAYOUT_EX = 0x70050;
inline constexpr DWORD IOCTL_DISK_GET_PARTITION_INFO_EX = 0x70048;
inline constexpr DWORD IOCTL_DISK_UPDATE_PROPERTIES = 0x70140;
inline constexpr DWORD IOCTL_STORAGE_GET_DEVICE_NUMBER = 0x2D1080;
inline constexpr DWORD IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS = 0x560000;
inline constexpr DWORD FSCTL_LOCK_VOLUME = 0x90018;
inline constexpr DWORD FSCTL_UNLOCK_VOLUME = 0x9001C;
inline constexpr DWORD FSCTL_DISMOUNT_VOLUME = 0x90020;
inline constexpr DWORD FSCTL_GET_VOLUME_BITMAP = 0x9006F;
inline constexpr DWORD FSCTL_GET_RETRIEVAL_POINTERS = 0x90073;
inline constexpr DWORD FSCTL_MOVE_FILE = 0x90074;
inline constexpr DWORD FILE_DEVICE_DISK = 7;

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_UTF8 = 65001;
inline constexpr DWORD MB_ERR_INVALID_CHARS = 8;
inline constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;

inline constexpr DWORD SEE_MASK_NOCLOSEPROCESS = 0x40;
inline constexpr int SW_HIDE = 0;

union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
};

struct SECURITY_ATTRIBUTES;
struct OVERLAPPED;

enum PARTITION_STYLE { PARTITION_STYLE_MBR = 0, PARTITION_STYLE_GPT = 1, PARTITION_STYLE_RAW = 2 };

struct PARTITION_INFORMATION_MBR {
  BYTE PartitionType;
  BOOLEAN BootIndicator;
  BOOLEAN RecognizedPartition;
  DWORD HiddenSectors;
  GUID PartitionId;
};

struct PARTITION_INFORMATION_GPT {
  GUID PartitionType;
  GUID PartitionId;
  DWORD64 Attributes;
  WCHAR Name[36];
};

struct PARTITION_INFORMATION_EX {
  PARTITION_STYLE PartitionStyle;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER PartitionLength;
  DWORD PartitionNumber;
  BOOLEAN RewritePartition;
  BOOLEAN IsServicePartition;
  union {
    PARTITION_INFORMATION_MBR Mbr;
    PARTITION_INFORMATION_GPT Gpt;
  };
};

// The newest SDK also names the checksum at offset 12; it lies inside the union here.
struct DRIVE_LAYOUT_INFORMATION_MBR {
  DWORD Signature;
};

struct DRIVE_LAYOUT_INFORMATION_GPT {
  GUID DiskId;
  LARGE_INTEGER StartingUsableOffset;
  LARGE_INTEGER UsableLength;
  DWORD MaxPartitionCount;
};

struct DRIVE_LAYOUT_INFORMATION_EX {
  DWORD PartitionStyle;
  DWORD PartitionCount;
  union {
    DRIVE_LAYOUT_INFORMATION_MBR Mbr;
    DRIVE_LAYOUT_INFORMATION_GPT Gpt;
  };
  PARTITION_INFORMATION_EX PartitionEntry[1];
};

struct CREATE_DISK_MBR {
  DWORD Signature;
};

struct CREATE_DISK_GPT {
  GUID DiskId;
  DWORD MaxPartitionCount;
};

struct CREATE_DISK {
  PARTITION_STYLE PartitionStyle;
  union {
    CREATE_DISK_MBR Mbr;
    CREATE_DISK_GPT Gpt;
  };
};

struct STORAGE_DEVICE_NUMBER {
  DWORD DeviceType;
  DWORD DeviceNumber;
  DWORD PartitionNumber;
};

struct DISK_EXTENT {
  DWORD DiskNumber;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER ExtentLength;
};

struct VOLUME_DISK_EXTENTS {
  DWORD NumberOfDiskExtents;
  DISK_EXTENT Extents[1];
};

struct STARTING_LCN_INPUT_BUFFER {
  LARGE_INTEGER StartingLcn;
};

struct VOLUME_BITMAP_BUFFER {
  LARGE_INTEGER StartingLcn;
  LARGE_INTEGER BitmapSize;
  BYTE Buffer[1];
};

struct STARTING_VCN_INPUT_BUFFER {
  LARGE_INTEGER StartingVcn;
};

struct RETRIEVAL_POINTERS_BUFFER {
  DWORD ExtentCount;
  LARGE_INTEGER StartingVcn;
  struct {
    LARGE_INTEGER NextVcn;
    LARGE_INTEGER Lcn;
  } Extents[1];
};

struct MOVE_FILE_DATA {
  HANDLE FileHandle;
  LARGE_INTEGER StartingVcn;
  LARGE_INTEGER StartingLcn;
  DWORD ClusterCount;
};

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  WCHAR cFileName[260];
  WCHAR cAlternateFileName[14];
};

struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;
  EXCEPTION_RECORD* ExceptionRecord;
  void* ExceptionAddress;
  DWORD NumberParameters;
  std::uintptr_t ExceptionInformation[15];
};

struct CONTEXT;

struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  CONTEXT* ContextRecord;
};

#pragma pack(push, 4)
struct MINIDUMP_EXCEPTION_INFORMATION {
  DWORD ThreadId;
  EXCEPTION_POINTERS* ExceptionPointers;
  BOOL ClientPointers;
};
#pragma pack(pop)

enum MINIDUMP_TYPE { MiniDumpNormal = 0, MiniDumpFilterMemory = 8 };

struct MINIDUMP_USER_STREAM_INFORMATION;
struct MINIDUMP_CALLBACK_INFORMATION;

struct SHELLEXECUTEINFOW {
  DWORD cbSize;
  DWORD fMask;
  HWND hwnd;
  const WCHAR* lpVerb;
  const WCHAR* lpFile;
  const WCHAR* lpParameters;
  const WCHAR* lpDirectory;
  int nShow;
  HINSTANCE hInstApp;
  void* lpIDList;
  const WCHAR* lpClass;
  HKEY hkeyClass;
  DWORD dwHotKey;
  HANDLE hIcon;
  HANDLE hProcess;
};

#endif

// MiniDumpWriteDump, which is found by name at run time.
using MiniDumpWriteDumpFunction = BOOL(WINAPI*)(HANDLE process, DWORD process_id, HANDLE file,
                                                MINIDUMP_TYPE type,
                                                MINIDUMP_EXCEPTION_INFORMATION* exception,
                                                MINIDUMP_USER_STREAM_INFORMATION* streams,
                                                MINIDUMP_CALLBACK_INFORMATION* callback);

// Sixteen-bit text, as the wide calls take it, on either side.
using WideString = std::basic_string<WCHAR>;

static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(GUID) == 16);
static_assert(sizeof(LARGE_INTEGER) == 8);
static_assert(sizeof(PARTITION_INFORMATION_MBR) == 24);
static_assert(offsetof(PARTITION_INFORMATION_MBR, PartitionId) == 8);
static_assert(sizeof(PARTITION_INFORMATION_GPT) == 112);
static_assert(offsetof(PARTITION_INFORMATION_GPT, Name) == 40);
static_assert(sizeof(PARTITION_INFORMATION_EX) == 144);
static_assert(offsetof(PARTITION_INFORMATION_EX, StartingOffset) == 8);
static_assert(offsetof(PARTITION_INFORMATION_EX, PartitionLength) == 16);
static_assert(offsetof(PARTITION_INFORMATION_EX, PartitionNumber) == 24);
static_assert(offsetof(PARTITION_INFORMATION_EX, RewritePartition) == 28);
static_assert(offsetof(PARTITION_INFORMATION_EX, IsServicePartition) == 29);
static_assert(offsetof(PARTITION_INFORMATION_EX, Mbr) == 32);
static_assert(offsetof(PARTITION_INFORMATION_EX, Gpt) == 32);
static_assert(sizeof(DRIVE_LAYOUT_INFORMATION_EX) == 192);
static_assert(offsetof(DRIVE_LAYOUT_INFORMATION_EX, Mbr) == 8);
static_assert(offsetof(DRIVE_LAYOUT_INFORMATION_EX, Gpt) == 8);
static_assert(offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry) == 48);
static_assert(sizeof(CREATE_DISK) == 24);
static_assert(offsetof(CREATE_DISK, Gpt) == 4);
static_assert(sizeof(STORAGE_DEVICE_NUMBER) == 12);
static_assert(sizeof(DISK_EXTENT) == 24);
static_assert(sizeof(VOLUME_DISK_EXTENTS) == 32);
static_assert(offsetof(VOLUME_DISK_EXTENTS, Extents) == 8);
static_assert(sizeof(STARTING_LCN_INPUT_BUFFER) == 8);
static_assert(sizeof(STARTING_VCN_INPUT_BUFFER) == 8);
static_assert(sizeof(VOLUME_BITMAP_BUFFER) == 24);
static_assert(offsetof(VOLUME_BITMAP_BUFFER, BitmapSize) == 8);
static_assert(offsetof(VOLUME_BITMAP_BUFFER, Buffer) == 16);
static_assert(sizeof(RETRIEVAL_POINTERS_BUFFER) == 32);
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn) == 8);
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, Extents) == 16);
static_assert(sizeof(MOVE_FILE_DATA) == 32);
static_assert(offsetof(MOVE_FILE_DATA, StartingVcn) == 8);
static_assert(offsetof(MOVE_FILE_DATA, StartingLcn) == 16);
static_assert(offsetof(MOVE_FILE_DATA, ClusterCount) == 24);
static_assert(sizeof(WIN32_FIND_DATAW) == 592);
static_assert(offsetof(WIN32_FIND_DATAW, cFileName) == 44);
static_assert(sizeof(EXCEPTION_RECORD) == 152);
static_assert(sizeof(MINIDUMP_EXCEPTION_INFORMATION) == 16);
static_assert(sizeof(SHELLEXECUTEINFOW) == 112);
static_assert(offsetof(SHELLEXECUTEINFOW, hProcess) == 104);
