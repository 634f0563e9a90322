// The PcieDevice text: member order and formats of a device, the nested
// NVMe, M.2, NIC and VPD parts, the port bound and the empty section.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "json/text_appender.h"
#include "pcie/pcie_device_info.h"

namespace {

std::string Write(const std::vector<PCIE_DEVICE_INFO> &Records, UINT8 CustomerId, size_t Size = 0x80000) {
  std::vector<char> Buffer(Size, '\0');
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Buffer.data(), Buffer.size());
  QorWritePcieDeviceJson(&W, Records.data(), Records.size(), CustomerId);
  return std::string(Buffer.data(), W.Length);
}

PCIE_DEVICE_INFO Device(UINT16 Vendor, UINT16 DeviceId, UINT8 Class, UINT8 SubClass) {
  PCIE_DEVICE_INFO R = {};
  R.VendorID = Vendor;
  R.DeviceID = DeviceId;
  R.ClassCode = Class;
  R.SubClassCode = SubClass;
  R.MezzSlot = 255;
  return R;
}

// The members every device starts with, for a record whose other fields are
// zero but Slot, MezzSlot 255 and the ids.
std::string Head(unsigned Vendor, unsigned DeviceId, unsigned Class, unsigned SubClass, unsigned Slot,
                 unsigned SubVendor = 0, unsigned SubDevice = 0) {
  return "{\"VendorID\":" + std::to_string(Vendor) + ",\"DeviceID\":" + std::to_string(DeviceId) +
         ",\"SubVendorID\":" + std::to_string(SubVendor) + ",\"SubDeviceID\":" + std::to_string(SubDevice) +
         ",\"ClassCode\":" + std::to_string(Class) + ",\"SubClassCode\":" + std::to_string(SubClass) +
         ",\"ProgIF\":0,\"Slot\":" + std::to_string(Slot) +
         ",\"MezzSlot\":255,\"CPU\":0,\"CPUBus\":0,\"CPUDev\":0,\"CPUFunc\":0,\"Segment\":0,\"Bus\":0,\"Dev\":0,"
         "\"Func\":0,\"LinkWidth\":0,\"LinkSpeed\":0,\"MaxSpeed\":0,\"PCIeGen\":0,\"CardBandWidth\":0,\"FwVersion\":\"\"";
}

}  // namespace

TEST(PcieDeviceJson, NoDeviceGivesTheEmptyListWithTheKeptKeySpelling) {
  EXPECT_EQ(Write({}, 0), "{\"DeviceCout\":0,\"DeviceList\":[]}");
}

TEST(PcieDeviceJson, DeviceMembersComeInOrderWithLocationsCutTo32Bits) {
  PCIE_DEVICE_INFO R = Device(0x10DE, 0x25B6, 3, 2);
  R.SubVendorID = 0x10DE;
  R.SubDeviceID = 0x14A9;
  R.ProgIF = 1;
  R.Slot = 7;
  R.CPU = 1;
  R.CPUBus = 0x80;
  R.CPUDev = 2;
  R.CPUFunc = 0;
  R.Segment = 0x100000001ULL;  // only the low 32 bits go out
  R.Bus = 0x85;
  R.Dev = 0;
  R.Func = 0;
  R.LinkWidth = 16;
  R.LinkSpeed = 4;
  R.MaxSpeed = 160;
  R.PCIeGen = 4;
  R.CardBandWidth = 16;
  std::strcpy(R.FwVersion, "96.00.5E");
  EXPECT_EQ(Write({R}, 0),
            "{\"DeviceCout\":1,\"DeviceList\":[{\"VendorID\":4318,\"DeviceID\":9654,\"SubVendorID\":4318,"
            "\"SubDeviceID\":5289,\"ClassCode\":3,\"SubClassCode\":2,\"ProgIF\":1,\"Slot\":7,\"MezzSlot\":255,"
            "\"CPU\":1,\"CPUBus\":128,\"CPUDev\":2,\"CPUFunc\":0,\"Segment\":1,\"Bus\":133,\"Dev\":0,\"Func\":0,"
            "\"LinkWidth\":16,\"LinkSpeed\":4,\"MaxSpeed\":160,\"PCIeGen\":4,\"CardBandWidth\":16,"
            "\"FwVersion\":\"96.00.5E\"}]}");
}

TEST(PcieDeviceJson, NvmeInM2SocketCarriesNvmeInfoThenTheFiveM2Members) {
  PCIE_DEVICE_INFO R = Device(0x144D, 0xA808, 1, 8);
  R.Slot = 251;
  R.Capacity = 960197124096ULL;
  R.BehindVMD = FALSE;
  R.VMDRaidMember = TRUE;
  std::strcpy(R.Model, "M2 DRIVE");
  std::strcpy(R.SerialNumber, "S123");
  std::strcpy(R.CapacityText, "960 GB");
  std::strcpy(R.Type, "PCIe");
  std::strcpy(R.PhySlot, "M2_A");
  EXPECT_EQ(Write({R}, 0), "{\"DeviceCout\":1,\"DeviceList\":[" + Head(0x144D, 0xA808, 1, 8, 251) +
                               ",\"NVMeInfo\":{\"Desc\":\"M2 DRIVE\",\"BehindVMD\":\"FALSE\",\"VMDRaidMember\":"
                               "\"TRUE\",\"SerialNumber\":\"S123\",\"Capacity\":960197124096},"
                               "\"Model\":\"M2 DRIVE\",\"Capacity\":\"960 GB\",\"SerialNumber\":\"S123\","
                               "\"Type\":\"PCIe\",\"PhySlot\":\"M2_A\"}]}");
}

TEST(PcieDeviceJson, M2MembersFollowTheSlotNotTheClass) {
  PCIE_DEVICE_INFO R = Device(0x8086, 0x1234, 6, 4);
  R.Slot = 252;
  std::string Text = Write({R}, 0);
  EXPECT_EQ(Text.find("NVMeInfo"), std::string::npos);
  EXPECT_NE(Text.find("\"FwVersion\":\"\",\"Model\":\"\",\"Capacity\":\"\""), std::string::npos);
}

TEST(PcieDeviceJson, NicListsReportedPortsButNeverMoreThanSixteen) {
  PCIE_DEVICE_INFO R = Device(0x8086, 0x1592, 2, 0);
  R.Slot = 3;
  R.PortNum = 20;
  std::strcpy(R.OnBoard, "FALSE");
  for (int I = 0; I < NIC_PORT_MAX; I++) {
    R.PortInfo[I].Bus = 0x17;
    R.PortInfo[I].Func = (UINT8)I;
    R.PortInfo[I].Mac[5] = (UINT8)I;
    std::strcpy(R.PortInfo[I].Desc, I == 0 ? "Port0 desc" : "other");
  }
  std::string Text = Write({R}, 0);
  EXPECT_NE(Text.find("\"NicInfo\":{\"Desc\":\"Port0 desc\",\"OnBoard\":\"FALSE\",\"PortNum\":20,\"PortInfo\":[{"
                      "\"Port\":0,\"Bus\":23,\"Dev\":0,\"Func\":0,\"Mac\":\"00-00-00-00-00-00\"},"),
            std::string::npos);
  EXPECT_NE(Text.find("{\"Port\":15,\"Bus\":23,\"Dev\":0,\"Func\":15,\"Mac\":\"00-00-00-00-00-0F\"}]}}]}"),
            std::string::npos);
  EXPECT_EQ(Text.find("\"Port\":16"), std::string::npos);
}

TEST(PcieDeviceJson, NicWithoutPortsHasAnEmptyPortList) {
  PCIE_DEVICE_INFO R = Device(0x15B3, 0x1017, 2, 0);
  std::strcpy(R.OnBoard, "TRUE");
  EXPECT_NE(Write({R}, 0).find("\"NicInfo\":{\"Desc\":\"\",\"OnBoard\":\"TRUE\",\"PortNum\":0,\"PortInfo\":[]}}]}"),
            std::string::npos);
}

TEST(PcieDeviceJson, VpdObjectOnlyForCustomerOneAndTheListedIds) {
  PCIE_DEVICE_INFO R = Device(0x1AF4, 0x1041, 2, 0);
  R.SubVendorID = 0x1D22;
  R.SubDeviceID = 0x1100;
  std::strcpy(R.VPDInfo[0], "SN01");
  std::strcpy(R.VPDInfo[5], "v4");
  const std::string Vpd = "\"VPDInfo\":{\"SN\":\"SN01\",\"V0\":\"\",\"V1\":\"\",\"V2\":\"\",\"V3\":\"\",\"V4\":\"v4\"}}";
  EXPECT_NE(Write({R}, 1).find(Vpd), std::string::npos);
  EXPECT_EQ(Write({R}, 3).find("VPDInfo"), std::string::npos);
  R.SubDeviceID = 0x1101;
  EXPECT_EQ(Write({R}, 1).find("VPDInfo"), std::string::npos);
}

TEST(PcieDeviceJson, DevicesAreSeparatedByCommasAndCountedInOrder) {
  PCIE_DEVICE_INFO A = Device(1, 2, 3, 0), B = Device(4, 5, 6, 0);
  std::string Text = Write({A, B}, 0);
  EXPECT_EQ(Text, "{\"DeviceCout\":2,\"DeviceList\":[" + Head(1, 2, 3, 0, 0) + "}," + Head(4, 5, 6, 0, 0) + "}]}");
}

TEST(PcieDeviceJson, AFullBufferTruncatesLaterPiecesWithoutOverrun) {
  PCIE_DEVICE_INFO R = Device(1, 2, 3, 0);
  std::vector<char> Buffer(64, '#');
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Buffer.data(), 40);
  QorWritePcieDeviceJson(&W, &R, 1, 0);
  EXPECT_LE(W.Length, 39u);
  EXPECT_EQ(Buffer[40], '#');
}
