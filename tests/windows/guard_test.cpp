// The guard over real structured exceptions, raised in code that GCC compiled.
#include "platform/guard.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/gate.h"

namespace {

constexpr DWORD kCxxThrow = 0x20474343;
constexpr DWORD kOwnCode = 0xE0001234;

struct Seen {
  DWORD code;
  DWORD thread;
  bool has_context;
};

std::vector<Seen> seen;

LONG Filter(EXCEPTION_POINTERS* pointers) {
  seen.push_back({pointers->ExceptionRecord->ExceptionCode, GetCurrentThreadId(),
                  pointers->ContextRecord != nullptr});
  return EXCEPTION_EXECUTE_HANDLER;
}

class Guard : public ::testing::Test {
 protected:
  Guard() { seen.clear(); }

  static void ExpectOne(DWORD code) {
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].code, code);
    EXPECT_EQ(seen[0].thread, GetCurrentThreadId());
    EXPECT_TRUE(seen[0].has_context);
  }
};

// Reads where no memory is; the compiler does not know the address.
[[gnu::noinline]] int ReadAt(const volatile int* address) {
  return *address;
}

const volatile int* BadAddress() {
  static volatile std::uintptr_t address = 16;
  return reinterpret_cast<const volatile int*>(address);
}

[[gnu::noinline]] int ReadBelowFramesWithDestructors() {
  const std::string text(100, 'x');
  const int value = ReadAt(BadAddress());
  return value + static_cast<int>(text.size());
}

TEST_F(Guard, BodyThatReturnsIsTrueAndAsksNoFilter) {
  int runs = 0;
  EXPECT_TRUE(win32::Guarded([&] { ++runs; }, &Filter));
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(seen.empty());
}

TEST_F(Guard, BadReadIsAnAccessViolation) {
  bool after = false;
  EXPECT_FALSE(win32::Guarded(
      [&] {
        ReadAt(BadAddress());
        after = true;
      },
      &Filter));
  EXPECT_FALSE(after);
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Guard, BadReadBelowFramesWithDestructors) {
  EXPECT_FALSE(win32::Guarded([] { ReadBelowFramesWithDestructors(); }, &Filter));
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Guard, BadReadUnderATryBlockPassesIt) {
  bool caught = false;
  EXPECT_FALSE(win32::Guarded(
      [&] {
        try {
          ReadBelowFramesWithDestructors();
        } catch (...) {
          caught = true;
        }
      },
      &Filter));
  EXPECT_FALSE(caught);
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Guard, RaisedFaultHasItsCode) {
  EXPECT_FALSE(win32::Guarded([] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); }, &Filter));
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Guard, AnyRaisedCodeIsTaken) {
  EXPECT_FALSE(win32::Guarded([] { RaiseException(kOwnCode, 0, 0, nullptr); }, &Filter));
  ExpectOne(kOwnCode);
}

TEST_F(Guard, CxxExceptionsOfAnyType) {
  const auto expect_throw = [](auto body) {
    seen.clear();
    EXPECT_FALSE(win32::Guarded(body, &Filter));
    ExpectOne(kCxxThrow);
  };
  expect_throw([] { throw std::runtime_error("text"); });
  expect_throw([] { throw std::bad_alloc(); });
  expect_throw([] { throw 5; });
}

TEST_F(Guard, CxxExceptionRunsTheDestructorsOnItsWay) {
  struct Flag {
    explicit Flag(bool& target) : ran(target) {}
    ~Flag() { ran = true; }
    bool& ran;
  };
  bool ran = false;
  EXPECT_FALSE(win32::Guarded(
      [&] {
        const Flag flag(ran);
        throw std::runtime_error("text");
      },
      &Filter));
  EXPECT_TRUE(ran);
}

TEST_F(Guard, InnerGuardTakesTheFaultAndTheOuterGoesOn) {
  bool inner = true;
  EXPECT_TRUE(win32::Guarded([&] { inner = win32::Guarded([] { ReadAt(BadAddress()); }, &Filter); },
                             &Filter));
  EXPECT_FALSE(inner);
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Guard, InnerGuardTakesTheThrowAndTheOuterGoesOn) {
  bool inner = true;
  EXPECT_TRUE(win32::Guarded(
      [&] { inner = win32::Guarded([] { throw std::runtime_error("text"); }, &Filter); }, &Filter));
  EXPECT_FALSE(inner);
  ExpectOne(kCxxThrow);
}

TEST_F(Guard, FaultBehindAnInnerGuardGoesToTheOuter) {
  EXPECT_FALSE(win32::Guarded(
      [] {
        win32::Guarded([] { throw std::runtime_error("text"); }, &Filter);
        ReadAt(BadAddress());
      },
      &Filter));
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].code, kCxxThrow);
  EXPECT_EQ(seen[1].code, DWORD{EXCEPTION_ACCESS_VIOLATION});
}

TEST_F(Guard, FilterThatThrowsTakesItAllTheSame) {
  const win32::GuardFilter filter = [](EXCEPTION_POINTERS* pointers) -> LONG {
    Filter(pointers);
    throw std::bad_alloc();
  };
  for (int i = 0; i < 1000; ++i) {
    ASSERT_FALSE(win32::Guarded([] { ReadAt(BadAddress()); }, filter));
    ASSERT_FALSE(win32::Guarded([] { throw std::runtime_error("text"); }, filter));
  }
  ASSERT_EQ(seen.size(), 2000u);
  EXPECT_EQ(seen[1998].code, DWORD{EXCEPTION_ACCESS_VIOLATION});
  EXPECT_EQ(seen[1999].code, kCxxThrow);
}

TEST_F(Guard, TakesFaultsAgainAndAgain) {
  for (int i = 0; i < 1000; ++i) {
    ASSERT_FALSE(win32::Guarded([] { ReadAt(BadAddress()); }, &Filter));
    ASSERT_FALSE(win32::Guarded([] { throw std::runtime_error("text"); }, &Filter));
  }
  EXPECT_EQ(seen.size(), 2000u);
}

TEST_F(Guard, CatchingHandsBackWhatWasThrown) {
  EXPECT_EQ(win32::Catching([] {}), nullptr);
  const std::exception_ptr thrown = win32::Catching([] { throw std::runtime_error("text"); });
  ASSERT_NE(thrown, nullptr);
  EXPECT_THROW(std::rethrow_exception(thrown), std::runtime_error);
}

TEST_F(Guard, CatchingLetsABadReadPass) {
  bool after = false;
  EXPECT_FALSE(win32::Guarded(
      [&] {
        win32::Catching([] { ReadBelowFramesWithDestructors(); });
        after = true;
      },
      &Filter));
  EXPECT_FALSE(after);
  ExpectOne(EXCEPTION_ACCESS_VIOLATION);
}

// ---- The gate -----------------------------------------------------------------------------------

class GateTest : public Guard {
 protected:
  // Whether another thread gets through.
  bool IsOpen() const {
    std::future<void> other =
        std::async(std::launch::async, [this] { win32::InGate(gate_, [] {}); });
    const bool open = other.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    if (!open) std::_Exit(1);  // the thread cannot be ended
    return open;
  }

  win32::Gate* const gate_ = win32::NewGate();
};

TEST_F(GateTest, OneThreadAtATimeIsInside) {
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  const auto enter_often = [&] {
    for (int i = 0; i < 100; ++i) {
      win32::InGate(gate_, [&] {
        most = std::max<int>(most, ++inside);
        Sleep(0);
        --inside;
      });
    }
  };
  std::thread first(enter_often);
  std::thread second(enter_often);
  first.join();
  second.join();
  EXPECT_EQ(most, 1);
}

TEST_F(GateTest, ThreadInsideMayEnterAgain) {
  int runs = 0;
  win32::InGate(gate_, [&] { win32::InGate(gate_, [&] { ++runs; }); });
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(IsOpen());
}

TEST_F(GateTest, CxxExceptionPassesAndLeavesTheGate) {
  for (int i = 0; i < 100; ++i) {
    EXPECT_THROW(win32::InGate(gate_, [] { throw std::runtime_error("text"); }),
                 std::runtime_error);
  }
  EXPECT_TRUE(IsOpen());
}

TEST_F(GateTest, BadReadPassesAndLeavesTheGateAtEachDepth) {
  for (int i = 0; i < 100; ++i) {
    ASSERT_FALSE(win32::Guarded(
        [this] {
          win32::InGate(gate_,
                        [this] { win32::InGate(gate_, [] { ReadBelowFramesWithDestructors(); }); });
        },
        &Filter));
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_TRUE(IsOpen());
}

}  // namespace
