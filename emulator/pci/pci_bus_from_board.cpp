#include "emulator/pci/pci_bus_from_board.h"

#include "emulator/board.h"

namespace qor::emu {

namespace {
// The PCH's LPC/eSPI bridge: a conventional multi-function ISA bridge.
std::vector<uint8_t> PchConfig(const Board &Board) {
  std::vector<uint8_t> Pch(kPciConventionalConfigSize, 0);
  Pch[0x00] = 0x86;
  Pch[0x01] = 0x80;
  Pch[0x02] = static_cast<uint8_t>(Board.PchDeviceId);
  Pch[0x03] = static_cast<uint8_t>(Board.PchDeviceId >> 8);
  Pch[0x04] = 0x07;
  Pch[0x08] = Board.PchRevisionId;
  Pch[0x0A] = 0x01;  // ISA bridge
  Pch[0x0B] = 0x06;
  Pch[0x0E] = 0x80;  // multi-function
  return Pch;
}
}  // namespace

void BuildPciBus(const Board &Board, PciBus *Bus) {
  for (const PciHostBridge &Host : Board.Pci.HostBridges) Bus->AddHostBridge(Host);
  for (const PciFunctionDef &F : Board.Pci.Functions) {
    Bus->AddFunction(F.Location(), F.Config, F.Bars).Faults() = F.Faults;
  }
  const PciLocation PchLocation{0, 0, 31, 0};
  if (Bus->Find(PchLocation) == nullptr) Bus->AddFunction(PchLocation, PchConfig(Board));
}

}  // namespace qor::emu
