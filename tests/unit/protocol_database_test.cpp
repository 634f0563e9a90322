// The emulated protocol database keeps the order and matching rules of
// firmware however protocols come and go: handles are listed in creation
// order, LocateProtocol answers with the earliest handle, LocateDevicePath
// finds the longest installed path prefix (the earliest handle on a tie)
// among handles with the protocol, after installs, reinstalls and
// uninstalls alike.
#include <gtest/gtest.h>

#include <vector>

#include "emulator/device_path_util.h"
#include "emulator/firmware.h"
#include "platform/device_path.h"
#include "platform/guids.h"

namespace {

const EFI_GUID kProtocolA = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
const EFI_GUID kProtocolB = {0x66666666, 0x7777, 0x8888, {0x99, 0x99, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}};
EFI_GUID *Guid(const EFI_GUID &G) { return const_cast<EFI_GUID *>(&G); }

std::vector<uint8_t> PciPath(std::vector<std::pair<uint8_t, uint8_t>> Nodes) {
  ACPI_HID_DEVICE_PATH Root{{ACPI_DEVICE_PATH, ACPI_DP, {sizeof(ACPI_HID_DEVICE_PATH), 0}}, EISA_PNP_ID(EISA_PNP_PCIE_ROOT), 0};
  std::vector<uint8_t> Path = qor::emu::AppendDevicePathNode(qor::emu::EndOnlyDevicePath(), &Root, sizeof(Root));
  for (auto [Device, Function] : Nodes) {
    PCI_DEVICE_PATH Node{{HARDWARE_DEVICE_PATH, HW_PCI_DP, {sizeof(PCI_DEVICE_PATH), 0}}, Function, Device};
    Path = qor::emu::AppendDevicePathNode(Path, &Node, sizeof(Node));
  }
  return Path;
}

class ProtocolDatabase : public testing::Test {
 protected:
  EFI_HANDLE Install(EFI_HANDLE Handle, const EFI_GUID &Protocol, void *Interface) {
    EXPECT_EQ(Fw.BootServices()->InstallProtocolInterface(&Handle, Guid(Protocol), EFI_NATIVE_INTERFACE, Interface),
              EFI_SUCCESS);
    return Handle;
  }
  std::vector<EFI_HANDLE> Listed(const EFI_GUID &Protocol) {
    UINTN Count = 0;
    EFI_HANDLE *Buffer = nullptr;
    if (Fw.BootServices()->LocateHandleBuffer(ByProtocol, Guid(Protocol), nullptr, &Count, &Buffer) != EFI_SUCCESS) return {};
    std::vector<EFI_HANDLE> Out(Buffer, Buffer + Count);
    Fw.BootServices()->FreePool(Buffer);
    return Out;
  }
  // The handle LocateDevicePath gives for Source with Protocol, and how far
  // it advanced the path; nullptr when none.
  EFI_HANDLE Locate(const EFI_GUID &Protocol, std::vector<uint8_t> Source, long *Advanced = nullptr) {
    auto *Cursor = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Source.data());
    EFI_HANDLE Found = nullptr;
    if (Fw.BootServices()->LocateDevicePath(Guid(Protocol), &Cursor, &Found) != EFI_SUCCESS) return nullptr;
    if (Advanced != nullptr) *Advanced = reinterpret_cast<uint8_t *>(Cursor) - Source.data();
    return Found;
  }
  qor::emu::Firmware Fw;
  int A1 = 1, A2 = 2, A3 = 3, B1 = 4;
};

TEST_F(ProtocolDatabase, HandlesAreListedInCreationOrderWhenAProtocolReachesAnOlderHandleLater) {
  EFI_HANDLE H1 = Install(nullptr, kProtocolA, &A1);
  EFI_HANDLE H2 = Install(nullptr, kProtocolB, &B1);
  EFI_HANDLE H3 = Install(nullptr, kProtocolA, &A3);
  int B0 = 0;
  Install(H1, kProtocolB, &B0);
  EXPECT_EQ(Listed(kProtocolB), (std::vector<EFI_HANDLE>{H1, H2}));
  EXPECT_EQ(Listed(kProtocolA), (std::vector<EFI_HANDLE>{H1, H3}));
  void *Found = nullptr;
  ASSERT_EQ(Fw.BootServices()->LocateProtocol(Guid(kProtocolB), nullptr, &Found), EFI_SUCCESS);
  EXPECT_EQ(Found, &B0) << "the earliest handle answers";
  ASSERT_EQ(Fw.BootServices()->UninstallProtocolInterface(H1, Guid(kProtocolB), &B0), EFI_SUCCESS);
  ASSERT_EQ(Fw.BootServices()->LocateProtocol(Guid(kProtocolB), nullptr, &Found), EFI_SUCCESS);
  EXPECT_EQ(Found, &B1);
  EXPECT_EQ(Listed(kProtocolB), (std::vector<EFI_HANDLE>{H2}));
  int NotAHandle = 0;
  EXPECT_EQ(Fw.BootServices()->HandleProtocol(&NotAHandle, Guid(kProtocolA), &Found), EFI_INVALID_PARAMETER);
}

// Paths: H1 PcieRoot(0)/Pci(1,0); H2 PcieRoot(0)/Pci(1,0)/Pci(0,0); the
// source below H2.
TEST_F(ProtocolDatabase, LocateDevicePathFollowsInstallsReinstallsAndUninstalls) {
  std::vector<uint8_t> Port = PciPath({{1, 0}}), Card = PciPath({{1, 0}, {0, 0}}), Below = PciPath({{1, 0}, {0, 0}, {3, 1}});
  const long PortBytes = static_cast<long>(Port.size()) - 4, CardBytes = static_cast<long>(Card.size()) - 4;
  EFI_HANDLE H1 = Install(nullptr, kProtocolA, &A1);
  Install(H1, gEfiDevicePathProtocolGuid, Port.data());
  EFI_HANDLE H2 = Install(nullptr, gEfiDevicePathProtocolGuid, Card.data());
  long Advanced = 0;
  EXPECT_EQ(Locate(kProtocolA, Below, &Advanced), H1) << "H2 has no protocol A yet";
  EXPECT_EQ(Advanced, PortBytes);
  Install(H2, kProtocolA, &A2);
  EXPECT_EQ(Locate(kProtocolA, Below, &Advanced), H2) << "the longest prefix";
  EXPECT_EQ(Advanced, CardBytes);
  EXPECT_EQ(Locate(gEfiDevicePathProtocolGuid, Port), H1) << "a path shorter than H2's";

  // A later handle with the same path as H2: H2 was created first.
  EFI_HANDLE H3 = Install(nullptr, gEfiDevicePathProtocolGuid, Card.data());
  Install(H3, kProtocolA, &A3);
  EXPECT_EQ(Locate(kProtocolA, Below), H2);
  ASSERT_EQ(Fw.BootServices()->UninstallProtocolInterface(H2, Guid(gEfiDevicePathProtocolGuid), Card.data()),
            EFI_SUCCESS);
  EXPECT_EQ(Locate(kProtocolA, Below), H3);

  // H1 moves to the deeper path, which sorts it before H3 again.
  std::vector<uint8_t> Moved = Card;
  ASSERT_EQ(Fw.BootServices()->ReinstallProtocolInterface(H1, Guid(gEfiDevicePathProtocolGuid), Port.data(),
                                                          Moved.data()),
            EFI_SUCCESS);
  EXPECT_EQ(Locate(kProtocolA, Below), H1);
  EXPECT_EQ(Locate(kProtocolA, Port), nullptr) << "no handle has the port's path any more";

  // A malformed path is never a match and hides nothing.
  std::vector<uint8_t> Broken = {ACPI_DEVICE_PATH, ACPI_DP, 2, 0};
  int A4 = 5;
  EFI_HANDLE H4 = Install(nullptr, kProtocolA, &A4);
  Install(H4, gEfiDevicePathProtocolGuid, Broken.data());
  EXPECT_EQ(Locate(kProtocolA, Below), H1);
}

}  // namespace
