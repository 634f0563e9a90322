#include "platform/system_information.h"

#include "platform/guids.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

namespace {
VOID *gSystemInformationBlock = nullptr;
}

VOID QorSystemInformationLibInit(VOID) { gSystemInformationBlock = nullptr; }

VOID *QorLocateSystemInformationBlock(VOID) {
  QOR_SYSTEM_INFORMATION_PROTOCOL *Protocol = nullptr;
  if (EFI_ERROR(QorLocateProtocol(&gQorSystemInformationProtocolGuid, (VOID **)&Protocol)) || Protocol == nullptr) {
    return nullptr;
  }
  gSystemInformationBlock = Protocol->DataBlock;
  return gSystemInformationBlock;
}

VOID *QorCachedSystemInformationBlock(VOID) {
  if (gSystemInformationBlock == nullptr) QorLocateSystemInformationBlock();
  return gSystemInformationBlock;
}
