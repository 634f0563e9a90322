// Lookups the device walk and the link updates share: the PCI Express
// capability, link fields, the parent handle, slot numbers, the root port
// above a device and the socket it belongs to.
#include "pcie/pcie_device_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pcd_lib.h"
#include "platform/system_information.h"
#include "platform/uefi_lib.h"

namespace {

// A valid list holds at most one capability per dword between 0x40 and
// 0xFF; a longer walk can only be a loop.
constexpr UINT32 kMaxCapabilities = (0x100 - 0x40) / 4;
constexpr UINT8 kNoLocation = 0xFF;
constexpr UINT64 kRootPortLevel = 3;

EFI_PCI_IO_PROTOCOL *PciIoOf(EFI_HANDLE Handle) {
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (Handle == nullptr) return nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo))) return nullptr;
  return PciIo;
}

UINT8 Read8(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
  UINT8 Value = 0xFF;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Offset, 1, &Value);
  return Value;
}

UINT16 Read16(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
  UINT16 Value = 0xFFFF;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Offset, 1, &Value);
  return Value;
}

UINT32 Read32(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
  UINT32 Value = 0xFFFFFFFF;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset, 1, &Value);
  return Value;
}

// Slot Capabilities bits 26:19 of a bridge that implements a slot, or
// QOR_SLOT_NONE.
UINT32 BridgeSlot(EFI_PCI_IO_PROTOCOL *PciIo) {
  if (PciIo == nullptr || !QorIsBridge(PciIo)) return QOR_SLOT_NONE;
  UINT8 Cap = QorFindPcieCapability(PciIo);
  if (Cap == 0) return QOR_SLOT_NONE;
  if ((Read16(PciIo, Cap + PCIE_CAPABILITIES_OFFSET) & PCIE_SLOT_IMPLEMENTED) == 0) return QOR_SLOT_NONE;
  return (Read32(PciIo, Cap + PCIE_SLOT_CAPABILITIES_OFFSET) >> 19) & 0xFF;
}

}  // namespace

BOOLEAN QorPcieIdsMatch(CONST PCIE_DEVICE_IDS *Row, CONST PCIE_DEVICE_INFO *Record) {
  return Row->VendorID == Record->VendorID && Row->DeviceID == Record->DeviceID &&
         (Row->SubVendorID == PCIE_ID_ANY || Row->SubVendorID == Record->SubVendorID) &&
         (Row->SubDeviceID == PCIE_ID_ANY || Row->SubDeviceID == Record->SubDeviceID);
}

BOOLEAN QorPcieIdsEqual(CONST PCIE_DEVICE_IDS *Row, CONST PCIE_DEVICE_INFO *Record) {
  return Row->VendorID == Record->VendorID && Row->DeviceID == Record->DeviceID &&
         Row->SubVendorID == Record->SubVendorID && Row->SubDeviceID == Record->SubDeviceID;
}

UINT8 QorFindPcieCapability(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT8 Offset = Read8(PciIo, PCI_CAPABILITY_POINTER_OFFSET);
  for (UINT32 Visited = 0; Visited < kMaxCapabilities; Visited++) {
    if (Offset < 0x40 || (Offset & 3) != 0) return 0;
    UINT16 Header = Read16(PciIo, Offset);
    if ((Header & 0xFF) == PCI_CAPABILITY_ID_PCI_EXPRESS) return Offset;
    Offset = (UINT8)(Header >> 8);
  }
  return 0;
}

BOOLEAN QorIsBridge(EFI_PCI_IO_PROTOCOL *PciIo) { return (Read8(PciIo, PCI_HEADER_TYPE_OFFSET) & 0x7F) != 0; }

VOID QorReadLinkFields(EFI_PCI_IO_PROTOCOL *PciIo, PCIE_DEVICE_INFO *Record) {
  UINT8 Cap = QorFindPcieCapability(PciIo);
  if (Cap == 0) return;
  UINT16 LinkStatus = Read16(PciIo, Cap + PCIE_LINK_STATUS_OFFSET);
  UINT32 LinkCapabilities = Read32(PciIo, Cap + PCIE_LINK_CAPABILITIES_OFFSET);
  Record->LinkWidth = (LinkStatus >> 4) & 0x3F;
  Record->LinkSpeed = LinkStatus & 0xF;
  Record->CardBandWidth = (LinkCapabilities >> 4) & 0x3F;
  Record->PCIeGen = LinkCapabilities & 0xF;
}

EFI_STATUS QorGetParentHandle(EFI_HANDLE Handle, EFI_HANDLE *Parent) {
  *Parent = nullptr;
  EFI_DEVICE_PATH_PROTOCOL *DevicePath = nullptr;
  EFI_STATUS Status = gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DevicePath);
  if (EFI_ERROR(Status)) return Status;
  if (DevicePath == nullptr || QorDevicePathNodeCount(DevicePath) == 0) return EFI_NOT_FOUND;
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(DevicePath);
  if (Copy == nullptr) return EFI_OUT_OF_RESOURCES;
  QorRemoveLastDevicePathNode(Copy);
  EFI_DEVICE_PATH_PROTOCOL *Remaining = Copy;
  Status = gBS->LocateDevicePath((EFI_GUID *)&gEfiDevicePathProtocolGuid, &Remaining, Parent);
  QorFreePool(Copy);
  return Status;
}

EFI_STATUS QorLocateRootPortLevel(EFI_DEVICE_PATH_PROTOCOL *DevicePath, EFI_HANDLE *Handle,
                                  EFI_PCI_IO_PROTOCOL **PciIo, BOOLEAN Quiet) {
  *Handle = nullptr;
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(DevicePath);
  if (Copy == nullptr) {
    if (!Quiet) QorDebugPrint(DEBUG_ERROR, "Duplicate device path failed!\n");
    return EFI_ABORTED;
  }
  do {
    QorRemoveLastDevicePathNode(Copy);
  } while (QorDevicePathNodeCount(Copy) > kRootPortLevel);
  EFI_DEVICE_PATH_PROTOCOL *Remaining = Copy;
  EFI_STATUS Status = gBS->LocateDevicePath((EFI_GUID *)&gEfiDevicePathProtocolGuid, &Remaining, Handle);
  QorFreePool(Copy);
  if (EFI_ERROR(Status)) {
    if (!Quiet) QorDebugPrint(DEBUG_ERROR, "LocateDevicePath failed: %r\n", Status);
    return Status;
  }
  if (PciIo == nullptr) return EFI_SUCCESS;
  Status = gBS->HandleProtocol(*Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)PciIo);
  if (EFI_ERROR(Status)) {
    if (!Quiet) QorDebugPrint(DEBUG_ERROR, "Handle PciIo Protocol failed: %r\n", Status);
    return Status;
  }
  return EFI_SUCCESS;
}

UINT32 QorGetSlotByHandle(EFI_HANDLE Handle) {
  if (Handle == nullptr) return QOR_SLOT_NONE;
  // Every parent's path is strictly shorter than its child's, so the walk
  // ends at the root.
  EFI_HANDLE Parent = nullptr;
  while (!EFI_ERROR(QorGetParentHandle(Handle, &Parent)) && Parent != nullptr) {
    UINT32 Slot = BridgeSlot(PciIoOf(Parent));
    if (Slot != QOR_SLOT_NONE) return Slot;
    Handle = Parent;
  }
  return QOR_SLOT_NONE;
}

UINT32 QorGetUpstreamPortSlot(EFI_HANDLE Handle) {
  EFI_HANDLE Parent = nullptr;
  while (Handle != nullptr && !EFI_ERROR(QorGetParentHandle(Handle, &Parent)) && Parent != nullptr) {
    EFI_PCI_IO_PROTOCOL *PciIo = PciIoOf(Parent);
    if (PciIo != nullptr && QorIsBridge(PciIo) && Read8(PciIo, PCI_BASE_CLASS_OFFSET) == 0x06) {
      UINT8 Cap = QorFindPcieCapability(PciIo);
      if (Cap != 0 && ((Read16(PciIo, Cap + PCIE_CAPABILITIES_OFFSET) >> 4) & 0xF) == PCIE_PORT_TYPE_UPSTREAM) {
        return QorGetSlotByHandle(Parent);
      }
    }
    Handle = Parent;
  }
  return QOR_SLOT_NONE;
}

namespace {

// The route taken when the stack table stores no root port: the nearest
// handle above the device whose path matches a shortened path exactly.
VOID FillRootPortByParent(PCIE_DEVICE_INFO *Record) {
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(Record->DevicePath);
  if (Copy == nullptr) return;
  while (QorDevicePathNodeCount(Copy) > 0) {
    QorRemoveLastDevicePathNode(Copy);
    EFI_DEVICE_PATH_PROTOCOL *Remaining = Copy;
    EFI_HANDLE Handle = nullptr;
    if (EFI_ERROR(gBS->LocateDevicePath((EFI_GUID *)&gEfiDevicePathProtocolGuid, &Remaining, &Handle)) ||
        !QorIsDevicePathEnd(Remaining)) {
      continue;
    }
    EFI_PCI_IO_PROTOCOL *PciIo = PciIoOf(Handle);
    UINTN Segment = 0, Bus = 0, Device = 0, Function = 0;
    if (PciIo != nullptr && !EFI_ERROR(PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function)) &&
        Bus != kNoLocation && Device != kNoLocation && Function != kNoLocation) {
      Record->CPUBus = Bus;
      Record->CPUDev = Device;
      Record->CPUFunc = Function;
    }
    break;
  }
  QorFreePool(Copy);
}

}  // namespace

VOID QorFillRootPort(PCIE_DEVICE_INFO *Record) {
  CONST UINT8 *Block = (CONST UINT8 *)QorCachedSystemInformationBlock();
  if (Block != nullptr) {
    UINT32 Count = Block[QOR_SYSINFO_STACK_COUNT_OFFSET];
    if (Count > QOR_SYSINFO_STACK_MAX) Count = QOR_SYSINFO_STACK_MAX;
    for (UINT32 I = 0; I < Count; I++) {
      QOR_IIO_STACK_ENTRY Entry;
      QorCopyMem(&Entry, Block + QOR_SYSINFO_STACK_TABLE_OFFSET + I * sizeof(Entry), sizeof(Entry));
      if (Entry.Valid == 0 || Entry.Segment != Record->Segment || Record->Bus < Entry.BusBase ||
          Record->Bus > Entry.BusLimit) {
        continue;
      }
      Record->CPUBus = Entry.RootPortBus;
      Record->CPUDev = Entry.RootPortDevice;
      Record->CPUFunc = Entry.RootPortFunction;
      break;
    }
  }
  if (Record->CPUDev == kNoLocation && Record->CPUFunc == kNoLocation) FillRootPortByParent(Record);
}

UINT32 QorComputeCpuNumber(UINT64 Segment, UINT64 Bus) {
  UINT8 Mode = QorPcdGet8(QOR_PCD_TOKEN_BUS_PARTITION_MODE);
  UINT64 Divisor = QorPcdGet32(QOR_PCD_TOKEN_BUS_PARTITION_DIVISOR);
  // A divisor of 0 would divide by zero; no partition is the only sane answer.
  if (Divisor == 0) return 0;
  if (Mode == 3) return (UINT32)((Bus / (Divisor * 128) + Segment * 2 / Divisor) % 256);
  if (Mode == 15) return (UINT32)((Bus / (Divisor * 64) + Segment * 4 / Divisor) % 256);
  return 0;
}

UINT32 QorMaxSpeedFromGen(UINT32 PCIeGen) {
  static CONST UINT32 kSpeeds[] = {0, 25, 50, 80, 160, 320};
  // Codes above 5 report 80 as the shipped table does.
  return PCIeGen < sizeof(kSpeeds) / sizeof(kSpeeds[0]) ? kSpeeds[PCIeGen] : 80;
}
