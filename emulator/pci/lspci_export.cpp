#include "emulator/pci/lspci_export.h"

#include <vector>

#include "emulator/pci/lspci_dump.h"

namespace qor::emu {

std::string LspciDumpOf(const PciBus &Bus) {
  std::vector<DumpedFunction> Functions;
  for (PciFunctionSnapshot &Snapshot : Bus.Snapshot()) {
    Functions.push_back({Snapshot.Location, std::move(Snapshot.Bytes)});
  }
  return WriteLspciDump(std::move(Functions));
}

}  // namespace qor::emu
