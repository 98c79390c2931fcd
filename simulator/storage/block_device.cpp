#include "simulator/storage/block_device.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#ifdef _WIN32
// clang-format off
#include <windows.h>
#include <winioctl.h>
// clang-format on
#include <io.h>
#else
#include <unistd.h>
#endif

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxTransfer = std::size_t{1} << 30;    // bytes; below every host's limit
constexpr std::uint64_t kZeroPiece = std::uint64_t{1} << 20;  // bytes

[[noreturn]] void Fail(const fs::path& image, const std::string& reason) {
  const std::u8string name = image.u8string();
  throw std::runtime_error(std::string(name.begin(), name.end()) + ": " + reason);
}

// ---- The host's calls: one transfer each, -1 on failure -----------------------------------------

#ifdef _WIN32

int OpenImage(const fs::path& image, Access access) {
  const int mode = access == Access::kReadOnly ? _O_RDONLY : _O_RDWR;
  return _wopen(image.c_str(), mode | _O_BINARY | _O_NOINHERIT);
}

void CloseImage(int descriptor) {
  _close(descriptor);
}

std::int64_t ReadAt(int descriptor, std::byte* buffer, std::size_t bytes, std::uint64_t offset) {
  if (_lseeki64(descriptor, static_cast<std::int64_t>(offset), SEEK_SET) < 0) return -1;
  return _read(descriptor, buffer, static_cast<unsigned>(bytes));
}

std::int64_t WriteAt(int descriptor, const std::byte* data, std::size_t bytes,
                     std::uint64_t offset) {
  if (_lseeki64(descriptor, static_cast<std::int64_t>(offset), SEEK_SET) < 0) return -1;
  return _write(descriptor, data, static_cast<unsigned>(bytes));
}

bool SyncImage(int descriptor) {
  return _commit(descriptor) == 0;
}

// Holes are left to the fallback: not every host file system has them.
bool PunchHole(int, std::uint64_t, std::uint64_t) {
  return false;
}

// The C runtime would lengthen a file by writing zeros; the system just moves the end.
std::error_code MakeSparseFile(const fs::path& image, std::uint64_t size) {
  const HANDLE file = ::CreateFileW(image.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return {static_cast<int>(::GetLastError()), std::system_category()};
  }
  DWORD returned = 0;
  // A host without sparse files refuses; the image is then merely a large one.
  ::DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  std::error_code error;
  if (!::SetFilePointerEx(file, end, nullptr, FILE_BEGIN) || !::SetEndOfFile(file)) {
    error.assign(static_cast<int>(::GetLastError()), std::system_category());
  }
  ::CloseHandle(file);
  if (error) ::DeleteFileW(image.c_str());
  return error;
}

#else

static_assert(sizeof(off_t) == 8, "images are larger than 2 GiB");

int OpenImage(const fs::path& image, Access access) {
  const int mode = access == Access::kReadOnly ? O_RDONLY : O_RDWR;
  return ::open(image.c_str(), mode | O_CLOEXEC);
}

void CloseImage(int descriptor) {
  ::close(descriptor);
}

std::int64_t ReadAt(int descriptor, std::byte* buffer, std::size_t bytes, std::uint64_t offset) {
  return ::pread(descriptor, buffer, bytes, static_cast<off_t>(offset));
}

std::int64_t WriteAt(int descriptor, const std::byte* data, std::size_t bytes,
                     std::uint64_t offset) {
  return ::pwrite(descriptor, data, bytes, static_cast<off_t>(offset));
}

bool SyncImage(int descriptor) {
  return ::fdatasync(descriptor) == 0;
}

bool PunchHole(int descriptor, std::uint64_t offset, std::uint64_t length) {
#ifdef FALLOC_FL_PUNCH_HOLE
  return ::fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                     static_cast<off_t>(offset), static_cast<off_t>(length)) == 0;
#else
  static_cast<void>(descriptor);
  static_cast<void>(offset);
  static_cast<void>(length);
  return false;
#endif
}

std::error_code MakeSparseFile(const fs::path& image, std::uint64_t size) {
  const int descriptor = ::open(image.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) return {errno, std::generic_category()};
  std::error_code error;
  if (::ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
    error.assign(errno, std::generic_category());
    ::unlink(image.c_str());
  }
  ::close(descriptor);
  return error;
}

#endif

// Repeats `transfer` until all bytes have moved. It is given the bytes done and the bytes wanted.
template <typename Transfer>
bool MoveAll(std::size_t total, Transfer transfer) {
  std::size_t done = 0;
  while (done < total) {
    const std::int64_t moved = transfer(done, std::min(total - done, kMaxTransfer));
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return false;
    done += static_cast<std::size_t>(moved);
  }
  return true;
}

bool InRange(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return offset <= size && length <= size - offset;
}

}  // namespace

BlockDevice::BlockDevice(const fs::path& image, std::uint32_t sector_size, Access access)
    : image_(image), sector_size_(sector_size), access_(access) {
  if (sector_size < 512 || !std::has_single_bit(sector_size)) {
    Fail(image, "a sector size of " + std::to_string(sector_size) + " bytes is not possible");
  }
  std::error_code error;
  const fs::file_status status = fs::status(image, error);
  if (!fs::exists(status)) Fail(image, "no such file");
  if (!fs::is_regular_file(status)) Fail(image, "not an ordinary file");
  size_ = fs::file_size(image, error);
  if (error) Fail(image, "cannot tell its size: " + error.message());
  if (size_ == 0) Fail(image, "the image is empty");
  if (size_ % sector_size != 0) {
    Fail(image, "its size, " + std::to_string(size_) + " bytes, is not a multiple of the sector " +
                    "size, " + std::to_string(sector_size) + " bytes");
  }
  descriptor_ = OpenImage(image, access);
  if (descriptor_ < 0) {
    Fail(image, "cannot open: " + std::error_code(errno, std::generic_category()).message());
  }
}

BlockDevice::BlockDevice(const fs::path& image, std::uint32_t sector_size, ImageOverlay& overlay)
    : BlockDevice(image, sector_size, Access::kReadOnly) {
  overlay_ = &overlay;
}

BlockDevice::~BlockDevice() {
  CloseImage(descriptor_);
}

void BlockDevice::TellLateWriters() {
  for (LateWriter* writer : late_writers_) writer->BeforeTransfer();
}

bool BlockDevice::Read(std::uint64_t offset, std::span<std::byte> buffer) {
  TellLateWriters();
  if (!InRange(offset, buffer.size(), size_) || !ReadImage(offset, buffer)) return false;
  if (overlay_ != nullptr) overlay_->Apply(offset, buffer);
  bytes_read_ += buffer.size();
  return true;
}

bool BlockDevice::Write(std::uint64_t offset, std::span<const std::byte> data) {
  TellLateWriters();
  if (!InRange(offset, data.size(), size_)) return false;
  if (before_change && !before_change(offset, data.size())) return false;
  const bool moved =
      overlay_ != nullptr ? overlay_->Write(offset, data, PageReader()) : WriteImage(offset, data);
  if (moved) bytes_written_ += data.size();
  return moved;
}

bool BlockDevice::Zero(std::uint64_t offset, std::uint64_t length) {
  TellLateWriters();
  if (!InRange(offset, length, size_)) return false;
  if (before_change && !before_change(offset, length)) return false;
  const bool zeroed = overlay_ != nullptr ? overlay_->Zero(offset, length, PageReader())
                                          : ZeroImage(offset, length);
  if (zeroed) bytes_written_ += length;
  return zeroed;
}

bool BlockDevice::Flush() {
  TellLateWriters();
  // Nothing of an image that is only read can wait, and some hosts refuse to flush one.
  return overlay_ != nullptr || access_ == Access::kReadOnly || SyncImage(descriptor_);
}

bool BlockDevice::ReadImage(std::uint64_t offset, std::span<std::byte> buffer) {
  return MoveAll(buffer.size(), [&](std::size_t done, std::size_t bytes) {
    return ReadAt(descriptor_, buffer.data() + done, bytes, offset + done);
  });
}

bool BlockDevice::WriteImage(std::uint64_t offset, std::span<const std::byte> data) {
  if (access_ == Access::kReadOnly) return false;
  return MoveAll(data.size(), [&](std::size_t done, std::size_t bytes) {
    return WriteAt(descriptor_, data.data() + done, bytes, offset + done);
  });
}

bool BlockDevice::ZeroImage(std::uint64_t offset, std::uint64_t length) {
  if (access_ == Access::kReadOnly) return false;
  if (length == 0 || PunchHole(descriptor_, offset, length)) return true;
  const std::vector<std::byte> zeros(static_cast<std::size_t>(std::min(length, kZeroPiece)));
  while (length > 0) {
    const std::uint64_t bytes = std::min(length, kZeroPiece);
    if (!WriteImage(offset, std::span(zeros).first(static_cast<std::size_t>(bytes)))) return false;
    offset += bytes;
    length -= bytes;
  }
  return true;
}

ImageOverlay::ReadImage BlockDevice::PageReader() {
  return [this](std::uint64_t offset, std::span<std::byte> page) {
    const std::uint64_t left = size_ - offset;
    return ReadImage(
        offset, page.first(static_cast<std::size_t>(std::min<std::uint64_t>(page.size(), left))));
  };
}

void CreateSparseImage(const fs::path& image, std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    Fail(image, "an image of " + std::to_string(size) + " bytes is not possible");
  }
  const std::error_code error = MakeSparseFile(image, size);
  if (error) {
    Fail(image, "cannot create an image of " + std::to_string(size) + " bytes: " + error.message());
  }
}

}  // namespace simulator
