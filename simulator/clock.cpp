#include "simulator/clock.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <tuple>
#include <utility>
#include <vector>

namespace simulator {

struct Clock::Participant {
  std::thread::id id;
  std::thread thread;  // not joinable for a thread that was not started here
  std::condition_variable turn;
  bool ready = true;
  bool timed_out = false;
  bool done = false;
  const void* address = nullptr;
  std::uint64_t deadline = kNever;
  std::uint64_t order = 0;  // of two that are alike, the one with the lower order goes first
  std::exception_ptr error;
};

// Outlives the clock, for threads that end after it.
struct Clock::Life {
  std::mutex mutex;
  std::atomic<Clock*> clock;  // null behind its end; changed and used under the mutex
};

// The clocks in which a thread has a place without having been started there. Kept under a key of
// the thread: g++ for Windows frees a thread's own variables before it calls their destructors.
struct Clock::Places {
  ~Places() {
    for (const auto& life : lives) {
      const Lock lock(life->mutex);
      if (life->clock != nullptr) life->clock.load()->Leave(std::this_thread::get_id());
    }
  }

  static Places& OfThisThread() {
    static const pthread_key_t key = NewKey();
    auto* places = static_cast<Places*>(pthread_getspecific(key));
    if (places == nullptr) {
      places = new Places;
      pthread_setspecific(key, places);
    }
    return *places;
  }

  void Add(const std::shared_ptr<Life>& added) {
    std::erase_if(lives, [](const auto& life) { return life->clock == nullptr; });
    lives.push_back(added);
  }

  std::vector<std::shared_ptr<Life>> lives;

 private:
  static pthread_key_t NewKey() {
    pthread_key_t key{};
    pthread_key_create(&key, [](void* places) { delete static_cast<Places*>(places); });
    return key;
  }
};

Clock::Clock() : life_(std::make_shared<Life>()) {
  life_->clock = this;
}

Clock::~Clock() {
  Lock lock(life_->mutex);
  // Other threads that were not started here are done with the clock, though they may hold the
  // turn.
  const auto is_guest = [](const Participant& place) { return !place.thread.joinable(); };
  if (running_ != nullptr && is_guest(*running_)) running_ = nullptr;
  participants_.remove_if(is_guest);
  Participant& self = Self(lock);
  closing_ = true;
  for (Participant& participant : participants_) {
    if (!participant.ready) MakeReady(participant, /*timed_out=*/true);
  }
  for (const Participant& participant : participants_) {
    while (participant.thread.joinable() && !participant.done) YieldTurn(lock, self);
  }
  lock.unlock();
  for (Participant& participant : participants_) {
    if (participant.thread.joinable()) participant.thread.join();
  }
  lock.lock();
  life_->clock = nullptr;
}

bool Clock::HasPlace(std::thread::id id) {
  const Lock lock(life_->mutex);
  return FindPlace(id) != nullptr;
}

std::uint64_t Clock::now() {
  const Lock lock(life_->mutex);
  return now_;
}

void Clock::Sleep(std::uint64_t milliseconds) {
  Lock lock(life_->mutex);
  Participant& self = Self(lock);
  Block(lock, self, nullptr, now_ + milliseconds);
}

Clock::Participant* Clock::Start(std::function<void()> body) {
  Lock lock(life_->mutex);
  Participant& self = Self(lock);
  Participant& started = participants_.emplace_back();
  MakeReady(started, /*timed_out=*/false);
  started.thread =
      std::thread([this, &started, work = std::move(body)] { RunThread(started, work); });
  YieldTurn(lock, self);
  return &started;
}

void Clock::Join(Participant* participant) {
  Lock lock(life_->mutex);
  Participant& self = Self(lock);
  while (!participant->done) Block(lock, self, participant, kNever);
  lock.unlock();
  participant->thread.join();
  const std::exception_ptr error = participant->error;
  lock.lock();
  participants_.remove_if([&](const Participant& place) { return &place == participant; });
  lock.unlock();
  if (error) std::rethrow_exception(error);
}

bool Clock::WaitFor(const void* address, std::uint64_t deadline) {
  Lock lock(life_->mutex);
  Participant& self = Self(lock);
  Block(lock, self, address, deadline);
  return !self.timed_out;
}

void Clock::Wake(const void* address) {
  const Lock lock(life_->mutex);
  for (Participant& participant : participants_) {
    if (!participant.ready && participant.address == address) MakeReady(participant, false);
  }
}

Clock::Participant* Clock::FindPlace(std::thread::id id) {
  for (Participant& place : participants_) {
    if (place.id == id && !place.done) return &place;
  }
  return nullptr;
}

// One thread may use several clocks, in turn.
Clock::Participant& Clock::Self(Lock& lock) {
  const std::thread::id id = std::this_thread::get_id();
  if (Participant* const place = FindPlace(id); place != nullptr) return *place;
  Places::OfThisThread().Add(life_);
  Participant& place = participants_.emplace_back();
  place.id = id;
  place.order = ++order_;
  TakeTurn(lock, place);
  return place;
}

void Clock::Block(Lock& lock, Participant& self, const void* address, std::uint64_t deadline) {
  if (closing_) {  // nothing waits any more; what is waited for gets its turn all the same
    YieldTurn(lock, self);
    self.timed_out = true;
    return;
  }
  self.ready = false;
  self.address = address;
  self.deadline = deadline;
  self.order = ++order_;
  running_ = nullptr;
  GiveTurn();
  TakeTurn(lock, self);
}

void Clock::YieldTurn(Lock& lock, Participant& self) {
  self.order = ++order_;
  running_ = nullptr;
  GiveTurn();
  TakeTurn(lock, self);
}

void Clock::TakeTurn(Lock& lock, Participant& self) {
  if (running_ == nullptr) GiveTurn();
  self.turn.wait(lock, [&] { return running_ == &self; });
}

// Chooses who runs next: a thread that can, else the one whose deadline comes first.
void Clock::GiveTurn() {
  Participant* next = nullptr;
  const auto rank = [](const Participant& place) {
    return std::tuple(place.ready ? 0 : place.deadline, place.order);
  };
  for (Participant& place : participants_) {
    if (place.done || (!place.ready && place.deadline == kNever)) continue;
    if (next == nullptr ||
        std::pair(!place.ready, rank(place)) < std::pair(!next->ready, rank(*next))) {
      next = &place;
    }
  }
  if (next == nullptr) return;
  if (!next->ready) {
    now_ = std::max(now_, next->deadline);
    MakeReady(*next, /*timed_out=*/true);
  }
  running_ = next;
  next->turn.notify_one();
}

void Clock::MakeReady(Participant& participant, bool timed_out) {
  participant.ready = true;
  participant.timed_out = timed_out;
  participant.address = nullptr;
  participant.deadline = kNever;
  participant.order = ++order_;
}

void Clock::RunThread(Participant& self, const std::function<void()>& body) {
  {
    Lock lock(life_->mutex);
    self.id = std::this_thread::get_id();
    TakeTurn(lock, self);
  }
  try {
    body();
  } catch (...) {
    self.error = std::current_exception();
  }
  const Lock lock(life_->mutex);
  self.done = true;
  for (Participant& place : participants_) {
    if (!place.ready && place.address == &self) MakeReady(place, false);
  }
  running_ = nullptr;
  GiveTurn();
}

void Clock::Leave(std::thread::id id) {
  const auto place = std::find_if(participants_.begin(), participants_.end(), [&](const auto& one) {
    return one.id == id && !one.thread.joinable();
  });
  if (place == participants_.end()) return;
  if (running_ == &*place) running_ = nullptr;
  participants_.erase(place);
  if (running_ == nullptr) GiveTurn();
}

}  // namespace simulator
