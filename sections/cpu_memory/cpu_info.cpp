// CpuInfo section: socket count, accelerator counts and one entry per
// populated processor socket, from SMBIOS type 4 and 7 records, the MRC data
// and processor speed HOBs, the system information and CPU power protocols,
// the system topology data and the microcode MSR.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/cpu_power.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/hob_lib.h"
#include "platform/pcd_lib.h"
#include "platform/print_lib.h"
#include "platform/system_information.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

constexpr UINT32 kNoNumber = 0xFFFFFFFF;

// The number of the first processed socket designation; the others are
// indexed from it. Set once per boot and never reset.
UINT32 gSocketBaseNumber = kNoNumber;
QOR_CPU_POWER_PROTOCOL *gCpuPowerProtocol = nullptr;

// The decimal number at the first digit of Text; kNoNumber without a digit
// or when the number does not fit 32 bits.
UINT32 ParseSocketNumber(CONST CHAR8 *Text) {
  while (*Text != '\0' && (*Text < '0' || *Text > '9')) Text++;
  if (*Text == '\0') return kNoNumber;
  UINT64 Number = 0;
  for (; *Text >= '0' && *Text <= '9'; Text++) {
    Number = Number * 10 + (UINT64)(*Text - '0');
    if (Number >= kNoNumber) return kNoNumber;
  }
  return (UINT32)Number;
}

// Maximum core ratio per socket index, from the processor speed HOB.
struct SPEED_RATIOS {
  CONST UINT8 *Ratios;
  UINTN Count;
};

// TDP of the socket table entry at Position; the table has entries for
// QOR_CPU_POWER_MAX_SOCKETS sockets, positions past them read 0.
UINT32 SocketTdp(UINTN Position) {
  if (gCpuPowerProtocol == nullptr || gCpuPowerProtocol->PowerData == nullptr) return 0;
  if (Position >= QOR_CPU_POWER_MAX_SOCKETS) return 0;
  CONST QOR_CPU_POWER_BLOCK *Block = (CONST QOR_CPU_POWER_BLOCK *)gCpuPowerProtocol->PowerData;
  CONST UINT8 *Table = (CONST UINT8 *)(UINTN)Block->SocketTable;
  if (Table == nullptr) return 0;
  UINT32 Tdp;
  QorCopyMem(&Tdp, Table + QOR_CPU_POWER_TDP_OFFSET + 4 * Position, sizeof(Tdp));
  return Tdp;
}

VOID AppendAcceleratorCounts(QOR_TEXT_WRITER *W) {
  ACCELERATOR_COUNT Counts;
  QorZeroMem(&Counts, sizeof(Counts));
  QorCollectAccCount(&Counts);
  QorWriterAppend(W, QOR_FMT_KEY_ONLY, "Accelarator");
  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "QAT", Counts.Qat);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DSA", Counts.Dsa);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DLB", Counts.Dlb);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "IAA", Counts.Iaa);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

VOID AppendCpuEntry(QOR_TEXT_WRITER *W, CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Position,
                    CONST SPEED_RATIOS *Speed) {
  CPU_INFO_ENTRY Entry;
  QorZeroMem(&Entry, sizeof(Entry));
  QorGetCpuEntry(Record, &Entry);
  // Without the processor speed HOB (or a ratio for this socket) there is
  // no maximum speed to report: 0.
  UINT32 MaxSpeed = Entry.Index < Speed->Count ? (UINT32)Speed->Ratios[Entry.Index] * 100 : 0;
  UINT32 MicroCode = (UINT32)(QorReadMsr(QOR_MSR_IA32_BIOS_SIGN_ID) >> 32);

  QorWriterAppend(W, "{");
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Index", Entry.Index);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "OriginData", Entry.OriginData);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Status", Entry.Status);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Version", Entry.Version);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Name", Entry.Name);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "McNum", Entry.McNum);
  // The key says DimmTech but carries the processor characteristics.
  QorWriterAppend(W, QOR_FMT_KEY_U32, "DimmTech", (UINT32)QorSmbiosRead16(Record, SMBIOS_TYPE4_CHARACTERISTICS));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "L1Cache", Entry.L1Cache);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "L2Cache", Entry.L2Cache);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "L3Cache", Entry.L3Cache);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "TotalCores", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_CORE_COUNT));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "EnableCores", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_CORE_ENABLED));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "TotalThreads", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_THREAD_COUNT));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "EnableThreads", (UINT32)QorSmbiosRead16(Record, SMBIOS_TYPE4_THREAD_ENABLED));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Type", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_PROCESSOR_TYPE));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Family", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_PROCESSOR_FAMILY));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Family2", (UINT32)QorSmbiosRead16(Record, SMBIOS_TYPE4_PROCESSOR_FAMILY2));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "MaxSpeed", MaxSpeed);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "CurrentSpeed", (UINT32)QorSmbiosRead16(Record, SMBIOS_TYPE4_CURRENT_SPEED));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "ExternalClock", (UINT32)QorSmbiosRead16(Record, SMBIOS_TYPE4_EXTERNAL_CLOCK));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "Upgrade", (UINT32)QorSmbiosRead8(Record, SMBIOS_TYPE4_PROCESSOR_UPGRADE));
  QorWriterAppend(W, QOR_FMT_KEY_STR, "ProcessorID", Entry.ProcessorID);
  QorWriterAppend(W, QOR_FMT_KEY_STR, "PPIN", Entry.PPIN);
  // TDP and chop type follow the record's position in the SMBIOS list, not
  // the socket index, as the platform tables are ordered the same way.
  QorWriterAppend(W, QOR_FMT_KEY_U32, "TDP", SocketTdp(Position));
  QorWriterAppend(W, QOR_FMT_KEY_U32, "ChopType", (UINT32)QorGetChopType((UINT32)Position));
  QorWriterAppend(W, QOR_FMT_KEY_STR, "Stepping", Entry.Stepping);
  QorWriterAppend(W, QOR_FMT_KEY_U32, "MicroCode", MicroCode);
  QorWriterDropComma(W);
  QorWriterAppend(W, "},");
}

}  // namespace

EFI_STATUS QorGetCpuEntry(CONST EFI_SMBIOS_TABLE_HEADER *Record, CPU_INFO_ENTRY *Entry) {
  Entry->Version = 0;
  Entry->OriginData = 0;
  Entry->Status = 1;
  Entry->McNum = 4;

  UINT8 SocketStringNumber = QorSmbiosRead8(Record, SMBIOS_TYPE4_SOCKET_DESIGNATION);
  CONST CHAR8 *Socket = QorGetSmbiosString(Record, SocketStringNumber);
  if (Socket != nullptr) {
    QorDebugPrint(DEBUG_INFO, "Socket String: <%a>\n", Socket);
    UINT32 Number = ParseSocketNumber(Socket);
    if (gSocketBaseNumber == kNoNumber) gSocketBaseNumber = Number;
    UINT32 SocketIndex = Number - gSocketBaseNumber;
    QorDebugPrint(DEBUG_INFO, "SocIndex:%u\n", SocketIndex);
    if (SocketIndex < QOR_MAX_CPU_SOCKETS) Entry->Index = SocketIndex;
  } else {
    QorDebugPrint(DEBUG_ERROR, "Failed to get smbios socket %u\n", (UINT32)SocketStringNumber);
  }

  CONST CHAR8 *Version = QorGetSmbiosString(Record, QorSmbiosRead8(Record, SMBIOS_TYPE4_PROCESSOR_VERSION));
  if (Version != nullptr) QorAsciiStrCopy(Entry->Name, sizeof(Entry->Name), Version);

  UINT8 Id[8];
  for (UINTN I = 0; I < sizeof(Id); I++) Id[I] = QorSmbiosRead8(Record, SMBIOS_TYPE4_PROCESSOR_ID + I);
  AsciiSPrint(Entry->ProcessorID, sizeof(Entry->ProcessorID), "%02X%02X%02X%02X%02X%02X%02X%02X", Id[0], Id[1],
              Id[2], Id[3], Id[4], Id[5], Id[6], Id[7]);

  // A short MRC data HOB has no PPIN for this socket: 0.
  UINT64 Ppin = 0;
  if ((UINTN)Entry->Index * sizeof(Ppin) + sizeof(Ppin) <= QorMrcHobDataSize()) {
    QorCopyMem(&Ppin, (CONST UINT8 *)MrcHobData + sizeof(Ppin) * Entry->Index, sizeof(Ppin));
  }
  AsciiSPrint(Entry->PPIN, sizeof(Entry->PPIN), "%08X%08X", (UINT32)(Ppin >> 32), (UINT32)Ppin);

  QorGetCacheSize(QorSmbiosRead16(Record, SMBIOS_TYPE4_L1_CACHE_HANDLE), &Entry->L1Cache);
  QorGetCacheSize(QorSmbiosRead16(Record, SMBIOS_TYPE4_L2_CACHE_HANDLE), &Entry->L2Cache);
  QorGetCacheSize(QorSmbiosRead16(Record, SMBIOS_TYPE4_L3_CACHE_HANDLE), &Entry->L3Cache);

  CONST UINT8 *Block = (CONST UINT8 *)QorLocateSystemInformationBlock();
  if (Block != nullptr) {
    AsciiSPrint(Entry->Stepping, sizeof(Entry->Stepping), "%s",
                (CONST CHAR16 *)(Block + QOR_SYSINFO_STEPPING_TEXT_OFFSET));
  } else {
    QorAsciiStrCopy(Entry->Stepping, sizeof(Entry->Stepping), "Unknown");
  }
  return EFI_SUCCESS;
}

EFI_STATUS QorFillCpuInfo(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillCpuInfo ---start\n");
  VOID *SpeedHob = QorGetFirstGuidHob(&gQorProcessorSpeedHobGuid);
  SPEED_RATIOS Speed = {nullptr, 0};
  if (SpeedHob != nullptr) {
    Speed.Ratios = (CONST UINT8 *)GET_GUID_HOB_DATA(SpeedHob);
    Speed.Count = GET_GUID_HOB_DATA_SIZE(SpeedHob);
  }

  QOR_SMBIOS_RECORD_LIST Processors;
  EFI_STATUS Status = QorCollectSmbiosRecords(SMBIOS_TYPE_PROCESSOR_INFORMATION, &Processors);
  if (EFI_ERROR(Status)) return Status;
  Status = QorLocateProtocol(&gQorCpuPowerProtocolGuid, (VOID **)&gCpuPowerProtocol);
  if (EFI_ERROR(Status)) return Status;

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "MaxCpu", (UINT32)QorPcdGet8(QOR_PCD_TOKEN_SOCKET_COUNT));
  AppendAcceleratorCounts(&W);
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "InfoList");
  QorWriterAppend(&W, "[");
  for (UINTN Position = 0; Position < Processors.Count; Position++) {
    CONST EFI_SMBIOS_TABLE_HEADER *Record = Processors.Records[Position];
    if ((QorSmbiosRead8(Record, SMBIOS_TYPE4_STATUS) & SMBIOS_TYPE4_STATUS_POPULATED) == 0) {
      QorDebugPrint(DEBUG_INFO, "CPU is unpopulated\n");
      continue;
    }
    AppendCpuEntry(&W, Record, Position, &Speed);
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "]");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
