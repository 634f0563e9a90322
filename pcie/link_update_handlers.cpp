// The link-update handlers: each replaces the record's link fields (and for
// some its slot) with those of another function on the path to the root port.
#include "pcie/pcie_device_info.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT16 kSwitchPortVendorId = 0x1000;
constexpr UINT16 kSwitchPortDeviceId = 0xC030;

EFI_PCI_IO_PROTOCOL *PciIoOf(EFI_HANDLE Handle, EFI_STATUS *Status = nullptr) {
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  EFI_STATUS Result = gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo);
  if (Status != nullptr) *Status = Result;
  return EFI_ERROR(Result) ? nullptr : PciIo;
}

UINT16 Read16(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
  UINT16 Value = 0xFFFF;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Offset, 1, &Value);
  return Value;
}

UINT8 Read8(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
  UINT8 Value = 0xFF;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Offset, 1, &Value);
  return Value;
}

// The root-port handlers share everything but what they do with the width.
EFI_STATUS UpdateFromRootPortLevel(PCIE_DEVICE_INFO *Record, EFI_HANDLE *Found) {
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  EFI_STATUS Status = QorLocateRootPortLevel(Record->DevicePath, Found, &PciIo, FALSE);
  if (EFI_ERROR(Status)) return Status;
  QorReadLinkFields(PciIo, Record);
  return EFI_SUCCESS;
}

VOID LogLinkUpdate(CONST CHAR8 *Handler, UINT32 FirstLine, CONST PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_ERROR, "%a %d LinkWidth = 0x%x,LinkSpeed = 0x%x,slot = 0x%x\n", Handler, FirstLine,
                Record->LinkWidth, Record->LinkSpeed, Record->Slot);
  QorDebugPrint(DEBUG_ERROR, "%a %d PCIeGen = 0x%x,CardBandWidth = 0x%x,slot = 0x%x\n", Handler, FirstLine + 2,
                Record->PCIeGen, Record->CardBandWidth, Record->Slot);
}

}  // namespace

EFI_STATUS BridgeLinkWidthUpdate(PCIE_DEVICE_INFO *Record) {
  EFI_HANDLE Current = Record->Handle;
  EFI_HANDLE Parent = nullptr;
  while (!EFI_ERROR(QorGetParentHandle(Current, &Parent)) && Parent != nullptr) {
    EFI_PCI_IO_PROTOCOL *PciIo = PciIoOf(Parent);
    if (PciIo != nullptr && QorIsBridge(PciIo)) {
      PCIE_DEVICE_INFO Bridge = {};
      QorReadLinkFields(PciIo, &Bridge);
      if (Bridge.LinkWidth != 0) Record->LinkWidth = Bridge.LinkWidth;
      break;
    }
    Current = Parent;
  }
  return EFI_SUCCESS;
}

EFI_STATUS RootPortLinkUpdate(PCIE_DEVICE_INFO *Record) {
  EFI_HANDLE Found = nullptr;
  return UpdateFromRootPortLevel(Record, &Found);
}

EFI_STATUS RootPortLinkUpdateX8(PCIE_DEVICE_INFO *Record) {
  EFI_HANDLE Found = nullptr;
  EFI_STATUS Status = UpdateFromRootPortLevel(Record, &Found);
  if (EFI_ERROR(Status)) return Status;
  // This card's slot is wired x8 whatever the port reports.
  Record->CardBandWidth = 8;
  return EFI_SUCCESS;
}

EFI_STATUS RootPortGpuUpdate(PCIE_DEVICE_INFO *Record) {
  EFI_HANDLE Found = nullptr;
  EFI_STATUS Status = UpdateFromRootPortLevel(Record, &Found);
  if (EFI_ERROR(Status)) return Status;
  Record->Slot = QorGetSlotByHandle(Found);
  LogLinkUpdate("RootPortGpuUpdate", 275, Record);
  return EFI_SUCCESS;
}

EFI_STATUS BIV150GpuUpdate(PCIE_DEVICE_INFO *Record) {
  EFI_HANDLE Current = Record->Handle;
  for (;;) {
    EFI_HANDLE Parent = nullptr;
    if (EFI_ERROR(QorGetParentHandle(Current, &Parent)) || Parent == nullptr) return EFI_NOT_FOUND;
    EFI_PCI_IO_PROTOCOL *PciIo = PciIoOf(Parent);
    if (PciIo != nullptr && QorIsBridge(PciIo)) {
      UINT8 BaseClass = Read8(PciIo, PCI_BASE_CLASS_OFFSET);
      UINT8 Cap = QorFindPcieCapability(PciIo);
      UINT16 Capabilities = Cap != 0 ? Read16(PciIo, Cap + PCIE_CAPABILITIES_OFFSET) : 0;
      if (BaseClass == 0x06 && ((Capabilities >> 4) & 0xF) == PCIE_PORT_TYPE_UPSTREAM) {
        QorReadLinkFields(PciIo, Record);
        Record->Slot = QorGetSlotByHandle(Parent);
        LogLinkUpdate("BIV150GpuUpdate", 336, Record);
        return EFI_SUCCESS;
      }
    }
    Current = Parent;
  }
}

EFI_STATUS SwitchOrRootUpdateBroadcom(PCIE_DEVICE_INFO *Record) {
  static CONST CHAR8 kName[] = "SwitchOrRootUpdateBroadcom";
  QorDebugPrint(DEBUG_INFO, "%a Start... \n", kName);
  EFI_HANDLE Current = Record->Handle;
  for (;;) {
    EFI_HANDLE Parent = nullptr;
    EFI_STATUS Status = QorGetParentHandle(Current, &Parent);
    if (EFI_ERROR(Status)) {
      QorDebugPrint(DEBUG_ERROR, "Get ParentHandle failed: %r\n", Status);
      RootPortGpuUpdate(Record);
      QorDebugPrint(DEBUG_INFO, "%a End...\n", kName);
      return EFI_SUCCESS;
    }
    if (Parent == nullptr) {
      RootPortGpuUpdate(Record);
      QorDebugPrint(DEBUG_INFO, "%a End...\n", kName);
      return EFI_SUCCESS;
    }
    EFI_PCI_IO_PROTOCOL *PciIo = PciIoOf(Parent, &Status);
    if (PciIo == nullptr) {
      QorDebugPrint(DEBUG_ERROR, "Get PciIo Protocol failed: %r   - - ChildHandle = ParentHandle\n", Status);
      Current = Parent;
      continue;
    }
    if (QorIsBridge(PciIo) && Read16(PciIo, PCI_VENDOR_ID_OFFSET) == kSwitchPortVendorId &&
        Read16(PciIo, PCI_DEVICE_ID_OFFSET) == kSwitchPortDeviceId) {
      break;  // Current is the function right below the switch port
    }
    Current = Parent;
  }
  QorDebugPrint(DEBUG_INFO, "Find the vendor id for switch GPU, then get slot by Child handle \n");
  Record->Slot = QorGetSlotByHandle(Current);
  QorDebugPrint(DEBUG_INFO, "pPcieInfo->Slot == %d \n", Record->Slot);
  EFI_STATUS Status = EFI_SUCCESS;
  EFI_PCI_IO_PROTOCOL *Child = PciIoOf(Current, &Status);
  if (Child == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "ChildHandle ChildPciIo Protocol failed: %r\n", Status);
    return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;
  }
  QorReadLinkFields(Child, Record);
  QorDebugPrint(DEBUG_ERROR, "pPcieInfo->LinkWidth = %d\n", Record->LinkWidth);
  QorDebugPrint(DEBUG_ERROR, "pPcieInfo->LinkSpeed = %d\n", Record->LinkSpeed);
  QorDebugPrint(DEBUG_ERROR, "pPcieInfo->PCIeGen = %d\n", Record->PCIeGen);
  QorDebugPrint(DEBUG_ERROR, "pPcieInfo->CardBandWidth = %d\n", Record->CardBandWidth);
  QorDebugPrint(DEBUG_INFO, "%a End...\n", kName);
  return EFI_SUCCESS;
}
