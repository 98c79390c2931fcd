// Disks made up from a seed: the same disk for the same seed on every host.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

#include "conversion/model/disk.h"

namespace model {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  // 0 to bound - 1.
  std::uint64_t Below(std::uint64_t bound) { return engine_() % bound; }
  bool Chance(unsigned percent) { return Below(100) < percent; }
  template <typename Value>
  Value Pick(std::initializer_list<Value> values) {
    return *(values.begin() + Below(values.size()));
  }
  template <typename Value>
  void Shuffle(std::vector<Value>& values) {
    for (std::size_t i = values.size(); i > 1; --i) std::swap(values[i - 1], values[Below(i)]);
  }

 private:
  std::mt19937_64 engine_;
};

// Where an NTFS boot sector belongs.
struct NtfsPlace {
  std::uint64_t first = 0;
  std::uint64_t count = 0;
};

// A disk without its volumes, which the machine names.
struct RandomDisk {
  Case disk;
  std::vector<NtfsPlace> ntfs;
};

// Up to 30 partitions, with gaps, sizes and ends at and around the values that decide.
RandomDisk MakeRandomDisk(Random& random);

}  // namespace model
