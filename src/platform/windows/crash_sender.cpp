// The crash sender: the vendor's own where its library is installed, otherwise one that keeps what
// it was given.
#include <cstddef>
#include <vector>

#include "platform/crash_services.h"
#include "platform/windows/vendor_library.h"

namespace win32 {
namespace {

// Room for one object of the vendor's class, whose size only its header tells.
constexpr std::size_t kVendorObjectSize = 65536;

class VendorSender final : public MiniDmpSender {
 public:
  VendorSender(const VendorMembers& members, const WCHAR* database, const WCHAR* application,
               const WCHAR* version, const WCHAR* fourth, std::uint32_t flags)
      : members_(members) {
    members_.construct(object_, database, application, version, fourth, flags);
  }

  std::uint32_t getMiniDumpType() override { return members_.get_mini_dump_type(object_); }
  void setMiniDumpType(std::uint32_t type) override { members_.set_mini_dump_type(object_, type); }
  void setCallback(Callback callback) override { members_.set_callback(object_, callback); }
  void sendAdditionalFile(const WCHAR* path) override {
    members_.send_additional_file(object_, path);
  }
  void createReport(EXCEPTION_POINTERS* pointers) override {
    members_.create_report(object_, pointers);
  }

 private:
  VendorMembers members_;
  alignas(std::max_align_t) std::byte object_[kVendorObjectSize] = {};
};

class KeepingSender final : public MiniDmpSender {
 public:
  std::uint32_t getMiniDumpType() override { return type_; }
  void setMiniDumpType(std::uint32_t type) override { type_ = type; }
  void setCallback(Callback callback) override { callback_ = callback; }
  void sendAdditionalFile(const WCHAR* path) override { files_.emplace_back(path); }
  void createReport(EXCEPTION_POINTERS*) override {}

 private:
  std::uint32_t type_ = MiniDumpNormal;
  Callback callback_ = nullptr;
  std::vector<WideString> files_;
};

}  // namespace

MiniDmpSender* NewMiniDmpSender(const WCHAR* database, const WCHAR* application,
                                const WCHAR* version, const WCHAR* fourth, std::uint32_t flags) {
  VendorMembers members{};
  if (!LoadVendorLibrary(members)) return new KeepingSender;
  return new VendorSender(members, database, application, version, fourth, flags);
}

}  // namespace win32
