#include "json/text_appender.h"

#include "platform/print_lib.h"

UINT32 EFIAPI QorAppendText(CHAR8 *Destination, UINT64 Size, CONST CHAR8 *Format, ...) {
  if (Size > QOR_APPEND_SIZE_LIMIT) Size = QOR_APPEND_SIZE_LIMIT;
  VA_LIST Marker;
  VA_START(Marker, Format);
  UINTN Written = AsciiVSPrint(Destination, (UINTN)Size, Format, Marker);
  VA_END(Marker);
  return (UINT32)Written;
}

VOID QorDropTrailingComma(CONST CHAR8 *Buffer, UINT64 *Length) {
  if (Buffer != nullptr && *Length > 0 && Buffer[*Length - 1] == ',') (*Length)--;
}

VOID QorWriterInit(QOR_TEXT_WRITER *Writer, CHAR8 *Buffer, UINT64 Size) {
  Writer->Buffer = Buffer;
  Writer->Size = Size;
  Writer->Length = 0;
}

VOID EFIAPI QorWriterAppend(QOR_TEXT_WRITER *Writer, CONST CHAR8 *Format, ...) {
  if (Writer->Buffer == nullptr || Writer->Length >= Writer->Size) return;
  UINT64 Size = Writer->Size - Writer->Length;
  if (Size > QOR_APPEND_SIZE_LIMIT) Size = QOR_APPEND_SIZE_LIMIT;
  VA_LIST Marker;
  VA_START(Marker, Format);
  Writer->Length += (UINT32)AsciiVSPrint(Writer->Buffer + Writer->Length, (UINTN)Size, Format, Marker);
  VA_END(Marker);
}

VOID QorWriterDropComma(QOR_TEXT_WRITER *Writer) { QorDropTrailingComma(Writer->Buffer, &Writer->Length); }
