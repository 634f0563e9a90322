// The board's "memoryMap" member: how descriptors are written and the
// errors for ones no firmware would report.
#include <gtest/gtest.h>

#include <string>

#include "emulator/board.h"

namespace {

TEST(BoardMemoryMap, ReadsTypesByNameOrNumberAndKeepsTheBuiltInListUnlessGiven) {
  qor::emu::Board Parsed = qor::emu::ParseBoard(R"({"memoryMap": {"descriptors": [
      {"type": "EfiMemoryMappedIOPortSpace", "start": "0xFFFF0000", "pages": 1, "attribute": "0x8000000000000001"},
      {"type": "0x70000001", "start": 0, "pages": "0x10"}]}})");
  ASSERT_EQ(Parsed.MemoryMap.Descriptors.size(), 2u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[0].Type, 12u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[1].Type, 0x70000001u);
  EXPECT_EQ(Parsed.MemoryMap.DescriptorSize, 48u);
  qor::emu::Board Resized = qor::emu::ParseBoard(R"({"memoryMap": {"descriptorSize": 64}})");
  EXPECT_EQ(Resized.MemoryMap.Descriptors.size(), qor::emu::BuiltInBoard().MemoryMap.Descriptors.size());
}

TEST(BoardMemoryMap, RejectsDescriptorsNoFirmwareWouldReport) {
  const std::pair<const char *, const char *> Cases[] = {
      {R"("descriptorSize": 44)", "board.memoryMap.descriptorSize: expected a descriptor size of at least 40"},
      {R"("descriptors": [{"type": "Conventional", "start": 0, "pages": 1}])", "EfiConventionalMemory"},
      {R"("descriptors": [{"type": 7, "start": "0x1800", "pages": 1}])", "descriptors[0].start: expected a start"},
      {R"("descriptors": [{"type": 7, "start": 0, "pages": 0}])", "at least 1 page"},
      {R"("descriptors": [{"type": 7, "start": "0xFFFFFFFFFFFFF000", "pages": 2}])", "below 2^64"},
  };
  for (auto [Member, Message] : Cases) {
    std::string Error;
    try {
      qor::emu::ParseBoard(std::string(R"({"memoryMap": {)") + Member + "}}");
    } catch (const qor::emu::BoardError &Thrown) {
      Error = Thrown.what();
    }
    EXPECT_NE(Error.find(Message), std::string::npos) << Member << " gave: " << Error;
  }
}

}  // namespace
