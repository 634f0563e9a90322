// The example boards shipped in boards/examples load and boot.
#include <gtest/gtest.h>

#include <filesystem>

#include "emulator/board.h"
#include "emulator/boot.h"

TEST(ExampleBoards, EveryExampleLoadsAndBoots) {
  int Count = 0;
  for (const auto &Entry : std::filesystem::directory_iterator(QOR_SOURCE_DIR "/boards/examples")) {
    SCOPED_TRACE(Entry.path().string());
    qor::emu::Board Board = qor::emu::LoadBoardFile(Entry.path().string());
    qor::emu::BootResult Result = qor::emu::RunBoot(Board);
    EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
    EXPECT_NE(Result.FindUpload("push_FlashInfo.json"), nullptr);
    Count++;
  }
  EXPECT_GE(Count, 3);
}
