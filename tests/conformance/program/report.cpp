#include "conformance/program/report.h"

#include <cctype>
#include <cstddef>
#include <utility>

namespace conformance {
namespace {

constexpr std::pair<std::string_view, std::string_view> kProperNames[] = {
    {"mbr", "MBR"}, {"gpt", "GPT"}, {"efi", "EFI"}, {"fat32", "FAT32"}, {"mib", "MiB"}};

bool IsUpper(char c) {
  return std::isupper(static_cast<unsigned char>(c)) != 0;
}
bool IsDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

std::string WithProperName(std::string word) {
  for (const auto& [plain, proper] : kProperNames) {
    if (word == plain) return std::string(proper);
  }
  return word;
}

// A word begins with a capital or a number.
std::string Words(std::string_view name) {
  std::string text;
  std::string word;
  for (const char c : name) {
    const bool new_number = IsDigit(c) && !word.empty() && !IsDigit(word.back()) && word != "fat";
    if ((IsUpper(c) && word != "mi") || new_number) {
      if (!word.empty()) text += WithProperName(word) + ' ';
      word.clear();
    }
    word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text + WithProperName(word);
}

}  // namespace

std::string PlainWords(std::string_view suite, std::string_view test) {
  return Words(suite) + ": " + Words(test);
}

void Report::OnTestPartResult(const ::testing::TestPartResult& result) {
  if (!result.failed()) return;
  const char* const file = result.file_name() == nullptr ? "?" : result.file_name();
  details_ += std::string(file) + ":" + std::to_string(result.line_number()) + "\n" +
              result.message() + "\n";
}

void Report::OnTestEnd(const ::testing::TestInfo& test) {
  const std::string words = PlainWords(test.test_suite_name(), test.name());
  if (details_.empty()) {
    out_ << "confirmed  " << words << std::endl;
    ++confirmed_;
  } else {
    out_ << "DIFFERS    " << words << "\n" << details_ << std::endl;
    differing_.push_back(words + "  (" + test.test_suite_name() + "." + test.name() + ")");
  }
  details_.clear();
}

void Report::OnTestProgramEnd(const ::testing::UnitTest&) {
  const std::size_t all = static_cast<std::size_t>(confirmed_) + differing_.size();
  out_ << "\n" << confirmed_ << " of " << all << " behaviours confirmed.\n";
  if (!differing_.empty()) out_ << "What differs:\n";
  for (const std::string& words : differing_) out_ << "  " << words << "\n";
  out_.flush();
}

}  // namespace conformance
