#include "boot/boot_recovery.h"

#include <algorithm>
#include <fstream>

#include "frame/global_context.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

using simulator::CommandResult;

const std::string kStore = "bcdedit /store S:\\EFI\\Microsoft\\Boot\\BCD";
const std::string kTail = " >> \"X:\\logs\\BCDEDIT_result.log\"";
const std::string kListLine = kStore + kTail;

std::string SetLine(const std::string& identifier) {
  return kStore + " /set " + identifier + " recoveryenabled ON" + kTail;
}

// Replaces bcdedit: the first run prints `listing_`, the second ends with `set_status_`.
class BcdEnableRecovery : public MachineTest {
 protected:
  BcdEnableRecovery() {
    velkora::GetGlobalContext().is_system = 1;
    machine_.SetCommand("bcdedit", [this](auto&, const Texts& arguments) {
      runs_.push_back(arguments);
      log_file_at_run_.push_back(LogsFileText("BCDEDIT_result.log"));
      if (runs_.size() == 1) return CommandResult{list_status_, listing_};
      return CommandResult{set_status_, "The operation completed successfully.\r\n"};
    });
  }

  // What the listing gives as the identifier, as it stands in the second line.
  std::string IdentifierIn(const std::string& listing) {
    listing_ = listing;
    runs_.clear();
    shell_lines_.clear();
    EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
    const std::string front = "system: " + kStore + " /set ";
    const std::string back = " recoveryenabled ON" + kTail;
    if (shell_lines_.size() != 2 || !shell_lines_[1].starts_with(front) ||
        !shell_lines_[1].ends_with(back)) {
      ADD_FAILURE() << "not a list line and a set line";
      return "";
    }
    return shell_lines_[1].substr(front.size(),
                                  shell_lines_[1].size() - front.size() - back.size());
  }

  std::string listing_ = "identifier              {bootmgr}\nresumeobject            {one}\n";
  DWORD list_status_ = 0;
  DWORD set_status_ = 0;
  std::vector<Texts> runs_;
  Texts log_file_at_run_;
};

TEST_F(BcdEnableRecovery, SetsRecoveryForTheResumeObjectOfTheListing) {
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(runs_, (std::vector<Texts>{{"/store", "S:\\EFI\\Microsoft\\Boot\\BCD"},
                                       {"/store", "S:\\EFI\\Microsoft\\Boot\\BCD", "/set", "{one}",
                                        "recoveryenabled", "ON"}}));
  EXPECT_EQ(shell_lines_, (Texts{"system: " + kListLine, "system: " + SetLine("{one}")}));
  EXPECT_EQ(log_, (Log{{1, "BcdEnableRecovery Begin..."},
                       {1, "cmd: " + kListLine},
                       {1, "Bcdedit Get Info Success!"},
                       {1, "bcdedit key: resumeobject, value: {one}"},
                       {1, "cmd: " + SetLine("{one}")},
                       {1, "BcdEnableRecovery Success!"}}));
}

TEST_F(BcdEnableRecovery, RunsDirectlyOnADataDiskToo) {
  velkora::GetGlobalContext().is_system = 0;
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(shell_lines_, (Texts{"system: " + kListLine, "system: " + SetLine("{one}")}));
}

// ---- The result file ----------------------------------------------------------------------------

TEST_F(BcdEnableRecovery, OldResultIsRemovedFirst) {
  std::ofstream(LogsFile("BCDEDIT_result.log")) << "resumeobject {old}\n";
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(log_file_at_run_.at(0), "");
  EXPECT_EQ(shell_lines_.at(1), "system: " + SetLine("{one}"));
}

TEST_F(BcdEnableRecovery, OldResultThatCannotBeRemovedIsReadToo) {
  std::ofstream(LogsFile("BCDEDIT_result.log")) << "resumeobject {old}\n";
  machine_.calls().FailOn("remove", 1, ERROR_ACCESS_DENIED);
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(shell_lines_.at(1), "system: " + SetLine("{old}"));
  EXPECT_EQ(Lines(3), Texts{});
}

TEST_F(BcdEnableRecovery, SecondRunAppendsToTheFileThatWasRead) {
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(log_file_at_run_.at(1), listing_);
  EXPECT_EQ(LogsFileText("BCDEDIT_result.log"),
            listing_ + "The operation completed successfully.\r\n");
}

TEST_F(BcdEnableRecovery, SecondRunIsMadeWhileTheFileIsOpen) {
  EXPECT_TRUE(velkora::BcdEnableRecovery("S"));
  Texts order;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "system" || call.name == "fopen" || call.name == "fclose") {
      order.push_back(call.name);
    }
  }
  EXPECT_EQ(order, (Texts{"system", "fopen", "system", "fclose"}));
}

// ---- The listing --------------------------------------------------------------------------------

TEST_F(BcdEnableRecovery, ListingIsReadAsText) {
  EXPECT_EQ(IdentifierIn("identifier {bootmgr}\r\nresumeobject {one}\r\n"), "{one}");
  const std::vector<simulator::Call>& calls = machine_.calls().calls();
  const auto open = std::find_if(calls.begin(), calls.end(),
                                 [](const simulator::Call& call) { return call.name == "fopen"; });
  ASSERT_NE(open, calls.end());
  EXPECT_EQ(open->detail, "BCDEDIT_result.log");
  EXPECT_EQ(open->arguments, "r");
}

struct Listing {
  const char* name;
  const char* text;
  const char* identifier;
};

class BcdListing : public BcdEnableRecovery, public ::testing::WithParamInterface<Listing> {};

TEST_P(BcdListing, GivesTheIdentifier) {
  EXPECT_EQ(IdentifierIn(GetParam().text), GetParam().identifier);
}

constexpr Listing kListings[] = {
    {"ValueIsTheLastWordOfTheLine", "resumeobject   two   {last}\n", "{last}"},
    {"LineWithOneBlankHasKeyAndValueOnEitherSide", "resumeobject {one}\n", "{one}"},
    {"ValueBehindATrailingBlankIsEmpty", "resumeobject {one} \n", ""},
    {"KeyInAnotherCaseDoesNotMatch", "ResumeObject {upper}\nresumeobject {one}\n", "{one}"},
    {"LongerKeyDoesNotMatch", "resumeobjects {more}\nresumeobject {one}\n", "{one}"},
    {"ShorterKeyDoesNotMatch", "resume {less}\nresumeobject {one}\n", "{one}"},
    {"IndentedKeyDoesNotMatch", " resumeobject {indented}\nresumeobject {one}\n", "{one}"},
    {"FirstMatchingLineCounts", "resumeobject {one}\nresumeobject {two}\n", "{one}"},
    {"EmptyLinesAndLinesWithoutABlankAreSkipped", "\n-----\nresumeobject\n\nresumeobject {one}\n",
     "{one}"},
    {"LastLineNeedsNoLineFeed", "identifier {bootmgr}\nresumeobject {one}", "{one}"},
    {"EmptyListingLeavesTheIdentifierEmpty", "", ""},
};

INSTANTIATE_TEST_SUITE_P(All, BcdListing, ::testing::ValuesIn(kListings),
                         [](const auto& test) { return test.param.name; });

TEST_F(BcdEnableRecovery, NulInALineDoesNotSwallowTheNext) {
  const std::string nul(1, '\0');
  for (const std::string& line : {nul + "front", "in" + nul + "side", "end" + nul, nul}) {
    EXPECT_EQ(IdentifierIn(line + "\nresumeobject {one}\n"), "{one}");
    EXPECT_EQ(IdentifierIn(line + "\r\nresumeobject {one}\r\n"), "{one}");
  }
}

TEST_F(BcdEnableRecovery, NulBelongsToTheKey) {
  const std::string longer = std::string("resumeobject") + '\0' + " {longer}\n";
  EXPECT_EQ(IdentifierIn(longer + "resumeobject {one}\n"), "{one}");
}

TEST_F(BcdEnableRecovery, ListingIsReadInBlocks) {
  EXPECT_EQ(IdentifierIn(std::string(4095, '-') + "\nresumeobject {one}\n"), "{one}");
  EXPECT_EQ(machine_.calls().Count("fread"), 3U);  // the last one finds the end
}

TEST_F(BcdEnableRecovery, ReadThatFailsEndsTheListing) {
  machine_.calls().FailOn("fread", 2);
  EXPECT_EQ(IdentifierIn(std::string(4095, '-') + "\nresumeobject {one}\n"), "");
}

TEST_F(BcdEnableRecovery, LongLineIsReadWhole) {
  EXPECT_EQ(IdentifierIn("resumeobject " + std::string(100'000, ' ') + "{one}\n"), "{one}");
}

TEST_F(BcdEnableRecovery, ListingWithoutTheKeyLeavesTheIdentifierEmpty) {
  EXPECT_EQ(IdentifierIn("Wiederaufnahmeobjekt {one}\n"), "");
  EXPECT_EQ(shell_lines_.at(1), "system: " + kStore + " /set  recoveryenabled ON" + kTail);
  EXPECT_EQ(Lines(1),
            (Texts{"BcdEnableRecovery Begin...", "cmd: " + kListLine, "Bcdedit Get Info Success!",
                   "cmd: " + SetLine(""), "BcdEnableRecovery Success!"}));
}

TEST_F(BcdEnableRecovery, ToolDecidesOnTheLineWithoutAnIdentifier) {
  listing_ = "";
  set_status_ = 1;
  EXPECT_FALSE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(Lines(3), Texts{"BcdEdit Set Failed!"});
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(BcdEnableRecovery, FailedListingEndsIt) {
  list_status_ = 1;
  EXPECT_FALSE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(runs_.size(), 1U);
  EXPECT_EQ(log_, (Log{{1, "BcdEnableRecovery Begin..."},
                       {1, "cmd: " + kListLine},
                       {3, "Bcdedit Get Info Failed!"}}));
}

TEST_F(BcdEnableRecovery, ShellThatCannotBeStartedEndsIt) {
  machine_.calls().FailOn("system");
  EXPECT_FALSE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(log_.back(), (LogLine{3, "Bcdedit Get Info Failed!"}));
}

TEST_F(BcdEnableRecovery, ResultThatCannotBeOpenedEndsIt) {
  machine_.calls().FailOn("fopen", 1, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(runs_.size(), 1U);
  EXPECT_EQ(log_, (Log{{1, "BcdEnableRecovery Begin..."},
                       {1, "cmd: " + kListLine},
                       {1, "Bcdedit Get Info Success!"},
                       {3, "File Open Failed: X:\\logs\\BCDEDIT_result.log"}}));
}

TEST_F(BcdEnableRecovery, FailedSettingIsAFailure) {
  set_status_ = 1;
  EXPECT_FALSE(velkora::BcdEnableRecovery("S"));
  EXPECT_EQ(runs_.size(), 2U);
  EXPECT_EQ(log_.back(), (LogLine{3, "BcdEdit Set Failed!"}));
}

// ---- The listing of the running system ----------------------------------------------------------

using BcdeditPrint = BcdEnableRecovery;

const std::string kPrintLine = "bcdedit /enum all >> \"X:\\logs\\BCDEDIT_print.log\"";

TEST_F(BcdeditPrint, ListsEverythingIntoItsOwnFile) {
  EXPECT_TRUE(velkora::BCDEDIT_print());
  EXPECT_EQ(runs_, (std::vector<Texts>{{"/enum", "all"}}));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kPrintLine});
  EXPECT_EQ(LogsFileText("BCDEDIT_print.log"), listing_);
  EXPECT_EQ(log_, (Log{{1, "BCDEDIT_print Begin..."},
                       {1, "cmd: " + kPrintLine},
                       {1, "BCDEDIT_print Success!"}}));
}

TEST_F(BcdeditPrint, FileIsNotRemovedFirst) {
  std::ofstream(LogsFile("BCDEDIT_print.log"), std::ios::binary) << "before\n";
  EXPECT_TRUE(velkora::BCDEDIT_print());
  EXPECT_EQ(LogsFileText("BCDEDIT_print.log"), "before\n" + listing_);
}

TEST_F(BcdeditPrint, RunsDirectlyOnADataDiskToo) {
  velkora::GetGlobalContext().is_system = 0;
  EXPECT_TRUE(velkora::BCDEDIT_print());
  EXPECT_EQ(shell_lines_, Texts{"system: " + kPrintLine});
}

TEST_F(BcdeditPrint, FailedToolIsAFailure) {
  list_status_ = 1;
  EXPECT_FALSE(velkora::BCDEDIT_print());
  EXPECT_EQ(log_, (Log{{1, "BCDEDIT_print Begin..."},
                       {1, "cmd: " + kPrintLine},
                       {3, "BCDEDIT_print Failed!"}}));
}

}  // namespace
}  // namespace testing_support
