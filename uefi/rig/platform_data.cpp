// The platform data blocks and the protocols that carry them, made from the
// emulated machine: the system information block (socket map, stepping,
// the IIO stack table of the real root ports, the SATA drives), the qor
// custom protocol's board description, the CPU power and system topology
// data, the IIO data and the Spi flash identification.
#include "platform/base_lib.h"
#include "platform/cpu_power.h"
#include "platform/custom_protocol.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"
#include "platform/system_information.h"
#include "platform/system_topology.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_platform_values.h"
#include "uefi/rig/serial_channel.h"

namespace {

// Sizes that cover every table of the layouts.
constexpr UINTN kSystemInformationBlockSize = 0x20000;
constexpr UINTN kCustomProtocolBlockSize = 0x8000;
constexpr UINTN kIioDataSize = 0x2000;
static_assert(QOR_SYSINFO_SATA_DRIVES_END <= kSystemInformationBlockSize, "SATA entries inside the block");
static_assert(QOR_SYSINFO_STACK_TABLE_END <= kSystemInformationBlockSize, "stack table inside the block");
static_assert(QOR_SYSINFO_GPU_TABLE_OFFSET + QOR_SYSINFO_GPU_MAX * sizeof(QOR_GPU_ENTRY) <= kSystemInformationBlockSize,
              "GPU list inside the block");

QOR_SYSTEM_INFORMATION_PROTOCOL gSystemInformation;
QOR_IIO_SYS_PROTOCOL gIioSys;
QOR_CPU_POWER_PROTOCOL gCpuPower;
QOR_CPU_POWER_BLOCK gCpuPowerBlock;
UINT8 gCpuPowerTable[QOR_CPU_POWER_TABLE_SIZE];
UINT8 gSystemTopology[QOR_TOPOLOGY_DATA_SIZE];

VOID PutText(CHAR8 *Field, UINTN FieldSize, CONST CHAR8 *Text) { QorAsciiStrCopy(Field, FieldSize, Text); }

// The machine's root ports stand for the platform's IIO root ports. Each
// sits on a root bus of its own (a PCI Express expander of the q35 machine),
// as each IIO stack of a server has its own bus range.
BOOLEAN IsRootPort(CONST QOR_RIG_PCI_FUNCTION *F) {
  return F->PortType == QOR_RIG_PCIE_PORT_TYPE_ROOT_PORT && F->HeaderType == 1;
}

// The socket a bus belongs to, by the bus partition the PCDs describe
// (mode 3, divisor 1: 128 buses per socket).
UINT32 SocketOfBus(UINT16 Segment, UINT8 Bus) { return (UINT32)(Bus / 128 + Segment * 2) % 256; }

// One stack per root port: from the port's own bus to the last bus below it.
VOID BuildStackTable(CONST QOR_RIG_MACHINE *Machine, UINT8 *Block) {
  UINTN Count = 0;
  QOR_IIO_STACK_ENTRY *Table = (QOR_IIO_STACK_ENTRY *)(Block + QOR_SYSINFO_STACK_TABLE_OFFSET);
  for (UINTN I = 0; I < Machine->PciCount && Count < QOR_SYSINFO_STACK_MAX; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (!IsRootPort(F)) continue;
    QOR_IIO_STACK_ENTRY *Entry = &Table[Count++];
    Entry->Valid = 1;
    Entry->Segment = F->Segment;
    Entry->RootPortBus = F->Bus;
    Entry->RootPortDevice = F->Device;
    Entry->RootPortFunction = F->Function;
    Entry->BusBase = F->Bus;
    Entry->BusLimit = F->SubordinateBus;
  }
  Block[QOR_SYSINFO_STACK_COUNT_OFFSET] = (UINT8)Count;
}

// The function of the given port type on a bus (a switch port), or NULL.
CONST QOR_RIG_PCI_FUNCTION *PortOnBus(CONST QOR_RIG_MACHINE *Machine, UINT16 Segment, UINT8 Bus, UINT8 PortType) {
  for (UINTN I = 0; I < Machine->PciCount; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (F->Segment == Segment && F->Bus == Bus && F->PortType == PortType && F->HeaderType == 1) return F;
  }
  return nullptr;
}

// Switch levels below a root port: each level is a switch (upstream port
// and downstream port: two device-path nodes) found below the previous one.
VOID SwitchLevels(CONST QOR_RIG_MACHINE *Machine, CONST QOR_RIG_PCI_FUNCTION *RootPort, UINT8 Levels[3]) {
  CONST QOR_RIG_PCI_FUNCTION *Above = RootPort;
  for (UINTN Level = 0; Level < 3; Level++) {
    Levels[Level] = 0;
    CONST QOR_RIG_PCI_FUNCTION *Upstream =
        Above != nullptr && Above->SecondaryBus != Above->Bus
            ? PortOnBus(Machine, Above->Segment, Above->SecondaryBus, QOR_RIG_PCIE_PORT_TYPE_SWITCH_UPSTREAM)
            : nullptr;
    if (Upstream == nullptr || Upstream->SecondaryBus == Upstream->Bus) {
      Above = nullptr;
      continue;
    }
    Levels[Level] = 0x01 | (2 << 1);
    Above = PortOnBus(Machine, Upstream->Segment, Upstream->SecondaryBus, QOR_RIG_PCIE_PORT_TYPE_SWITCH_DOWNSTREAM);
  }
}

// The IIO topology: one entry per root port, numbered within its socket
// from 1 (port 0 of a socket is its link to the PCH), ended by 0xFFFF.
VOID BuildIioTopology(CONST QOR_RIG_MACHINE *Machine, UINT8 *Block) {
  QOR_IIO_TOPOLOGY_ENTRY *Table = (QOR_IIO_TOPOLOGY_ENTRY *)(Block + QOR_SYSINFO_IIO_TOPOLOGY_OFFSET);
  UINT32 NextPort[256];
  QorZeroMem(NextPort, sizeof(NextPort));
  UINTN Count = 0;
  for (UINTN I = 0; I < Machine->PciCount && Count + 1 < QOR_SYSINFO_IIO_TOPOLOGY_MAX; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (!IsRootPort(F)) continue;
    UINT32 Socket = SocketOfBus(F->Segment, F->Bus);
    UINT32 Port = ++NextPort[Socket];
    if (Port >= QOR_IIO_PORTS_PER_SOCKET) continue;
    QOR_IIO_TOPOLOGY_ENTRY *Entry = &Table[Count++];
    Entry->PortIndex = (UINT16)(Socket * QOR_IIO_PORTS_PER_SOCKET + Port);
    Entry->Present = 1;
    Entry->Slot = F->PhysicalSlot == QOR_RIG_NO_SLOT ? 0xFF : (UINT8)F->PhysicalSlot;
    Entry->PortKind = QOR_RIG_IIO_PORT_KIND;
    Entry->Segment = (UINT8)F->Segment;
    Entry->Bus = F->Bus;
    Entry->Function = F->Function;
    Entry->Device = F->Device;
    Entry->LastBus = F->SubordinateBus;
    SwitchLevels(Machine, F, Entry->SwitchLevel);
  }
  Table[Count].PortIndex = QOR_IIO_PORT_INDEX_END;
  Block[QOR_SYSINFO_IIO_TOPOLOGY_COUNT_OFFSET] = (UINT8)(Count + 1);
}

VOID BuildSataEntries(CONST QOR_RIG_MACHINE *Machine, UINT8 *Block) {
  for (UINTN I = 0; I < Machine->SataCount; I++) {
    CONST QOR_RIG_SATA_DRIVE *Drive = &Machine->Sata[I];
    QOR_SATA_DRIVE_ENTRY *Entry =
        (QOR_SATA_DRIVE_ENTRY *)(Block + QOR_SYSINFO_SATA_DRIVES_OFFSET + I * sizeof(QOR_SATA_DRIVE_ENTRY));
    Entry->Present = 1;
    Entry->PortIndex = Drive->Port;
    PutText(Entry->Model, sizeof(Entry->Model), Drive->Model);
    PutText(Entry->FwVersion, sizeof(Entry->FwVersion), Drive->Firmware);
    // Capacity as the platform prints it: decimal gigabytes.
    AsciiSPrint(Entry->Capacity, sizeof(Entry->Capacity), "%luGB", Drive->Sectors * 512 / 1000000000ULL);
    Entry->SpeedIndex = QOR_SATA_SPEED_6G;  // the emulated AHCI ports report generation 3
    Entry->MediaType = Drive->SolidState ? QOR_SATA_MEDIA_SSD : 0;
    Entry->FormFactor = QOR_RIG_SATA_FORM_FACTOR;
    PutText(Entry->SerialNumber, sizeof(Entry->SerialNumber), Drive->Serial);
  }
}

EFI_STATUS BuildSystemInformation(CONST QOR_RIG_MACHINE *Machine) {
  UINT8 *Block = (UINT8 *)QorAllocateZeroPool(kSystemInformationBlockSize);
  if (Block == nullptr) return EFI_OUT_OF_RESOURCES;
  UINT32 BitMap = Machine->Sockets >= 32 ? 0xFFFFFFFFU : (1U << Machine->Sockets) - 1;
  QorCopyMem(Block + QOR_SYSINFO_CPU_BIT_MAP_OFFSET, &BitMap, sizeof(BitMap));
  // Stepping: the CPUID stepping id in hex.
  UnicodeSPrintAsciiFormat((CHAR16 *)(Block + QOR_SYSINFO_STEPPING_TEXT_OFFSET),
                           QOR_SYSINFO_STEPPING_TEXT_MAX_CHARS * sizeof(CHAR16), "%X",
                           Machine->CpuidSignature & 0xF);
  BuildStackTable(Machine, Block);
  BuildIioTopology(Machine, Block);
  BuildSataEntries(Machine, Block);
  gSystemInformation.DataBlock = Block;
  return EFI_SUCCESS;
}

// The board's SATA ports (one record per port of the AHCI controller) and
// its M.2 socket names.
VOID *BuildCustomProtocolBlock() {
  UINT8 *Block = (UINT8 *)QorAllocateZeroPool(kCustomProtocolBlockSize);
  if (Block == nullptr) return nullptr;
  for (UINTN I = 0; I < QOR_CUSTOM_SATA_PORT_COUNT; I++) {
    QOR_SATA_PORT_INFO *Record =
        (QOR_SATA_PORT_INFO *)(Block + QOR_CUSTOM_SATA_PORT_LIST_OFFSET + I * sizeof(QOR_SATA_PORT_INFO));
    Record->PortIndex = I < QOR_RIG_MAX_SATA ? (UINT8)I : QOR_SATA_PORT_NONE;
    if (I < QOR_RIG_MAX_SATA) AsciiSPrint(Record->SlotName, sizeof(Record->SlotName), "SATA_%u", (UINT32)I);
  }
  CHAR8 *Names = (CHAR8 *)Block + QOR_CUSTOM_M2_NAMES_OFFSET;
  PutText(Names + QOR_CUSTOM_M2_SLOT251_NAME * QOR_CUSTOM_M2_NAME_SIZE, QOR_CUSTOM_M2_NAME_SIZE,
          QOR_RIG_M2_SLOT251_NAME);
  PutText(Names + QOR_CUSTOM_M2_SLOT252_FIRST_NAME * QOR_CUSTOM_M2_NAME_SIZE, QOR_CUSTOM_M2_NAME_SIZE, "");
  PutText(Names + QOR_CUSTOM_M2_SLOT252_SECOND_NAME * QOR_CUSTOM_M2_NAME_SIZE, QOR_CUSTOM_M2_NAME_SIZE,
          QOR_RIG_M2_SLOT252_NAME);
  return Block;
}

VOID BuildCpuPower(CONST QOR_RIG_MACHINE *Machine) {
  QorZeroMem(gCpuPowerTable, sizeof(gCpuPowerTable));
  for (UINT32 S = 0; S < QOR_CPU_POWER_MAX_SOCKETS && S < Machine->Sockets; S++) {
    UINT32 Tdp = QOR_RIG_SOCKET_TDP;
    QorCopyMem(gCpuPowerTable + QOR_CPU_POWER_TDP_OFFSET + 4 * S, &Tdp, sizeof(Tdp));
  }
  gCpuPowerBlock.Header = 0;
  gCpuPowerBlock.SocketTable = (UINT64)(UINTN)gCpuPowerTable;
  gCpuPower.PowerData = &gCpuPowerBlock;
}

VOID BuildSystemTopology(CONST QOR_RIG_MACHINE *Machine) {
  QorZeroMem(gSystemTopology, sizeof(gSystemTopology));
  for (UINT32 S = 0; S < QOR_TOPOLOGY_MAX_SOCKETS && S < Machine->Sockets; S++) {
    gSystemTopology[QOR_TOPOLOGY_SOCKET_VALID_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * S] = 1;
    gSystemTopology[QOR_TOPOLOGY_SOCKET_CHOP_TYPE_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * S] = QOR_RIG_CHOP_TYPE;
  }
}

// ---- Spi protocol: the flash identification bytes.
EFI_STATUS EFIAPI SpiReadId(QOR_SPI_PROTOCOL *This, UINTN Selector, UINTN Size, VOID *Buffer) {
  static CONST UINT8 kId[4] = QOR_RIG_FLASH_ID_BYTES;
  if (Buffer == nullptr) return EFI_INVALID_PARAMETER;
  QorCopyMem(Buffer, kId, Size < sizeof(kId) ? Size : sizeof(kId));
  return EFI_SUCCESS;
}
QOR_SPI_PROTOCOL gSpi;

}  // namespace

EFI_STATUS QorRigInstallPlatformData(CONST QOR_RIG_MACHINE *Machine) {
  EFI_STATUS Status = BuildSystemInformation(Machine);
  if (EFI_ERROR(Status)) return Status;
  VOID *Custom = BuildCustomProtocolBlock();
  VOID *IioData = QorAllocateZeroPool(kIioDataSize);  // VMD off on every stack
  if (Custom == nullptr || IioData == nullptr) return EFI_OUT_OF_RESOURCES;
  gIioSys.IioData = IioData;
  BuildCpuPower(Machine);
  BuildSystemTopology(Machine);
  gSpi.ReadId = SpiReadId;

  struct {
    CONST EFI_GUID *Guid;
    VOID *Interface;
  } Installs[] = {
      {&gQorSystemInformationProtocolGuid, &gSystemInformation},
      {&gQorCustomProtocolGuid, Custom},
      {&gQorIioSysProtocolGuid, &gIioSys},
      {&gQorCpuPowerProtocolGuid, &gCpuPower},
      {&gQorSystemTopologyDataGuid, gSystemTopology},
      {&gQorSpiProtocolGuid, &gSpi},
  };
  for (auto &Install : Installs) {
    Status = QorRigInstallOnNewHandle(Install.Guid, Install.Interface);
    if (EFI_ERROR(Status)) return Status;
  }
  return EFI_SUCCESS;
}
