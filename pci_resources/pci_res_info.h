// PCI resources: one PCI_RES_INFO record per address range a PCI function
// decodes (its BARs and a bridge's three windows), the platform's fixed
// decode ranges, the slot description of each record and the PcieResource
// section built from them.
#ifndef QOR_PCI_RESOURCES_PCI_RES_INFO_H_
#define QOR_PCI_RESOURCES_PCI_RES_INFO_H_

#include "core/upload_section.h"
#include "platform/device_path.h"
#include "platform/pci_io.h"
#include "platform/system_information.h"

#pragma pack(push, 1)
typedef struct {
  UINT64 StartAddress;
  UINT64 EndAddress;    // inclusive
  UINT64 Segment;
  UINT64 Bus;
  UINT64 Device;
  UINT64 Function;
  UINT16 VendorID;
  UINT16 DeviceID;
  UINT8 HeaderType;     // 0 endpoint, 1 PCI-to-PCI bridge (multi-function bit cleared)
  UINT64 SlotDesc;      // slot number 0..255 or a QOR_SLOT_DESC_* code
  UINT8 ConsumedBySelf; // 1: the function's own BAR; 0: a bridge window
  UINT8 ResourceType;   // QOR_RES_TYPE_IO or QOR_RES_TYPE_MMIO
  UINT64 SubDevSlotDesc;
  UINT32 ClassCode;     // base << 16 | sub-class << 8 | interface
} PCI_RES_INFO;

typedef struct {
  UINT64 StartAddress;
  UINT64 EndAddress;    // inclusive
  UINT8 ResourceType;   // QOR_RES_TYPE_*
  UINT8 RangeKind;      // QOR_RANGE_*
} LEGACY_DECODE_INFO;
#pragma pack(pop)

#define QOR_RES_TYPE_IO 1
#define QOR_RES_TYPE_MMIO 2
#define QOR_RES_TYPE_MMCFG 3
#define QOR_RES_TYPE_DRAM 4
#define QOR_RES_TYPE_LEGACY_DECODE 5

#define QOR_RANGE_VGA 1
#define QOR_RANGE_PAM 2
#define QOR_RANGE_TSEG 3
#define QOR_RANGE_MESEG 4
#define QOR_RANGE_NO_EARLY_GO 5
#define QOR_RANGE_MMCFG 6

// Slot-description codes; 0..255 are slot numbers.
#define QOR_SLOT_DESC_INTERNAL_DEVICE 256
#define QOR_SLOT_DESC_INTERNAL_BRIDGE 257
#define QOR_SLOT_DESC_ONBOARD_DEVICE 258
#define QOR_SLOT_DESC_ONBOARD_SWITCH 259
#define QOR_SLOT_DESC_BRIDGE_NOT_USP 260
#define QOR_SLOT_DESC_BRIDGE_BEHIND_PCH 261
#define QOR_SLOT_DESC_DEVICE_BEHIND_PCH 262
#define QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED 263
#define QOR_SLOT_DESC_ENDPOINT 264
#define QOR_SLOT_DESC_UNREADABLE 265

// The two lists, rebuilt by every run of the PcieResource filler.
extern PCI_RES_INFO *gQorPciResList;
extern UINT64 gQorPciResCount;
extern LEGACY_DECODE_INFO *gQorDecodeList;
extern UINT64 gQorDecodeCount;
VOID QorResetPciResLists(VOID);

// ---- collection
VOID QorCollectPCIRes(VOID);
VOID QorAddPciResToList(EFI_HANDLE Handle, UINT64 StartAddress, UINT64 EndAddress, UINT8 ConsumedBySelf,
                        UINT8 ResourceType);
EFI_STATUS QorPciIoMemDecodeEnable(EFI_PCI_IO_PROTOCOL *PciIo, UINT16 OriginPciCMD, BOOLEAN Enable);
VOID QorCollectLegacyAndMmCfgDecodeRes(VOID);

// ---- slot descriptions
VOID QorUpdateSlotDesc(EFI_HANDLE Handle, PCI_RES_INFO *Record);
// The first present entry whose segment matches and whose bus range holds
// Bus, or NULL.
CONST QOR_IIO_TOPOLOGY_ENTRY *GetIioTopologyItem(UINT64 Segment, UINT64 Bus);
UINT32 QorGetSlotNumber(EFI_PCI_IO_PROTOCOL *PciIo);
UINT32 QorReadSlot(EFI_PCI_IO_PROTOCOL *PciIo);
EFI_STATUS QorTruncateDevicePathByDepth(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth);
EFI_PCI_IO_PROTOCOL *QorGetPciIoByDevicePath(EFI_DEVICE_PATH_PROTOCOL *DevicePath);
BOOLEAN QorIsOnboardSlot(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth, UINT64 *SlotOut);

// ---- the section
// Orders a before b: lower start first, then the enclosing (higher end)
// range first, then an endpoint after a bridge only one way (kept so).
INTN QorComparePciRes(CONST PCI_RES_INFO *A, CONST PCI_RES_INFO *B);
VOID QorSortPciRes(PCI_RES_INFO *List, UINT64 Count);
EFI_STATUS QorFillPcieResource(UPLOAD_SECTION *Section);


#endif  // QOR_PCI_RESOURCES_PCI_RES_INFO_H_
