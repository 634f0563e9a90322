// IioInfo section: the per-port bytes of the five IIO stacks of sockets 0
// and 1 from the IIO port HOB, one key per port that the stack's
// bifurcation provides.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/hob.h"
#include "platform/hob_lib.h"
#include "platform/iio_data.h"
#include "sections/cpu_memory/cpu_memory.h"
#include "sections/cpu_memory/indexed_io.h"

namespace {

// Sockets reported in the section.
constexpr UINT32 kIioReportedSockets = 2;

CONST CHAR8 *CONST kPortLetters[QOR_IIO_PORT_LETTERS] = {"A", "B", "C", "D", "E", "F", "G", "H"};

// Ports a bifurcation provides, as bits of the letters A (bit 0) to H (bit 7).
struct BIFURCATION_PORTS {
  UINT8 Code;
  UINT8 Letters;
};

constexpr UINT8 kA = 0x01, kB = 0x02, kC = 0x04, kD = 0x08, kE = 0x10, kF = 0x20, kG = 0x40, kH = 0x80;

CONST BIFURCATION_PORTS kBifurcationPorts[] = {
    {17, kA | kB | kC | kD | kE | kF | kG | kH},
    {18, kA | kB | kC | kD | kE | kG},
    {19, kA | kB | kC | kD | kE},
    {33, kA | kC | kE | kF | kG | kH},
    {34, kA | kC | kE | kG},
    {35, kA | kC | kE},
    {37, kA | kC | kE | kG | kH},
    {38, kA | kC | kE | kF | kG},
    {49, kA | kE | kF | kG | kH},
    {50, kA | kE | kG},
    {51, kA | kE},
};

// Any other code is reported as a single port A.
UINT8 PortsOfBifurcation(UINT8 Code) {
  for (CONST BIFURCATION_PORTS &Entry : kBifurcationPorts) {
    if (Entry.Code == Code) return Entry.Letters;
  }
  return kA;
}

VOID AppendStack(QOR_TEXT_WRITER *W, UINT32 Stack, CONST QOR_IIO_PORT_HOB_ENTRY *Entry) {
  QorWriterAppend(W, "{");
  UINT8 Letters = PortsOfBifurcation(Entry->Bifurcation);
  for (UINT32 Letter = 0; Letter < QOR_IIO_PORT_LETTERS; Letter++) {
    if ((Letters & (1U << Letter)) == 0) continue;
    QorWriterAppend(W, "\"Port%d%a\":\"%d\",", Stack, kPortLetters[Letter], Entry->Port[Letter]);
  }
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

// Readings the platform code takes at this point; the section does not use
// them.
VOID ReadUnusedIioState(VOID) {
  UINT8 Byte;
  (VOID) QorGetChopType(0);
  (VOID) QorReadIndexedIo(0x20, &Byte);
  (VOID) QorReadIndexedIo(0x2C, &Byte);
  (VOID) QorReadIndexedIo(0x81, &Byte);
}

}  // namespace

EFI_STATUS QorUpdateIioInfo(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorUpdateIioInfo ---start\n");
  ReadUnusedIioState();

  // Without the HOB the section stays unfilled and goes out with the forced
  // upload.
  VOID *Hob = QorGetFirstGuidHob(&gQorIioPortHobGuid);
  if (Hob == nullptr) return EFI_SUCCESS;
  UINTN Needed = sizeof(QOR_IIO_PORT_HOB_ENTRY) * QOR_IIO_STACKS_PER_SOCKET * kIioReportedSockets;
  if (GET_GUID_HOB_DATA_SIZE(Hob) < Needed) {
    QorDebugPrint(DEBUG_ERROR, "IIO port HOB holds %u bytes, %u needed\n", (UINT32)GET_GUID_HOB_DATA_SIZE(Hob),
                  (UINT32)Needed);
    return EFI_SUCCESS;
  }
  CONST QOR_IIO_PORT_HOB_ENTRY *Entries = (CONST QOR_IIO_PORT_HOB_ENTRY *)GET_GUID_HOB_DATA(Hob);

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  // "CPU" and "PortInfo" repeat once per socket in the same object; the
  // consumer reads them in order.
  for (UINT32 Socket = 0; Socket < kIioReportedSockets; Socket++) {
    QorWriterAppend(&W, QOR_FMT_KEY_U32, "CPU", Socket);
    QorWriterAppend(&W, "\"PortInfo\":");
    QorWriterAppend(&W, "[");
    for (UINT32 Stack = 0; Stack < QOR_IIO_STACKS_PER_SOCKET; Stack++) {
      AppendStack(&W, Stack, &Entries[Socket * QOR_IIO_STACKS_PER_SOCKET + Stack]);
    }
    QorWriterDropComma(&W);
    QorWriterAppend(&W, "],");
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
