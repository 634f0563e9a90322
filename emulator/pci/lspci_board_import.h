// The board member "pci": {"import": "FILE"}: the machine of an lspci -xxxx
// dump (docs/board-pci-import.md) becomes host bridges and fixed functions
// of the board's PCI description.
#ifndef QOR_EMULATOR_PCI_LSPCI_BOARD_IMPORT_H_
#define QOR_EMULATOR_PCI_LSPCI_BOARD_IMPORT_H_

#include <set>
#include <string>

#include "emulator/pci/board_pci.h"

namespace qor::emu {

// Reads the dump Import names (relative to Directory unless absolute) and
// adds its host bridges and its functions to Pci; a function at a location
// already in Taken (given by the board itself) is left out. Throws
// BoardError naming the file and, for a malformed dump, its line.
void AddLspciImport(const JsonField &Import, const std::string &Directory, PciDef *Pci,
                    std::set<PciLocation> *Taken);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_LSPCI_BOARD_IMPORT_H_
