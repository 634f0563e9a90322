// Helpers of the processor and memory sections: SMBIOS strings and fields,
// trimming, the type detail bit map, DIMM type names, the DIMM map, cache
// sizes and the accelerator scan over the root bridges.
#include <cstring>
#include <string>
#include <vector>

#include "core/section_fillers.h"
#include "driver_fixture.h"
#include "emulator/smbios_table.h"
#include "platform/memory_map_data.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

std::vector<uint8_t> RecordWithStrings(const std::vector<std::string> &Strings) {
  qor::emu::SmbiosRecordBuilder Builder(17, 0x28);
  for (const auto &Text : Strings) Builder.AddString(Text);
  return Builder.Build(0x20);
}

const EFI_SMBIOS_TABLE_HEADER *Header(const std::vector<uint8_t> &Bytes) {
  return reinterpret_cast<const EFI_SMBIOS_TABLE_HEADER *>(Bytes.data());
}

TEST(SmbiosStrings, NumbersCountFromOneAndMissingOnesGiveNone) {
  std::vector<uint8_t> Record = RecordWithStrings({"CPU0", "Qor Silicon", "QS-9432"});
  EXPECT_EQ(QorGetSmbiosString(Header(Record), 0), nullptr);
  EXPECT_STREQ(QorGetSmbiosString(Header(Record), 1), "CPU0");
  EXPECT_STREQ(QorGetSmbiosString(Header(Record), 3), "QS-9432");
  EXPECT_EQ(QorGetSmbiosString(Header(Record), 4), nullptr);
  std::vector<uint8_t> NoStrings = RecordWithStrings({});
  EXPECT_EQ(QorGetSmbiosString(Header(NoStrings), 1), nullptr);
}

TEST(SmbiosStrings, FieldsPastAShortRecordReadZero) {
  qor::emu::SmbiosRecordBuilder Builder(4, 0x1A);  // an SMBIOS 2.0 processor record
  Builder.Set16(0x16, 2100);
  std::vector<uint8_t> Record = Builder.Build(1);
  EXPECT_EQ(QorSmbiosRead16(Header(Record), 0x16), 2100);
  EXPECT_EQ(QorSmbiosRead8(Header(Record), 0x23), 0);   // core count: not in a 2.0 record
  EXPECT_EQ(QorSmbiosRead16(Header(Record), 0x30), 0);  // threads enabled
}

TEST(TrimBlanks, RemovesOuterBlanksAndTabsAndKeepsInnerOnes) {
  struct {
    const char *In;
    const char *Out;
  } Cases[] = {
      {"  QM5R32G48R2-A1   ", "QM5R32G48R2-A1"}, {"\t QP 128 G\t", "QP 128 G"}, {"   \t ", ""}, {"", ""},
      {"A", "A"},
  };
  for (const auto &Case : Cases) {
    char Text[32];
    std::strcpy(Text, Case.In);
    QorTrimBlanks(Text);
    EXPECT_STREQ(Text, Case.Out) << "input \"" << Case.In << "\"";
  }
}

TEST(TypeDetail, MapsBitsInReverseSkippingBitTwoAndDoublingBitThree) {
  EXPECT_EQ(QorRemapTypeDetail(0x0004), 0);
  EXPECT_EQ(QorRemapTypeDetail(0x0008), 0x3000);
  EXPECT_EQ(QorRemapTypeDetail(0x0001), 0x8000);
  EXPECT_EQ(QorRemapTypeDetail(0x0002), 0x4000);
  EXPECT_EQ(QorRemapTypeDetail(0x0010), 0x0800);
  EXPECT_EQ(QorRemapTypeDetail(0x8000), 0x0001);
  EXPECT_EQ(QorRemapTypeDetail(0x2080), 0x0104);  // synchronous, registered
  EXPECT_EQ(QorRemapTypeDetail(0xFFFF), 0xFFFF);
}

// A memory map data block with one DIMM (socket 1, channel 2, DIMM 1) set up.
class DimmTypeName : public ::testing::Test {
 protected:
  void SetDimm(uint8_t KeyType, uint8_t ModuleType, uint32_t Nvdimm = 0, uint16_t DeviceId = 0) {
    Block.assign(QOR_MEMMAP_DATA_SIZE, 0);
    size_t Base = QOR_MEMMAP_DIMM_BASE(1, 2, 1);
    Block[Base + QOR_MEMMAP_DIMM_KEY_TYPE] = KeyType;
    Block[Base + QOR_MEMMAP_DIMM_MODULE_TYPE] = ModuleType;
    std::memcpy(&Block[Base + QOR_MEMMAP_DIMM_NVDIMM_FLAG], &Nvdimm, 4);
    std::memcpy(&Block[Base + QOR_MEMMAP_DIMM_PMEM_DEVICE_ID], &DeviceId, 2);
  }
  std::string Name() { return QorGetDimmTypeName(Block.data(), 1, 2, 1); }
  std::vector<uint8_t> Block;
};

TEST_F(DimmTypeName, NvdimmFlagComesFirstThenPersistentMemoryByDeviceId) {
  SetDimm(13, 1, 1, 0x0979);
  EXPECT_EQ(Name(), "ISNVDIMM");
  SetDimm(13, 1, 0, 0x0979);
  EXPECT_EQ(Name(), "AEP-DIMM");
  SetDimm(13, 1, 0, 0x097B);
  EXPECT_EQ(Name(), "BPS-DIMM");
  SetDimm(13, 1, 0, 0x097C);
  EXPECT_EQ(Name(), "CPS-DIMM");
  SetDimm(13, 1, 0, 0x1234);
  EXPECT_EQ(Name(), "DCPMM-DIMM");
}

TEST_F(DimmTypeName, UnknownKeyTypeIsRdimmWhateverTheModuleType) {
  SetDimm(0, 2);
  EXPECT_EQ(Name(), "RDIMM");
  SetDimm(11, 3);
  EXPECT_EQ(Name(), "RDIMM");
}

TEST_F(DimmTypeName, ModuleTypesOfDdr4AndDdr5) {
  struct {
    uint8_t Module;
    const char *Text;
  } Cases[] = {{0, "N/A"},           {1, "RDIMM"},         {2, "UDIMM"},        {3, "SODIMM"},
               {4, "LRDIMM-DDR4"},   {5, "MINI-RDIMM"},    {6, "MINI-UDIMM"},   {7, "MINI-CDIMM"},
               {8, "ECC-SO-UDIMM"},  {9, "ECC-SO-RDIMM"},  {10, "ECC-SO-CDIMM"}, {11, "LRDIMM"},
               {12, "N/A"},          {13, "NVDIMM"},       {14, "N/A"},         {17, "N/A"},
               {18, "ECC-UDIMM"},    {19, "N/A"},          {255, "N/A"}};
  for (uint8_t Key : {uint8_t{12}, uint8_t{18}}) {
    for (const auto &Case : Cases) {
      SetDimm(Key, Case.Module);
      EXPECT_EQ(Name(), Case.Text) << "key type " << int(Key) << " module type " << int(Case.Module);
    }
  }
}

class DimmMap : public DriverOnEmulator {};

TEST_F(DimmMap, DefaultTableHasSixtyFourPresentSlotsNumberedByChannelAndDimm) {
  Start(BoardFrom(R"({"hobs": {"dimmMap": null}})"));
  const QOR_DIMM_MAP_ENTRY *Map = QorGetDimmMap();
  EXPECT_NE(Log().find("No dimm map guid hob found, use default\n"), std::string::npos);
  EXPECT_EQ(QorCountPresentDimmSlots(Map), 64u);
  struct {
    int Entry, Socket, Channel, Dimm, Index, Number;
    const char *Label;
  } Rows[] = {
      {0, 0, 0, 0, 0, 1, "A1"},    {1, 0, 0, 1, 1, 9, "A9"},    {2, 0, 1, 0, 2, 2, "A2"},
      {3, 0, 1, 1, 3, 10, "A10"},  {16, 1, 0, 0, 16, 1, "B1"},  {33, 2, 0, 1, 33, 9, "A9"},
      {63, 3, 7, 1, 63, 16, "B16"},
  };
  for (const auto &Row : Rows) {
    const QOR_DIMM_MAP_ENTRY &E = Map[Row.Entry];
    EXPECT_EQ(QOR_DIMM_MAP_SOCKET(&E), Row.Socket) << Row.Entry;
    EXPECT_EQ(QOR_DIMM_MAP_CHANNEL(&E), Row.Channel) << Row.Entry;
    EXPECT_EQ(QOR_DIMM_MAP_DIMM(&E), Row.Dimm) << Row.Entry;
    EXPECT_EQ(E.SlotIndex, Row.Index) << Row.Entry;
    EXPECT_EQ(E.Slot, 0x80 | Row.Number) << Row.Entry;
    EXPECT_EQ(std::string(E.Label, strnlen(E.Label, 5)), Row.Label) << Row.Entry;
  }
  EXPECT_EQ(Map[64].SlotIndex, 0xFF);
  EXPECT_STREQ(Map[64].Label, "END");
}

TEST_F(DimmMap, FindCopiesTheWholeEntryOrReportsNotFound) {
  Start(BoardFrom(R"({"hobs": {"dimmMap": {"slots": [
      {"socket": 1, "channel": 3, "dimm": 1, "index": 40, "number": 12, "present": false, "label": "P12"}]}}})"));
  const QOR_DIMM_MAP_ENTRY *Map = QorGetDimmMap();
  EXPECT_NE(Log().find("Find dimm map guid hob\n"), std::string::npos);
  QOR_DIMM_MAP_ENTRY Entry{};
  Entry.Location = QOR_DIMM_MAP_LOCATION(1, 3, 1);
  ASSERT_EQ(QorFindDimmMapEntry(Map, &Entry), EFI_SUCCESS);
  EXPECT_EQ(Entry.SlotIndex, 40);
  EXPECT_EQ(Entry.Slot, 12);
  EXPECT_STREQ(std::string(Entry.Label, 3).c_str(), "P12");
  EXPECT_EQ(QorCountPresentDimmSlots(Map), 0u);
  Entry.Location = QOR_DIMM_MAP_LOCATION(1, 3, 0);
  EXPECT_EQ(QorFindDimmMapEntry(Map, &Entry), EFI_NOT_FOUND);
}

TEST_F(DimmMap, HobWithoutEndEntryIsReadOnlyAsFarAsItsData) {
  // Two present entries and no end entry.
  Start(BoardFrom(R"({"hobs": {"dimmMap": {"raw": "00 00 81 00 41 31 00 00 00  08 02 82 00 41 32 00 00 00"}}})"));
  EXPECT_EQ(QorCountPresentDimmSlots(QorGetDimmMap()), 2u);
}

class CacheSize : public DriverOnEmulator {};

TEST_F(CacheSize, BitFifteenSelectsSixtyFourKilobyteUnits) {
  Start(BoardFrom(R"({"smbios": {"processors": [], "caches": [
      {"handle": "0x40", "level": 2, "maximumSizeField": "0x8010"},
      {"handle": "0x41", "level": 2, "maximumSizeField": 1024},
      {"handle": "0x42", "level": 3, "maximumSizeField": "0xFFFF"}]}})"));
  UINT32 Size = 0;
  ASSERT_EQ(QorGetCacheSize(0x40, &Size), EFI_SUCCESS);
  EXPECT_EQ(Size, 1024u);
  ASSERT_EQ(QorGetCacheSize(0x41, &Size), EFI_SUCCESS);
  EXPECT_EQ(Size, 1024u);
  ASSERT_EQ(QorGetCacheSize(0x42, &Size), EFI_SUCCESS);
  EXPECT_EQ(Size, 0x7FFFu * 64);
}

TEST_F(CacheSize, UnknownHandleIsAnErrorAndLeavesTheSize) {
  Start();
  UINT32 Size = 77;
  EXPECT_EQ(QorGetCacheSize(0x1234, &Size), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Size, 77u);
  EXPECT_NE(Log().find("Failed to get cache smbios struct 4660\n"), std::string::npos);
}

class SmbiosRecords : public DriverOnEmulator {};

TEST_F(SmbiosRecords, CollectingStopsWhenTheListIsFull) {
  std::string Devices;
  for (int I = 0; I < 300; I++) Devices += std::string(I ? "," : "") + R"({"locator": "S)" + std::to_string(I) + "\"}";
  Start(BoardFrom(R"({"smbios": {"memoryDevices": [)" + Devices + "]}}"));
  static QOR_SMBIOS_RECORD_LIST List;
  ASSERT_EQ(QorCollectSmbiosRecords(17, &List), EFI_SUCCESS);
  ASSERT_EQ(List.Count, 256u);
  EXPECT_STREQ(QorGetSmbiosString(List.Records[255], 1), "S255");
}

TEST_F(SmbiosRecords, MissingProtocolIsReported) {
  Start(BoardFrom(R"({"faults": {"missingProtocols": ["smbios"]}})"));
  static QOR_SMBIOS_RECORD_LIST List;
  EXPECT_EQ(QorCollectSmbiosRecords(4, &List), EFI_NOT_FOUND);
  EXPECT_NE(Log().find("Failed to locate smbios protocol Not Found\n"), std::string::npos);
}

class AcceleratorCount : public DriverOnEmulator {
 protected:
  ACCELERATOR_COUNT Count(const std::string &Pci) {
    // Only the functions given: none of the built-in board's host bridges.
    Start(BoardFrom(R"({"pci": {"hostBridges": [], )" + Pci.substr(1) + "}"));
    ACCELERATOR_COUNT Counts{};
    QorCollectAccCount(&Counts);
    return Counts;
  }
};

TEST_F(AcceleratorCount, CountsEachKindAndNeverTheQatVirtualFunction) {
  ACCELERATOR_COUNT C = Count(R"({"rootBridges": [{"busRanges": [[0, 255]]}], "functions": [
      {"bdf": "10:00.0", "vendorId": "0x8086", "deviceId": "0x4940"},
      {"bdf": "10:00.1", "vendorId": "0x8086", "deviceId": "0x4946"},
      {"bdf": "11:00.0", "vendorId": "0x8086", "deviceId": "0x4942"},
      {"bdf": "12:00.0", "vendorId": "0x8086", "deviceId": "0x4944"},
      {"bdf": "13:00.0", "vendorId": "0x8086", "deviceId": "0x2710"},
      {"bdf": "14:00.0", "vendorId": "0x8086", "deviceId": "0x0CFE"},
      {"bdf": "15:00.0", "vendorId": "0x8086", "deviceId": "0x0B25"},
      {"bdf": "16:00.0", "vendorId": "0x1D0F", "deviceId": "0x4940"}]})");
  EXPECT_EQ(C.Qat, 3u);
  EXPECT_EQ(C.Dlb, 1u);
  EXPECT_EQ(C.Iaa, 1u);
  EXPECT_EQ(C.Dsa, 1u);
}

TEST_F(AcceleratorCount, AbsentFunctionZeroEndsTheDeviceButGapsAfterItDoNot) {
  ACCELERATOR_COUNT C = Count(R"({"rootBridges": [{"busRanges": [[0, 255]]}], "functions": [
      {"bdf": "20:00.0", "vendorId": "0x8086", "deviceId": "0x1111"},
      {"bdf": "20:00.5", "vendorId": "0x8086", "deviceId": "0x0B25"},
      {"bdf": "21:00.3", "vendorId": "0x8086", "deviceId": "0x0B25"}]})");
  EXPECT_EQ(C.Dsa, 1u);
}

TEST_F(AcceleratorCount, ScansOnlyTheDescribedBusRanges) {
  ACCELERATOR_COUNT C = Count(R"({"rootBridges": [{"busRanges": [[0, 15], [32, 32]]}], "functions": [
      {"bdf": "0f:1f.0", "vendorId": "0x8086", "deviceId": "0x2710"},
      {"bdf": "10:00.0", "vendorId": "0x8086", "deviceId": "0x2710"},
      {"bdf": "20:00.0", "vendorId": "0x8086", "deviceId": "0x2710"},
      {"bdf": "21:00.0", "vendorId": "0x8086", "deviceId": "0x2710"}]})");
  EXPECT_EQ(C.Dlb, 2u);
}

TEST_F(AcceleratorCount, BridgeWithoutDescriptorsGetsEveryBusScanned) {
  ACCELERATOR_COUNT C = Count(R"({"rootBridges": [{"configuration": "unsupported"}], "functions": [
      {"bdf": "00:02.0", "vendorId": "0x8086", "deviceId": "0x0CFE"},
      {"bdf": "ff:1f.7", "vendorId": "0x8086", "deviceId": "0x0CFE"}]})");
  EXPECT_EQ(C.Iaa, 1u);  // 1f.7 sits behind an absent function 0
  C = Count(R"({"rootBridges": [{"configuration": "unsupported"}], "functions": [
      {"bdf": "ff:1f.0", "vendorId": "0x8086", "deviceId": "0x0CFE"}]})");
  EXPECT_EQ(C.Iaa, 1u);
}

TEST_F(AcceleratorCount, NoRootBridgeIsLoggedAndCountsNothing) {
  ACCELERATOR_COUNT C = Count(R"({"rootBridges": []})");
  EXPECT_EQ(C.Qat + C.Dlb + C.Iaa + C.Dsa, 0u);
  EXPECT_NE(Log().find("QorCollectAccCount(389), Protocol - PciRootBridgeIo not found. \n"), std::string::npos);
}

// The exact section texts of the empty cases (no entry reaches the cursor
// or the socket base, so calling the fillers here is safe).
class EmptySectionText : public DriverOnEmulator {
 protected:
  // The fillers mark their registry entry; leave the registry as found.
  void TearDown() override {
    gQorUploadSections[QorSectionCpuInfo].Filled = FALSE;
    gQorUploadSections[QorSectionDimmInfo].Filled = FALSE;
    DriverOnEmulator::TearDown();
  }
};

TEST_F(EmptySectionText, DefaultDimmMapWithoutDimms) {
  Start(BoardFrom(R"({"hobs": {"dimmMap": null}, "smbios": {"memoryDevices": []}})"));
  LocalSection Section("DimmInfo", 0x100000, QorSectionDimmInfo);
  ASSERT_EQ(QorFillDimmInfo(&Section.Record), EFI_SUCCESS);
  EXPECT_EQ(Section.Text(), R"({"MaxDimm":64,"InfoList":[]})");
  EXPECT_EQ(Section.Record.Length, Section.Text().size());
}

TEST_F(EmptySectionText, NoProcessorRecords) {
  Start(BoardFrom(R"({"smbios": {"processors": []}})"));
  LocalSection Section("CpuInfo", 0x80000, QorSectionCpuInfo);
  ASSERT_EQ(QorFillCpuInfo(&Section.Record), EFI_SUCCESS);
  EXPECT_EQ(Section.Text(), R"({"MaxCpu":2,"Accelarator":{"QAT":2,"DSA":2,"DLB":2,"IAA":2},"InfoList":[]})");
}

}  // namespace
