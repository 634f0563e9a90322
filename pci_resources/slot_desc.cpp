// Slot descriptions of a resource record: the physical slot of the card the
// function belongs to, or a code saying why there is none, from the
// function's depth in the device path, the IIO topology table and the Slot
// Capabilities of the function or of a function above it.
#include "pci_resources/pci_res_info.h"
#include "pcie/pcie_device_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pcd_lib.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT32 kNoSlot = 0xFFFF;
constexpr UINT8 kOnboardPcdToken = 6;
constexpr UINT32 kMaxCapabilities = (0x100 - 0x40) / 4;
// Slot numbers the onboard check accepts: only the two M.2 sockets.
constexpr UINT8 kM2Slots[] = {0xFB, 0xFC};

UINT64 LevelNodes(UINT8 Level) { return (Level >> 1) & 7; }

}  // namespace

CONST QOR_IIO_TOPOLOGY_ENTRY *GetIioTopologyItem(UINT64 Segment, UINT64 Bus) {
  CONST UINT8 *Block = (CONST UINT8 *)QorCachedSystemInformationBlock();
  if (Block == nullptr) return nullptr;
  UINT32 Count = Block[QOR_SYSINFO_IIO_TOPOLOGY_COUNT_OFFSET];
  CONST QOR_IIO_TOPOLOGY_ENTRY *Entries = (CONST QOR_IIO_TOPOLOGY_ENTRY *)(Block + QOR_SYSINFO_IIO_TOPOLOGY_OFFSET);
  for (UINT32 I = 0; I < Count; I++) {
    CONST QOR_IIO_TOPOLOGY_ENTRY *Entry = &Entries[I];
    if (Entry->PortIndex == QOR_IIO_PORT_INDEX_END) break;
    if (Entry->Present != 0 && Entry->Segment == Segment && Entry->Bus <= Bus && Bus <= Entry->LastBus) return Entry;
  }
  return nullptr;
}

UINT32 QorGetSlotNumber(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT8 Offset = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_CAPABILITY_POINTER_OFFSET, 1, &Offset);
  for (UINT32 Visited = 0; Visited < kMaxCapabilities; Visited++) {
    if (Offset < 0x40 || (Offset & 3) != 0) return kNoSlot;
    UINT16 Header = 0;
    PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Offset, 1, &Header);
    if ((Header & 0xFF) == PCI_CAPABILITY_ID_PCI_EXPRESS) {
      UINT32 SlotCapabilities = 0;
      PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset + PCIE_SLOT_CAPABILITIES_OFFSET, 1, &SlotCapabilities);
      return (SlotCapabilities >> 19) & 0xFF;
    }
    Offset = (UINT8)(Header >> 8);
  }
  return kNoSlot;
}

UINT32 QorReadSlot(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT32 Slot = QorGetSlotNumber(PciIo);
  return Slot >= kNoSlot ? QOR_SLOT_DESC_UNREADABLE : Slot;
}

EFI_STATUS QorTruncateDevicePathByDepth(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth) {
  QorDebugPrint(DEBUG_INFO, "QorTruncateDevicePathByDepth Expected: %d\n", (UINT32)Depth);
  UINT64 Count = QorDevicePathNodeCount(DevicePath);
  if (Count < Depth) {
    QorDebugPrint(DEBUG_INFO, "QorTruncateDevicePathByDepth expected depth bigger than pDevicePath\n");
    return EFI_INVALID_PARAMETER;
  }
  if (Count == Depth) return EFI_SUCCESS;
  QorSetDevicePathEndAt(DevicePath, Depth);
  QorDebugPrint(DEBUG_INFO, "QorTruncateDevicePathByDepth truncateed: %d\n", (UINT32)QorDevicePathNodeCount(DevicePath));
  return EFI_SUCCESS;
}

EFI_PCI_IO_PROTOCOL *QorGetPciIoByDevicePath(EFI_DEVICE_PATH_PROTOCOL *DevicePath) {
  EFI_DEVICE_PATH_PROTOCOL *Remaining = DevicePath;
  EFI_HANDLE Handle = nullptr;
  if (EFI_ERROR(gBS->LocateDevicePath((EFI_GUID *)&gEfiPciIoProtocolGuid, &Remaining, &Handle))) return nullptr;
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo))) return nullptr;
  return PciIo;
}

BOOLEAN QorIsOnboardSlot(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth, UINT64 *SlotOut) {
  UINT8 Onboard = QorPcdGet8Ex(&gQorOnboardPcdTokenSpaceGuid, kOnboardPcdToken);
  if ((Onboard & 0x06) == 0 || DevicePath == nullptr || Depth == 0) return FALSE;
  if (EFI_ERROR(QorTruncateDevicePathByDepth(DevicePath, Depth - 1))) return FALSE;
  EFI_PCI_IO_PROTOCOL *PciIo = QorGetPciIoByDevicePath(DevicePath);
  if (PciIo == nullptr) return FALSE;
  UINT32 Slot = QorReadSlot(PciIo);
  if (Slot == 0 || Slot == QOR_SLOT_DESC_UNREADABLE) return FALSE;
  for (UINT8 M2 : kM2Slots) {
    if (Slot == M2) {
      *SlotOut = Slot;
      return TRUE;
    }
  }
  return FALSE;
}

namespace {

// The slot read from the function at Depth of the path, or nothing.
BOOLEAN SlotAtDepth(EFI_DEVICE_PATH_PROTOCOL *Path, UINT64 Depth, UINT32 *Slot) {
  if (EFI_ERROR(QorTruncateDevicePathByDepth(Path, Depth))) return FALSE;
  EFI_PCI_IO_PROTOCOL *PciIo = QorGetPciIoByDevicePath(Path);
  if (PciIo == nullptr) return FALSE;
  *Slot = QorReadSlot(PciIo);
  return TRUE;
}

// A processor root port with switches below: walks the switch levels to
// find where the function sits.
VOID SwitchLevels(EFI_PCI_IO_PROTOCOL *PciIo, EFI_DEVICE_PATH_PROTOCOL *Path, UINT64 Depth, BOOLEAN IsBridge,
                  CONST QOR_IIO_TOPOLOGY_ENTRY *Entry, PCI_RES_INFO *Record) {
  UINT64 Sum = 2;
  INT32 Stopped = -1;
  BOOLEAN Dsp = FALSE;
  for (UINT32 Level = 0; Level < 3; Level++) {
    Sum += LevelNodes(Entry->SwitchLevel[Level]);
    if (Sum > Depth) {
      QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc  Devicepath match!\n");
      Stopped = (INT32)Level;
      break;
    }
    if (Sum == Depth) {
      QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc  Devicepath equal!\n");
      Dsp = TRUE;
      Stopped = (INT32)Level;
      break;
    }
    if (Level + 1 >= 3 || (Entry->SwitchLevel[Level + 1] & 1) == 0) break;
  }
  if (Stopped >= 0) {
    UINT64 Start = Sum - LevelNodes(Entry->SwitchLevel[Stopped]);
    BOOLEAN Upstream = FALSE;
    if (Start == 2) {
      Record->SlotDesc = Entry->Slot;
    } else {
      UINT32 Slot = 0;
      if (!SlotAtDepth(Path, Start, &Slot)) {
        Record->SlotDesc = Entry->Slot;
      } else {
        Upstream = TRUE;
        QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc        SlotDesc: 0x%x.\n", Slot);
        if (Slot == QOR_SLOT_DESC_UNREADABLE) Slot = Entry->Slot;
        if (Slot == 0) {
          QorDebugPrint(DEBUG_INFO,
                        "QorRasUpdateSlotDesc      shouldn't come here, slot number that read from register is 0 \n");
        }
        Record->SlotDesc = Slot;
      }
    }
    if (!IsBridge) {
      Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
    } else if (!Dsp) {
      Record->SubDevSlotDesc = QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED;
    } else {
      Record->SubDevSlotDesc = QorReadSlot(PciIo);
      if (Start == 2) {
        QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc  Is switch DSP SubDevSlotDesc: 0x%x.\n", (UINT32)Record->SubDevSlotDesc);
      } else if (Upstream) {
        QorDebugPrint(DEBUG_INFO, "QorRasUpdateSlotDesc  Is switch DSP SubDevSlotDesc: 0x%x.\n",
                      (UINT32)Record->SubDevSlotDesc);
      }
    }
  } else if (Sum < Depth) {
    UINT32 Slot = 0;
    if (!SlotAtDepth(Path, Sum, &Slot)) {
      Record->SlotDesc = Entry->Slot;
    } else {
      QorDebugPrint(DEBUG_INFO, "QorRasUpdateSlotDesc        SlotDesc: 0x%x.\n", Slot);
      if (Slot == QOR_SLOT_DESC_UNREADABLE) Slot = Entry->Slot;
      if (Slot == 0) {
        QorDebugPrint(DEBUG_INFO,
                      "QorRasUpdateSlotDesc      shouldn't come here, slot number that read from register is 0 \n");
      }
      Record->SlotDesc = Slot;
    }
    if (!IsBridge) {
      Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
    } else {
      UINT32 Own = QorReadSlot(PciIo);
      Record->SubDevSlotDesc = (Own == 0 || Own == QOR_SLOT_DESC_UNREADABLE) ? QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED : Own;
    }
  } else {
    QorDebugPrint(DEBUG_INFO, "QorRasUpdateSlotDesc  DevPathMatch is false, using root port info.\n");
    Record->SlotDesc = Entry->Slot;
    Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
    return;
  }
  if (Record->SlotDesc == 0xFF) Record->SlotDesc = QOR_SLOT_DESC_ONBOARD_SWITCH;
}

}  // namespace

VOID QorUpdateSlotDesc(EFI_HANDLE Handle, PCI_RES_INFO *Record) {
  BOOLEAN IsBridge = Record->SlotDesc == QOR_SLOT_DESC_BRIDGE_NOT_USP;
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo)) || PciIo == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc: Failed to locate Pci io of handle: 0x%x .\n", Handle);
    return;
  }
  EFI_DEVICE_PATH_PROTOCOL *HandlePath = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&HandlePath)) ||
      HandlePath == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorUpdateSlotDesc: Failed to locate Device path of handle: 0x%x .\n", Handle);
    return;
  }
  EFI_DEVICE_PATH_PROTOCOL *Path = QorDuplicateDevicePath(HandlePath);
  if (Path == nullptr) return;
  UINT64 Depth = QorDevicePathNodeCount(Path);
  CHAR16 *Text = QorConvertDevicePathToText(Path, TRUE, TRUE);
  QorDebugPrint(DEBUG_VERBOSE, "QorUpdateSlotDesc: pDevicePath: %S    DevPathDepth: %d.\n", Text, (UINT32)Depth);
  if (Text != nullptr) QorFreePool(Text);

  CONST QOR_IIO_TOPOLOGY_ENTRY *Entry = nullptr;
  if (Depth < 3) {
    if (IsBridge) {
      Record->SlotDesc = QOR_SLOT_DESC_INTERNAL_BRIDGE;
      Record->SubDevSlotDesc = QorReadSlot(PciIo);
    } else {
      Record->SlotDesc = QOR_SLOT_DESC_INTERNAL_DEVICE;
      Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
    }
  } else if ((Entry = GetIioTopologyItem(Record->Segment, Record->Bus)) == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorRasUpdateSlotDesc: Failed to GetIioTopologyItem. Should never come here! \n");
    if (IsBridge) {
      Record->SubDevSlotDesc = QorReadSlot(PciIo);
    } else {
      Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
      UINT64 Slot = 0;
      Record->SlotDesc = QorIsOnboardSlot(Path, Depth, &Slot) ? Slot : QOR_SLOT_DESC_ONBOARD_DEVICE;
    }
  } else if (Entry->PortKind == QOR_IIO_PORT_KIND_PCH) {
    if (IsBridge) {
      Record->SlotDesc = QOR_SLOT_DESC_BRIDGE_BEHIND_PCH;
      Record->SubDevSlotDesc = QorReadSlot(PciIo);
    } else {
      Record->SubDevSlotDesc = QOR_SLOT_DESC_ENDPOINT;
      Record->SlotDesc = QOR_SLOT_DESC_ONBOARD_DEVICE;
      UINT32 Slot = 0;
      if (SlotAtDepth(Path, Depth - 1, &Slot)) {
        Record->SlotDesc = (Slot == 0 || Slot == QOR_SLOT_DESC_UNREADABLE) ? QOR_SLOT_DESC_ONBOARD_DEVICE : Slot;
      }
    }
  } else if (Entry->PortKind == QOR_IIO_PORT_KIND_NO_SWITCH_WALK || (Entry->SwitchLevel[0] & 1) == 0) {
    Record->SlotDesc = Entry->Slot == 0xFF ? QOR_SLOT_DESC_ONBOARD_DEVICE : Entry->Slot;
    Record->SubDevSlotDesc = IsBridge ? QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED : QOR_SLOT_DESC_ENDPOINT;
  } else {
    SwitchLevels(PciIo, Path, Depth, IsBridge, Entry, Record);
  }
  if (Record->SubDevSlotDesc == 0 || Record->SubDevSlotDesc == QOR_SLOT_DESC_UNREADABLE) {
    Record->SubDevSlotDesc = QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED;
  }
  QorFreePool(Path);
}
