// The PcieTopology section: the PCI tree with every function's identity,
// IIO placement and capability registers; every value is a string.
#include "json/json_members.h"
#include "pci_resources/pci_tree.h"
#include "platform/debug_log.h"
#include "platform/system_information.h"

namespace {
constexpr UINT16 kSlotImplemented = 0x0100;
}

JSON_NODE *QorPciTreeNodeToJson(CONST PCI_TREE_NODE *Node) {
  if (Node == nullptr || Node->Valid == 0) return nullptr;
  JSON_NODE *O = JsonCreateObject();
  if (O == nullptr) return nullptr;
  BOOLEAN Bridge = (Node->HeaderType & 1) != 0;
  JsonAddFormatted(O, "Socket", "0x%x", (UINT32)Node->Socket);
  JsonAddFormatted(O, "Segment", "0x%llx", Node->Segment);
  JsonAddFormatted(O, "Bus", "0x%llx", Node->Bus);
  JsonAddFormatted(O, "Device", "0x%llx", Node->Device);
  JsonAddFormatted(O, "Function", "0x%llx", Node->Function);
  JsonAddFormatted(O, "VendorID", "0x%x", Node->VendorID);
  JsonAddFormatted(O, "DeviceID", "0x%x", Node->DeviceID);
  JsonAddFormatted(O, "RevisionID", "0x%x", (UINT32)Node->RevisionID);
  JsonAddFormatted(O, "ClassCode", "0x%lx", (UINT64)Node->ClassCode);
  if (Node->IsRootPort) {
    JsonAddFormatted(O, "RootPortIndex", "%d", (UINT32)(Node->RootPortIndex % QOR_IIO_PORTS_PER_SOCKET));
  }
  JsonAddText(O, "DeviceType", Bridge ? "Bridge" : "EndPoint");
  if (Bridge) {
    JsonAddFormatted(O, "Primary Bus Number", "0x%x", (UINT32)Node->PrimaryBus);
    JsonAddFormatted(O, "Secondary Bus Number", "0x%x", (UINT32)Node->SecondaryBus);
    JsonAddFormatted(O, "Subordinate Bus Number", "0x%x", (UINT32)Node->SubordinateBus);
  } else {
    JsonAddFormatted(O, "Subsystem VendorID", "0x%x", (UINT32)Node->SubsystemVendorID);
    JsonAddFormatted(O, "Subsystem DeviceID", "0x%x", (UINT32)Node->SubsystemID);
  }
  JsonAddText(O, "PCI or PCIe", Node->IsPcie ? "PCIe" : "PCI");
  if (Node->PcieCapValid) {
    JsonAddFormatted(O, "PCIe Capability Register", "0x%x", (UINT32)Node->PcieCapabilities);
    JsonAddFormatted(O, "Device Capability Register", "0x%lx", (UINT64)Node->DeviceCapabilities);
    if (Node->LinkCapabilities != 0) {
      JsonAddFormatted(O, "Link Capability Register", "0x%lx", (UINT64)Node->LinkCapabilities);
    }
    if ((Node->PcieCapabilities & kSlotImplemented) != 0) {
      JsonAddFormatted(O, "Slot Capability Register", "0x%lx", (UINT64)Node->SlotCapabilities);
    }
    if (Node->DeviceCapabilities2 != 0) {
      JsonAddFormatted(O, "Device Capability 2 Register", "0x%lx", (UINT64)Node->DeviceCapabilities2);
    }
    if (Node->LinkCapabilities2 != 0) {
      JsonAddFormatted(O, "Link Capability 2 Register", "0x%lx", (UINT64)Node->LinkCapabilities2);
    }
  }
  if (Node->PmValid) {
    JsonAddFormatted(O, "Power Management Capability Register", "0x%lx", (UINT64)Node->PmCapabilities);
    JsonAddFormatted(O, "Power Management Control and Status Register", "0x%lx", (UINT64)Node->PmControlStatus);
  }
  if (Node->LaneErrorValid) JsonAddFormatted(O, "Lane Error Status Register", "0x%lx", (UINT64)Node->LaneErrorStatus);
  if (Node->AerValid) {
    JsonAddFormatted(O, "Uncorrectable Error Mask Register", "0x%lx", (UINT64)Node->UncorrectableErrorMask);
    JsonAddFormatted(O, "Uncorrectable Error Severity Register", "0x%lx", (UINT64)Node->UncorrectableErrorSeverity);
    JsonAddFormatted(O, "Correctable Error Mask Register", "0x%lx", (UINT64)Node->CorrectableErrorMask);
  }
  if (Node->SerialNumberValid) JsonAddFormatted(O, "Device Serial Number Register", "0x%llx", Node->SerialNumber);
  if (Node->DpcValid) {
    JsonAddFormatted(O, "DPC Capability Register", "0x%x", (UINT32)Node->DpcCapability);
    JsonAddFormatted(O, "DPC Control Register", "0x%x", (UINT32)Node->DpcControl);
    JsonAddFormatted(O, "RP PIO Mask Register", "0x%x", Node->RpPioMask);
    JsonAddFormatted(O, "RP PIO Severity Register", "0x%x", Node->RpPioSeverity);
    JsonAddFormatted(O, "RP PIO SysError Register", "0x%x", Node->RpPioSysError);
    JsonAddFormatted(O, "RP PIO Exception Register", "0x%x", Node->RpPioException);
  }
  if (Node->AcsValid) {
    JsonAddFormatted(O, "PCIe ACS Capabilities Register", "0x%lx", (UINT64)Node->AcsCapability);
    JsonAddFormatted(O, "PCIe ACS Control Register", "0x%lx", (UINT64)Node->AcsControl);
  }
  if (Node->ChildCount != 0) {
    JsonAddFormatted(O, "ChildDeviceCount", "%lld", Node->ChildCount);
    JSON_NODE *Children = JsonCreateArray();
    for (UINT64 I = 0; Children != nullptr && I < Node->ChildCount; I++) {
      JsonAddItemToArray(Children, QorPciTreeNodeToJson(&Node->Children[I]));
    }
    JsonAddItemToObject(O, "ChildDevice", Children);
  }
  return O;
}

EFI_STATUS QorFillPcieTopology(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillPcieTopology ---start\n");
  gQorPciTreeNodes = nullptr;
  gQorPciTreeNodeCount = 0;
  QorCollectPciTree();
  // Without the node array the tree is empty, whatever the handle count.
  UINT64 Count = gQorPciTreeNodes != nullptr ? gQorPciTreeNodeCount : 0;
  JSON_NODE *Root = JsonCreateObject();
  if (Root != nullptr) {
    JSON_NODE *Tree = JsonCreateArray();
    for (UINT64 I = 0; Tree != nullptr && I < Count; I++) {
      JsonAddItemToArray(Tree, QorPciTreeNodeToJson(&gQorPciTreeNodes[I]));
    }
    // "Count" is the number of PCI I/O handles, moved nodes included.
    JsonAddItemToObject(Root, "Count", JsonCreateNumber((INT64)gQorPciTreeNodeCount));
    JsonAddItemToObject(Root, "PciTree", Tree);
  }
  QorPrintTreeIntoSection(Section, Root);
  QorFreePciTree(gQorPciTreeNodes, Count);
  gQorPciTreeNodes = nullptr;
  gQorPciTreeNodeCount = 0;
  return QorSetSectionFilled(Section->Index);
}
