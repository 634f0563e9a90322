// BiosVersion section: version texts from the PCD database, the running
// microcode revision and the build time.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/pcd_lib.h"
#include "platform/print_lib.h"

namespace {
// Build-time version constants of this firmware.
CONST CHAR16 kReferenceCodeVersion[] = u"107.D23";
CONST CHAR16 kBkcVersion[] = u"2025.2 WW28_2025";
constexpr UINT8 kCustomerIdAlternativeExtVersion = 17;
}  // namespace

EFI_STATUS QorFillBiosVersion(UPLOAD_SECTION *Section) {
  CHAR8 MicrocodeText[64];
  CHAR8 ReferenceCodeText[64];
  CHAR8 BkcText[64];
  CHAR8 BuildTimeText[64];

  AsciiSPrint(MicrocodeText, sizeof(MicrocodeText), "%x", (UINT32)(QorReadMsr(QOR_MSR_IA32_BIOS_SIGN_ID) >> 32));
  AsciiSPrint(ReferenceCodeText, sizeof(ReferenceCodeText), "%s", kReferenceCodeVersion);
  AsciiSPrint(BkcText, sizeof(BkcText), "%s", kBkcVersion);
  QorDebugPrint(DEBUG_INFO, "QorFillBiosVersion ---start\n");
  AsciiSPrint(BuildTimeText, sizeof(BuildTimeText), "%04u/%02u/%02u %02u:%02u:%02u", 2025, 7, 26, 3, 58, 47);

  UINTN ExtVersionToken = QorGetCustomerId() == kCustomerIdAlternativeExtVersion ? QOR_PCD_TOKEN_EXT_VERSION_ALT
                                                                                  : QOR_PCD_TOKEN_EXT_VERSION;
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Code", (CONST CHAR8 *)QorPcdGetPtr(QOR_PCD_TOKEN_CODE));
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "IntVer", (CONST CHAR8 *)QorPcdGetPtr(QOR_PCD_TOKEN_INT_VERSION));
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "ExtVer", (CONST CHAR8 *)QorPcdGetPtr(ExtVersionToken));
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "HideVer", (CONST CHAR8 *)QorPcdGetPtr(QOR_PCD_TOKEN_HIDE_VERSION));
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "MicroCodeVer", MicrocodeText);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "BiosRcVer", ReferenceCodeText);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "BkcVer", BkcText);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "BuildTime", BuildTimeText);
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
