// The IIO stack table of the system information block: which buses each
// stack decodes and where its root port sits. Unless the board gives it,
// each PCI Express root port found on the bus is one valid stack entry:
// its location, and its secondary to subordinate buses as the range (so a
// device's entry names the root port above it). At most 64 entries, in
// enumeration order.
#ifndef QOR_EMULATOR_PCI_IIO_STACK_TABLE_H_
#define QOR_EMULATOR_PCI_IIO_STACK_TABLE_H_

#include <cstdint>
#include <vector>

#include "emulator/pci/pci_bus.h"

namespace qor::emu {

struct Board;

void WriteIioStackTable(const Board &Board, const std::vector<EnumeratedFunction> &Functions,
                        std::vector<uint8_t> *Block);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_IIO_STACK_TABLE_H_
