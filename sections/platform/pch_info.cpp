// PchInfo section: SKU and stepping of the platform controller hub, read
// from bus 0 device 31 function 0.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/print_lib.h"

namespace {

struct PCH_SKU_ENTRY {
  UINT16 DeviceId;
  CONST CHAR8 *Name;
};

CONST PCH_SKU_ENTRY kPchSkuTable[] = {
    {0x1B80, "EBG SKU"},    {0x1B81, "EBG A0/A1/B0/B1 SKU"}, {0x1B82, "EBG SKU 2"},  {0x1B83, "EBG SKU 3"},
    {0x1B84, "EBG SKU 4"},  {0x1B85, "EBG SKU 5"},  {0x1B86, "EBG SKU 6"},  {0x1B87, "EBG SKU 7"},
    {0x1B88, "EBG SKU 8"},  {0x1B89, "EBG SKU 9"},  {0x1B8A, "EBG SKU 10"}, {0x1B8B, "EBG SKU 11"},
    {0x1B8C, "EBG SKU 12"}, {0x1B8D, "EBG SKU 13"}, {0x1B8E, "EBG SKU 14"}, {0x1B8F, "EBG SKU 15"},
    {0x1B90, "EBG SKU 16"}, {0x1B91, "EBG SKU 17"}, {0x1B92, "EBG SKU 18"}, {0x1B93, "EBG SKU 19"},
    {0x1B94, "EBG SKU 20"}, {0x1B95, "EBG SKU 21"}, {0x1B96, "EBG SKU 22"}, {0x1B97, "EBG SKU 23"},
    {0x1B98, "EBG SKU 24"}, {0x1B99, "EBG SKU 25"}, {0x1B9A, "EBG SKU 26"}, {0x1B9B, "EBG SKU 27"},
    {0x1B9C, "EBG SKU 28"}, {0x1B9D, "EBG SKU 29"}, {0x1B9E, "EBG SKU 30"}, {0x1B9F, "EBG SKU 31"},
    {0xFFFF, nullptr},
};

struct PCH_SKU_CLASS {
  CONST CHAR8 *Pattern;
  CONST CHAR8 *Sku;
};

// Searched in order; a row matches when its pattern occurs in the SKU name.
CONST PCH_SKU_CLASS kPchSkuClasses[] = {
    {"A0", "ES"},
    {"A1", "ES"},
    {"EBG SKU", "Unknown"},
};

CONST CHAR8 *LookUpSkuName(UINT16 DeviceId) {
  for (CONST PCH_SKU_ENTRY *Entry = kPchSkuTable; Entry->DeviceId < 0xFFFF; Entry++) {
    if (Entry->DeviceId == DeviceId) return Entry->Name;
  }
  return "Undefined SKU";
}

CONST UINTN kPchDeviceIdAddress = QOR_PCI_EXPRESS_ADDRESS(0, 31, 0, 2);
CONST UINTN kPchRevisionIdAddress = QOR_PCI_EXPRESS_ADDRESS(0, 31, 0, 8);

}  // namespace

EFI_STATUS QorFillPchInfo(UPLOAD_SECTION *Section) {
  CHAR8 SteppingText[32];
  CHAR8 DetailText[64];
  CHAR8 SkuText[64];

  QorDebugPrint(DEBUG_INFO, "QorFillPchInfo ---start\n");
  CONST CHAR8 *SkuName = LookUpSkuName(QorPciExpressRead16(kPchDeviceIdAddress));
  UINT8 Revision = QorPciExpressRead8(kPchRevisionIdAddress);
  AsciiSPrint(SteppingText, sizeof(SteppingText), "%c%c", 'A' + (Revision >> 4), '0' + (Revision & 0xF));
  QorDebugPrint(DEBUG_INFO, "SteppingStr=<%a> SkuStr=<%a>\n", SteppingText, SkuName);
  AsciiSPrint(DetailText, sizeof(DetailText), "%a-%a", SkuName, SteppingText);

  SkuText[0] = '\0';
  for (CONST PCH_SKU_CLASS &Class : kPchSkuClasses) {
    if (QorAsciiStrStr(SkuName, Class.Pattern) != nullptr) {
      QorAsciiStrCopy(SkuText, sizeof(SkuText), Class.Sku);
      break;
    }
  }

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Count", 1);
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Serial", 0);
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Manu", 0);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Sku", SkuText);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Detail", DetailText);
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
