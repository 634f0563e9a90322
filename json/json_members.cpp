#include "json/json_members.h"

#include "platform/base_lib.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"

BOOLEAN EFIAPI JsonAddFormatted(JSON_NODE *Object, CONST CHAR8 *Key, CONST CHAR8 *Format, ...) {
  CHAR8 Text[64];
  VA_LIST Args;
  VA_START(Args, Format);
  AsciiVSPrint(Text, sizeof(Text), Format, Args);
  VA_END(Args);
  return !EFI_ERROR(JsonAddItemToObject(Object, Key, JsonCreateString(Text)));
}

BOOLEAN JsonAddText(JSON_NODE *Object, CONST CHAR8 *Key, CONST CHAR8 *Text) {
  return !EFI_ERROR(JsonAddItemToObject(Object, Key, JsonCreateString(Text)));
}

VOID QorPrintTreeIntoSection(UPLOAD_SECTION *Section, JSON_NODE *Root) {
  CHAR8 *Text = Root != nullptr ? JsonPrint(Root, TRUE) : nullptr;
  if (Text != nullptr) {
    UINTN Length = QorAsciiStrLen(Text);
    if (Length < Section->MaxSize && Section->Buffer != nullptr) {
      QorCopyMem(Section->Buffer, Text, Length);
      Section->Length = Length;
    }
    QorFreePool(Text);
  }
  JsonDelete(Root);
}
