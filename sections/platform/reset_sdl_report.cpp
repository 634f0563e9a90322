// The reset message: four one-byte fields, the second of them the wake-up
// type the platform recorded for this boot.
#include "sections/platform/reset_sdl_report.h"

#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {
constexpr UINTN kResetFieldListSize = 14;
// Leading byte, four fields, and four (type 1, length 1) descriptors.
CONST UINT8 kResetFieldListHead[] = {0x00, 0x04, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01};
constexpr UINT16 kResetReason = 0x0099;
}  // namespace

VOID QorSendBiosInitiateResetSdl(UINT8 Reserved1, UINT8 Reserved2) {
  (VOID) Reserved1;
  (VOID) Reserved2;
  UINT8 FieldList[kResetFieldListSize];
  QorZeroMem(FieldList, sizeof(FieldList));
  QorCopyMem(FieldList, kResetFieldListHead, sizeof(kResetFieldListHead));

  UINT8 WakeupType = 0;
  UINTN DataSize = sizeof(WakeupType);
  EFI_STATUS Status = gRT->GetVariable((CHAR16 *)u"QorWakeupType", (EFI_GUID *)&gQorWakeupTypeVariableGuid, nullptr,
                                       &DataSize, &WakeupType);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "Fail to get variable QorWakeupType, %r\n", Status);
    WakeupType = 0;
  }

  // Values: 00, the wake-up type, then the reset reason as a 16-bit value
  // that fills the last two one-byte fields.
  FieldList[10] = 0x00;
  FieldList[11] = WakeupType;
  FieldList[12] = (UINT8)(kResetReason & 0xFF);
  FieldList[13] = (UINT8)(kResetReason >> 8);
  QorDebugPrint(DEBUG_INFO, "%a(), %x, %x, %x, %x\n", "QorSendBiosInitiateResetSdl", 0, WakeupType, 0x99, 0);
  QorSdlReport(FieldList);
}
