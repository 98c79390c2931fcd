// Virtual time, and the threads that live in it.
//
// One thread runs at a time. It goes on until it waits (for a moment, for another thread, for a
// monitor) or ends; then the next one runs that can. When none can, time jumps to the earliest
// deadline; of two equal ones, the one that was set first goes first. So everything happens in the
// same order each time, however long it takes.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace simulator {

class Clock {
 public:
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  // A thread's place in virtual time. A thread that was not started here gets one at its first use
  // of the clock, and keeps it and its turn until it ends: while it waits for another thread by
  // other means than the clock's, that one does not go on. So a thread that another one joins is
  // best started and joined here.
  struct Participant;

  Clock();
  // Ends every wait that is left, as if its deadline had come, and returns when the threads that
  // were started here have ended. No other thread uses the clock any more.
  ~Clock();
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;

  // Whether the thread has a place in virtual time. Gives it none.
  bool HasPlace(std::thread::id id);

  // Milliseconds since the clock was made.
  std::uint64_t now();
  void Sleep(std::uint64_t milliseconds);

  // Runs `body` on a thread of its own; the caller goes on when that thread waits or has ended.
  Participant* Start(std::function<void()> body);
  // Waits for its end and frees it. Throws what `body` threw.
  void Join(Participant* participant);

  // Waits until the address is woken, or the deadline comes: false then.
  bool WaitFor(const void* address, std::uint64_t deadline);
  void Wake(const void* address);

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Life;
  struct Places;

  // Null for a thread that has none. The caller holds the lock.
  Participant* FindPlace(std::thread::id id);
  // The place of the calling thread.
  Participant& Self(Lock& lock);
  // Gives up the turn, and returns when this thread has it again.
  void Block(Lock& lock, Participant& self, const void* address, std::uint64_t deadline);
  void YieldTurn(Lock& lock, Participant& self);
  void TakeTurn(Lock& lock, Participant& self);
  void GiveTurn();
  void MakeReady(Participant& participant, bool timed_out);
  void RunThread(Participant& self, const std::function<void()>& body);
  // A thread that was not started here has ended. The caller holds the lock.
  void Leave(std::thread::id id);

  const std::shared_ptr<Life> life_;  // its lock guards what follows
  std::list<Participant> participants_;
  Participant* running_ = nullptr;
  std::uint64_t now_ = 0;
  std::uint64_t order_ = 0;
  bool closing_ = false;
};

}  // namespace simulator
