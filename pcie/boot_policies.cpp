// Customer policies applied while the walk sees the cards: the boot mode a
// DPU asks for, the slot of the JD NIC and the MMIOH size a P800 needs. Each
// may rewrite a variable and reset the machine so the next boot suits the
// cards; on that next boot the same condition no longer holds.
#include "pcie/special_devices.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/pcd_lib.h"
#include "platform/uefi_lib.h"
#include "sections/platform/reset_sdl_report.h"

BOOLEAN gQorJdNicSeen = FALSE;

namespace {

constexpr UINT8 kNoBootMode = 0xFF;
constexpr UINT8 kBootModeUefi = 1;
constexpr UINTN kPcdDpuNicSlot = 177;   // CustomerId token space
constexpr UINTN kPcdIpmiBootMode = 40;
constexpr UINTN kFixedBootPrioritiesSize = 22;
constexpr UINTN kSocketMpLinkConfigSize = 371;
constexpr UINTN kMmiohSizeOffset = 51;
constexpr UINT16 kMmiohSizeNeeded = 5;
constexpr UINT8 kNoJdNic = 0xFF;
constexpr UINT8 kResetCheckPointPcieUpdateBusResource = 151;  // RST_CP_PCIE_UPDATE_BUS_RESOURCE
constexpr UINT32 kAttributesNvBsRt =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;
constexpr UINT32 kAttributesBsRt = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

struct BOOT_MODE_ROW {
  UINT16 VendorID;
  UINT16 DeviceID;
  UINT16 SubVendorID;  // 0xFF: any (compared with the 16-bit id, as shipped)
  UINT16 SubDeviceID;
  UINT8 BootMode;
};
CONST BOOT_MODE_ROW kBootModeDevices[] = {
    {0x15B3, 0xA2D6, 0xFF, 0xFF, kBootModeUefi},
    {0x15B3, 0xA2DC, 0xFF, 0xFF, kBootModeUefi},
};

CONST PCIE_DEVICE_IDS kP800Devices[] = {
    {0x1D22, 0x3688, 0x0001, 0x0001},
    {0x2057, 0x3689, 0x0001, 0x0001},
    {0x2057, 0x3694, 0x0001, 0x0001},
};
CONST PCIE_DEVICE_IDS kJdNic = {0x1AF4, 0x1041, 0x1172, 0x0001};

EFI_STATUS ReadJdNicSlot(UINT8 *Slot) {
  UINTN Size = 1;
  return gRT->GetVariable((CHAR16 *)u"JdNicSlot", (EFI_GUID *)&gQorJdNicSlotGuid, nullptr, &Size, Slot);
}

EFI_STATUS WriteJdNicSlot(UINT8 Slot) {
  return gRT->SetVariable((CHAR16 *)u"JdNicSlot", (EFI_GUID *)&gQorJdNicSlotGuid, kAttributesNvBsRt, 1, &Slot);
}

}  // namespace

UINT8 QorGetBootModeByDev(PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_INFO, "%a entry\n", "QorGetBootModeByDev");
  UINT8 DpuSlot = QorPcdGet8Ex(&gQorCustomerIdTokenSpaceGuid, kPcdDpuNicSlot);
  QorDebugPrint(DEBUG_INFO, "DPU NicSlotNum=%u\n", DpuSlot);
  if (DpuSlot < 255) return kBootModeUefi;
  if (Record == nullptr) {
    QorDebugPrint(DEBUG_INFO, "pPcieInfo is null.\n");
    return kNoBootMode;
  }
  QorDebugPrint(DEBUG_ERROR, "VendorID:0x%x DeviceID:0x%x SubVendorID:0x%x SubDeviceID:0x%x\n", Record->VendorID,
                Record->DeviceID, Record->SubVendorID, Record->SubDeviceID);
  for (CONST BOOT_MODE_ROW &Row : kBootModeDevices) {
    if (Row.VendorID != Record->VendorID || Row.DeviceID != Record->DeviceID) continue;
    if (Row.SubVendorID != 0xFF && Row.SubVendorID != Record->SubVendorID) continue;
    if (Row.SubDeviceID != 0xFF && Row.SubDeviceID != Record->SubDeviceID) continue;
    QorDebugPrint(DEBUG_ERROR,
                  "Matched device: VendorID:0x%x DeviceID:0x%x SubVendorID:0x%x SubDeviceID:0x%x CheckBootMode=%d\n",
                  Row.VendorID, Row.DeviceID, Row.SubVendorID, Row.SubDeviceID, Row.BootMode);
    return Row.BootMode;
  }
  return kNoBootMode;
}

VOID QorModifyBootModeByDev(UINT8 CheckBootMode) {
  QorDebugPrint(DEBUG_INFO, "%a entry\n", "QorModifyBootModeByDev");
  UINT8 IpmiBootMode = QorPcdGet8(kPcdIpmiBootMode);
  if (IpmiBootMode == 1 || IpmiBootMode == 2) {
    QorDebugPrint(DEBUG_INFO, "Do nothing in ipmi boot mode.\n");
    return;
  }
  UINT8 Priorities[kFixedBootPrioritiesSize];
  QorZeroMem(Priorities, sizeof(Priorities));
  UINTN Size = sizeof(Priorities);
  UINT32 Attributes = 0;
  EFI_STATUS Status = gRT->GetVariable((CHAR16 *)u"FixedBootPriorities", (EFI_GUID *)&gQorFixedBootPrioritiesGuid,
                                       &Attributes, &Size, Priorities);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "Get FixedBootPriorities variable failed: %r\n", Status);
    return;
  }
  UINT8 CurrentMode = Priorities[1];
  if (CheckBootMode == kNoBootMode || CheckBootMode == CurrentMode) {
    QorDebugPrint(DEBUG_ERROR, "Not found matched device or boot mode no changed: CurBootMode=%u CheckBootMode=%u\n",
                  CurrentMode, CheckBootMode);
    return;
  }
  Priorities[1] = CheckBootMode;
  Status = gRT->SetVariable((CHAR16 *)u"FixedBootPriorities", (EFI_GUID *)&gQorFixedBootPrioritiesGuid, Attributes,
                            Size, Priorities);
  if (EFI_ERROR(Status)) return;
  Status = gRT->SetVariable((CHAR16 *)u"QorRecoveryBootMode", (EFI_GUID *)&gQorRecoveryBootModeGuid,
                            kAttributesNvBsRt, 0, nullptr);
  QorDebugPrint(DEBUG_INFO, "Clear QorRecoveryBootMode status=%r\n", Status);
  QorDebugPrint(DEBUG_INFO, "Reset for skobiof nic(Legacy 0, UEFI 1: %u-->%u). \n", CurrentMode, CheckBootMode);
  gRT->ResetSystem(EfiResetWarm, EFI_SUCCESS, 0, nullptr);
}

VOID QorSetJdNicSlot(PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_INFO, "%a start\n", "QorSetJdNicSlot");
  if (!QorPcieIdsEqual(&kJdNic, Record)) return;
  UINT8 CurrentSlot = (UINT8)Record->Slot;
  gQorJdNicSeen = TRUE;
  QorDebugPrint(DEBUG_INFO, "CurrentSlot = %d\n", CurrentSlot);
  UINT8 LastSlot = 0;
  EFI_STATUS Status = ReadJdNicSlot(&LastSlot);
  if (Status != EFI_NOT_FOUND) {
    if (CurrentSlot == LastSlot) {
      QorDebugPrint(DEBUG_INFO, "QorSetJdNicSlot: Slot Not change, CurrentSlot = %d, LastSlot = %d\n", CurrentSlot,
                    LastSlot);
      return;
    }
    Status = WriteJdNicSlot(CurrentSlot);
    QorDebugPrint(DEBUG_ERROR, "%a %d CurrentSlot = %d, LastSlot = %d\n", "QorSetJdNicSlot", 1158, CurrentSlot,
                  LastSlot);
  } else {
    // The first boot with the card always records its slot and resets.
    Status = WriteJdNicSlot(CurrentSlot);
  }
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "QorSetJdNicSlot: SetVariable Slot failed,Status = %r\n", Status);
    return;
  }
  QorDebugPrint(DEBUG_ERROR, "[DXE] RST_CP_PCIE_UPDATE_BUS_RESOURCE\n");
  UINT8 CheckPoint = kResetCheckPointPcieUpdateBusResource;
  Status = gRT->SetVariable((CHAR16 *)u"QorResetCheckPoint", (EFI_GUID *)&gQorWakeupTypeVariableGuid,
                            kAttributesBsRt, 1, &CheckPoint);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "[%a]: Fail to set variable QorResetCheckPoint, %r\n", "QorSetJdNicSlot", Status);
  }
  gRT->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
}

VOID QorJdNicAbsentProcess(VOID) {
  UINT8 Slot = 0;
  EFI_STATUS Status = ReadJdNicSlot(&Slot);
  QorDebugPrint(DEBUG_ERROR, "%a: Get JdNicSlot variable, Status=%r\n", "QorJdNicAbsentProcess", Status);
  if (EFI_ERROR(Status)) return;
  QorDebugPrint(DEBUG_INFO, "CurSlotInVariable=%d\n", Slot);
  if (Slot >= kNoJdNic) return;
  Status = WriteJdNicSlot(kNoJdNic);
  QorDebugPrint(DEBUG_INFO, "Reset JdNicSlot Variable CurSlot, Status=%r\n", Status);
  if (EFI_ERROR(Status)) return;
  // No reset checkpoint on this path, unlike a moved card.
  QorDebugPrint(DEBUG_INFO, "Reset for JD NIC removed.\n");
  gRT->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
}

EFI_STATUS QorChangeMMIOHSizeForP800(PCIE_DEVICE_INFO *Record) {
  QorDebugPrint(DEBUG_ERROR, "QorChangeMMIOHSizeForP800 ---start\n");
  UINT8 Config[kSocketMpLinkConfigSize];
  UINTN Size = 0;
  UINT32 Attributes = 0;
  EFI_STATUS Status = EFI_NOT_FOUND;
  BOOLEAN Read = FALSE;
  for (CONST PCIE_DEVICE_IDS &Row : kP800Devices) {
    if (!QorPcieIdsEqual(&Row, Record)) continue;
    QorZeroMem(Config, sizeof(Config));
    Size = sizeof(Config);
    Status = gRT->GetVariable((CHAR16 *)u"SocketMpLinkConfig", (EFI_GUID *)&gQorSocketMpLinkConfigGuid, &Attributes,
                              &Size, Config);
    if (!EFI_ERROR(Status)) {
      Read = TRUE;
      break;
    }
  }
  if (!Read) return Status;
  UINT16 MmiohSize = (UINT16)(Config[kMmiohSizeOffset] | (Config[kMmiohSizeOffset + 1] << 8));
  if (MmiohSize == kMmiohSizeNeeded) return Status;
  Config[kMmiohSizeOffset] = (UINT8)kMmiohSizeNeeded;
  Config[kMmiohSizeOffset + 1] = 0;
  gRT->SetVariable((CHAR16 *)u"SocketMpLinkConfig", (EFI_GUID *)&gQorSocketMpLinkConfigGuid, Attributes, Size, Config);
  // The reset follows even when the write-back failed, as shipped.
  QorSendBiosInitiateResetSdl(0, 0);
  gRT->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
  return Status;
}
