#include "simulator/fat32_controls.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "simulator/system.h"
#include "simulator/volume_file_device.h"

namespace simulator {
namespace {

constexpr std::size_t kBitmapHeaderLength = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
constexpr std::size_t kPointersHeaderLength = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
constexpr std::size_t kExtentLength = sizeof(RETRIEVAL_POINTERS_BUFFER) - kPointersHeaderLength;

struct Run {
  std::uint64_t vcn;
  std::uint64_t lcn;
  std::uint64_t length;
};

std::vector<Run> RunsOf(const Fat32Chain& chain) {
  std::vector<Run> runs;
  for (std::size_t vcn = 0; vcn < chain.size(); ++vcn) {
    const std::uint64_t lcn = chain[vcn] - kFirstFatCluster;
    if (!runs.empty() && runs.back().lcn + runs.back().length == lcn) {
      ++runs.back().length;
    } else {
      runs.push_back({vcn, lcn, 1});
    }
  }
  return runs;
}

std::uint64_t LoadNumber(std::span<const std::byte> bytes) {
  std::uint64_t number = 0;
  std::memcpy(&number, bytes.data(), sizeof number);
  return number;
}

void StoreNumber(std::uint64_t number, std::span<std::byte> bytes) {
  std::memcpy(bytes.data(), &number, sizeof number);
}

// What a request asks of the volume alone. A number with a high part, negative ones included, is
// too large for any FAT32 volume.
bool IsSound(const MOVE_FILE_DATA& request, std::uint64_t cluster_count) {
  const auto vcn = static_cast<std::uint64_t>(request.StartingVcn.QuadPart);
  const auto lcn = static_cast<std::uint64_t>(request.StartingLcn.QuadPart);
  return request.ClusterCount != 0 && vcn < cluster_count && lcn <= cluster_count &&
         request.ClusterCount <= cluster_count - lcn;
}

}  // namespace

DWORD GetVolumeBitmap(Fat32Files& files, std::span<const std::byte> in, std::span<std::byte> out,
                      DWORD& returned) {
  if (in.size() < sizeof(STARTING_LCN_INPUT_BUFFER) || out.size() < sizeof(VOLUME_BITMAP_BUFFER)) {
    return ERROR_INSUFFICIENT_BUFFER;
  }
  std::span<const std::uint8_t> bits;
  std::uint32_t cluster_count = 0;
  const DWORD error = files.Usage(bits, cluster_count);
  if (error != ERROR_SUCCESS) return error;
  const std::uint64_t wanted = LoadNumber(in);
  if (wanted >= cluster_count) return ERROR_INVALID_PARAMETER;
  const std::uint64_t first = wanted - wanted % 8;
  // Believed: the bits behind the last cluster, up to the end of its byte, are clear.
  const auto answer = std::as_bytes(bits.subspan(first / 8));
  const std::size_t length = std::min(answer.size(), out.size() - kBitmapHeaderLength);
  StoreNumber(first, out);
  StoreNumber(cluster_count - first, out.subspan(offsetof(VOLUME_BITMAP_BUFFER, BitmapSize)));
  std::memcpy(out.data() + kBitmapHeaderLength, answer.data(), length);
  returned = static_cast<DWORD>(kBitmapHeaderLength + length);
  return length < answer.size() ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

DWORD GetRetrievalPointers(Fat32Files& files, const Fat32FileId& id, std::span<const std::byte> in,
                           std::span<std::byte> out, DWORD& returned) {
  if (in.size() < sizeof(STARTING_VCN_INPUT_BUFFER) ||
      out.size() < sizeof(RETRIEVAL_POINTERS_BUFFER)) {
    return ERROR_INSUFFICIENT_BUFFER;
  }
  Fat32Chain chain;
  const DWORD error = files.Chain(id, chain);
  if (error != ERROR_SUCCESS) return error;
  const std::uint64_t vcn = LoadNumber(in);
  if (vcn >= chain.size()) return ERROR_HANDLE_EOF;
  const std::vector<Run> runs = RunsOf(chain);
  // The whole run that holds the VCN comes first.
  auto run = std::find_if(runs.begin(), runs.end(),
                          [vcn](const Run& other) { return vcn < other.vcn + other.length; });
  StoreNumber(run->vcn, out.subspan(offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn)));
  DWORD count = 0;
  std::size_t length = kPointersHeaderLength;
  for (; run != runs.end() && out.size() - length >= kExtentLength; ++run, ++count) {
    StoreNumber(run->vcn + run->length, out.subspan(length));
    StoreNumber(run->lcn, out.subspan(length + sizeof(LARGE_INTEGER)));
    length += kExtentLength;
  }
  std::memcpy(out.data(), &count, sizeof count);
  returned = static_cast<DWORD>(length);
  return run == runs.end() ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

DWORD MoveClusters(System& system, const Volume& volume, std::span<const std::byte> in) {
  if (in.size() < sizeof(MOVE_FILE_DATA)) return ERROR_INSUFFICIENT_BUFFER;
  MOVE_FILE_DATA request;
  std::memcpy(&request, in.data(), sizeof request);
  HandleObject* object = system.handles().Find(request.FileHandle);
  if (object == nullptr) return ERROR_INVALID_HANDLE;
  const auto* file = dynamic_cast<const VolumeFileDevice*>(object);
  if (file == nullptr || !file->IsOn(volume)) return ERROR_INVALID_PARAMETER;
  if (!file->IsUsable()) return ERROR_NOT_READY;
  std::span<const std::uint8_t> bits;
  std::uint32_t cluster_count = 0;
  DWORD error = volume.fat32->Usage(bits, cluster_count);
  if (error != ERROR_SUCCESS) return error;
  if (!IsSound(request, cluster_count)) return ERROR_INVALID_PARAMETER;
  const auto vcn = static_cast<std::size_t>(request.StartingVcn.QuadPart);
  const auto target = static_cast<std::uint32_t>(request.StartingLcn.QuadPart) + kFirstFatCluster;
  return volume.fat32->Move(file->id(), vcn, request.ClusterCount, target);
}

}  // namespace simulator
