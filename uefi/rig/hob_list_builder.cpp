#include "uefi/rig/hob_list_builder.h"

#include "platform/base_lib.h"

namespace {
UINTN GuidHobLength(UINTN DataSize) { return (sizeof(EFI_HOB_GUID_TYPE) + DataSize + 7) & ~(UINTN)7; }
}  // namespace

UINTN QorRigHobListSize(CONST VOID *List, UINTN MaxBytes) {
  CONST UINT8 *Start = (CONST UINT8 *)List;
  UINTN Offset = 0;
  if (Start == nullptr) return 0;
  while (Offset + sizeof(EFI_HOB_GENERIC_HEADER) <= MaxBytes) {
    CONST EFI_HOB_GENERIC_HEADER *Header = (CONST EFI_HOB_GENERIC_HEADER *)(Start + Offset);
    if (Header->HobType == EFI_HOB_TYPE_END_OF_HOB_LIST) return Offset + sizeof(EFI_HOB_GENERIC_HEADER);
    if (Header->HobLength < sizeof(EFI_HOB_GENERIC_HEADER)) return 0;
    Offset += Header->HobLength;
  }
  return 0;
}

UINTN QorRigExtendedHobListSize(UINTN OriginalSize, CONST QOR_RIG_GUID_HOB *Hobs, UINTN Count) {
  UINTN Size = OriginalSize;  // the original's end HOB stays at the new end
  for (UINTN I = 0; I < Count; I++) {
    if (Hobs[I].Size > QOR_RIG_MAX_GUID_HOB_DATA) return 0;
    Size += GuidHobLength(Hobs[I].Size);
  }
  return Size;
}

UINTN QorRigBuildHobList(CONST VOID *Original, UINTN OriginalSize, CONST QOR_RIG_GUID_HOB *Hobs, UINTN Count,
                         VOID *Out, UINTN OutSize) {
  if (OriginalSize < sizeof(EFI_HOB_GENERIC_HEADER) || QorRigHobListSize(Original, OriginalSize) != OriginalSize) {
    return 0;
  }
  UINTN Needed = QorRigExtendedHobListSize(OriginalSize, Hobs, Count);
  if (Needed == 0 || Needed > OutSize) return 0;

  UINT8 *Bytes = (UINT8 *)Out;
  UINTN Offset = OriginalSize - sizeof(EFI_HOB_GENERIC_HEADER);
  QorCopyMem(Bytes, Original, Offset);
  for (UINTN I = 0; I < Count; I++) {
    UINTN Length = GuidHobLength(Hobs[I].Size);
    QorZeroMem(Bytes + Offset, Length);
    EFI_HOB_GUID_TYPE *Hob = (EFI_HOB_GUID_TYPE *)(Bytes + Offset);
    Hob->Header.HobType = EFI_HOB_TYPE_GUID_EXTENSION;
    Hob->Header.HobLength = (UINT16)Length;
    Hob->Name = *Hobs[I].Name;
    if (Hobs[I].Size != 0) QorCopyMem(Bytes + Offset + sizeof(EFI_HOB_GUID_TYPE), Hobs[I].Data, Hobs[I].Size);
    Offset += Length;
  }
  EFI_HOB_GENERIC_HEADER *End = (EFI_HOB_GENERIC_HEADER *)(Bytes + Offset);
  End->HobType = EFI_HOB_TYPE_END_OF_HOB_LIST;
  End->HobLength = sizeof(EFI_HOB_GENERIC_HEADER);
  End->Reserved = 0;

  EFI_HOB_GENERIC_HEADER *First = (EFI_HOB_GENERIC_HEADER *)Bytes;
  if (First->HobType == EFI_HOB_TYPE_HANDOFF && First->HobLength >= sizeof(EFI_HOB_HANDOFF_INFO_TABLE)) {
    ((EFI_HOB_HANDOFF_INFO_TABLE *)Bytes)->EfiEndOfHobList = (EFI_PHYSICAL_ADDRESS)(UINTN)End;
  }
  return Offset + sizeof(EFI_HOB_GENERIC_HEADER);
}
