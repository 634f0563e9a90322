// Devices whose own link registers do not describe the slot link, and the
// handler that reads the right function for each. All four ids must match;
// row 12 repeats row 11 and is never reached, as in the shipped table.
#include "pcie/pcie_device_info.h"

namespace {

struct LINK_UPDATE_ROW {
  PCIE_DEVICE_IDS Ids;
  PCIE_LINK_UPDATE_HANDLER Handler;
};

CONST LINK_UPDATE_ROW kLinkUpdateTable[] = {
    {{0x10B5, 0x8624, 0x0000, 0x0000}, BridgeLinkWidthUpdate},
    {{0x8086, 0x37D0, 0x8086, 0x0002}, RootPortLinkUpdate},
    {{0x8086, 0x37C8, 0x8086, 0x0001}, RootPortLinkUpdateX8},
    {{0x10DE, 0x25B6, 0x10DE, 0x14A9}, RootPortGpuUpdate},
    {{0x8086, 0x56C1, 0x8086, 0x4905}, RootPortGpuUpdate},
    {{0x8086, 0x56A0, 0x1EF7, 0x1334}, RootPortGpuUpdate},
    {{0x1E3E, 0x0003, 0x0000, 0x0001}, BIV150GpuUpdate},
    {{0x1E3E, 0x000B, 0x0000, 0x0001}, BIV150GpuUpdate},
    {{0x1F36, 0x7030, 0x1F36, 0x7000}, BIV150GpuUpdate},
    {{0x1E9F, 0x27C6, 0x1E9F, 0x020C}, SwitchOrRootUpdateBroadcom},
    {{0x1AF4, 0x1041, 0x1BD4, 0xF006}, RootPortGpuUpdate},
    {{0x1AF4, 0x1041, 0x1BD4, 0xF006}, RootPortGpuUpdate},
    {{0x1AF4, 0x1041, 0x1D22, 0x1100}, RootPortGpuUpdate},
    {{0x8086, 0x56C2, 0x8086, 0x4906}, SwitchOrRootUpdateBroadcom},
};

}  // namespace

PCIE_LINK_UPDATE_HANDLER QorFindLinkUpdateHandler(CONST PCIE_DEVICE_INFO *Record) {
  for (CONST LINK_UPDATE_ROW &Row : kLinkUpdateTable) {
    if (QorPcieIdsMatch(&Row.Ids, Record)) return Row.Handler;
  }
  return nullptr;
}
