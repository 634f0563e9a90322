// The debug print service: formats each line with the firmware print
// library and appends it to the boot's debug log.
#include "emulator/platform.h"
#include "platform/print_lib.h"

namespace qor::emu {

namespace {
constexpr size_t kMaxLine = 0x1000;

void Record(UINTN ErrorLevel, CONST CHAR8 *Format, VA_LIST Marker) {
  Platform *Current = Platform::Current();
  if (Current == nullptr || Format == nullptr) return;
  char Line[kMaxLine];
  AsciiVSPrint(Line, sizeof(Line), Format, Marker);
  Current->RecordDebug(ErrorLevel, Line);
}

VOID EFIAPI DebugPrint(UINTN ErrorLevel, CONST CHAR8 *Format, VA_LIST Marker) { Record(ErrorLevel, Format, Marker); }

VOID EFIAPI DebugPrintModule(UINTN ErrorLevel, CONST CHAR8 *ModuleName, CONST CHAR8 *Format, VA_LIST Marker) {
  Record(ErrorLevel, Format, Marker);
}
}  // namespace

void InitDebugPrintService(QOR_DEBUG_PRINT_SERVICE *Service, uint64_t Revision) {
  Service->Revision = Revision;
  Service->DebugPrint = DebugPrint;
  Service->Member2 = nullptr;
  Service->DebugPrintModule = DebugPrintModule;
}

}  // namespace qor::emu
