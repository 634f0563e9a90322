// The MemoryMap section as the BMC receives it from a boot of the built-in
// board: every expectation is recomputed here from the board's own
// descriptors, with the list-name and summary tables written out afresh.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "emulator/boot.h"

namespace {

// List name per memory type 0..14 (types above are not listed).
const char *const kListName[] = {
    "Reserved",      "LoaderCode",  "LoaderData",     "BootServiceCode",    "BootServiceData",
    "RuntimeCode",   "RuntimeData", "Available",      "UnusableMemory",     "ACPIReclaimMemory",
    "ACPIMemoryNVS", "MemoryMappedIO", "MemoryMappedIOPortSpace", "PalCode", "Persistent",
};

// Summary keys in document order with the type each sums.
const std::vector<std::pair<std::string, uint32_t>> kSummary = {
    {"Reserved", 0},       {"LoaderCode", 1},     {"LoaderData", 2},         {"BootServiceCode", 3},
    {"BootServiceData", 4}, {"RuntimeCode", 5},   {"RuntimeData", 6},        {"ACPIReclaimMemory", 9},
    {"ACPIMemoryNVS", 10}, {"MemoryMappedIO", 11}, {"MemoryMappedIOPort", 12}, {"PalCode", 13},
    {"Available", 7},      {"Persistent", 14},
};

// Not counted in TotalMemory: reserved, unusable and the two MMIO types.
bool InTotal(uint32_t Type) { return Type != 0 && Type != 8 && Type != 11 && Type != 12; }

std::string Hex(uint64_t Value) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%llx", static_cast<unsigned long long>(Value));
  return Text;
}

std::vector<std::string> Keys(const rapidjson::Value &Object) {
  std::vector<std::string> Out;
  for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Out.push_back(It->name.GetString());
  return Out;
}

TEST(MemoryMapUpload, BuiltInBoardSectionAgreesWithTheBoardsMap) {
  const qor::emu::Board Board = qor::emu::BuiltInBoard();
  const auto &Descriptors = Board.MemoryMap.Descriptors;
  ASSERT_GE(Descriptors.size(), 24u);

  qor::emu::BootResult Result = qor::emu::RunBoot(Board);
  const qor::emu::Upload *Upload = Result.FindUpload("push_BiosBeforeBoot.json");
  ASSERT_NE(Upload, nullptr);
  rapidjson::Document Doc;
  std::string Text(Upload->Bytes.begin(), Upload->Bytes.end());
  ASSERT_FALSE(Doc.Parse(Text.c_str()).HasParseError());
  ASSERT_TRUE(Doc.HasMember("MemoryMap"));
  const rapidjson::Value &Section = Doc["MemoryMap"];
  ASSERT_TRUE(Section.IsObject());
  EXPECT_EQ(Keys(Section), (std::vector<std::string>{"Count", "MemoryMap", "Summary"}));

  // Entries: the listed descriptors in map order.
  std::vector<const qor::emu::Board::MemoryDescriptor *> Listed;
  std::map<uint32_t, uint64_t> PagesByType;
  uint64_t TotalPages = 0;
  for (const auto &Descriptor : Descriptors) {
    if (Descriptor.Type <= 14) {
      Listed.push_back(&Descriptor);
      PagesByType[Descriptor.Type] += Descriptor.Pages;
    }
    if (Descriptor.Type > 14 || InTotal(Descriptor.Type)) TotalPages += Descriptor.Pages;
  }
  const auto &Entries = Section["MemoryMap"];
  ASSERT_TRUE(Section["Count"].IsUint());
  EXPECT_EQ(Section["Count"].GetUint(), Entries.Size());
  ASSERT_EQ(Entries.Size(), Listed.size());
  for (size_t I = 0; I < Listed.size(); I++) {
    const auto &Entry = Entries[static_cast<rapidjson::SizeType>(I)];
    const auto &Expected = *Listed[I];
    ASSERT_EQ(Keys(Entry), (std::vector<std::string>{"StartAddress", "EndAddress", "Type", "Pages", "Attritudes"}));
    EXPECT_EQ(Entry["StartAddress"].GetString(), Hex(Expected.Start)) << I;
    EXPECT_EQ(Entry["EndAddress"].GetString(), Hex(Expected.Start + Expected.Pages * 4096 - 1)) << I;
    EXPECT_STREQ(Entry["Type"].GetString(), kListName[Expected.Type]) << I;
    EXPECT_EQ(Entry["Pages"].GetString(), Hex(Expected.Pages)) << I;
    EXPECT_EQ(Entry["Attritudes"].GetString(), Hex(Expected.Attribute)) << I;
  }

  // Summary: fifteen keys in order, byte totals of the map.
  const auto &Summary = Section["Summary"];
  std::vector<std::string> ExpectedKeys;
  for (const auto &[Key, Type] : kSummary) ExpectedKeys.push_back(Key);
  ExpectedKeys.push_back("TotalMemory");
  ASSERT_EQ(Keys(Summary), ExpectedKeys);
  for (const auto &[Key, Type] : kSummary) {
    EXPECT_EQ(Summary[Key.c_str()].GetString(), Hex(PagesByType[Type] * 4096)) << Key;
  }
  EXPECT_EQ(Summary["TotalMemory"].GetString(), Hex(TotalPages * 4096));
  EXPECT_NE(Summary["Available"].GetString(), std::string("0x0"));
}

}  // namespace
