// Every section filler, declared in one place for the registry table.
#ifndef QOR_CORE_SECTION_FILLERS_H_
#define QOR_CORE_SECTION_FILLERS_H_

#include "core/upload_section.h"

EFI_STATUS QorFillBiosVersion(UPLOAD_SECTION *Section);
EFI_STATUS QorFillPchInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillMiscInfo(UPLOAD_SECTION *Section);

// Processor and memory sections.
EFI_STATUS QorFillDimmResult(UPLOAD_SECTION *Section);
EFI_STATUS QorFillVmdInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorUpdateIioInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillCpuInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillDimmInfo(UPLOAD_SECTION *Section);

// Firmware and storage sections.
EFI_STATUS QorFillTpmInfo(UPLOAD_SECTION *Section);
EFI_STATUS QorFillSataInfo(UPLOAD_SECTION *Section);

// PCIe devices.
EFI_STATUS QorFillPcieDevice(UPLOAD_SECTION *Section);
// PCI resources, the PCI tree and the memory map.
EFI_STATUS QorFillPcieResource(UPLOAD_SECTION *Section);
EFI_STATUS QorFillPcieTopology(UPLOAD_SECTION *Section);
EFI_STATUS QorFillMemoryMap(UPLOAD_SECTION *Section);

// Flash information upload, hung on the fill trigger.
VOID EFIAPI QorUploadFlashInfoCallBack(EFI_EVENT Event, VOID *Context);

#endif  // QOR_CORE_SECTION_FILLERS_H_
