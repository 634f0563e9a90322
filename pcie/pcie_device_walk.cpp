// The walk over every PCI I/O handle that fills one PCIE_DEVICE_INFO record
// per kept PCI Express function 0, with the lookups that enrich each record.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/pcd_lib.h"
#include "platform/uefi_lib.h"

namespace {

// A path of one ACPI node and one PCI node is 22 bytes: such a function sits
// directly on a root bus (chipset devices) and is not listed.
constexpr UINTN kMinDevicePathSize = 25;

// Devices never listed; 0xFFFF sub ids match any value.
CONST PCIE_DEVICE_IDS kExcludedDevices[] = {
    {0x8086, 0x37CC, PCIE_ID_ANY, PCIE_ID_ANY}, {0x10DE, 0x1AF1, PCIE_ID_ANY, PCIE_ID_ANY},
    {0x1000, 0x00B2, PCIE_ID_ANY, PCIE_ID_ANY}, {0x1000, 0xC010, PCIE_ID_ANY, PCIE_ID_ANY},
    {0x10B5, 0x87B0, 0x10B5, 0x87B0},           {0x10B5, 0x87B1, 0x10B5, 0x87B1},
};

// Cards that show one function 0 per chip: the second and later of one card
// in one slot are dropped.
CONST PCIE_DEVICE_IDS kMultiFunctionCards[] = {
    {0x8086, 0x37C8, 0x8086, 0x0001}, {0x8086, 0x56C1, 0x8086, 0x4905}, {0x1E3E, 0x0003, 0x0000, 0x0001},
    {0x1E3E, 0x000B, 0x0000, 0x0001}, {0x1AF4, 0x1041, 0x1BD4, 0xF006}, {0x1AF4, 0x1041, 0x1BD4, 0xF007},
};

template <UINTN N>
BOOLEAN MatchesAny(CONST PCIE_DEVICE_IDS (&Table)[N], CONST PCIE_DEVICE_INFO *Record, BOOLEAN Exact) {
  for (UINTN I = 0; I < N; I++) {
    if (Exact ? QorPcieIdsEqual(&Table[I], Record) : QorPcieIdsMatch(&Table[I], Record)) return TRUE;
  }
  return FALSE;
}

VOID ReadIds(EFI_PCI_IO_PROTOCOL *PciIo, PCIE_DEVICE_INFO *Record) {
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 1, &Record->VendorID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_DEVICE_ID_OFFSET, 1, &Record->DeviceID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_SUBSYSTEM_VENDOR_ID_OFFSET, 1, &Record->SubVendorID);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, PCI_SUBSYSTEM_ID_OFFSET, 1, &Record->SubDeviceID);
}

BOOLEAN IsBiv150Card(CONST PCIE_DEVICE_INFO *Ids) {
  return Ids->VendorID == 0x1E3E && (Ids->DeviceID == 0x0003 || Ids->DeviceID == 0x000B) &&
         Ids->SubVendorID == 0x0000 && Ids->SubDeviceID == 0x0001;
}

// The slot a record of this card would carry: the link updates of these
// cards set `Slot` either from the upstream switch port (the alternative
// lookup) or from the function at the root-port level of the path (the
// parent-handle route), others keep the plain slot lookup.
BOOLEAN SeenInSameSlot(CONST PCIE_DEVICE_INFO *Candidate, EFI_HANDLE Handle, EFI_DEVICE_PATH_PROTOCOL *DevicePath,
                       CONST PCIE_DEVICE_INFO *Records, UINT64 Filled) {
  UINT32 Slot = IsBiv150Card(Candidate) ? QorGetUpstreamPortSlot(Handle) : QorGetSlotByHandle(Handle);
  UINT32 RouteSlot = QOR_SLOT_NONE;
  EFI_HANDLE RootLevel = nullptr;
  if (!EFI_ERROR(QorLocateRootPortLevel(DevicePath, &RootLevel, nullptr, TRUE))) RouteSlot = QorGetSlotByHandle(RootLevel);
  for (UINT64 I = Filled; I-- > 0;) {
    CONST PCIE_DEVICE_INFO *Seen = &Records[I];
    if (Seen->VendorID != Candidate->VendorID || Seen->DeviceID != Candidate->DeviceID ||
        Seen->SubVendorID != Candidate->SubVendorID || Seen->SubDeviceID != Candidate->SubDeviceID) {
      continue;
    }
    if (Seen->Slot == Slot || Seen->Slot == RouteSlot) return TRUE;
  }
  return FALSE;
}

// The keep-filter: a PCI Express endpoint at function 0 below a root port,
// not on the exclusion list. Fills the record's ids on the way.
BOOLEAN Keep(EFI_PCI_IO_PROTOCOL *PciIo, EFI_DEVICE_PATH_PROTOCOL *DevicePath, PCIE_DEVICE_INFO *Ids) {
  if (QorGetDevicePathSize(DevicePath) < kMinDevicePathSize) return FALSE;
  UINTN Segment = 0, Bus = 0, Device = 0, Function = 0;
  if (EFI_ERROR(PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function)) || Function != 0) return FALSE;
  if (QorIsBridge(PciIo)) return FALSE;
  if (QorFindPcieCapability(PciIo) < 0x40) return FALSE;
  ReadIds(PciIo, Ids);
  return !MatchesAny(kExcludedDevices, Ids, FALSE);
}

}  // namespace

VOID QorFillRecordFromPciIo(EFI_HANDLE Handle, EFI_PCI_IO_PROTOCOL *PciIo, PCIE_DEVICE_INFO *Record) {
  ReadIds(PciIo, Record);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_BASE_CLASS_OFFSET, 1, &Record->ClassCode);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_SUB_CLASS_OFFSET, 1, &Record->SubClassCode);
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, PCI_PROG_IF_OFFSET, 1, &Record->ProgIF);
  UINTN Segment = 0, Bus = 0, Device = 0, Function = 0;
  PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function);
  Record->Segment = Segment;
  Record->Bus = Bus;
  Record->Dev = Device;
  Record->Func = Function;
  QorReadLinkFields(PciIo, Record);
  Record->Slot = QorGetSlotByHandle(Handle);
  QorFillRootPort(Record);
  Record->CPU = QorComputeCpuNumber(Record->Segment, Record->Bus);
  if (QorPcdGet8(QOR_PCD_TOKEN_VMD_FW_VERSION_SWITCH) == 1) QorGetDevFwVersion(Record);
  Record->MezzSlot = 255;
}

namespace {

// One kept device: the record, its lookups and link update, then the
// detections and policies that look at it.
struct WALK_STATE {
  UINT8 CustomerId;
  UINT8 CheckBootMode;
  BOOLEAN Bf2Found;
  BOOLEAN ZijinFound;
  EFI_DEVICE_PATH_PROTOCOL *SwitchPath;
};

VOID CollectDevice(EFI_HANDLE Handle, EFI_DEVICE_PATH_PROTOCOL *DevicePath, EFI_PCI_IO_PROTOCOL *PciIo,
                   WALK_STATE *Walk, PCIE_DEVICE_INFO *Record) {
  Record->Handle = Handle;
  Record->DevicePath = DevicePath;
  Record->Level = QorDevicePathNodeCount(DevicePath);
  Record->DevicePathText = QorConvertDevicePathToText(DevicePath, FALSE, FALSE);
  Record->Len = Record->DevicePathText != nullptr ? QorStrLen(Record->DevicePathText) : 0;
  QorFillRecordFromPciIo(Handle, PciIo, Record);
  if (Record->ClassCode == 2) QorGetNicInfo(Record);
  PCIE_LINK_UPDATE_HANDLER Handler = QorFindLinkUpdateHandler(Record);
  if (Handler != nullptr) Handler(Record);
  Record->MaxSpeed = QorMaxSpeedFromGen(Record->PCIeGen);

  if (!Walk->Bf2Found) QorFindBF2Device(Record, &Walk->Bf2Found);
  if (Record->ClassCode == 1 && Record->SubClassCode == 8) QorPcieUpdateNvmeM2Info(Record);
  if (Walk->CustomerId == 1 && Walk->CheckBootMode == 0xFF) Walk->CheckBootMode = QorGetBootModeByDev(Record);
  if (Walk->CustomerId == 3 && !gQorJdNicSeen) QorSetJdNicSlot(Record);
  if (!Walk->ZijinFound) QorFindZijinDevice(Record, &Walk->ZijinFound, &Walk->SwitchPath);
  if (Walk->CustomerId == 1) QorFindTaihangDpu(Record);
  if (Walk->CustomerId != 1) QorChangeMMIOHSizeForP800(Record);
}

}  // namespace

EFI_STATUS QorCollectPcieDevices(UINT64 *Count, PCIE_DEVICE_INFO *Records) {
  *Count = 0;
  WALK_STATE Walk = {QorGetCustomerId(), 0xFF, FALSE, FALSE, nullptr};
  UINTN HandleCount = 0;
  EFI_HANDLE *Handles = nullptr;
  EFI_STATUS Status =
      gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiPciIoProtocolGuid, nullptr, &HandleCount, &Handles);
  if (EFI_ERROR(Status)) return Status;
  UINT64 Filled = 0;
  for (UINTN I = 0; I < HandleCount; I++) {
    EFI_DEVICE_PATH_PROTOCOL *DevicePath = nullptr;
    EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
    if (EFI_ERROR(gBS->OpenProtocol(Handles[I], (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DevicePath,
                                    gImageHandle, nullptr, EFI_OPEN_PROTOCOL_GET_PROTOCOL)) ||
        DevicePath == nullptr) {
      continue;
    }
    if (EFI_ERROR(gBS->OpenProtocol(Handles[I], (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo, gImageHandle,
                                    nullptr, EFI_OPEN_PROTOCOL_GET_PROTOCOL)) ||
        PciIo == nullptr) {
      continue;
    }
    PCIE_DEVICE_INFO Ids = {};
    if (!Keep(PciIo, DevicePath, &Ids)) continue;
    if (Filled > 0 && MatchesAny(kMultiFunctionCards, &Ids, TRUE) &&
        SeenInSameSlot(&Ids, Handles[I], DevicePath, Records, Filled)) {
      continue;
    }
    // The record array has PCIE_DEVICE_MAX entries; a larger machine is
    // listed up to that many devices.
    if (Filled >= PCIE_DEVICE_MAX) break;
    CollectDevice(Handles[I], DevicePath, PciIo, &Walk, &Records[Filled]);
    Filled++;
  }
  if (Walk.CustomerId == 1) QorModifyBootModeByDev(Walk.CheckBootMode);
  if (Walk.CustomerId == 3 && !gQorJdNicSeen) QorJdNicAbsentProcess();
  if (Walk.ZijinFound && Filled < PCIE_DEVICE_MAX) {
    EFI_STATUS Status = FillSwitchInfo(Walk.SwitchPath, &Records[Filled]);
    if (!EFI_ERROR(Status)) {
      QorFreePool(Walk.SwitchPath);
      Filled++;
    } else {
      QorDebugPrint(DEBUG_ERROR, "FillSwitchInfo failed, Status = %r\n", Status);
    }
  }
  *Count = Filled;
  return EFI_SUCCESS;
}
