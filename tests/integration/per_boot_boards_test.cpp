// Boards that change between boots ("boots"): which overlay describes which
// boot, how an overlay lies over the board, and what a per-boot overlay may
// not hold.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"

namespace {

std::string ErrorOf(const std::string &Json) {
  try {
    qor::emu::ParseBoard(Json);
  } catch (const qor::emu::BoardError &Error) {
    return Error.what();
  }
  return "<accepted>";
}

uint64_t CustomerIdOf(const qor::emu::Board &Board) {
  for (const auto &[Key, Value] : Board.PcdsEx) {
    if (Key.Token == 2) return Value;
  }
  return 0;
}

}  // namespace

TEST(PerBootBoards, EachOverlayHoldsForItsRepeatedBootsAndTheLastForEveryLaterOne) {
  qor::emu::Board Board = qor::emu::ParseBoard(R"({"name": "run", "boots": [
    {"name": "A", "repeat": 2}, {"name": "B"}, {"name": "C", "repeat": 3}, {"name": "D", "repeat": 2}]})");
  const char *Expected[] = {"A", "A", "B", "C", "C", "C", "D", "D", "D", "D"};
  for (int Boot = 1; Boot <= 10; Boot++) {
    EXPECT_EQ(qor::emu::BoardForBoot(Board, Boot).Name, Expected[Boot - 1]) << "boot " << Boot;
  }
  EXPECT_EQ(qor::emu::BoardForBoot(Board, 1000000).Name, "D");
  EXPECT_EQ(qor::emu::BoardForBoot(Board, 0).Name, "run") << "no boot number: the board itself";
}

TEST(PerBootBoards, AnOverlayMergesObjectsAndReplacesArraysOfTheBoardItLiesOver) {
  qor::emu::Board Board = qor::emu::ParseBoard(R"({
    "pcd": {"customerId": 3, "tokens": {"40": 1}},
    "variables": [{"name": "JdNicSlot", "data": "05"}],
    "boots": [{}, {"pcd": {"tokens": {"40": 2}}, "variables": []}]})");
  const qor::emu::Board &First = qor::emu::BoardForBoot(Board, 1);
  const qor::emu::Board &Second = qor::emu::BoardForBoot(Board, 2);
  EXPECT_EQ(First.Pcds.at(40).Number, 1u);
  EXPECT_EQ(Second.Pcds.at(40).Number, 2u);
  EXPECT_EQ(CustomerIdOf(Second), 3u) << "the CustomerId stays: objects merge";
  EXPECT_EQ(Second.Pcds.at(22).Number, 2u) << "and so do the built-in board's tokens";
  ASSERT_EQ(First.Variables.size(), 2u) << "JdNicSlot and the Setup variable of the built-in TPM";
  EXPECT_EQ(Second.Variables.size(), 1u) << "the list was replaced; only Setup is added again";
}

TEST(PerBootBoards, RefusesWhatCannotDescribeOneBoot) {
  EXPECT_NE(ErrorOf(R"({"boots": []})").find("board.boots: expected a list of at least one per-boot overlay"),
            std::string::npos);
  EXPECT_NE(ErrorOf(R"({"boots": [{}, 3]})").find("board.boots[1]: expected an object laid over the board"),
            std::string::npos);
  EXPECT_NE(ErrorOf(R"({"boots": [{"base": "empty"}]})").find("a member of the board itself, not of one boot"),
            std::string::npos);
  EXPECT_NE(ErrorOf(R"({"boots": [{"repeat": 0}]})").find("a number of boots from 1 to 1000000"), std::string::npos);
  EXPECT_NE(ErrorOf(R"({"boots": [{"repeat": 1000001}]})").find("repeat"), std::string::npos);
  EXPECT_NE(ErrorOf(R"({"boots": [{"pcd": {"customerId": 300}}]})").find("board.boots[0].pcd.customerId"),
            std::string::npos)
      << "a boot's member is checked with its path";
  EXPECT_NE(ErrorOf(R"({"repeat": 2})").find("unknown member"), std::string::npos)
      << "\"repeat\" belongs to a per-boot overlay only";
}
