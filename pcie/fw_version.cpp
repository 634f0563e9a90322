// Firmware versions of PCI devices: a table of every firmware-management
// instance with its device path and package version name, built once per
// boot, and the lookup that matches a device against it by device path.
#include "pcie/pcie_device_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/firmware_management.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

constexpr UINTN kFwTableMax = 512;

struct FW_VERSION_ENTRY {
  EFI_DEVICE_PATH_PROTOCOL *DevicePath;
  UINT64 Level;
  CHAR16 *DevicePathText;
  UINT64 Len;
  CHAR8 FwVersion[64];
};
static_assert(sizeof(FW_VERSION_ENTRY) * kFwTableMax == 49152, "the table is 49152 bytes");

FW_VERSION_ENTRY *gFwTable = nullptr;
UINT64 gFwCount = 0;

BOOLEAN TextsEqual(CONST CHAR16 *Left, CONST CHAR16 *Right, UINT64 Length) {
  if (Left == nullptr || Right == nullptr) return FALSE;
  return QorCompareMem(Left, Right, Length * sizeof(CHAR16)) == 0;
}

BOOLEAN EntryMatches(CONST FW_VERSION_ENTRY *Entry, CONST PCIE_DEVICE_INFO *Record) {
  if (Entry->Level == Record->Level) {
    return Entry->Len == Record->Len && TextsEqual(Entry->DevicePathText, Record->DevicePathText, Record->Len);
  }
  // The instance sits one or two nodes below the PCI device.
  if (Entry->Level == Record->Level + 1 || Entry->Level == Record->Level + 2) {
    return Record->Len < Entry->Len && TextsEqual(Entry->DevicePathText, Record->DevicePathText, Record->Len);
  }
  return FALSE;
}

}  // namespace

VOID QorResetFwVersionTable(VOID) {
  gFwTable = nullptr;
  gFwCount = 0;
}

EFI_STATUS QorGetDevFwVersion(PCIE_DEVICE_INFO *Record) {
  if (gFwTable == nullptr) {
    gFwTable = (FW_VERSION_ENTRY *)QorAllocateZeroPool(sizeof(FW_VERSION_ENTRY) * kFwTableMax);
    QorUefiGetAllFwVersion();
    QorDumpAllFwVersion();
  }
  if (gFwCount == 0) return EFI_NOT_FOUND;
  for (UINT64 I = 0; I < gFwCount; I++) {
    if (!EntryMatches(&gFwTable[I], Record)) continue;
    QorAsciiStrCopy(Record->FwVersion, sizeof(Record->FwVersion), gFwTable[I].FwVersion);
    return EFI_SUCCESS;
  }
  return EFI_NOT_FOUND;
}

EFI_STATUS QorUefiGetAllFwVersion(VOID) {
  QorDebugPrint(DEBUG_INFO, "QorUefiGetAllFwVersion ---start\n");
  if (gFwTable == nullptr) return EFI_OUT_OF_RESOURCES;
  gFwCount = 0;
  UINTN HandleCount = 0;
  EFI_HANDLE *Handles = nullptr;
  EFI_STATUS Status = gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiFirmwareManagementProtocolGuid, nullptr,
                                              &HandleCount, &Handles);
  if (EFI_ERROR(Status)) return Status;
  for (UINTN I = 0; I < HandleCount && gFwCount < kFwTableMax; I++) {
    EFI_DEVICE_PATH_PROTOCOL *DevicePath = nullptr;
    if (EFI_ERROR(gBS->HandleProtocol(Handles[I], (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DevicePath)) ||
        DevicePath == nullptr) {
      continue;
    }
    CHAR8 Text[QOR_FMP_VERSION_TEXT_SIZE];
    QorZeroMem(Text, sizeof(Text));
    Status = QorGetFmpPackageVersion(Handles[I], Text);
    if (EFI_ERROR(Status)) {
      QorDebugPrint(DEBUG_ERROR, "Failed to get fw version i=%u %r\n", (UINT32)I, Status);
      continue;
    }
    FW_VERSION_ENTRY *Entry = &gFwTable[gFwCount];
    Entry->DevicePath = DevicePath;
    Entry->Level = QorDevicePathNodeCount(DevicePath);
    Entry->DevicePathText = QorConvertDevicePathToText(DevicePath, FALSE, FALSE);
    Entry->Len = Entry->DevicePathText != nullptr ? QorStrLen(Entry->DevicePathText) : 0;
    QorAsciiStrCopy(Entry->FwVersion, sizeof(Entry->FwVersion), Text);
    gFwCount++;
  }
  if (Handles != nullptr) QorFreePool(Handles);
  return EFI_SUCCESS;
}

EFI_STATUS QorGetFmpPackageVersion(EFI_HANDLE Handle, CHAR8 *Text) {
  EFI_FIRMWARE_MANAGEMENT_PROTOCOL *Fmp = nullptr;
  EFI_STATUS Status = gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiFirmwareManagementProtocolGuid, (VOID **)&Fmp);
  if (EFI_ERROR(Status) || Fmp == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Failed to open fw mnt protocol %r\n", Status);
    return Status;
  }
  UINTN InfoSize = 0;
  UINT32 DescriptorVersion = 0;
  UINT8 DescriptorCount = 0;
  UINTN DescriptorSize = 0;
  UINT32 PackageVersion = 0;
  CHAR16 *PackageVersionName = nullptr;
  Status = Fmp->GetImageInfo(Fmp, &InfoSize, nullptr, &DescriptorVersion, &DescriptorCount, &DescriptorSize,
                             &PackageVersion, &PackageVersionName);
  if (Status != EFI_BUFFER_TOO_SMALL) {
    QorDebugPrint(DEBUG_ERROR, "Failed to try get image info %r\n", Status);
    return Status;
  }
  EFI_FIRMWARE_IMAGE_DESCRIPTOR *Info = (EFI_FIRMWARE_IMAGE_DESCRIPTOR *)QorAllocateZeroPool(InfoSize);
  if (Info == nullptr) return EFI_OUT_OF_RESOURCES;
  PackageVersionName = nullptr;
  Status = Fmp->GetImageInfo(Fmp, &InfoSize, Info, &DescriptorVersion, &DescriptorCount, &DescriptorSize,
                             &PackageVersion, &PackageVersionName);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to get image info %r\n", Status);
    QorFreePool(Info);
    return Status;
  }
  if (PackageVersionName != nullptr) {
    AsciiSPrint(Text, QOR_FMP_VERSION_TEXT_SIZE, "%s", PackageVersionName);
    QorTrimBlanks(Text);
    QorFreePool(PackageVersionName);
  }
  QorFreePool(Info);
  return EFI_SUCCESS;
}

VOID QorDumpAllFwVersion(VOID) {
  if (!gQorPcieDebugDump) return;
  QorDebugPrint(DEBUG_INFO, "\n=========== UEFI ALL FW VERSION DUMP(%u) START ===========\n", (UINT32)gFwCount);
  for (UINT64 I = 0; I < gFwCount; I++) {
    CONST FW_VERSION_ENTRY *Entry = &gFwTable[I];
    QorDebugPrint(DEBUG_INFO, "i = % 2u DevicePath:<%p><%s><Level:%u><Len:%u> FwVersion:<%a>\n", (UINT32)I,
                  Entry->DevicePath, Entry->DevicePathText, (UINT32)Entry->Level, (UINT32)Entry->Len,
                  Entry->FwVersion);
    QorDebugPrint(DEBUG_INFO, "\n");
  }
  QorDebugPrint(DEBUG_INFO, "=========== UEFI ALL FW VERSION DUMP FINISH ===========\n");
}
