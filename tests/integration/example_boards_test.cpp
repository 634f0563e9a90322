// The example boards shipped in boards/examples load and boot. A board
// whose policy resets the machine settles within a few boots: the boot after
// its last reset uploads.
#include <gtest/gtest.h>

#include <filesystem>

#include "emulator/board.h"
#include "emulator/boot.h"

namespace {
// The longest story of the examples: a card seen, moved and removed, each
// change a reset and a boot that uploads.
constexpr int kBootsToSettle = 6;
}  // namespace

TEST(ExampleBoards, EveryExampleLoadsBootsAndSettlesInAnUpload) {
  int Count = 0;
  for (const auto &Entry : std::filesystem::directory_iterator(QOR_SOURCE_DIR "/boards/examples")) {
    SCOPED_TRACE(Entry.path().string());
    qor::emu::Board Board = qor::emu::LoadBoardFile(Entry.path().string());
    std::vector<qor::emu::BootResult> Boots = {qor::emu::RunBoot(Board)};
    if (Boots[0].EndedInReset()) Boots = qor::emu::RunBoots(Board, kBootsToSettle);
    for (const auto &Result : Boots) EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
    EXPECT_FALSE(Boots.back().EndedInReset());
    EXPECT_NE(Boots.back().FindUpload("push_FlashInfo.json"), nullptr);
    Count++;
  }
  EXPECT_GE(Count, 3);
}
