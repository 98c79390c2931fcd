#include "campaign/judge.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <stdexcept>

#include "campaign/tables.h"

namespace simulator {
static void PrintTo(const ByteRange& range, std::ostream* out) {
  *out << "[" << range.offset << ", +" << range.length << "]";
}
}  // namespace simulator

namespace campaign {
namespace {

using Lines = std::vector<std::string>;

constexpr char kMissing[] = "[BackupRestore] Restore offset 0x";
constexpr std::uint64_t kGptBytes = 33 * 512;

bool EndsWith(const Lines& lines, const Lines& end) {
  return lines.size() >= end.size() && std::equal(end.rbegin(), end.rend(), lines.rbegin());
}

// The blocks whose write failed, by the low half of their offset, which is what the log tells.
ByteRanges MissingBlocks(const BaseDisk& disk, CampaignRun& run) {
  ByteRanges missing;
  for (const std::string& line : run.run().Lines("log 3: " + std::string(kMissing))) {
    const std::uint64_t low = std::stoull(line, nullptr, 16);
    for (const auto& [offset, bytes] : disk.blocks()) {
      if ((offset & 0xFFFFFFFF) == low) missing.push_back({offset, bytes.size()});
    }
  }
  return missing;
}

}  // namespace

std::optional<Outcome> OutcomeOf(CampaignRun& run, std::int32_t result) {
  const Lines callbacks = run.run().Callbacks();
  const bool missing = !run.run().Lines("log 3: " + std::string(kMissing)).empty();
  if (result == 0) {
    if (EndsWith(callbacks, {"percent 100", "status 7"})) return Outcome::kConverted;
  } else if (EndsWith(callbacks, {"status 9", "percent 100", "status 10"})) {
    return missing ? Outcome::kBlocksMissing : Outcome::kRolledBack;
  } else if (EndsWith(callbacks, {"status 9", "percent 100", "status 11"})) {
    return Outcome::kRollbackFailed;
  } else if (callbacks.empty() || callbacks == Lines{"status 8", "percent 100"}) {
    return Outcome::kRefused;
  }
  return std::nullopt;
}

VolumeNames NamesIn(CampaignRun& run) {
  return {run.run().Letters(), conversion::PartNumbersOf(run.run())};
}

Judge::Judge(const BaseDisk& disk) : disk_(disk), rolled_back_(RolledBack(disk)) {
  {
    CampaignRun run(disk);
    names_before_ = NamesIn(run);
    if (run.Convert() != 0) throw std::runtime_error(disk.scenario().name + " does not convert");
    converted_ = run.overlay();
    errors_ = run.run().Errors();
    callbacks_ = run.run().Callbacks();
    names_after_ = NamesIn(run);
    oracle_.emplace(disk, run.Calls());
  }
  simulator::BlockDevice before(disk.image(), 512, simulator::Access::kReadOnly);
  primaries_ = disk.scenario().kept.size() - ReadBootRecordChain(before).size();
  simulator::BlockDevice after(disk.image(), 512, converted_);
  if (disk.scenario().direction == Direction::kGptToMbr) {
    for (const std::uint64_t record : ReadBootRecordChain(after)) {
      leftovers_.push_back({record * 512, 512});
    }
    return;
  }
  for (const GptRange& row : ReadGpt(after)) {
    if (row.efi_system) leftovers_.push_back({row.first * 512, (row.last - row.first + 1) * 512});
  }
}

void Judge::ExpectConverted(CampaignRun& run, const PlacedCall* call) {
  EXPECT_EQ(run.run().Callbacks(), callbacks_);
  const ByteRanges differences = Differences(disk_, run.overlay(), converted_);
  if (call == nullptr) {
    EXPECT_EQ(differences, ByteRanges());
  } else if (call->step == Step::kCleaning) {
    ExpectOverOldTable(run, differences);
  } else if (call->step == Step::kCreating) {
    // The clock gives the signature: all ones instead of the time.
    EXPECT_EQ(differences, (ByteRanges{{440, 4}}));
  } else {
    // The boot mark of one of the four entries is missing.
    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(differences[0].length, 1u);
    EXPECT_TRUE(differences[0].offset >= 446 && (differences[0].offset - 446) % 16 == 0);
  }
}

// What the emptying should have zeroed is still there, with an old table that tells what a shrink
// has changed.
void Judge::ExpectOverOldTable(CampaignRun& run, const ByteRanges& differences) {
  EXPECT_EQ(Outside(differences, DiskEnds(disk_)), ByteRanges());
  const ByteRanges untouched = Outside(differences, Changes(disk_, run.overlay()));
  EXPECT_NE(untouched, ByteRanges());
  const bool shrunk = std::any_of(oracle().calls().begin(), oracle().calls().end(),
                                  [](const PlacedCall& c) { return c.step == Step::kShrinking; });
  const bool had_gpt = disk_.scenario().direction == Direction::kGptToMbr;
  const ByteRanges changed = shrunk && had_gpt ? GptTables() : ByteRanges();
  EXPECT_EQ(Outside(Outside(differences, untouched), changed), ByteRanges());
}

ByteRanges Judge::GptTables() const {
  return {{512, kGptBytes}, {disk_.size() - kGptBytes, kGptBytes}};
}

void Judge::ExpectRefused(CampaignRun& run, Step step) {
  EXPECT_EQ(Changes(disk_, run.overlay()), ByteRanges());
  const bool told = step == Step::kBackup && disk_.scenario().direction == Direction::kGptToMbr;
  EXPECT_EQ(run.run().Callbacks(), told ? Lines({"status 8", "percent 100"}) : Lines());
}

void Judge::ExpectOnlyBlocksDiffer(CampaignRun& run, const ByteRanges& missing, bool ends_too) {
  ByteRanges allowed = leftovers_;
  if (ends_too) {
    const ByteRanges ends = DiskEnds(disk_);
    allowed.insert(allowed.end(), ends.begin(), ends.end());
  }
  ByteRanges blocks = BlockRanges(disk_);
  std::erase_if(blocks, [&](const ByteRange& block) {
    return std::find(missing.begin(), missing.end(), block) != missing.end();
  });
  allowed = Outside(allowed, blocks);
  const ByteRanges lost = Outside(missing, blocks);
  allowed.insert(allowed.end(), lost.begin(), lost.end());
  const ByteRanges differences = Differences(disk_, run.overlay(), rolled_back_);
  EXPECT_EQ(Outside(differences, allowed), ByteRanges());
}

void Judge::ExpectRolledBack(CampaignRun& run, bool ends_too) {
  ExpectOnlyBlocksDiffer(run, {}, ends_too);
}

void Judge::ExpectBlocksMissing(CampaignRun& run, bool ends_too) {
  const ByteRanges missing = MissingBlocks(disk_, run);
  EXPECT_NE(missing, ByteRanges());
  ExpectOnlyBlocksDiffer(run, missing, ends_too);
}

void Judge::ExpectTableCut(CampaignRun& run, std::size_t rows) {
  simulator::BlockDevice device(disk_.image(), 512, run.overlay());
  simulator::BlockDevice whole(disk_.image(), 512, converted_);
  std::vector<GptRange> expected = ReadGpt(whole);
  ASSERT_LE(rows, expected.size());
  expected.resize(rows);
  EXPECT_TRUE(ReadGpt(device) == expected);
  EXPECT_EQ(Outside(Differences(disk_, run.overlay(), converted_), GptTables()), ByteRanges());
}

std::size_t Judge::RowsBefore(const PlacedCall& call) const {
  return call.occurrence == 1 ? 0 : primaries_ + call.occurrence - 2;
}

Judge& JudgeOf(const Scenario& scenario) {
  static std::map<std::string, std::unique_ptr<Judge>> judges;
  std::unique_ptr<Judge>& judge = judges[scenario.name];
  if (!judge) judge = std::make_unique<Judge>(DiskOf(scenario));
  return *judge;
}

}  // namespace campaign
