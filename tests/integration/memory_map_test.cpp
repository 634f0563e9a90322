// The MemoryMap section as the BMC receives it from a boot of the built-in
// board; every expectation is recomputed here from the board's descriptors
// with the list-name and summary tables written out afresh.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <iterator>
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

// The section of a boot on the built-in board with Overlay laid over it.
rapidjson::Document MemoryMapSection(const std::string &Overlay, qor::emu::BootResult *Result) {
  *Result = qor::emu::RunBoot(qor::emu::ParseBoard(Overlay));
  rapidjson::Document Doc;
  const qor::emu::Upload *Upload = Result->FindUpload("push_BiosBeforeBoot.json");
  if (Upload == nullptr) {
    ADD_FAILURE() << "no inventory document";
    return Doc;
  }
  Doc.Parse(std::string(Upload->Bytes.begin(), Upload->Bytes.end()).c_str());
  EXPECT_FALSE(Doc.HasParseError());
  rapidjson::Document Section;
  Section.CopyFrom(Doc["MemoryMap"], Section.GetAllocator());
  return Section;
}

// One descriptor of every listed type t with 2^t pages, then type 15 and an
// OEM type: TotalMemory's bits name exactly the types it counts.
TEST(MemoryMapUpload, EveryTypeHasItsListNameItsSummaryKeyAndItsPlaceInTheTotal) {
  std::string Descriptors;
  const uint32_t Types[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0x80000000};
  for (size_t I = 0; I < std::size(Types); I++) {
    Descriptors += std::string(I ? "," : "") + R"({"type": )" + std::to_string(Types[I]) + R"(, "start": ")" +
                   Hex(0x100000000ULL * (I + 1)) + R"(", "pages": )" + std::to_string(1ULL << I) + "}";
  }
  qor::emu::BootResult Result;
  rapidjson::Document Section =
      MemoryMapSection(R"({"memoryMap": {"descriptors": [)" + Descriptors + "]}}", &Result);
  ASSERT_TRUE(Section.IsObject() && Section.HasMember("MemoryMap"));
  const auto &Entries = Section["MemoryMap"];
  ASSERT_EQ(Entries.Size(), 15u);
  for (uint32_t Type = 0; Type < 15; Type++) {
    EXPECT_STREQ(Entries[Type]["Type"].GetString(), kListName[Type]) << Type;
    EXPECT_EQ(Entries[Type]["Pages"].GetString(), Hex(1ULL << Type)) << Type;
  }
  for (const auto &[Key, Type] : kSummary) {
    EXPECT_EQ(Section["Summary"][Key].GetString(), Hex((1ULL << Type) * 4096)) << Key;
  }
  // Not counted: reserved (0), unusable (8), MMIO (11), MMIO port space (12).
  const uint64_t CountedPages = 0x1FFFF & ~((1ULL << 0) | (1ULL << 8) | (1ULL << 11) | (1ULL << 12));
  EXPECT_EQ(Section["Summary"]["TotalMemory"].GetString(), Hex(CountedPages * 4096));
}

// The snapshot sizes the map, allocates the size plus 1024 bytes and reads
// once more; a map that grew by more than those 1024 bytes in between is
// not read, and not asked for again.
TEST(MemoryMapUpload, AMapThatGrowsBetweenTheTwoCallsIsReadWithin1024BytesOfGrowth) {
  const std::string Map = R"({"memoryMap": {"descriptors": [{"type": 7, "start": "0x100000", "pages": 256}]},)";
  qor::emu::BootResult Result;
  // 21 descriptors of 48 bytes: 1008 bytes of growth.
  rapidjson::Document Grown = MemoryMapSection(Map + R"("faults": {"memoryMapGrowth": 21}})", &Result);
  EXPECT_EQ(Result.ServiceCalls["GetMemoryMap"], 2u);
  ASSERT_TRUE(Grown.IsObject() && Grown.HasMember("Count"));
  EXPECT_EQ(Grown["Count"].GetUint(), 22u);
  EXPECT_STREQ(Grown["MemoryMap"][21]["Type"].GetString(), "BootServiceData");
  EXPECT_EQ(Grown["Summary"]["BootServiceData"].GetString(), Hex(21 * 4096));

  // 22 descriptors: 1056 bytes. The section still goes out, empty of entries.
  rapidjson::Document TooGrown = MemoryMapSection(Map + R"("faults": {"memoryMapGrowth": 22}})", &Result);
  EXPECT_EQ(Result.ServiceCalls["GetMemoryMap"], 2u);
  ASSERT_TRUE(TooGrown.IsObject() && TooGrown.HasMember("Count"));
  EXPECT_EQ(TooGrown["Count"].GetUint(), 0u);
  EXPECT_TRUE(TooGrown["MemoryMap"].Empty());
  for (const auto &Member : TooGrown["Summary"].GetObject()) EXPECT_STREQ(Member.value.GetString(), "0x0");
  bool Logged = false;
  for (const auto &Line : Result.DebugLines) {
    Logged |= Line.Text == "QorCollectMemMap: GetMemoryMap failed Buffer Too Small.\n" && Line.Level == 0x80000000u;
  }
  EXPECT_TRUE(Logged) << Result.DebugLog;
}

}  // namespace
