// Velkora SDK: converts a whole disk between MBR and GPT in place, without moving a partition and
// without touching user data.
//
// An application starts the library with InitVelkoraSDK, fills one DiskInfo with its VolumeInfo
// records, calls Convert on a thread of its own, gets progress through a callback, and ends with
// DestroyVelkoraSDK. This header stands alone and compiles as C++17.
//
// All texts are NUL-terminated. `id`, `volume_id` and the logs folder reach Windows as they stand;
// inside the library texts count as UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32) && defined(VELKORA_SDK_IMPORT)
#define VELKORA_SDK_API __declspec(dllimport)
#else
#define VELKORA_SDK_API
#endif

// Values of DiskInfo::disk_type. This is not the numbering of the platform's PARTITION_STYLE.
enum class DiskType : std::uint32_t {
  kRaw = 0,  // as is every value that is not listed here; such a disk is refused
  kGpt = 1,  // Convert turns it into MBR
  kMbr = 2,  // Convert turns it into GPT
};

// Values of VolumeInfo::filesystem. Only NTFS and FAT32 volumes can be shrunk to make room; any
// value that is not listed is printed as "RAW".
enum class VolumeFileSystem : std::int32_t {
  kMicrosoft = -3,
  kSystemHide = -2,
  kCoreStorage = -1,
  kUnknown = 0,
  kHfs = 1,
  kApfs = 2,
  kNtfs = 3,
  kFat12 = 4,
  kFat16 = 5,
  kFat32 = 6,
  kExfat = 7,
  kExt2 = 8,
  kExt3 = 9,
  kExt4 = 10,
  kRefs = 11,
};

// One volume of the disk. Filled by the caller, who owns it; it must live until Convert returns.
struct VolumeInfo {
  // The volume's path as CreateFile takes it, `\\?\Volume{…}` without a trailing backslash.
  char volume_id[256];
  // The number of the volume's partition, from 1. Convert rewrites it once the new table is set.
  std::uint16_t part_number;
  // Drive letter with its colon ("D:"), or empty for none. The volume gets it back.
  char letter[6];
  // Bytes. Only printed.
  std::uint64_t size;
  // Where the partition starts, in bytes from the start of the disk. A partition finds its volume
  // by this value alone: it must equal the partition's first sector times 512 exactly. A volume
  // whose offset is no partition's start is left out of everything that goes by partition.
  std::uint64_t offset;
  // Allocation unit in bytes; needed for FAT32 only, and taken as true there: a wrong one leaves
  // files behind the volume's new end.
  std::uint32_t cluster_size;
  VolumeFileSystem filesystem;
  // Nonzero for the volume that holds the running system.
  std::uint8_t is_system;
};

// One disk. Filled by the caller, who owns it; it must live until Convert returns. The library
// takes it as true: of all fields only disk_type is compared with what the system says.
struct DiskInfo {
  DiskType disk_type;
  // The application's own; neither read nor written.
  std::uint8_t reserved_bytes[2];
  // Nonzero if the disk holds the running system. Also selects how tools are started: directly, so
  // the application must have the rights that diskpart needs; otherwise with the "runas" verb.
  std::uint8_t is_system;
  // The N of \\.\PhysicalDriveN; every diskpart script selects this disk.
  std::uint32_t index;
  // The disk's size in bytes. GPT to MBR lowers a size above 2 TiB to 2 TiB (0x20000000000), and
  // the lowered value stays here, also after a failure.
  std::uint64_t size;
  // Device path of the disk as CreateFile takes it, such as \\.\PhysicalDrive1.
  char id[256];
  // The application's own; neither read nor written.
  char reserved_text[256];
  // Serial number; printed in the log.
  char serial_num[256];
  // How many entries of `volumes` are valid, 0 to 255; a negative count is taken as 0. The library
  // walks the list with an 8-bit index: a count above 255 runs behind the array, and Convert ends
  // in an access violation while it prints the record, before the disk is opened.
  std::int32_t volume_count;
  VolumeInfo* volumes[255];
};

// Progress. `kind` 0: `value` is a VelkoraStatus. `kind` 1: `value` is a percentage from 0 to 100.
// Called on the thread that called Convert, between its steps; it should return soon. Its result is
// ignored. It may call Stop, and must not throw.
using VelkoraCallback = std::int32_t (*)(std::int32_t kind, std::int32_t value);

inline constexpr std::int32_t kVelkoraKindStatus = 0;
inline constexpr std::int32_t kVelkoraKindPercent = 1;

enum class VelkoraStatus : std::int32_t {
  kChecking = 1,       // checking the table and making room; always the first
  kClearing = 2,       // emptying the disk
  kCreating = 3,       // creating the new disk style
  kWriting = 4,        // writing the partition table
  kShrinking = 5,      // shrinking one partition; any number of times between 1 and 2
  kRepairingBoot = 6,  // system disks only
  kFinished = 7,       // last status of a success
  kBackupFailed = 8,   // GPT to MBR only; the disk is untouched
  kRollbackBegins = 9,
  kRolledBack = 10,      // last status of a failure that was undone, though blocks may be missing
  kRollbackFailed = 11,  // last status of a failure that could not be undone
};

class VelkoraSDK {
 public:
  // Converts the disk to the other style and returns when that is done or has failed: 0 when the
  // disk was converted, 1 in every other case. Throws nothing; a structured exception before the
  // backup, or in the rollback that follows one, reaches the caller. `callback` is never tested: it
  // must be valid. One Convert runs at a time in a process. Nothing is sent for a disk that cannot
  // be opened, whose style cannot be asked or contradicts `disk_type`, that is neither GPT nor MBR,
  // or whose table cannot be read.
  //
  // Before anything is touched, the disk's metadata is backed up in memory (tables, boot sectors,
  // FATs, what NTFS keeps of itself). If that fails, the disk stays as it is; toward MBR status 8
  // and 100 percent tell so, toward GPT nothing does. Any failure after it ends in a rollback
  // (statuses 9, then 10 or 11; 9 alone when an exception ends the rollback), also one from before
  // the disk was changed: the disk is emptied, gets its old style, and the backup is written back.
  // What a rollback does not bring back: whatever lay in the first and last MiB outside the backup,
  // the protective record of a GPT disk below 128 MiB, a true secondary GPT header, and, after a
  // stop, the letters. docs/host-guide.md tells the rest. The backup ends with the process.
  //
  // A converter is good for one conversion: a second one after a run that took a backup fails. A
  // disk whose metadata takes more than 256 pieces cannot be converted.
  //
  // A FAT32 volume that has to give room has its files and folders moved; all of them lose their
  // attributes for good, also when the conversion fails later. Not everything is carried over, and
  // a rollback brings back none of what was written below the root directory: docs/host-guide.md
  // tells which volumes should not be asked for room.
  virtual std::int32_t Convert(DiskInfo* disk, VelkoraCallback callback) = 0;

  // Asks for a stop, from any thread. Does not wait for the conversion, but for a call of the log's
  // observer that lasts on another thread (logging/log.h). A tool that runs is not interrupted. The
  // request is never taken back: each later Convert of the process stops at the same points.
  virtual void Stop() = 0;

 protected:
  // Objects end through DestroyVelkoraSDK alone.
  VelkoraSDK() = default;
  VelkoraSDK(const VelkoraSDK&) = default;
  VelkoraSDK& operator=(const VelkoraSDK&) = default;
  ~VelkoraSDK() = default;
};

extern "C" {

// Starts the library: opens the log, takes the logs folder, returns a new converter, or null when
// memory runs out or an exception strikes on the way, with the log closed then. Throws nothing. Not
// to be called while a Convert runs.
//
// `logs_folder` receives the scripts for and the output of every tool. It is used as it stands: no
// trailing separator, it must exist, and an empty one means the root of the current drive. Never
// null.
//
// The other three belong to the logging library and are handed on to it. What they mean to the one
// that is built in stands in logging/log.h; in short: `log_folder` is the text of a folder for the
// log file or null for none, `log_observer` points to a LogObserver (that header's, which an
// application includes if it wants one) that is given every line, or is null, `log_reserved` is not
// looked at.
VELKORA_SDK_API VelkoraSDK* InitVelkoraSDK(const void* log_folder, const char* logs_folder,
                                           const void* log_observer, const void* log_reserved);

// Frees the converter; null is ignored. Not to be called while a Convert runs. The storage of the
// partition offsets and the metadata backup of a conversion stay allocated.
VELKORA_SDK_API void DestroyVelkoraSDK(VelkoraSDK* sdk);

}  // extern "C"

static_assert(sizeof(VolumeInfo) == 296);
static_assert(offsetof(VolumeInfo, part_number) == 256);
static_assert(offsetof(VolumeInfo, letter) == 258);
static_assert(offsetof(VolumeInfo, size) == 264);
static_assert(offsetof(VolumeInfo, offset) == 272);
static_assert(offsetof(VolumeInfo, cluster_size) == 280);
static_assert(offsetof(VolumeInfo, filesystem) == 284);
static_assert(offsetof(VolumeInfo, is_system) == 288);
static_assert(sizeof(DiskInfo) == 2840);
static_assert(offsetof(DiskInfo, reserved_bytes) == 4);
static_assert(offsetof(DiskInfo, reserved_text) == 280);
static_assert(offsetof(DiskInfo, is_system) == 6);
static_assert(offsetof(DiskInfo, index) == 8);
static_assert(offsetof(DiskInfo, size) == 16);
static_assert(offsetof(DiskInfo, id) == 24);
static_assert(offsetof(DiskInfo, serial_num) == 536);
static_assert(offsetof(DiskInfo, volume_count) == 792);
static_assert(offsetof(DiskInfo, volumes) == 800);
