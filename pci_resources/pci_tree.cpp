// Collection and linking of the PCI tree: one node per PCI I/O handle, then
// every node moved under the node one level up whose device path is a
// prefix of its own, deepest level first.
#include "pci_resources/pci_res_info.h"
#include "pci_resources/pci_tree.h"
#include "pcie/pcie_device_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"

PCI_TREE_NODE *gQorPciTreeNodes = nullptr;
UINT64 gQorPciTreeNodeCount = 0;

namespace {

constexpr UINT32 kHeaderBytes = 64;
constexpr UINT64 kMinLinkDepth = 3;
constexpr UINTN kEndNodeSize = 4;

template <typename T>
T At(CONST UINT8 *Bytes, UINTN Offset) {
  T Value;
  QorCopyMem(&Value, Bytes + Offset, sizeof(T));
  return Value;
}

// Reads Count bytes at Offset into Block; TRUE when the read succeeded.
BOOLEAN ReadBlock(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset, UINTN Count, UINT8 *Block) {
  return !EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Offset, Count, Block));
}

VOID ReadCapabilities(EFI_PCI_IO_PROTOCOL *PciIo, PCI_TREE_NODE *Node) {
  UINT8 Block[72];
  UINT8 Pm = QorPciFindCapability(PciIo, PCI_CAPABILITY_ID_PM);
  if (Pm != 0 && ReadBlock(PciIo, Pm, 8, Block)) {
    Node->PmValid = 1;
    Node->PmCapabilities = At<UINT16>(Block, 2);
    Node->PmControlStatus = At<UINT16>(Block, 4);
  }
  UINT8 Pcie = QorPciFindCapability(PciIo, PCI_CAPABILITY_ID_PCI_EXPRESS);
  if (Pcie == 0) return;
  Node->IsPcie = 1;
  if (ReadBlock(PciIo, Pcie, 60, Block)) {
    Node->PcieCapValid = 1;
    Node->PcieCapabilities = At<UINT16>(Block, 0x02);
    Node->DeviceCapabilities = At<UINT32>(Block, 0x04);
    Node->LinkCapabilities = At<UINT32>(Block, 0x0C);
    Node->SlotCapabilities = At<UINT32>(Block, 0x14);
    Node->DeviceCapabilities2 = At<UINT32>(Block, 0x24);
    Node->LinkCapabilities2 = At<UINT32>(Block, 0x2C);
  }
  UINT16 Offset = QorPciFindExtCapability(PciIo, PCI_EXPRESS_EXTENDED_CAPABILITY_SECONDARY_PCIE);
  if (Offset != 0 && ReadBlock(PciIo, Offset, 16, Block)) {
    Node->LaneErrorValid = 1;
    Node->LaneErrorStatus = At<UINT32>(Block, 0x08);
  }
  Offset = QorPciFindExtCapability(PciIo, PCI_EXPRESS_EXTENDED_CAPABILITY_AER);
  if (Offset != 0 && ReadBlock(PciIo, Offset, 72, Block)) {
    Node->AerValid = 1;
    Node->UncorrectableErrorMask = At<UINT32>(Block, 0x08);
    Node->UncorrectableErrorSeverity = At<UINT32>(Block, 0x0C);
    Node->CorrectableErrorMask = At<UINT32>(Block, 0x14);
  }
  Offset = QorPciFindExtCapability(PciIo, PCI_EXPRESS_EXTENDED_CAPABILITY_SERIAL_NUMBER);
  if (Offset != 0 && ReadBlock(PciIo, Offset, 12, Block)) {
    Node->SerialNumberValid = 1;
    Node->SerialNumber = At<UINT64>(Block, 0x04);
  }
  Offset = QorPciFindExtCapability(PciIo, PCI_EXPRESS_EXTENDED_CAPABILITY_DPC);
  if (Offset != 0 && ReadBlock(PciIo, Offset, 68, Block)) {
    Node->DpcValid = 1;
    Node->DpcCapability = At<UINT16>(Block, 0x04);
    Node->DpcControl = At<UINT16>(Block, 0x06);
    Node->RpPioMask = At<UINT32>(Block, 0x10);
    Node->RpPioSeverity = At<UINT32>(Block, 0x14);
    Node->RpPioSysError = At<UINT32>(Block, 0x18);
    Node->RpPioException = At<UINT32>(Block, 0x1C);
  }
  Offset = QorPciFindExtCapability(PciIo, PCI_EXPRESS_EXTENDED_CAPABILITY_ACS);
  if (Offset != 0 && ReadBlock(PciIo, Offset, 9, Block)) {
    Node->AcsValid = 1;
    Node->AcsCapability = At<UINT16>(Block, 0x04);
    Node->AcsControl = At<UINT16>(Block, 0x06);
  }
  // The entry fields are compared only when an entry covers the bus.
  CONST QOR_IIO_TOPOLOGY_ENTRY *Entry = GetIioTopologyItem(Node->Segment, Node->Bus);
  if (Entry != nullptr) {
    Node->Socket = (UINT8)(Entry->PortIndex / QOR_IIO_PORTS_PER_SOCKET);
    if (Entry->Segment == Node->Segment && Entry->Bus == Node->Bus && Entry->Device == Node->Device &&
        Entry->Function == Node->Function) {
      Node->RootPortIndex = Entry->PortIndex;
      Node->IsRootPort = 1;
    }
  }
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, 0, Node->IsPcie ? QOR_CONFIG_SPACE_SIZE : 256, Node->ConfigSpace);
}

VOID FillNode(EFI_HANDLE Handle, PCI_TREE_NODE *Node) {
  EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo)) || PciIo == nullptr) {
    return;
  }
  QorDebugPrint(DEBUG_VERBOSE, "QorCollectPciTree Handle: %x\n", Handle);
  UINTN Segment = 0, Bus = 0, Device = 0, Function = 0;
  if (EFI_ERROR(PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function))) return;
  UINT16 VendorId = 0xFFFF;
  if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, 0, 1, &VendorId)) || VendorId == 0xFFFF) return;
  UINT8 Header[kHeaderBytes];
  if (!ReadBlock(PciIo, 0, kHeaderBytes, Header)) return;
  EFI_DEVICE_PATH_PROTOCOL *DevicePath = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&DevicePath)) ||
      DevicePath == nullptr) {
    QorDebugPrint(DEBUG_INFO, "QorCollectPciTree: Failed to locate Device path of handle: 0x%x .\n", Handle);
    return;
  }
  Node->Valid = 1;
  Node->Segment = Segment;
  Node->Bus = Bus;
  Node->Device = Device;
  Node->Function = Function;
  Node->VendorID = At<UINT16>(Header, 0x00);
  Node->DeviceID = At<UINT16>(Header, 0x02);
  Node->DevicePath = QorDuplicateDevicePath(DevicePath);
  Node->DevicePathDepth = (UINT8)QorDevicePathNodeCount(Node->DevicePath);
  Node->HeaderType = Header[0x0E];
  Node->RevisionID = Header[0x08];
  Node->ClassCode = ((UINT32)Header[0x0B] << 16) | ((UINT32)Header[0x0A] << 8) | Header[0x09];
  if ((Node->HeaderType & 0x7F) == 1) {
    Node->PrimaryBus = Header[0x18];
    Node->SecondaryBus = Header[0x19];
    Node->SubordinateBus = Header[0x1A];
  } else {
    Node->SubsystemVendorID = At<UINT16>(Header, 0x2C);
    Node->SubsystemID = At<UINT16>(Header, 0x2E);
  }
  ReadCapabilities(PciIo, Node);
}

BOOLEAN IsParentPath(CONST PCI_TREE_NODE *Parent, CONST PCI_TREE_NODE *Child) {
  UINTN Size = QorGetDevicePathSize(Parent->DevicePath);
  if (Size == kEndNodeSize || Parent->DevicePath == Child->DevicePath) return TRUE;
  // A child path shorter than its would-be parent cannot hold it as a prefix.
  if (QorGetDevicePathSize(Child->DevicePath) < Size) return FALSE;
  return QorCompareMem(Parent->DevicePath, Child->DevicePath, Size - kEndNodeSize) == 0;
}

BOOLEAN Linkable(CONST PCI_TREE_NODE *Node, UINT64 Depth) {
  return Node->Valid != 0 && Node->DevicePath != nullptr && Node->DevicePathDepth == Depth;
}

VOID MoveUnderParent(PCI_TREE_NODE *Nodes, UINT64 Count, UINT64 Child, UINT64 Depth) {
  for (UINT64 J = 0; J < Count; J++) {
    PCI_TREE_NODE *Parent = &Nodes[J];
    if (!Linkable(Parent, Depth - 1) || !IsParentPath(Parent, &Nodes[Child])) continue;
    PCI_TREE_NODE *Grown = (PCI_TREE_NODE *)QorAllocateZeroPool(sizeof(PCI_TREE_NODE) * (Parent->ChildCount + 1));
    if (Grown == nullptr) return;  // the node stays at the top level
    QorCopyMem(&Grown[Parent->ChildCount], &Nodes[Child], sizeof(PCI_TREE_NODE));
    if (Parent->Children != nullptr) {
      QorCopyMem(Grown, Parent->Children, sizeof(PCI_TREE_NODE) * Parent->ChildCount);
      QorFreePool(Parent->Children);
    }
    Parent->Children = Grown;
    Parent->ChildCount++;
    Nodes[Child].Valid = 0;  // the copy owns its path and children now
    return;
  }
}

}  // namespace

VOID QorCollectPciTree(VOID) {
  UINTN HandleCount = 0;
  EFI_HANDLE *Handles = nullptr;
  gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiPciIoProtocolGuid, nullptr, &HandleCount, &Handles);
  if (Handles == nullptr) return;
  QorDebugPrint(DEBUG_INFO, "QorCollectPciTree HandleCnt: %d\n", (UINT32)HandleCount);
  gQorPciTreeNodeCount = HandleCount;
  gQorPciTreeNodes = (PCI_TREE_NODE *)QorAllocateZeroPool(sizeof(PCI_TREE_NODE) * HandleCount);
  if (gQorPciTreeNodes == nullptr) {
    QorFreePool(Handles);
    QorDebugPrint(DEBUG_INFO, "QorCollectPciTree allocate pool for node list fail return\n");
    return;
  }
  UINT64 MaxDepth = 0;
  for (UINTN I = 0; I < HandleCount; I++) {
    FillNode(Handles[I], &gQorPciTreeNodes[I]);
    if (gQorPciTreeNodes[I].Valid && gQorPciTreeNodes[I].DevicePathDepth > MaxDepth) {
      MaxDepth = gQorPciTreeNodes[I].DevicePathDepth;
    }
  }
  QorDebugPrint(DEBUG_INFO, "QorCollectPciTree,     MaxDPDepth: %d  \n", (UINT32)MaxDepth);
  if (MaxDepth >= kMinLinkDepth) {
    for (UINT64 Depth = MaxDepth; Depth >= kMinLinkDepth; Depth--) {
      for (UINT64 I = 0; I < HandleCount; I++) {
        if (Linkable(&gQorPciTreeNodes[I], Depth)) MoveUnderParent(gQorPciTreeNodes, HandleCount, I, Depth);
      }
    }
  }
  QorFreePool(Handles);
}

VOID QorFreePciTree(PCI_TREE_NODE *Nodes, UINT64 Count) {
  if (Nodes == nullptr) return;
  for (UINT64 I = 0; I < Count; I++) {
    if (Nodes[I].Valid == 0) continue;
    QorFreePciTree(Nodes[I].Children, Nodes[I].ChildCount);
    if (Nodes[I].DevicePath != nullptr) QorFreePool(Nodes[I].DevicePath);
  }
  QorFreePool(Nodes);
}
