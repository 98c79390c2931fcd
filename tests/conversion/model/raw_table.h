// A disk's table as it lies in the image, read and written byte by byte.
#pragma once

#include <string>
#include <vector>

#include "conversion/model/disk.h"
#include "simulator/disk.h"

namespace model {

void WriteTable(simulator::Disk& disk, const Table& table);
Table ReadTable(simulator::Disk& disk);

// One line for each entry in use, in order, with the style in front.
std::vector<std::string> Describe(const Table& table);

}  // namespace model
