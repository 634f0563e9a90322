// MiscInfo section: a placeholder object that still counts towards the
// filled set, so the automatic upload can start.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/debug_log.h"

EFI_STATUS QorFillMiscInfo(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillMiscInfo ---start\n");
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
