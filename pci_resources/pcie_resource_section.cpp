// The PcieResource section: the sorted resource list and the decode ranges
// as a JSON tree.
#include "json/json_members.h"
#include "pci_resources/pci_res_info.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/memory_lib.h"

namespace {

CONST CHAR8 *SlotDescText(UINT64 Code) {
  switch (Code) {
    case QOR_SLOT_DESC_INTERNAL_DEVICE:
      return "NoSlot:Internal device has no slot number. This internal device may belongs to PCH or CPU.";
    case QOR_SLOT_DESC_INTERNAL_BRIDGE:
      return "NoSlot:Internal bridge has no slot number. This internal bridge may belongs to PCH or CPU.";
    case QOR_SLOT_DESC_ONBOARD_DEVICE:
      return "NoSlot:Onboard device has no slot number.";
    case QOR_SLOT_DESC_ONBOARD_SWITCH:
      return "NoSlot:Onboard switch has no slot number.";
    case QOR_SLOT_DESC_BRIDGE_NOT_USP:
      return "NoSlot:Bridge is not switch USP and has no slot number.";
    case QOR_SLOT_DESC_BRIDGE_BEHIND_PCH:
      return "NoSlot:Bridge is behind PCH PCIe Root Port, has no valid slot number.";
    case QOR_SLOT_DESC_DEVICE_BEHIND_PCH:
      return "NoSlot:Device is behind PCH PCIe Root Port, has no valid slot number.";
    default:
      return nullptr;
  }
}

CONST CHAR8 *SubDevSlotDescText(UINT64 Code) {
  switch (Code) {
    case QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED:
      return "NoSlot:Slot not implement.";
    case QOR_SLOT_DESC_ENDPOINT:
      return "NoSlot:This is endpoint device.";
    default:
      return nullptr;
  }
}

CONST CHAR8 *RangeText(UINT8 Kind) {
  switch (Kind) {
    case QOR_RANGE_VGA:
      return "This memory range belongs to VGA. VGA range is a legacy graphics area in MMIO. Accesses that hit this "
             "range are send to VGA_Target.";
    case QOR_RANGE_PAM:
      return "This memory range belongs to PAM. PAM is a legacy BIOS ROM area in MMIO.";
    case QOR_RANGE_TSEG:
      return "This memory range belongs to TSEG. TSEG is only for SMM, and not accessible in normal operating mode.";
    case QOR_RANGE_MESEG:
      return "This memory range belongs to MESEG. MESEG is the private memory for ME.";
    case QOR_RANGE_NO_EARLY_GO:
      return "This memory range belongs to NoEarlyGo. NoEarlyGo is 32MB in size and contains Flash, Intel TXT, and "
             "IOAPIC regions and so on.";
    default:
      return nullptr;
  }
}

VOID Swap(PCI_RES_INFO *A, PCI_RES_INFO *B, PCI_RES_INFO *Scratch) {
  if (A == B) return;
  QorCopyMem(Scratch, A, sizeof(*Scratch));
  QorCopyMem(A, B, sizeof(*A));
  QorCopyMem(B, Scratch, sizeof(*B));
}

// Partitions around the last element: everything comparing 0 or less goes
// left. Each part is then sorted on its own, so the order in which the two
// parts are taken does not change the result; the smaller one recurses and
// the larger one loops, which bounds the stack by log2 of the count.
VOID QuickSort(PCI_RES_INFO *List, UINT64 Count, PCI_RES_INFO *Scratch) {
  while (Count > 1) {
    PCI_RES_INFO *Pivot = &List[Count - 1];
    UINT64 Left = 0;
    for (UINT64 I = 0; I + 1 < Count; I++) {
      if (QorComparePciRes(&List[I], Pivot) <= 0) Swap(&List[Left++], &List[I], Scratch);
    }
    Swap(&List[Left], Pivot, Scratch);
    UINT64 RightCount = Count - Left - 1;
    if (Left < RightCount) {
      QuickSort(List, Left, Scratch);
      List += Left + 1;
      Count = RightCount;
    } else {
      QuickSort(List + Left + 1, RightCount, Scratch);
      Count = Left;
    }
  }
}

JSON_NODE *ResourceObject(CONST PCI_RES_INFO *R) {
  JSON_NODE *Object = JsonCreateObject();
  if (Object == nullptr) return nullptr;
  JsonAddFormatted(Object, "StartAddress", "0x%llx", R->StartAddress);
  JsonAddFormatted(Object, "EndAddress", "0x%llx", R->EndAddress);
  JSON_NODE *Detail = JsonCreateObject();
  if (Detail != nullptr) {
    BOOLEAN Bridge = R->HeaderType == 1;
    JsonAddText(Detail, "ResourceType", R->ResourceType == QOR_RES_TYPE_IO ? "IO" : "MMIO");
    JsonAddText(Detail, "Description",
                !Bridge ? "This resource is consumed by the end point device."
                : R->ConsumedBySelf == 1 ? "This resource is consumed by the bridge itself."
                                         : "This resource is consumed by devices that behind the bridge.");
    JsonAddText(Detail, "DeviceType", Bridge ? "Bridge" : "EndPoint");
    JsonAddFormatted(Detail, "VendorID", "0x%x", (UINT32)R->VendorID);
    JsonAddFormatted(Detail, "DeviceID", "0x%x", (UINT32)R->DeviceID);
    JsonAddFormatted(Detail, "SegmentNumber", "0x%llx", R->Segment);
    JsonAddFormatted(Detail, "BusNumber", "0x%llx", R->Bus);
    JsonAddFormatted(Detail, "DeviceNumber", "0x%llx", R->Device);
    JsonAddFormatted(Detail, "FunctionNumber", "0x%llx", R->Function);
    JsonAddFormatted(Detail, "ClassCode", "0x%lx", (UINT64)R->ClassCode);
    if (R->SlotDesc < 256) {
      JsonAddFormatted(Detail, "SlotDesc", "0x%llx", R->SlotDesc);
    } else if (SlotDescText(R->SlotDesc) != nullptr) {
      JsonAddText(Detail, "SlotDesc", SlotDescText(R->SlotDesc));
    }
    if (R->SubDevSlotDesc < 256) {
      JsonAddFormatted(Detail, "SubDevSlotDesc", "0x%llx", R->SubDevSlotDesc);
    } else if (SubDevSlotDescText(R->SubDevSlotDesc) != nullptr) {
      JsonAddText(Detail, "SubDevSlotDesc", SubDevSlotDescText(R->SubDevSlotDesc));
    }
  }
  JsonAddItemToObject(Object, "ResourceDetail", Detail);
  return Object;
}

JSON_NODE *RangeObject(CONST LEGACY_DECODE_INFO *D) {
  JSON_NODE *Object = JsonCreateObject();
  if (Object == nullptr) return nullptr;
  JsonAddFormatted(Object, "StartAddress", "0x%llx", D->StartAddress);
  JsonAddFormatted(Object, "EndAddress", "0x%llx", D->EndAddress);
  JSON_NODE *Detail = JsonCreateObject();
  if (Detail != nullptr) {
    switch (D->ResourceType) {
      case QOR_RES_TYPE_IO:
        JsonAddText(Detail, "ResourceType", "IO");
        break;
      case QOR_RES_TYPE_MMIO:
        JsonAddText(Detail, "ResourceType", "MMIO");
        break;
      case QOR_RES_TYPE_MMCFG:
        JsonAddText(Detail, "ResourceType", "MMCFG");
        JsonAddText(Detail, "Description",
                    "This memory range belongs to MMCFG. MMCFG is memory mapped PCIe configuration space.");
        break;
      case QOR_RES_TYPE_DRAM:
        JsonAddText(Detail, "ResourceType", "DRAM");
        break;
      case QOR_RES_TYPE_LEGACY_DECODE:
        JsonAddText(Detail, "ResourceType", "LegacyDecode");
        break;
      default:
        break;
    }
    if (RangeText(D->RangeKind) != nullptr) JsonAddText(Detail, "Description", RangeText(D->RangeKind));
  }
  JsonAddItemToObject(Object, "ResourceDetail", Detail);
  return Object;
}

}  // namespace

INTN QorComparePciRes(CONST PCI_RES_INFO *A, CONST PCI_RES_INFO *B) {
  if (A == nullptr) return B == nullptr ? 0 : -1;
  if (B == nullptr) return 1;
  if (A->StartAddress < B->StartAddress) return -1;
  if (A->StartAddress > B->StartAddress) return 1;
  if (A->EndAddress > B->EndAddress) return -1;
  if (A->EndAddress < B->EndAddress) return 1;
  // One-sided on purpose: a bridge compared with an endpoint counts as equal.
  return (A->HeaderType == 0 && B->HeaderType != 0) ? 1 : 0;
}

VOID QorSortPciRes(PCI_RES_INFO *List, UINT64 Count) {
  if (List == nullptr || Count < 2) return;
  PCI_RES_INFO *Scratch = (PCI_RES_INFO *)QorAllocatePool(sizeof(PCI_RES_INFO));
  if (Scratch == nullptr) return;
  QuickSort(List, Count, Scratch);
  QorFreePool(Scratch);
}

EFI_STATUS QorFillPcieResource(UPLOAD_SECTION *Section) {
  QorDebugPrint(DEBUG_INFO, "QorFillPcieResource ---start\n");
  QorResetPciResLists();
  QorCollectPCIRes();
  QorSortPciRes(gQorPciResList, gQorPciResCount);
  QorCollectLegacyAndMmCfgDecodeRes();

  JSON_NODE *Root = JsonCreateObject();
  if (Root != nullptr) {
    JSON_NODE *Resources = JsonCreateArray();
    for (UINT64 I = 0; Resources != nullptr && I < gQorPciResCount; I++) {
      JsonAddItemToArray(Resources, ResourceObject(&gQorPciResList[I]));
    }
    JsonAddItemToObject(Root, "PCIMemIoResources", Resources);
    JSON_NODE *Ranges = JsonCreateArray();
    for (UINT64 I = 0; Ranges != nullptr && I < gQorDecodeCount; I++) {
      JsonAddItemToArray(Ranges, RangeObject(&gQorDecodeList[I]));
    }
    // "OtherReourceRange" is the key the BMC reads; the spelling stays.
    JsonAddItemToObject(Root, "OtherReourceRange", Ranges);
  }
  QorPrintTreeIntoSection(Section, Root);
  if (gQorPciResList != nullptr) QorFreePool(gQorPciResList);
  if (gQorDecodeList != nullptr) QorFreePool(gQorDecodeList);
  QorResetPciResLists();
  return QorSetSectionFilled(Section->Index);
}
