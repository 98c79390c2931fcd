// The sanitizers look at inline functions of the machine that a test calls, too.
#include <gtest/gtest.h>

#include "simulator/storage/on_disk.h"

#ifdef VELKORA_SANITIZES_UNDEFINED
namespace {

__extension__ using Wide = unsigned __int128;

TEST(Sanitizer, SeesABadShiftInAnInlineFunction) {
  const simulator::Little<Wide> wide(Wide{1} << 64);
  // Puts its bytes together in 64 bits, which are too few for this type.
  EXPECT_DEATH(static_cast<void>(static_cast<Wide>(wide)), "shift exponent 64 is too large");
}

}  // namespace
#endif
