// NVMe drives behind a VMD: the records built from the VROC device info
// instances, and the link fields read through the VMD's configuration
// aperture (address formula with its Segment term, the capability walk with
// its visited map).
//
// The VMD is 00:05.0 with a 32 MiB memory BAR0 at 0xA0000000. Its hidden
// buses start at 0x80: a root port at 80:02.0 (slot 12), drives at 81:00.0
// and, behind a second port 80:03.0 (slot 13), at 82:00.0.
#include <cstring>
#include <string>
#include <vector>

#include "emulator/pci/pci_device_services.h"
#include "pcie/special_devices.h"
#include "platform/cpu_access.h"
#include "platform/guids.h"
#include "platform/vroc.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

constexpr char kDriveA[] = R"({"vendorId": "0x8086", "deviceId": "0x0B60", "subsystemVendorId": "0x8086",
   "subsystemId": "0x8008", "classCode": "0x010802", "link": {"maxSpeed": 4, "maxWidth": 4, "speed": 3, "width": 2},
   "nvme": {"serial": "PHAB1234", "model": "  QOR U.2 3.84TB                        ", "firmware": "E2010325",
            "namespaces": [{"blockCount": 7501476528}]}})";

class VmdTest : public PciBusOnEmulator {
 protected:
  // Hidden: the devices of the VMD domain; Segment: what VROC reports.
  void StartVmd(const std::string &SecondDrive = "", const std::string &Segment = "0",
                const std::string &VmdPatches = "[]") {
    std::string Second = SecondDrive.empty() ? "" : R"(, {"device": 3, "type": "rootPort", "vendorId": "0x8086",
        "deviceId": "0x347A", "slot": 13, "devices": [)" + SecondDrive + "]}";
    StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
               {"device": 5, "type": "rcEndpoint", "vendorId": "0x8086", "deviceId": "0x28C0",
                "classCode": "0x010400", "patches": )" + VmdPatches + R"(,
                "bars": [{"type": "mem64", "size": "32M", "base": "0xA0000000"}],
                "vmd": {"segment": )" + Segment + R"(, "buses": [128, 159], "devices": [
                  {"device": 2, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x347A", "slot": 12,
                   "devices": [)" + kDriveA + "]}" + Second + "]}}]}]}");
  }
  // The VROC record of the k-th drive, as the driver reads it.
  const UINT8 *Vroc(size_t K) {
    return static_cast<const UINT8 *>(Plat->PciDevices()->VrocInstances().at(K)->Interface());
  }
  std::vector<UINT8> CopyOfVroc(size_t K) { return std::vector<UINT8>(Vroc(K), Vroc(K) + QOR_VROC_INFO_SIZE); }
  template <typename T>
  static void Put(std::vector<UINT8> *Info, size_t Offset, T Value) {
    std::memcpy(Info->data() + Offset, &Value, sizeof(T));
  }
  bool Logged(const std::string &Line) { return Log().find(Line) != std::string::npos; }
};

TEST_F(VmdTest, EachNvmeDriveBehindTheVmdBecomesARecordWithItsLinkReadThroughTheAperture) {
  StartVmd(R"({"vendorId": "0x144D", "deviceId": "0xA824", "classCode": "0x010802",
               "link": {"maxSpeed": 5, "maxWidth": 4},
               "nvme": {"serial": "S2", "model": "Member  ", "firmware": "F2", "capacity": 1920383410176},
               "vroc": {"raidMember": true, "socket": 1}})");
  std::vector<PCIE_DEVICE_INFO> Records(4);
  UINT64 Count = 1;  // one record filled by the walk before
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, &Records[1]), EFI_SUCCESS);
  EXPECT_EQ(Count, 3u);

  const PCIE_DEVICE_INFO &A = Records[1];
  EXPECT_EQ(A.VendorID, 0x8086);
  EXPECT_EQ(A.DeviceID, 0x0B60);
  EXPECT_EQ(A.SubVendorID, 0x8086);
  EXPECT_EQ(A.SubDeviceID, 0x8008);
  EXPECT_EQ(A.ClassCode, 1);
  EXPECT_EQ(A.SubClassCode, 8);
  EXPECT_EQ(A.ProgIF, 2);
  EXPECT_EQ(A.Slot, 12u) << "the slot of the hidden port";
  EXPECT_EQ(A.MezzSlot, 255u);
  EXPECT_EQ(A.CPU, 0u);
  EXPECT_EQ(A.CPUBus, 0x80u);
  EXPECT_EQ(A.CPUDev, 2u);
  EXPECT_EQ(A.CPUFunc, 0u);
  EXPECT_EQ(A.Bus, 0x81u);
  EXPECT_EQ(A.Dev, 0u);
  EXPECT_EQ(A.Segment, 0u);
  EXPECT_TRUE(A.BehindVMD);
  EXPECT_FALSE(A.VMDRaidMember);
  EXPECT_EQ(A.Capacity, 7501476528ull * 512);
  EXPECT_STREQ(A.CapacityText, "3840 GB") << "written after the model's trim";
  EXPECT_STREQ(A.Model, "QOR U.2 3.84TB");
  EXPECT_STREQ(A.SerialNumber, "PHAB1234");
  EXPECT_STREQ(A.FwVersion, "E2010325");
  EXPECT_STREQ(A.Type, "PCIe");
  EXPECT_EQ(A.LinkWidth, 2u);
  EXPECT_EQ(A.LinkSpeed, 3u);
  EXPECT_EQ(A.CardBandWidth, 4u);
  EXPECT_EQ(A.PCIeGen, 4u);
  EXPECT_EQ(A.MaxSpeed, 160u);

  const PCIE_DEVICE_INFO &B = Records[2];
  EXPECT_EQ(B.Slot, 13u);
  EXPECT_EQ(B.Bus, 0x82u);
  EXPECT_EQ(B.CPUDev, 3u);
  EXPECT_EQ(B.CPU, 1u);
  EXPECT_TRUE(B.VMDRaidMember);
  EXPECT_EQ(B.PCIeGen, 5u);
  EXPECT_STREQ(B.Model, "Member  ") << "a shorter text ends in zeros, not blanks: nothing is trimmed";
  EXPECT_EQ(B.MaxSpeed, 320u);
  EXPECT_STREQ(B.CapacityText, "1920 GB");
  EXPECT_TRUE(Logged("[QorGetNvmePcieInfoBehindVmd] Update for slotnum[12] when VMD enabled..\n"));
  EXPECT_TRUE(Logged("[QorFillLinkStatusForVmdHelper]   VmdCfgBar:0xa0000000, "));
}

TEST_F(VmdTest, TheApertureAddressUsesTheBusBelowTheRootPortAndOnlyTheLowSegmentBits) {
  // Segment 0x10000: its low 16 bits are zero, the drive is found.
  StartVmd("", "65536");
  std::vector<PCIE_DEVICE_INFO> Records(2);
  UINT64 Count = 0;
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, Records.data()), EFI_SUCCESS);
  EXPECT_EQ(Count, 1u);
  EXPECT_EQ(Records[0].Segment, 65536u);

  // Segment 1 puts (1 << 17) into the device index: the address lies 4 GiB
  // past the drive, outside the aperture (kept as built).
  StartVmd("", "1");
  Count = 0;
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, Records.data()), EFI_SUCCESS);
  EXPECT_EQ(Count, 0u);
  EXPECT_TRUE(Logged("PCIe device is not presents.\n"));
}

TEST_F(VmdTest, TheHelperReadsTheFunctionTheVrocRecordNames) {
  StartVmd();
  PCIE_DEVICE_INFO R = {};
  R.Bus = 0x81;
  R.CPUBus = 0x80;
  R.Dev = 0;
  R.Func = 0;
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(Vroc(0), &R), EFI_SUCCESS);
  EXPECT_EQ(R.LinkWidth, 2u);

  // Device 32 folds onto device 0; function 9 onto function 1 (absent).
  PCIE_DEVICE_INFO Folded = R;
  Folded.Dev = 32;
  Folded.LinkWidth = 0;
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(Vroc(0), &Folded), EFI_SUCCESS);
  EXPECT_EQ(Folded.LinkWidth, 2u);
  PCIE_DEVICE_INFO Absent = R;
  Absent.Func = 9;
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(Vroc(0), &Absent), EFI_NOT_FOUND);

  // The root port's bus is subtracted: relative to bus 0 the drive's bus
  // would lie past the 32 MiB aperture.
  PCIE_DEVICE_INFO Absolute = R;
  Absolute.CPUBus = 0;
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(Vroc(0), &Absolute), EFI_NOT_FOUND);
}

TEST_F(VmdTest, ALoopingCapabilityListEndsAtTheFirstRevisitedPointer) {
  // A conventional drive: power management at 0x40 points to itself.
  StartVmd(R"({"vendorId": "0x144D", "deviceId": "0xA824", "classCode": "0x010802", "pcie": false,
               "faults": {"capabilityLoop": true}, "nvme": {"model": "Loop"}})");
  std::vector<PCIE_DEVICE_INFO> Records(3);
  UINT64 Count = 0;
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, Records.data()), EFI_SUCCESS);
  EXPECT_EQ(Count, 1u) << "the looping drive is not listed";
  EXPECT_STREQ(Records[0].Model, "QOR U.2 3.84TB");
  EXPECT_TRUE(Logged("Do not support PCIe Cap.\n"));
}

TEST_F(VmdTest, CapabilityPointersLoseTheirLowBitsAndTheWalkStopsAtIdZero) {
  // 0x34 reads 0x53: the walk starts at the PCI Express capability at 0x50.
  StartVmd(R"({"vendorId": "0x144D", "deviceId": "0xA824", "classCode": "0x010802", "link": {"maxWidth": 8},
               "patches": [{"offset": 52, "bytes": "53"}], "nvme": {"model": "Odd"}})");
  std::vector<PCIE_DEVICE_INFO> Records(3);
  UINT64 Count = 0;
  QorGetNvmePcieInfoBehindVmd(&Count, Records.data());
  ASSERT_EQ(Count, 2u);
  EXPECT_EQ(Records[1].CardBandWidth, 8u);

  // A capability with id 0 ends the walk before the PCI Express one.
  StartVmd(R"({"vendorId": "0x144D", "deviceId": "0xA824", "classCode": "0x010802",
               "patches": [{"offset": 64, "bytes": "00"}], "nvme": {"model": "Zero"}})");
  Count = 0;
  QorGetNvmePcieInfoBehindVmd(&Count, Records.data());
  EXPECT_EQ(Count, 1u);
  EXPECT_TRUE(Logged("Do not support PCIe Cap.\n"));
}

TEST_F(VmdTest, ADriveWithoutACapabilityListIsNotListed) {
  StartVmd(R"({"vendorId": "0x144D", "deviceId": "0xA824", "classCode": "0x010802",
               "patches": [{"offset": 6, "bytes": "00 00"}], "nvme": {"model": "Flat"}})");
  std::vector<PCIE_DEVICE_INFO> Records(3);
  UINT64 Count = 0;
  QorGetNvmePcieInfoBehindVmd(&Count, Records.data());
  EXPECT_EQ(Count, 1u);
  EXPECT_TRUE(Logged("Do not support PCIe capbility list.\n"));
}

TEST_F(VmdTest, DrivesWithoutAHandleOrPathAndOtherClassesAreSkipped) {
  StartVmd();
  std::vector<UINT8> NoHandle = CopyOfVroc(0);
  Put<EFI_HANDLE>(&NoHandle, QOR_VROC_DRIVE_HANDLE, nullptr);
  PCIE_DEVICE_INFO R = {};
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(NoHandle.data(), &R), EFI_INVALID_PARAMETER);
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(nullptr, &R), EFI_INVALID_PARAMETER);

  std::vector<UINT8> NoPath = CopyOfVroc(0);
  Put<EFI_HANDLE>(&NoPath, QOR_VROC_DRIVE_HANDLE, Fw->ImageHandle());
  R.Slot = 12;
  EXPECT_EQ(QorFillLinkStatusForVmdHelper(NoPath.data(), &R), EFI_NOT_FOUND);
  EXPECT_TRUE(Logged("[QorFillLinkStatusForVmdHelper] SlotNum:12, fail to get VMD DevicePath\n"));

  // A SATA controller's VROC record is not taken.
  std::vector<UINT8> Sata = CopyOfVroc(0);
  Sata[QOR_VROC_SUB_CLASS] = 6;
  EFI_HANDLE Handle = nullptr;
  Fw->InstallProtocol(&Handle, gQorVrocDeviceInfoProtocolGuid, Sata.data());
  std::vector<PCIE_DEVICE_INFO> Records(3);
  UINT64 Count = 0;
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, Records.data()), EFI_SUCCESS);
  EXPECT_EQ(Count, 1u);
}

TEST_F(VmdTest, WithoutVrocInstancesNothingIsAdded) {
  StartPci("{}");
  std::vector<PCIE_DEVICE_INFO> Records(1);
  UINT64 Count = 5;
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(&Count, Records.data()), EFI_NOT_FOUND);
  EXPECT_EQ(Count, 5u);
  EXPECT_EQ(QorGetNvmePcieInfoBehindVmd(nullptr, Records.data()), EFI_INVALID_PARAMETER);
}

TEST_F(VmdTest, TheApertureIsClosedWhileTheVmdDecodesNoMemory) {
  // Command 0x0004: bus master only.
  StartVmd("", "0", R"([{"offset": 4, "bytes": "04 00"}])");
  EXPECT_EQ(QorMmioRead16(0xA0100000), 0xFFFF) << "no decode: the board's (absent) memory";
  StartVmd();
  EXPECT_EQ(QorMmioRead16(0xA0100000), 0x8086) << "bus 0x81 device 0: the drive's vendor id";
  EXPECT_EQ(QorMmioRead16(0xA0000000 + (2 << 15)), 0x8086) << "bus 0x80 device 2: the hidden port";
  EXPECT_EQ(QorMmioRead32(0xA0000000 + (4 << 15)), 0xFFFFFFFFu) << "no function there";
}

}  // namespace
