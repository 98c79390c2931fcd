#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "apps/velkora_image/input_error.h"
#include "apps/velkora_image/options.h"

namespace velkora_image {
namespace {

constexpr char kShow[] = "show";
constexpr char kConvert[] = "convert";
constexpr char kUndo[] = "undo";

constexpr char kExamples[] =
    "Examples:\n"
    "  velkora-image show disk.img\n"
    "  velkora-image convert disk.img --to mbr --letter 3=E\n"
    "  velkora-image convert disk.img --to gpt --system=C\n"
    "  velkora-image convert disk.img --to mbr --fail command/diskpart:2\n"
    "  velkora-image convert disk.img --to gpt --rescue disk.rescue\n"
    "  velkora-image undo disk.img disk.rescue\n"
    "Exit status: 0 converted, 1 failed and undone or refused, 2 bad usage or unreadable input,\n"
    "3 failed and not undone";

// The texts of `convert` as CLI11 collects them.
struct ConvertTexts {
  std::string image;
  std::string target;
  std::string system;
  std::string logs;
  std::string events;
  std::string rescue;
  std::string stop_at;
  std::vector<std::string> letters;
  std::vector<std::string> failures;
};

CLI::App* AddConvert(CLI::App& app, ConvertTexts& texts) {
  CLI::App* convert = app.add_subcommand(kConvert, "Convert a disk image in place");
  convert->add_option("IMAGE", texts.image, "The disk image")->required();
  convert->add_option("--to", texts.target, "The new partition style, mbr or gpt")->required();
  convert->add_flag("--system{C}", texts.system,
                    "The running system's disk, its volume at a letter (--system=D)");
  convert
      ->add_option("--letter", texts.letters,
                   "NUMBER=LETTER: a partition's drive letter, instead of C, D, E... in disk order")
      ->allow_extra_args(false);
  convert->add_option("--logs", texts.logs, "Folder for the log and the tools' files");
  convert->add_option("--events", texts.events, "File for all that happens, as JSON lines");
  convert->add_option("--rescue", texts.rescue,
                      "New file for the old bytes of all that changes; `undo` puts them back");
  convert
      ->add_option("--fail", texts.failures,
                   "CALL[:OCCURRENCE[:ERROR]]: make a system call fail, such as "
                   "DeviceIoControl/IOCTL_DISK_CREATE_DISK:1:5 or command/diskpart:2")
      ->allow_extra_args(false);
  convert->add_option("--stop-at", texts.stop_at, "Ask for a stop when this status arrives");
  return convert;
}

// An option that was given with an empty value is not the same as one that was not given.
std::optional<std::filesystem::path> PathOf(const CLI::App& app, const std::string& option,
                                            const std::string& value) {
  if (app.count(option) == 0) return std::nullopt;
  if (value.empty()) throw InputError(option + ": no name is given");
  return std::filesystem::path(value);
}

ConvertOptions MakeConvertOptions(const CLI::App& app, const ConvertTexts& texts) {
  ConvertOptions options;
  options.image = texts.image;
  options.target = texts.target;
  if (texts.target != "mbr" && texts.target != "gpt") {
    throw InputError("--to: '" + texts.target + "' is neither mbr nor gpt");
  }
  if (app.count("--system") > 0) {
    options.system_letter = ParseSystemLetter(texts.system);
  }
  for (const std::string& text : texts.letters) ParseLetterChoice(text, options.letters);
  options.logs = PathOf(app, "--logs", texts.logs);
  options.events = PathOf(app, "--events", texts.events);
  options.rescue = PathOf(app, "--rescue", texts.rescue);
  for (const std::string& text : texts.failures) options.failures.push_back(ParseFailRequest(text));
  if (app.count("--stop-at") > 0) options.stop_at = ParseStatus(texts.stop_at);
  return options;
}

// CLI11 would only say that a command is missing.
void RefuseUnknownCommand(int argc, const char* const* argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  const std::string_view name = argv[1];
  if (name == kShow || name == kConvert || name == kUndo) return;
  throw InputError("there is no command '" + std::string(name) + "'");
}

std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
  CLI::App app("Converts a disk image between MBR and GPT in place, on a simulated machine.",
               "velkora-image");
  app.require_subcommand(1);
  app.footer(kExamples);
  ShowOptions show_options;
  std::string show_image;
  CLI::App* show = app.add_subcommand(kShow, "Show a disk image's partitions");
  show->add_option("IMAGE", show_image, "The disk image")->required();
  show->add_flag("--json", show_options.json, "As one JSON object");
  std::string undo_image;
  std::string undo_rescue;
  CLI::App* undo = app.add_subcommand(kUndo, "Put a disk image back to what it was");
  undo->add_option("IMAGE", undo_image, "The disk image")->required();
  undo->add_option("RESCUE", undo_rescue, "The rescue file of its conversion")->required();
  ConvertTexts texts;
  const CLI::App* convert = AddConvert(app, texts);
  RefuseUnknownCommand(argc, argv);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return HelpOptions{app.help()};
  } catch (const CLI::ParseError& error) {
    throw InputError(OneLine(error.what()));
  }
  if (convert->parsed()) return MakeConvertOptions(*convert, texts);
  if (undo->parsed()) return UndoOptions{undo_image, undo_rescue};
  show_options.image = show_image;
  return show_options;
}

}  // namespace velkora_image
