#include "platform/device_path_lib.h"

#include "platform/base_lib.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"

namespace {

constexpr UINTN kHeaderSize = sizeof(EFI_DEVICE_PATH_PROTOCOL);

// A growing UCS-2 text in pool memory.
struct TEXT_BUILDER {
  CHAR16 *Text;
  UINTN Capacity;  // characters, terminator included
  UINTN Length;
  BOOLEAN Failed;
};

VOID EFIAPI Append(TEXT_BUILDER *Builder, CONST CHAR8 *Format, ...) {
  if (Builder->Failed) return;
  CHAR16 Piece[160];
  VA_LIST Args;
  VA_START(Args, Format);
  UINTN Count = UnicodeVSPrintAsciiFormat(Piece, sizeof(Piece), Format, Args);
  VA_END(Args);
  if (Builder->Length + Count + 1 > Builder->Capacity) {
    UINTN Capacity = (Builder->Capacity + Count + 1) * 2;
    CHAR16 *Grown = (CHAR16 *)QorAllocateZeroPool(Capacity * sizeof(CHAR16));
    if (Grown == nullptr) {
      Builder->Failed = TRUE;
      return;
    }
    if (Builder->Text != nullptr) {
      QorCopyMem(Grown, Builder->Text, Builder->Length * sizeof(CHAR16));
      QorFreePool(Builder->Text);
    }
    Builder->Text = Grown;
    Builder->Capacity = Capacity;
  }
  QorCopyMem(Builder->Text + Builder->Length, Piece, Count * sizeof(CHAR16));
  Builder->Length += Count;
  Builder->Text[Builder->Length] = 0;
}

VOID AcpiToText(TEXT_BUILDER *B, CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  if (Node->SubType != ACPI_DP || QorDevicePathNodeLength(Node) < sizeof(ACPI_HID_DEVICE_PATH)) {
    Append(B, "Path(%u,%u)", Node->Type, Node->SubType);
    return;
  }
  ACPI_HID_DEVICE_PATH Acpi;
  QorCopyMem(&Acpi, Node, sizeof(Acpi));
  if ((Acpi.HID & 0xFFFF) == 0x41D0) {
    switch (EISA_ID_TO_NUM(Acpi.HID)) {
      case EISA_PNP_PCI_ROOT:
        Append(B, "PciRoot(0x%x)", Acpi.UID);
        return;
      case EISA_PNP_PCIE_ROOT:
        Append(B, "PcieRoot(0x%x)", Acpi.UID);
        return;
      default:
        Append(B, "Acpi(PNP%04x,0x%x)", EISA_ID_TO_NUM(Acpi.HID), Acpi.UID);
        return;
    }
  }
  Append(B, "Acpi(0x%08x,0x%x)", Acpi.HID, Acpi.UID);
}

// The generic form for nodes without a text form of their own: type,
// sub-type and the data bytes in hex.
VOID GenericToText(TEXT_BUILDER *B, CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  Append(B, "Path(%u,%u,", Node->Type, Node->SubType);
  CONST UINT8 *Data = (CONST UINT8 *)Node + kHeaderSize;
  for (UINTN I = 0; I + kHeaderSize < QorDevicePathNodeLength(Node); I++) Append(B, "%02X", Data[I]);
  Append(B, ")");
}

VOID NodeToText(TEXT_BUILDER *B, CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  UINTN Length = QorDevicePathNodeLength(Node);
  if (Node->Type == ACPI_DEVICE_PATH) {
    AcpiToText(B, Node);
  } else if (Node->Type == HARDWARE_DEVICE_PATH && Node->SubType == HW_PCI_DP && Length >= sizeof(PCI_DEVICE_PATH)) {
    PCI_DEVICE_PATH Pci;
    QorCopyMem(&Pci, Node, sizeof(Pci));
    Append(B, "Pci(0x%x,0x%x)", Pci.Device, Pci.Function);
  } else if (Node->Type == HARDWARE_DEVICE_PATH && Node->SubType == HW_CONTROLLER_DP &&
             Length >= sizeof(CONTROLLER_DEVICE_PATH)) {
    CONTROLLER_DEVICE_PATH Controller;
    QorCopyMem(&Controller, Node, sizeof(Controller));
    Append(B, "Ctrl(0x%x)", Controller.ControllerNumber);
  } else if (Node->Type == MESSAGING_DEVICE_PATH && Node->SubType == MSG_NVME_NAMESPACE_DP &&
             Length >= sizeof(NVME_NAMESPACE_DEVICE_PATH)) {
    NVME_NAMESPACE_DEVICE_PATH Nvme;
    QorCopyMem(&Nvme, Node, sizeof(Nvme));
    CONST UINT8 *Eui = (CONST UINT8 *)&Nvme.NamespaceUuid;
    Append(B, "NVMe(0x%x,%02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X)", Nvme.NamespaceId, Eui[7], Eui[6], Eui[5],
           Eui[4], Eui[3], Eui[2], Eui[1], Eui[0]);
  } else if (Node->Type == MESSAGING_DEVICE_PATH && Node->SubType == MSG_MAC_ADDR_DP &&
             Length >= sizeof(MAC_ADDR_DEVICE_PATH)) {
    MAC_ADDR_DEVICE_PATH Mac;
    QorCopyMem(&Mac, Node, sizeof(Mac));
    // Ethernet-like interfaces (types 0 and 1) show six address bytes.
    UINTN Bytes = (Mac.IfType == 0 || Mac.IfType == 1) ? 6 : 32;
    Append(B, "MAC(");
    for (UINTN I = 0; I < Bytes; I++) Append(B, "%02X", Mac.MacAddress[I]);
    Append(B, ",0x%x)", Mac.IfType);
  } else {
    GenericToText(B, Node);
  }
}

}  // namespace

UINTN QorDevicePathNodeLength(CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  return (UINTN)Node->Length[0] | ((UINTN)Node->Length[1] << 8);
}

BOOLEAN QorIsDevicePathEnd(CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  if (QorDevicePathNodeLength(Node) < kHeaderSize) return TRUE;
  return Node->Type == END_DEVICE_PATH_TYPE && Node->SubType == END_ENTIRE_DEVICE_PATH_SUBTYPE;
}

EFI_DEVICE_PATH_PROTOCOL *QorNextDevicePathNode(CONST EFI_DEVICE_PATH_PROTOCOL *Node) {
  return (EFI_DEVICE_PATH_PROTOCOL *)((CONST UINT8 *)Node + QorDevicePathNodeLength(Node));
}

UINT64 QorDevicePathNodeCount(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath) {
  UINT64 Count = 0;
  if (DevicePath == nullptr) return 0;
  for (CONST EFI_DEVICE_PATH_PROTOCOL *Node = DevicePath; !QorIsDevicePathEnd(Node); Node = QorNextDevicePathNode(Node)) {
    Count++;
  }
  return Count;
}

UINTN QorGetDevicePathSize(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath) {
  if (DevicePath == nullptr) return 0;
  CONST EFI_DEVICE_PATH_PROTOCOL *Node = DevicePath;
  while (!QorIsDevicePathEnd(Node)) Node = QorNextDevicePathNode(Node);
  return (UINTN)((CONST UINT8 *)Node - (CONST UINT8 *)DevicePath) + kHeaderSize;
}

EFI_DEVICE_PATH_PROTOCOL *QorDuplicateDevicePath(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath) {
  UINTN Size = QorGetDevicePathSize(DevicePath);
  if (Size == 0) return nullptr;
  EFI_DEVICE_PATH_PROTOCOL *Copy = (EFI_DEVICE_PATH_PROTOCOL *)QorAllocatePool(Size);
  if (Copy == nullptr) return nullptr;
  QorCopyMem(Copy, DevicePath, Size - kHeaderSize);
  // The copy always ends with a well-formed End node, also when the source
  // ended with a malformed one.
  QorSetDevicePathEndAt(Copy, QorDevicePathNodeCount(DevicePath));
  return Copy;
}

VOID QorSetDevicePathEndAt(EFI_DEVICE_PATH_PROTOCOL *DevicePath, UINT64 Depth) {
  EFI_DEVICE_PATH_PROTOCOL *Node = DevicePath;
  for (UINT64 I = 0; I < Depth && !QorIsDevicePathEnd(Node); I++) Node = QorNextDevicePathNode(Node);
  Node->Type = END_DEVICE_PATH_TYPE;
  Node->SubType = END_ENTIRE_DEVICE_PATH_SUBTYPE;
  Node->Length[0] = (UINT8)kHeaderSize;
  Node->Length[1] = 0;
}

VOID QorRemoveLastDevicePathNode(EFI_DEVICE_PATH_PROTOCOL *DevicePath) {
  UINT64 Count = QorDevicePathNodeCount(DevicePath);
  if (Count == 0) return;
  QorSetDevicePathEndAt(DevicePath, Count - 1);
}

CHAR16 *QorConvertDevicePathToText(CONST EFI_DEVICE_PATH_PROTOCOL *DevicePath, BOOLEAN DisplayOnly,
                                   BOOLEAN AllowShortcuts) {
  (VOID) DisplayOnly;
  (VOID) AllowShortcuts;
  if (DevicePath == nullptr) return nullptr;
  TEXT_BUILDER B = {nullptr, 0, 0, FALSE};
  Append(&B, "%a", "");
  BOOLEAN NeedSeparator = FALSE;
  for (CONST EFI_DEVICE_PATH_PROTOCOL *Node = DevicePath; !QorIsDevicePathEnd(Node); Node = QorNextDevicePathNode(Node)) {
    if (Node->Type == END_DEVICE_PATH_TYPE) {  // end of one instance of a multi-instance path
      Append(&B, ",");
      NeedSeparator = FALSE;
      continue;
    }
    if (NeedSeparator) Append(&B, "/");
    NodeToText(&B, Node);
    NeedSeparator = TRUE;
  }
  if (B.Failed) {
    if (B.Text != nullptr) QorFreePool(B.Text);
    return nullptr;
  }
  return B.Text;
}
