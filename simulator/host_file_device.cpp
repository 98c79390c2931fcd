#include "simulator/host_file_device.h"

#include <fcntl.h>
#include <fstream>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include "simulator/device_object.h"

namespace simulator {
namespace {

constexpr DWORD kErrorFileExists = 80;

#ifdef _WIN32
bool SyncFile(const std::filesystem::path& path) {
  const int descriptor = _wopen(path.c_str(), _O_RDWR | _O_BINARY | _O_NOINHERIT);
  if (descriptor < 0) return false;
  const bool synced = _commit(descriptor) == 0;
  _close(descriptor);
  return synced;
}
#else
// A descriptor of its own does: what is synced is the file.
bool SyncFile(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool synced = ::fsync(descriptor) == 0;
  ::close(descriptor);
  return synced;
}
#endif

class HostFile : public DeviceObject {
 public:
  HostFile(std::filesystem::path path, std::fstream stream, DWORD access)
      : DeviceObject(access), path_(std::move(path)), stream_(std::move(stream)) {}

  std::string Describe() const override { return "file " + path_.filename().string(); }

  DWORD Read(std::span<std::byte> buffer, DWORD& done) override {
    if (!readable()) return ERROR_ACCESS_DENIED;
    stream_.clear();
    stream_.seekg(static_cast<std::streamoff>(position()));
    stream_.read(reinterpret_cast<char*>(buffer.data()),
                 static_cast<std::streamsize>(buffer.size()));
    if (stream_.bad()) return ERROR_READ_FAULT;
    done = static_cast<DWORD>(stream_.gcount());
    Advance(done);
    return ERROR_SUCCESS;
  }

  DWORD Write(std::span<const std::byte> data, DWORD& done) override {
    if (!writable()) return ERROR_ACCESS_DENIED;
    stream_.clear();
    stream_.seekp(static_cast<std::streamoff>(position()));
    stream_.write(reinterpret_cast<const char*>(data.data()),
                  static_cast<std::streamsize>(data.size()));
    if (!stream_.flush()) return ERROR_WRITE_FAULT;
    done = static_cast<DWORD>(data.size());
    Advance(done);
    return ERROR_SUCCESS;
  }

 protected:
  DWORD End(std::uint64_t& end) override {
    stream_.clear();
    stream_.seekg(0, std::ios::end);
    const std::streamoff offset = stream_.tellg();
    if (offset < 0) return ERROR_READ_FAULT;
    end = static_cast<std::uint64_t>(offset);
    return ERROR_SUCCESS;
  }

  // Each write leaves the stream empty.
  DWORD FlushWritten() override { return SyncFile(path_) ? ERROR_SUCCESS : ERROR_WRITE_FAULT; }

 private:
  std::filesystem::path path_;
  std::fstream stream_;
};

// ERROR_SUCCESS when a file that is there, or not, may be opened with this disposition.
DWORD CheckDisposition(const std::filesystem::path& path, DWORD access, DWORD disposition,
                       bool existed) {
  switch (disposition) {
    case CREATE_NEW:
      if (existed) return kErrorFileExists;
      break;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS:
      break;
    case TRUNCATE_EXISTING:
      if ((access & GENERIC_WRITE) == 0) return ERROR_INVALID_PARAMETER;
      [[fallthrough]];
    case OPEN_EXISTING:
      if (!existed && std::filesystem::exists(path.parent_path())) return ERROR_FILE_NOT_FOUND;
      break;
    default:
      return ERROR_INVALID_PARAMETER;
  }
  return std::filesystem::exists(path.parent_path()) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

}  // namespace

DWORD OpenHostFile(const std::filesystem::path& path, DWORD access, DWORD disposition,
                   std::unique_ptr<HandleObject>& object, bool& existed) {
  existed = std::filesystem::exists(path);
  const DWORD error = CheckDisposition(path, access, disposition, existed);
  if (error != ERROR_SUCCESS) return error;
  // Believed: without backup semantics a folder is refused so.
  if (std::filesystem::is_directory(path)) return ERROR_ACCESS_DENIED;

  const bool truncate = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
  if (!existed || truncate) {
    if (!std::ofstream(path, std::ios::binary | std::ios::trunc)) return ERROR_ACCESS_DENIED;
  }
  auto mode = std::ios::binary | std::ios::in;
  if ((access & GENERIC_WRITE) != 0) mode |= std::ios::out;
  std::fstream stream(path, mode);
  if (!stream) return ERROR_ACCESS_DENIED;
  object = std::make_unique<HostFile>(path, std::move(stream), access);
  return ERROR_SUCCESS;
}

}  // namespace simulator
