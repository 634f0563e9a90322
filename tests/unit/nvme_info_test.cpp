// NVMe details of the walk's NVMe controllers: the Identify command through
// the emulated pass-thru protocol (and that protocol's own checks), the
// vendor controller protocol's cached data, the trims and the capacity text,
// the M.2 socket names.
#include <cstring>
#include <string>
#include <vector>

#include "emulator/pci/pci_device_services.h"
#include "pcie/special_devices.h"
#include "platform/custom_protocol.h"
#include "platform/guids.h"
#include "platform/nvme.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

// The drive sits at 01:00.0 below a root port of slot 251 (the first M.2 socket).
class NvmeTest : public PciBusOnEmulator {
 protected:
  void StartDrive(const std::string &Nvme, int Slot = 251) {
    StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
               {"device": 1, "type": "rootPort", "vendorId": "0x8086", "deviceId": "0x352A", "slot": )" +
             std::to_string(Slot) + R"(, "devices": [
                 {"vendorId": "0x144D", "deviceId": "0xA80A", "subsystemVendorId": "0x144D", "classCode": "0x010802",
                  "nvme": )" + Nvme + "}]}]}]}");
    Drive = HandleAt(0, 1, 0, 0);
    ASSERT_NE(Drive, nullptr);
    // M.2 names as the platform keeps them: slot 251, then slot 252's two choices.
    std::memset(Custom, 0, sizeof(Custom));
    std::strcpy(Custom + QOR_CUSTOM_M2_NAMES_OFFSET, "M2_A");
    std::strcpy(Custom + QOR_CUSTOM_M2_NAMES_OFFSET + 2 * QOR_CUSTOM_M2_NAME_SIZE, "M2_B2");
    gQorCustomProtocol = Custom;
  }
  void TearDown() override {
    gQorCustomProtocol = nullptr;
    PciBusOnEmulator::TearDown();
  }

  PCIE_DEVICE_INFO Record(UINT32 Slot = 251) {
    PCIE_DEVICE_INFO R = {};
    R.Handle = Drive;
    R.ClassCode = 1;
    R.SubClassCode = 8;
    R.Slot = Slot;
    return R;
  }
  const std::vector<qor::emu::NvmeCommandRecord> &Commands() {
    return Plat->PciDevices()->NvmeControllers().at(0)->Commands();
  }
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *PassThru() {
    void *Interface = nullptr;
    gBS->HandleProtocol(Drive, const_cast<EFI_GUID *>(&gEfiNvmExpressPassThruProtocolGuid), &Interface);
    return static_cast<EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *>(Interface);
  }

  EFI_HANDLE Drive = nullptr;
  char Custom[QOR_CUSTOM_M2_NAMES_OFFSET + 3 * QOR_CUSTOM_M2_NAME_SIZE];
};

constexpr char kDrive[] = R"({"serial": "S5GXNX0R123456", "model": "QOR NVMe 960GB", "firmware": "2B2QEXM7",
                              "capacity": 960197124096})";

// ------------------------------------------------------------ the pass-thru protocol

struct Identify {
  EFI_NVM_EXPRESS_COMMAND Command = {};
  EFI_NVM_EXPRESS_COMPLETION Completion = {};
  EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET Packet = {};
  std::vector<uint8_t> Data = std::vector<uint8_t>(4096, 0);
  Identify() {
    Command.Cdw0 = NVME_ADMIN_IDENTIFY_CMD;
    Command.Cdw10 = NVME_IDENTIFY_CNS_CONTROLLER;
    Command.Flags = CDW10_VALID;
    Packet.CommandTimeout = 10000000;
    Packet.TransferBuffer = Data.data();
    Packet.TransferLength = 4096;
    Packet.QueueType = NVME_ADMIN_QUEUE;
    Packet.NvmeCmd = &Command;
    Packet.NvmeCompletion = &Completion;
  }
  EFI_STATUS Send(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *P, UINT32 NamespaceId = 0) {
    return P->PassThru(P, NamespaceId, &Packet, nullptr);
  }
  std::string Text(size_t Offset, size_t Size) const { return std::string(Data.begin() + Offset, Data.begin() + Offset + Size); }
};

TEST_F(NvmeTest, IdentifyControllerReturnsTheDriveInTheNvmeLayout) {
  StartDrive(kDrive);
  Identify I;
  ASSERT_EQ(I.Send(PassThru()), EFI_SUCCESS);
  EXPECT_EQ(I.Data[0] | I.Data[1] << 8, 0x144D) << "PCI vendor id";
  EXPECT_EQ(I.Text(4, 20), "S5GXNX0R123456      ") << "serial number, blank padded";
  EXPECT_EQ(I.Text(24, 40), "QOR NVMe 960GB                          ");
  EXPECT_EQ(I.Text(64, 8), "2B2QEXM7");
  uint64_t Capacity = 0;
  std::memcpy(&Capacity, I.Data.data() + 280, 8);
  EXPECT_EQ(Capacity, 960197124096u);
  EXPECT_EQ(I.Data[516], 1) << "one namespace";
  EXPECT_EQ(I.Completion.DW3 >> 17, 0u) << "successful completion";
}

TEST_F(NvmeTest, PassThruRefusesWhatTheUefiSpecificationRefuses) {
  StartDrive(R"({"model": "M", "capacity": 4096, "responseUs": 20})");
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *P = PassThru();
  Identify Short;
  Short.Packet.TransferLength = 512;
  EXPECT_EQ(Short.Send(P), EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(Short.Packet.TransferLength, 4096u) << "the length needed";

  Identify Quick;
  Quick.Packet.CommandTimeout = 100;  // 10 us, the drive needs 20
  EXPECT_EQ(Quick.Send(P), EFI_TIMEOUT);
  Identify Forever;
  Forever.Packet.CommandTimeout = 0;
  EXPECT_EQ(Forever.Send(P), EFI_SUCCESS);

  Identify Queue;
  Queue.Packet.QueueType = 2;
  EXPECT_EQ(Queue.Send(P), EFI_INVALID_PARAMETER);
  Identify Namespace;
  EXPECT_EQ(Namespace.Send(P, 2), EFI_INVALID_PARAMETER) << "only namespace 1 is active";
  Identify NoBuffer;
  NoBuffer.Packet.TransferBuffer = nullptr;
  EXPECT_EQ(NoBuffer.Send(P), EFI_INVALID_PARAMETER);
  EXPECT_EQ(P->PassThru(P, 0, nullptr, nullptr), EFI_INVALID_PARAMETER);
}

TEST_F(NvmeTest, CommandsCompleteWithTheirNvmeStatus) {
  StartDrive(R"({"model": "M", "capacity": 4096})");
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *P = PassThru();
  Identify NotValid;  // CDW10 not marked valid: CNS 0, Identify Namespace of NSID 0
  NotValid.Command.Flags = 0;
  EXPECT_EQ(NotValid.Send(P), EFI_DEVICE_ERROR);
  EXPECT_EQ(NotValid.Completion.DW3 >> 17, 0x0Bu) << "Invalid Namespace or Format";
  Identify Format;
  Format.Command.Cdw0 = 0x80;  // Format NVM
  EXPECT_EQ(Format.Send(P), EFI_DEVICE_ERROR);
  EXPECT_EQ(Format.Completion.DW3 >> 17, 0x01u) << "Invalid Command Opcode";
  Identify Namespace;
  Namespace.Command.Cdw10 = 0;
  Namespace.Command.Nsid = 1;
  EXPECT_EQ(Namespace.Send(P), EFI_SUCCESS);
  uint64_t Blocks = 0;
  std::memcpy(&Blocks, Namespace.Data.data(), 8);
  EXPECT_EQ(Blocks, 8u) << "4096 bytes of 512-byte blocks";
}

TEST_F(NvmeTest, NamespacesAreWalkedAndNamedByDevicePath) {
  StartDrive(R"({"namespaces": [{"blockCount": 100}, {"blockSize": 4096, "blockCount": 7}]})");
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *P = PassThru();
  UINT32 Id = 0xFFFFFFFF;
  ASSERT_EQ(P->GetNextNamespace(P, &Id), EFI_SUCCESS);
  EXPECT_EQ(Id, 1u);
  ASSERT_EQ(P->GetNextNamespace(P, &Id), EFI_SUCCESS);
  EXPECT_EQ(Id, 2u);
  EXPECT_EQ(P->GetNextNamespace(P, &Id), EFI_NOT_FOUND);
  EFI_DEVICE_PATH_PROTOCOL *Path = nullptr;
  ASSERT_EQ(P->BuildDevicePath(P, 2, &Path), EFI_SUCCESS);
  UINT32 Back = 0;
  EXPECT_EQ(P->GetNamespace(P, Path, &Back), EFI_SUCCESS);
  EXPECT_EQ(Back, 2u);
  gBS->FreePool(Path);
  EXPECT_EQ(P->BuildDevicePath(P, 3, &Path), EFI_NOT_FOUND);
}

// ------------------------------------------------------------ the driver's NVMe details

TEST_F(NvmeTest, IdentifyThroughPassThruFillsTheTrimmedTextsAndTheDecimalCapacity) {
  StartDrive(kDrive);
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.Model, "QOR NVMe 960GB");
  EXPECT_STREQ(R.SerialNumber, "S5GXNX0R123456");
  EXPECT_STREQ(R.FwVersion, "2B2QEXM7");
  EXPECT_EQ(R.Capacity, 960197124096u);
  EXPECT_STREQ(R.CapacityText, "960 GB") << "decimal gigabytes, truncated";
  EXPECT_STREQ(R.Type, "PCIe");
  EXPECT_STREQ(R.PhySlot, "M2_A");
  EXPECT_FALSE(R.BehindVMD);
  EXPECT_FALSE(R.VMDRaidMember);
  ASSERT_EQ(Commands().size(), 1u);
  const auto &C = Commands()[0];
  EXPECT_EQ(C.Opcode, 0x06);
  EXPECT_EQ(C.QueueType, NVME_ADMIN_QUEUE);
  EXPECT_EQ(C.NamespaceId, 0u);
  EXPECT_EQ(C.Nsid, 0u);
  EXPECT_EQ(C.Cdw10, 1u);
  EXPECT_EQ(C.Flags, CDW10_VALID);
  EXPECT_EQ(C.CommandTimeout, 10000000u) << "one second in 100 ns units";
  EXPECT_EQ(C.TransferLength, 4096u);
  EXPECT_NE(Log().find("TotalSizeInByte 960197124096 \n"), std::string::npos);
  EXPECT_NE(Log().find("pPcieInfo->Capacity [960 GB]\n"), std::string::npos);
}

TEST_F(NvmeTest, OnlyTheLowHalfOfTheCapacityCountsAndBothHalvesAreLogged) {
  StartDrive(R"({"model": "Big", "capacity": 960197124096, "capacityHigh": 1})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_EQ(R.Capacity, 960197124096u);
  EXPECT_NE(Log().find("TnvmcapH64 1 pTnvmcapL64 df90356000 \n"), std::string::npos);
}

TEST_F(NvmeTest, LeadingBlanksAndTabsGoButInnerOnesStay) {
  StartDrive(R"({"serial": " \t SN 1", "model": "\t QOR  NVMe", "firmware": " 1.0"})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.SerialNumber, "SN 1");
  EXPECT_STREQ(R.Model, "QOR  NVMe");
  EXPECT_STREQ(R.FwVersion, "1.0");
}

TEST_F(NvmeTest, AModelFillingAllFortyBytesEmptiesTheCapacityText) {
  std::string Model(40, 'M');
  std::string Serial(20, 'S');
  StartDrive(R"({"serial": ")" + Serial + R"(", "model": ")" + Model + R"(", "firmware": "FFFFFFFF", "capacity": 2000000000})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_EQ(std::string(R.Model, 40), Model);
  EXPECT_STREQ(R.CapacityText, "") << "the model's terminator lands on it (kept as built)";
  EXPECT_EQ(std::string(R.SerialNumber, 20), Serial);
  EXPECT_STREQ(R.FwVersion, "FFFFFFFF");
  EXPECT_EQ(R.Capacity, 2000000000u);
}

TEST_F(NvmeTest, AFailingControllerLeavesTheRecordWithoutDetails) {
  StartDrive(R"({"model": "M", "capacity": 4096, "commandStatus": "Device Error"})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_DEVICE_ERROR);
  EXPECT_STREQ(R.Type, "");
  EXPECT_STREQ(R.PhySlot, "");
  EXPECT_NE(Log().find("Failed to get IdentifyControllerData: Device Error\n"), std::string::npos);
}

TEST_F(NvmeTest, AControllerWithoutPassThruIsSkippedWithItsMessage) {
  StartDrive(R"({"model": "M", "capacity": 4096, "passThru": false})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_NE(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_NE(Log().find("The handle does not support the EfiNvmExpressPassThruProtocol\n"), std::string::npos);
  EXPECT_STREQ(R.Type, "");
}

TEST_F(NvmeTest, TheIdentifyBufferThatCannotBeAllocatedEndsWithOutOfResources) {
  StartDrive(kDrive);
  PCIE_DEVICE_INFO R = Record();
  const qor::emu::PoolCounters &Counts = Fw->GetPool().Counters();
  Fw->GetPool().FailAllocation(Counts.Allocations + Counts.FailedAllocations + 1);
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_OUT_OF_RESOURCES);
  EXPECT_NE(Log().find("Failed to AllocatePool IdentifyControllerData\n"), std::string::npos);
  EXPECT_TRUE(Commands().empty());
}

TEST_F(NvmeTest, TheVendorProtocolGivesCachedIdentifyDataAndSumsItsNamespaces) {
  StartDrive(R"({"model": "QOR Vendor", "serial": "V1", "firmware": "9.9", "vendorProtocol": true,
                 "namespaces": [{"blockCount": 1000}, {"blockSize": 4096, "blockCount": 10}]})");
  PCIE_DEVICE_INFO R = Record();
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_EQ(R.Capacity, 512u * 1000 + 4096u * 10);
  EXPECT_STREQ(R.Model, "QOR Vendor");
  EXPECT_STREQ(R.CapacityText, "0 GB");
  EXPECT_TRUE(Commands().empty()) << "no command sent";
  EXPECT_NE(Log().find("VendorNvmeControllerProtocol\n"), std::string::npos);
}

// ------------------------------------------------------------ M.2 names and trims

TEST_F(NvmeTest, Slot252TakesItsFirstNameOrTheSecondWhenTheFirstIsEmpty) {
  StartDrive(kDrive, 252);
  PCIE_DEVICE_INFO R = Record(252);
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&R), EFI_SUCCESS);
  EXPECT_STREQ(R.PhySlot, "M2_B2");

  std::strcpy(Custom + QOR_CUSTOM_M2_NAMES_OFFSET + QOR_CUSTOM_M2_NAME_SIZE, "M2_B1");
  PCIE_DEVICE_INFO First = Record(252);
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&First), EFI_SUCCESS);
  EXPECT_STREQ(First.PhySlot, "M2_B1");

  PCIE_DEVICE_INFO Other = Record(7);
  EXPECT_EQ(QorPcieUpdateNvmeM2Info(&Other), EFI_SUCCESS);
  EXPECT_STREQ(Other.PhySlot, "");
}

TEST(NvmeTrim, RemovesTrailingBlanksOnlyAndLeadingBlanksAndTabs) {
  struct Case {
    const char *In;
    size_t Size;
    const char *Out;
  } Cases[] = {
      {"AB  ", 4, "AB"},  {"ABCD", 4, "ABCD"}, {" \tAB ", 5, "AB"}, {"    ", 4, ""},
      {"AB\t", 3, "AB\t"}, {"AB\0\0", 4, "AB"}, {"A B ", 4, "A B"},
  };
  for (const Case &C : Cases) {
    char Field[16];
    std::memset(Field, 'x', sizeof(Field));
    std::memcpy(Field, C.In, C.Size);
    QorTrimFixedField(Field, C.Size);
    EXPECT_STREQ(Field, C.Out) << '"' << C.In << '"';
  }
}

}  // namespace
