// The PCIe device inventory: one PCIE_DEVICE_INFO record per kept PCI
// function, the walk that fills them, the lookups it shares with the link
// updates (parent handle, slot, PCI Express capability, link fields) and the
// PcieDevice section built from the records.
#ifndef QOR_PCIE_PCIE_DEVICE_INFO_H_
#define QOR_PCIE_PCIE_DEVICE_INFO_H_

#include "core/upload_section.h"
#include "platform/device_path.h"
#include "platform/pci_io.h"

#define PCIE_DEVICE_MAX 512
#define NIC_PORT_MAX 16
#define VPD_KEYWORD_COUNT 6
#define VPD_VALUE_SIZE 40

#pragma pack(push, 1)
typedef struct {
  UINT8 Bus;
  UINT8 Dev;
  UINT8 Func;
  UINT8 Mac[6];
  CHAR8 Desc[128];
} NIC_PORT_INFO;
#pragma pack(pop)
static_assert(sizeof(NIC_PORT_INFO) == 137, "NIC port entry is 137 packed bytes");

typedef struct {
  EFI_HANDLE Handle;                     // carries EFI_PCI_IO_PROTOCOL
  EFI_DEVICE_PATH_PROTOCOL *DevicePath;  // the handle's own path, borrowed
  UINT64 Level;                          // nodes before the End node
  CHAR16 *DevicePathText;
  UINT64 Len;                            // characters of DevicePathText
  UINT16 VendorID;
  UINT16 DeviceID;
  UINT16 SubVendorID;
  UINT16 SubDeviceID;
  UINT8 ProgIF;
  UINT8 ClassCode;
  UINT8 SubClassCode;
  UINT32 Slot;                           // 251 and 252 are the M.2 sockets
  UINT32 MezzSlot;
  UINT32 CPU;
  UINT64 CPUBus;
  UINT64 CPUDev;
  UINT64 CPUFunc;
  UINT64 Bus;
  UINT64 Dev;
  UINT64 Func;
  UINT64 Segment;
  UINT32 LinkWidth;                      // Link Status 9:4
  UINT32 CardBandWidth;                  // Link Capabilities 9:4
  UINT32 LinkSpeed;                      // Link Status 3:0
  UINT32 MaxSpeed;                       // tenths of GT/s
  UINT32 PCIeGen;                        // Link Capabilities 3:0
  CHAR8 FwVersion[64];
  UINT64 Capacity;
  BOOLEAN BehindVMD;
  BOOLEAN VMDRaidMember;
  CHAR8 PhySlot[12];
  CHAR8 Model[40];
  CHAR8 CapacityText[20];
  CHAR8 Type[8];
  CHAR8 SerialNumber[20];
  UINT32 PortNum;                        // as the nic db reports it (may exceed NIC_PORT_MAX)
  CHAR8 OnBoard[6];
  NIC_PORT_INFO PortInfo[NIC_PORT_MAX];
  CHAR8 VPDInfo[VPD_KEYWORD_COUNT][VPD_VALUE_SIZE];
} PCIE_DEVICE_INFO;

// Configuration registers and capability offsets the walk reads.
#define PCI_VENDOR_ID_OFFSET 0x00
#define PCI_DEVICE_ID_OFFSET 0x02
#define PCI_COMMAND_OFFSET 0x04
#define PCI_STATUS_OFFSET 0x06
#define PCI_PROG_IF_OFFSET 0x09
#define PCI_SUB_CLASS_OFFSET 0x0A
#define PCI_BASE_CLASS_OFFSET 0x0B
#define PCI_HEADER_TYPE_OFFSET 0x0E
#define PCI_SUBSYSTEM_VENDOR_ID_OFFSET 0x2C
#define PCI_SUBSYSTEM_ID_OFFSET 0x2E
#define PCI_CAPABILITY_POINTER_OFFSET 0x34
#define PCI_CAPABILITY_ID_PCI_EXPRESS 0x10
#define PCIE_CAPABILITIES_OFFSET 0x02     // PCI Express Capabilities register
#define PCIE_LINK_CAPABILITIES_OFFSET 0x0C
#define PCIE_LINK_STATUS_OFFSET 0x12
#define PCIE_SLOT_CAPABILITIES_OFFSET 0x14
#define PCIE_SLOT_IMPLEMENTED 0x0100
#define PCIE_PORT_TYPE_UPSTREAM 5
#define QOR_SLOT_NONE 0xFFFF

// The ids of a record or a table row.
typedef struct {
  UINT16 VendorID;
  UINT16 DeviceID;
  UINT16 SubVendorID;
  UINT16 SubDeviceID;
} PCIE_DEVICE_IDS;
#define PCIE_ID_ANY 0xFFFF
// Row matches when VendorID and DeviceID are equal and each sub id is equal
// or PCIE_ID_ANY in the row.
BOOLEAN QorPcieIdsMatch(CONST PCIE_DEVICE_IDS *Row, CONST PCIE_DEVICE_INFO *Record);
// All four ids equal.
BOOLEAN QorPcieIdsEqual(CONST PCIE_DEVICE_IDS *Row, CONST PCIE_DEVICE_INFO *Record);

// ---- lookups shared by the walk and the link updates
// Offset of the PCI Express capability, or 0 when the list has none.
UINT8 QorFindPcieCapability(EFI_PCI_IO_PROTOCOL *PciIo);
// True when the function is a bridge (header type bits 6:0 non-zero).
BOOLEAN QorIsBridge(EFI_PCI_IO_PROTOCOL *PciIo);
// Sets LinkWidth, LinkSpeed, PCIeGen and CardBandWidth from the function's
// link registers; nothing changes without a PCI Express capability.
VOID QorReadLinkFields(EFI_PCI_IO_PROTOCOL *PciIo, PCIE_DEVICE_INFO *Record);
// The handle whose device path is this handle's path less its last node.
EFI_STATUS QorGetParentHandle(EFI_HANDLE Handle, EFI_HANDLE *Parent);
// The handle found by cutting DevicePath to at most three nodes (at least
// one node is removed); its PCI I/O in *PciIo when that is not NULL. Unless
// Quiet, logs the failures the root-port link updates report.
EFI_STATUS QorLocateRootPortLevel(EFI_DEVICE_PATH_PROTOCOL *DevicePath, EFI_HANDLE *Handle,
                                  EFI_PCI_IO_PROTOCOL **PciIo, BOOLEAN Quiet);
// Physical slot number (low 8 bits) of the first bridge above Handle that
// implements a slot; QOR_SLOT_NONE for a NULL handle or when none does.
UINT32 QorGetSlotByHandle(EFI_HANDLE Handle);
// Slot of the first switch upstream port above Handle, QOR_SLOT_NONE without one.
UINT32 QorGetUpstreamPortSlot(EFI_HANDLE Handle);
// Root port location (CPUBus, CPUDev, CPUFunc) from the IIO stack table, with
// the parent route when the table stores 0xFF.
VOID QorFillRootPort(PCIE_DEVICE_INFO *Record);
// CPU socket from Segment and Bus and the bus partition PCDs.
UINT32 QorComputeCpuNumber(UINT64 Segment, UINT64 Bus);
// Tenths of GT/s for a maximum link speed code.
UINT32 QorMaxSpeedFromGen(UINT32 PCIeGen);

// ---- link updates
typedef EFI_STATUS (*PCIE_LINK_UPDATE_HANDLER)(PCIE_DEVICE_INFO *Record);
EFI_STATUS BridgeLinkWidthUpdate(PCIE_DEVICE_INFO *Record);
EFI_STATUS RootPortLinkUpdate(PCIE_DEVICE_INFO *Record);
EFI_STATUS RootPortLinkUpdateX8(PCIE_DEVICE_INFO *Record);
EFI_STATUS RootPortGpuUpdate(PCIE_DEVICE_INFO *Record);
EFI_STATUS BIV150GpuUpdate(PCIE_DEVICE_INFO *Record);
EFI_STATUS SwitchOrRootUpdateBroadcom(PCIE_DEVICE_INFO *Record);
// The handler of the first link-update row matching the record, or NULL.
PCIE_LINK_UPDATE_HANDLER QorFindLinkUpdateHandler(CONST PCIE_DEVICE_INFO *Record);

// ---- firmware versions and NIC data
EFI_STATUS QorGetDevFwVersion(PCIE_DEVICE_INFO *Record);
EFI_STATUS QorUefiGetAllFwVersion(VOID);
EFI_STATUS QorGetFmpPackageVersion(EFI_HANDLE Handle, CHAR8 *Text);
VOID QorDumpAllFwVersion(VOID);
EFI_STATUS QorGetNicInfo(PCIE_DEVICE_INFO *Record);
#define QOR_FMP_VERSION_TEXT_SIZE 128

// ---- the walk and the section
EFI_STATUS QorCollectPcieDevices(UINT64 *Count, PCIE_DEVICE_INFO *Records);
VOID QorDumpPcieDevices(PCIE_DEVICE_INFO *Records, UINT64 Count);
// Writes the section text for Count records into Writer's buffer.
struct QOR_TEXT_WRITER;
VOID QorWritePcieDeviceJson(QOR_TEXT_WRITER *Writer, CONST PCIE_DEVICE_INFO *Records, UINT64 Count,
                            UINT8 CustomerId);

// The qor custom protocol's data, located by the PcieDevice filler.
extern VOID *gQorCustomProtocol;
// Forgets the caches that live for the rest of a boot (nic db, firmware
// version table, custom protocol). A loaded image starts without them; tests
// that run several boots in one process call this between them.
VOID QorPcieResetCaches(VOID);
// Debug dumps of the walk and the firmware table; off in the shipped image.
extern CONST BOOLEAN gQorPcieDebugDump;

#endif  // QOR_PCIE_PCIE_DEVICE_INFO_H_
