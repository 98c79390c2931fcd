#include "simulator/commands/bcd_store.h"

#include <algorithm>

#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::size_t kNameColumns = 24;
constexpr std::string_view kIdentifier = "identifier";
constexpr std::string_view kLineEnd = "\r\n";
// The first line of a store's file. Then each object: its title, its elements as in a listing, and
// an empty line.
constexpr std::string_view kFileMark = "boot configuration store 1";

std::string_view Title(BcdKind kind) {
  switch (kind) {
    case BcdKind::kManager:
      return "Windows Boot Manager";
    case BcdKind::kLoader:
      return "Windows Boot Loader";
    default:
      return "Resume from Hibernate";
  }
}

std::optional<BcdKind> KindOf(std::string_view title) {
  for (const BcdKind kind : {BcdKind::kManager, BcdKind::kLoader, BcdKind::kResume}) {
    if (Title(kind) == title) return kind;
  }
  return std::nullopt;
}

void AppendLine(std::string& text, std::string_view line) {
  text.append(line).append(kLineEnd);
}

// At least one blank stands between name and value.
void AppendElements(std::string& text, const BcdObject& object) {
  for (const auto& [name, value] : object.elements) {
    const std::size_t blanks = name.size() < kNameColumns ? kNameColumns - name.size() : 1;
    text.append(name).append(blanks, ' ');
    AppendLine(text, value);
  }
}

std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find(kLineEnd));
  text.remove_prefix(std::min(text.size(), line.size() + kLineEnd.size()));
  return line;
}

// A line of a file: name, blanks, value.
bool AddElement(BcdObject& object, std::string_view line) {
  const std::size_t name_end = line.find(' ');
  const std::size_t value = line.find_first_not_of(' ', name_end);
  if (name_end == 0 || value == std::string_view::npos) return false;
  object.elements.emplace_back(line.substr(0, name_end), line.substr(value));
  return true;
}

std::string Partition(char letter) {
  return std::string("partition=") + letter + ':';
}

}  // namespace

std::string_view BcdObject::Value(std::string_view name) const {
  for (const auto& [element, value] : elements) {
    if (EqualsIgnoringCase(element, name)) return value;
  }
  return {};
}

void BcdObject::Set(std::string_view name, std::string_view value) {
  for (auto& [element, old] : elements) {
    if (!EqualsIgnoringCase(element, name)) continue;
    old = value;
    return;
  }
  elements.emplace_back(ToLowerAscii(name), value);
}

BcdObject* BcdStore::Find(std::string_view identifier) {
  for (BcdObject& object : objects) {
    if (EqualsIgnoringCase(object.Value(kIdentifier), identifier)) return &object;
  }
  return nullptr;
}

BcdStore MakeBcdStore(const BcdSettings& settings) {
  const std::string boot = Partition(settings.boot_letter);
  const std::string windows = Partition(settings.windows_letter);
  const std::string extension = settings.uefi ? ".efi" : ".exe";
  const std::string manager_path =
      settings.uefi ? "\\EFI\\Microsoft\\Boot\\bootmgfw.efi" : "\\bootmgr";
  const std::string& resume = settings.resume_identifier;
  BcdStore store;
  store.objects = {
      {BcdKind::kManager,
       {{"identifier", "{bootmgr}"},
        {"device", boot},
        {"path", manager_path},
        {"description", "Windows Boot Manager"},
        {"locale", "en-US"},
        {"default", "{default}"},
        {"resumeobject", resume},
        {"displayorder", "{default}"},
        {"toolsdisplayorder", "{memdiag}"},
        {"timeout", "30"}}},
      {BcdKind::kLoader,
       {{"identifier", "{default}"},
        {"device", windows},
        {"path", "\\Windows\\system32\\winload" + extension},
        {"description", "Windows 10"},
        {"locale", "en-US"},
        {"osdevice", windows},
        {"systemroot", "\\Windows"},
        {"resumeobject", resume},
        {"nx", "OptIn"}}},
      {BcdKind::kResume,
       {{"identifier", resume},
        {"device", windows},
        {"path", "\\Windows\\system32\\winresume" + extension},
        {"description", "Windows Resume Application"},
        {"locale", "en-US"},
        {"filedevice", windows},
        {"filepath", "\\hiberfil.sys"}}},
  };
  return store;
}

std::string BcdFileText(const BcdStore& store) {
  std::string text;
  AppendLine(text, kFileMark);
  for (const BcdObject& object : store.objects) {
    AppendLine(text, Title(object.kind));
    AppendElements(text, object);
    AppendLine(text, "");
  }
  return text;
}

std::optional<BcdStore> ParseBcdFile(std::string_view bytes) {
  if (TakeLine(bytes) != kFileMark) return std::nullopt;
  BcdStore store;
  while (!bytes.empty()) {
    const auto kind = KindOf(TakeLine(bytes));
    if (!kind) return std::nullopt;
    BcdObject& object = store.objects.emplace_back(BcdObject{*kind, {}});
    for (std::string_view line = TakeLine(bytes); !line.empty(); line = TakeLine(bytes)) {
      if (!AddElement(object, line)) return std::nullopt;
    }
  }
  return store;
}

std::string BcdListing(const BcdStore& store, bool all) {
  std::string text;
  for (const BcdObject& object : store.objects) {
    if (object.kind == BcdKind::kResume && !all) continue;
    const std::string_view title = Title(object.kind);
    AppendLine(text, "");
    AppendLine(text, title);
    AppendLine(text, std::string(title.size(), '-'));
    AppendElements(text, object);
  }
  return text;
}

}  // namespace simulator
