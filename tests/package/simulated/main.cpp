#include <cstdio>
#include <exception>
#include <map>
#include <string>

#include "tests.h"

int main(int argc, char** argv) {
  const std::map<std::string, void (*)()> tests = {
      {"sets_up", &SetsUp},
      {"converts", &Converts},
      {"system_disk", &SystemDisk},
      {"volumes_come_late", &VolumesComeLate},
      {"fails", &Fails},
      {"tool_fails", &ToolFails},
      {"person_refuses", &PersonRefuses},
      {"rollback_fails", &RollbackFails},
      {"unfit_record", &UnfitRecord},
      {"fails_at_every_call", &FailsAtEveryCall},
      {"power_is_cut", &PowerIsCut},
      {"stops", &Stops},
      {"crashes", &Crashes},
  };
  const auto test = argc == 2 ? tests.find(argv[1]) : tests.end();
  if (test == tests.end()) {
    std::fprintf(stderr, "usage: application_tests TEST\n");
    return 2;
  }
  try {
    test->second();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    return 1;
  }
}
