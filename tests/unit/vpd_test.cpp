// Vital product data: the dword read's address/flag handshake with its five
// timed polls, and the TAIHANG DPU's keyword walk with its length rules,
// against an emulated VPD capability.
//
// The card sits at 01:00.0 below a root port; its VPD capability at 0x90
// (after power management at 0x40 and PCI Express at 0x50). The counter runs
// at 2400 ticks per microsecond and a read moves it 100 ticks, so the
// driver's poll k (1-based) reads the flag at about (k - 1) x 1.04 us.
#include <string>

#include "emulator/pci/pci_device_services.h"
#include "pcie/special_devices.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

constexpr char kClock[] = R"("cpu": {"msr": {"0xCE": "0x1800"}, "tscTicksPerRead": 100})";
constexpr uint64_t kTicksPerMicrosecond = 2400;

// Identifier "QOR DPU" (7 bytes: VPD 3..9), then the read-only section.
constexpr char kIdentifier[] = "QOR DPU";

class VpdTest : public PciBusOnEmulator {
 protected:
  // A TAIHANG DPU (row 3) whose VPD member is Vpd.
  void StartCard(const std::string &Vpd) {
    StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
               {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": 6, "devices": [
                 {"vendorId": "0x1AF4", "deviceId": "0x1041", "subsystemVendorId": "0x1D22",
                  "subsystemId": "0x1100", "classCode": "0x020000", "vpd": )" +
                 Vpd + "}]}]}]}",
             kClock);
    Card = PciIoAt(0, 1, 0, 0);
    ASSERT_NE(Card, nullptr);
    Device = Plat->PciDevices()->Vpd({0, 1, 0, 0});
    ASSERT_NE(Device, nullptr);
  }

  // A record of the card as the walk fills it before the detections.
  PCIE_DEVICE_INFO Record() {
    PCIE_DEVICE_INFO R = {};
    R.Handle = HandleAt(0, 1, 0, 0);
    R.VendorID = 0x1AF4;
    R.DeviceID = 0x1041;
    R.SubVendorID = 0x1D22;
    R.SubDeviceID = 0x1100;
    return R;
  }

  EFI_PCI_IO_PROTOCOL *Card = nullptr;
  qor::emu::VpdCapability *Device = nullptr;
};

std::string Text(size_t Length, char First) {
  std::string Out;
  for (size_t I = 0; I < Length; I++) Out += static_cast<char>(First + I % 26);
  return Out;
}

// ------------------------------------------------------------ the dword read

TEST_F(VpdTest, ReadsAnAlignedDwordWithOneRequestAndTheFlagSet) {
  StartCard(R"({"image": "82 07 00 51 4F 52 20 44 50 55 78"})");
  UINT32 Value = 0;
  EXPECT_EQ(QorReadVpdDword(Card, 4, &Value), EFI_SUCCESS);
  EXPECT_EQ(Value, 0x4420524Fu);  // "OR D" from VPD 4..7
  EXPECT_EQ(Device->Requests(), 1u);
  EXPECT_EQ(Read16(Card, 0x92), 0x8004) << "the address register keeps the address with the flag set";
}

TEST_F(VpdTest, AnUnalignedDwordJoinsTheTwoDwordsAroundIt) {
  StartCard(R"({"image": "82 07 00 51 4F 52 20 44 50 55 78"})");
  UINT32 Value = 0;
  EXPECT_EQ(QorReadVpdDword(Card, 3, &Value), EFI_SUCCESS);
  EXPECT_EQ(Value, 0x20524F51u);  // "QOR " from VPD 3..6
  EXPECT_EQ(Device->Requests(), 2u);
}

TEST_F(VpdTest, ADeviceThatNeverSetsTheFlagTimesOutAfterFivePollsAndFiveWaits) {
  StartCard(R"({"image": "82 00 00 78", "latencyUs": "never"})");
  UINT32 Value = 0x12345678;
  EXPECT_EQ(QorReadVpdDword(Card, 0, &Value), EFI_TIMEOUT);
  EXPECT_EQ(Device->FlagReadsSinceRequest(), 5u);
  EXPECT_GE(Plat->Tsc().Now(), 5 * kTicksPerMicrosecond) << "a microsecond's wait after each failed poll";
  EXPECT_NE(Log().find("Get VPD Data in Address:0 timed out\n"), std::string::npos);
}

TEST_F(VpdTest, AnAnswerWithinTheFifthPollIsReadAndALaterOneIsNot) {
  // Poll 5 comes after four waits (about 4.2 us).
  StartCard(R"({"image": "82 00 00 78", "latencyUs": 4})");
  UINT32 Value = 0;
  EXPECT_EQ(QorReadVpdDword(Card, 0, &Value), EFI_SUCCESS);
  EXPECT_EQ(Device->FlagReadsSinceRequest(), 5u);
  EXPECT_EQ(Value, 0x78000082u);

  StartCard(R"({"image": "82 00 00 78", "latencyUs": 5})");
  EXPECT_EQ(QorReadVpdDword(Card, 0, &Value), EFI_TIMEOUT);
}

TEST_F(VpdTest, AFailingConfigurationReadIsReturned) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
             {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "devices": [
               {"vendorId": "0x1AF4", "deviceId": "0x1041", "vpd": {"image": "78"},
                "faults": {"readFails": [148]}}]}]}]})",
           kClock);
  UINT32 Value = 0;
  EXPECT_EQ(QorReadVpdDword(PciIoAt(0, 1, 0, 0), 0, &Value), EFI_DEVICE_ERROR) << "data register at 0x94";
}

TEST_F(VpdTest, AFunctionWithoutTheCapabilityHasNoVpd) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
             {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "devices": [{"vendorId": "0x1AF4", "deviceId": "0x1041"}]}]}]})",
           kClock);
  UINT32 Value = 0;
  EXPECT_EQ(QorReadVpdDword(PciIoAt(0, 1, 0, 0), 0, &Value), EFI_NOT_FOUND);
}

// ------------------------------------------------------------ the keyword walk

TEST_F(VpdTest, FindsTheSixKeywordsInBothSectionsPastOtherKeywords) {
  StartCard(std::string(R"({"identifier": ")") + kIdentifier + R"(",
              "readOnly": {"PN": "QDP-100", "SN": "QD2401234567", "V0": "TAIHANG", "V1": "1.2"},
              "readWrite": {"V2": "A", "V3": "", "V4": "B4"}})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.VPDInfo[0], "QD2401234567");
  EXPECT_STREQ(R.VPDInfo[1], "TAIHANG");
  EXPECT_STREQ(R.VPDInfo[2], "1.2");
  EXPECT_STREQ(R.VPDInfo[3], "A");
  EXPECT_STREQ(R.VPDInfo[4], "");
  EXPECT_STREQ(R.VPDInfo[5], "B4");
  EXPECT_NE(Log().find("Get VPDInfo[0]: QD2401234567\n"), std::string::npos);
}

TEST_F(VpdTest, AValueOf39BytesIsKeptAndOneOf40IsRejected) {
  std::string Kept = Text(39, 'a');
  std::string Long = Text(40, 'A');
  StartCard(R"({"identifier": "X", "readOnly": {"SN": ")" + Kept + R"(", "V0": ")" + Long + R"(", "V1": "ok"}})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_SUCCESS);
  EXPECT_EQ(std::string(R.VPDInfo[0]), Kept);
  EXPECT_STREQ(R.VPDInfo[1], "");
  EXPECT_STREQ(R.VPDInfo[2], "ok") << "the next keyword is read again";
  EXPECT_NE(Log().find("The Length of VPD Keyword is too large!\n"), std::string::npos);
}

TEST_F(VpdTest, AMissingKeywordReusesTheLastLengthFromAddressThree) {
  // SN is missing while no length is known: empty. V0 sets the length 5; V1
  // and V2 are missing and read 5 bytes from VPD 3, the identifier text.
  StartCard(std::string(R"({"identifier": ")") + kIdentifier + R"(", "readOnly": {"V0": "12345"}})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.VPDInfo[0], "");
  EXPECT_STREQ(R.VPDInfo[1], "12345");
  EXPECT_STREQ(R.VPDInfo[2], "QOR D");
  EXPECT_STREQ(R.VPDInfo[5], "QOR D");
  EXPECT_NE(Log().find("Not Found V1\n"), std::string::npos);
}

TEST_F(VpdTest, ARejectedLengthCarriesOverToTheMissingKeywordsAfterIt) {
  StartCard(R"({"identifier": "X", "readOnly": {"SN": ")" + Text(45, 'a') + R"("}})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_SUCCESS);
  for (int K = 0; K < 6; K++) EXPECT_STREQ(R.VPDInfo[K], "") << K;
  size_t Rejections = 0;
  for (size_t At = Log().find("too large"); At != std::string::npos; At = Log().find("too large", At + 1)) Rejections++;
  EXPECT_EQ(Rejections, 6u);
}

TEST_F(VpdTest, AnImageWithoutAnEndTagEndsTheSearchAtTheVpdAddressLimit) {
  // The storage wraps at its 20 bytes, so the walk never meets an end tag.
  StartCard(R"({"identifier": "QOR", "readOnly": {"SN": "S1"}, "checksum": false, "end": false, "size": 20})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.VPDInfo[0], "S1");
  EXPECT_NE(Log().find("Not Found V4\n"), std::string::npos);
  EXPECT_LT(Device->Requests(), 6u * 2 * 0x8000 / 3) << "one walk per keyword, each bounded";
}

TEST_F(VpdTest, ADataReadThatTimesOutStopsTheWalkAndLeavesLaterKeywordsEmpty) {
  // SN's entry is at VPD 9 (read from the dwords at 8 and 12), its data at
  // 12..19; the dword at 16 never answers.
  StartCard(R"({"identifier": "QOR", "readOnly": {"SN": "ABCDEFGH", "V0": "x"}, "failAt": [16]})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_TIMEOUT);
  EXPECT_STREQ(R.VPDInfo[1], "");
  EXPECT_NE(Log().find("Failed to obtain MAC address data from VPD!, Status:Time out\n"), std::string::npos);
}

TEST_F(VpdTest, OtherDevicesAreNotSearched) {
  StartCard(R"({"identifier": "X", "readOnly": {"SN": "S"}})");
  PCIE_DEVICE_INFO R = Record();
  R.SubDeviceID = 0x1101;
  EXPECT_EQ(QorFindTaihangDpu(&R), EFI_NOT_FOUND);
  EXPECT_EQ(Device->Requests(), 0u);
  EXPECT_NE(Log().find("Not Find TAIHANG DPU Device\n"), std::string::npos);
}

}  // namespace
