// The machine's PCI bus from a board: its host bridges and functions, the
// PCH at 0000:00:1f.0 from "pch" unless a function sits there, the faults.
#ifndef QOR_EMULATOR_PCI_PCI_BUS_FROM_BOARD_H_
#define QOR_EMULATOR_PCI_PCI_BUS_FROM_BOARD_H_

#include "emulator/pci/pci_bus.h"

namespace qor::emu {

struct Board;

void BuildPciBus(const Board &Board, PciBus *Bus);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_BUS_FROM_BOARD_H_
