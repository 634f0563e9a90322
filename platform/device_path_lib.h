// Device path helpers of the driver: walking nodes, size, duplication, node
// removal and conversion to the UEFI text forms. A node whose length is below
// the 4-byte header is treated as the end of the path, so a malformed path
// never makes a walk run away.
#ifndef QOR_PLATFORM_DEVICE_PATH_LIB_H_
#define QOR_PLATFORM_DEVICE_PATH_LIB_H_

#include "platform/device_path.h"

UINTN QorDevicePathNodeLength(CONST EFI_DEVICE_PATH_PROTOCOL *Node);
// True for the End node of a whole path (type 0x7F, sub-type 0xFF) and for a
// malformed node.
BOOLEAN QorIsDevicePathEnd(CONST EFI_DEVICE_PATH_PROTOCOL *Node);
EFI_DEVICE_PATH_PROTOCOL *QorNextDevicePathNode(CONST EFI_DEVICE_PATH_PROTOCOL *Node);
// Nodes before the End node.
UINT64 QorDevicePathNodeCount(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath);
// Bytes of the path including its End node; 0 for NULL.
UINTN QorGetDevicePathSize(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath);
// A pool copy of the path (up to and including the End node), or NULL.
EFI_DEVICE_PATH_PROTOCOL *QorDuplicateDevicePath(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath);
// Writes an End node over the last node before the End node; a path that is
// only an End node stays as it is.
VOID QorRemoveLastDevicePathNode(EFI_DEVICE_PATH_PROTOCOL *DevicePath);
// Writes an End node over node Depth (0-based), leaving Depth nodes.
VOID QorSetDevicePathEndAt(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth);
// The path in its text form ("PciRoot(0x0)/Pci(0x1,0x0)"), in a pool buffer
// the caller frees; NULL when the pool runs out. The nodes of a PCI tree
// (PciRoot, PcieRoot, Pci, Ctrl, NVMe, MAC) have one text form whatever
// DisplayOnly and AllowShortcuts say; other nodes print in the generic
// Path(type,subtype,data) form.
CHAR16 *QorConvertDevicePathToText(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath, BOOLEAN DisplayOnly,
                                   BOOLEAN AllowShortcuts);

#endif  // QOR_PLATFORM_DEVICE_PATH_LIB_H_
