// What the library leaves allocated on purpose, in a test that lets it.
#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace testing_support {

// While it lives, what this thread allocates is no leak.
class LeaksOnPurpose {
#ifdef __SANITIZE_ADDRESS__
  __lsan::ScopedDisabler disabler_;
#endif
 public:
  LeaksOnPurpose() {}  // not defaulted: an object without members would be an unused variable
};

}  // namespace testing_support
