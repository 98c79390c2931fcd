// A conversion's progress, shown to a person.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace velkora_image {

// A status of the library's callback in words: "emptying the disk".
std::string StageName(std::int32_t status);

// Whether standard output is a terminal, where a line can be redrawn.
bool OutputIsTerminal();

// One redrawn line with a bar, or, without `redraw`, a line for each stage: "  20 %  emptying the
// disk".
class Progress {
 public:
  Progress(std::ostream& out, bool redraw) : out_(out), redraw_(redraw) {}

  void Percent(std::int32_t percent);
  void Stage(std::int32_t status);
  // Leaves the redrawn line behind.
  void End();

 private:
  void Redraw();

  std::ostream& out_;
  bool redraw_;
  bool drawn_ = false;
  std::int32_t percent_ = 0;
  std::int32_t status_ = 0;
};

}  // namespace velkora_image
