// Open handles of the simulated machine.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

class HandleObject;

class HandleTable {
 public:
  HandleTable();
  ~HandleTable();
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  HANDLE Add(std::unique_ptr<HandleObject> object);
  // Null for a handle that is not open.
  HandleObject* Find(HANDLE handle);
  bool Close(HANDLE handle);
  void CloseAll();
  // Describe() of each open handle, in the order of opening.
  std::vector<std::string> Open() const;

 private:
  // In the order of opening; null once closed: a value is never given again.
  std::vector<std::unique_ptr<HandleObject>> objects_;
};

}  // namespace simulator
