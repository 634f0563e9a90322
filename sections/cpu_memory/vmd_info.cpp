// VmdInfo section: one flag that says whether any root port of any socket
// is assigned to a Volume Management Device.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/iio_data.h"
#include "platform/pcd_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

namespace {

// First hit wins: a port counts only when its stack has VMD enabled and the
// port itself is assigned to VMD.
BOOLEAN AnyPortAssignedToVmd(CONST UINT8 *IioData) {
  for (UINT32 Socket = 0; Socket < QOR_IIO_MAX_SOCKETS; Socket++) {
    for (UINT32 Stack = QOR_IIO_VMD_FIRST_STACK; Stack <= QOR_IIO_VMD_LAST_STACK; Stack++) {
      for (UINT32 Port = 0; Port < QOR_IIO_VMD_PORTS_PER_STACK; Port++) {
        if (IioData[QOR_IIO_VMD_STACK_ENABLE_AT(Socket, Stack)] == 1 &&
            IioData[QOR_IIO_VMD_PORT_ASSIGN_AT(Socket, Stack, Port)] == 1) {
          return TRUE;
        }
      }
    }
  }
  return FALSE;
}

BOOLEAN IsVmdInUse(VOID) {
  if (QorPcdGet8(QOR_PCD_TOKEN_VMD_FW_VERSION_SWITCH) == 0) return FALSE;
  QOR_IIO_SYS_PROTOCOL *IioSys = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorIioSysProtocolGuid, (VOID **)&IioSys);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate iio sys protocol %r\n", Status);
    return FALSE;
  }
  if (IioSys == nullptr || IioSys->IioData == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Iio sys protocol has no IIO data\n");
    return FALSE;
  }
  return AnyPortAssignedToVmd((CONST UINT8 *)IioSys->IioData);
}

}  // namespace

EFI_STATUS QorFillVmdInfo(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillVmdInfo ---start\n");
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  if (IsVmdInUse()) {
    QorWriterAppend(&W, QOR_FMT_KEY_TRUE, "Enable");
  } else {
    QorWriterAppend(&W, QOR_FMT_KEY_FALSE, "Enable");
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
