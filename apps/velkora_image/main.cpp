#include <exception>
#include <iostream>
#include <variant>

#include "apps/velkora_image/convert.h"
#include "apps/velkora_image/input_error.h"
#include "apps/velkora_image/options.h"
#include "apps/velkora_image/rescue.h"
#include "apps/velkora_image/show.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBadInput = 2;

struct Runner {
  int operator()(const velkora_image::HelpOptions& help) const {
    std::cout << help.text;
    return 0;
  }
  int operator()(const velkora_image::ShowOptions& options) const {
    return velkora_image::Show(options);
  }
  int operator()(const velkora_image::ConvertOptions& options) const {
    return velkora_image::Convert(options);
  }
  int operator()(const velkora_image::UndoOptions& options) const {
    return velkora_image::Undo(options);
  }
};

}  // namespace

int main(int argc, char** argv) {
  try {
    return std::visit(Runner(), velkora_image::ParseOptions(argc, argv));
  } catch (const velkora_image::InputError& error) {
    std::cerr << "velkora-image: " << error.what() << "\n";
    return kBadInput;
  } catch (const std::exception& error) {
    std::cerr << "velkora-image: " << error.what() << "\n";
    return kFailed;
  }
}
