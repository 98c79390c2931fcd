#include "simulator/mount_manager.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/volume.h"

namespace simulator {
namespace {

Volume VolumeOf(const std::string& identity) {
  Volume volume;
  volume.identity = identity;
  return volume;
}

DWORD Bit(char letter) {
  return DWORD{1} << (letter - 'A');
}

TEST(MountManager, GivesTheFirstFreeLetterFromC) {
  MountManager manager;
  manager.MapFolder('D', "folder");
  manager.Arrive(VolumeOf("one"), true);
  manager.Arrive(VolumeOf("two"), true);
  EXPECT_EQ(manager.HolderOf('C'), "one");
  EXPECT_EQ(manager.HolderOf('D'), std::nullopt);
  EXPECT_EQ(manager.HolderOf('E'), "two");
  EXPECT_EQ(manager.Mask(), Bit('C') | Bit('D') | Bit('E'));
}

TEST(MountManager, GivesNoLetterByItselfWithoutAutomountOrWhereSuppressed) {
  MountManager manager;
  manager.Arrive(VolumeOf("one"), false);
  Volume hidden = VolumeOf("two");
  hidden.automatic_letter = false;
  manager.Arrive(hidden, true);
  EXPECT_EQ(manager.Mask(), 0u);
}

TEST(MountManager, GivesNothingWhenNoLetterIsLeft) {
  MountManager manager;
  for (char letter = 'C'; letter <= 'Z'; ++letter) {
    manager.Arrive(VolumeOf(std::string(1, letter)), true);
  }
  manager.Arrive(VolumeOf("last"), true);
  EXPECT_TRUE(manager.LettersOf("last").empty());
}

TEST(MountManager, ALetterComesBackWithItsIdentity) {
  MountManager manager;
  EXPECT_EQ(manager.Assign('t', VolumeOf("one")), ERROR_SUCCESS);
  manager.Leave(VolumeOf("one"));
  EXPECT_EQ(manager.HolderOf('T'), std::nullopt);
  EXPECT_EQ(manager.Remembered('T'), "one");
  manager.Arrive(VolumeOf("other"), true);
  manager.Arrive(VolumeOf("one"), false);
  EXPECT_EQ(manager.LettersOf("one"), std::vector<char>{'T'});
  EXPECT_EQ(manager.LettersOf("other"), std::vector<char>{'C'});
}

TEST(MountManager, ALetterTakenMeanwhileIsForgotten) {
  MountManager manager;
  manager.Arrive(VolumeOf("one"), true);
  manager.Leave(VolumeOf("one"));
  manager.Arrive(VolumeOf("two"), true);
  EXPECT_EQ(manager.Remembered('C'), "two");
  manager.Leave(VolumeOf("two"));
  manager.Arrive(VolumeOf("one"), false);
  EXPECT_TRUE(manager.LettersOf("one").empty());
}

TEST(MountManager, RefusesALetterInUseAndASecondLetter) {
  MountManager manager;
  manager.MapFolder('X', "folder");
  manager.Arrive(VolumeOf("one"), true);
  EXPECT_EQ(manager.Assign('X', VolumeOf("two")), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(manager.Assign('C', VolumeOf("two")), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(manager.Assign('E', VolumeOf("one")), ERROR_INVALID_PARAMETER);
}

TEST(MountManager, ARemovedLetterIsForgotten) {
  MountManager manager;
  manager.Arrive(VolumeOf("one"), true);
  EXPECT_EQ(manager.Remove('c'), ERROR_SUCCESS);
  EXPECT_EQ(manager.Remove('C'), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(manager.Remembered('C'), std::nullopt);
}

TEST(MountManager, AFolderIsNoMountPoint) {
  MountManager manager;
  manager.MapFolder('X', "folder");
  EXPECT_EQ(manager.Remove('X'), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(manager.Mask(), Bit('X'));
}

TEST(MountManager, AFolderTakesItsLetterFromAVolume) {
  MountManager manager;
  manager.Arrive(VolumeOf("one"), true);
  manager.MapFolder('c', "folder");
  EXPECT_EQ(manager.HolderOf('C'), std::nullopt);
  EXPECT_EQ(manager.mapped_folders().count('C'), 1u);
}

}  // namespace
}  // namespace simulator
