// TpmInfo and OnBoardSataInfo through full boots: boards in, the uploaded
// document checked member by member.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <utility>
#include <vector>

#include "emulator/boot.h"
#include "emulator/boot_report.h"

namespace {

using qor::emu::BootResult;

constexpr uint64_t kInfo = 0x40;

struct Booted {
  BootResult Result;
  rapidjson::Document Document;

  explicit Booted(const std::string &BoardJson) : Result(qor::emu::RunBoot(qor::emu::ParseBoard(BoardJson))) {
    const qor::emu::Upload *Upload = Result.FindUpload("push_BiosBeforeBoot.json");
    if (Upload == nullptr) {
      ADD_FAILURE() << "no inventory upload\n" << Result.DebugLog;
      Document.SetObject();
      return;
    }
    Document.Parse(reinterpret_cast<const char *>(Upload->Bytes.data()), Upload->Bytes.size());
    EXPECT_FALSE(Document.HasParseError());
  }
  const rapidjson::Value &Section(const char *Name) const {
    EXPECT_TRUE(Document.HasMember(Name)) << Name;
    return Document[Name];
  }
  std::string State(const std::string &Name) const {
    for (const auto &Entry : qor::emu::SectionStates(Result)) {
      if (Entry.Name == Name) return Entry.State;
    }
    return "";
  }
  // Log lines that start with Prefix, in order.
  std::vector<std::string> LinesStartingWith(const std::string &Prefix) const {
    std::vector<std::string> Lines;
    for (const auto &Line : Result.DebugLines) {
      if (Line.Text.rfind(Prefix, 0) == 0) Lines.push_back(Line.Text);
    }
    return Lines;
  }
  bool HasLine(uint64_t Level, const std::string &Text) const {
    for (const auto &Line : Result.DebugLines) {
      if (Line.Level == Level && Line.Text == Text) return true;
    }
    return false;
  }
};

using Members = std::vector<std::pair<std::string, unsigned>>;

// The object's members, in order, as unsigned numbers.
Members NumbersOf(const rapidjson::Value &Object) {
  Members Out;
  for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) {
    Out.emplace_back(It->name.GetString(), It->value.IsUint() ? It->value.GetUint() : 9999);
  }
  return Out;
}

// The TpmInfo members as the Setup bytes at their offsets give them.
Members ExpectedTpm(const std::vector<uint8_t> &Setup, unsigned PcrBanks, unsigned DevicePresent) {
  return {{"TpmSupport", Setup[19]},         {"TpmEnable", Setup[14]},
          {"TpmAuthenticate", Setup[23]},    {"TpmOperation", Setup[15]},
          {"DisallowTpm", 0},                {"Tcg2SpecVersion", Setup[27]},
          {"DeviceType", Setup[32]},         {"TpmHardware", 1},
          {"TpmEnaDisable", Setup[16]},      {"TpmActDeact", Setup[17]},
          {"TpmOwnedUnowned", Setup[18]},    {"TcgSupportEnabled", Setup[20]},
          {"TcmSupportEnabled", Setup[21]},  {"TpmError", Setup[25]},
          {"PpiSetupSyncFlag", 0},           {"Reserved3", Setup[33]},
          {"Reserved4", 0},                  {"Reserved5", 0},
          {"Tpm20Device", Setup[26]},        {"EndorsementHierarchy", Setup[30]},
          {"StorageHierarchy", Setup[29]},   {"PlatformHierarchy", Setup[28]},
          {"InterfaceSel", Setup[31]},       {"PcrBanks", PcrBanks},
          {"DevicePresent", DevicePresent},  {"QorTpmTcmDeviceType", Setup[46]}};
}

std::string Hex(const std::vector<uint8_t> &Bytes) {
  std::string Text;
  char Pair[4];
  for (uint8_t Byte : Bytes) {
    std::snprintf(Pair, sizeof(Pair), "%02X ", Byte);
    Text += Pair;
  }
  return Text;
}

// A raw "Setup" variable (the board's TPM helper switched off).
std::string RawSetupBoard(const std::vector<uint8_t> &Setup, const char *Tpm) {
  return std::string(R"({"tpm": {"setup": null)") + Tpm + R"(}, "variables": [{"name": "Setup",
      "guid": "EC87D643-EBA4-4BB5-A1E5-3F3E36B20DA9", "data": ")" + Hex(Setup) + R"("}]})";
}

TEST(TpmInfo, BuiltInBoardReportsItsTpmSettings) {
  Booted Boot("{}");
  // The built-in board's settings: a TPM 2.0 with SHA-1 and SHA-256 banks.
  std::vector<uint8_t> Setup(275, 0);
  for (int Offset : {14, 16, 17, 19, 20, 26, 28, 29, 30, 32, 46}) Setup[Offset] = 1;
  Setup[27] = 2;
  EXPECT_EQ(NumbersOf(Boot.Section("TpmInfo")), ExpectedTpm(Setup, 3, 1));
  EXPECT_EQ(Boot.State("TpmInfo"), "filled");
}

TEST(TpmInfo, EveryMemberComesFromItsSetupByte) {
  // Every byte distinct: offset + 100. Bank bytes 39..42 hold FF FF 00 08, so
  // banks 0, 1 and 3 count (1 | 2 | 8); byte 41 has bit 2 clear.
  std::vector<uint8_t> Setup(275);
  for (size_t I = 0; I < Setup.size(); I++) Setup[I] = static_cast<uint8_t>(I + 100);
  Setup[39] = 0xFF;
  Setup[40] = 0xFF;
  Setup[41] = 0x00;
  Setup[42] = 0x08;
  Booted WithTpm(RawSetupBoard(Setup, R"(, "present": true)"));
  EXPECT_EQ(NumbersOf(WithTpm.Section("TpmInfo")), ExpectedTpm(Setup, 11, 1));

  // No TPM: the probe reads FF, the Setup members stay.
  Booted NoTpm(RawSetupBoard(Setup, R"(, "present": false)"));
  EXPECT_EQ(NumbersOf(NoTpm.Section("TpmInfo")), ExpectedTpm(Setup, 11, 0));

  // A shorter variable reads as zero beyond its end.
  std::vector<uint8_t> Short(Setup.begin(), Setup.begin() + 30);
  Booted ShortSetup(RawSetupBoard(Short, ""));
  std::vector<uint8_t> Padded = Short;
  Padded.resize(275, 0);
  EXPECT_EQ(NumbersOf(ShortSetup.Section("TpmInfo")), ExpectedTpm(Padded, 0, 1));
}

TEST(TpmInfo, UnreadableSetupLeavesSectionUnfilled) {
  struct Case {
    const char *Board;
    const char *Line;
  } Cases[] = {
      {R"({"tpm": {"setup": null}})", "Get Setup Variable Error,Status=Not Found\n"},
      {R"({"tpm": {"setup": {"size": 276}}})", "Get Setup Variable Error,Status=Buffer Too Small\n"},
      {R"({"faults": {"failVariableGet": ["Setup"]}})", "Get Setup Variable Error,Status=Device Error\n"},
  };
  for (const Case &C : Cases) {
    Booted Boot(C.Board);
    EXPECT_TRUE(Boot.HasLine(kInfo, C.Line)) << C.Board << "\n" << Boot.Result.DebugLog;
    EXPECT_EQ(Boot.State("TpmInfo"), "unfilled") << C.Board;
    EXPECT_TRUE(Boot.Section("TpmInfo").IsObject() && Boot.Section("TpmInfo").MemberCount() == 0) << C.Board;
  }
}

// A drive in the uploaded list, as text members plus the two numbers.
struct Drive {
  std::string PhySlot;  // empty: no PhySlot / LogSlot members
  unsigned LogSlot;
  std::string Model, FwVersion, Capacity, Speed, Type;
  unsigned FormFactor;
  std::string SerialNumber;
};

void ExpectDrive(const rapidjson::Value &Actual, const Drive &Expected) {
  std::vector<std::string> Keys;
  for (auto It = Actual.MemberBegin(); It != Actual.MemberEnd(); ++It) Keys.push_back(It->name.GetString());
  std::vector<std::string> ExpectedKeys = {"Model", "FwVersion", "Capacity", "Speed", "Type", "FormFactor",
                                           "SerialNumber"};
  if (!Expected.PhySlot.empty()) ExpectedKeys.insert(ExpectedKeys.begin(), {"PhySlot", "LogSlot"});
  ASSERT_EQ(Keys, ExpectedKeys) << Expected.Model;
  if (!Expected.PhySlot.empty()) {
    EXPECT_EQ(std::string(Actual["PhySlot"].GetString()), Expected.PhySlot);
    EXPECT_EQ(Actual["LogSlot"].GetUint(), Expected.LogSlot);
  }
  EXPECT_EQ(std::string(Actual["Model"].GetString()), Expected.Model);
  EXPECT_EQ(std::string(Actual["FwVersion"].GetString()), Expected.FwVersion);
  EXPECT_EQ(std::string(Actual["Capacity"].GetString()), Expected.Capacity);
  EXPECT_EQ(std::string(Actual["Speed"].GetString()), Expected.Speed);
  EXPECT_EQ(std::string(Actual["Type"].GetString()), Expected.Type);
  EXPECT_EQ(Actual["FormFactor"].GetUint(), Expected.FormFactor);
  EXPECT_EQ(std::string(Actual["SerialNumber"].GetString()), Expected.SerialNumber);
}

TEST(OnBoardSataInfo, BuiltInBoardListsPresentDrivesWithTheirSlots) {
  Booted Boot("{}");
  const rapidjson::Value &Sata = Boot.Section("OnBoardSataInfo");
  ASSERT_EQ(Sata.MemberCount(), 2u);
  EXPECT_EQ(std::string(Sata.MemberBegin()->name.GetString()), "MaxSata");
  EXPECT_EQ(Sata["MaxSata"].GetUint(), 8u);
  const rapidjson::Value &List = Sata["SataList"];
  // Five entries: the empty bay (present 0) is left out.
  ASSERT_EQ(List.Size(), 4u);
  ExpectDrive(List[0], {"SATA0", 0, "QOR SSD 480G SATA", "SCV10142", "480GB", "6.0Gbps", "SSD", 3, "QS480A0001234"});
  ExpectDrive(List[1], {"SATA1", 1, "QOR SSD 960G SATA", "SCV10142", "960GB", "6.0Gbps", "SSD", 3, "QS960A0005678"});
  ExpectDrive(List[2], {"SATA3", 3, "QOR HDD 4TB 7200", "HQ04", "4TB", "6.0Gbps", "HDD", 2, "QH4T00000987"});
  // Port 6 has no record in the board description.
  ExpectDrive(List[3], {"", 0, "QOR HDD 2TB 7200", "HQ02", "2TB", "3.0Gbps", "HDD", 2, "QH2T00000321"});
}

TEST(OnBoardSataInfo, PortCursorNeverMovesBack) {
  // Drives on ports 1, 9 (no record) and 3. The search for port 9 runs the
  // cursor past record 3 (N = 3 tries), so port 3 is not found either.
  Booted Boot(R"({
    "pcd": {"tokens": {"351": 3}},
    "customProtocol": {"sataPorts": [{"portIndex": 0, "slot": "P0"}, {"portIndex": 1, "slot": "P1"},
                                     {"portIndex": 2, "slot": "P2"}, {"portIndex": 3, "slot": "P3"}]},
    "systemInformation": {"sataDrives": [{"portIndex": 1, "model": "A"}, {"portIndex": 9, "model": "B"},
                                         {"portIndex": 3, "model": "C"}]}})");
  const rapidjson::Value &List = Boot.Section("OnBoardSataInfo")["SataList"];
  ASSERT_EQ(List.Size(), 3u);
  EXPECT_EQ(std::string(List[0]["PhySlot"].GetString()), "P1");
  EXPECT_FALSE(List[1].HasMember("PhySlot"));
  EXPECT_FALSE(List[2].HasMember("PhySlot"));
  EXPECT_EQ(Boot.LinesStartingWith("pSataPortInfo->PortIndex"),
            (std::vector<std::string>{"pSataPortInfo->PortIndex = 0(0)\n", "pSataPortInfo->PortIndex = 1(0)\n",
                                      "pSataPortInfo->PortIndex = 1(1)\n", "pSataPortInfo->PortIndex = 2(1)\n",
                                      "pSataPortInfo->PortIndex = 3(1)\n", "pSataPortInfo->PortIndex = 255(2)\n",
                                      "pSataPortInfo->PortIndex = 255(2)\n", "pSataPortInfo->PortIndex = 255(2)\n"}));
}

TEST(OnBoardSataInfo, SearchStopsAtTheEndOfThePortList) {
  // 40 drives on ports without a record: 40 tries each would walk 1600
  // records; the board description has 16.
  std::string Drives;
  for (int I = 0; I < 40; I++) Drives += std::string(I ? "," : "") + R"({"portIndex": 200, "model": "X"})";
  Booted Boot(R"({"pcd": {"tokens": {"351": 40}}, "systemInformation": {"sataDrives": [)" + Drives + "]}}");
  EXPECT_EQ(Boot.Section("OnBoardSataInfo")["SataList"].Size(), 40u);
  EXPECT_EQ(Boot.LinesStartingWith("pSataPortInfo->PortIndex").size(), 16u);
}

TEST(OnBoardSataInfo, DecodesSpeedMediaAndFullWidthTexts) {
  // Model field: 41 bytes at entry offset 3, filled to the last byte with no
  // terminator; FwVersion follows at 44 and must not run into it.
  std::string Model(41, 'M');
  std::string ModelHex;
  for (char C : Model) ModelHex += "4D";
  Booted Boot(R"({"pcd": {"tokens": {"351": 5}}, "customProtocol": {"sataPorts": []},
    "systemInformation": {"sataDrives": [
      {"speed": 0, "mediaType": 0, "firmware": "F0"}, {"speed": 1, "mediaType": 1, "firmware": "F1"},
      {"speed": 2, "mediaType": 2, "firmware": "F2"}, {"speed": 7, "mediaType": "0x0101", "firmware": "F3"},
      {"speed": 3, "mediaType": 1, "firmware": "F4"}],
     "patches": [{"offset": )" + std::to_string(64314 + 4 * 92 + 3) + R"(, "bytes": ")" + ModelHex + R"("}]}})");
  const rapidjson::Value &List = Boot.Section("OnBoardSataInfo")["SataList"];
  ASSERT_EQ(List.Size(), 5u);
  const char *Speeds[] = {"Unknown", "1.5Gbps", "3.0Gbps", "Unknown", "6.0Gbps"};
  const char *Types[] = {"HDD", "SSD", "HDD", "HDD", "SSD"};
  for (unsigned I = 0; I < 5; I++) {
    EXPECT_EQ(std::string(List[I]["Speed"].GetString()), Speeds[I]) << I;
    EXPECT_EQ(std::string(List[I]["Type"].GetString()), Types[I]) << I;
  }
  EXPECT_EQ(std::string(List[4]["Model"].GetString()), Model);
  EXPECT_EQ(std::string(List[4]["FwVersion"].GetString()), "F4");
}

TEST(OnBoardSataInfo, NoDrivesGiveAnEmptyList) {
  Booted Boot(R"({"pcd": {"tokens": {"351": 0}}})");
  const rapidjson::Value &Sata = Boot.Section("OnBoardSataInfo");
  ASSERT_EQ(Sata.MemberCount(), 2u);
  EXPECT_EQ(Sata["MaxSata"].GetUint(), 8u);
  EXPECT_TRUE(Sata["SataList"].IsArray() && Sata["SataList"].Empty());
  EXPECT_EQ(Boot.State("OnBoardSataInfo"), "filled");
}

TEST(OnBoardSataInfo, MissingPlatformSourcesAreHandled) {
  // Without the board description the section stays unfilled.
  Booted NoCustom(R"({"faults": {"missingProtocols": ["custom"]}})");
  EXPECT_TRUE(NoCustom.HasLine(kInfo, "Failed to locate qor custom protocol Not Found\n"));
  EXPECT_EQ(NoCustom.State("OnBoardSataInfo"), "unfilled");
  EXPECT_EQ(NoCustom.Section("OnBoardSataInfo").MemberCount(), 0u);

  // Without the system information block there are no drive entries to read.
  Booted NoBlock(R"({"systemInformation": {"dataBlock": false}})");
  EXPECT_EQ(NoBlock.State("OnBoardSataInfo"), "filled");
  EXPECT_TRUE(NoBlock.Section("OnBoardSataInfo")["SataList"].Empty());
}

}  // namespace
