// CpuInfo and DimmInfo through full boots: boards in, the uploaded sections
// out, checked against what the board describes.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "emulator/boot.h"
#include "emulator/boot_report.h"

namespace {

struct Booted {
  qor::emu::BootResult Result;
  rapidjson::Document Document;

  const rapidjson::Value &Section(const char *Name) const { return Document[Name]; }
  bool Filled(const std::string &Name) const {
    for (const auto &State : qor::emu::SectionStates(Result)) {
      if (State.Name == Name) return State.State == "filled";
    }
    return false;
  }
  bool Logged(const std::string &Text) const { return Result.DebugLog.find(Text) != std::string::npos; }
  size_t LogCount(const std::string &Text) const {
    size_t Count = 0;
    for (size_t At = Result.DebugLog.find(Text); At != std::string::npos; At = Result.DebugLog.find(Text, At + 1)) {
      Count++;
    }
    return Count;
  }
};

Booted Boot(const std::string &Overlay = "{}") {
  Booted Out;
  Out.Result = qor::emu::RunBoot(qor::emu::ParseBoard(Overlay));
  const qor::emu::Upload *Upload = Out.Result.FindUpload("push_BiosBeforeBoot.json");
  EXPECT_NE(Upload, nullptr);
  if (Upload != nullptr) {
    std::string Text(Upload->Bytes.begin(), Upload->Bytes.end());
    Out.Document.Parse(Text.c_str());
    EXPECT_FALSE(Out.Document.HasParseError());
  }
  return Out;
}

std::vector<std::string> Keys(const rapidjson::Value &Object) {
  std::vector<std::string> Names;
  for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Names.push_back(It->name.GetString());
  return Names;
}

// Four processor records (two populated) with a socket designation each.
std::string Processors(const std::string &List) {
  return R"({"smbios": {"processors": [)" + List + "]}}";
}

TEST(CpuInfoBoot, BuiltInBoardReportsBothSocketsWithEveryKeyInOrder) {
  Booted B = Boot();
  ASSERT_TRUE(B.Filled("CpuInfo"));
  const auto &Cpu = B.Section("CpuInfo");
  EXPECT_EQ(Keys(Cpu), (std::vector<std::string>{"MaxCpu", "Accelarator", "InfoList"}));
  EXPECT_EQ(Cpu["MaxCpu"].GetUint(), 2u);
  EXPECT_EQ(Keys(Cpu["Accelarator"]), (std::vector<std::string>{"QAT", "DSA", "DLB", "IAA"}));
  // One QAT, DSA, IAA and DLB per socket; the QAT virtual function is not one.
  for (const char *Kind : {"QAT", "DSA", "DLB", "IAA"}) EXPECT_EQ(Cpu["Accelarator"][Kind].GetUint(), 2u) << Kind;
  ASSERT_EQ(Cpu["InfoList"].Size(), 2u);
  EXPECT_EQ(B.LogCount("CPU is unpopulated\n"), 2u);

  const auto &First = Cpu["InfoList"][0];
  EXPECT_EQ(Keys(First),
            (std::vector<std::string>{"Index", "OriginData", "Status", "Version", "Name", "McNum", "DimmTech",
                                      "L1Cache", "L2Cache", "L3Cache", "TotalCores", "EnableCores", "TotalThreads",
                                      "EnableThreads", "Type", "Family", "Family2", "MaxSpeed", "CurrentSpeed",
                                      "ExternalClock", "Upgrade", "ProcessorID", "PPIN", "TDP", "ChopType",
                                      "Stepping", "MicroCode"}));
  EXPECT_EQ(First["Index"].GetUint(), 0u);
  EXPECT_EQ(First["OriginData"].GetUint(), 0u);
  EXPECT_EQ(First["Status"].GetUint(), 1u);
  EXPECT_EQ(First["McNum"].GetUint(), 4u);
  EXPECT_STREQ(First["Name"].GetString(), "Qor QS-9432 32-Core Processor");
  EXPECT_EQ(First["DimmTech"].GetUint(), 0xFCu);
  EXPECT_EQ(First["L1Cache"].GetUint(), 2560u);
  EXPECT_EQ(First["L2Cache"].GetUint(), 65536u);
  EXPECT_EQ(First["L3Cache"].GetUint(), 61440u);
  EXPECT_EQ(First["MaxSpeed"].GetUint(), 4000u);
  EXPECT_STREQ(First["ProcessorID"].GetString(), "510F0900FFFBEBBF");
  EXPECT_STREQ(First["PPIN"].GetString(), "2F4E3A1B6C7D8E91");
  EXPECT_EQ(First["TDP"].GetUint(), 270u);
  EXPECT_EQ(First["ChopType"].GetUint(), 3u);
  EXPECT_STREQ(First["Stepping"].GetString(), "E3");
  EXPECT_EQ(First["MicroCode"].GetUint(), 0x2B000639u);
  EXPECT_EQ(Cpu["InfoList"][1]["Index"].GetUint(), 1u);
  EXPECT_EQ(Cpu["InfoList"][1]["EnableCores"].GetUint(), 30u);
  EXPECT_EQ(Cpu["InfoList"][1]["EnableThreads"].GetUint(), 60u);  // the 2-byte field at 0x30
  EXPECT_STREQ(Cpu["InfoList"][1]["PPIN"].GetString(), "2F4E3A1B6C7D8E92");
}

TEST(CpuInfoBoot, FirstProcessedDesignationFixesTheBaseForTheBoot) {
  Booted B = Boot(Processors(R"({"socket": "Socket 1"}, {"socket": "Socket 2"}, {"socket": "Socket 6"},
                                 {"socket": "Socket 0"}, {"socket": "No digit"})"));
  const auto &List = B.Section("CpuInfo")["InfoList"];
  ASSERT_EQ(List.Size(), 5u);
  EXPECT_EQ(List[0]["Index"].GetUint(), 0u);
  EXPECT_EQ(List[1]["Index"].GetUint(), 1u);
  EXPECT_EQ(List[2]["Index"].GetUint(), 0u);  // index 5: beyond four sockets
  EXPECT_EQ(List[3]["Index"].GetUint(), 0u);  // below the base: a huge index
  EXPECT_EQ(List[4]["Index"].GetUint(), 0u);
  EXPECT_TRUE(B.Logged("Socket String: <Socket 2>\nSocIndex:1\n"));
  EXPECT_TRUE(B.Logged("SocIndex:5\n"));
  EXPECT_TRUE(B.Logged("SocIndex:4294967295\n"));
}

TEST(CpuInfoBoot, UnpopulatedSocketsNeitherFixTheBaseNorGetAnEntry) {
  Booted B = Boot(Processors(R"({"socket": "CPU0", "populated": false}, {"socket": "CPU1"}, {"socket": "CPU2"})"));
  const auto &List = B.Section("CpuInfo")["InfoList"];
  ASSERT_EQ(List.Size(), 2u);
  EXPECT_EQ(List[0]["Index"].GetUint(), 0u);
  EXPECT_EQ(List[1]["Index"].GetUint(), 1u);
}

TEST(CpuInfoBoot, TdpAndChopTypeFollowListPositionWhileSpeedAndPpinFollowSocketIndex) {
  Booted B = Boot(R"({
    "smbios": {"processors": [{"socket": "CPU0", "populated": false}, {"socket": "CPU1"}]},
    "cpuPower": {"tdp": [205, 350]},
    "systemTopology": {"sockets": [{"valid": true, "chopType": 1}, {"valid": true, "chopType": 2}]},
    "hobs": {"processorSpeed": [31, 37], "mrcData": {"ppins": ["0x1111", "0x2222"]}}})");
  const auto &Entry = B.Section("CpuInfo")["InfoList"][0];
  EXPECT_EQ(Entry["Index"].GetUint(), 0u);
  EXPECT_EQ(Entry["TDP"].GetUint(), 350u);
  EXPECT_EQ(Entry["ChopType"].GetUint(), 2u);
  EXPECT_EQ(Entry["MaxSpeed"].GetUint(), 3100u);
  EXPECT_STREQ(Entry["PPIN"].GetString(), "0000000000001111");
}

TEST(CpuInfoBoot, MissingSourcesGiveDefaultsNotFailures) {
  Booted B = Boot(R"({"hobs": {"processorSpeed": null}, "systemInformation": {"dataBlock": false},
                      "smbios": {"processors": [{"socket": "CPU0", "l1": "0x0BAD"}]}})");
  ASSERT_TRUE(B.Filled("CpuInfo"));
  const auto &Entry = B.Section("CpuInfo")["InfoList"][0];
  EXPECT_EQ(Entry["MaxSpeed"].GetUint(), 0u);
  EXPECT_STREQ(Entry["Stepping"].GetString(), "Unknown");
  EXPECT_EQ(Entry["L1Cache"].GetUint(), 0u);
  EXPECT_TRUE(B.Logged("Failed to get cache smbios struct 2989\n"));
}

TEST(CpuInfoBoot, NoProcessorRecordsGiveAnEmptyList) {
  Booted B = Boot(Processors(""));
  ASSERT_TRUE(B.Filled("CpuInfo"));
  EXPECT_EQ(B.Section("CpuInfo")["InfoList"].Size(), 0u);
}

TEST(CpuInfoBoot, MissingSmbiosOrCpuPowerLeavesTheSectionUnfilled) {
  Booted NoSmbios = Boot(R"({"faults": {"missingProtocols": ["smbios"]}})");
  EXPECT_FALSE(NoSmbios.Filled("CpuInfo"));
  EXPECT_FALSE(NoSmbios.Filled("DimmInfo"));
  EXPECT_TRUE(NoSmbios.Section("CpuInfo").ObjectEmpty());
  Booted NoPower = Boot(R"({"faults": {"missingProtocols": ["cpuPower"]}})");
  EXPECT_FALSE(NoPower.Filled("CpuInfo"));
  EXPECT_TRUE(NoPower.Filled("DimmInfo"));
}

// ---------------------------------------------------------------- DimmInfo

// One DIMM slot map of three present slots on socket 0, channel 0 and 1.
const char *kSmallMemory = R"(
    "dimmMap": {"slots": [
      {"socket": 0, "channel": 0, "dimm": 0, "index": 0, "number": 1, "label": "A1"},
      {"socket": 0, "channel": 0, "dimm": 1, "index": 1, "number": 9, "label": "A9", "present": false},
      {"socket": 0, "channel": 1, "dimm": 0, "index": 2, "number": 2, "label": "A2"},
      {"socket": 1, "channel": 0, "dimm": 0, "index": 16, "number": 1, "label": "B1"}]},
    "memoryMap": {"ddrVoltage": 2, "ecc": false, "socketsEnabled": [true, false], "dimms": [
      {"socket": 0, "channel": 0, "dimm": 0, "vendorId": "0x80CE", "sizeGb": 48, "flags": [1, 1], "repairCount": 3},
      {"socket": 0, "channel": 1, "dimm": 0, "vendorId": "0x80AD", "sizeGb": 48, "flags": [1, 0]},
      {"socket": 1, "channel": 0, "dimm": 0}]})";

Booted BootDimms(const std::string &Devices) {
  return Boot(std::string(R"({"hobs": {)") + kSmallMemory + R"(}, "smbios": {"memoryDevices": [)" + Devices + "]}}");
}

TEST(DimmInfoBoot, DefaultMapWithoutDimmsReportsSixtyFourSlotsAndNoEntries) {
  Booted B = Boot(R"({"hobs": {"dimmMap": null}, "smbios": {"memoryDevices": []}})");
  ASSERT_TRUE(B.Filled("DimmInfo"));
  const auto &Dimm = B.Section("DimmInfo");
  EXPECT_EQ(Keys(Dimm), (std::vector<std::string>{"MaxDimm", "InfoList"}));
  EXPECT_EQ(Dimm["MaxDimm"].GetUint(), 64u);
  EXPECT_EQ(Dimm["InfoList"].Size(), 0u);
}

TEST(DimmInfoBoot, RecordsPairWithPresentSlotsInOrderAndFillEveryKey) {
  Booted B = BootDimms(R"(
      {"sizeMb": 16384, "type": "0x22", "typeDetail": "0x2080", "speed": 5600, "configuredSpeed": 4800,
       "rank": "0x42", "totalWidth": 80, "dataWidth": 64, "partNumber": " \tQM-48G 5600\t ", "serialNumber": "S1  "},
      {"sizeField": "0x7FFF", "extendedSize": 65536, "typeDetail": "0x0004"},
      {"sizeMb": 8192, "typeDetail": "0x0008"})");
  const auto &Dimm = B.Section("DimmInfo");
  EXPECT_EQ(Dimm["MaxDimm"].GetUint(), 3u);
  const auto &List = Dimm["InfoList"];
  ASSERT_EQ(List.Size(), 2u);  // the third record meets socket 1, which is not enabled
  EXPECT_TRUE(B.Logged("QorIsDimmAvaliable: 1 0 0 1 Socket not enable\n"));
  EXPECT_EQ(B.LogCount("Failed to get dimm info\n"), 1u);

  const auto &First = List[0];
  EXPECT_EQ(Keys(First), (std::vector<std::string>{"DataOrigin", "Socket", "Channel", "Dimm", "Index", "Status",
                                                   "DimmType", "OpeVoltage", "DimmRanks", "DimmTech", "VendorID",
                                                   "DimmSize", "CurFrequency", "MaxFrequency", "DimmEcc",
                                                   "PartNumber", "SerialNumber", "HpprCount", "TotalWidth",
                                                   "DataWidth", "TypeDetail"}));
  EXPECT_EQ(First["Socket"].GetUint(), 0u);
  EXPECT_EQ(First["Channel"].GetUint(), 0u);
  EXPECT_EQ(First["Index"].GetUint(), 0u);
  EXPECT_EQ(First["Status"].GetUint(), 1u);
  EXPECT_EQ(First["DimmType"].GetUint(), 0x22u);
  EXPECT_EQ(First["OpeVoltage"].GetUint(), 2u);
  EXPECT_EQ(First["DimmRanks"].GetUint(), 0x42u);
  EXPECT_STREQ(First["DimmTech"].GetString(), "RDIMM");
  EXPECT_EQ(First["VendorID"].GetUint(), 0x80CEu);
  EXPECT_EQ(First["DimmSize"].GetUint(), 48u << 10);  // both size flags: the memory map size
  EXPECT_EQ(First["CurFrequency"].GetUint(), 4800u);
  EXPECT_EQ(First["MaxFrequency"].GetUint(), 5600u);
  EXPECT_EQ(First["DimmEcc"].GetUint(), 0u);
  EXPECT_STREQ(First["PartNumber"].GetString(), "QM-48G 5600");
  EXPECT_STREQ(First["SerialNumber"].GetString(), "S1");
  EXPECT_EQ(First["HpprCount"].GetUint(), 3u);
  EXPECT_EQ(First["TotalWidth"].GetUint(), 80u);
  EXPECT_EQ(First["TypeDetail"].GetUint(), 0x0104u);

  // The second present slot is channel 1 (slot 1 is not present).
  const auto &Second = List[1];
  EXPECT_EQ(Second["Channel"].GetUint(), 1u);
  EXPECT_EQ(Second["Index"].GetUint(), 2u);
  EXPECT_EQ(Second["DimmSize"].GetUint(), 65536u);  // extended size; one flag only does not override
  EXPECT_EQ(Second["TypeDetail"].GetUint(), 0u);
  EXPECT_STREQ(Second["PartNumber"].GetString(), "");
}

TEST(DimmInfoBoot, TypeDetailBitThreeSetsTwoBits) {
  Booted B = BootDimms(R"({"sizeMb": 8192, "typeDetail": "0x0008"})");
  EXPECT_EQ(B.Section("DimmInfo")["InfoList"][0]["TypeDetail"].GetUint(), 12288u);
}

TEST(DimmInfoBoot, MoreRecordsThanPresentSlotsFailOncePerExtraRecord) {
  Booted B = Boot(R"({"hobs": {"dimmMap": {"sockets": 1, "channels": 1, "dimms": 2},
                        "memoryMap": {"socketsEnabled": [true], "dimms": [
                          {"socket": 0, "channel": 0, "dimm": 0}, {"socket": 0, "channel": 0, "dimm": 1}]}},
                      "smbios": {"memoryDevices": [{"sizeMb": 1}, {"sizeMb": 2}, {"sizeMb": 3}, {"sizeMb": 4}]}})");
  const auto &List = B.Section("DimmInfo")["InfoList"];
  ASSERT_EQ(List.Size(), 2u);
  EXPECT_EQ(List[1]["DimmSize"].GetUint(), 2u);
  EXPECT_EQ(B.LogCount("Failed to get dimm info\n"), 2u);
}

TEST(DimmInfoBoot, ADisabledDimmStillUsesUpItsSlot) {
  // The built-in board maps out CPU1_DIMM_H1; CPU1_DIMM_H2 after it is empty.
  Booted B = Boot();
  const auto &List = B.Section("DimmInfo")["InfoList"];
  EXPECT_EQ(B.Section("DimmInfo")["MaxDimm"].GetUint(), 32u);
  ASSERT_EQ(List.Size(), 19u);
  EXPECT_EQ(List[18]["Index"].GetUint(), 28u);
  EXPECT_TRUE(B.Logged("QorIsDimmAvaliable: 1 7 0 1  Disabled or Not Present\n"));
}

TEST(DimmInfoBoot, MissingMemoryMapLeavesTheSectionUnfilled) {
  Booted NoHob = Boot(R"({"hobs": {"memoryMap": null}})");
  EXPECT_FALSE(NoHob.Filled("DimmInfo"));
  EXPECT_TRUE(NoHob.Logged("No memory map found\n"));
  Booted NullData = Boot(R"({"hobs": {"memoryMap": {"nullPointer": true}}})");
  EXPECT_FALSE(NullData.Filled("DimmInfo"));
  EXPECT_TRUE(NullData.Filled("CpuInfo"));
}

TEST(SmbiosBoot, ARawTableServesTheSameRecordsAsTheirDescription) {
  Booted Described = Boot();
  const std::vector<uint8_t> &Dump = Described.Result.SmbiosDump;
  ASSERT_GT(Dump.size(), 0x20u);
  std::string Hex;
  char Pair[3];
  for (size_t I = 0x20; I < Dump.size(); I++) {  // the table follows the entry point
    std::snprintf(Pair, sizeof(Pair), "%02X", Dump[I]);
    Hex += Pair;
  }
  Booted Raw = Boot(R"({"smbios": {"raw": ")" + Hex + R"("}})");
  EXPECT_EQ(Raw.Result.SmbiosDump, Dump);
  EXPECT_TRUE(Raw.Section("CpuInfo") == Described.Section("CpuInfo"));
  EXPECT_TRUE(Raw.Section("DimmInfo") == Described.Section("DimmInfo"));
}

}  // namespace

namespace {

// An MRC data HOB that holds only socket 0's PPIN: socket 1 has none to
// report, and nothing beyond the HOB is read as one.
TEST(CpuInfoBoot, AShortMrcDataHobGivesAZeroPpinForSocketsItLacks) {
  Booted B = Boot(R"({"hobs": {"mrcData": {"raw": "91 8E 7D 6C 1B 3A 4E 2F"}}})");
  const rapidjson::Value &List = B.Section("CpuInfo")["InfoList"];
  ASSERT_EQ(List.Size(), 2u);
  EXPECT_STREQ(List[0]["PPIN"].GetString(), "2F4E3A1B6C7D8E91");
  EXPECT_STREQ(List[1]["PPIN"].GetString(), "0000000000000000");
}

}  // namespace
