#include "emulator/pci/lspci_export.h"

#include <vector>

#include "emulator/pci/lspci_dump.h"

namespace qor::emu {

std::string LspciDumpOf(const PciBus &Bus) {
  std::vector<DumpedFunction> Functions;
  for (PciFunctionSnapshot &Snapshot : Bus.Snapshot()) {
    const PciLocation &L = Snapshot.Location;
    Functions.push_back({L.Segment, L.Bus, L.Device, L.Function, std::move(Snapshot.Bytes)});
  }
  return WriteLspciDump(std::move(Functions));
}

}  // namespace qor::emu
