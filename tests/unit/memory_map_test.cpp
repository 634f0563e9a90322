// The MemoryMap filler on the emulated GetMemoryMap, and on a stand-in for
// firmware behaviour a board cannot describe (a map that grows between the
// two calls, an unaligned or too small descriptor size).
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/section_fillers.h"
#include "driver_fixture.h"

namespace {

struct Descriptor {
  uint32_t Type;
  uint64_t Start, Pages, Attribute;
};

std::string Hex(uint64_t Value) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%llx", static_cast<unsigned long long>(Value));
  return Text;
}

std::string MapBoard(const std::vector<Descriptor> &Map, uint64_t DescriptorSize = 48) {
  std::string Json = "{\"memoryMap\": {\"descriptorSize\": " + std::to_string(DescriptorSize) + ", \"descriptors\": [";
  for (const Descriptor &D : Map) {
    Json += (&D == &Map[0] ? "" : ",") + std::string("{\"type\": ") + std::to_string(D.Type) + ", \"start\": \"" +
            Hex(D.Start) + "\", \"pages\": " + std::to_string(D.Pages) + ", \"attribute\": \"" + Hex(D.Attribute) +
            "\"}";
  }
  return Json + "]}}";
}

// Serves First on the first call and Later after it, at any descriptor size,
// with padding bytes that must not be read as descriptors.
struct FakeMemoryMap {
  std::vector<Descriptor> First, Later;
  UINTN DescriptorSize = 48;
  UINTN OverstatedBy = 0;                     // a faulty firmware's MapSize beyond what it wrote
  std::vector<std::pair<UINTN, bool>> Calls;  // MapSize given, buffer given
} gFake;

EFI_STATUS EFIAPI FakeGetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey, UINTN *DescriptorSize,
                                   UINT32 *DescriptorVersion) {
  gFake.Calls.push_back({*MapSize, Map != nullptr});
  const auto &Current = gFake.Calls.size() == 1 ? gFake.First : gFake.Later;
  UINTN Needed = Current.size() * gFake.DescriptorSize;
  *DescriptorSize = gFake.DescriptorSize;
  if (*MapSize < Needed) {
    *MapSize = Needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  auto *Out = reinterpret_cast<uint8_t *>(Map);
  std::memset(Out, 0xA5, Needed);
  for (size_t I = 0; I < Current.size(); I++) {
    EFI_MEMORY_DESCRIPTOR Entry{Current[I].Type, Current[I].Start, 0, Current[I].Pages, Current[I].Attribute};
    std::memcpy(Out + I * gFake.DescriptorSize, &Entry, std::min<size_t>(sizeof(Entry), gFake.DescriptorSize));
  }
  *MapSize = Needed + gFake.OverstatedBy;
  return EFI_SUCCESS;
}

class MemoryMapSection : public DriverOnEmulator {
 protected:
  void UseFake(FakeMemoryMap Fake) {
    gFake = std::move(Fake);
    Fw->BootServices()->GetMemoryMap = FakeGetMemoryMap;
  }
  // Runs the filler into a fresh section; a null document when the buffer
  // was left empty.
  rapidjson::Document Fill(uint64_t MaxSize = 0x80000) {
    Section = std::make_unique<LocalSection>("MemoryMap", MaxSize, QorSectionMemoryMap);
    QorFillMemoryMap(&Section->Record);
    rapidjson::Document Doc;
    if (!Section->Text().empty()) EXPECT_FALSE(Doc.Parse(Section->Text().c_str()).HasParseError());
    EXPECT_EQ(Section->Record.Length, Section->Text().size());
    return Doc;
  }
  static std::vector<std::string> Keys(const rapidjson::Value &Object) {
    std::vector<std::string> Out;
    for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Out.push_back(It->name.GetString());
    return Out;
  }
  static std::vector<std::string> Listed(const rapidjson::Document &Doc) {
    std::vector<std::string> Out;
    for (const auto &Entry : Doc["MemoryMap"].GetArray()) Out.push_back(Entry["Type"].GetString());
    return Out;
  }
  uint64_t Requests() { return Fw->GetPool().Counters().Allocations + Fw->GetPool().Counters().FailedAllocations; }
  void FailAllocationFromNow(uint64_t N) { Fw->GetPool().FailAllocation(Requests() + N); }
  uint64_t Live() { return Fw->GetPool().LiveAllocationCount(); }

  std::unique_ptr<LocalSection> Section;
};

TEST_F(MemoryMapSection, ListNamesSummaryKeysAndTheTotalFollowTheirOwnTables) {
  Start(BoardFrom(MapBoard({{7, 0x100000, 0x100, 0xF},
                            {12, 0x200000, 0x10, 0x8000000000000001},
                            {8, 0x300000, 0x20, 0},
                            {15, 0x400000, 0x40, 0xF},          // not listed, in the total
                            {0x70000000, 0x500000, 0x80, 0xF},  // OEM type: the same
                            {11, 0x600000, 0x4, 0x1},
                            {14, 0x700000, 0x2, 0xF},
                            {0, 0x800000, 0x1, 0}})));
  rapidjson::Document Doc = Fill();
  ASSERT_TRUE(Doc.IsObject());
  EXPECT_EQ(Doc["Count"].GetUint(), 6u);
  EXPECT_EQ(Listed(Doc), (std::vector<std::string>{"Available", "MemoryMappedIOPortSpace", "UnusableMemory",
                                                    "MemoryMappedIO", "Persistent", "Reserved"}));
  const auto &PortSpace = Doc["MemoryMap"][1];
  EXPECT_EQ(Keys(PortSpace), (std::vector<std::string>{"StartAddress", "EndAddress", "Type", "Pages", "Attritudes"}));
  EXPECT_STREQ(PortSpace["EndAddress"].GetString(), "0x20ffff");
  EXPECT_STREQ(PortSpace["Attritudes"].GetString(), "0x8000000000000001");

  const auto &Summary = Doc["Summary"];
  EXPECT_EQ(Keys(Summary).size(), 15u);
  EXPECT_FALSE(Summary.HasMember("UnusableMemory"));
  EXPECT_STREQ(Summary["MemoryMappedIOPort"].GetString(), "0x10000");
  EXPECT_STREQ(Summary["MemoryMappedIO"].GetString(), "0x4000");
  EXPECT_STREQ(Summary["Reserved"].GetString(), "0x1000");
  // Available, type 15, OEM and Persistent; not unusable, MMIO, port space or reserved.
  EXPECT_EQ(Summary["TotalMemory"].GetString(), Hex((0x100 + 0x40 + 0x80 + 0x2) * 0x1000ULL));
  EXPECT_EQ(Log().find("Add new item to list"), std::string::npos);  // verbose level is masked
}

TEST_F(MemoryMapSection, WalksByTheFirmwaresDescriptorSize) {
  const std::vector<Descriptor> Map = {{4, 0x1000, 1, 0xF}, {3, 0x2000, 2, 0xF}, {7, 0x10000, 0x10, 0xF}};
  Start(BoardFrom(MapBoard(Map)));
  Fill();
  const std::string Reference = Section->Text();
  ASSERT_NE(Reference.find("BootServiceCode"), std::string::npos);
  Start(BoardFrom(MapBoard(Map, 4096)));
  Fill();
  EXPECT_EQ(Section->Text(), Reference);
  UseFake({Map, Map, 44});  // unaligned descriptors
  Fill();
  EXPECT_EQ(Section->Text(), Reference);
  UseFake({Map, Map, 32});  // smaller than the structure: not read
  EXPECT_EQ(Fill()["Count"].GetUint(), 0u);
}

TEST_F(MemoryMapSection, RetriesOnceWith1024ExtraBytesAndReadsTheGrownMap) {
  Start();
  UseFake({{{7, 0x1000, 1, 0xF}, {7, 0x3000, 1, 0xF}},
           {{7, 0x1000, 1, 0xF}, {4, 0x2000, 1, 0xF}, {7, 0x3000, 1, 0xF}}});
  rapidjson::Document Doc = Fill();
  using Call = std::pair<UINTN, bool>;
  EXPECT_EQ(gFake.Calls, (std::vector<Call>{{0, false}, {2 * 48 + 1024, true}}));
  EXPECT_EQ(Listed(Doc), (std::vector<std::string>{"Available", "BootServiceData", "Available"}));
}

TEST_F(MemoryMapSection, AMapSizeOverstatedByTheFirmwareIsReadOnlyAsFarAsTheBuffer) {
  // Three descriptors (144 bytes) in a buffer of 144 + 1024 bytes, but the
  // firmware says 4096 bytes more than it wrote: the walk stops where the
  // buffer ends, after 24 descriptor slots (the zero-filled slack reads as
  // empty reserved entries).
  Start();
  const std::vector<Descriptor> Map = {{7, 0x1000, 1, 0xF}, {4, 0x2000, 1, 0xF}, {7, 0x3000, 1, 0xF}};
  UseFake({Map, Map, 48, 4096});
  rapidjson::Document Doc = Fill();
  ASSERT_TRUE(Doc.IsObject());
  EXPECT_EQ(Doc["Count"].GetUint(), (144u + 1024u - 40u) / 48u + 1u);
  EXPECT_EQ(Listed(Doc)[1], "BootServiceData");
  EXPECT_EQ(Listed(Doc).back(), "Reserved");
}

TEST_F(MemoryMapSection, FailedSnapshotListsNothingAndKeepsTheLastTotals) {
  Start(BoardFrom(MapBoard({{7, 0x100000, 0x100, 0xF}, {9, 0x200000, 0x3, 0xF}})));
  Fill();
  const std::string Summary = Section->Text().substr(Section->Text().find("\"Summary\""));
  ASSERT_NE(Summary.find(Hex(0x103 * 0x1000ULL)), std::string::npos);
  // No pool for the snapshot: the retry goes out without a buffer and fails.
  FailAllocationFromNow(1);
  rapidjson::Document Doc = Fill();
  EXPECT_EQ(Doc["Count"].GetUint(), 0u);
  EXPECT_TRUE(Doc["MemoryMap"].GetArray().Empty());
  EXPECT_EQ(Section->Text().substr(Section->Text().find("\"Summary\"")), Summary);
  EXPECT_NE(Log().find("QorCollectMemMap: GetMemoryMap failed Invalid Parameter.\n"), std::string::npos);
}

TEST_F(MemoryMapSection, AFailedAppendDropsTheItemButCountsItsPages) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}, {3, 0x4000, 4, 0xF}})));
  FailAllocationFromNow(3);  // 1: snapshot, 2: first item, 3: second item
  rapidjson::Document Doc = Fill();
  EXPECT_EQ(Doc["Count"].GetUint(), 2u);
  EXPECT_EQ(Listed(Doc), (std::vector<std::string>{"Available", "BootServiceCode"}));
  EXPECT_STREQ(Doc["Summary"]["BootServiceData"].GetString(), "0x2000");
  EXPECT_STREQ(Doc["Summary"]["TotalMemory"].GetString(), "0x7000");
  EXPECT_NE(Log().find("QorAddMemMapItemToList: Failed to allocate memory for new memory map info.\n"),
            std::string::npos);
}

TEST_F(MemoryMapSection, CopiesOnlyACompleteDocumentShorterThanTheSectionAndKeepsOnlyTheSnapshot) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}, {11, 0xFE000000, 1, 0x1}})));
  uint64_t Before = Live();
  const uint64_t First = Requests();
  Fill();
  const uint64_t Needed = Requests() - First;
  EXPECT_EQ(Live() - Before, 1u);  // the snapshot buffer is never freed
  // Copied only when shorter than the section.
  const std::string Document = Section->Text();
  Fill(Document.size());
  EXPECT_EQ(Section->Text(), "");
  Fill(Document.size() + 1);
  EXPECT_EQ(Section->Text(), Document);
  // Whichever allocation fails, the section holds a valid document (maybe
  // with fewer entries) or nothing; nothing else stays held.
  for (uint64_t K = 1; K <= Needed; K++) {
    Before = Live();
    FailAllocationFromNow(K);
    rapidjson::Document Doc = Fill();
    EXPECT_LE(Live() - Before, 1u) << "allocation " << K;
    if (Doc.IsObject()) EXPECT_EQ(Doc["Count"].GetUint(), Doc["MemoryMap"].GetArray().Size()) << K;
  }
}

TEST_F(MemoryMapSection, WithoutASectionBufferSaysSoInsteadOfTooLarge) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}})));
  Fill();
  const size_t DocumentSize = Section->Text().size();
  LocalSection Unallocated("MemoryMap", 0x80000, QorSectionMemoryMap);
  Unallocated.Record.Buffer = nullptr;  // as after a failed allocation at entry
  QorFillMemoryMap(&Unallocated.Record);
  EXPECT_EQ(Unallocated.Record.Length, 0u);
  EXPECT_NE(Log().find("QorFillMemoryMap: the section has no buffer (its allocation failed), document of " +
                       std::to_string(DocumentSize) + " bytes dropped.\n"),
            std::string::npos)
      << Log();
  EXPECT_EQ(Log().find("does not fit"), std::string::npos);
}

}  // namespace
