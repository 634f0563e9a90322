// The emulator's SMBIOS protocol and PCI root bridges behave as the UEFI and
// PI specifications say, so the driver meets the semantics of real firmware.
#include <gtest/gtest.h>

#include <cstring>

#include "emulator/board.h"
#include "emulator/pci/pci_bus.h"
#include "emulator/pci/pci_root_bridge_io.h"
#include "emulator/smbios_protocol.h"
#include "emulator/smbios_table.h"

namespace {

using qor::emu::SmbiosRecordBuilder;

qor::emu::SmbiosDef ThreeRecords() {
  qor::emu::SmbiosDef Def;
  SmbiosRecordBuilder Cache(7, 0x1B), Cpu(4, 0x32), Dimm(17, 0x28);
  Cpu.SetString(0x04, "CPU0");
  Def.Records = {Cache.Build(0x10), Cpu.Build(0x11), Dimm.Build(0x12)};
  return Def;
}

TEST(EmulatedSmbios, GetNextWalksFromTheReservedHandleWithAndWithoutTypeFilter) {
  qor::emu::SmbiosStore Store(ThreeRecords());
  EFI_SMBIOS_PROTOCOL *P = Store.Protocol();
  EFI_SMBIOS_HANDLE Handle = SMBIOS_HANDLE_PI_RESERVED;
  EFI_SMBIOS_TABLE_HEADER *Record = nullptr;
  std::vector<uint16_t> Seen;
  while (P->GetNext(P, &Handle, nullptr, &Record, nullptr) == EFI_SUCCESS) Seen.push_back(Record->Handle);
  EXPECT_EQ(Seen, (std::vector<uint16_t>{0x10, 0x11, 0x12}));
  EXPECT_EQ(Handle, SMBIOS_HANDLE_PI_RESERVED);  // reset at the end

  EFI_SMBIOS_TYPE Type = 4;
  Handle = SMBIOS_HANDLE_PI_RESERVED;
  ASSERT_EQ(P->GetNext(P, &Handle, &Type, &Record, nullptr), EFI_SUCCESS);
  EXPECT_EQ(Handle, 0x11);
  EXPECT_STREQ(reinterpret_cast<const char *>(Record) + Record->Length, "CPU0");
  EXPECT_EQ(P->GetNext(P, &Handle, &Type, &Record, nullptr), EFI_NOT_FOUND);

  Handle = 0x99;  // names no structure
  EXPECT_EQ(P->GetNext(P, &Handle, nullptr, &Record, nullptr), EFI_NOT_FOUND);
}

TEST(EmulatedSmbios, AddUpdateStringAndRemoveChangeTheServedTable) {
  qor::emu::SmbiosStore Store(ThreeRecords());
  EFI_SMBIOS_PROTOCOL *P = Store.Protocol();
  SmbiosRecordBuilder Extra(17, 0x28);
  Extra.SetString(0x10, "DIMM_B1");
  std::vector<uint8_t> Bytes = Extra.Build(0);
  EFI_SMBIOS_HANDLE Handle = SMBIOS_HANDLE_PI_RESERVED;
  ASSERT_EQ(P->Add(P, nullptr, &Handle, reinterpret_cast<EFI_SMBIOS_TABLE_HEADER *>(Bytes.data())), EFI_SUCCESS);
  EXPECT_EQ(Handle, 0);  // the lowest free handle
  EFI_SMBIOS_HANDLE Taken = 0x11;
  EXPECT_EQ(P->Add(P, nullptr, &Taken, reinterpret_cast<EFI_SMBIOS_TABLE_HEADER *>(Bytes.data())),
            EFI_ALREADY_STARTED);

  UINTN Number = 1;
  char Longer[] = "CPU0_DIMM_B1";
  ASSERT_EQ(P->UpdateString(P, &Handle, &Number, Longer), EFI_SUCCESS);
  Number = 2;
  EXPECT_EQ(P->UpdateString(P, &Handle, &Number, Longer), EFI_NOT_FOUND);
  ASSERT_EQ(P->Remove(P, 0x10), EFI_SUCCESS);
  EXPECT_EQ(P->Remove(P, 0x10), EFI_INVALID_PARAMETER);

  auto Records = Store.Records();
  ASSERT_EQ(Records.size(), 3u);
  EXPECT_EQ(Records[2][2], 0);
  EXPECT_STREQ(reinterpret_cast<const char *>(Records[2].data()) + 0x28, "CPU0_DIMM_B1");
}

TEST(EmulatedSmbios, RawTablesSplitAtTheEndStructureAndRejectTruncation) {
  auto Def = ThreeRecords();
  std::vector<uint8_t> Table = qor::emu::AssembleSmbiosTable(Def.Records);
  EXPECT_EQ(qor::emu::SplitSmbiosTable(Table), Def.Records);
  Table.resize(Def.Records[0].size() + 3);  // the second structure is cut short
  EXPECT_THROW(qor::emu::SplitSmbiosTable(Table), std::invalid_argument);
}

class EmulatedRootBridge : public ::testing::Test {
 protected:
  EmulatedRootBridge() {
    std::vector<uint8_t> Config(16, 0);
    Config[0] = 0x86, Config[1] = 0x80, Config[2] = 0x25, Config[3] = 0x0B;
    Model.AddFunction({0, 0x20, 1, 0}, Config);
  }
  qor::emu::PciBus Model;
};

TEST_F(EmulatedRootBridge, ReadsItsBusesAndRejectsOthers) {
  qor::emu::PciRootBridgeDef Def;
  Def.BusRanges = {{0x10, 0x2F}};
  qor::emu::PciRootBridgeIo Bridge(Def, Model);
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL *P = Bridge.Protocol();
  UINT32 Ids = 0;
  ASSERT_EQ(P->Pci.Read(P, EfiPciWidthUint32, EFI_PCI_ADDRESS(0x20, 1, 0, 0), 1, &Ids), EFI_SUCCESS);
  EXPECT_EQ(Ids, 0x0B258086u);
  UINT16 Absent = 0;
  ASSERT_EQ(P->Pci.Read(P, EfiPciWidthUint16, EFI_PCI_ADDRESS(0x21, 0, 0, 0), 1, &Absent), EFI_SUCCESS);
  EXPECT_EQ(Absent, 0xFFFF);
  UINT16 Outside = 0x1234;
  EXPECT_EQ(P->Pci.Read(P, EfiPciWidthUint16, EFI_PCI_ADDRESS(0x30, 1, 0, 0), 1, &Outside), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Outside, 0x1234);
  UINT16 Words[2] = {};
  ASSERT_EQ(P->Pci.Read(P, EfiPciWidthUint16, EFI_PCI_ADDRESS(0x20, 1, 0, 0), 2, Words), EFI_SUCCESS);
  EXPECT_EQ(Words[1], 0x0B25);
}

TEST_F(EmulatedRootBridge, ConfigurationDescribesBusRangesOrIsUnsupported) {
  qor::emu::PciRootBridgeDef Def;
  Def.BusRanges = {{0, 0x7F}, {0x90, 0x9F}};
  qor::emu::PciRootBridgeIo Bridge(Def, Model);
  VOID *Resources = nullptr;
  ASSERT_EQ(Bridge.Protocol()->Configuration(Bridge.Protocol(), &Resources), EFI_SUCCESS);
  auto *Descriptor = static_cast<const EFI_ACPI_ADDRESS_SPACE_DESCRIPTOR *>(Resources);
  EXPECT_EQ(Descriptor[0].Desc, 0x8A);
  // Packed fields are copied out before comparing.
  EXPECT_EQ(static_cast<unsigned>(Descriptor[0].Len), 0x2Bu);
  EXPECT_EQ(Descriptor[0].ResType, ACPI_ADDRESS_SPACE_TYPE_BUS);
  EXPECT_EQ(static_cast<uint64_t>(Descriptor[1].AddrRangeMin), 0x90u);
  EXPECT_EQ(static_cast<uint64_t>(Descriptor[1].AddrRangeMax), 0x9Fu);
  EXPECT_EQ(reinterpret_cast<const uint8_t *>(&Descriptor[2])[0], 0x79);

  qor::emu::PciRootBridgeDef Silent;
  Silent.ConfigurationUnsupported = true;
  qor::emu::PciRootBridgeIo Unsupported(Silent, Model);
  EXPECT_EQ(Unsupported.Protocol()->Configuration(Unsupported.Protocol(), &Resources), EFI_UNSUPPORTED);
  UINT16 Vendor = 0;
  ASSERT_EQ(Unsupported.Protocol()->Pci.Read(Unsupported.Protocol(), EfiPciWidthUint16,
                                             EFI_PCI_ADDRESS(0x20, 1, 0, 0), 1, &Vendor),
            EFI_SUCCESS);
  EXPECT_EQ(Vendor, 0x8086);
}

}  // namespace
