// The PCI tree: one node per PCI I/O handle with its identity, IIO placement
// and capability registers, linked under its parent by device path, and the
// PcieTopology section written from it.
#ifndef QOR_PCI_RESOURCES_PCI_TREE_H_
#define QOR_PCI_RESOURCES_PCI_TREE_H_

#include "core/upload_section.h"
#include "json/json_tree.h"
#include "platform/device_path.h"
#include "platform/pci_io.h"

#define QOR_CONFIG_SPACE_SIZE 4096

#pragma pack(push, 1)
struct PCI_TREE_NODE {
  UINT8 Valid;
  UINT64 Segment;
  UINT64 Bus;
  UINT64 Device;
  UINT64 Function;
  UINT8 IsPcie;
  UINT8 Socket;
  UINT8 IsRootPort;
  UINT16 RootPortIndex;
  UINT32 VendorID;
  UINT32 DeviceID;
  UINT8 RevisionID;
  UINT32 ClassCode;
  UINT8 HeaderType;  // as read, multi-function bit kept
  UINT16 SubsystemVendorID;
  UINT16 SubsystemID;
  UINT8 PrimaryBus;
  UINT8 SecondaryBus;
  UINT8 SubordinateBus;
  UINT8 PcieCapValid;
  UINT16 PcieCapabilities;
  UINT32 DeviceCapabilities;
  UINT32 LinkCapabilities;
  UINT32 SlotCapabilities;
  UINT32 DeviceCapabilities2;
  UINT32 LinkCapabilities2;
  UINT8 PmValid;
  UINT32 PmCapabilities;
  UINT32 PmControlStatus;
  UINT8 LaneErrorValid;
  UINT32 LaneErrorStatus;
  UINT8 AerValid;
  UINT32 UncorrectableErrorMask;
  UINT32 UncorrectableErrorSeverity;
  UINT32 CorrectableErrorMask;
  UINT8 SerialNumberValid;
  UINT64 SerialNumber;
  UINT8 DpcValid;
  UINT16 DpcCapability;
  UINT16 DpcControl;
  UINT32 RpPioMask;
  UINT32 RpPioSeverity;
  UINT32 RpPioSysError;
  UINT32 RpPioException;
  UINT8 AcsValid;
  UINT16 AcsCapability;
  UINT16 AcsControl;
  EFI_DEVICE_PATH_PROTOCOL *DevicePath;  // owned copy
  UINT8 DevicePathDepth;
  PCI_TREE_NODE *Children;               // owned array of node copies
  UINT64 ChildCount;
  UINT8 ConfigSpace[QOR_CONFIG_SPACE_SIZE];
};
#pragma pack(pop)

#define PCI_CAPABILITY_ID_PM 0x01
#define PCI_EXPRESS_EXTENDED_CAPABILITY_AER 0x0001
#define PCI_EXPRESS_EXTENDED_CAPABILITY_SERIAL_NUMBER 0x0003
#define PCI_EXPRESS_EXTENDED_CAPABILITY_ACS 0x000D
#define PCI_EXPRESS_EXTENDED_CAPABILITY_SECONDARY_PCIE 0x0019
#define PCI_EXPRESS_EXTENDED_CAPABILITY_DPC 0x001D

extern PCI_TREE_NODE *gQorPciTreeNodes;
extern UINT64 gQorPciTreeNodeCount;

UINT8 QorPciFindCapability(EFI_PCI_IO_PROTOCOL *PciIo, UINT8 CapId);
UINT16 QorPciFindExtCapability(EFI_PCI_IO_PROTOCOL *PciIo, UINT16 CapId);
VOID QorCollectPciTree(VOID);
JSON_NODE *QorPciTreeNodeToJson(CONST PCI_TREE_NODE *Node);
VOID QorFreePciTree(PCI_TREE_NODE *Nodes, UINT64 Count);
EFI_STATUS QorFillPcieTopology(UPLOAD_SECTION *Section);

#endif  // QOR_PCI_RESOURCES_PCI_TREE_H_
