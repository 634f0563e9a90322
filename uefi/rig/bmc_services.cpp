// The services through which the driver reaches the BMC and the log: the
// json protocol (validation and indentation in the guest), the quick trans
// protocol (files go to the host as they would go to the BMC) and the debug
// print service (each line goes to the host with its level).
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/guids.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"
#include "uefi/rig/json_text.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_channel.h"
#include "uefi/rig/serial_channel.h"

namespace {

// ---- debug print service
// A revision above 0x10000 makes the driver use member 3 (with its module
// name), the form current platforms provide.
constexpr UINT64 kDebugPrintRevision = 0x10001;
constexpr UINTN kMaxLogLine = 1024;

VOID SendLogLine(UINTN ErrorLevel, CONST CHAR8 *Format, VA_LIST Marker) {
  if (Format == nullptr) return;
  CHAR8 Line[kMaxLogLine];
  UINTN Length = AsciiVSPrint(Line, sizeof(Line), Format, Marker);
  UINT64 Level = ErrorLevel;
  QOR_RIG_PIECE Pieces[2] = {{&Level, sizeof(Level)}, {Line, Length}};
  QorRigSendFrame(QOR_RIG_FRAME_LOG, "", Pieces, 2);
}

VOID EFIAPI DebugPrint(UINTN ErrorLevel, CONST CHAR8 *Format, VA_LIST Marker) {
  SendLogLine(ErrorLevel, Format, Marker);
}

VOID EFIAPI DebugPrintModule(UINTN ErrorLevel, CONST CHAR8 *ModuleName, CONST CHAR8 *Format, VA_LIST Marker) {
  SendLogLine(ErrorLevel, Format, Marker);
}

QOR_DEBUG_PRINT_SERVICE gDebugPrintService = {kDebugPrintRevision, DebugPrint, nullptr, DebugPrintModule};

// ---- json protocol
EFI_STATUS EFIAPI JsonPrettyPrint(QOR_JSON_PROTOCOL *This, CONST CHAR8 *Input, UINTN OutputSize, CHAR8 *Output) {
  return QorRigJsonPrettyPrint(Input, Output, OutputSize);
}

EFI_STATUS EFIAPI JsonValidate(QOR_JSON_PROTOCOL *This, CONST CHAR8 *Text) { return QorRigJsonValidate(Text); }

QOR_JSON_PROTOCOL gJsonProtocol;

// ---- quick trans protocol
UINT64 gInventoryUploadTsc = 0;

EFI_STATUS EFIAPI SendFile(CONST CHAR8 *FileName, UINTN Reserved, UINT32 DataSize, VOID *Data) {
  UINT64 Now = QorReadTsc();
  if (FileName == nullptr || (Data == nullptr && DataSize != 0)) return EFI_INVALID_PARAMETER;
  if (gInventoryUploadTsc == 0 && QorAsciiStrCmp(FileName, "push_BiosBeforeBoot.json") == 0) {
    gInventoryUploadTsc = Now;
  }
  QorRigSendBytes(QOR_RIG_FRAME_FILE, FileName, Data, DataSize);
  return EFI_SUCCESS;
}

QOR_QUICK_TRANS_PROTOCOL gQuickTransProtocol;

}  // namespace

UINT64 QorRigInventoryUploadTsc(VOID) { return gInventoryUploadTsc; }

EFI_STATUS QorRigInstallBmcServices(VOID) {
  gJsonProtocol.PrettyPrint = JsonPrettyPrint;
  gJsonProtocol.Validate = JsonValidate;
  gQuickTransProtocol.SendFile = SendFile;
  EFI_STATUS Status = QorRigInstallOnNewHandle(&gQorDebugPrintServiceGuid, &gDebugPrintService);
  if (!EFI_ERROR(Status)) Status = QorRigInstallOnNewHandle(&gQorJsonProtocolGuid, &gJsonProtocol);
  if (!EFI_ERROR(Status)) Status = QorRigInstallOnNewHandle(&gQorQuickTransProtocolGuid, &gQuickTransProtocol);
  return Status;
}
