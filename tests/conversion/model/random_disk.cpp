#include "conversion/model/random_disk.h"

#include <algorithm>

#include "conversion/model/run.h"

namespace model {
namespace {

constexpr std::uint64_t kEfi = 300 * kMiB;
constexpr std::uint64_t kGiB = 1024 * kMiB;
constexpr std::uint64_t kMbrReach = std::uint64_t{1} << 32;

// How the partitions of one disk are spread.
struct Plan {
  bool gpt = false;
  bool large = false;  // terabytes
  std::size_t partitions = 0;
  unsigned tight = 0;  // percent of gaps that decide about room
};

Plan MakePlan(Random& random, bool system_disk) {
  Plan plan;
  plan.gpt = random.Chance(50);
  plan.large = random.Chance(8);
  plan.partitions = random.Chance(40) ? random.Below(7) : random.Below(31);
  plan.tight = random.Pick({5u, 30u, 70u});
  // A system disk has a partition to run from.
  if (system_disk) plan.partitions = std::max<std::size_t>(plan.partitions, 1);
  return plan;
}

std::uint64_t RandomStart(Random& random, const Plan& plan) {
  if (random.Chance(60)) return kMiB;
  if (plan.gpt) return random.Pick({std::uint64_t{34}, std::uint64_t{40}, 3 * kMiB, kEfi});
  if (random.Chance(5)) return random.Pick<std::uint64_t>({4, 33});
  return random.Pick({std::uint64_t{34}, std::uint64_t{63}, 2 * kMiB, kEfi, kEfi + kMiB,
                      kEfi + kMiB + 1, kEfi + kMiB + 2});
}

std::uint64_t RandomSize(Random& random, const Plan& plan) {
  if (plan.large && random.Chance(40)) return kGiB + random.Below(700 * kGiB);
  if (random.Chance(8)) return kGiB + random.Below(3);
  if (random.Chance(10)) return kGiB + random.Below(2 * kGiB);
  if (random.Chance(8)) {
    return random.Pick<std::uint64_t>({1, 8, kMiB - 1, kMiB, kMiB + 1, 5 * kMiB, 5 * kMiB + 1});
  }
  return 8 * kMiB + random.Below(200 * kMiB);
}

std::uint64_t RandomGap(Random& random, const Plan& plan) {
  if (random.Chance(4)) return kEfi - 1 + random.Below(3);
  if (random.Chance(2)) return kEfi + random.Below(kEfi);
  if (!random.Chance(plan.tight)) return kMiB + random.Below(64 * kMiB);
  if (random.Chance(30)) return random.Below(100);
  return kMiB - 3 + random.Below(5);
}

std::vector<Row> MakePlaces(Random& random, const Plan& plan) {
  std::vector<Row> rows;
  std::uint64_t free = RandomStart(random, plan);
  for (std::size_t i = 0; i < plan.partitions; ++i) {
    if (!plan.gpt && free >= kMbrReach) break;
    rows.push_back({free, RandomSize(random, plan), 0});
    free = rows.back().end() + RandomGap(random, plan);
  }
  return rows;
}

// A GPT disk keeps room for the backup table; on an MBR disk the last partition may reach into it,
// or even beyond the disk.
std::uint64_t RandomDiskEnd(Random& random, const Plan& plan, const std::vector<Row>& rows) {
  constexpr std::uint64_t kSmallest = 4 * kMiB;
  const std::uint64_t used = rows.empty() ? 0 : rows.back().end();
  std::uint64_t tail = random.Below(200 * kMiB);
  if (random.Chance(60)) {
    tail = random.Pick<std::uint64_t>(
        {0, 1, 32, 33, 34, kMiB, kEfi - 1, kEfi, kEfi + 1, kEfi + 32, kEfi + 33, kEfi + kMiB});
  }
  if (plan.gpt) tail = std::max<std::uint64_t>(tail, 33);
  std::uint64_t end = used + tail;
  if (!plan.gpt && !rows.empty() && rows.back().count > kMiB && random.Chance(3)) {
    end = used - 1 - random.Below(kMiB);
  }
  return std::max(end, kSmallest);
}

// ---- GPT ----------------------------------------------------------------------------------------

Guid RandomGptType(Random& random) {
  constexpr Guid kRecovery = {0xA4, 0xBB, 0x94, 0xDE, 0xD1, 0x06, 0x40, 0x4D,
                              0xA1, 0x6A, 0xBF, 0xD5, 0x01, 0x79, 0xD6, 0xAC};
  constexpr Guid kLinux = {0xAF, 0x3D, 0xC6, 0x0F, 0x83, 0x84, 0x72, 0x47,
                           0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4};
  if (random.Chance(1)) return Guid{};
  if (random.Chance(65)) return kBasicData;
  return random.Pick({kEfiSystem, kMicrosoftReserved, kHidden, kRecovery, kLinux});
}

Table MakeGptTable(Random& random, const std::vector<Row>& rows) {
  Table table{Style::kGpt, {}, {}};
  for (const Row& row : rows) {
    table.entries.push_back({RandomGptType(random), true, row.first, row.end() - 1, 0, ""});
  }
  if (random.Chance(30)) random.Shuffle(table.entries);
  if (random.Chance(8) && !table.entries.empty()) {
    const auto place = random.Below(table.entries.size());
    table.entries.insert(table.entries.begin() + static_cast<std::ptrdiff_t>(place), GptEntry{});
  }
  return table;
}

// ---- MBR ----------------------------------------------------------------------------------------

std::uint8_t RandomMbrType(Random& random) {
  if (random.Chance(50)) return 7;
  return random.Pick<std::uint8_t>({0x06, 0x0B, 0x0C, 0x17, 0x27, 0x82, 0x83, 0xEF, 0xFF});
}

std::uint8_t RandomContainerType(Random& random) {
  return random.Pick<std::uint8_t>({0x05, 0x0F});
}

std::uint32_t Low(std::uint64_t value) {
  return static_cast<std::uint32_t>(value);
}

// Which of the places, from `begin` to before `end`, are logical.
struct Logicals {
  std::size_t begin = 0;
  std::size_t end = 0;
};

Logicals ChooseLogicals(Random& random, std::size_t places) {
  if (places <= 4 && random.Chance(60)) return {};
  const std::size_t primaries = std::min<std::size_t>(places, random.Below(4));
  const std::size_t begin = random.Below(primaries + 1);
  return {begin, begin + places - primaries};
}

// Two boot records at least fit in front of each logical partition.
void WidenGaps(std::vector<Row>& rows, const Logicals& logicals) {
  constexpr std::uint64_t kLeastGap = 2;
  std::uint64_t shift = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::uint64_t before = i == 0 ? 1 : rows[i - 1].end();
    rows[i].first += shift;
    if (i < logicals.begin || i >= logicals.end || rows[i].first >= before + kLeastGap) continue;
    const std::uint64_t missing = before + kLeastGap - rows[i].first;
    rows[i].first += missing;
    shift += missing;
  }
}

// The chain's boot records, in any order of the partitions. The first record opens the container;
// each other one lies somewhere in front of its partition.
std::vector<BootRecord> MakeChain(Random& random, const std::vector<Row>& rows,
                                  const Logicals& logicals) {
  std::vector<std::size_t> order;
  for (std::size_t i = logicals.begin; i < logicals.end; ++i) order.push_back(i);
  if (random.Chance(20)) random.Shuffle(order);
  const Row& lowest = rows[logicals.begin];
  const std::uint64_t before = logicals.begin == 0 ? 1 : rows[logicals.begin - 1].end();
  const std::uint64_t base =
      random.Chance(50) ? before : lowest.first - std::min(lowest.first - before, kMiB);
  std::vector<BootRecord> chain;
  for (const std::size_t i : order) {
    const std::uint64_t gap =
        i == logicals.begin ? lowest.first - base - 1 : rows[i].first - rows[i - 1].end();
    const std::uint64_t in_front = std::min(gap, random.Pick<std::uint64_t>({1, 63, kMiB, gap}));
    BootRecord record{chain.empty() ? base : rows[i].first - in_front, {}};
    record.entries[0] = {0, RandomMbrType(random), Low(rows[i].first - record.sector),
                         Low(rows[i].count)};
    if (!chain.empty()) {
      chain.back().entries[1] = {0, RandomContainerType(random), Low(record.sector - base),
                                 Low(rows[i].end() - record.sector)};
    }
    chain.push_back(record);
  }
  return chain;
}

MbrEntry MakeContainer(Random& random, const std::vector<BootRecord>& chain, std::uint64_t end) {
  const std::uint64_t base = chain.front().sector;
  return {0, RandomContainerType(random), Low(base), Low(end - base)};
}

// What a table may hold beside its partitions: a container without logicals, an entry with a type
// and no sectors. `free` is behind all partitions.
void AddOddEntry(Random& random, std::uint64_t free, std::vector<MbrEntry>& entries,
                 std::vector<BootRecord>& chain) {
  if (entries.size() == 4 || free >= kMbrReach || !random.Chance(10)) return;
  if (chain.empty() && random.Chance(50)) {
    chain.push_back({free, {}});
    entries.push_back({0, RandomContainerType(random), Low(free), 1});
  } else {
    entries.push_back({0, 7, Low(free), 0});
  }
}

Table MakeMbrTable(Random& random, const std::vector<Row>& rows, const Logicals& logicals,
                   std::uint64_t disk_end) {
  std::vector<MbrEntry> entries;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (i >= logicals.begin && i < logicals.end) continue;
    entries.push_back({0, RandomMbrType(random), Low(rows[i].first), Low(rows[i].count)});
  }
  if (!entries.empty() && random.Chance(50)) entries.front().flag = 0x80;
  std::vector<BootRecord> chain;
  if (logicals.begin < logicals.end) {
    chain = MakeChain(random, rows, logicals);
    entries.push_back(MakeContainer(random, chain, rows[logicals.end - 1].end()));
  }
  const std::uint64_t used = rows.empty() ? kMiB : rows.back().end();
  if (used < disk_end) AddOddEntry(random, used, entries, chain);
  entries.resize(4);
  random.Shuffle(entries);
  Table table{Style::kMbr, {BootRecord{}}, {}};
  std::copy(entries.begin(), entries.end(), table.records.front().entries.begin());
  table.records.insert(table.records.end(), chain.begin(), chain.end());
  return table;
}

}  // namespace

RandomDisk MakeRandomDisk(Random& random) {
  RandomDisk result;
  result.disk.system_disk = random.Chance(40);
  const Plan plan = MakePlan(random, result.disk.system_disk);
  std::vector<Row> rows = MakePlaces(random, plan);
  Logicals logicals;
  if (!plan.gpt) {
    logicals = ChooseLogicals(random, rows.size());
    WidenGaps(rows, logicals);
  }
  result.disk.sectors = RandomDiskEnd(random, plan, rows);
  result.disk.table = plan.gpt ? MakeGptTable(random, rows)
                               : MakeMbrTable(random, rows, logicals, result.disk.sectors);
  for (const Row& row : rows) {
    if (random.Chance(80)) result.ntfs.push_back({row.first, row.count});
  }
  return result;
}

}  // namespace model
