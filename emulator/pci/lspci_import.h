// A machine from a configuration-space dump: the host bridges and the tree
// a PCI bus driver would see behind the bus numbers the dump's bridges hold,
// and a size for every BAR, which a dump does not record (see
// bar_size_estimate.h).
//
// - A bridge (header type 1 or 2) leads to its secondary bus when that bus
//   number is above its own bus and not above its subordinate bus; any
//   other setting (an unconfigured bridge reads 0) leads nowhere.
// - A function's parent is the bridge whose secondary bus it sits on; a bus
//   that is no bridge's secondary bus is a root bus.
// - Each root bus of a segment gets a host bridge, numbered (UID) in order
//   of segment and root bus from 0; it decodes from its root bus up to the
//   highest bus number its tree uses (bridges' subordinate buses included),
//   stopping below the next root bus of the segment.
#ifndef QOR_EMULATOR_PCI_LSPCI_IMPORT_H_
#define QOR_EMULATOR_PCI_LSPCI_IMPORT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "emulator/pci/lspci_dump.h"

namespace qor::emu {

// A dump whose bus numbers cannot be one machine; the message names the
// functions concerned.
class LspciImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ImportedFunction {
  DumpedFunction Dumped;             // location and bytes as dumped
  std::array<uint64_t, 6> BarSizes{};  // 0: no BAR there (or the upper half of a 64-bit BAR)
  int Parent = -1;                   // index of the bridge above; -1 on a root bus
  size_t HostBridge = 0;             // index into ImportedMachine::HostBridges
};

struct ImportedHostBridge {
  uint16_t Segment = 0;
  uint32_t Uid = 0;
  uint8_t BusBase = 0;   // the root bus
  uint8_t BusLimit = 0;
};

struct ImportedMachine {
  std::vector<ImportedHostBridge> HostBridges;  // in order of segment and root bus
  std::vector<ImportedFunction> Functions;      // in order of location
};

// Throws LspciImportError for a dump without functions or one whose tree
// reaches past the next root bus of its segment.
ImportedMachine ImportLspciMachine(const std::vector<DumpedFunction> &Functions);

// The bus a bridge leads to under the rule above; -1 when it leads nowhere
// (or the function is no bridge).
int SecondaryBusOf(const DumpedFunction &Function);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_LSPCI_IMPORT_H_
