// The board's "memoryMap" member: how descriptors are written, what the
// emulated GetMemoryMap serves from them, and the errors for bad ones.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/firmware.h"

namespace {

using qor::emu::Board;
using qor::emu::BoardError;
using qor::emu::ParseBoard;

std::string ErrorOf(const std::string &Json) {
  try {
    ParseBoard(Json);
  } catch (const BoardError &Error) {
    return Error.what();
  }
  return "";
}

TEST(BoardMemoryMap, ReadsTypesByNameOrNumberAndKeepsTheBuiltInSizeUnlessGiven) {
  Board Parsed = ParseBoard(R"({"memoryMap": {"descriptors": [
      {"type": "EfiMemoryMappedIOPortSpace", "start": "0xFFFF0000", "pages": 1, "attribute": "0x8000000000000001"},
      {"type": "0x70000001", "start": 0, "pages": "0x10"},
      {"type": 7, "start": "0x1_0000_0000", "pages": 2}]}})");
  ASSERT_EQ(Parsed.MemoryMap.Descriptors.size(), 3u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[0].Type, 12u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[0].Attribute, 0x8000000000000001ULL);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[1].Type, 0x70000001u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[1].Attribute, 0u);
  EXPECT_EQ(Parsed.MemoryMap.Descriptors[2].Start, 0x100000000ULL);
  EXPECT_EQ(Parsed.MemoryMap.DescriptorSize, 48u);

  Board Resized = ParseBoard(R"({"memoryMap": {"descriptorSize": 64}})");
  EXPECT_EQ(Resized.MemoryMap.DescriptorSize, 64u);
  EXPECT_EQ(Resized.MemoryMap.Descriptors.size(), qor::emu::BuiltInBoard().MemoryMap.Descriptors.size());
}

TEST(BoardMemoryMap, RejectsDescriptorsNoFirmwareWouldReport) {
  auto One = [](const std::string &Descriptor) {
    return ErrorOf(R"({"memoryMap": {"descriptors": [)" + Descriptor + "]}}");
  };
  EXPECT_NE(ErrorOf(R"({"memoryMap": {"descriptorSize": 44}})").find("board.memoryMap.descriptorSize"),
            std::string::npos);
  EXPECT_NE(ErrorOf(R"({"memoryMap": {"descriptorSize": 32}})").find("at least 40"), std::string::npos);
  EXPECT_NE(One(R"({"type": "Conventional", "start": 0, "pages": 1})").find("EfiConventionalMemory"),
            std::string::npos);
  EXPECT_NE(One(R"({"type": 7, "start": "0x1800", "pages": 1})").find("board.memoryMap.descriptors[0].start"),
            std::string::npos);
  EXPECT_NE(One(R"({"type": 7, "start": 0, "pages": 0})").find("at least 1 page"), std::string::npos);
  EXPECT_NE(One(R"({"type": 7, "start": "0xFFFFFFFFFFFFF000", "pages": 2})").find("below 2^64"), std::string::npos);
  EXPECT_EQ(One(R"({"type": 7, "start": "0xFFFFFFFFFFFFF000", "pages": 1})"), "");
  EXPECT_NE(One(R"({"type": 7, "start": 0, "pages": 1, "size": 4096})").find("unknown member"), std::string::npos);
}

TEST(EmulatedGetMemoryMap, ReportsTheNeededSizeThenTheMapAtTheBoardsDescriptorSize) {
  qor::emu::Firmware Fw;
  EFI_MEMORY_DESCRIPTOR First{7, 0x1000, 0, 1, 0xF};
  EFI_MEMORY_DESCRIPTOR Second{4, 0x2000, 0, 2, 0xF};
  Fw.SetMemoryMap({First, Second}, 56, 1);
  UINTN Size = 0, Key = 0, DescriptorSize = 0;
  UINT32 Version = 0;
  EXPECT_EQ(Fw.GetMemoryMap(&Size, nullptr, &Key, &DescriptorSize, &Version), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(Size, 112u);
  EXPECT_EQ(DescriptorSize, 56u);
  std::vector<uint8_t> Buffer(Size + 8, 0xEE);
  EXPECT_EQ(Fw.GetMemoryMap(&Size, reinterpret_cast<EFI_MEMORY_DESCRIPTOR *>(Buffer.data()), &Key, &DescriptorSize,
                            &Version),
            EFI_SUCCESS);
  EXPECT_EQ(Size, 112u);
  EXPECT_EQ(Version, 1u);
  EFI_MEMORY_DESCRIPTOR Read;
  std::memcpy(&Read, Buffer.data() + 56, sizeof(Read));
  EXPECT_EQ(Read.Type, 4u);
  EXPECT_EQ(Read.PhysicalStart, 0x2000u);
  EXPECT_EQ(Read.NumberOfPages, 2u);
}

}  // namespace
