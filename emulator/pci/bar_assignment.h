// Bases for the BARs a board leaves without one, as a PCI bus driver
// assigns them before any other driver runs. Every such BAR gets an address
// aligned to its size, from one of three pools:
//   I/O                              0x1000 - 0xFFFF
//   memory (non-prefetchable, and    0x90000000 - 0xFBFFFFFF (below 4 GiB,
//   32-bit prefetchable)             above the MMCFG window)
//   64-bit prefetchable memory       0x200_0000_0000 - 0x3FFF_FFFF_FFFF
// Host bridge by host bridge, in board order, the BARs below one bridge are
// packed into one block per pool (largest alignment first), and the block
// of a bridge's secondary side is an item of the bus above it, rounded to
// the window granule (4 KiB I/O, 1 MiB memory). A host bridge's blocks take
// the lowest free addresses of their pools; BARs whose base the board gives
// are never overlapped. So the windows derived afterwards from the BARs
// (bridge_windows.h) hold exactly their subtree and never overlap a
// sibling's. When a host bridge's block does not fit its pool, what sits on
// its root bus (a BAR, or a bridge with everything below it) is placed one
// by one, largest alignment first, while room is left; the rest stays
// unassigned (base 0), as the devices a bus driver cannot fit.
// BARs below a bridge whose windows the board sets itself ("windows" or
// raw bytes) are left as they are: they have no window to be placed in.
#ifndef QOR_EMULATOR_PCI_BAR_ASSIGNMENT_H_
#define QOR_EMULATOR_PCI_BAR_ASSIGNMENT_H_

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "emulator/pci/pci_bus.h"
#include "emulator/pci/pci_function.h"

namespace qor::emu {

struct PciFunctionDef;

struct BarAssignmentPlan {
  std::map<PciLocation, uint8_t> Registers;  // per function: bit i, BAR register i takes a base
  std::set<PciLocation> DerivedWindows;      // bridges whose windows follow the BARs below them
};

void AssignBarBases(const std::vector<PciHostBridge> &Hosts, const BarAssignmentPlan &Plan,
                    std::vector<PciFunctionDef> *Functions);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_BAR_ASSIGNMENT_H_
