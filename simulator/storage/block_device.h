// A disk's bytes: an ordinary image file, read and written in place and never loaded whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "simulator/storage/access.h"
#include "simulator/storage/image_overlay.h"

namespace simulator {

// Somebody who keeps changes in memory for a while instead of writing them to a device at once.
class LateWriter {
 public:
  virtual ~LateWriter() = default;
  // Called before each transfer, its own included, and by TellLateWriters. Writes what waits before
  // anybody else reads or writes.
  virtual void BeforeTransfer() = 0;
};

// Positions and lengths are bytes, 64-bit everywhere, and need not be aligned: sector rules belong
// to the device above. Sparse parts of the image stay sparse. Not copyable; not for use from two
// threads at once.
class BlockDevice {
 public:
  // Opens an existing image; of one that is opened for reading only, every write fails. Throws
  // std::runtime_error whose text names the file and the reason: it cannot be opened, is no
  // ordinary file, is empty, or its size is not a multiple of `sector_size`.
  explicit BlockDevice(const std::filesystem::path& image, std::uint32_t sector_size = 512,
                       Access access = Access::kReadWrite);
  // Opens the image for reading only, and keeps what is written in `overlay`, which outlives the
  // device. Several devices may have one image open, each with an overlay of its own.
  BlockDevice(const std::filesystem::path& image, std::uint32_t sector_size, ImageOverlay& overlay);
  ~BlockDevice();
  BlockDevice(const BlockDevice&) = delete;
  BlockDevice& operator=(const BlockDevice&) = delete;

  const std::filesystem::path& image() const { return image_; }
  std::uint64_t size() const { return size_; }
  std::uint32_t sector_size() const { return sector_size_; }
  std::uint64_t sector_count() const { return size_ / sector_size_; }

  // Moves the whole span or fails. False when the range leaves the image (nothing is moved then) or
  // the host refuses the transfer.
  [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer);
  [[nodiscard]] bool Write(std::uint64_t offset, std::span<const std::byte> data);

  // Makes the range read as zeros, leaving a hole in the image where the host can. Counts as
  // written bytes.
  [[nodiscard]] bool Zero(std::uint64_t offset, std::uint64_t length);

  // Has the host write all that was written so far to its medium, what late writers keep included.
  // An overlay has no medium. False when the host refuses.
  [[nodiscard]] bool Flush();

  // A late writer is known to the device for as long as it lives.
  void Add(LateWriter& writer) { late_writers_.push_back(&writer); }
  void Remove(LateWriter& writer) { std::erase(late_writers_, &writer); }
  // Has the late writers write what waits, as each transfer does.
  void TellLateWriters();

  // Called before bytes of the image change, with their place and number. The change does not take
  // place, and the write fails, unless it returns true.
  std::function<bool(std::uint64_t offset, std::uint64_t length)> before_change;

  // What has passed so far, in bytes.
  std::uint64_t bytes_read() const { return bytes_read_; }
  std::uint64_t bytes_written() const { return bytes_written_; }

 private:
  bool ReadImage(std::uint64_t offset, std::span<std::byte> buffer);
  bool WriteImage(std::uint64_t offset, std::span<const std::byte> data);
  bool ZeroImage(std::uint64_t offset, std::uint64_t length);
  // Reads for the overlay, whose pages may reach past the image's end.
  ImageOverlay::ReadImage PageReader();

  std::filesystem::path image_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
  std::uint32_t sector_size_ = 512;
  Access access_ = Access::kReadWrite;
  ImageOverlay* overlay_ = nullptr;
  std::vector<LateWriter*> late_writers_;
  std::uint64_t bytes_read_ = 0;
  std::uint64_t bytes_written_ = 0;
};

// Creates (or replaces) a sparse image of `size` bytes that reads as zeros. Throws
// std::runtime_error that names the file and the reason.
void CreateSparseImage(const std::filesystem::path& image, std::uint64_t size);

}  // namespace simulator
