// The MemoryMap section as the BMC receives it from a boot of the built-in
// board; every expectation is recomputed here from the board's descriptors
// with the list-name and summary tables written out afresh.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "emulator/boot.h"

namespace {

const char *const kListName[] = {  // memory types 0..14; higher types are not listed
    "Reserved",    "LoaderCode",        "LoaderData",    "BootServiceCode", "BootServiceData",
    "RuntimeCode", "RuntimeData",       "Available",     "UnusableMemory",  "ACPIReclaimMemory",
    "ACPIMemoryNVS", "MemoryMappedIO",  "MemoryMappedIOPortSpace", "PalCode", "Persistent"};

const std::pair<const char *, uint32_t> kSummary[] = {  // key, type summed
    {"Reserved", 0},        {"LoaderCode", 1},      {"LoaderData", 2},       {"BootServiceCode", 3},
    {"BootServiceData", 4}, {"RuntimeCode", 5},     {"RuntimeData", 6},      {"ACPIReclaimMemory", 9},
    {"ACPIMemoryNVS", 10},  {"MemoryMappedIO", 11}, {"MemoryMappedIOPort", 12}, {"PalCode", 13},
    {"Available", 7},       {"Persistent", 14}};

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
  const qor::emu::BootResult Result = qor::emu::RunBoot(Board);
  const qor::emu::Upload *Upload = Result.FindUpload("push_BiosBeforeBoot.json");
  ASSERT_NE(Upload, nullptr);
  rapidjson::Document Doc;
  ASSERT_FALSE(Doc.Parse(std::string(Upload->Bytes.begin(), Upload->Bytes.end()).c_str()).HasParseError());
  ASSERT_TRUE(Doc.HasMember("MemoryMap") && Doc["MemoryMap"].IsObject());
  const rapidjson::Value &Section = Doc["MemoryMap"];
  EXPECT_EQ(Keys(Section), (std::vector<std::string>{"Count", "MemoryMap", "Summary"}));

  std::map<uint32_t, uint64_t> Bytes;
  uint64_t Total = 0;
  size_t Entry = 0;
  const auto &Entries = Section["MemoryMap"];
  ASSERT_GE(Board.MemoryMap.Descriptors.size(), 24u);
  for (const auto &Descriptor : Board.MemoryMap.Descriptors) {
    const uint64_t Size = Descriptor.Pages * 4096;
    if (Descriptor.Type != 0 && Descriptor.Type != 8 && Descriptor.Type != 11 && Descriptor.Type != 12) Total += Size;
    if (Descriptor.Type > 14) continue;
    Bytes[Descriptor.Type] += Size;
    ASSERT_LT(Entry, Entries.Size());
    const auto &Listed = Entries[static_cast<rapidjson::SizeType>(Entry++)];
    ASSERT_EQ(Keys(Listed), (std::vector<std::string>{"StartAddress", "EndAddress", "Type", "Pages", "Attritudes"}));
    EXPECT_EQ(Listed["StartAddress"].GetString(), Hex(Descriptor.Start)) << Entry;
    EXPECT_EQ(Listed["EndAddress"].GetString(), Hex(Descriptor.Start + Size - 1)) << Entry;
    EXPECT_STREQ(Listed["Type"].GetString(), kListName[Descriptor.Type]) << Entry;
    EXPECT_EQ(Listed["Pages"].GetString(), Hex(Descriptor.Pages)) << Entry;
    EXPECT_EQ(Listed["Attritudes"].GetString(), Hex(Descriptor.Attribute)) << Entry;
  }
  EXPECT_EQ(Entries.Size(), Entry);
  EXPECT_EQ(Section["Count"].GetUint(), Entry);

  std::vector<std::string> SummaryKeys;
  for (const auto &[Key, Type] : kSummary) SummaryKeys.push_back(Key);
  SummaryKeys.push_back("TotalMemory");
  const auto &Summary = Section["Summary"];
  ASSERT_EQ(Keys(Summary), SummaryKeys);
  for (const auto &[Key, Type] : kSummary) EXPECT_EQ(Summary[Key].GetString(), Hex(Bytes[Type])) << Key;
  EXPECT_EQ(Summary["TotalMemory"].GetString(), Hex(Total));
  EXPECT_EQ(Total, 0x7FEFFA0000ULL);  // the board's 512 GiB less the reserved TSEG and legacy hole
}

}  // namespace
