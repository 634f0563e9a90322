// The emulated PCI bus as the driver meets it: registers that behave like
// hardware, bus numbers and handles as a bus driver creates them, device
// paths and LocateDevicePath, and the checks of PCI I/O configuration access.
#include <gtest/gtest.h>

#include <cstring>

#include "emulator/device_path_util.h"
#include "platform/cpu_access.h"
#include "platform/device_path.h"
#include "platform/pci_root_bridge_io.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

// One endpoint at 00:02.0 of a host bridge with root bus 0.
std::string OneEndpoint(const std::string &Members) {
  return R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 2, "vendorId": "0x1AB4", "deviceId": "0x0101",)" +
         Members + "}]}]}";
}

class PciRegisters : public PciBusOnEmulator {};

// BAR   type               size   written      reads back   restored
// 0x10  mem32              4K     FFFFFFFF     FFFFF000     90000000
// 0x14  mem32 prefetchable 1M     FFFFFFFF     FFF00008     90100008
// 0x18  mem64 prefetchable 16M    FFFFFFFF x2  FF00000C     0000000C
//       (upper half)              ...          FFFFFFFF     00000038
// 0x20  io (32-bit)        32     FFFFFFFF     FFFFFFE1     00002001
// 0x24  io16               16     FFFFFFFF     0000FFF1     00003001
TEST_F(PciRegisters, BarsAnswerTheSizingWriteWithTheirMaskAndTakeTheRestoreWrite) {
  StartPci(OneEndpoint(R"("bars": [
      {"type": "mem32", "size": "4K", "base": "0x90000000"},
      {"type": "mem32", "size": "1M", "prefetchable": true, "base": "0x90100000"},
      {"type": "mem64", "size": "16M", "prefetchable": true, "base": "0x3800000000"},
      {"type": "io", "size": 32, "base": "0x2000"},
      {"type": "io16", "size": 16, "base": "0x3000"}])"));
  EFI_PCI_IO_PROTOCOL *P = PciIoAt(0, 0, 2, 0);
  ASSERT_NE(P, nullptr);
  struct Row {
    UINT32 Offset, Original, Sized;
  } Rows[] = {{0x10, 0x90000000, 0xFFFFF000}, {0x14, 0x90100008, 0xFFF00008}, {0x18, 0x0000000C, 0xFF00000C},
              {0x1C, 0x00000038, 0xFFFFFFFF}, {0x20, 0x00002001, 0xFFFFFFE1}, {0x24, 0x00003001, 0x0000FFF1}};
  for (const Row &R : Rows) {
    EXPECT_EQ(Read32(P, R.Offset), R.Original) << std::hex << R.Offset;
    Write32(P, R.Offset, 0xFFFFFFFF);
    EXPECT_EQ(Read32(P, R.Offset), R.Sized) << std::hex << R.Offset;
    Write32(P, R.Offset, R.Original);
    EXPECT_EQ(Read32(P, R.Offset), R.Original) << std::hex << R.Offset;
  }
  // The 64-bit BAR sized as one qword, as a resource walk does it.
  UINT64 All = ~0ULL, Size = 0;
  ASSERT_EQ(P->Pci.Write(P, EfiPciIoWidthUint64, 0x18, 1, &All), EFI_SUCCESS);
  ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthUint64, 0x18, 1, &Size), EFI_SUCCESS);
  EXPECT_EQ(Size, 0xFFFFFFFFFF00000CULL);
}

TEST_F(PciRegisters, UnimplementedBarsAndReadOnlyRegistersIgnoreWrites) {
  StartPci(OneEndpoint(R"("classCode": "0x010802", "subsystemVendorId": "0x1AB4", "subsystemId": "0x0042",
                          "bars": [{"type": "mem64", "size": "16K", "base": "0xA0000000"}])"));
  EFI_PCI_IO_PROTOCOL *P = PciIoAt(0, 0, 2, 0);
  ASSERT_NE(P, nullptr);
  // offset  register                 value        after writing all ones
  // 0x00    vendor/device            01011AB4     unchanged
  // 0x08    revision/class           01080200     unchanged
  // 0x0C    header type 0 (0x0E)     00000000     cache line size only
  // 0x20    BAR 4, not implemented   00000000     unchanged
  // 0x2C    subsystem                00421AB4     unchanged
  // 0x34    capability pointer       00000040     unchanged
  for (UINT32 Offset : {0x00u, 0x08u, 0x20u, 0x2Cu, 0x34u}) {
    UINT32 Before = Read32(P, Offset);
    Write32(P, Offset, 0xFFFFFFFF);
    EXPECT_EQ(Read32(P, Offset), Before) << std::hex << Offset;
  }
  EXPECT_EQ(Read32(P, 0x00), 0x01011AB4u);
  EXPECT_EQ(Read32(P, 0x08), 0x01080200u);
  Write32(P, 0x0C, 0xFFFFFFFF);
  EXPECT_EQ(Read32(P, 0x0C), 0x000000FFu);
  // Command: only the bits a PCI Express function implements; Status: error
  // bits clear on a one, the capability bit stays.
  Write16(P, 0x04, 0xFFFF);
  EXPECT_EQ(Read16(P, 0x04), 0x0547);
  Write16(P, 0x06, 0xFFFF);
  EXPECT_EQ(Read16(P, 0x06), 0x0010);
  // Link Status and Link Capabilities of the PCI Express capability at 0x50.
  UINT32 LinkCaps = Read32(P, 0x5C);
  Write32(P, 0x5C, 0);
  EXPECT_EQ(Read32(P, 0x5C), LinkCaps);
}

TEST_F(PciRegisters, BridgeBusAndWindowRegistersAreWritableTheirDecoderBitsAreNot) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x1AB4",
                                                            "deviceId": "0x0201"}]}]})");
  EFI_PCI_IO_PROTOCOL *P = PciIoAt(0, 0, 1, 0);
  ASSERT_NE(P, nullptr);
  EXPECT_EQ(Read8(P, 0x0E), 0x01);
  Write32(P, 0x18, 0x00070500);
  EXPECT_EQ(Read32(P, 0x18), 0x00070500u);
  // I/O base/limit keep "32-bit decoder" in their low nibbles, the
  // prefetchable pair keeps "64-bit".
  Write16(P, 0x1C, 0xFFFF);
  EXPECT_EQ(Read16(P, 0x1C), 0xF1F1);
  Write32(P, 0x20, 0xFFFFFFFF);
  EXPECT_EQ(Read32(P, 0x20), 0xFFF0FFF0u);
  Write32(P, 0x24, 0x00000000);
  EXPECT_EQ(Read32(P, 0x24), 0x00010001u);
  Write32(P, 0x28, 0x12345678);
  EXPECT_EQ(Read32(P, 0x28), 0x12345678u);
}

class PciTopology : public PciBusOnEmulator {};

// Two root ports; behind the first a switch with two downstream ports.
const char kSwitchTree[] = R"({"hostBridges": [{"uid": 7, "buses": [16, 48], "devices": [
  {"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201", "slot": 3, "devices": [
    {"type": "upstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0301", "devices": [
      {"device": 0, "type": "downstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0302", "devices": [
        {"vendorId": "0x1AB4", "deviceId": "0x0401"}]},
      {"device": 1, "type": "downstreamPort", "vendorId": "0x1AB4", "deviceId": "0x0302", "devices": [
        {"vendorId": "0x1AB4", "deviceId": "0x0402", "classCode": "0x020000"},
        {"function": 1, "vendorId": "0x1AB4", "deviceId": "0x0402", "classCode": "0x020000"}]}]}]},
  {"device": 2, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201", "devices": [
    {"vendorId": "0x1AB4", "deviceId": "0x0403"}]}]}]})";

TEST_F(PciTopology, BusNumbersAreAssignedDepthFirst) {
  StartPci(kSwitchTree);
  struct Row {
    UINTN Bus, Device;
    UINT32 Buses;  // subordinate, secondary, primary
  } Rows[] = {{0x10, 1, 0x141110}, {0x11, 0, 0x141211}, {0x12, 0, 0x131312}, {0x12, 1, 0x141412},
              {0x10, 2, 0x151510}};
  for (const Row &R : Rows) {
    EFI_PCI_IO_PROTOCOL *P = PciIoAt(0, R.Bus, R.Device, 0);
    ASSERT_NE(P, nullptr) << R.Bus << ":" << R.Device;
    EXPECT_EQ(Read32(P, 0x18) & 0xFFFFFF, R.Buses) << R.Bus << ":" << R.Device;
  }
}

TEST_F(PciTopology, FixedBusNumbersAreKeptAndNumberingGoesOnAfterThem) {
  StartPci(R"({"hostBridges": [{"buses": [0, 255], "devices": [
    {"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201", "secondaryBus": 32,
     "subordinateBus": 40, "devices": [{"vendorId": "0x1AB4", "deviceId": "0x0401"}]},
    {"device": 2, "type": "rootPort", "vendorId": "0x1AB4", "deviceId": "0x0201"}]}]})");
  EXPECT_EQ(Read32(PciIoAt(0, 0, 1, 0), 0x18) & 0xFFFFFF, 0x282000u);
  EXPECT_NE(PciIoAt(0, 32, 0, 0), nullptr);
  EXPECT_EQ(Read32(PciIoAt(0, 0, 2, 0), 0x18) & 0xFFFFFF, 0x292900u);
}

TEST_F(PciTopology, HandlesComeInEnumerationOrderEachWithItsDevicePath) {
  StartPci(kSwitchTree);
  std::vector<std::string> Order;
  for (EFI_HANDLE Handle : PciHandles()) Order.push_back(Location(PciIoOf(Handle)));
  EXPECT_EQ(Order, (std::vector<std::string>{"0000:10:01.0", "0000:11:00.0", "0000:12:00.0", "0000:13:00.0",
                                             "0000:12:01.0", "0000:14:00.0", "0000:14:00.1", "0000:10:02.0",
                                             "0000:15:00.0"}));
  // PcieRoot(UID 7)/Pci(1,0)/Pci(0,0)/Pci(1,0)/Pci(0,1)/End
  const uint8_t Expected[] = {2, 1, 12, 0, 0xD0, 0x41, 0x08, 0x0A, 7, 0, 0, 0,  // ACPI PNP0A08, UID 7
                              1, 1, 6, 0, 0, 1, 1, 1, 6, 0, 0, 0, 1, 1, 6, 0, 0, 1, 1, 1, 6, 0, 1, 0,
                              0x7F, 0xFF, 4, 0};
  EFI_DEVICE_PATH_PROTOCOL *Path = PathOf(HandleAt(0, 0x14, 0, 1));
  ASSERT_NE(Path, nullptr);
  EXPECT_EQ(std::memcmp(Path, Expected, sizeof(Expected)), 0);
}

TEST_F(PciTopology, AConventionalHostBridgeIsPciRootAndItsFunctionsHave256Bytes) {
  StartPci(R"({"hostBridges": [{"uid": 2, "pcieRoot": false, "devices": [
    {"device": 3, "vendorId": "0x1AB4", "deviceId": "0x0501", "pcie": false}]}]})");
  EFI_HANDLE Handle = HandleAt(0, 0, 3, 0);
  ASSERT_NE(Handle, nullptr);
  auto *Root = reinterpret_cast<const ACPI_HID_DEVICE_PATH *>(PathOf(Handle));
  EXPECT_EQ(Root->HID, EISA_PNP_ID(EISA_PNP_PCI_ROOT));
  EXPECT_EQ(Root->UID, 2u);
  EFI_PCI_IO_PROTOCOL *P = PciIoOf(Handle);
  UINT32 Value = 0;
  EXPECT_EQ(P->Pci.Read(P, EfiPciIoWidthUint32, 0xFC, 1, &Value), EFI_SUCCESS);
  EXPECT_EQ(P->Pci.Read(P, EfiPciIoWidthUint32, 0x100, 1, &Value), EFI_UNSUPPORTED);
  EXPECT_EQ(Read8(P, 0x41), 0x00);  // power management is the only capability
}

TEST_F(PciTopology, LocateDevicePathFindsTheLongestPrefixAndAdvancesThePath) {
  StartPci(kSwitchTree);
  EFI_HANDLE Nic = HandleAt(0, 0x14, 0, 0);
  EFI_HANDLE RootPort = HandleAt(0, 0x10, 1, 0);
  auto Bytes = [](EFI_DEVICE_PATH_PROTOCOL *Path) {
    const uint8_t *B = reinterpret_cast<const uint8_t *>(Path);
    return std::vector<uint8_t>(B, B + qor::emu::DevicePathPrefixBytes(Path) + 4);
  };
  // A child path below the NIC: the NIC's handle, the path left at the child node.
  CONTROLLER_DEVICE_PATH Child{{HARDWARE_DEVICE_PATH, HW_CONTROLLER_DP, {8, 0}}, 0};
  std::vector<uint8_t> Below = qor::emu::AppendDevicePathNode(Bytes(PathOf(Nic)), &Child, sizeof(Child));
  auto *Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Below.data());
  EFI_HANDLE Found = nullptr;
  ASSERT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Cursor, &Found), EFI_SUCCESS);
  EXPECT_EQ(Found, Nic);
  EXPECT_EQ(reinterpret_cast<uint8_t *>(Cursor) - Below.data(), qor::emu::DevicePathPrefixBytes(PathOf(Nic)));
  EXPECT_EQ(Cursor->Type, HARDWARE_DEVICE_PATH);

  // The root port's own path: its handle, the path left at the End node.
  std::vector<uint8_t> Exact = Bytes(PathOf(RootPort));
  Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Exact.data());
  ASSERT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiDevicePathProtocolGuid), &Cursor, &Found),
            EFI_SUCCESS);
  EXPECT_EQ(Found, RootPort);
  EXPECT_EQ(Cursor->Type, END_DEVICE_PATH_TYPE);

  // Another host bridge UID matches nothing; a protocol no handle has neither;
  // a missing Device is refused only once a handle was found.
  std::vector<uint8_t> Foreign = Exact;
  Foreign[8] = 9;
  Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Foreign.data());
  EXPECT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Cursor, &Found), EFI_NOT_FOUND);
  Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Exact.data());
  EXPECT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiFirmwareManagementProtocolGuid), &Cursor, &Found),
            EFI_NOT_FOUND);
  EXPECT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Cursor, nullptr),
            EFI_INVALID_PARAMETER);
  EXPECT_EQ(Cursor, reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Exact.data()));

  // A node shorter than its header ends nothing: no match, nothing read past.
  std::vector<uint8_t> Broken = {ACPI_DEVICE_PATH, ACPI_DP, 2, 0, 0, 0, 0, 0};
  Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Broken.data());
  EXPECT_EQ(gBS->LocateDevicePath(const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Cursor, &Found), EFI_NOT_FOUND);
}

TEST_F(PciTopology, BusRegistersThatLoopOrLeaveTheRangeAreNotFollowed) {
  // 00:01.0 points back at bus 0, 00:02.0 beyond the host bridge's buses,
  // 01:00.0 sideways into bus 1 again: each bus is entered once.
  StartPci(R"({"hostBridges": [{"buses": [0, 2]}], "functions": [
    {"bdf": "00:01.0", "vendorId": "0x1AB4", "headerType": 1, "patches": [{"offset": 24, "bytes": "00 00 05"}]},
    {"bdf": "00:02.0", "vendorId": "0x1AB4", "headerType": 1, "patches": [{"offset": 24, "bytes": "00 09 09"}]},
    {"bdf": "00:03.0", "vendorId": "0x1AB4", "headerType": 1, "patches": [{"offset": 24, "bytes": "00 01 02"}]},
    {"bdf": "01:00.0", "vendorId": "0x1AB4", "headerType": 1, "patches": [{"offset": 24, "bytes": "01 01 02"}]},
    {"bdf": "09:00.0", "vendorId": "0x1AB4"}]})");
  std::vector<std::string> Order;
  for (EFI_HANDLE Handle : PciHandles()) Order.push_back(Location(PciIoOf(Handle)));
  EXPECT_EQ(Order, (std::vector<std::string>{"0000:00:01.0", "0000:00:02.0", "0000:00:03.0", "0000:01:00.0",
                                             "0000:00:1f.0"}));
}

class PciConfigAccess : public PciBusOnEmulator {
 protected:
  void SetUp() override {
    StartPci(R"({"hostBridges": [{"devices": [
      {"device": 2, "vendorId": "0x1AB4", "deviceId": "0x0101"},
      {"device": 3, "vendorId": "0x1AB4", "deviceId": "0x0102", "pcie": false}]}]})");
    Express = PciIoAt(0, 0, 2, 0);
    Conventional = PciIoAt(0, 0, 3, 0);
    ASSERT_NE(Express, nullptr);
    ASSERT_NE(Conventional, nullptr);
  }
  EFI_PCI_IO_PROTOCOL *Express = nullptr;
  EFI_PCI_IO_PROTOCOL *Conventional = nullptr;
};

TEST_F(PciConfigAccess, EveryWidthWithCountsFifoAndFill) {
  EFI_PCI_IO_PROTOCOL *P = Express;
  UINT8 Bytes[4] = {};
  ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthUint8, 0, 4, Bytes), EFI_SUCCESS);
  EXPECT_EQ(std::vector<UINT8>(Bytes, Bytes + 4), (std::vector<UINT8>{0xB4, 0x1A, 0x01, 0x01}));
  UINT16 Words[3] = {};
  ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthFifoUint16, 2, 3, Words), EFI_SUCCESS);  // same register thrice
  EXPECT_EQ(std::vector<UINT16>(Words, Words + 3), (std::vector<UINT16>{0x0101, 0x0101, 0x0101}));
  UINT8 Last = 0;
  ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthFillUint8, 0, 4, &Last), EFI_SUCCESS);  // one slot, four registers
  EXPECT_EQ(Last, 0x01);
  UINT64 Qword = 0;
  ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthUint64, 0, 1, &Qword), EFI_SUCCESS);
  EXPECT_EQ(Qword & 0xFFFFFFFF, 0x01011AB4u);
  UINT32 Fill = 0xFFFFFFFF;
  ASSERT_EQ(P->Pci.Write(P, EfiPciIoWidthFillUint32, 0x10, 2, &Fill), EFI_SUCCESS);  // no BARs: unchanged
  EXPECT_EQ(Read32(P, 0x10), 0u);
  UINT32 Top = 0;
  EXPECT_EQ(P->Pci.Read(P, EfiPciIoWidthUint32, 0xFFC, 1, &Top), EFI_SUCCESS);
}

TEST_F(PciConfigAccess, AccessesOutsideTheSpaceOrMisalignedAreUnsupportedBadArgumentsInvalid) {
  UINT32 Value = 0x5A5A5A5A;
  struct Row {
    EFI_PCI_IO_PROTOCOL *P;
    EFI_PCI_IO_PROTOCOL_WIDTH Width;
    UINT32 Offset;
    UINTN Count;
    EFI_STATUS Expected;
  } Rows[] = {
      {Conventional, EfiPciIoWidthUint32, 0x100, 1, EFI_UNSUPPORTED},     // past 256 bytes
      {Conventional, EfiPciIoWidthUint8, 0xFF, 2, EFI_UNSUPPORTED},       // the count runs past
      {Conventional, EfiPciIoWidthFifoUint32, 0xFC, 2, EFI_UNSUPPORTED},  // counted even for FIFO
      {Express, EfiPciIoWidthUint32, 0x1000, 1, EFI_UNSUPPORTED},
      {Conventional, EfiPciIoWidthUint16, 0x01, 1, EFI_UNSUPPORTED},      // misaligned
      {Express, EfiPciIoWidthUint32, 0x00, 0, EFI_UNSUPPORTED},           // an empty access
      {Express, EfiPciIoWidthUint32, 0x00, ~UINTN{0}, EFI_UNSUPPORTED},
      {Express, EfiPciIoWidthMaximum, 0x00, 1, EFI_INVALID_PARAMETER},
  };
  for (const Row &R : Rows) {
    EXPECT_EQ(R.P->Pci.Read(R.P, R.Width, R.Offset, R.Count, &Value), R.Expected) << std::hex << R.Offset;
    EXPECT_EQ(R.P->Pci.Write(R.P, R.Width, R.Offset, R.Count, &Value), R.Expected) << std::hex << R.Offset;
  }
  EXPECT_EQ(Value, 0x5A5A5A5Au);
  // A PCI Express function's register travels in the extended-register
  // field, which the root bridge's alignment check does not see.
  UINT64 Qword = 0;
  EXPECT_EQ(Express->Pci.Read(Express, EfiPciIoWidthUint64, 0x04, 1, &Qword), EFI_SUCCESS);
  EXPECT_EQ(Express->Pci.Read(Express, EfiPciIoWidthUint32, 0, 1, nullptr), EFI_INVALID_PARAMETER);
  UINTN S, B, D;
  EXPECT_EQ(Express->GetLocation(Express, &S, &B, &D, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Express->Mem.Read(Express, EfiPciIoWidthUint32, 0, 0, 1, &Value), EFI_UNSUPPORTED);
}

TEST_F(PciConfigAccess, AllPathsReachOneModelAndEachCallCountsOnce) {
  Write16(Express, 0x04, 0x0002);
  // The root bridge I/O instance of the host bridge and the PCI Express
  // window see the same register.
  void *Interface = nullptr;
  ASSERT_EQ(gBS->LocateProtocol(const_cast<EFI_GUID *>(&gEfiPciRootBridgeIoProtocolGuid), nullptr, &Interface),
            EFI_SUCCESS);
  auto *Bridge = static_cast<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *>(Interface);
  UINT16 Command = 0;
  ASSERT_EQ(Bridge->Pci.Read(Bridge, EfiPciWidthUint16, EFI_PCI_ADDRESS(0, 2, 0, 4), 1, &Command), EFI_SUCCESS);
  EXPECT_EQ(Command, 0x0002);
  EXPECT_EQ(QorPciExpressRead16((2 << 15) | 4), 0x0002);

  UINT8 Header[64];
  ASSERT_EQ(Express->Pci.Read(Express, EfiPciIoWidthUint8, 0, 64, Header), EFI_SUCCESS);
  const qor::emu::PciAccessCounts &Counts = Plat->Pci().Find({0, 0, 2, 0})->Counts();
  EXPECT_EQ(Counts.Writes, 1u);
  EXPECT_EQ(Counts.Reads, 3u);  // root bridge, window, one 64-byte read
}

}  // namespace
