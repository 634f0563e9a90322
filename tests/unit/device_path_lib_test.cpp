// Device path helpers: node walking, size, copies, node removal and the
// UEFI text forms of a PCI tree.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/device_path_lib.h"
#include "platform/memory_lib.h"
#include "tests/unit/driver_fixture.h"

namespace {

// Builds a path from node bytes and appends the End node.
struct PathBuilder {
  std::vector<uint8_t> Bytes;
  PathBuilder &Acpi(uint32_t Hid, uint32_t Uid) {
    Node(ACPI_DEVICE_PATH, ACPI_DP, {});
    Put32(Hid);
    Put32(Uid);
    return Fix();
  }
  PathBuilder &Pci(uint8_t Device, uint8_t Function) {
    Node(HARDWARE_DEVICE_PATH, HW_PCI_DP, {Function, Device});
    return Fix();
  }
  PathBuilder &Raw(uint8_t Type, uint8_t SubType, std::vector<uint8_t> Data) {
    Node(Type, SubType, Data);
    return Fix();
  }
  EFI_DEVICE_PATH_PROTOCOL *End() {
    Bytes.insert(Bytes.end(), {0x7F, 0xFF, 4, 0});
    return reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(Bytes.data());
  }
  void Node(uint8_t Type, uint8_t SubType, const std::vector<uint8_t> &Data) {
    Start = Bytes.size();
    Bytes.insert(Bytes.end(), {Type, SubType, 0, 0});
    Bytes.insert(Bytes.end(), Data.begin(), Data.end());
  }
  void Put32(uint32_t V) {
    for (int I = 0; I < 4; I++) Bytes.push_back(static_cast<uint8_t>(V >> (8 * I)));
  }
  PathBuilder &Fix() {
    size_t Length = Bytes.size() - Start;
    Bytes[Start + 2] = static_cast<uint8_t>(Length);
    Bytes[Start + 3] = static_cast<uint8_t>(Length >> 8);
    return *this;
  }
  size_t Start = 0;
};

std::string Narrow(const CHAR16 *Text) {
  std::string Out;
  for (; Text != nullptr && *Text != 0; Text++) Out.push_back(static_cast<char>(*Text));
  return Out;
}

class DevicePathLib : public DriverOnEmulator {
 protected:
  void SetUp() override { Start(); }
  std::string Text(EFI_DEVICE_PATH_PROTOCOL *Path) {
    CHAR16 *T = QorConvertDevicePathToText(Path, FALSE, FALSE);
    std::string Out = Narrow(T);
    if (T != nullptr) QorFreePool(T);
    return Out;
  }
};

}  // namespace

TEST_F(DevicePathLib, PciTreeTextUsesRootAndHexDeviceFunction) {
  PathBuilder B;
  B.Acpi(EISA_PNP_ID(EISA_PNP_PCIE_ROOT), 0x10).Pci(0x1C, 4).Pci(0, 1);
  EXPECT_EQ(Text(B.End()), "PcieRoot(0x10)/Pci(0x1c,0x4)/Pci(0x0,0x1)");
  PathBuilder C;
  C.Acpi(EISA_PNP_ID(EISA_PNP_PCI_ROOT), 0).Pci(3, 0).Raw(HARDWARE_DEVICE_PATH, HW_CONTROLLER_DP, {2, 0, 0, 0});
  EXPECT_EQ(Text(C.End()), "PciRoot(0x0)/Pci(0x3,0x0)/Ctrl(0x2)");
}

TEST_F(DevicePathLib, UnknownNodesPrintTheGenericForm) {
  PathBuilder B;
  B.Acpi(EISA_PNP_ID(0x0501), 1).Raw(0x05, 0x01, {0xAB, 0x01});
  EXPECT_EQ(Text(B.End()), "Acpi(PNP0501,0x1)/Path(5,1,AB01)");
}

TEST_F(DevicePathLib, CountsSizesAndCopiesUpToTheEndNode) {
  PathBuilder B;
  B.Acpi(EISA_PNP_ID(EISA_PNP_PCI_ROOT), 0).Pci(1, 0).Pci(0, 0);
  EFI_DEVICE_PATH_PROTOCOL *Path = B.End();
  EXPECT_EQ(QorDevicePathNodeCount(Path), 3u);
  EXPECT_EQ(QorGetDevicePathSize(Path), 12u + 6 + 6 + 4);
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(Path);
  ASSERT_NE(Copy, nullptr);
  QorRemoveLastDevicePathNode(Copy);
  EXPECT_EQ(QorDevicePathNodeCount(Copy), 2u);
  EXPECT_EQ(Text(Copy), "PciRoot(0x0)/Pci(0x1,0x0)");
  EXPECT_EQ(QorDevicePathNodeCount(Path), 3u) << "the original stays whole";
  QorRemoveLastDevicePathNode(Copy);
  QorRemoveLastDevicePathNode(Copy);
  QorRemoveLastDevicePathNode(Copy);
  EXPECT_EQ(QorDevicePathNodeCount(Copy), 0u);
  QorFreePool(Copy);
}

TEST_F(DevicePathLib, AZeroLengthNodeEndsEveryWalk) {
  PathBuilder B;
  B.Acpi(EISA_PNP_ID(EISA_PNP_PCI_ROOT), 0).Pci(1, 0);
  B.Bytes.insert(B.Bytes.end(), {0x01, 0x01, 0, 0});  // would loop forever if followed
  EFI_DEVICE_PATH_PROTOCOL *Path = B.End();
  EXPECT_EQ(QorDevicePathNodeCount(Path), 2u);
  EXPECT_EQ(Text(Path), "PciRoot(0x0)/Pci(0x1,0x0)");
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(Path);
  ASSERT_NE(Copy, nullptr);
  const uint8_t *End = reinterpret_cast<const uint8_t *>(Copy) + 18;
  EXPECT_EQ(End[0], 0x7F);
  EXPECT_EQ(End[1], 0xFF);
  EXPECT_EQ(End[2], 4);
  QorFreePool(Copy);
}
