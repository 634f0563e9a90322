// The forwarding windows of the bridges a board builds, as a bus driver
// would program them: unless a bridge says otherwise ("windows"), its I/O,
// memory and prefetchable windows are opened just wide enough for the BARs
// of every function on its secondary to subordinate buses (I/O in 4 KiB,
// memory in 1 MiB granules). The prefetchable window decodes 64 bits and
// forwards the 64-bit prefetchable BARs; 32-bit prefetchable BARs go through
// the memory window, as bus drivers place them when the prefetchable window
// is a 64-bit one (so that window never has to reach below 4 GiB). A window
// with nothing to forward stays closed (base above limit).
#ifndef QOR_EMULATOR_PCI_BRIDGE_WINDOWS_H_
#define QOR_EMULATOR_PCI_BRIDGE_WINDOWS_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "emulator/pci/pci_bus.h"

namespace qor::emu {

class JsonField;
struct PciFunctionDef;

// "windows" of a bridge: "auto" (the default), "closed", or explicit
// ranges {"io": [first, last], "memory": [...], "prefetchable": [...]}
// written into Config (a window left out stays closed). Returns whether the
// windows are to be derived.
bool ParseBridgeWindows(const JsonField &Windows, std::vector<uint8_t> *Config);

// Opens the windows of the bridges of Functions whose locations are in
// Derived from the BARs below them.
void AssignBridgeWindows(const std::set<PciLocation> &Derived, std::vector<PciFunctionDef> *Functions);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_BRIDGE_WINDOWS_H_
