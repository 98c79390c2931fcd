#include "shrink/narrow_path.h"

#include <system_error>

#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

class PathConversion : public MachineTest {};

template <typename Body>
int CodeOf(Body body) {
  try {
    body();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST_F(PathConversion, GoesBothWays) {
  const WideString wide = WIDE("\\\\?\\Volume{1}\\журнал.txt");
  const std::string narrow = "\\\\?\\Volume{1}\\журнал.txt";
  EXPECT_EQ(NarrowPath(wide), narrow);
  EXPECT_EQ(WidePath(narrow), wide);
}

TEST_F(PathConversion, CharacterThatTheCodePageLacksIsAnError) {
  const WideString lone = {WCHAR{'a'}, WCHAR{0xD800}, WCHAR{'b'}};
  EXPECT_EQ(CodeOf([&] { NarrowPath(lone); }), 1113);
}

TEST_F(PathConversion, NarrowTextThatIsNotWellFormedIsAnError) {
  EXPECT_EQ(CodeOf([] { WidePath("a\xFF"); }), 1113);
}

TEST_F(PathConversion, CallThatFailsIsAnError) {
  for (const std::size_t call : {1U, 2U}) {
    machine_.calls().FailOn("WideCharToMultiByte", call, 8);
    EXPECT_EQ(CodeOf([] { NarrowPath(WIDE("a")); }), 8);
    machine_.calls().FailOn("MultiByteToWideChar", call, 14);
    EXPECT_EQ(CodeOf([] { WidePath("a"); }), 14);
  }
}

}  // namespace
}  // namespace velkora
