// NVMe drives hidden behind a VMD: listed from the VROC device info
// instances, their link fields read through the VMD's configuration aperture.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vroc.h"

VOID QorFinishNvmeRecord(PCIE_DEVICE_INFO *Record);

namespace {

constexpr UINT64 kBytesPerGb = 1000000000ULL;

template <typename T>
T Field(CONST UINT8 *Info, UINTN Offset) {
  T Value;
  QorCopyMem(&Value, Info + Offset, sizeof(T));
  return Value;
}

// Up to Size characters: a text that fills the field has no terminator of
// its own, the trim that follows writes it (at Out[Size] when nothing is
// trimmed, as for the Identify fields).
VOID CopyWide(CHAR8 *Out, UINTN Size, CONST CHAR16 *Text) {
  UINTN I = 0;
  for (; Text != nullptr && I < Size && Text[I] != 0; I++) Out[I] = (CHAR8)Text[I];
  if (I < Size) Out[I] = 0;
}

BOOLEAN IsVmd(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT16 VendorId = 0, DeviceId = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 1, &VendorId);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_DEVICE_ID_OFFSET, 1, &DeviceId);
  return VendorId == 0x8086 && DeviceId >= 0x28C0 && DeviceId <= 0x28CF;
}

}  // namespace

EFI_STATUS QorFillLinkStatusForVmdHelper(CONST UINT8 *Info, PCIE_DEVICE_INFO *Record) {
  static CONST CHAR8 kName[] = "QorFillLinkStatusForVmdHelper";
  if (Info == nullptr || Record == nullptr) return EFI_INVALID_PARAMETER;
  EFI_HANDLE Drive = Field<EFI_HANDLE>(Info, QOR_VROC_DRIVE_HANDLE);
  if (Drive == nullptr) return EFI_INVALID_PARAMETER;
  EFI_DEVICE_PATH_PROTOCOL *DrivePath = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Drive, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DrivePath)) ||
      DrivePath == nullptr) {
    QorDebugPrint(DEBUG_INFO, "[%a] SlotNum:%u, fail to get VMD DevicePath\n", kName, Record->Slot);
    return EFI_NOT_FOUND;
  }
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(DrivePath);
  if (Copy == nullptr) return EFI_OUT_OF_RESOURCES;
  QorDebugPrint(DEBUG_INFO, "[%a] SlotNum:%u, ", kName, Record->Slot);
  CHAR16 *Text = QorConvertDevicePathToText(Copy, FALSE, FALSE);
  QorDebugPrint(DEBUG_INFO, "DevicePath: <%p> <%s>\n", Copy, Text);
  if (Text != nullptr) QorFreePool(Text);

  // The VMD is the nearest function above the drive with the VMD ids and a
  // memory BAR0.
  EFI_STATUS Status = EFI_NOT_FOUND;
  UINT16 Command = 0;
  UINT32 Bar0 = 0;
  EFI_PCI_IO_PROTOCOL *Vmd = nullptr;
  EFI_PCI_IO_PROTOCOL *VmdFound = nullptr;
  while (QorDevicePathNodeCount(Copy) > 0) {
    EFI_DEVICE_PATH_PROTOCOL *Remaining = Copy;
    EFI_HANDLE Handle = nullptr;
    Status = gBS->LocateDevicePath((EFI_GUID *)&gEfiPciIoProtocolGuid, &Remaining, &Handle);
    if (!EFI_ERROR(Status)) Status = gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&Vmd);
    if (!EFI_ERROR(Status) && Vmd != nullptr && IsVmd(Vmd)) {
      Vmd->Pci.Read(Vmd, EfiPciIoWidthUint16, PCI_COMMAND_OFFSET, 1, &Command);
      Vmd->Pci.Read(Vmd, EfiPciIoWidthUint32, 0x10, 1, &Bar0);
      if ((Bar0 & 1) == 0) {
        VmdFound = Vmd;
        break;
      }
    }
    QorRemoveLastDevicePathNode(Copy);
  }
  QorFreePool(Copy);
  if (VmdFound == nullptr) return Status;
  UINT64 VmdCfgBar = Bar0 & ~0xFULL;
  if (((Bar0 >> 1) & 3) == 2) {
    UINT32 Upper = 0;
    VmdFound->Pci.Read(VmdFound, EfiPciIoWidthUint32, 0x14, 1, &Upper);
    VmdCfgBar |= (UINT64)Upper << 32;
  }
  QorDebugPrint(DEBUG_INFO, "[%a]   VmdCfgBar:0x%llx, ", kName, VmdCfgBar);
  if (VmdCfgBar == 0 || (Command & 0x2) == 0) return Status;

  // Bus relative to the root port, device and function, as the VMD maps
  // its hidden functions; the Segment term is kept as built.
  UINT64 DeviceIndex = Record->Dev % 32;
  if (Record->Segment != 0) DeviceIndex = ((Record->Segment & 0xFFFF) << 17) | (Record->Dev % 32);
  UINT64 Base = VmdCfgBar + (((Record->Bus - Record->CPUBus) << 20) & 0x0FF00000ULL) +
                (DeviceIndex * 8 + (Record->Func % 8)) * 4096;
  if (QorMmioRead16((UINTN)Base + PCI_VENDOR_ID_OFFSET) == 0xFFFF) {
    QorDebugPrint(DEBUG_INFO, "PCIe device is not presents.\n");
    return EFI_NOT_FOUND;
  }
  if ((QorMmioRead16((UINTN)Base + PCI_STATUS_OFFSET) & 0x10) == 0) {
    QorDebugPrint(DEBUG_INFO, "Do not support PCIe capbility list.\n");
    return EFI_NOT_FOUND;
  }
  BOOLEAN Visited[256] = {};
  UINT8 Pointer = QorMmioRead8((UINTN)Base + PCI_CAPABILITY_POINTER_OFFSET) & 0xFC;
  UINT8 Cap = 0;
  while (Pointer != 0 && !Visited[Pointer]) {
    Visited[Pointer] = TRUE;
    UINT8 Id = QorMmioRead8((UINTN)Base + Pointer);
    if (Id == 0 || Id == 0xFF) break;
    if (Id == PCI_CAPABILITY_ID_PCI_EXPRESS) {
      Cap = Pointer;
      break;
    }
    Pointer = QorMmioRead8((UINTN)Base + Pointer + 1) & 0xFC;
  }
  if (Cap == 0) {
    QorDebugPrint(DEBUG_INFO, "Do not support PCIe Cap.\n");
    return EFI_NOT_FOUND;
  }
  UINT32 LinkCapabilities = QorMmioRead32((UINTN)Base + Cap + PCIE_LINK_CAPABILITIES_OFFSET);
  UINT16 LinkStatus = QorMmioRead16((UINTN)Base + Cap + PCIE_LINK_STATUS_OFFSET);
  Record->LinkWidth = (LinkStatus >> 4) & 0x3F;
  Record->LinkSpeed = LinkStatus & 0xF;
  Record->CardBandWidth = (LinkCapabilities >> 4) & 0x3F;
  Record->PCIeGen = LinkCapabilities & 0xF;
  Record->MaxSpeed = QorMaxSpeedFromGen(Record->PCIeGen);
  QorDebugPrint(DEBUG_INFO, "Update successfully.\n");
  return Status;
}

EFI_STATUS QorGetNvmePcieInfoBehindVmd(UINT64 *Count, PCIE_DEVICE_INFO *FreeRecord) {
  static CONST CHAR8 kName[] = "QorGetNvmePcieInfoBehindVmd";
  if (Count == nullptr || FreeRecord == nullptr) return EFI_INVALID_PARAMETER;
  UINTN HandleCount = 0;
  EFI_HANDLE *Handles = nullptr;
  EFI_STATUS Status = gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gQorVrocDeviceInfoProtocolGuid, nullptr,
                                              &HandleCount, &Handles);
  if (EFI_ERROR(Status)) return Status;
  UINT64 Kept = 0;
  PCIE_DEVICE_INFO *Record = FreeRecord;
  for (UINTN I = 0; I < HandleCount; I++) {
    // The record array ends at PCIE_DEVICE_MAX entries.
    if (*Count + Kept >= PCIE_DEVICE_MAX) break;
    UINT8 *Info = nullptr;
    Status = gBS->HandleProtocol(Handles[I], (EFI_GUID *)&gQorVrocDeviceInfoProtocolGuid, (VOID **)&Info);
    if (EFI_ERROR(Status) || Info == nullptr) {
      QorDebugPrint(DEBUG_INFO, "[%a] Failed to handle VROC Device Info Protocol, %r, handle: %p\n", kName, Status,
                    Handles[I]);
      continue;
    }
    if (Info[QOR_VROC_BASE_CLASS] != 1 || Info[QOR_VROC_SUB_CLASS] != 8) continue;
    QorZeroMem(Record, sizeof(*Record));
    Record->VendorID = Field<UINT16>(Info, QOR_VROC_VENDOR_ID);
    Record->DeviceID = Field<UINT16>(Info, QOR_VROC_DEVICE_ID);
    Record->SubVendorID = Field<UINT16>(Info, QOR_VROC_SUBSYSTEM_VENDOR);
    Record->SubDeviceID = Field<UINT16>(Info, QOR_VROC_SUBSYSTEM_ID);
    Record->ProgIF = Info[QOR_VROC_PROG_IF];
    Record->ClassCode = Info[QOR_VROC_BASE_CLASS];
    Record->SubClassCode = Info[QOR_VROC_SUB_CLASS];
    Record->Slot = Field<UINT32>(Info, QOR_VROC_SLOT);
    Record->MezzSlot = 255;
    Record->CPU = Info[QOR_VROC_CPU_SOCKET];
    Record->CPUBus = Info[QOR_VROC_ROOT_PORT_BUS];
    Record->CPUDev = Info[QOR_VROC_ROOT_PORT_DEVICE];
    Record->CPUFunc = Info[QOR_VROC_ROOT_PORT_FUNCTION];
    Record->Bus = Field<UINT64>(Info, QOR_VROC_BUS);
    Record->Dev = Field<UINT64>(Info, QOR_VROC_DEVICE);
    Record->Func = Field<UINT64>(Info, QOR_VROC_FUNCTION);
    Record->Segment = Field<UINT64>(Info, QOR_VROC_SEGMENT);
    CHAR8 Revision[QOR_VROC_FIRMWARE_REVISION_SIZE + 1];
    QorCopyMem(Revision, Info + QOR_VROC_FIRMWARE_REVISION, QOR_VROC_FIRMWARE_REVISION_SIZE);
    Revision[QOR_VROC_FIRMWARE_REVISION_SIZE] = 0;
    QorAsciiStrCopy(Record->FwVersion, sizeof(Record->FwVersion), Revision);
    Record->BehindVMD = TRUE;
    Record->VMDRaidMember = Info[QOR_VROC_RAID_MEMBER];
    Record->Capacity = (UINT64)Field<UINT32>(Info, QOR_VROC_BLOCK_SIZE) * Field<UINT64>(Info, QOR_VROC_BLOCK_COUNT);
    CopyWide(Record->Model, sizeof(Record->Model), Field<CONST CHAR16 *>(Info, QOR_VROC_MODEL));
    CopyWide(Record->SerialNumber, sizeof(Record->SerialNumber), Field<CONST CHAR16 *>(Info, QOR_VROC_SERIAL_NUMBER));
    QorFinishNvmeRecord(Record);
    AsciiSPrint(Record->CapacityText, sizeof(Record->CapacityText), "%u GB", (UINT32)(Record->Capacity / kBytesPerGb));
    QorDebugPrint(DEBUG_INFO, "[%a] Update for slotnum[%u] when VMD enabled..\n", kName, Record->Slot);
    if (EFI_ERROR(QorFillLinkStatusForVmdHelper(Info, Record))) continue;
    Record++;
    Kept++;
  }
  *Count += Kept;
  return EFI_SUCCESS;
}
