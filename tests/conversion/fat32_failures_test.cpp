// Each call of a FAT32 shrink within a conversion fails, once and from then on, and the
// conversion ends as it should: converted, or rolled back to every block of the backup.
#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <memory>

#include "conversion/fat32_rooms.h"
#include "conversion/system_disk.h"

namespace conversion {
namespace {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

// What a failure of one call leads to: the end of the shrink, or nothing.
struct Consequence {
  const char* call;        // how its name begins
  std::size_t occurrence;  // within the shrink, from 1; 0: each that has no row of its own
  bool ends_it;
};
constexpr std::array kConsequences = {
    // The rescan in front is not looked at.
    Consequence{"_wfopen_s", 0, false},
    Consequence{"fwrite", 0, false},
    Consequence{"fclose", 0, false},
    Consequence{"ShellExecuteExW", 0, false},
    Consequence{"WaitForMultipleObjects", 0, false},
    Consequence{"GetExitCodeProcess", 0, false},
    Consequence{"system", 0, false},
    Consequence{"command/diskpart", 0, false},
    // A path that cannot be converted, like a listing that fails, throws.
    Consequence{"MultiByteToWideChar", 0, true},
    Consequence{"WideCharToMultiByte", 0, true},
    Consequence{"CreateFileA", 0, true},
    Consequence{"CreateFileW", 0, true},
    Consequence{"FindFirstFileW", 0, true},
    Consequence{"FindNextFileW", 0, true},
    Consequence{"SetFileAttributesW", 0, true},
    Consequence{"DeviceIoControl/", 0, true},
    // Boot sector, table and the fragments of both folders have one attempt, other transfers three.
    Consequence{"SetFilePointer", 1, true},
    Consequence{"SetFilePointer", 2, true},
    Consequence{"SetFilePointer", 3, true},
    Consequence{"SetFilePointer", 4, true},
    Consequence{"SetFilePointer", 9, true},
    Consequence{"SetFilePointer", 10, true},
    Consequence{"ReadFile", 1, true},
    Consequence{"ReadFile", 2, true},
    Consequence{"ReadFile", 3, true},
    Consequence{"ReadFile", 6, true},
    Consequence{"WriteFile", 1, true},
    Consequence{"WriteFile", 4, true},
    Consequence{"SetFilePointer", 0, false},
    Consequence{"ReadFile", 0, false},
    Consequence{"WriteFile", 0, false},
    // What stays open does no harm.
    Consequence{"FindClose", 0, false},
    Consequence{"CloseHandle", 0, false},
};

struct Kind {
  const char* name;
  Fat32Room (*make)(const std::filesystem::path& image, const std::filesystem::path& scratch);
  bool system;
};
void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

Fat32Room MakeBootRecordRoom(const std::filesystem::path& image,
                             const std::filesystem::path& scratch) {
  return MakeRoomForABootRecord(image, scratch);
}

// A call by name and control code, and which of these it is within the shrink.
struct Place {
  std::string name;
  std::size_t occurrence = 0;
};

class Fat32Failures : public ConversionTest, public ::testing::WithParamInterface<Kind> {
 protected:
  Fat32Failures() : room_(GetParam().make(image(), folder_.path())) {
    CopyImage(image(), File("start.img"));
    Partitions wanted = room_.others;
    wanted.push_back(room_.partition);
    expected_ = std::make_unique<ExpectedImage>(image(), File("expected.img"));
    expected_->BackUp(wanted);
  }

  // A conversion from the start, ready to go.
  std::unique_ptr<ConversionRun> NewRun() {
    CopyImage(File("start.img"), image());
    auto run = std::make_unique<ConversionRun>(image());
    run->SetLetters('C');
    run->record();
    if (GetParam().system) RunFrom(*run, room_.others[0]);
    // A rollback begins with the disk as it is then.
    run->on_line = [this](const std::string& line) {
      if (line == "status 9") CopyImage(image(), expected_->path());
    };
    return run;
  }

  // Notes the calls of a shrink without failures.
  void Observe() {
    const auto run = NewRun();
    const auto& calls = run->machine().calls().calls();
    std::size_t last = 0;
    run->on_line = [&](const std::string& line) {
      if (line == "log 1: CompressPart Begin...") first_ = calls.size();
      if (line == "log 1: Compress Fat32 Partition End!") last = calls.size() + 2;
    };
    ASSERT_EQ(run->Convert(), 0);
    converted_ = Hash(image());
    std::map<std::string, std::size_t> occurrences;
    for (std::size_t i = first_; i < last; ++i) {
      std::string name = calls[i].name;
      if (name == "DeviceIoControl" || name == "command") name += "/" + calls[i].detail;
      const std::size_t occurrence = ++occurrences[name];
      places_.push_back({name, occurrence});
    }
    EXPECT_EQ(calls[last - 1].name, "CloseHandle");
    EXPECT_GT(places_.size(), 100U);
  }

  static bool EndsIt(const Place& place) {
    const auto fits = [&place](const Consequence& consequence) {
      return place.name.starts_with(consequence.call) &&
             (consequence.occurrence == 0 || consequence.occurrence == place.occurrence);
    };
    const auto found = std::find_if(kConsequences.begin(), kConsequences.end(), fits);
    EXPECT_NE(found, kConsequences.end()) << "nothing is known of a failure of this call";
    return found != kConsequences.end() && found->ends_it;
  }

  static Lines LastCallbacks(const ConversionRun& run) {
    const Lines callbacks = run.Callbacks();
    return {callbacks.end() - std::min<std::ptrdiff_t>(3, std::ssize(callbacks)), callbacks.end()};
  }

  // Every block of the backup is in place, and all else as the failure and the rollback's tools
  // left it.
  void ExpectRolledBack(const ConversionRun& run) {
    EXPECT_THAT(LastCallbacks(run), ElementsAre("status 9", "percent 100", "status 10"));
    expected_->RollBack();
    EXPECT_EQ(DifferingSectors(expected_->path(), image()), SectorRanges());
  }

  const Fat32Room room_;
  std::unique_ptr<ExpectedImage> expected_;
  std::vector<Place> places_;
  std::size_t first_ = 0;
  std::uint64_t converted_ = 0;
};

TEST_P(Fat32Failures, EachFailsOnce) {
  Observe();
  for (std::size_t i = 0; i < places_.size(); ++i) {
    SCOPED_TRACE(places_[i].name + " " + std::to_string(places_[i].occurrence));
    const auto run = NewRun();
    run->machine().calls().FailNumber(first_ + i + 1);
    const bool ends_it = EndsIt(places_[i]);
    EXPECT_EQ(run->Convert(), ends_it ? 1 : 0);
    EXPECT_TRUE(run->machine().calls().calls().at(first_ + i).failed_on_demand);
    if (ends_it) {
      ExpectRolledBack(*run);
    } else {
      EXPECT_EQ(Hash(image()), converted_);
    }
  }
}

// From the failed call on a rollback cannot even open the disk.
TEST_P(Fat32Failures, EachFailsFromThenOn) {
  Observe();
  for (std::size_t i = 0; i < places_.size(); ++i) {
    SCOPED_TRACE("from " + places_[i].name + " " + std::to_string(places_[i].occurrence));
    const auto run = NewRun();
    run->machine().calls().FailNumber(first_ + i + 1, ERROR_GEN_FAILURE,
                                      simulator::Repeat::kFromThenOn);
    EXPECT_EQ(run->Convert(), 1);
    EXPECT_THAT(LastCallbacks(*run), ElementsAre("status 9", "percent 100", "status 11"));
    EXPECT_EQ(DifferingSectors(expected_->path(), image()), SectorRanges())
        << "the rollback has changed nothing";
  }
}

INSTANTIATE_TEST_SUITE_P(Rooms, Fat32Failures,
                         ::testing::Values(Kind{"boot record", MakeBootRecordRoom, false},
                                           Kind{"second GPT", MakeRoomForASecondGpt, false},
                                           Kind{"EFI partition", MakeRoomForAnEfiPartition, true}));

}  // namespace
}  // namespace conversion
