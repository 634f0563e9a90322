// The customer policies over several boots of the example boards in
// boards/examples: a boot that changes a setting writes its variables and
// resets with the policy's reset type before anything is uploaded; the boot
// after it finds the setting in place and uploads the inventory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boot_helpers.h"
#include "emulator/board_json.h"
#include "emulator/boot_report.h"

namespace {

using qor::emu::BootResult;

std::vector<BootResult> BootExample(const std::string &File, int Boots) {
  return qor::emu::RunBoots(qor::emu::LoadBoardFile(QOR_SOURCE_DIR "/boards/examples/" + File), Boots);
}

// What the variable store saw, without the pointers and statuses the
// expectations do not need.
struct Written {
  std::string Name;
  std::string Guid;
  uint32_t Attributes;
  std::vector<uint8_t> Data;
  bool operator==(const Written &Other) const {
    return Name == Other.Name && Guid == Other.Guid && Attributes == Other.Attributes && Data == Other.Data;
  }
};

void PrintTo(const Written &W, std::ostream *Out) {
  *Out << W.Name << " " << W.Guid << " attributes " << W.Attributes << " data " << qor::emu::BytesHex(W.Data);
}

std::vector<Written> WritesOf(const BootResult &Result) {
  std::vector<Written> Out;
  for (const auto &Write : Result.VariableWrites) {
    EXPECT_EQ(Write.Status, EFI_SUCCESS);
    Out.push_back({std::string(Write.Name.begin(), Write.Name.end()), qor::emu::GuidToText(Write.Guid),
                   Write.Attributes, Write.Data});
  }
  return Out;
}

const qor::emu::Variable *Stored(const BootResult &Result, const std::u16string &Name) {
  for (const auto &Value : Result.VariablesAfter) {
    if (Value.Name == Name) return &Value;
  }
  return nullptr;
}

std::string LastLine(const BootResult &Result) {
  return Result.DebugLines.empty() ? "" : Result.DebugLines.back().Text;
}

// A boot the policy ended: reset of this type, nothing sent. The notify
// functions of the fill trigger run in registration order, and the flash
// upload's comes after the PcieDevice filler's, so not even the flash
// document goes out.
void ExpectResetBeforeAnyUpload(const BootResult &Result, EFI_RESET_TYPE Type) {
  ASSERT_EQ(Result.Resets.size(), 1u);
  EXPECT_EQ(Result.Resets[0].Type, Type);
  EXPECT_TRUE(Result.Uploads.empty()) << Result.Uploads.size() << " files sent";
}

// A boot that left the settings alone: no reset, both documents sent once.
void ExpectUploadWithoutReset(const BootResult &Result) {
  EXPECT_FALSE(Result.EndedInReset());
  EXPECT_EQ(qortest::UploadsNamed(Result.Uploads, qortest::kDocumentName).size(), 1u);
  EXPECT_EQ(qortest::UploadsNamed(Result.Uploads, qortest::kFlashName).size(), 1u);
}

// The device records of the inventory document, in order.
std::vector<const rapidjson::Value *> Devices(const rapidjson::Document &Document) {
  std::vector<const rapidjson::Value *> Out;
  if (!Document.IsObject()) return Out;
  for (const auto &Device : Document["PcieDevice"]["DeviceList"].GetArray()) Out.push_back(&Device);
  return Out;
}

const rapidjson::Value *DeviceWithIds(const rapidjson::Document &Document, unsigned Vendor, unsigned Device) {
  for (const rapidjson::Value *Record : Devices(Document)) {
    if ((*Record)["VendorID"].GetUint() == Vendor && (*Record)["DeviceID"].GetUint() == Device) return Record;
  }
  return nullptr;
}

constexpr char kBf2PresentGuid[] = "DD84017E-7F52-48F9-B16E-50ED9E0DBE27";
constexpr char kFixedBootPrioritiesGuid[] = "0C923CA9-DF73-4AC8-B6D2-98DDC30D99FC";
constexpr char kRecoveryBootModeGuid[] = "D60D9108-C911-4FDE-8D35-228C67854C01";
constexpr char kJdNicSlotGuid[] = "85DDF534-CF5A-44A9-ACAC-5C252F409F12";
constexpr char kResetCheckPointGuid[] = "DCE52B69-24BB-4D1D-B26A-1D9648C06A0E";
constexpr char kSocketMpLinkConfigGuid[] = "2B9B22DE-2AD4-4ABC-957D-5F18C504A05C";

}  // namespace

// ------------------------------------------------------------ CustomerId 1

TEST(CustomerOneBoots, TheBf2SwitchesALegacyMachineToUefiWithAWarmResetAndTheNextBootUploads) {
  auto Boots = BootExample("customer-1-dpu-boot-mode.json", 3);

  // The board's 22 bytes with byte 1, the boot mode, now 1 (UEFI).
  std::vector<uint8_t> Uefi = {0x01, 0x01, 0x03, 0x02, 0x05, 0x04, 0x06, 0x07, 0x08, 0x09};
  Uefi.resize(22, 0);
  ExpectResetBeforeAnyUpload(Boots[0], EfiResetWarm);
  EXPECT_EQ(WritesOf(Boots[0]), (std::vector<Written>{
                                    {"Bf2Present", kBf2PresentGuid, 3, {1}},
                                    {"FixedBootPriorities", kFixedBootPrioritiesGuid, 7, Uefi},
                                    {"QorRecoveryBootMode", kRecoveryBootModeGuid, 7, {}},
                                }));
  EXPECT_EQ(LastLine(Boots[0]), "Reset for skobiof nic(Legacy 0, UEFI 1: 0-->1). \n");
  // The BF2 is the first kept device: the choice is made there, and the
  // second DPU of the table (15B3:A2DC) is never asked.
  EXPECT_EQ(qortest::CountOf(Boots[0], "QorGetBootModeByDev entry\n"), 1u);
  EXPECT_EQ(qortest::CountOf(Boots[0], "Matched device: VendorID:0x15b3 DeviceID:0xa2d6 SubVendorID:0xff "
                                       "SubDeviceID:0xff CheckBootMode=1\n"),
            1u);

  for (int K = 1; K < 3; K++) {
    SCOPED_TRACE("boot " + std::to_string(K + 1));
    ExpectUploadWithoutReset(Boots[K]);
    EXPECT_EQ(WritesOf(Boots[K]), (std::vector<Written>{{"Bf2Present", kBf2PresentGuid, 3, {1}}}));
    EXPECT_EQ(qortest::CountOf(Boots[K], "Not found matched device or boot mode no changed: CurBootMode=1 "
                                         "CheckBootMode=1\n"),
              1u);
    ASSERT_NE(Stored(Boots[K], u"FixedBootPriorities"), nullptr);
    EXPECT_EQ(Stored(Boots[K], u"FixedBootPriorities")->Data, Uefi);
    EXPECT_EQ(Stored(Boots[K], u"QorRecoveryBootMode"), nullptr);
  }
  // The MMIOH check is not this customer's.
  for (const BootResult &Boot : Boots) EXPECT_EQ(qortest::CountOf(Boot, "QorChangeMMIOHSizeForP800 ---start\n"), 0u);
}

TEST(CustomerOneBoots, TheTaihangDpuSendsItsVpdKeywordsAsTheLastMemberOfItsRecord) {
  auto Boots = BootExample("customer-1-dpu-boot-mode.json", 2);
  rapidjson::Document Document = qortest::OnlyDocument(Boots[1]);
  ASSERT_EQ(Devices(Document).size(), 3u);
  const rapidjson::Value *Dpu = DeviceWithIds(Document, 0x1AF4, 0x1000);
  ASSERT_NE(Dpu, nullptr);
  std::vector<std::string> Members = qortest::MemberNames(*Dpu);
  ASSERT_FALSE(Members.empty());
  EXPECT_EQ(Members.back(), "VPDInfo");
  const rapidjson::Value &Vpd = (*Dpu)["VPDInfo"];
  EXPECT_EQ(qortest::MemberNames(Vpd), (std::vector<std::string>{"SN", "V0", "V1", "V2", "V3", "V4"}));
  EXPECT_STREQ(Vpd["SN"].GetString(), "TH23490017");
  EXPECT_STREQ(Vpd["V0"].GetString(), "DPU-FW 3.2.1");
  EXPECT_STREQ(Vpd["V1"].GetString(), "ARM 16C 2.0GHz");
  EXPECT_STREQ(Vpd["V2"].GetString(), "DDR5 32GB");
  EXPECT_STREQ(Vpd["V3"].GetString(), "PCIe Gen4 x16");
  EXPECT_STREQ(Vpd["V4"].GetString(), "Board rev C");
  // The DPUs outside the VPD table get no VPD object.
  for (unsigned Device : {0xA2D6u, 0xA2DCu}) {
    const rapidjson::Value *Other = DeviceWithIds(Document, 0x15B3, Device);
    ASSERT_NE(Other, nullptr);
    EXPECT_FALSE(Other->HasMember("VPDInfo"));
  }
}

// ------------------------------------------------------------ CustomerId 3

TEST(CustomerThreeBoots, TheJdNicSeenMovedAndRemovedResetsColdOnceForEachChange) {
  auto Boots = BootExample("customer-3-jd-nic.json", 6);
  const Written CheckPoint = {"QorResetCheckPoint", kResetCheckPointGuid, 6, {0x97}};
  auto SlotOf = [](const BootResult &Boot) -> int {
    rapidjson::Document Document = qortest::OnlyDocument(Boot);
    const rapidjson::Value *Nic = DeviceWithIds(Document, 0x1AF4, 0x1041);
    return Nic == nullptr ? -1 : static_cast<int>((*Nic)["Slot"].GetUint());
  };

  // Boot 1: the card in slot 5, no slot recorded yet.
  ExpectResetBeforeAnyUpload(Boots[0], EfiResetCold);
  EXPECT_EQ(WritesOf(Boots[0]), (std::vector<Written>{{"JdNicSlot", kJdNicSlotGuid, 7, {5}}, CheckPoint}));
  EXPECT_EQ(LastLine(Boots[0]), "[DXE] RST_CP_PCIE_UPDATE_BUS_RESOURCE\n");

  // Boot 2: the same slot. The check point was volatile and is gone.
  ExpectUploadWithoutReset(Boots[1]);
  EXPECT_TRUE(WritesOf(Boots[1]).empty());
  EXPECT_EQ(qortest::CountOf(Boots[1], "QorSetJdNicSlot: Slot Not change, CurrentSlot = 5, LastSlot = 5\n"), 1u);
  EXPECT_EQ(Stored(Boots[1], u"QorResetCheckPoint"), nullptr);
  EXPECT_EQ(SlotOf(Boots[1]), 5);

  // Boot 3: moved to slot 9.
  ExpectResetBeforeAnyUpload(Boots[2], EfiResetCold);
  EXPECT_EQ(WritesOf(Boots[2]), (std::vector<Written>{{"JdNicSlot", kJdNicSlotGuid, 7, {9}}, CheckPoint}));
  EXPECT_EQ(qortest::LevelOf(Boots[2], "QorSetJdNicSlot 1158 CurrentSlot = 9, LastSlot = 5\n"), 0x80000000u);

  // Boot 4: slot 9 again.
  ExpectUploadWithoutReset(Boots[3]);
  EXPECT_TRUE(WritesOf(Boots[3]).empty());
  EXPECT_EQ(qortest::CountOf(Boots[3], "QorSetJdNicSlot: Slot Not change, CurrentSlot = 9, LastSlot = 9\n"), 1u);
  EXPECT_EQ(SlotOf(Boots[3]), 9);

  // Boot 5: removed. No check point on this path.
  ExpectResetBeforeAnyUpload(Boots[4], EfiResetCold);
  EXPECT_EQ(WritesOf(Boots[4]), (std::vector<Written>{{"JdNicSlot", kJdNicSlotGuid, 7, {0xFF}}}));
  EXPECT_EQ(qortest::CountOf(Boots[4], "CurSlotInVariable=9\n"), 1u);
  EXPECT_EQ(LastLine(Boots[4]), "Reset for JD NIC removed.\n");

  // Boot 6: no card and none recorded.
  ExpectUploadWithoutReset(Boots[5]);
  EXPECT_TRUE(WritesOf(Boots[5]).empty());
  EXPECT_EQ(qortest::CountOf(Boots[5], "CurSlotInVariable=255\n"), 1u);
  EXPECT_EQ(SlotOf(Boots[5]), -1);
  ASSERT_NE(Stored(Boots[5], u"JdNicSlot"), nullptr);
  EXPECT_EQ(Stored(Boots[5], u"JdNicSlot")->Data, std::vector<uint8_t>{0xFF});
}

// ------------------------------------------------------------ CustomerId 17

TEST(CustomerSeventeenBoots, TheBf2LocationGoesToItsTokensAndTheZijinSwitchIsTheLastRecord) {
  auto Boots = BootExample("customer-17.json", 2);
  for (const BootResult &Boot : Boots) ExpectUploadWithoutReset(Boot);
  const BootResult &Boot = Boots[0];
  rapidjson::Document Document = qortest::OnlyDocument(Boot);
  EXPECT_STREQ(Document["BiosVersion"]["ExtVer"].GetString(), "QOR-CUSTOM-17 2.10.04") << "PCD token 48";

  // The BF2 sits below the root port at 15:01.0, on bus 0x16.
  const rapidjson::Value *Bf2 = DeviceWithIds(Document, 0x15B3, 0xA2D6);
  ASSERT_NE(Bf2, nullptr);
  EXPECT_EQ((*Bf2)["Bus"].GetUint(), 0x16u);
  ASSERT_EQ(Boot.PcdWrites.size(), 3u);
  const uint64_t Expected[][2] = {{344, 0x16}, {345, 0}, {346, 0}};
  for (size_t I = 0; I < 3; I++) {
    EXPECT_EQ(Boot.PcdWrites[I].Token, Expected[I][0]);
    EXPECT_EQ(Boot.PcdWrites[I].Size, 1u) << "Set8";
    EXPECT_EQ(Boot.PcdWrites[I].Value, Expected[I][1]);
  }
  EXPECT_TRUE(Boot.VariableWrites.empty()) << "no Bf2Present for this customer";

  // Records: the BF2, the Zijin device, then the switch's upstream port
  // (26:01.0 -> bus 0x27), the path's third node.
  std::vector<const rapidjson::Value *> Records = Devices(Document);
  ASSERT_EQ(Records.size(), 3u);
  EXPECT_EQ(Document["PcieDevice"]["DeviceCout"].GetUint(), 3u);
  const rapidjson::Value &Zijin = *Records[1];
  EXPECT_EQ(Zijin["SubVendorID"].GetUint(), 0x1BD4u);
  EXPECT_EQ(Zijin["SubDeviceID"].GetUint(), 0xF006u);
  const rapidjson::Value &Switch = *Records[2];
  EXPECT_EQ(Switch["VendorID"].GetUint(), 0x1172u);
  EXPECT_EQ(Switch["DeviceID"].GetUint(), 0x0055u);
  EXPECT_EQ(Switch["ClassCode"].GetUint(), 6u);
  EXPECT_EQ(Switch["SubClassCode"].GetUint(), 4u);
  EXPECT_EQ(Switch["Bus"].GetUint(), 0x27u);
  EXPECT_EQ(Switch["Slot"].GetUint(), 6u) << "the root port's slot";
  EXPECT_EQ(Switch["CPUBus"].GetUint(), 0x26u);
  EXPECT_EQ(Switch["CPUDev"].GetUint(), 1u);
  EXPECT_EQ(Switch["MezzSlot"].GetUint(), 255u);
  // The upstream port's own link: x8 of x16 at Gen4.
  EXPECT_EQ(Switch["LinkWidth"].GetUint(), 8u);
  EXPECT_EQ(Switch["LinkSpeed"].GetUint(), 4u);
  EXPECT_EQ(Switch["PCIeGen"].GetUint(), 4u);
  EXPECT_EQ(Switch["CardBandWidth"].GetUint(), 16u);
  EXPECT_EQ(Switch["MaxSpeed"].GetUint(), 0u) << "never derived for the switch record";
  // The Zijin device's link is the one of that same port (its link update),
  // and so is its slot.
  EXPECT_EQ(Zijin["LinkWidth"].GetUint(), 8u);
  EXPECT_EQ(Zijin["CardBandWidth"].GetUint(), 16u);
  EXPECT_EQ(Zijin["MaxSpeed"].GetUint(), 160u);
  EXPECT_EQ(Zijin["Slot"].GetUint(), 6u);
}

// ------------------------------------------------------------ P800, any other CustomerId

TEST(P800Boots, TheMmiohCodeBecomesFiveTheBmcHearsOfTheResetAndTheMachineResetsCold) {
  auto Boots = BootExample("p800-mmioh.json", 3);
  const BootResult &First = Boots[0];
  ExpectResetBeforeAnyUpload(First, EfiResetCold);

  // The board's 371 bytes with the 16-bit code at byte 51 set to 5.
  std::vector<uint8_t> Config(371, 0);
  const uint8_t Head[] = {0x01, 0x02, 0x01, 0x00, 0x10, 0x00, 0x08, 0x00};
  std::copy(std::begin(Head), std::end(Head), Config.begin());
  const uint8_t Around[] = {0x02, 0x01, 0x00, 0x05, 0x00, 0x01};
  std::copy(std::begin(Around), std::end(Around), Config.begin() + 48);
  EXPECT_EQ(WritesOf(First), (std::vector<Written>{{"SocketMpLinkConfig", kSocketMpLinkConfigGuid, 7, Config}}));

  // The reset report: the 25-byte header, then the packed fields with the
  // wake-up type 6 of the board's "QorWakeupType".
  const std::vector<uint8_t> Message = {
      0xA2, 0x63, 0x00, 0x02, 0xA8, 0xFF, 0x00, 0x20, 0x00, 0x00, 0x02, 0x00, 0x50,  // header bytes 0-12
      0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,        // header bytes 13-24
      0x00, 0x04, 0x01, 0x01, 0x00, 0x01, 0x01, 0x06, 0x01, 0x01, 0x99, 0x01, 0x01, 0x00};
  ASSERT_EQ(First.IpmiRequests.size(), 1u);
  EXPECT_EQ(First.IpmiRequests[0].NetFunction, 0x36);
  EXPECT_EQ(First.IpmiRequests[0].Lun, 0);
  EXPECT_EQ(First.IpmiRequests[0].Command, 0x2A);
  EXPECT_EQ(First.IpmiRequests[0].Data, Message);
  // The report is the last thing the boot did: the reset follows it.
  EXPECT_EQ(LastLine(First), "DXE Send Sdl message status: Success\n");

  // boot.json, as qor-emu writes it, says the same.
  std::string Report = qor::emu::BootReportJson(qor::emu::Board(), First, 1);
  rapidjson::Document Json;
  Json.Parse(Report.c_str(), Report.size());
  ASSERT_FALSE(Json.HasParseError());
  ASSERT_EQ(Json["ipmiRequests"].Size(), 1u);
  EXPECT_STREQ(Json["ipmiRequests"][0]["netFunction"].GetString(), "0x36");
  EXPECT_STREQ(Json["ipmiRequests"][0]["command"].GetString(), "0x2A");
  EXPECT_EQ(Json["ipmiRequests"][0]["data"].GetString(), qor::emu::BytesHex(Message));
  EXPECT_STREQ(Json["reset"]["type"].GetString(), "cold");
  EXPECT_TRUE(Json["uploads"].Empty());

  for (int K = 1; K < 3; K++) {
    SCOPED_TRACE("boot " + std::to_string(K + 1));
    ExpectUploadWithoutReset(Boots[K]);
    EXPECT_TRUE(Boots[K].VariableWrites.empty());
    EXPECT_TRUE(Boots[K].IpmiRequests.empty());
    ASSERT_NE(Stored(Boots[K], u"SocketMpLinkConfig"), nullptr);
    EXPECT_EQ(Stored(Boots[K], u"SocketMpLinkConfig")->Data, Config);
    // The P800 (base class 0x07) is a GPU through its row of the GPU table.
    ASSERT_EQ(Boots[K].Gpus.Count, 1u);
    const QOR_GPU_ENTRY Gpu = Boots[K].Gpus.Entries[0];  // a copy: the entry is packed
    EXPECT_EQ(+Gpu.VendorID, 0x1D22);
    EXPECT_EQ(+Gpu.DeviceID, 0x3688);
    EXPECT_EQ(+Gpu.Slot, 3u);
  }
}
