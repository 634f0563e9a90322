// Protocol-notify events that run the section fillers, the filled-set
// tracking that starts the upload, and the forced upload at the late trigger.
#include "core/section_fillers.h"
#include "core/upload_section.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {

struct UPLOAD_EVENT_REGISTRATION {
  CONST EFI_GUID *Protocol;
  EFI_EVENT_NOTIFY Notify;
  UINTN Context;
};

// Registration order matters: the firmware signals the events of one
// protocol in this order, so VmdInfo is filled before the force upload looks.
CONST UPLOAD_EVENT_REGISTRATION kUploadEvents[] = {
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionCpuInfo},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionDimmResultInfo},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionDimmInfo},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionPcieDevice},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionPcieTopology},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionMiscInfo},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionOnBoardSataInfo},
    {&gLateTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionVmdInfo},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionTpmInfo},
    {&gEfiDxeSmmReadyToLockProtocolGuid, QorUpdateEventCallBack, QorSectionPcieResource},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionMemoryMap},
    {&gFillTriggerProtocolGuid, QorUpdateEventCallBack, QorSectionIioInfo},
    {&gLateTriggerProtocolGuid, QorForceUploadCallBack, 0},
    {&gFillTriggerProtocolGuid, QorUploadFlashInfoCallBack, 0},
};

}  // namespace

EFI_STATUS ListenProtocol(CONST EFI_GUID *ProtocolGuid, EFI_EVENT_NOTIFY NotifyFunction, VOID *Context) {
  EFI_EVENT Event = nullptr;
  VOID *Registration = nullptr;
  gBS->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, NotifyFunction, Context, &Event);
  return gBS->RegisterProtocolNotify((EFI_GUID *)ProtocolGuid, Event, &Registration);
}

EFI_STATUS QorRegisterUploadEvents(VOID) {
  for (CONST UPLOAD_EVENT_REGISTRATION &Entry : kUploadEvents) {
    EFI_STATUS Status = ListenProtocol(Entry.Protocol, Entry.Notify, (VOID *)Entry.Context);
    if (EFI_ERROR(Status)) {
      QorDebugPrint(DEBUG_ERROR, "Failed to listen event %g %r\n", Entry.Protocol, Status);
      return Status;
    }
  }
  return EFI_SUCCESS;
}

VOID EFIAPI QorUpdateEventCallBack(EFI_EVENT Event, VOID *Context) {
  INT32 Index = (INT32)(UINTN)Context;
  if (Index < QOR_SECTION_COUNT && Index >= 0 && gQorUploadSections[Index].Fill != nullptr) {
    UPLOAD_SECTION *Section = &gQorUploadSections[Index];
    QorDebugPrint(DEBUG_INFO, "QorUpdateEventCallBack %u %a\n", (UINT32)Index, Section->Name);
    Section->Fill(Section);
    gBS->CloseEvent(Event);
    return;
  }
  QorDebugPrint(DEBUG_ERROR, "Invalid Type %u\n", (UINT32)Index);
}

EFI_STATUS QorSetSectionFilled(UINT32 Index) {
  // Indices that are negative as signed values are refused as well: they
  // would address memory far outside the registry.
  if (Index >= QOR_SECTION_COUNT) return EFI_INVALID_PARAMETER;
  gQorUploadSections[Index].Filled = TRUE;
  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
    if (!gQorUploadSections[I].Filled) return EFI_SUCCESS;
  }
  return QorUploadInfoData();
}

EFI_STATUS QorFinishSection(UPLOAD_SECTION *Section, UINT64 Length) {
  Section->Length = Length;
  return QorSetSectionFilled(Section->Index);
}

VOID EFIAPI QorForceUploadCallBack(EFI_EVENT Event, VOID *Context) {
  (VOID) Event;
  (VOID) Context;
  QorDebugPrint(DEBUG_INFO, "QorForceUploadCallBack ---start\n");
  if (DataUploaded) {
    QorDebugPrint(DEBUG_INFO, "Data has already been uploaded\n");
    return;
  }
  QorDebugPrint(DEBUG_INFO, "Some data has not been filled, now force upload\n");
  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
    QorDebugPrint(DEBUG_INFO, "[%u] [%a] [%u]\n", I, gQorUploadSections[I].Name,
                  (UINT32)gQorUploadSections[I].Filled);
  }
  QorUploadInfoData();
  DataUploaded = TRUE;
}
