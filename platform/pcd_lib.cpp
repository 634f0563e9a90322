#include "platform/pcd_lib.h"

#include "platform/guids.h"
#include "platform/pcd_protocol.h"
#include "platform/uefi_lib.h"

namespace {
PCD_PROTOCOL *gPcd = nullptr;
EFI_PCD_PROTOCOL *gPiPcd = nullptr;

PCD_PROTOCOL *Pcd() {
  if (gPcd == nullptr) QorLocateProtocol(&gPcdProtocolGuid, (VOID **)&gPcd);
  return gPcd;
}

EFI_PCD_PROTOCOL *PiPcd() {
  if (gPiPcd == nullptr) QorLocateProtocol(&gEfiPcdProtocolGuid, (VOID **)&gPiPcd);
  return gPiPcd;
}
}  // namespace

VOID QorPcdLibInit(VOID) {
  gPcd = nullptr;
  gPiPcd = nullptr;
}

UINT8 QorPcdGet8(UINTN TokenNumber) { return Pcd() != nullptr ? Pcd()->Get8(TokenNumber) : 0; }

UINT32 QorPcdGet32(UINTN TokenNumber) { return Pcd() != nullptr ? Pcd()->Get32(TokenNumber) : 0; }

VOID *QorPcdGetPtr(UINTN TokenNumber) { return Pcd() != nullptr ? Pcd()->GetPtr(TokenNumber) : nullptr; }

EFI_STATUS QorPcdSet8(UINTN TokenNumber, UINT8 Value) {
  return Pcd() != nullptr ? Pcd()->Set8(TokenNumber, Value) : EFI_NOT_FOUND;
}

UINT8 QorPcdGet8Ex(CONST EFI_GUID *TokenSpace, UINTN TokenNumber) {
  return PiPcd() != nullptr ? PiPcd()->Get8(TokenSpace, TokenNumber) : 0;
}

UINT8 QorGetCustomerId(VOID) { return QorPcdGet8Ex(&gQorCustomerIdTokenSpaceGuid, QOR_PCD_EX_TOKEN_CUSTOMER_ID); }
