#include "simulator/commands/bcdedit.h"

#include <optional>
#include <span>
#include <string_view>

#include "simulator/commands/bcd_store.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume_files.h"

namespace simulator {
namespace {

using Words = std::span<const std::string>;

CommandResult Failed(std::string_view reason) {
  return {1, std::string(reason) + "\r\n"};
}

// Where the store lies: in a file, or with the machine.
class StorePlace {
 public:
  StorePlace(System& system, std::string_view path) : system_(system), path_(path) {}

  std::optional<BcdStore> Load() {
    if (path_.empty()) return ParseBcdFile(OwnStore());
    std::string bytes;
    if (VolumeFiles(system_).Read(path_, bytes) != ERROR_SUCCESS) return std::nullopt;
    return ParseBcdFile(bytes);
  }

  bool Save(const BcdStore& store) {
    const std::string bytes = BcdFileText(store);
    if (!path_.empty()) return VolumeFiles(system_).Write(path_, bytes) == ERROR_SUCCESS;
    system_.settings().own_boot_store = bytes;
    return true;
  }

 private:
  const std::string& OwnStore() {
    std::string& store = system_.settings().own_boot_store;
    if (store.empty()) {
      BcdSettings settings;
      settings.resume_identifier = GuidText(system_.NextGuid());
      store = BcdFileText(MakeBcdStore(settings));
    }
    return store;
  }

  System& system_;
  std::string path_;
};

bool IsIdentifier(std::string_view word) {
  return word.size() > 2 && word.front() == '{' && word.back() == '}';
}

// Switches are listed as Yes and No, however they were set.
std::string_view ListedValue(std::string_view value) {
  for (const std::string_view yes : {"on", "yes", "true"}) {
    if (EqualsIgnoringCase(value, yes)) return "Yes";
  }
  for (const std::string_view no : {"off", "no", "false"}) {
    if (EqualsIgnoringCase(value, no)) return "No";
  }
  return value;
}

CommandResult List(StorePlace& place, bool all) {
  const auto store = place.Load();
  if (!store) return Failed("The boot configuration data store could not be opened.");
  return {0, BcdListing(*store, all)};
}

// `words`: identifier, name, value.
CommandResult Set(StorePlace& place, Words words) {
  if (words.size() != 3 || !IsIdentifier(words[0])) {
    return Failed("The set command specified is not valid.");
  }
  auto store = place.Load();
  if (!store) return Failed("The boot configuration data store could not be opened.");
  BcdObject* object = store->Find(words[0]);
  if (object == nullptr) return Failed("The specified entry " + words[0] + " was not found.");
  object->Set(words[1], ListedValue(words[2]));
  if (!place.Save(*store)) return Failed("The boot configuration data store was not written.");
  return {0, "The operation completed successfully.\r\n"};
}

}  // namespace

CommandResult RunBcdedit(System& system, const std::vector<std::string>& arguments) {
  Words words(arguments);
  std::string_view path;
  if (words.size() >= 2 && EqualsIgnoringCase(words[0], "/store")) {
    path = words[1];
    words = words.subspan(2);
  }
  StorePlace place(system, path);
  if (words.empty()) return List(place, /*all=*/false);
  if (EqualsIgnoringCase(words[0], "/set")) return Set(place, words.subspan(1));
  const bool all = words.size() == 2 && EqualsIgnoringCase(words[1], "all");
  if (!EqualsIgnoringCase(words[0], "/enum") || (words.size() > 1 && !all)) {
    return Failed("Usage: bcdedit [/store F] [/enum [all] | /set {id} name value]");
  }
  return List(place, all);
}

}  // namespace simulator
