// Faults a board injects into PCI functions: failing reads, all-ones
// functions, broken capability lists, an extended space that mirrors the
// first 256 bytes. The bus itself stays usable: enumeration and the other
// functions are unaffected.
#include <gtest/gtest.h>

#include "platform/cpu_access.h"
#include "platform/pci_root_bridge_io.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

class PciFaults : public PciBusOnEmulator {
 protected:
  // 00:02.0 carries the faults; 00:03.0 is a healthy neighbour.
  void StartWith(const std::string &Faults) {
    StartPci(R"({"hostBridges": [{"devices": [
      {"device": 2, "vendorId": "0x1AB4", "deviceId": "0x0101", "faults": )" + Faults + R"(},
      {"device": 3, "vendorId": "0x1AB4", "deviceId": "0x0102"}]}]})");
    Faulty = PciIoAt(0, 0, 2, 0);
    Healthy = PciIoAt(0, 0, 3, 0);
    ASSERT_NE(Faulty, nullptr);
    ASSERT_NE(Healthy, nullptr);
  }
  EFI_STATUS ReadStatus(UINT32 Offset, EFI_PCI_IO_PROTOCOL_WIDTH Width, UINTN Count = 1) {
    UINT8 Buffer[256] = {};
    return Faulty->Pci.Read(Faulty, Width, Offset, Count, Buffer);
  }
  EFI_PCI_IO_PROTOCOL *Faulty = nullptr;
  EFI_PCI_IO_PROTOCOL *Healthy = nullptr;
};

TEST_F(PciFaults, ReadsCoveringAFailingOffsetFailWithTheGivenStatus) {
  StartWith(R"({"readFails": [82], "readStatus": "Not Ready"})");  // 0x52: PCI Express Capabilities
  EXPECT_EQ(ReadStatus(0x52, EfiPciIoWidthUint16), EFI_NOT_READY);
  EXPECT_EQ(ReadStatus(0x50, EfiPciIoWidthUint32), EFI_NOT_READY);
  EXPECT_EQ(ReadStatus(0x40, EfiPciIoWidthUint8, 64), EFI_NOT_READY);
  EXPECT_EQ(ReadStatus(0x50, EfiPciIoWidthUint16), EFI_SUCCESS);
  EXPECT_EQ(ReadStatus(0x54, EfiPciIoWidthUint32), EFI_SUCCESS);
  EXPECT_EQ(Read16(Healthy, 0x52) & 0xF0, 0x00);
}

TEST_F(PciFaults, AFunctionWhoseReadsAllFailFailsOnEveryPathButTheWindowReadsAllOnes) {
  StartWith(R"({"readFails": "all"})");
  EXPECT_EQ(ReadStatus(0x00, EfiPciIoWidthUint16), EFI_DEVICE_ERROR);
  void *Interface = nullptr;
  ASSERT_EQ(gBS->LocateProtocol(const_cast<EFI_GUID *>(&gEfiPciRootBridgeIoProtocolGuid), nullptr, &Interface),
            EFI_SUCCESS);
  auto *Bridge = static_cast<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *>(Interface);
  UINT16 Vendor = 0;
  EXPECT_EQ(Bridge->Pci.Read(Bridge, EfiPciWidthUint16, EFI_PCI_ADDRESS(0, 2, 0, 0), 1, &Vendor), EFI_DEVICE_ERROR);
  EXPECT_EQ(QorPciExpressRead16(2 << 15), 0xFFFF);
  EXPECT_EQ(Read16(Healthy, 0x00), 0x1AB4);
}

TEST_F(PciFaults, AnAllOnesFunctionKeepsItsHandleReadsOnesAndDropsWrites) {
  StartWith(R"({"allOnes": true})");
  EXPECT_EQ(Read16(Faulty, 0x00), 0xFFFF);
  EXPECT_EQ(Read32(Faulty, 0x50), 0xFFFFFFFFu);
  Write16(Faulty, 0x04, 0x0000);
  UINT64 Qword = 0;
  ASSERT_EQ(Faulty->Pci.Read(Faulty, EfiPciIoWidthUint64, 0, 1, &Qword), EFI_SUCCESS);
  EXPECT_EQ(Qword, ~0ULL);
  UINTN S, B, D, F;
  ASSERT_EQ(Faulty->GetLocation(Faulty, &S, &B, &D, &F), EFI_SUCCESS);
  EXPECT_EQ(D, 2u);
}

TEST_F(PciFaults, AMirroredExtendedSpaceRepeatsTheFirst256Bytes) {
  StartWith(R"({"mirrorExtendedSpace": true})");
  EXPECT_EQ(Read32(Faulty, 0x100), Read32(Faulty, 0x00));
  EXPECT_EQ(Read32(Faulty, 0xF50), Read32(Faulty, 0x50));
  EXPECT_EQ(Read32(Healthy, 0x100), 0u);  // no extended capabilities
}

TEST_F(PciFaults, CapabilityListsThatLoopOrPointBelow0x40AreBuiltAsAsked) {
  StartPci(R"({"hostBridges": [{"devices": [
    {"device": 2, "vendorId": "0x1AB4", "faults": {"capabilityLoop": true}},
    {"device": 3, "vendorId": "0x1AB4", "faults": {"capabilityPointer": "0x20"}},
    {"device": 4, "vendorId": "0x1AB4", "pcie": false, "faults": {"capabilityLoop": true}}]}]})");
  // 0x34 -> 0x40 (power management) -> 0x50 (PCI Express) -> back to 0x40.
  EXPECT_EQ(Read8(PciIoAt(0, 0, 2, 0), 0x34), 0x40);
  EXPECT_EQ(Read8(PciIoAt(0, 0, 2, 0), 0x41), 0x50);
  EXPECT_EQ(Read8(PciIoAt(0, 0, 2, 0), 0x51), 0x40);
  EXPECT_EQ(Read8(PciIoAt(0, 0, 3, 0), 0x34), 0x20);
  EXPECT_EQ(Read8(PciIoAt(0, 0, 4, 0), 0x41), 0x40);  // points at itself
  // The looping function still has its register behaviour (the walk that
  // finds its capabilities ends): Link Control is writable.
  Write16(PciIoAt(0, 0, 2, 0), 0x60, 0x0003);
  EXPECT_EQ(Read16(PciIoAt(0, 0, 2, 0), 0x60), 0x0003);
}

TEST_F(PciFaults, BadFaultMembersAreRefusedWithTheirPath) {
  try {
    BoardFrom(R"({"pci": {"hostBridges": [{"devices": [{"vendorId": 1, "faults": {"readFails": "some"}}]}]}})");
    FAIL() << "accepted";
  } catch (const qor::emu::BoardError &Error) {
    EXPECT_NE(std::string(Error.what()).find("board.pci.hostBridges[0].devices[0].faults.readFails"),
              std::string::npos)
        << Error.what();
  }
}

}  // namespace
