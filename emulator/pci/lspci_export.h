// The machine's configuration space as an lspci -xxxx dump: every function
// of the bus, with the bytes a reader sees now (faults applied) and as many
// as its space holds (4096 bytes for a PCI Express function or one given
// 4096 bytes, 256 otherwise). A boot takes it before the driver's entry and
// writes it as lspci.txt; `lspci -F lspci.txt -vvv` decodes it.
#ifndef QOR_EMULATOR_PCI_LSPCI_EXPORT_H_
#define QOR_EMULATOR_PCI_LSPCI_EXPORT_H_

#include <string>

#include "emulator/pci/pci_bus.h"

namespace qor::emu {

std::string LspciDumpOf(const PciBus &Bus);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_LSPCI_EXPORT_H_
