// The nic db protocol: the board's table of network cards by slot, made
// from the network functions of the emulated machine. A card is the set of
// network functions of one PCI device; its slot is the physical slot of the
// nearest port above it. MAC addresses come from the firmware's network
// driver where one is bound (the MAC node of its device path), else, for
// the 82574-family controller QEMU emulates as e1000e, from the receive
// address registers of its first memory BAR.
#include "platform/base_lib.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/nic_db.h"
#include "platform/pci_io.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/serial_channel.h"

namespace {

constexpr UINTN kMaxCards = 32;
constexpr UINTN kMaxPortsPerCard = 8;
constexpr UINT8 kNetworkClass = 0x02;

struct NIC_CARD {
  UINT32 Slot;
  UINT8 *Entry;
};
NIC_CARD gCards[kMaxCards];
UINTN gCardCount = 0;

CONST EFI_GUID kSimpleNetworkGuid = {0xA19832B9, 0xAC25, 0x11D3, {0x9A, 0x2D, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
constexpr UINT64 kAttributeMemory = 0x0002;  // EFI_PCI_IO_ATTRIBUTE_MEMORY

// Bytes of a device path before its end node.
UINTN PathBytes(CONST EFI_DEVICE_PATH_PROTOCOL *Path) {
  UINTN Size = QorGetDevicePathSize(Path);
  return Size > sizeof(EFI_DEVICE_PATH_PROTOCOL) ? Size - sizeof(EFI_DEVICE_PATH_PROTOCOL) : 0;
}

// The MAC of a network driver's child handle below the function's path.
BOOLEAN MacFromNetworkDriver(EFI_HANDLE Function, UINT8 Mac[6]) {
  EFI_DEVICE_PATH_PROTOCOL *FunctionPath = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Function, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&FunctionPath))) {
    return FALSE;
  }
  UINTN Prefix = PathBytes(FunctionPath);
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  BOOLEAN Found = FALSE;
  if (Prefix == 0 || EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&kSimpleNetworkGuid, nullptr, &Count,
                                                        &Handles))) {
    return FALSE;
  }
  for (UINTN I = 0; I < Count && !Found; I++) {
    EFI_DEVICE_PATH_PROTOCOL *Path = nullptr;
    if (EFI_ERROR(gBS->HandleProtocol(Handles[I], (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&Path))) continue;
    if (PathBytes(Path) <= Prefix || QorCompareMem(Path, FunctionPath, Prefix) != 0) continue;
    EFI_DEVICE_PATH_PROTOCOL *Node = (EFI_DEVICE_PATH_PROTOCOL *)((UINT8 *)Path + Prefix);
    if (Node->Type == MESSAGING_DEVICE_PATH && Node->SubType == MSG_MAC_ADDR_DP) {
      QorCopyMem(Mac, ((MAC_ADDR_DEVICE_PATH *)Node)->MacAddress, 6);
      Found = TRUE;
    }
  }
  gBS->FreePool(Handles);
  return Found;
}

// Receive address 0 (RAL0/RAH0) of the 82574 register map.
BOOLEAN MacFromRegisters(EFI_HANDLE Function, CONST QOR_RIG_PCI_FUNCTION *F, UINT8 Mac[6]) {
  if (F->VendorId != 0x8086 || F->DeviceId != 0x10D3) return FALSE;
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Function, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo))) return FALSE;
  UINT64 Original = 0;
  if (EFI_ERROR(PciIo->Attributes(PciIo, EfiPciIoAttributeOperationGet, 0, &Original))) return FALSE;
  PciIo->Attributes(PciIo, EfiPciIoAttributeOperationEnable, kAttributeMemory, nullptr);
  UINT32 Low = 0, High = 0;
  EFI_STATUS Status = PciIo->Mem.Read(PciIo, EfiPciIoWidthUint32, 0, 0x5400, 1, &Low);
  if (!EFI_ERROR(Status)) Status = PciIo->Mem.Read(PciIo, EfiPciIoWidthUint32, 0, 0x5404, 1, &High);
  PciIo->Attributes(PciIo, EfiPciIoAttributeOperationSet, Original, nullptr);
  if (EFI_ERROR(Status) || (Low == 0xFFFFFFFF && High == 0xFFFFFFFF)) return FALSE;
  for (int I = 0; I < 4; I++) Mac[I] = (UINT8)(Low >> (8 * I));
  Mac[4] = (UINT8)High;
  Mac[5] = (UINT8)(High >> 8);
  return TRUE;
}

VOID PutUint32(UINT8 *Entry, UINTN Offset, UINT32 Value) { QorCopyMem(Entry + Offset, &Value, sizeof(Value)); }

VOID AddCard(CONST QOR_RIG_MACHINE *Machine, CONST QOR_RIG_PCI_FUNCTION *First, UINT32 Slot) {
  CONST QOR_RIG_PCI_FUNCTION *Ports[kMaxPortsPerCard];
  UINTN PortCount = 0;
  for (UINTN I = 0; I < Machine->PciCount && PortCount < kMaxPortsPerCard; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (F->BaseClass == kNetworkClass && F->Segment == First->Segment && F->Bus == First->Bus &&
        F->Device == First->Device) {
      Ports[PortCount++] = F;
    }
  }
  UINT8 *Entry = (UINT8 *)QorAllocateZeroPool(QOR_NIC_ENTRY_SIZE(PortCount));
  if (Entry == nullptr) return;
  Entry[QOR_NIC_ENTRY_ONBOARD_OFFSET] = 0;
  PutUint32(Entry, QOR_NIC_ENTRY_PORT_COUNT_OFFSET, (UINT32)PortCount);
  for (UINTN P = 0; P < PortCount; P++) {
    CONST QOR_RIG_PCI_FUNCTION *F = Ports[P];
    UINT8 *Port = Entry + QOR_NIC_ENTRY_PORT_STRIDE * P;
    PutUint32(Port, QOR_NIC_PORT_LOCATION_OFFSET, (UINT32)F->Bus << 16 | (UINT32)F->Device << 8 | F->Function);
    AsciiSPrint((CHAR8 *)Port + QOR_NIC_PORT_DESC_OFFSET, QOR_NIC_PORT_DESC_SIZE, "Ethernet controller %04X:%04X",
                F->VendorId, F->DeviceId);
    UINT8 Mac[6] = {0, 0, 0, 0, 0, 0};
    if (!MacFromNetworkDriver(F->Handle, Mac) && !MacFromRegisters(F->Handle, F, Mac)) {
      QorRigWarn("no MAC address for network function %02x:%02x.%x", F->Bus, F->Device, F->Function);
    }
    QorCopyMem(Port + QOR_NIC_PORT_MAC_OFFSET, Mac, sizeof(Mac));
    QorRigReport("nic", "slot %u %02x:%02x.%x %02x:%02x:%02x:%02x:%02x:%02x", Slot, F->Bus, F->Device, F->Function,
                 Mac[0], Mac[1], Mac[2], Mac[3], Mac[4], Mac[5]);
  }
  gCards[gCardCount++] = {Slot, Entry};
}

VOID *EFIAPI GetNicEntry(QOR_NIC_DB_PROTOCOL *This, UINT32 Slot) {
  for (UINTN I = 0; I < gCardCount; I++) {
    if (gCards[I].Slot == Slot) return gCards[I].Entry;
  }
  return nullptr;
}

QOR_NIC_DB_PROTOCOL gNicDb;

}  // namespace

EFI_STATUS QorRigInstallNicDatabase(CONST QOR_RIG_MACHINE *Machine) {
  gCardCount = 0;
  for (UINTN I = 0; I < Machine->PciCount && gCardCount < kMaxCards; I++) {
    CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
    if (F->BaseClass != kNetworkClass || F->Function != 0) continue;
    UINT32 Slot = QorRigSlotAbove(Machine, F);
    if (Slot == QOR_RIG_NO_SLOT) continue;  // not in a slot: the table lists slots only
    AddCard(Machine, F, Slot);
  }
  gNicDb.GetNicEntry = GetNicEntry;
  return QorRigInstallOnNewHandle(&gQorNicDbProtocolGuid, &gNicDb);
}
