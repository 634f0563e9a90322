// Device data that never ends where it should, through a full boot: a VPD
// image without an end tag, Identify data whose texts fill their fields
// without a terminator (through the pass-thru and the vendor protocol), a
// drive behind the VMD whose capability list loops. The boot ends, the
// document is well formed, and each record holds what the inventory rules
// give for such data.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"

using namespace qortest;

namespace {

// 40, 20 and 8 characters: no blank to trim and no terminator in the field.
const std::string kModel = "QOR-M2-MODEL-WITHOUT-ANY-TERMINATOR-4000";
const std::string kSerial = "SN0123456789ABCDEFGH";
const std::string kFirmware = "FW012345";

std::string FullTextDrive(const std::string &Extra) {
  return R"({"vendorId": "0x1C5F", "deviceId": "0x0557", "classCode": "0x010802", "link": {"maxSpeed": 3, "maxWidth": 4},
             "nvme": {"model": ")" + kModel + R"(", "serial": ")" + kSerial + R"(", "firmware": ")" + kFirmware +
         R"(", "capacity": 2000000000)" + Extra + "}}";
}

const qor::emu::BootResult &BadDataBoot() {
  static const qor::emu::BootResult Result = Boot(R"({
    "pcd": {"customerId": 1},
    "pci": {"hostBridges": [
      {"uid": 0, "buses": ["0x00", "0x14"], "devices": [
        {"device": 0, "type": "rcEndpoint", "vendorId": "0x8086", "deviceId": "0x3456", "classCode": "0x060000"}]},
      {"uid": 1, "buses": ["0x15", "0x25"], "devices": [
        {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": 2, "devices": [
          {"vendorId": "0x1AF4", "deviceId": "0x1000", "subsystemVendorId": "0x1D22", "subsystemId": "0x0001",
           "classCode": "0x020000",
           "vpd": {"identifier": "QOR DPU VPD", "readOnly": {"SN": "S1", "V0": "A"}, "checksum": false,
                   "end": false, "size": 32}}]},
        {"device": 2, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": 251, "devices": [)" +
                                                              FullTextDrive("") + R"(]},
        {"device": 3, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": 252, "devices": [)" +
                                                              FullTextDrive(R"(, "vendorProtocol": true)") + R"(]}]},
      {"uid": 2, "buses": ["0x26", "0x36"], "devices": [
        {"device": 5, "type": "rcEndpoint", "vendorId": "0x8086", "deviceId": "0x28C0",
         "classCode": "0x010400", "bars": [{"type": "mem64", "size": "32M", "base": "0xA2000000"}],
         "vmd": {"buses": [0, 31], "devices": [
           {"device": 2, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x347A", "slot": 14, "devices": [
             {"vendorId": "0x8086", "deviceId": "0x0B60", "classCode": "0x010802",
              "nvme": {"model": "HEALTHY", "serial": "H1", "firmware": "F1", "capacity": 4000000000}}]},
           {"device": 3, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x347A", "slot": 15, "devices": [
             {"vendorId": "0x8086", "deviceId": "0x0B60", "classCode": "0x010802",
              "nvme": {"model": "LOOPING", "serial": "L1", "firmware": "F1", "capacity": 4000000000},
              "patches": [{"offset": 65, "bytes": "60"}, {"offset": 96, "bytes": "05 40"}]}]}]}}]}
    ]}})");
  return Result;
}

const rapidjson::Value *Record(const rapidjson::Document &Document, unsigned Vendor, unsigned Device,
                               unsigned Slot) {
  for (const auto &Entry : Document["PcieDevice"]["DeviceList"].GetArray()) {
    if (Entry["VendorID"].GetUint() == Vendor && Entry["DeviceID"].GetUint() == Device &&
        Entry["Slot"].GetUint() == Slot) {
      return &Entry;
    }
  }
  ADD_FAILURE() << "no record of " << Vendor << ":" << Device << " in slot " << Slot;
  return nullptr;
}

}  // namespace

TEST(BadDeviceDataBoot, EndsWithOneWellFormedDocument) {
  const qor::emu::BootResult &Result = BadDataBoot();
  EXPECT_FALSE(Result.EndedInReset());
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_EQ(MemberNames(Document), kSectionOrder);
}

TEST(BadDeviceDataBoot, AVpdWithoutEndTagGivesTheKeywordsFoundAndTheCarriedLengthForTheRest) {
  rapidjson::Document Document = OnlyDocument(BadDataBoot());
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value *Dpu = Record(Document, 0x1AF4, 0x1000, 2);
  ASSERT_NE(Dpu, nullptr);
  // SN and V0 are found. V1 to V4 are searched until the VPD address space
  // ends and reuse the last length found (V0's, 1) with the data at address
  // 3: the identifier's first byte.
  const rapidjson::Value &Vpd = (*Dpu)["VPDInfo"];
  EXPECT_STREQ(Vpd["SN"].GetString(), "S1");
  EXPECT_STREQ(Vpd["V0"].GetString(), "A");
  for (const char *Keyword : {"V1", "V2", "V3", "V4"}) EXPECT_STREQ(Vpd[Keyword].GetString(), "Q") << Keyword;
  for (const char *Keyword : {"V1", "V2", "V3", "V4"}) {
    EXPECT_EQ(CountOf(BadDataBoot(), std::string("Not Found ") + Keyword + "\n"), 1u) << Keyword;
  }
}

TEST(BadDeviceDataBoot, IdentifyTextsWithoutTerminatorsKeepTheirFullLengthAndEmptyTheCapacityText) {
  rapidjson::Document Document = OnlyDocument(BadDataBoot());
  ASSERT_TRUE(Document.IsObject());
  for (unsigned Slot : {251u, 252u}) {
    SCOPED_TRACE(Slot == 251 ? "pass-thru" : "vendor protocol");
    const rapidjson::Value *Drive = Record(Document, 0x1C5F, 0x0557, Slot);
    ASSERT_NE(Drive, nullptr);
    EXPECT_EQ((*Drive)["FwVersion"].GetString(), kFirmware);
    EXPECT_EQ((*Drive)["NVMeInfo"]["Desc"].GetString(), kModel);
    EXPECT_EQ((*Drive)["NVMeInfo"]["SerialNumber"].GetString(), kSerial);
    EXPECT_EQ((*Drive)["NVMeInfo"]["Capacity"].GetUint64(), 2000000000u);
    EXPECT_EQ((*Drive)["Model"].GetString(), kModel);
    EXPECT_EQ((*Drive)["SerialNumber"].GetString(), kSerial);
    // The model's terminator lands on the first byte of the capacity text.
    EXPECT_STREQ((*Drive)["Capacity"].GetString(), "");
    EXPECT_STREQ((*Drive)["Type"].GetString(), "PCIe");
  }
  EXPECT_STREQ((*Record(Document, 0x1C5F, 0x0557, 251))["PhySlot"].GetString(), "M2_0");
  EXPECT_STREQ((*Record(Document, 0x1C5F, 0x0557, 252))["PhySlot"].GetString(), "M2_1");
}

TEST(BadDeviceDataBoot, ADriveWhoseCapabilityListLoopsBehindTheVmdIsNotListed) {
  rapidjson::Document Document = OnlyDocument(BadDataBoot());
  ASSERT_TRUE(Document.IsObject());
  // The walk's three devices and the healthy drive of bay 14; the drive of
  // bay 15 loops between 0x40 and 0x60 and never reaches its PCI Express
  // capability at 0x50.
  EXPECT_EQ(Document["PcieDevice"]["DeviceCout"].GetUint(), 4u);
  const rapidjson::Value &Last = Document["PcieDevice"]["DeviceList"][3];
  EXPECT_EQ(Last["Slot"].GetUint(), 14u);
  EXPECT_STREQ(Last["NVMeInfo"]["Desc"].GetString(), "HEALTHY");
  EXPECT_EQ(CountOf(BadDataBoot(), "Do not support PCIe Cap.\n"), 1u);
}
