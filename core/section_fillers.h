// Every section filler, declared in one place for the registry table.
#ifndef QOR_CORE_SECTION_FILLERS_H_
#define QOR_CORE_SECTION_FILLERS_H_

#include "core/upload_section.h"

EFI_STATUS QorFillBiosVersion(UPLOAD_SECTION *Section);
EFI_STATUS QorFillPchInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillMiscInfo(UPLOAD_SECTION *Section);

// Processor and memory sections.
EFI_STATUS QorFillCpuInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillDimmInfo(UPLOAD_SECTION *Section);

// Firmware and storage sections.

// PCI resources and the memory map.

// Flash information upload, hung on the fill trigger.
VOID EFIAPI QorUploadFlashInfoCallBack(EFI_EVENT Event, VOID *Context);

#endif  // QOR_CORE_SECTION_FILLERS_H_
