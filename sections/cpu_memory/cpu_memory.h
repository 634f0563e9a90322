// The processor and memory sections (CpuInfo, DimmInfo) and the helpers
// they share: SMBIOS record lists and strings, cache sizes, accelerator
// counts, the DIMM map and DIMM type names.
#ifndef QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_
#define QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_

#include "platform/memory_map_data.h"
#include "platform/smbios.h"
#include "platform/uefi_base.h"

// The system topology's chop-type byte of a socket, or 255 when the
// socket's record is not valid (or the socket is out of range).
UINT8 QorGetChopType(UINT32 Socket);

// ---- SMBIOS records

// Room for every record of one type a server publishes; collecting stops
// when the list is full.
#define QOR_SMBIOS_RECORD_LIST_CAPACITY 256

typedef struct {
  UINTN Count;
  EFI_SMBIOS_TABLE_HEADER *Records[QOR_SMBIOS_RECORD_LIST_CAPACITY];
} QOR_SMBIOS_RECORD_LIST;

// Every record of Type in GetNext order (starting from handle 0xFFFE).
EFI_STATUS QorCollectSmbiosRecords(EFI_SMBIOS_TYPE Type, QOR_SMBIOS_RECORD_LIST *List);
// String Number (1-based) of the record's string area; NULL for number 0,
// a number past the last string, or an empty string.
CONST CHAR8 *QorGetSmbiosString(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Number);
// Fields of the formatted area; a field that lies beyond the record's
// length (an older, shorter record) reads 0.
UINT8 QorSmbiosRead8(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset);
UINT16 QorSmbiosRead16(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset);
UINT32 QorSmbiosRead32(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Offset);
// Removes leading and trailing blanks and tabs in place.
VOID QorTrimBlanks(CHAR8 *Text);

// ---- CpuInfo

#define QOR_CPU_TEXT_SIZE 64
#define QOR_MAX_CPU_SOCKETS 4

typedef struct {
  UINT32 Index;
  UINT32 Version;
  UINT32 OriginData;
  UINT32 McNum;
  UINT32 Status;
  UINT32 L1Cache;
  UINT32 L2Cache;
  UINT32 L3Cache;
  CHAR8 Name[QOR_CPU_TEXT_SIZE];
  CHAR8 ProcessorID[QOR_CPU_TEXT_SIZE];
  CHAR8 PPIN[QOR_CPU_TEXT_SIZE];
  CHAR8 Stepping[QOR_CPU_TEXT_SIZE];
} CPU_INFO_ENTRY;

// Accelerator functions found on the root bridges, in counting order.
typedef struct {
  UINT32 Qat;
  UINT32 Dlb;
  UINT32 Iaa;
  UINT32 Dsa;
} ACCELERATOR_COUNT;

EFI_STATUS QorCollectAccCount(ACCELERATOR_COUNT *Counts);
EFI_STATUS QorGetCpuEntry(CONST EFI_SMBIOS_TABLE_HEADER *Type4Record, CPU_INFO_ENTRY *Entry);
EFI_STATUS QorGetCacheSize(UINT16 Handle, UINT32 *SizeKb);

// ---- DimmInfo

#define QOR_DIMM_TEXT_SIZE 32

typedef struct {
  UINT32 DataOrigin;
  UINT32 Socket;
  UINT32 Channel;
  UINT32 Dimm;
  UINT32 Index;
  UINT32 Status;
  UINT32 DimmType;
  UINT32 OpeVoltage;
  UINT32 DimmRanks;
  UINT32 VendorID;
  UINT32 DimmSize;
  UINT32 CurFrequency;
  UINT32 MaxFrequency;
  UINT32 DimmEcc;
  UINT16 HpprCount;
  UINT16 TotalWidth;
  UINT16 DataWidth;
  CHAR8 DimmTech[QOR_DIMM_TEXT_SIZE];
  CHAR8 PartNumber[QOR_DIMM_TEXT_SIZE];
  CHAR8 SerialNumber[QOR_DIMM_TEXT_SIZE];
  UINT16 TypeDetail;
} DIMM_INFO_ENTRY;

// The DIMM map: the DIMM map HOB's table, or the built-in table for four
// sockets of eight channels with two DIMMs each. The returned table always
// has an end entry within QOR_DIMM_MAP_MAX_ENTRIES + 1 entries.
CONST QOR_DIMM_MAP_ENTRY *QorGetDimmMap(VOID);
// Present entries before the end entry (at most QOR_DIMM_MAP_MAX_ENTRIES).
UINT32 QorCountPresentDimmSlots(CONST QOR_DIMM_MAP_ENTRY *DimmMap);
// Finds the entry with Entry's socket, channel and DIMM and copies it into
// Entry; EFI_NOT_FOUND at the end entry or after QOR_DIMM_MAP_MAX_ENTRIES.
EFI_STATUS QorFindDimmMapEntry(CONST QOR_DIMM_MAP_ENTRY *DimmMap, QOR_DIMM_MAP_ENTRY *Entry);
// Pairs the next present slot with a type 17 record and fills DimmEntry.
EFI_STATUS QorIsDimmAvaliable(CONST UINT8 *MemoryMapData, CONST QOR_DIMM_MAP_ENTRY *DimmMap,
                              CONST EFI_SMBIOS_TABLE_HEADER *Type17Record, DIMM_INFO_ENTRY *DimmEntry);
CONST CHAR8 *QorGetDimmTypeName(CONST UINT8 *MemoryMapData, UINT32 Socket, UINT32 Channel, UINT32 Dimm);
// The type detail word of a type 17 record in the BMC's bit order.
UINT16 QorRemapTypeDetail(UINT16 TypeDetail);

#endif  // QOR_SECTIONS_CPU_MEMORY_CPU_MEMORY_H_
