// Platform data that hangs off PCI devices: firmware-management instances
// and their GetImageInfo, the nic db, the IIO stack table, the M.2 names.
#include <gtest/gtest.h>

#include <cstring>

#include "emulator/device_path_util.h"
#include "platform/custom_protocol.h"
#include "platform/device_path.h"
#include "platform/firmware_management.h"
#include "platform/nic_db.h"
#include "platform/system_information.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

// A root port in slot 3 with a NIC (functions 0 and 1) below it.
std::string NicBehindSlot3(const std::string &NicMembers) {
  return R"({"hostBridges": [{"buses": [0, 15], "devices": [
    {"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201", "slot": 3, "devices": [
      {"vendorId": "0x1AB4", "deviceId": "0x0402", "classCode": "0x020000", )" + NicMembers + R"(},
      {"function": 1, "vendorId": "0x1AB4", "deviceId": "0x0402", "classCode": "0x020000"}]}]}]})";
}

std::vector<EFI_HANDLE> HandlesWith(const EFI_GUID &Guid) {
  UINTN Count = 0;
  EFI_HANDLE *Buffer = nullptr;
  std::vector<EFI_HANDLE> Out;
  if (gBS->LocateHandleBuffer(ByProtocol, const_cast<EFI_GUID *>(&Guid), nullptr, &Count, &Buffer) == EFI_SUCCESS) {
    Out.assign(Buffer, Buffer + Count);
    gBS->FreePool(Buffer);
  }
  return Out;
}

EFI_FIRMWARE_MANAGEMENT_PROTOCOL *FmpOf(EFI_HANDLE Handle) {
  void *Interface = nullptr;
  gBS->HandleProtocol(Handle, const_cast<EFI_GUID *>(&gEfiFirmwareManagementProtocolGuid), &Interface);
  return static_cast<EFI_FIRMWARE_MANAGEMENT_PROTOCOL *>(Interface);
}

class FirmwareManagement : public PciBusOnEmulator {
 protected:
  struct Info {
    EFI_STATUS First, Second;
    UINTN Size;
    std::u16string Name;
    bool NameNull;
  };
  // The two calls a caller makes: size 0, then a buffer of the size told.
  static Info Query(EFI_FIRMWARE_MANAGEMENT_PROTOCOL *Fmp) {
    Info Out{};
    UINT32 Version = 0, PackageVersion = 0;
    UINT8 Count = 0;
    UINTN DescriptorSize = 0;
    CHAR16 *Name = reinterpret_cast<CHAR16 *>(1);
    Out.First = Fmp->GetImageInfo(Fmp, &Out.Size, nullptr, &Version, &Count, &DescriptorSize, &PackageVersion, &Name);
    std::vector<uint8_t> Buffer(Out.Size + 1);
    Out.Second = Fmp->GetImageInfo(Fmp, &Out.Size, reinterpret_cast<EFI_FIRMWARE_IMAGE_DESCRIPTOR *>(Buffer.data()),
                                   &Version, &Count, &DescriptorSize, &PackageVersion, &Name);
    Out.NameNull = Name == nullptr;
    if (Out.Second == EFI_SUCCESS && Name != nullptr) {
      Out.Name = Name;
      EXPECT_EQ(gBS->FreePool(Name), EFI_SUCCESS);  // pool memory of the caller's
      EXPECT_EQ(Count, 1);
      EXPECT_EQ(DescriptorSize, sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR));
    }
    return Out;
  }
};

TEST_F(FirmwareManagement, InstancesSitTheGivenNumberOfNodesBelowTheirFunction) {
  StartPci(NicBehindSlot3(R"("firmware": [{"below": 1, "packageVersionName": "A"},
                                          {"below": 2, "packageVersionName": "B"},
                                          {"below": 0, "packageVersionName": "C"}])"));
  EFI_HANDLE Nic = HandleAt(0, 1, 0, 0);
  ASSERT_NE(Nic, nullptr);
  int NicDepth = qor::emu::DevicePathNodeCount(PathOf(Nic));
  long NicBytes = qor::emu::DevicePathPrefixBytes(PathOf(Nic));
  std::vector<EFI_HANDLE> Handles = HandlesWith(gEfiFirmwareManagementProtocolGuid);
  ASSERT_EQ(Handles.size(), 3u);
  std::vector<int> Below;
  for (EFI_HANDLE Handle : Handles) {
    EFI_DEVICE_PATH_PROTOCOL *Path = PathOf(Handle);
    ASSERT_NE(Path, nullptr);
    EXPECT_EQ(std::memcmp(Path, PathOf(Nic), static_cast<size_t>(NicBytes)), 0);
    Below.push_back(qor::emu::DevicePathNodeCount(Path) - NicDepth);
  }
  // Handle order is creation order: below 0 is the function's own handle,
  // made before the children's.
  EXPECT_EQ(Below, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(Handles[0], Nic);
  // A network function's first child node is its MAC address node.
  const auto *Child = reinterpret_cast<const uint8_t *>(PathOf(Handles[1])) + NicBytes;
  EXPECT_EQ(Child[0], MESSAGING_DEVICE_PATH);
  EXPECT_EQ(Child[1], MSG_MAC_ADDR_DP);
  // The PCI I/O lookup of a child path ends at the NIC.
  auto *Cursor = PathOf(Handles[2]);
  EFI_HANDLE Found = nullptr;
  ASSERT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Cursor, &Found), EFI_SUCCESS);
  EXPECT_EQ(Found, Nic);
}

TEST_F(FirmwareManagement, GetImageInfoTellsTheSizeFirstThenFillsAndAllocatesTheName) {
  StartPci(NicBehindSlot3(R"("firmware": [{"packageVersionName": " 4.10 0x8000 ", "packageVersion": 7}])"));
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL *Fmp = FmpOf(HandlesWith(gEfiFirmwareManagementProtocolGuid).at(0));
  uint64_t HeldBefore = Fw->GetPool().LiveAllocationCount();
  Info I = Query(Fmp);
  EXPECT_EQ(I.First, EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(I.Size, sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR));
  EXPECT_EQ(I.Second, EFI_SUCCESS);
  EXPECT_EQ(I.Name, u" 4.10 0x8000 ");
  EXPECT_EQ(Fw->GetPool().LiveAllocationCount(), HeldBefore);
  UINTN Size = sizeof(EFI_FIRMWARE_IMAGE_DESCRIPTOR);
  EFI_FIRMWARE_IMAGE_DESCRIPTOR Descriptor;
  EXPECT_EQ(Fmp->GetImageInfo(Fmp, &Size, &Descriptor, nullptr, nullptr, nullptr, nullptr, nullptr),
            EFI_INVALID_PARAMETER);
  EXPECT_EQ(Fmp->GetImageInfo(Fmp, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            EFI_INVALID_PARAMETER);
}

TEST_F(FirmwareManagement, BoardFaultsReplaceEitherCallAndTheNameMayBeMissing) {
  StartPci(NicBehindSlot3(R"("firmware": [{"firstCall": "Success", "packageVersionName": "X"},
                                          {"firstCall": "Device Error"},
                                          {"secondCall": "Not Ready", "packageVersionName": "Y"},
                                          {"packageVersionName": null}])"));
  std::vector<EFI_HANDLE> Handles = HandlesWith(gEfiFirmwareManagementProtocolGuid);
  ASSERT_EQ(Handles.size(), 4u);
  uint64_t HeldBefore = Fw->GetPool().LiveAllocationCount();
  Info Success = Query(FmpOf(Handles[0]));
  EXPECT_EQ(Success.First, EFI_SUCCESS);
  EXPECT_EQ(Query(FmpOf(Handles[1])).First, EFI_DEVICE_ERROR);
  Info Second = Query(FmpOf(Handles[2]));
  EXPECT_EQ(Second.First, EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(Second.Second, EFI_NOT_READY);
  Info Nameless = Query(FmpOf(Handles[3]));
  EXPECT_EQ(Nameless.Second, EFI_SUCCESS);
  EXPECT_TRUE(Nameless.NameNull);
  EXPECT_EQ(Fw->GetPool().LiveAllocationCount(), HeldBefore);  // nothing allocated on these paths
}

class NicDatabase : public PciBusOnEmulator {
 protected:
  QOR_NIC_DB_PROTOCOL *NicDb() {
    void *Interface = nullptr;
    EXPECT_EQ(gBS->LocateProtocol(const_cast<EFI_GUID *>(&gQorNicDbProtocolGuid), nullptr, &Interface), EFI_SUCCESS);
    return static_cast<QOR_NIC_DB_PROTOCOL *>(Interface);
  }
  static uint32_t U32(const uint8_t *Entry, size_t Offset) {
    uint32_t Value;
    std::memcpy(&Value, Entry + Offset, 4);
    return Value;
  }
};

TEST_F(NicDatabase, AFunctionsEntryIsFoundByTheSlotItSitsInWithItsPorts) {
  StartPci(NicBehindSlot3(R"("nic": {"onBoard": true, "ports": [
      {"description": "Port A", "mac": "00:1B:21:0A:4C:10"}, {"description": "Port B", "mac": "00-1B-21-0A-4C-11"}]})"));
  QOR_NIC_DB_PROTOCOL *Db = NicDb();
  EXPECT_EQ(Db->GetNicEntry(Db, 2), nullptr);
  auto *Entry = static_cast<const uint8_t *>(Db->GetNicEntry(Db, 3));
  ASSERT_NE(Entry, nullptr);
  EXPECT_EQ(Entry[QOR_NIC_ENTRY_ONBOARD_OFFSET], 1);
  EXPECT_EQ(U32(Entry, QOR_NIC_ENTRY_PORT_COUNT_OFFSET), 2u);
  const uint8_t Mac1[] = {0x00, 0x1B, 0x21, 0x0A, 0x4C, 0x11};
  size_t Port1 = QOR_NIC_ENTRY_PORT_STRIDE;
  EXPECT_EQ(U32(Entry, QOR_NIC_PORT_LOCATION_OFFSET), 0x010000u);         // 01:00.0
  EXPECT_EQ(U32(Entry, Port1 + QOR_NIC_PORT_LOCATION_OFFSET), 0x010001u);  // 01:00.1
  EXPECT_STREQ(reinterpret_cast<const char *>(Entry + Port1 + QOR_NIC_PORT_DESC_OFFSET), "Port B");
  EXPECT_EQ(std::memcmp(Entry + Port1 + QOR_NIC_PORT_MAC_OFFSET, Mac1, 6), 0);
}

TEST_F(NicDatabase, GivenEntriesKeepTheirSlotAndReportedPortCount) {
  StartPci(R"({"nicDb": [{"slot": 12, "portCount": 20, "ports": [
      {"location": "3b:00.0", "description": "P0", "mac": "02:00:00:00:00:01"}]}]})");
  QOR_NIC_DB_PROTOCOL *Db = NicDb();
  auto *Entry = static_cast<const uint8_t *>(Db->GetNicEntry(Db, 12));
  ASSERT_NE(Entry, nullptr);
  EXPECT_EQ(Entry[QOR_NIC_ENTRY_ONBOARD_OFFSET], 0);
  EXPECT_EQ(U32(Entry, QOR_NIC_ENTRY_PORT_COUNT_OFFSET), 20u);
  EXPECT_EQ(U32(Entry, QOR_NIC_PORT_LOCATION_OFFSET), 0x3B0000u);
  // Sixteen ports are readable even though one is listed (zeros after it).
  EXPECT_EQ(U32(Entry, 15 * QOR_NIC_ENTRY_PORT_STRIDE + QOR_NIC_PORT_LOCATION_OFFSET), 0u);
}

class IioStackTable : public PciBusOnEmulator {
 protected:
  const uint8_t *Block() {
    void *Interface = nullptr;
    EXPECT_EQ(gBS->LocateProtocol(const_cast<EFI_GUID *>(&gQorSystemInformationProtocolGuid), nullptr, &Interface),
              EFI_SUCCESS);
    return static_cast<const uint8_t *>(*static_cast<void **>(Interface));
  }
  QOR_IIO_STACK_ENTRY Stack(size_t I) {
    QOR_IIO_STACK_ENTRY Entry;
    std::memcpy(&Entry, Block() + QOR_SYSINFO_STACK_TABLE_OFFSET + I * sizeof(Entry), sizeof(Entry));
    return Entry;
  }
};

TEST_F(IioStackTable, EachRootPortIsAStackCoveringTheBusesBelowIt) {
  // Segment 1: a root port with a switch (buses 0x41-0x43), an RCiEP, a second root port.
  StartPci(R"({"hostBridges": [{"segment": 1, "buses": [64, 80], "devices": [
    {"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201", "devices": [
      {"type": "upstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0301", "devices": [
        {"type": "downstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0302"}]}]},
    {"device": 2, "type": "rcEndpoint", "vendorId": "0x1AB4", "deviceId": "0x0501"},
    {"device": 3, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201"}]}]})");
  EXPECT_EQ(Block()[QOR_SYSINFO_STACK_COUNT_OFFSET], 2);
  QOR_IIO_STACK_ENTRY First = Stack(0), Second = Stack(1);
  // valid segment  root port   bus base  bus limit
  // 1     1        40:01.0     0x41      0x43
  // 1     1        40:03.0     0x44      0x44
  EXPECT_EQ(First.Valid, 1);
  EXPECT_EQ(First.Segment, 1);
  EXPECT_EQ((std::vector<int>{First.RootPortBus, First.RootPortDevice, First.RootPortFunction, First.BusBase,
                              First.BusLimit}),
            (std::vector<int>{0x40, 1, 0, 0x41, 0x43}));
  EXPECT_EQ((std::vector<int>{Second.RootPortBus, Second.RootPortDevice, Second.RootPortFunction, Second.BusBase,
                              Second.BusLimit}),
            (std::vector<int>{0x40, 3, 0, 0x44, 0x44}));
  EXPECT_EQ(Stack(2).Valid, 0);
}

TEST_F(IioStackTable, AGivenTableReplacesTheDerivedOne) {
  StartPci(R"({"hostBridges": [{"devices": [{"device": 1, "type": "rootPort", "vendorId": "0x1AB4"}]}]})",
           R"("systemInformation": {"stacks": [{"valid": 1, "segment": 0, "rootPort": [0, 255, 255], "buses": [1, 9]}]})");
  EXPECT_EQ(Block()[QOR_SYSINFO_STACK_COUNT_OFFSET], 1);
  EXPECT_EQ(Stack(0).RootPortDevice, 0xFF);
  EXPECT_EQ(Stack(0).BusLimit, 9);
}

TEST_F(PciBusOnEmulator, CustomProtocolCarriesTheThreeM2Names) {
  StartPci("{}", R"("customProtocol": {"m2Names": ["M2_0", "", "M2_SLOT_B"]})");
  void *Interface = nullptr;
  ASSERT_EQ(gBS->LocateProtocol(const_cast<EFI_GUID *>(&gQorCustomProtocolGuid), nullptr, &Interface), EFI_SUCCESS);
  const char *Names = static_cast<const char *>(Interface) + QOR_CUSTOM_M2_NAMES_OFFSET;
  EXPECT_STREQ(Names, "M2_0");
  EXPECT_STREQ(Names + QOR_CUSTOM_M2_NAME_SIZE, "");
  EXPECT_STREQ(Names + 2 * QOR_CUSTOM_M2_NAME_SIZE, "M2_SLOT_B");
  EXPECT_THROW(BoardFrom(R"({"customProtocol": {"m2Names": ["THIRTEEN_CHRS"]}})"), qor::emu::BoardError);
}

}  // namespace
