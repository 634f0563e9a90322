// The quick trans protocol: files the driver sends to the BMC are recorded
// byte for byte.
#include "emulator/platform.h"

namespace qor::emu {

namespace {
EFI_STATUS EFIAPI SendFile(CONST CHAR8 *FileName, UINTN, UINT32 DataSize, VOID *Data) {
  Platform *Current = Platform::Current();
  if (Current == nullptr || FileName == nullptr || (Data == nullptr && DataSize != 0)) return EFI_INVALID_PARAMETER;
  return Current->RecordUpload(FileName, static_cast<const uint8_t *>(Data), DataSize);
}
}  // namespace

void InitQuickTransProtocol(QOR_QUICK_TRANS_PROTOCOL *Protocol) {
  *Protocol = {};
  Protocol->SendFile = SendFile;
}

}  // namespace qor::emu
