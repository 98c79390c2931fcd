#include "simulator/commands/bcdedit.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/commands/bcd_store.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume_files.h"

namespace simulator {
namespace {

const std::string kResume = "{11111111-2222-3333-4444-555555555555}";
const std::string kStore = "X:\\EFI\\Microsoft\\Boot\\BCD";

const std::string kListing =
    "\r\n"
    "Windows Boot Manager\r\n"
    "--------------------\r\n"
    "identifier              {bootmgr}\r\n"
    "device                  partition=S:\r\n"
    "path                    \\EFI\\Microsoft\\Boot\\bootmgfw.efi\r\n"
    "description             Windows Boot Manager\r\n"
    "locale                  en-US\r\n"
    "default                 {default}\r\n"
    "resumeobject            {11111111-2222-3333-4444-555555555555}\r\n"
    "displayorder            {default}\r\n"
    "toolsdisplayorder       {memdiag}\r\n"
    "timeout                 30\r\n"
    "\r\n"
    "Windows Boot Loader\r\n"
    "-------------------\r\n"
    "identifier              {default}\r\n"
    "device                  partition=W:\r\n"
    "path                    \\Windows\\system32\\winload.efi\r\n"
    "description             Windows 10\r\n"
    "locale                  en-US\r\n"
    "osdevice                partition=W:\r\n"
    "systemroot              \\Windows\r\n"
    "resumeobject            {11111111-2222-3333-4444-555555555555}\r\n"
    "nx                      OptIn\r\n";
const std::string kResumeBlock =
    "\r\n"
    "Resume from Hibernate\r\n"
    "---------------------\r\n"
    "identifier              {11111111-2222-3333-4444-555555555555}\r\n"
    "device                  partition=W:\r\n"
    "path                    \\Windows\\system32\\winresume.efi\r\n"
    "description             Windows Resume Application\r\n"
    "locale                  en-US\r\n"
    "filedevice              partition=W:\r\n"
    "filepath                \\hiberfil.sys\r\n";

class Bcdedit : public testing_support::SeamTest {
 protected:
  Bcdedit() {
    const BcdStore store = MakeBcdStore({'W', 'S', true, kResume});
    EXPECT_EQ(VolumeFiles(machine_).Write(kStore, BcdFileText(store)), ERROR_SUCCESS);
  }

  CommandResult Run(const std::vector<std::string>& words) {
    return RunBcdedit(machine_.system(), words);
  }
  DWORD Status(const std::vector<std::string>& words) { return Run(words).exit_status; }
  std::string Listing(const std::vector<std::string>& words) {
    const CommandResult result = Run(words);
    EXPECT_EQ(result.exit_status, 0U);
    return result.output;
  }
};

TEST_F(Bcdedit, ListsWhatTakesPartInStarting) {
  EXPECT_EQ(Listing({"/store", kStore}), kListing);
  EXPECT_EQ(Listing({"/STORE", kStore, "/enum"}), kListing);
}

TEST_F(Bcdedit, ListsEverythingWithAll) {
  EXPECT_EQ(Listing({"/store", kStore, "/enum", "ALL"}), kListing + kResumeBlock);
}

TEST_F(Bcdedit, SetAddsAnElementAndListsASwitchAsYesOrNo) {
  EXPECT_EQ(Status({"/store", kStore, "/set", kResume, "recoveryenabled", "ON"}), 0U);
  const std::string all = kListing + kResumeBlock;
  EXPECT_EQ(Listing({"/store", kStore, "/enum", "all"}), all + "recoveryenabled         Yes\r\n");
  EXPECT_EQ(Status({"/store", kStore, "/set", kResume, "RecoveryEnabled", "off"}), 0U);
  EXPECT_EQ(Listing({"/store", kStore, "/enum", "all"}), all + "recoveryenabled         No\r\n");
}

TEST_F(Bcdedit, SetChangesAnElement) {
  EXPECT_EQ(Status({"/store", kStore, "/set", "{DEFAULT}", "description", "My Windows"}), 0U);
  std::string expected = kListing;
  expected.replace(expected.find("Windows 10"), 10, "My Windows");
  EXPECT_EQ(Listing({"/store", kStore}), expected);
}

TEST_F(Bcdedit, SetWithoutAnIdentifierFails) {
  EXPECT_EQ(win32::system(("bcdedit /store " + kStore + " /set  recoveryenabled ON").c_str()), 1);
  EXPECT_EQ(Status({"/store", kStore, "/set", "x", "recoveryenabled", "ON"}), 1U);
  EXPECT_EQ(Status({"/store", kStore, "/set", kResume, "recoveryenabled"}), 1U);
  EXPECT_EQ(Listing({"/store", kStore, "/enum", "all"}), kListing + kResumeBlock);
}

TEST_F(Bcdedit, SetOfAnObjectThatIsNotThereFails) {
  EXPECT_EQ(Status({"/store", kStore, "/set", "{other}", "recoveryenabled", "ON"}), 1U);
  EXPECT_EQ(Listing({"/store", kStore, "/enum", "all"}), kListing + kResumeBlock);
}

TEST_F(Bcdedit, AMissingOrDamagedStoreFails) {
  EXPECT_EQ(Status({"/store", "X:\\Boot\\BCD"}), 1U);
  EXPECT_EQ(Status({"/store", "Q:\\Boot\\BCD"}), 1U);
  EXPECT_EQ(Status({"/store", "X:\\Boot\\BCD", "/set", kResume, "recoveryenabled", "ON"}), 1U);
  for (const std::string_view damaged :
       {"", "something else", "boot configuration store 1\r\nno title\r\n",
        "boot configuration store 1\r\nWindows Boot Manager\r\nnamewithoutvalue\r\n"}) {
    ASSERT_EQ(VolumeFiles(machine_).Write(kStore, damaged), ERROR_SUCCESS);
    EXPECT_EQ(Status({"/store", kStore}), 1U) << damaged;
  }
}

TEST_F(Bcdedit, WithoutAFileItIsTheMachinesOwnStore) {
  const std::string own = Listing({"/enum", "all"});
  EXPECT_NE(own.find("Windows Boot Manager\r\n----"), std::string::npos);
  EXPECT_NE(own.find("Resume from Hibernate\r\n----"), std::string::npos);
  EXPECT_EQ(Listing({"/enum", "all"}), own);
  EXPECT_EQ(Status({"/set", "{default}", "description", "Other"}), 0U);
  EXPECT_NE(Listing({}).find("description             Other\r\n"), std::string::npos);
  EXPECT_EQ(Listing({"/store", kStore}), kListing);
}

TEST_F(Bcdedit, OtherArgumentsAreRefused) {
  EXPECT_EQ(Status({"/store"}), 1U);
  EXPECT_EQ(Status({"/enum", "some"}), 1U);
  EXPECT_EQ(Status({"/store", kStore, "/delete"}), 1U);
}

TEST_F(Bcdedit, AStoreComesBackFromItsFile) {
  BcdStore store = MakeBcdStore({'C', 'C', false, kResume});
  store.objects[1].Set(std::string(30, 'n'), "longer than its field");
  const auto parsed = ParseBcdFile(BcdFileText(store));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(BcdListing(*parsed, true), BcdListing(store, true));
}

}  // namespace
}  // namespace simulator
