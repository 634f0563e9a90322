#include <gtest/gtest.h>

#include "platform/print_lib.h"

TEST(PrintLib, Placeholder) {
  char Text[16];
  EXPECT_EQ(AsciiSPrint(Text, sizeof(Text), "%a", "x"), 1u);
}
