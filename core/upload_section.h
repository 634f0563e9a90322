// The section registry: fourteen named sections, each with a text buffer and
// a filler, and the operations that fill, track and upload them.
#ifndef QOR_CORE_UPLOAD_SECTION_H_
#define QOR_CORE_UPLOAD_SECTION_H_

#include "platform/uefi_tables.h"

struct UPLOAD_SECTION;
typedef EFI_STATUS (*UPLOAD_SECTION_FILL)(UPLOAD_SECTION *Section);

struct UPLOAD_SECTION {
  CONST CHAR8 *Name;
  UINT64 MaxSize;
  UPLOAD_SECTION_FILL Fill;
  BOOLEAN Filled;
  CHAR8 *Buffer;
  UINT64 Length;
  UINT32 Index;
};

#define QOR_SECTION_COUNT 14

// Positions in the registry.
enum {
  QorSectionBiosVersion = 0,
  QorSectionPchInfo = 1,
  QorSectionCpuInfo = 2,
  QorSectionDimmResultInfo = 3,
  QorSectionDimmInfo = 4,
  QorSectionVmdInfo = 5,
  QorSectionTpmInfo = 6,
  QorSectionOnBoardSataInfo = 7,
  QorSectionPcieDevice = 8,
  QorSectionPcieTopology = 9,
  QorSectionMiscInfo = 10,
  QorSectionPcieResource = 11,
  QorSectionMemoryMap = 12,
  QorSectionIioInfo = 13,
};

extern UPLOAD_SECTION gQorUploadSections[QOR_SECTION_COUNT];
extern UINT64 TotalBufferSize;
extern VOID *MrcHobData;
extern BOOLEAN DataUploaded;

// Bytes of data the MRC data HOB holds behind MrcHobData (0 without it);
// readers of MrcHobData stay inside it.
UINTN QorMrcHobDataSize(VOID);

// Driver entry (after the library constructors).
EFI_STATUS EFIAPI QorUploadDataDxeEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE *SystemTable);

// Events.
EFI_STATUS ListenProtocol(CONST EFI_GUID *ProtocolGuid, EFI_EVENT_NOTIFY NotifyFunction, VOID *Context);
EFI_STATUS QorRegisterUploadEvents(VOID);
EFI_STATUS QorSetSectionFilled(UINT32 Index);
VOID EFIAPI QorUpdateEventCallBack(EFI_EVENT Event, VOID *Context);
VOID EFIAPI QorForceUploadCallBack(EFI_EVENT Event, VOID *Context);

// Upload.
EFI_STATUS QorUploadInfoData(VOID);
EFI_STATUS QorProcJsonBeforeSend(CHAR8 *Text, UINTN TextLength, CHAR8 **OutBuffer);
VOID DumpJsonToLog(CHAR8 *Text, UINTN Length);

// Ends a filler: stores the text length and marks the section filled.
EFI_STATUS QorFinishSection(UPLOAD_SECTION *Section, UINT64 Length);

#endif  // QOR_CORE_UPLOAD_SECTION_H_
