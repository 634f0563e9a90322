// The customer policies' reset conditions, each in full: the boot mode a
// DPU asks for (CustomerId 1), the JD NIC's slot (3) and the P800's MMIOH
// size (others). Each case runs the policy on a board's variables and PCDs
// and records whether it reset the machine and what it wrote first.
#include <csetjmp>
#include <cstring>
#include <string>
#include <vector>

#include "pcie/special_devices.h"
#include "platform/guids.h"
#include "tests/unit/driver_fixture.h"

namespace {

class PolicyTest : public DriverOnEmulator {
 protected:
  // A board with these extra members (JSON without the outer braces).
  void StartWith(const std::string &Members) {
    Start(BoardFrom("{" + Members + "}"));
    gQorJdNicSeen = FALSE;
  }

  // Runs Call; true when it reset the machine (the reset ends the call).
  template <typename Function>
  bool Resets(Function Call) {
    std::jmp_buf Target;
    Fw->ArmResetTarget(&Target);
    if (setjmp(Target) != 0) {
      Fw->ArmResetTarget(nullptr);
      return true;
    }
    Call();
    Fw->ArmResetTarget(nullptr);
    return false;
  }
  EFI_RESET_TYPE ResetType() const { return Fw->Resets().empty() ? EfiResetPlatformSpecific : Fw->Resets()[0].Type; }

  std::vector<qor::emu::VariableWrite> WritesOf(const std::u16string &Name) const {
    std::vector<qor::emu::VariableWrite> Out;
    for (const auto &Write : Fw->Variables().Writes()) {
      if (Write.Name == Name) Out.push_back(Write);
    }
    return Out;
  }
  bool Logged(const std::string &Line) const { return Log().find(Line) != std::string::npos; }
};

PCIE_DEVICE_INFO Ids(UINT16 Vendor, UINT16 Device, UINT16 SubVendor, UINT16 SubDevice, UINT32 Slot = 0) {
  PCIE_DEVICE_INFO R = {};
  R.VendorID = Vendor;
  R.DeviceID = Device;
  R.SubVendorID = SubVendor;
  R.SubDeviceID = SubDevice;
  R.Slot = Slot;
  return R;
}

// ------------------------------------------------------------ boot mode (CustomerId 1)

std::string Priorities(int Mode, int Attributes = 7, int Size = 22) {
  return R"({"name": "FixedBootPriorities", "attributes": )" + std::to_string(Attributes) + R"(, "size": )" +
         std::to_string(Size) + R"(, "data": "AA )" + (Mode == 0 ? "00" : "01") + R"( BB CC"})";
}

TEST_F(PolicyTest, ADpuSlotAsksForUefiWhateverTheDevice) {
  StartWith(R"("pcd": {"customerId": 1, "dpuNicSlot": 4})");
  PCIE_DEVICE_INFO Nic = Ids(0x8086, 0x1572, 0x8086, 0x0001);
  EXPECT_EQ(QorGetBootModeByDev(&Nic), 1);
  EXPECT_EQ(QorGetBootModeByDev(nullptr), 1);
  EXPECT_TRUE(Logged("DPU NicSlotNum=4\n"));
}

TEST_F(PolicyTest, WithoutADpuSlotOnlyTheTwoDpuCardsAskForUefiWhateverTheirSubIds) {
  StartWith(R"("pcd": {"customerId": 1, "dpuNicSlot": 255})");
  PCIE_DEVICE_INFO Bf2 = Ids(0x15B3, 0xA2D6, 0x15B3, 0x0061);
  PCIE_DEVICE_INFO Other = Ids(0x15B3, 0xA2DC, 0xFFFF, 0x0000);
  PCIE_DEVICE_INFO Nic = Ids(0x15B3, 0xA2D7, 0x00FF, 0x00FF);
  EXPECT_EQ(QorGetBootModeByDev(&Bf2), 1);
  EXPECT_EQ(QorGetBootModeByDev(&Other), 1);
  EXPECT_EQ(QorGetBootModeByDev(&Nic), 0xFF);
  EXPECT_EQ(QorGetBootModeByDev(nullptr), 0xFF);
  EXPECT_TRUE(Logged("pPcieInfo is null.\n"));
  EXPECT_TRUE(Logged("Matched device: VendorID:0x15b3 DeviceID:0xa2dc SubVendorID:0xff SubDeviceID:0xff CheckBootMode=1\n"));
}

TEST_F(PolicyTest, AChangedModeIsWrittenBackTheRecoveryModeClearedAndTheMachineWarmReset) {
  StartWith(R"("pcd": {"customerId": 1}, "variables": [)" + Priorities(0, 3) +
            R"(, {"name": "QorRecoveryBootMode", "data": "01"}])");
  EXPECT_TRUE(Resets([] { QorModifyBootModeByDev(1); }));
  EXPECT_EQ(ResetType(), EfiResetWarm);
  auto Written = WritesOf(u"FixedBootPriorities");
  ASSERT_EQ(Written.size(), 1u);
  EXPECT_EQ(Written[0].Attributes, 3u) << "as read";
  ASSERT_EQ(Written[0].Data.size(), 22u) << "the size read";
  EXPECT_EQ(Written[0].Data[0], 0xAA);
  EXPECT_EQ(Written[0].Data[1], 1);
  EXPECT_EQ(Written[0].Data[3], 0xCC);
  auto Cleared = WritesOf(u"QorRecoveryBootMode");
  ASSERT_EQ(Cleared.size(), 1u);
  EXPECT_TRUE(Cleared[0].Data.empty());
  EXPECT_EQ(Cleared[0].Attributes, 7u);
  EXPECT_EQ(Fw->Variables().Find(u"QorRecoveryBootMode", gQorRecoveryBootModeGuid), nullptr);
  EXPECT_TRUE(Logged("Reset for skobiof nic(Legacy 0, UEFI 1: 0-->1). \n"));
}

TEST_F(PolicyTest, AShorterVariableIsWrittenBackWithItsOwnSize) {
  StartWith(R"("pcd": {"customerId": 1}, "variables": [)" + Priorities(1, 7, 4) + "]");
  EXPECT_TRUE(Resets([] { QorModifyBootModeByDev(0); }));
  auto Written = WritesOf(u"FixedBootPriorities");
  ASSERT_EQ(Written.size(), 1u);
  EXPECT_EQ(Written[0].Data, (std::vector<uint8_t>{0xAA, 0x00, 0xBB, 0xCC}));
}

TEST_F(PolicyTest, NoResetInIpmiBootModeWithoutTheVariableOrWithoutAChange) {
  struct Case {
    const char *Board;
    UINT8 Mode;
    const char *Line;
  } Cases[] = {
      {R"("pcd": {"tokens": {"40": 1}}, "variables": [)", 1, "Do nothing in ipmi boot mode.\n"},
      {R"("pcd": {"tokens": {"40": 2}}, "variables": [)", 1, "Do nothing in ipmi boot mode.\n"},
      {R"("variables": [)", 0, "Not found matched device or boot mode no changed: CurBootMode=0 CheckBootMode=0\n"},
      {R"("variables": [)", 0xFF, "Not found matched device or boot mode no changed: CurBootMode=0 CheckBootMode=255\n"},
  };
  for (const Case &C : Cases) {
    SCOPED_TRACE(C.Line);
    StartWith(std::string(C.Board) + Priorities(0) + "]");
    EXPECT_FALSE(Resets([&] { QorModifyBootModeByDev(C.Mode); }));
    EXPECT_TRUE(Fw->Variables().Writes().empty());
    EXPECT_TRUE(Logged(C.Line));
  }
  StartWith(R"("variables": [])");
  EXPECT_FALSE(Resets([] { QorModifyBootModeByDev(1); }));
  EXPECT_TRUE(Logged("Get FixedBootPriorities variable failed: Not Found\n"));
  StartWith(R"("variables": [)" + Priorities(0, 7, 23) + "]");
  EXPECT_FALSE(Resets([] { QorModifyBootModeByDev(1); })) << "larger than the 22-byte buffer";
  EXPECT_TRUE(Logged("Get FixedBootPriorities variable failed: Buffer Too Small\n"));
}

TEST_F(PolicyTest, AFailedWriteBackStopsWithoutResetButAFailedClearStillResets) {
  StartWith(R"("variables": [)" + Priorities(0) + R"(], "faults": {"failVariableSet": ["FixedBootPriorities"]})");
  EXPECT_FALSE(Resets([] { QorModifyBootModeByDev(1); }));
  EXPECT_TRUE(WritesOf(u"QorRecoveryBootMode").empty());

  StartWith(R"("variables": [)" + Priorities(0) + R"(], "faults": {"failVariableSet": ["QorRecoveryBootMode"]})");
  EXPECT_TRUE(Resets([] { QorModifyBootModeByDev(1); }));
  EXPECT_TRUE(Logged("Clear QorRecoveryBootMode status=Device Error\n"));
}

// ------------------------------------------------------------ JD NIC slot (CustomerId 3)

PCIE_DEVICE_INFO JdNic(UINT32 Slot) { return Ids(0x1AF4, 0x1041, 0x1172, 0x0001, Slot); }

std::string JdSlot(int Slot) {
  return R"("variables": [{"name": "JdNicSlot", "data": [)" + std::to_string(Slot) + "]}]";
}

TEST_F(PolicyTest, AJdNicSeenForTheFirstTimeRecordsItsSlotAndColdResets) {
  StartWith(R"("variables": [])");
  PCIE_DEVICE_INFO Nic = JdNic(0x105);
  EXPECT_TRUE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_EQ(ResetType(), EfiResetCold);
  EXPECT_TRUE(gQorJdNicSeen);
  auto Slot = WritesOf(u"JdNicSlot");
  ASSERT_EQ(Slot.size(), 1u);
  EXPECT_EQ(Slot[0].Data, std::vector<uint8_t>{5}) << "the slot's low byte";
  EXPECT_EQ(Slot[0].Attributes, 7u);
  auto CheckPoint = WritesOf(u"QorResetCheckPoint");
  ASSERT_EQ(CheckPoint.size(), 1u);
  EXPECT_EQ(CheckPoint[0].Data, std::vector<uint8_t>{151});
  EXPECT_EQ(CheckPoint[0].Attributes, 6u) << "volatile";
  EXPECT_EQ(std::memcmp(&CheckPoint[0].Guid, &gQorWakeupTypeVariableGuid, sizeof(EFI_GUID)), 0);
  EXPECT_TRUE(Logged("[DXE] RST_CP_PCIE_UPDATE_BUS_RESOURCE\n"));
}

TEST_F(PolicyTest, AJdNicInItsRecordedSlotChangesNothing) {
  StartWith(JdSlot(5));
  PCIE_DEVICE_INFO Nic = JdNic(5);
  EXPECT_FALSE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_TRUE(gQorJdNicSeen);
  EXPECT_TRUE(Fw->Variables().Writes().empty());
  EXPECT_TRUE(Logged("QorSetJdNicSlot: Slot Not change, CurrentSlot = 5, LastSlot = 5\n"));
}

TEST_F(PolicyTest, AMovedJdNicRecordsTheNewSlotAndColdResets) {
  StartWith(JdSlot(3));
  PCIE_DEVICE_INFO Nic = JdNic(7);
  EXPECT_TRUE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_EQ(ResetType(), EfiResetCold);
  EXPECT_EQ(WritesOf(u"JdNicSlot").at(0).Data, std::vector<uint8_t>{7});
  EXPECT_EQ(WritesOf(u"QorResetCheckPoint").size(), 1u);
  EXPECT_TRUE(Logged("QorSetJdNicSlot 1158 CurrentSlot = 7, LastSlot = 3\n"));
}

TEST_F(PolicyTest, AFailedSlotWriteStopsButAFailedCheckPointWriteStillResets) {
  StartWith(JdSlot(3) + R"(, "faults": {"failVariableSet": ["JdNicSlot"]})");
  PCIE_DEVICE_INFO Nic = JdNic(7);
  EXPECT_FALSE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_TRUE(Logged("QorSetJdNicSlot: SetVariable Slot failed,Status = Device Error\n"));
  EXPECT_TRUE(WritesOf(u"QorResetCheckPoint").empty());

  StartWith(JdSlot(3) + R"(, "faults": {"failVariableSet": ["QorResetCheckPoint"]})");
  EXPECT_TRUE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_TRUE(Logged("[QorSetJdNicSlot]: Fail to set variable QorResetCheckPoint, Device Error\n"));
}

TEST_F(PolicyTest, OtherCardsLeaveTheJdFlagClear) {
  StartWith(R"("variables": [])");
  PCIE_DEVICE_INFO Nic = Ids(0x1AF4, 0x1041, 0x1172, 0x0002, 3);
  EXPECT_FALSE(Resets([&] { QorSetJdNicSlot(&Nic); }));
  EXPECT_FALSE(gQorJdNicSeen);
  EXPECT_TRUE(Fw->Variables().Writes().empty());
}

TEST_F(PolicyTest, ARemovedJdNicStoresNoCardAndColdResetsWithoutACheckPoint) {
  StartWith(JdSlot(4));
  EXPECT_TRUE(Resets([] { QorJdNicAbsentProcess(); }));
  EXPECT_EQ(ResetType(), EfiResetCold);
  auto Slot = WritesOf(u"JdNicSlot");
  ASSERT_EQ(Slot.size(), 1u);
  EXPECT_EQ(Slot[0].Data, std::vector<uint8_t>{0xFF});
  EXPECT_EQ(Slot[0].Attributes, 7u);
  EXPECT_TRUE(WritesOf(u"QorResetCheckPoint").empty());
  EXPECT_TRUE(Logged("CurSlotInVariable=4\n"));
  EXPECT_TRUE(Logged("Reset for JD NIC removed.\n"));
}

TEST_F(PolicyTest, AnAbsentJdNicResetsOnlyWhenASlotBelow255IsRecordedAndWritten) {
  StartWith(JdSlot(255));
  EXPECT_FALSE(Resets([] { QorJdNicAbsentProcess(); }));
  EXPECT_TRUE(Fw->Variables().Writes().empty());

  StartWith(R"("variables": [])");
  EXPECT_FALSE(Resets([] { QorJdNicAbsentProcess(); }));
  EXPECT_TRUE(Logged("QorJdNicAbsentProcess: Get JdNicSlot variable, Status=Not Found\n"));

  StartWith(JdSlot(4) + R"(, "faults": {"failVariableSet": ["JdNicSlot"]})");
  EXPECT_FALSE(Resets([] { QorJdNicAbsentProcess(); }));
  EXPECT_TRUE(Logged("Reset JdNicSlot Variable CurSlot, Status=Device Error\n"));
}

// ------------------------------------------------------------ MMIOH size (P800)

std::string MpLink(const char *Code, int Attributes = 3, int Size = 371) {
  return R"("variables": [{"name": "SocketMpLinkConfig", "attributes": )" + std::to_string(Attributes) +
         R"(, "size": )" + std::to_string(Size) + R"(, "patches": [{"offset": 0, "bytes": "5A"}, {"offset": 51, "bytes": ")" +
         Code + R"("}]}])";
}

TEST_F(PolicyTest, EachP800RaisesTheMmiohCodeToFiveReportsTheResetAndColdResets) {
  const PCIE_DEVICE_INFO Cards[] = {Ids(0x1D22, 0x3688, 1, 1), Ids(0x2057, 0x3689, 1, 1), Ids(0x2057, 0x3694, 1, 1)};
  for (PCIE_DEVICE_INFO Card : Cards) {
    SCOPED_TRACE(Card.DeviceID);
    StartWith(MpLink("03 00"));
    EXPECT_TRUE(Resets([&] { QorChangeMMIOHSizeForP800(&Card); }));
    EXPECT_EQ(ResetType(), EfiResetCold);
    auto Written = WritesOf(u"SocketMpLinkConfig");
    ASSERT_EQ(Written.size(), 1u);
    EXPECT_EQ(Written[0].Attributes, 3u);
    ASSERT_EQ(Written[0].Data.size(), 371u);
    EXPECT_EQ(Written[0].Data[0], 0x5A) << "the rest passes through";
    EXPECT_EQ(Written[0].Data[51], 5);
    EXPECT_EQ(Written[0].Data[52], 0);
    ASSERT_EQ(Plat->IpmiRequests().size(), 1u) << "the reset report goes out first";
    EXPECT_EQ(Plat->IpmiRequests()[0].NetFunction, 0x36);
    EXPECT_EQ(Plat->IpmiRequests()[0].Command, 0x2A);
    EXPECT_EQ(Plat->IpmiRequests()[0].Data.size(), 39u);
  }
}

TEST_F(PolicyTest, TheMmiohCodeIsComparedAsSixteenBits) {
  PCIE_DEVICE_INFO Card = Ids(0x1D22, 0x3688, 1, 1);
  StartWith(MpLink("05 00"));
  EXPECT_FALSE(Resets([&] { QorChangeMMIOHSizeForP800(&Card); }));
  EXPECT_TRUE(Fw->Variables().Writes().empty());
  EXPECT_TRUE(Plat->IpmiRequests().empty());

  StartWith(MpLink("05 01"));
  EXPECT_TRUE(Resets([&] { QorChangeMMIOHSizeForP800(&Card); }));
  EXPECT_EQ(WritesOf(u"SocketMpLinkConfig").at(0).Data[52], 0);
}

TEST_F(PolicyTest, AFailedWriteBackStillReportsAndResets) {
  PCIE_DEVICE_INFO Card = Ids(0x2057, 0x3694, 1, 1);
  StartWith(MpLink("03 00") + R"(, "faults": {"failVariableSet": ["SocketMpLinkConfig"]})");
  EXPECT_TRUE(Resets([&] { QorChangeMMIOHSizeForP800(&Card); }));
  EXPECT_EQ(Plat->IpmiRequests().size(), 1u);
}

TEST_F(PolicyTest, NoResetWithoutAP800OrWithoutAReadableVariable) {
  PCIE_DEVICE_INFO Near = Ids(0x1D22, 0x3688, 1, 2);
  StartWith(MpLink("03 00"));
  EXPECT_FALSE(Resets([&] { QorChangeMMIOHSizeForP800(&Near); }));
  EXPECT_TRUE(Logged("QorChangeMMIOHSizeForP800 ---start\n"));

  PCIE_DEVICE_INFO Card = Ids(0x1D22, 0x3688, 1, 1);
  StartWith(R"("variables": [])");
  EXPECT_EQ(QorChangeMMIOHSizeForP800(&Card), EFI_NOT_FOUND) << "the status of the read";
  StartWith(MpLink("03 00", 3, 372));
  EXPECT_FALSE(Resets([&] { QorChangeMMIOHSizeForP800(&Card); })) << "larger than the 371-byte buffer";
  EXPECT_TRUE(Fw->Variables().Writes().empty());
}

}  // namespace
