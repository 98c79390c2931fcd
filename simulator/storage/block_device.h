// A disk's bytes: an ordinary image file, read and written in place and never loaded whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace simulator {

enum class Access { kReadOnly, kReadWrite };

// Positions and lengths are bytes, 64-bit everywhere, and need not be aligned: sector rules belong
// to the device above. Sparse parts of the image stay sparse. Not copyable; not for use from two
// threads at once.
class BlockDevice {
 public:
  // Opens an existing image. With kReadOnly every write is refused. Throws std::runtime_error whose
  // text names the file and the reason: it cannot be opened, is no ordinary file, is empty, or its
  // size is not a multiple of `sector_size`.
  explicit BlockDevice(const std::filesystem::path& image, std::uint32_t sector_size = 512,
                       Access access = Access::kReadWrite);
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

  // Makes the range read as zeros, leaving a hole where the host can. Counts as written bytes.
  [[nodiscard]] bool Zero(std::uint64_t offset, std::uint64_t length);

  // What has passed so far, in bytes.
  std::uint64_t bytes_read() const { return bytes_read_; }
  std::uint64_t bytes_written() const { return bytes_written_; }

 private:
  std::filesystem::path image_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
  std::uint32_t sector_size_ = 512;
  std::uint64_t bytes_read_ = 0;
  std::uint64_t bytes_written_ = 0;
};

// Creates (or replaces) a sparse image of `size` bytes that reads as zeros. Throws
// std::runtime_error that names the file and the reason.
void CreateSparseImage(const std::filesystem::path& image, std::uint64_t size);

}  // namespace simulator
