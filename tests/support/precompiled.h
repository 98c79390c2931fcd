// What nearly every test includes, compiled once.
#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "simulator/simulated_machine.h"
