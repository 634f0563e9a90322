// The NVMe drives, the VMD and the GPUs of the built-in board as the BMC
// and the platform receive them: PcieDevice's NVMe members and M.2 names,
// the drives hidden behind the VMD counted in "DeviceCout", and the GPU list
// the driver leaves in the system information data block (read back in
// boot.json). Expected values come from the board description
// (boards/default.json) and the rules of the inventory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boot_helpers.h"
#include "emulator/boot_report.h"

using namespace qortest;

namespace {

const qor::emu::BootResult &BuiltInBoot() {
  static const qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::BuiltInBoard());
  return Result;
}

const rapidjson::Document &BuiltInDocument() {
  static const rapidjson::Document Document = OnlyDocument(BuiltInBoot());
  return Document;
}

const rapidjson::Value &DeviceList() { return BuiltInDocument()["PcieDevice"]["DeviceList"]; }

// The record of the device in Slot with these ids; fails the test without one.
const rapidjson::Value *Record(unsigned Vendor, unsigned Device, unsigned Slot) {
  for (const auto &Entry : DeviceList().GetArray()) {
    if (Entry["VendorID"].GetUint() == Vendor && Entry["DeviceID"].GetUint() == Device &&
        Entry["Slot"].GetUint() == Slot) {
      return &Entry;
    }
  }
  ADD_FAILURE() << "no record of " << Vendor << ":" << Device << " in slot " << Slot;
  return nullptr;
}

// The fields of a GPU entry, in order, as values (the entry is packed).
std::vector<uint32_t> Fields(const QOR_GPU_ENTRY &E) {
  return {E.Slot,        E.Bus,        E.Dev,     E.Func,      E.VendorID,      E.DeviceID,
          E.SubVendorID, E.SubDeviceID, E.PCIeGen, E.LinkSpeed, E.CardBandWidth, E.LinkWidth};
}

}  // namespace

TEST(BuiltInBoardNvme, M2DrivesCarryTheirIdentifyDataTheDecimalCapacityTextAndTheSocketNames) {
  // Slot 251 takes the first name; slot 252's first choice is empty, so
  // its second choice is used.
  const struct {
    unsigned Slot;
    const char *Model, *Serial, *Firmware, *CapacityText, *PhySlot;
    uint64_t Capacity;
  } Drives[] = {
      {251, "QOR M.2 NVMe 960GB", "QM2B0009600217", "QM2F0101", "960 GB", "M2_0", 960197124096},
      {252, "QOR M.2 NVMe 480GB", "QM2B0004800388", "QM2F0101", "480 GB", "M2_1", 480103981056},
  };
  for (const auto &Drive : Drives) {
    SCOPED_TRACE(Drive.Slot);
    const rapidjson::Value *Nvme = Record(0x1C5F, 0x0557, Drive.Slot);
    ASSERT_NE(Nvme, nullptr);
    EXPECT_STREQ((*Nvme)["FwVersion"].GetString(), Drive.Firmware);
    const rapidjson::Value &Info = (*Nvme)["NVMeInfo"];
    EXPECT_STREQ(Info["Desc"].GetString(), Drive.Model);
    EXPECT_STREQ(Info["BehindVMD"].GetString(), "FALSE");
    EXPECT_STREQ(Info["VMDRaidMember"].GetString(), "FALSE");
    EXPECT_STREQ(Info["SerialNumber"].GetString(), Drive.Serial);
    EXPECT_EQ(Info["Capacity"].GetUint64(), Drive.Capacity);
    // The M.2 members follow "NVMeInfo" in the device object itself.
    std::vector<std::string> Names = MemberNames(*Nvme);
    std::vector<std::string> Tail(Names.end() - 6, Names.end());
    EXPECT_EQ(Tail, (std::vector<std::string>{"NVMeInfo", "Model", "Capacity", "SerialNumber", "Type", "PhySlot"}));
    EXPECT_STREQ((*Nvme)["Model"].GetString(), Drive.Model);
    EXPECT_STREQ((*Nvme)["Capacity"].GetString(), Drive.CapacityText);
    EXPECT_STREQ((*Nvme)["SerialNumber"].GetString(), Drive.Serial);
    EXPECT_STREQ((*Nvme)["Type"].GetString(), "PCIe");
    EXPECT_STREQ((*Nvme)["PhySlot"].GetString(), Drive.PhySlot);
  }
}

TEST(BuiltInBoardNvme, EachPassThruControllerGetsOneIdentifyControllerCommand) {
  // The drives in slots 2, 251 and 252 answer through the pass-thru
  // protocol; the Gen6 drive of slot 10 has the vendor protocol's cached
  // data, which the driver prefers, so it is sent no command.
  std::vector<std::string> Controllers;
  for (const auto &Command : BuiltInBoot().NvmeCommands) {
    SCOPED_TRACE(Command.Controller);
    Controllers.push_back(Command.Controller);
    EXPECT_EQ(Command.QueueType, 0) << "admin queue";
    EXPECT_EQ(Command.Opcode, 0x06) << "Identify";
    EXPECT_EQ(Command.NamespaceId, 0u);
    EXPECT_EQ(Command.Cdw10, 1u) << "controller data structure";
    EXPECT_EQ(Command.Flags, 0x04) << "CDW10 valid (bit 2 of the UEFI command flags)";
    EXPECT_EQ(Command.CommandTimeout, 10000000u) << "one second";
    EXPECT_EQ(Command.TransferLength, 4096u);
    EXPECT_EQ(Command.Status, EFI_SUCCESS);
  }
  EXPECT_EQ(Controllers, (std::vector<std::string>{"0000:17:00.0", "0000:38:00.0", "0000:ab:00.0"}));

  const rapidjson::Value *Gen6 = Record(0x1C5F, 0x0600, 10);
  ASSERT_NE(Gen6, nullptr);
  // Two namespaces: 1250000000 blocks of 4096 bytes and 5000000000 of 512.
  EXPECT_EQ((*Gen6)["NVMeInfo"]["Capacity"].GetUint64(), 7680000000000u);
  EXPECT_STREQ((*Gen6)["NVMeInfo"]["Desc"].GetString(), "QOR Gen6 NVMe 7.68TB");
  EXPECT_FALSE(Gen6->HasMember("PhySlot")) << "not an M.2 socket";
}

TEST(BuiltInBoardNvme, TheTwoDrivesBehindTheVmdAreListedLastAndCounted) {
  const rapidjson::Value &List = DeviceList();
  ASSERT_EQ(List.Size(), 16u) << "14 devices of the walk and the 2 drives behind the VMD";
  EXPECT_EQ(BuiltInDocument()["PcieDevice"]["DeviceCout"].GetUint(), 16u);
  // Bays 14 and 15 below the VMD's root ports 00:02.0 and 00:03.0 of its
  // own bus range; the second drive's link trained at x2; only the second
  // is a RAID member. 7501476528 blocks of 512 bytes each.
  const struct {
    unsigned Slot, Bus, PortDevice, LinkWidth;
    const char *Serial, *RaidMember;
  } Drives[] = {{14, 1, 2, 4, "PHAB2150003G3P8", "FALSE"}, {15, 2, 3, 2, "PHAB2150004K3P8", "TRUE"}};
  for (size_t I = 0; I < 2; I++) {
    const auto &Drive = Drives[I];
    SCOPED_TRACE(Drive.Slot);
    const rapidjson::Value &Entry = List[static_cast<rapidjson::SizeType>(14 + I)];
    EXPECT_EQ(Entry["VendorID"].GetUint(), 0x8086u);
    EXPECT_EQ(Entry["DeviceID"].GetUint(), 0x0B60u);
    EXPECT_EQ(Entry["SubVendorID"].GetUint(), 0x8086u);
    EXPECT_EQ(Entry["SubDeviceID"].GetUint(), 0x8008u);
    EXPECT_EQ(Entry["ClassCode"].GetUint(), 1u);
    EXPECT_EQ(Entry["SubClassCode"].GetUint(), 8u);
    EXPECT_EQ(Entry["ProgIF"].GetUint(), 2u);
    EXPECT_EQ(Entry["Slot"].GetUint(), Drive.Slot);
    EXPECT_EQ(Entry["MezzSlot"].GetUint(), 255u);
    EXPECT_EQ(Entry["Bus"].GetUint(), Drive.Bus);
    EXPECT_EQ(Entry["Dev"].GetUint(), 0u);
    EXPECT_EQ(Entry["CPUBus"].GetUint(), 0u);
    EXPECT_EQ(Entry["CPUDev"].GetUint(), Drive.PortDevice);
    EXPECT_EQ(Entry["LinkWidth"].GetUint(), Drive.LinkWidth);
    EXPECT_EQ(Entry["CardBandWidth"].GetUint(), 4u);
    EXPECT_EQ(Entry["LinkSpeed"].GetUint(), 4u);
    EXPECT_EQ(Entry["PCIeGen"].GetUint(), 4u);
    EXPECT_EQ(Entry["MaxSpeed"].GetUint(), 160u);
    EXPECT_STREQ(Entry["FwVersion"].GetString(), "QDV1R180");
    const rapidjson::Value &Info = Entry["NVMeInfo"];
    EXPECT_STREQ(Info["Desc"].GetString(), "QOR U.2 NVMe 3.84TB");
    EXPECT_STREQ(Info["BehindVMD"].GetString(), "TRUE");
    EXPECT_STREQ(Info["VMDRaidMember"].GetString(), Drive.RaidMember);
    EXPECT_STREQ(Info["SerialNumber"].GetString(), Drive.Serial);
    EXPECT_EQ(Info["Capacity"].GetUint64(), 3840755982336u);
    EXPECT_FALSE(Entry.HasMember("PhySlot"));
  }
}

TEST(BuiltInBoardGpus, TheGpuListHoldsOneEntryPerSlotInWalkOrderAndBootJsonReadsItBack) {
  // Display and processing-accelerator classes count. The accelerator in
  // slot 3 shares its slot with the GPU listed before it and is skipped.
  // Link fields are the records' after their link updates: the GPU of
  // slot 3 reads the switch's upstream port (Gen4 x16), the two behind the
  // marked switch ports their own links (slot 8 trained at Gen4).
  const QOR_GPU_ENTRY Expected[] = {
      {3, 0x29, 0, 0, 0x10DE, 0x25B6, 0x10DE, 0x14A9, 4, 4, 16, 16},
      {7, 0x9A, 0, 0, 0x1E9F, 0x27C6, 0x1E9F, 0x020C, 5, 5, 16, 16},
      {8, 0x9B, 0, 0, 0x1E9F, 0x27C6, 0x1E9F, 0x020C, 5, 4, 16, 16},
      {11, 0xBA, 0, 0, 0x10EE, 0x9038, 0x10EE, 0x0007, 4, 4, 16, 16},
  };
  const qor::emu::GpuList &Gpus = BuiltInBoot().Gpus;
  ASSERT_EQ(Gpus.Count, 4u);
  ASSERT_EQ(Gpus.Entries.size(), 4u);
  for (size_t I = 0; I < 4; I++) EXPECT_EQ(Fields(Gpus.Entries[I]), Fields(Expected[I])) << "entry " << I;

  std::string Report = qor::emu::BootReportJson(qor::emu::BuiltInBoard(), BuiltInBoot(), 1);
  rapidjson::Document Json;
  Json.Parse(Report.c_str(), Report.size());
  ASSERT_FALSE(Json.HasParseError());
  const rapidjson::Value &List = Json["gpuList"];
  EXPECT_EQ(List["count"].GetUint(), 4u);
  ASSERT_EQ(List["entries"].Size(), 4u);
  EXPECT_EQ(List["entries"][1]["slot"].GetUint(), 7u);
  EXPECT_STREQ(List["entries"][1]["vendorId"].GetString(), "0x1E9F");
  EXPECT_STREQ(List["entries"][1]["subDeviceId"].GetString(), "0x020C");
  EXPECT_EQ(List["entries"][2]["linkSpeed"].GetUint(), 4u);
  EXPECT_EQ(List["entries"][3]["bus"].GetUint(), 0xBAu);
}
