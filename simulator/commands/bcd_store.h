// A boot configuration store: what bcdboot makes and bcdedit shows and changes. Only texts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {

enum class BcdKind { kManager, kLoader, kResume };

struct BcdObject {
  BcdKind kind;
  // Name and value, in the order in which they are listed; the first is the identifier.
  std::vector<std::pair<std::string, std::string>> elements;

  // Empty for an element that the object does not have.
  std::string_view Value(std::string_view name) const;
  void Set(std::string_view name, std::string_view value);
};

struct BcdStore {
  std::vector<BcdObject> objects;

  BcdObject* Find(std::string_view identifier);
};

// What differs from one new store to the other.
struct BcdSettings {
  char windows_letter = 'C';
  char boot_letter = 'C';
  bool uefi = false;
  std::string resume_identifier;  // "{…}"
};
// A boot manager, a loader, and the object that resumes from hibernation, which both name.
BcdStore MakeBcdStore(const BcdSettings& settings);

// The store as it lies in a file, and back; nothing for bytes that are no store.
std::string BcdFileText(const BcdStore& store);
std::optional<BcdStore> ParseBcdFile(std::string_view bytes);

// A listing as a person reads it: for each object its title, a line of dashes and its elements, the
// names in a field of 24 columns. Lines end in CR LF. Without `all` only what takes part in
// starting the machine.
std::string BcdListing(const BcdStore& store, bool all);

}  // namespace simulator
