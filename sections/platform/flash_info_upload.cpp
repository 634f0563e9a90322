// "push_FlashInfo.json": the BIOS flash part's size and identification,
// sent on its own when the fill trigger arrives.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"

namespace {
constexpr UINTN kFlashInfoBufferSize = 256;
}

VOID EFIAPI QorUploadFlashInfoCallBack(EFI_EVENT Event, VOID *Context) {
  (VOID) Context;
  QOR_SPI_PROTOCOL *Spi = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorSpiProtocolGuid, (VOID **)&Spi);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate Spi protocol %r\n", Status);
    return;
  }
  QOR_QUICK_TRANS_PROTOCOL *QuickTrans = nullptr;
  Status = QorLocateProtocol(&gQorQuickTransProtocolGuid, (VOID **)&QuickTrans);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate quick trans protocol %r\n", Status);
    return;
  }

  CHAR8 *Buffer = (CHAR8 *)QorAllocateZeroPool(kFlashInfoBufferSize);
  CHAR8 RomSizeText[8];
  AsciiSPrint(RomSizeText, sizeof(RomSizeText), "32MB");

  UINT32 Identification = 0;
  Spi->ReadId(Spi, 0, 4, &Identification);
  CONST UINT8 *IdBytes = (CONST UINT8 *)&Identification;
  UINT32 FlashId = ((UINT32)IdBytes[0] << 16) | ((UINT32)IdBytes[1] << 8) | IdBytes[2];
  QorDebugPrint(DEBUG_INFO, "FLASH ID : %x\n", FlashId);

  // The text is written into the buffer; without one there is nothing
  // to send, and a zero-length file must not reach the BMC as a success.
  if (Buffer == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Failed to allocate FLASH info buffer, nothing sent %r\n", EFI_OUT_OF_RESOURCES);
    gBS->CloseEvent(Event);
    return;
  }

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Buffer, kFlashInfoBufferSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Bios Rom Size", RomSizeText);
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Flash ID", FlashId);
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");

  Status = QuickTrans->SendFile("push_FlashInfo.json", 0, (UINT32)W.Length, Buffer);
  QorDebugPrint(DEBUG_INFO, "Upload FLASH info to BMC %r\n", Status);

  QorFreePool(Buffer);
  gBS->CloseEvent(Event);
}
