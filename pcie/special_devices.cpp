// Cards the walk looks out for: the BF2 DPU (a variable or the platform's
// PCDs), the Zijin device (an extra record for the switch above it) and the
// GPU list kept in the platform's data block.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pcd_lib.h"
#include "platform/system_information.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT8 kCustomerSkobiof = 1;
constexpr UINT8 kCustomerPleifostu = 17;
constexpr UINT64 kSwitchLevel = 3;
// PCD tokens that carry the BF2 card's location to the platform.
constexpr UINTN kPcdBf2Bus = 344;
constexpr UINTN kPcdBf2Device = 345;
constexpr UINTN kPcdBf2Function = 346;
constexpr UINT32 kGpuCountLimit = 32;

CONST PCIE_DEVICE_IDS kBf2Card = {0x15B3, 0xA2D6, PCIE_ID_ANY, PCIE_ID_ANY};
CONST PCIE_DEVICE_IDS kZijinDevices[] = {{0x1AF4, 0x1041, 0x1BD4, 0xF006}, {0x1AF4, 0x1041, 0x1BD4, 0xF007}};

struct GPU_ROW {
  UINT8 ClassCode;
  PCIE_DEVICE_IDS Ids;
};
// The first row is a filler no real device matches.
CONST GPU_ROW kGpuTable[] = {
    {0x07, {0x00FF, 0x00FF, 0x00FF, 0x00FF}}, {0x07, {0x1D22, 0x3688, 0x0001, 0x0001}},
    {0x07, {0x2057, 0x3686, 0x0001, 0x0001}}, {0x07, {0x1D22, 0x3684, 0x0002, 0x0001}},
    {0x0B, {0x1D94, 0x6210, 0x1D94, 0x6210}}, {0x0B, {0x1D94, 0x6211, 0x1D94, 0x6210}},
    {0x07, {0x2057, 0x3694, 0x0001, 0x0001}},
};

}  // namespace

VOID QorFindBF2Device(PCIE_DEVICE_INFO *Record, BOOLEAN *Found) {
  QorDebugPrint(DEBUG_INFO, "QorFindBF2Device Start \n");
  if (!QorPcieIdsMatch(&kBf2Card, Record)) return;
  *Found = TRUE;
  QorDebugPrint(DEBUG_ERROR, "BF2Device device detected, VendorID=%u DeviceID=%u SubVendorID=%u SubDeviceID=%u\n",
                Record->VendorID, Record->DeviceID, Record->SubVendorID, Record->SubDeviceID);
  UINT8 CustomerId = QorGetCustomerId();
  if (CustomerId == kCustomerSkobiof) {
    UINT8 Present = 1;
    EFI_STATUS Status = gRT->SetVariable((CHAR16 *)u"Bf2Present", (EFI_GUID *)&gQorSkobiofBf2VariableGuid,
                                         EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS, 1, &Present);
    if (EFI_ERROR(Status)) {
      QorDebugPrint(DEBUG_ERROR, " [SkobiofBF2] dxe bTmpBf2Present SetVariable failed: %r\n", Status);
    }
  }
  if (CustomerId == kCustomerPleifostu) {
    QorDebugPrint(DEBUG_INFO, "Pleifostu Cid , BF2Device device detected, get post of bf2.\n");
    QorPcdSet8(kPcdBf2Bus, (UINT8)Record->Bus);
    QorPcdSet8(kPcdBf2Device, (UINT8)Record->Dev);
    QorPcdSet8(kPcdBf2Function, (UINT8)Record->Func);
  }
}

VOID QorFindZijinDevice(PCIE_DEVICE_INFO *Record, BOOLEAN *Found, EFI_DEVICE_PATH_PROTOCOL **SwitchPath) {
  QorDebugPrint(DEBUG_INFO, "QorFindZijinDevice Start \n");
  if (QorGetCustomerId() != kCustomerPleifostu) return;
  if (Found == nullptr || SwitchPath == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "The input parameter of QorFindZijinDevice is null\n");
    return;
  }
  if (!QorPcieIdsEqual(&kZijinDevices[0], Record) && !QorPcieIdsEqual(&kZijinDevices[1], Record)) return;
  *Found = TRUE;
  QorDebugPrint(DEBUG_ERROR, "ZijinDevice device detected, VendorID=%u DeviceID=%u SubVendorID=%u SubDeviceID=%u\n",
                Record->VendorID, Record->DeviceID, Record->SubVendorID, Record->SubDeviceID);
  EFI_DEVICE_PATH_PROTOCOL *Copy = QorDuplicateDevicePath(Record->DevicePath);
  if (Copy == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Duplicate TmpDevPath path failed!\n");
    return;
  }
  while (QorDevicePathNodeCount(Copy) > kSwitchLevel) QorRemoveLastDevicePathNode(Copy);
  *SwitchPath = Copy;
}

EFI_STATUS FillSwitchInfo(EFI_DEVICE_PATH_PROTOCOL *SwitchPath, PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_INFO, "FillSwitchInfo entry\n");
  if (QorGetCustomerId() != kCustomerPleifostu) return EFI_UNSUPPORTED;
  if (SwitchPath == nullptr || Record == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "The input parameter of FillSwitchInfo is null\n");
    return EFI_INVALID_PARAMETER;
  }
  EFI_DEVICE_PATH_PROTOCOL *Remaining = SwitchPath;
  EFI_HANDLE Handle = nullptr;
  EFI_STATUS Status = gBS->LocateDevicePath((EFI_GUID *)&gEfiDevicePathProtocolGuid, &Remaining, &Handle);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "LocateDevicePath failed: %r\n", Status);
    return Status;
  }
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  Status = gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Handle SwitchInfo Protocol failed: %r\n", Status);
    return Status;
  }
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 1, &Record->VendorID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_DEVICE_ID_OFFSET, 1, &Record->DeviceID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_SUBSYSTEM_VENDOR_ID_OFFSET, 1, &Record->SubVendorID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_SUBSYSTEM_ID_OFFSET, 1, &Record->SubDeviceID);
  QorDebugPrint(DEBUG_INFO, "ZijinDeviceSwitch device detected, VendorID=%x DeviceID=%x SubVendorID=%x SubDeviceID=%x\n",
                Record->VendorID, Record->DeviceID, Record->SubVendorID, Record->SubDeviceID);
  if (Record->VendorID != 0x1172 || Record->DeviceID != 0x0055) {
    QorDebugPrint(DEBUG_ERROR,
                  "The device's vendor id is not 0x1172 or  the device id id not 0x0055, so is unsupport\n");
    return EFI_UNSUPPORTED;
  }
  // The switch record keeps no device path and no MaxSpeed, as the shipped
  // record does.
  QorFillRecordFromPciIo(Handle, PciIo, Record);
  return EFI_SUCCESS;
}

VOID QorCollectGPUInfo(PCIE_DEVICE_INFO *Records, UINT64 Count) {
  QorDebugPrint(DEBUG_ERROR, "%a %d  DevCount = %d \n", "QorCollectGPUInfo", 1504, (UINT32)Count);
  UINT8 *Block = (UINT8 *)QorCachedSystemInformationBlock();
  if (Block == nullptr) return;
  QOR_GPU_ENTRY *List = (QOR_GPU_ENTRY *)(Block + QOR_SYSINFO_GPU_TABLE_OFFSET);
  UINT32 GpuCount = 0;
  // A table match is remembered until the next GPU is stored, as the
  // shipped walk does.
  BOOLEAN TableMatch = FALSE;
  for (UINT64 I = 0; I < Count; I++) {
    PCIE_DEVICE_INFO *R = &Records[I];
    for (CONST GPU_ROW &Row : kGpuTable) {
      if (Row.ClassCode == R->ClassCode && Row.Ids.VendorID == R->VendorID && Row.Ids.DeviceID == R->DeviceID &&
          Row.Ids.SubVendorID == R->SubVendorID && Row.Ids.SubDeviceID == R->SubDeviceID) {
        TableMatch = TRUE;
      }
    }
    if (!(R->ClassCode == 0x03 || R->ClassCode == 0x12 || TableMatch)) continue;
    BOOLEAN Listed = FALSE;
    for (UINT32 G = 0; G < GpuCount; G++) Listed = Listed || List[G].Slot == R->Slot;
    if (Listed) continue;
    QOR_GPU_ENTRY Entry = {R->Slot,          (UINT8)R->Bus,      (UINT8)R->Dev,       (UINT8)R->Func,
                           R->VendorID,      R->DeviceID,        R->SubVendorID,      R->SubDeviceID,
                           (UINT8)R->PCIeGen, (UINT8)R->LinkSpeed, (UINT8)R->CardBandWidth, (UINT8)R->LinkWidth};
    QorCopyMem(&List[GpuCount], &Entry, sizeof(Entry));
    GpuCount++;
    TableMatch = FALSE;
    // The check follows the store, so a 33rd GPU is stored before the stop.
    if (GpuCount > kGpuCountLimit) {
      QorDebugPrint(DEBUG_ERROR, "%a GPU Number is already at the maximum!!!\n", "QorCollectGPUInfo");
      break;
    }
  }
  QorDebugPrint(DEBUG_INFO, "%a GPUCount = %d\n", "QorCollectGPUInfo", GpuCount);
  Block[QOR_SYSINFO_GPU_COUNT_OFFSET] = (UINT8)GpuCount;
}
