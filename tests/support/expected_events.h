// The callbacks of a conversion, as far as it comes.
#pragma once

#include <vector>

#include "support/machine_fixture.h"

namespace testing_support {

using EventList = std::vector<Event>;

inline const EventList kUpToChecking = {{1, 0}, {0, 1}};
inline const EventList kUpToClearing = {{1, 0}, {0, 1}, {1, 20}, {0, 2}};
inline const EventList kUpToCreating = {{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}};
inline const EventList kUpToWriting = {{1, 0},  {0, 1}, {1, 20}, {0, 2},
                                       {1, 40}, {0, 3}, {1, 60}, {0, 4}};
inline const EventList kUpToRepairing = {{1, 0}, {0, 1},  {1, 20}, {0, 2},  {1, 40},
                                         {0, 3}, {1, 60}, {0, 4},  {1, 80}, {0, 6}};

// Conversions that end well.
inline const EventList kDataDiskEvents = {{1, 0}, {0, 1},  {1, 20}, {0, 2},   {1, 40},
                                          {0, 3}, {1, 60}, {0, 4},  {1, 100}, {0, 7}};
inline const EventList kSystemDiskEvents = {{1, 0},  {0, 1}, {1, 20}, {0, 2}, {1, 40},  {0, 3},
                                            {1, 60}, {0, 4}, {1, 80}, {0, 6}, {1, 100}, {0, 7}};
inline const EventList kEmptyListEvents = {{1, 0},  {0, 1}, {1, 20},  {0, 2},
                                           {1, 40}, {0, 3}, {1, 100}, {0, 7}};

// What follows on a failure.
inline const EventList kRolledBack = {{0, 9}, {1, 100}, {0, 10}};
inline const EventList kNotRolledBack = {{0, 9}, {1, 100}, {0, 11}};

inline EventList Joined(EventList first, const EventList& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace testing_support
