#include "simulator/clock.h"

#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace simulator {
namespace {

using Events = std::vector<std::string>;

TEST(Clock, StartsAtZeroAndMovesByWhatIsSlept) {
  Clock clock;
  EXPECT_EQ(clock.now(), 0U);
  clock.Sleep(3000);
  EXPECT_EQ(clock.now(), 3000U);
  clock.Sleep(0);
  EXPECT_EQ(clock.now(), 3000U);
}

TEST(Clock, AStartedThreadRunsUntilItWaitsBeforeItsCreatorGoesOn) {
  Clock clock;
  Events events;
  Clock::Participant* thread = clock.Start([&] {
    events.push_back("thread");
    clock.Sleep(1);
    events.push_back("thread again");
  });
  events.push_back("creator");
  clock.Join(thread);
  EXPECT_EQ(events, (Events{"thread", "creator", "thread again"}));
}

TEST(Clock, AThreadThatWasNotStartedHereLeavesItsTurnBehindWhenItEnds) {
  Clock clock;
  std::thread([&] { clock.Sleep(5); }).join();
  std::thread([&] { clock.Sleep(6); }).join();
  clock.Sleep(7);
  EXPECT_EQ(clock.now(), 18U);
}

TEST(Clock, AThreadMayEndAfterTheClock) {
  std::promise<void> used;
  std::promise<void> gone;
  std::thread thread;
  {
    Clock clock;
    thread = std::thread([&] {
      clock.Join(clock.Start([] {}));
      Clock own;
      own.Sleep(1);
      used.set_value();
      gone.get_future().wait();
    });
    used.get_future().wait();
  }
  gone.set_value();
  thread.join();
}

#ifndef _WIN32  // no second process there
TEST(Clock, MayBeStaticAndEndWithTheProcess) {
  const auto use = [] {
    static Clock clock;
    clock.Sleep(1);
    std::exit(0);
  };
  EXPECT_EXIT(use(), ::testing::ExitedWithCode(0), "");
}
#endif

TEST(Clock, TheEarliestDeadlineGoesFirst) {
  Clock clock;
  Events events;
  const auto sleeper = [&](std::uint64_t length) {
    return clock.Start([&events, &clock, length] {
      clock.Sleep(length);
      events.push_back(std::to_string(clock.now()));
    });
  };
  std::vector<Clock::Participant*> threads = {sleeper(30), sleeper(10), sleeper(20)};
  for (Clock::Participant* thread : threads) clock.Join(thread);
  EXPECT_EQ(events, (Events{"10", "20", "30"}));
  EXPECT_EQ(clock.now(), 30U);
}

TEST(Clock, OfEqualDeadlinesTheOneSetFirstGoesFirst) {
  Clock clock;
  Events events;
  Clock::Participant* timer = clock.Start([&] {
    EXPECT_FALSE(clock.WaitFor(&events, 10));
    events.push_back("timer");
  });
  clock.Sleep(4);
  clock.Sleep(6);
  events.push_back("sleeper");
  clock.Join(timer);
  EXPECT_EQ(events, (Events{"timer", "sleeper"}));
}

TEST(Clock, TimeStandsStillWhileAThreadCanRun) {
  Clock clock;
  Clock::Participant* waiter = clock.Start([&] { clock.WaitFor(&clock, Clock::kNever); });
  for (int i = 0; i < 100; ++i) clock.Join(clock.Start([] {}));
  EXPECT_EQ(clock.now(), 0U);
  clock.Wake(&clock);
  clock.Join(waiter);
  EXPECT_EQ(clock.now(), 0U);
}

TEST(Clock, AWakeEndsTheWaitBeforeItsDeadline) {
  Clock clock;
  bool woken = false;
  std::uint64_t when = 0;
  Clock::Participant* waiter = clock.Start([&] {
    woken = clock.WaitFor(&woken, 1000);
    when = clock.now();
  });
  clock.Sleep(300);
  clock.Wake(&woken);
  clock.Join(waiter);
  EXPECT_TRUE(woken);
  EXPECT_EQ(when, 300U);
}

TEST(Clock, AWakeOfAnotherAddressIsNotHeard) {
  Clock clock;
  bool woken = true;
  int other = 0;
  Clock::Participant* waiter = clock.Start([&] { woken = clock.WaitFor(&woken, 1000); });
  clock.Wake(&other);
  clock.Join(waiter);
  EXPECT_FALSE(woken);
  EXPECT_EQ(clock.now(), 1000U);
}

TEST(Clock, ADeadlineInThePastEndsTheWaitAtOnce) {
  Clock clock;
  clock.Sleep(50);
  EXPECT_FALSE(clock.WaitFor(&clock, 20));
  EXPECT_EQ(clock.now(), 50U);
}

TEST(Clock, JoinWaitsInVirtualTimeAndAlsoTakesAThreadThatHasEnded) {
  Clock clock;
  Clock::Participant* slow = clock.Start([&] { clock.Sleep(120'000); });
  Clock::Participant* quick = clock.Start([] {});
  clock.Join(slow);
  EXPECT_EQ(clock.now(), 120'000U);
  clock.Join(quick);
  EXPECT_EQ(clock.now(), 120'000U);
}

TEST(Clock, JoinThrowsWhatTheThreadThrew) {
  Clock clock;
  Clock::Participant* thread = clock.Start([&] {
    clock.Sleep(5);
    throw std::runtime_error("out of here");
  });
  EXPECT_THROW(clock.Join(thread), std::runtime_error);
  clock.Sleep(1);
  EXPECT_EQ(clock.now(), 6U);
}

TEST(Clock, ClosingEndsEveryWaitThatIsLeft) {
  Events events;
  {
    Clock clock;
    clock.Start([&] {
      events.push_back(clock.WaitFor(&events, Clock::kNever) ? "woken" : "ended");
      clock.Sleep(1'000'000);
      events.push_back("slept");
    });
    clock.Start([&] { clock.Sleep(1'000'000); });
    clock.Sleep(5);
    EXPECT_TRUE(events.empty());
  }
  EXPECT_EQ(events, (Events{"ended", "slept"}));
}

TEST(Clock, ClosingLetsThoseEndFirstForWhomOthersWait) {
  Events events;
  {
    Clock clock;
    clock.Start([&] {
      Clock::Participant* inner = clock.Start([&] {
        clock.Sleep(1'000'000);
        events.push_back("inner");
      });
      clock.Join(inner);
      events.push_back("outer");
    });
    EXPECT_TRUE(events.empty());
  }
  EXPECT_EQ(events, (Events{"inner", "outer"}));
}

TEST(Clock, OneThreadMayUseTwoClocksInTurn) {
  Clock first;
  {
    Clock second;
    first.Sleep(1);
    second.Sleep(10);
    first.Sleep(1);
    second.Sleep(10);
    EXPECT_EQ(second.now(), 20U);
  }
  first.Sleep(1);
  EXPECT_EQ(first.now(), 3U);
}

Events RaceOnce() {
  Clock clock;
  Events events;
  const auto runner = [&](const std::string& name, std::uint64_t step) {
    return clock.Start([&clock, &events, name, step] {
      for (int i = 0; i < 4; ++i) {
        clock.Sleep(step);
        events.push_back(name + std::to_string(clock.now()));
        clock.Wake(&events);
      }
    });
  };
  std::vector<Clock::Participant*> threads = {runner("a", 6), runner("b", 4), runner("c", 12)};
  while (clock.WaitFor(&events, clock.now() + 5)) events.push_back("notified");
  for (Clock::Participant* thread : threads) clock.Join(thread);
  return events;
}

TEST(Clock, AThousandRoundsAreAllTheSame) {
  const Events once = RaceOnce();
  EXPECT_GT(once.size(), 12U);
  for (int round = 0; round < 1000; ++round) ASSERT_EQ(RaceOnce(), once) << "round " << round;
}

}  // namespace
}  // namespace simulator
