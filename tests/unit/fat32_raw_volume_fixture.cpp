#include "fat32_raw_volume_fixture.h"

#include <cstring>

#include "simulator/volume.h"

namespace testing_support {
namespace {

constexpr std::uint64_t kSectorBytes = 512;
constexpr std::size_t kEntryBytes = 32;

void Put(std::vector<std::byte>& bytes, std::size_t offset, std::uint64_t value,
         std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::byte>(value >> (8 * i));
  }
}

std::uint32_t Number(const std::vector<std::byte>& bytes, std::size_t offset, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value |= std::to_integer<std::uint32_t>(bytes.at(offset + i)) << (8 * i);
  }
  return value;
}

}  // namespace

Fat32RawVolume::Fat32RawVolume() : disk_(NewDisk(1, 48 * kMiB)) {
  WriteMbr(disk_, {{7, kFirstSector, kSectors}});
  machine_.UpdateProperties(disk_);
  SetBootField(13, 1, 1);
  SetBootField(14, kReserved, 2);
  SetBootField(36, kFatSectors, 2);
  const std::string path = machine_.FindVolumeAt(1, kFirstSector * kSectorBytes)->path;
  volume_ = velkora::GetDeviceHandleById(path.c_str());
  machine_.calls().Clear();
}

Fat32RawVolume::~Fat32RawVolume() {
  velkora::CloseDeviceHandle(volume_);
}

void Fat32RawVolume::SetBootField(std::size_t offset, std::uint64_t value, std::size_t width) {
  Bytes boot = ReadBytes(disk_, kFirstSector * kSectorBytes, kSectorBytes);
  Put(boot, offset, value, width);
  WriteBytes(disk_, kFirstSector * kSectorBytes, boot);
}

velkora::Fat32Geometry Fat32RawVolume::Geometry() {
  const Bytes boot = ReadBytes(disk_, kFirstSector * kSectorBytes, kSectorBytes);
  velkora::Fat32BootSector sector{};
  std::memcpy(&sector, boot.data(), sizeof sector);
  return velkora::Fat32Geometry(sector);
}

std::uint64_t Fat32RawVolume::SectorOf(std::uint64_t cluster) const {
  return kFirstSector + kReserved + 2 * kFatSectors + (cluster - 2) * sectors_per_cluster_;
}

void Fat32RawVolume::PutEntries(std::uint64_t cluster, const std::vector<RawEntry>& entries) {
  Bytes bytes(entries.size() * kEntryBytes);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    for (std::size_t k = 0; k < 11; ++k) {
      Put(bytes, i * kEntryBytes + k, static_cast<unsigned char>(entries[i].name), 1);
    }
    Put(bytes, i * kEntryBytes + 11, static_cast<std::uint64_t>(entries[i].attributes), 1);
    Put(bytes, i * kEntryBytes + 20, entries[i].cluster >> 16, 2);
    Put(bytes, i * kEntryBytes + 26, entries[i].cluster, 2);
  }
  WriteBytes(disk_, SectorOf(cluster) * kSectorBytes, bytes);
}

void Fat32RawVolume::PutDirectory(std::uint32_t cluster, std::uint32_t parent,
                                  const std::vector<RawEntry>& entries) {
  std::vector<RawEntry> all = {{'.', kFolder, cluster}, {'.', kFolder, parent}};
  all.insert(all.end(), entries.begin(), entries.end());
  PutEntries(cluster, all);
}

std::uint32_t Fat32RawVolume::EntryCluster(std::uint64_t cluster, std::size_t index) {
  const Bytes entry =
      ReadBytes(disk_, SectorOf(cluster) * kSectorBytes + index * kEntryBytes, kEntryBytes);
  return Number(entry, 20, 2) << 16 | Number(entry, 26, 2);
}

std::vector<std::byte> Fat32RawVolume::Cluster(std::uint64_t cluster) {
  return ReadBytes(disk_, SectorOf(cluster) * kSectorBytes, sectors_per_cluster_ * kSectorBytes);
}

void Fat32RawVolume::FillCluster(std::uint64_t cluster, std::uint8_t value) {
  WriteBytes(disk_, SectorOf(cluster) * kSectorBytes,
             Bytes(sectors_per_cluster_ * kSectorBytes, std::byte{value}));
}

std::uint32_t Fat32RawVolume::FatEntry(std::uint64_t fat, std::uint64_t cluster) {
  const std::uint64_t sector = kFirstSector + kReserved + fat * kFatSectors;
  return Number(ReadBytes(disk_, sector * kSectorBytes + cluster * 4, 4), 0, 4);
}

void Fat32RawVolume::SetFat(std::uint64_t cluster, std::uint32_t value) {
  Bytes entry(4);
  Put(entry, 0, value, 4);
  WriteBytes(disk_, (kFirstSector + kReserved) * kSectorBytes + cluster * 4, entry);
}

void Fat32RawVolume::Chain(std::initializer_list<std::uint32_t> clusters) {
  for (auto cluster = clusters.begin(); cluster != clusters.end(); ++cluster) {
    SetFat(*cluster, cluster + 1 == clusters.end() ? kLast : *(cluster + 1));
  }
}

std::vector<std::byte> Fat32RawVolume::Fat(std::uint64_t fat) {
  const std::uint64_t sector = kFirstSector + kReserved + fat * kFatSectors;
  return ReadBytes(disk_, sector * kSectorBytes, kFatSectors * kSectorBytes);
}

}  // namespace testing_support
