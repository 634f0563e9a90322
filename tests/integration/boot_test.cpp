#include <gtest/gtest.h>

#include "emulator/boot.h"

TEST(Boot, Placeholder) {
  auto Result = qor::emu::RunBoot(qor::emu::BuiltInBoard());
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
}
