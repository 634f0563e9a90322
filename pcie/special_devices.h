// Detections and policies that the PCIe walk runs on its records: DPU and
// Zijin cards, VPD keywords, NVMe details, the GPU list and the customer
// policies that may rewrite variables and reset the machine.
#ifndef QOR_PCIE_SPECIAL_DEVICES_H_
#define QOR_PCIE_SPECIAL_DEVICES_H_

#include "pcie/pcie_device_info.h"

// ---- detections
VOID QorFindBF2Device(PCIE_DEVICE_INFO *Record, BOOLEAN *Found);
VOID QorFindZijinDevice(PCIE_DEVICE_INFO *Record, BOOLEAN *Found, EFI_DEVICE_PATH_PROTOCOL **SwitchPath);
EFI_STATUS FillSwitchInfo(EFI_DEVICE_PATH_PROTOCOL *SwitchPath, PCIE_DEVICE_INFO *Record);
EFI_STATUS QorFindTaihangDpu(PCIE_DEVICE_INFO *Record);
EFI_STATUS QorReadVpdDword(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Address, UINT32 *Value);
VOID QorCollectGPUInfo(PCIE_DEVICE_INFO *Records, UINT64 Count);

// ---- NVMe
EFI_STATUS QorPcieUpdateNvmeM2Info(PCIE_DEVICE_INFO *Record);
EFI_STATUS QorGetNvmePcieInfoBehindVmd(UINT64 *Count, PCIE_DEVICE_INFO *FreeRecord);
EFI_STATUS QorFillLinkStatusForVmdHelper(CONST UINT8 *VrocInfo, PCIE_DEVICE_INFO *Record);
// Removes trailing blanks and leading blanks and tabs of a fixed field of
// Size bytes, writing a terminator after the kept text (at Field[Size] when
// nothing is removed).
VOID QorTrimFixedField(CHAR8 *Field, UINTN Size);

// ---- policies
UINT8 QorGetBootModeByDev(PCIE_DEVICE_INFO *Record);
VOID QorModifyBootModeByDev(UINT8 CheckBootMode);
VOID QorSetJdNicSlot(PCIE_DEVICE_INFO *Record);
VOID QorJdNicAbsentProcess(VOID);
EFI_STATUS QorChangeMMIOHSizeForP800(PCIE_DEVICE_INFO *Record);
// Set once a JD NIC was seen in this boot.
extern BOOLEAN gQorJdNicSeen;

// ---- shared by the walk and the switch record
// Steps of the walk that fill a record from its PCI I/O: class bytes, ids,
// location, link fields, slot, root port, socket, firmware version and
// MezzSlot (no device-path fields, no NIC lookup).
VOID QorFillRecordFromPciIo(EFI_HANDLE Handle, EFI_PCI_IO_PROTOCOL *PciIo, PCIE_DEVICE_INFO *Record);

#endif  // QOR_PCIE_SPECIAL_DEVICES_H_
