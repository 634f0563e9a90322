// The MemoryMap section filler on the emulated GetMemoryMap (and, for
// firmware behaviour a board cannot describe, on a stand-in GetMemoryMap):
// list names versus summary names, what counts in the total, the walk by the
// firmware's descriptor size, the single retry, failures, and the copy rule.
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/section_fillers.h"
#include "driver_fixture.h"
#include "platform/uefi_lib.h"

namespace {

constexpr uint64_t kSectionSize = 0x80000;

const char *const kSummaryKeys[] = {
    "Reserved",       "LoaderCode",        "LoaderData",    "BootServiceCode", "BootServiceData",
    "RuntimeCode",    "RuntimeData",       "ACPIReclaimMemory", "ACPIMemoryNVS", "MemoryMappedIO",
    "MemoryMappedIOPort", "PalCode",       "Available",     "Persistent",      "TotalMemory",
};

struct Descriptor {
  uint32_t Type;
  uint64_t Start;
  uint64_t Pages;
  uint64_t Attribute;
};

std::string Hex(uint64_t Value) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%llx", static_cast<unsigned long long>(Value));
  return Text;
}

std::string MapBoard(const std::vector<Descriptor> &Map, uint64_t DescriptorSize = 48) {
  std::string Json = "{\"memoryMap\": {\"descriptorSize\": " + std::to_string(DescriptorSize) + ", \"descriptors\": [";
  for (size_t I = 0; I < Map.size(); I++) {
    Json += (I ? "," : "") + std::string("{\"type\": ") + std::to_string(Map[I].Type) + ", \"start\": \"" +
            Hex(Map[I].Start) + "\", \"pages\": " + std::to_string(Map[I].Pages) + ", \"attribute\": \"" +
            Hex(Map[I].Attribute) + "\"}";
  }
  return Json + "]}}";
}

// A stand-in GetMemoryMap: serves First on the first call and Later after it
// (as firmware whose map changes with the caller's own allocation), at any
// descriptor size, with padding bytes that must not be read as descriptors.
struct FakeMemoryMap {
  std::vector<Descriptor> First;
  std::vector<Descriptor> Later;
  UINTN DescriptorSize = 48;
  EFI_STATUS Status = EFI_SUCCESS;
  struct Call {
    UINTN MapSize;
    bool HasBuffer;
  };
  std::vector<Call> Calls;
};
FakeMemoryMap gFake;

EFI_STATUS EFIAPI FakeGetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey,
                                   UINTN *DescriptorSize, UINT32 *DescriptorVersion) {
  gFake.Calls.push_back({*MapSize, Map != nullptr});
  if (gFake.Status != EFI_SUCCESS) return gFake.Status;
  const auto &Current = gFake.Calls.size() == 1 ? gFake.First : gFake.Later;
  UINTN Needed = Current.size() * gFake.DescriptorSize;
  *DescriptorSize = gFake.DescriptorSize;
  *DescriptorVersion = 1;
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
  *MapSize = Needed;
  *MapKey = 7;
  return EFI_SUCCESS;
}

class MemoryMapSection : public DriverOnEmulator {
 protected:
  void UseFakeMemoryMap() {
    gFake = FakeMemoryMap();
    Fw->BootServices()->GetMemoryMap = FakeGetMemoryMap;
  }

  // Runs the filler into a fresh section; the document, or a null value when
  // the buffer was left empty.
  rapidjson::Document Fill(uint64_t MaxSize = kSectionSize) {
    Section = std::make_unique<LocalSection>("MemoryMap", MaxSize, QorSectionMemoryMap);
    QorFillMemoryMap(&Section->Record);
    rapidjson::Document Doc;
    if (Section->Text().empty()) return Doc;
    EXPECT_FALSE(Doc.Parse(Section->Text().c_str()).HasParseError()) << Section->Text();
    EXPECT_EQ(Section->Record.Length, Section->Text().size());
    return Doc;
  }

  static std::vector<std::string> Keys(const rapidjson::Value &Object) {
    std::vector<std::string> Out;
    for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Out.push_back(It->name.GetString());
    return Out;
  }
  static std::vector<std::string> ListedTypes(const rapidjson::Document &Doc) {
    std::vector<std::string> Out;
    for (const auto &Entry : Doc["MemoryMap"].GetArray()) Out.push_back(Entry["Type"].GetString());
    return Out;
  }
  static std::string Summary(const rapidjson::Document &Doc, const char *Key) {
    return Doc["Summary"][Key].GetString();
  }

  uint64_t PoolRequests() {
    const auto &Counters = Fw->GetPool().Counters();
    return Counters.Allocations + Counters.FailedAllocations;
  }
  void FailAllocationFromNow(uint64_t N) { Fw->GetPool().FailAllocation(PoolRequests() + N); }
  uint64_t Live() { return Fw->GetPool().LiveAllocationCount(); }

  std::unique_ptr<LocalSection> Section;
};

TEST_F(MemoryMapSection, ListNamesSummaryKeysAndTheTotalFollowTheirOwnTables) {
  // type, start, pages, attribute
  Start(BoardFrom(MapBoard({
      {7, 0x100000, 0x100, 0xF},
      {12, 0x200000, 0x10, 0x8000000000000001},
      {8, 0x300000, 0x20, 0},
      {15, 0x400000, 0x40, 0xF},          // not listed, in the total
      {0x70000000, 0x500000, 0x80, 0xF},  // OEM type: same
      {11, 0x600000, 0x4, 0x1},
      {14, 0x700000, 0x2, 0xF},
      {0, 0x800000, 0x1, 0},
  })));
  rapidjson::Document Doc = Fill();
  ASSERT_TRUE(Doc.IsObject());
  EXPECT_EQ(Keys(Doc), (std::vector<std::string>{"Count", "MemoryMap", "Summary"}));
  EXPECT_EQ(Doc["Count"].GetUint(), 6u);
  EXPECT_EQ(ListedTypes(Doc), (std::vector<std::string>{"Available", "MemoryMappedIOPortSpace", "UnusableMemory",
                                                         "MemoryMappedIO", "Persistent", "Reserved"}));

  const rapidjson::Value &PortSpace = Doc["MemoryMap"][1];
  EXPECT_EQ(Keys(PortSpace), (std::vector<std::string>{"StartAddress", "EndAddress", "Type", "Pages", "Attritudes"}));
  EXPECT_STREQ(PortSpace["StartAddress"].GetString(), "0x200000");
  EXPECT_STREQ(PortSpace["EndAddress"].GetString(), "0x20ffff");
  EXPECT_STREQ(PortSpace["Pages"].GetString(), "0x10");
  EXPECT_STREQ(PortSpace["Attritudes"].GetString(), "0x8000000000000001");

  EXPECT_EQ(Keys(Doc["Summary"]), std::vector<std::string>(std::begin(kSummaryKeys), std::end(kSummaryKeys)));
  EXPECT_EQ(Summary(Doc, "Available"), "0x100000");
  EXPECT_EQ(Summary(Doc, "MemoryMappedIOPort"), "0x10000");
  EXPECT_EQ(Summary(Doc, "MemoryMappedIO"), "0x4000");
  EXPECT_EQ(Summary(Doc, "Persistent"), "0x2000");
  EXPECT_EQ(Summary(Doc, "Reserved"), "0x1000");
  EXPECT_EQ(Summary(Doc, "LoaderCode"), "0x0");
  // Available + type 15 + OEM + Persistent; not Unusable, MMIO, port space
  // or Reserved.
  EXPECT_EQ(Summary(Doc, "TotalMemory"), Hex((0x100 + 0x40 + 0x80 + 0x2) * 0x1000ULL));
  EXPECT_EQ(Log().find("Add new item to list"), std::string::npos);  // verbose level is masked
}

TEST_F(MemoryMapSection, WalksByTheFirmwaresDescriptorSize) {
  const std::vector<Descriptor> Map = {{4, 0x1000, 1, 0xF}, {3, 0x2000, 2, 0xF}, {7, 0x10000, 0x10, 0xF}};
  Start(BoardFrom(MapBoard(Map, 48)));
  const std::string Reference = Fill().IsObject() ? Section->Text() : "";
  ASSERT_NE(Reference.find("BootServiceCode"), std::string::npos);
  for (uint64_t Size : {40, 56, 4096}) {
    Start(BoardFrom(MapBoard(Map, Size)));
    Fill();
    EXPECT_EQ(Section->Text(), Reference) << "descriptor size " << Size;
  }
  // A size that leaves descriptors unaligned, with filled padding.
  Start();
  UseFakeMemoryMap();
  gFake.First = gFake.Later = Map;
  gFake.DescriptorSize = 44;
  Fill();
  EXPECT_EQ(Section->Text(), Reference);
}

TEST_F(MemoryMapSection, RetriesOnceWith1024ExtraBytesAndReadsTheGrownMap) {
  Start();
  UseFakeMemoryMap();
  gFake.First = {{7, 0x1000, 1, 0xF}, {7, 0x3000, 1, 0xF}};
  gFake.Later = {{7, 0x1000, 1, 0xF}, {4, 0x2000, 1, 0xF}, {7, 0x3000, 1, 0xF}};
  rapidjson::Document Doc = Fill();
  ASSERT_EQ(gFake.Calls.size(), 2u);
  EXPECT_EQ(gFake.Calls[0].MapSize, 0u);
  EXPECT_FALSE(gFake.Calls[0].HasBuffer);
  EXPECT_EQ(gFake.Calls[1].MapSize, 2 * 48 + 1024u);
  EXPECT_TRUE(gFake.Calls[1].HasBuffer);
  EXPECT_EQ(Doc["Count"].GetUint(), 3u);
  EXPECT_EQ(ListedTypes(Doc), (std::vector<std::string>{"Available", "BootServiceData", "Available"}));
}

TEST_F(MemoryMapSection, FailedSnapshotListsNothingAndKeepsTheLastTotals) {
  Start(BoardFrom(MapBoard({{7, 0x100000, 0x100, 0xF}, {9, 0x200000, 0x3, 0xF}})));
  rapidjson::Document Good = Fill();
  ASSERT_EQ(Summary(Good, "TotalMemory"), Hex(0x103 * 0x1000ULL));

  UseFakeMemoryMap();
  gFake.Status = EFI_DEVICE_ERROR;
  rapidjson::Document Failed = Fill();
  EXPECT_EQ(Failed["Count"].GetUint(), 0u);
  EXPECT_TRUE(Failed["MemoryMap"].GetArray().Empty());
  for (const char *Key : kSummaryKeys) EXPECT_EQ(Summary(Failed, Key), Summary(Good, Key)) << Key;
  EXPECT_NE(Log().find("QorCollectMemMap: GetMemoryMap failed Device Error.\n"), std::string::npos);

  // A map that claims descriptors smaller than the structure is not read.
  gFake = FakeMemoryMap();
  gFake.First = gFake.Later = {{7, 0x1000, 1, 0xF}};
  gFake.DescriptorSize = 32;
  EXPECT_EQ(Fill()["Count"].GetUint(), 0u);

  // No pool for the snapshot: the retry goes out without a buffer and fails.
  Start(BoardFrom(MapBoard({{7, 0x100000, 0x100, 0xF}})));
  FailAllocationFromNow(1);
  EXPECT_EQ(Fill()["Count"].GetUint(), 0u);
  EXPECT_NE(Log().find("QorCollectMemMap: GetMemoryMap failed Invalid Parameter.\n"), std::string::npos);
}

TEST_F(MemoryMapSection, AFailedAppendDropsTheItemButCountsItsPages) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}, {3, 0x4000, 4, 0xF}})));
  FailAllocationFromNow(3);  // 1: snapshot, 2: first item, 3: second item
  rapidjson::Document Doc = Fill();
  EXPECT_EQ(Doc["Count"].GetUint(), 2u);
  EXPECT_EQ(ListedTypes(Doc), (std::vector<std::string>{"Available", "BootServiceCode"}));
  EXPECT_EQ(Summary(Doc, "BootServiceData"), "0x2000");
  EXPECT_EQ(Summary(Doc, "TotalMemory"), "0x7000");
  EXPECT_NE(Log().find("QorAddMemMapItemToList: Failed to allocate memory for new memory map info.\n"),
            std::string::npos);
}

TEST_F(MemoryMapSection, CopiesOnlyADocumentShorterThanTheSection) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}})));
  Fill();
  const std::string Document = Section->Text();
  ASSERT_FALSE(Document.empty());

  Fill(Document.size());
  EXPECT_EQ(Section->Text(), "");
  EXPECT_EQ(Section->Record.Length, 0u);
  EXPECT_NE(Log().find("does not fit the section"), std::string::npos);

  Fill(Document.size() + 1);
  EXPECT_EQ(Section->Text(), Document);
  EXPECT_EQ(Section->Record.Length, Document.size());
}

TEST_F(MemoryMapSection, KeepsOnlyTheSnapshotAndNeverUploadsAPartialDocument) {
  Start(BoardFrom(MapBoard({{7, 0x1000, 1, 0xF}, {4, 0x2000, 2, 0xF}, {11, 0xFE000000, 1, 0x1}})));
  uint64_t Before = Live();
  const uint64_t First = PoolRequests();
  Fill();
  const std::string Complete = Section->Text();
  const uint64_t Requests = PoolRequests() - First;
  EXPECT_EQ(Live() - Before, 1u);  // the snapshot buffer stays with the firmware

  // Whichever allocation fails, the section holds a complete valid document
  // (maybe with fewer entries) or nothing at all; nothing else is left held.
  for (uint64_t K = 1; K <= Requests; K++) {
    Before = Live();
    FailAllocationFromNow(K);
    rapidjson::Document Doc = Fill();
    EXPECT_LE(Live() - Before, 1u) << "allocation " << K;
    if (!Doc.IsObject()) continue;
    EXPECT_EQ(Keys(Doc["Summary"]).size(), 15u) << "allocation " << K;
    EXPECT_EQ(Doc["Count"].GetUint(), Doc["MemoryMap"].GetArray().Size()) << "allocation " << K;
  }
}

}  // namespace
