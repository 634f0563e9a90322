// OnBoardSataInfo section: the SATA drives found by the platform's storage
// code, each joined with its physical and logical slot from the board
// description of the qor custom protocol.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/custom_protocol.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/pcd_lib.h"
#include "platform/system_information.h"
#include "platform/uefi_lib.h"

namespace {

CONST CHAR8 *CONST kSataSpeedTexts[] = {"Unknown", "1.5Gbps", "3.0Gbps", "6.0Gbps"};
constexpr UINTN kSataSpeedTextCount = sizeof(kSataSpeedTexts) / sizeof(kSataSpeedTexts[0]);

// A fixed-width text field as a terminated string, even when the platform
// filled the whole width.
template <UINTN Width>
struct FIELD_TEXT {
  CHAR8 Text[Width + 1];
  explicit FIELD_TEXT(CONST CHAR8 (&Field)[Width]) { QorAsciiStrCopy(Text, sizeof(Text), Field); }
};

// The port records of the board description and a cursor over them that
// moves forward only: drives are expected in the order of the port list.
struct SATA_PORT_CURSOR {
  CONST QOR_SATA_PORT_INFO *Ports;
  UINTN Position;
};

// Searches up to Tries records from the cursor for PortIndex. On a match the
// cursor stays on the matching record; otherwise it ends past the records it
// looked at. It never moves beyond the end of the port list.
CONST QOR_SATA_PORT_INFO *FindSataPort(SATA_PORT_CURSOR *Cursor, UINT8 PortIndex, UINT32 Tries, UINT32 Drive) {
  for (UINT32 Try = 0; Try < Tries && Cursor->Position < QOR_CUSTOM_SATA_PORT_COUNT; Try++) {
    CONST QOR_SATA_PORT_INFO *pSataPortInfo = &Cursor->Ports[Cursor->Position];
    QorDebugPrint(DEBUG_INFO, "pSataPortInfo->PortIndex = %d(%d)\n", pSataPortInfo->PortIndex, Drive);
    if (pSataPortInfo->PortIndex != QOR_SATA_PORT_NONE && pSataPortInfo->PortIndex == PortIndex) {
      return pSataPortInfo;
    }
    Cursor->Position++;
  }
  return nullptr;
}

VOID AppendSataDrive(QOR_TEXT_WRITER *W, CONST QOR_SATA_DRIVE_ENTRY *Drive, SATA_PORT_CURSOR *Cursor,
                     UINT32 DriveCount, UINT32 DriveNumber) {
  CONST CHAR8 *TypeText = Drive->MediaType == QOR_SATA_MEDIA_SSD ? "SSD" : "HDD";
  // An index the table does not know reads as unknown.
  CONST CHAR8 *SpeedText = Drive->SpeedIndex < kSataSpeedTextCount ? kSataSpeedTexts[Drive->SpeedIndex] : "Unknown";

  QorWriterAppend(W, "{");
  CONST QOR_SATA_PORT_INFO *Port = FindSataPort(Cursor, Drive->PortIndex, DriveCount, DriveNumber);
  if (Port != nullptr) {
    FIELD_TEXT<QOR_SATA_SLOT_NAME_SIZE> SlotName(Port->SlotName);
    QorWriterAppend(W, QOR_FMT_KEY_STR, "PhySlot", SlotName.Text);
    QorWriterAppend(W, QOR_FMT_KEY_U32, "LogSlot", (UINT32)Port->PortIndex);
  }
  FIELD_TEXT<sizeof(Drive->Model)> Model(Drive->Model);
  FIELD_TEXT<sizeof(Drive->FwVersion)> FwVersion(Drive->FwVersion);
  FIELD_TEXT<sizeof(Drive->Capacity)> Capacity(Drive->Capacity);
  FIELD_TEXT<sizeof(Drive->SerialNumber)> SerialNumber(Drive->SerialNumber);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Model", Model.Text);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "FwVersion", FwVersion.Text);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Capacity", Capacity.Text);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Speed", SpeedText);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Type", TypeText);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "FormFactor", (UINT32)Drive->FormFactor);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "SerialNumber", SerialNumber.Text);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

}  // namespace

EFI_STATUS QorFillSataInfo(UPLOAD_SECTION *Section) {
  UINT8 DriveCount = QorPcdGet8(QOR_PCD_TOKEN_SATA_DRIVE_COUNT);
  UINT8 MaxSata = QorPcdGet8Ex(&gQorCustomerIdTokenSpaceGuid, QOR_PCD_EX_TOKEN_MAX_SATA);
  QorDebugPrint(DEBUG_INFO, "QorFillSataInfo ---start.\n");

  UINT8 *BoardDescription = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorCustomProtocolGuid, (VOID **)&BoardDescription);
  if (EFI_ERROR(Status) || BoardDescription == nullptr) {
    QorDebugPrint(DEBUG_INFO, "Failed to locate qor custom protocol %r\n", Status);
    return EFI_SUCCESS;
  }

  CONST UINT8 *SystemInformation = (CONST UINT8 *)QorLocateSystemInformationBlock();
  if (SystemInformation == nullptr) {
    // Without the platform data block there are no drive entries to read.
    QorDebugPrint(DEBUG_ERROR, "QorFillSataInfo: no system information data block\n");
    DriveCount = 0;
  }

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "MaxSata", (UINT32)MaxSata);
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "SataList");
  QorWriterAppend(&W, "[");

  SATA_PORT_CURSOR Cursor = {(CONST QOR_SATA_PORT_INFO *)(BoardDescription + QOR_CUSTOM_SATA_PORT_LIST_OFFSET), 0};
  for (UINT32 I = 0; I < DriveCount; I++) {
    CONST QOR_SATA_DRIVE_ENTRY *Drive =
        (CONST QOR_SATA_DRIVE_ENTRY *)(SystemInformation + QOR_SYSINFO_SATA_DRIVES_OFFSET +
                                       I * QOR_SYSINFO_SATA_DRIVE_ENTRY_SIZE);
    if (Drive->Present == 0) continue;
    AppendSataDrive(&W, Drive, &Cursor, DriveCount, I);
  }

  QorWriterDropComma(&W);
  QorWriterAppend(&W, "]");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
