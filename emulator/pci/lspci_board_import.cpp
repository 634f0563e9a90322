#include "emulator/pci/lspci_board_import.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "emulator/board.h"
#include "emulator/board_json.h"
#include "emulator/pci/lspci_dump.h"
#include "emulator/pci/lspci_import.h"

namespace qor::emu {

namespace {

constexpr uint8_t kPciExpressCapabilityId = 0x10;
// A dump of every possible function with 4 KiB each would be far larger, but
// no machine has that many; the bound keeps a stray path (a device file, a
// disk image) from being read without end.
constexpr uintmax_t kMaxDumpBytes = 64u << 20;

std::string ReadDump(const std::filesystem::path &Path, const JsonField &Import) {
  std::error_code Error;
  if (!std::filesystem::is_regular_file(Path, Error)) {
    throw BoardError(Import.Path() + ": cannot read " + Path.string() + " (not a regular file)");
  }
  if (std::filesystem::file_size(Path, Error) > kMaxDumpBytes) {
    throw BoardError(Import.Path() + ": " + Path.string() + " is larger than 64 MiB, too large for a dump");
  }
  std::ifstream In(Path, std::ios::binary);
  if (!In) throw BoardError(Import.Path() + ": cannot read " + Path.string());
  std::stringstream Text;
  Text << In.rdbuf();
  return Text.str();
}

}  // namespace

void AddLspciImport(const JsonField &Import, const std::string &Directory, PciDef *Pci,
                    std::set<PciLocation> *Taken) {
  std::filesystem::path Path(Import.String());
  if (Path.is_relative() && !Directory.empty()) Path = std::filesystem::path(Directory) / Path;
  ImportedMachine Machine;
  try {
    Machine = ImportLspciMachine(ParseLspciDump(ReadDump(Path, Import)));
  } catch (const LspciDumpError &Error) {
    throw BoardError(Import.Path() + ": " + Path.string() + ": " + Error.what());
  } catch (const LspciImportError &Error) {
    throw BoardError(Import.Path() + ": " + Path.string() + ": " + Error.what());
  }

  // A host bridge's device paths start with PcieRoot when its tree holds a
  // PCI Express function, PciRoot otherwise (a conventional PCI machine).
  std::vector<bool> Express(Machine.HostBridges.size(), false);
  for (const ImportedFunction &F : Machine.Functions) {
    if (FindPciCapability(F.Dumped.Config, kPciExpressCapabilityId) != 0) Express[F.HostBridge] = true;
  }
  for (size_t I = 0; I < Machine.HostBridges.size(); I++) {
    const ImportedHostBridge &From = Machine.HostBridges[I];
    PciHostBridge Host;
    Host.Segment = From.Segment;
    Host.Uid = From.Uid;
    Host.FirstBus = From.BusBase;
    Host.LastBus = From.BusLimit;
    Host.PcieRoot = Express[I];
    Pci->HostBridges.push_back(Host);
  }
  for (const ImportedFunction &F : Machine.Functions) {
    PciFunctionDef Def;
    const PciLocation &L = F.Dumped.Location;
    Def.Segment = L.Segment;
    Def.Bus = L.Bus;
    Def.Device = L.Device;
    Def.Function = L.Function;
    if (!Taken->insert(Def.Location()).second) continue;
    Def.Config = F.Dumped.Config;
    Def.Bars.Size = F.BarSizes;
    Pci->Functions.push_back(std::move(Def));
  }
}

}  // namespace qor::emu
