#include "emulator/pci/lspci_import.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>

#include "emulator/pci/bar_size_estimate.h"

namespace qor::emu {

namespace {

std::string Name(const DumpedFunction &F) { return F.Location.Text(); }

std::string BusText(uint16_t Segment, unsigned Bus) {
  char Text[16];
  std::snprintf(Text, sizeof(Text), "%04x:%02x", Segment, Bus);
  return Text;
}

}  // namespace

int SecondaryBusOf(const DumpedFunction &F) {
  constexpr size_t kSecondaryBus = 0x19, kSubordinateBus = 0x1A;
  if (F.Config.size() <= kSubordinateBus) return -1;
  uint8_t HeaderType = F.Config[0x0E] & 0x7F;
  if (HeaderType != 1 && HeaderType != 2) return -1;
  uint8_t Secondary = F.Config[kSecondaryBus], Subordinate = F.Config[kSubordinateBus];
  if (Secondary <= F.Location.Bus || Subordinate < Secondary) return -1;
  return Secondary;
}

ImportedMachine ImportLspciMachine(const std::vector<DumpedFunction> &Dumped) {
  if (Dumped.empty()) throw LspciImportError("the dump holds no function");
  ImportedMachine Machine;
  for (const DumpedFunction &F : Dumped) Machine.Functions.push_back({F, {}, -1, 0});
  std::sort(Machine.Functions.begin(), Machine.Functions.end(), [](const ImportedFunction &A, const ImportedFunction &B) {
    return A.Dumped.Location < B.Dumped.Location;
  });
  std::vector<ImportedFunction> &Functions = Machine.Functions;

  // Which bridge leads to which bus.
  std::map<std::pair<uint16_t, int>, size_t> BridgeTo;
  for (size_t I = 0; I < Functions.size(); I++) {
    int Secondary = SecondaryBusOf(Functions[I].Dumped);
    if (Secondary < 0) continue;
    auto [It, New] = BridgeTo.emplace(std::make_pair(Functions[I].Dumped.Location.Segment, Secondary), I);
    if (!New) {
      throw LspciImportError("bus " + BusText(Functions[I].Dumped.Location.Segment, Secondary) + " is the secondary bus of both " +
                             Name(Functions[It->second].Dumped) + " and " + Name(Functions[I].Dumped));
    }
  }

  // Parents; every step up lowers the bus number, so the walk up ends.
  std::map<std::pair<uint16_t, int>, size_t> RootBridgeOf;  // (segment, root bus) -> host bridge
  for (ImportedFunction &F : Functions) {
    auto It = BridgeTo.find({F.Dumped.Location.Segment, F.Dumped.Location.Bus});
    if (It != BridgeTo.end()) {
      F.Parent = static_cast<int>(It->second);
    } else {
      RootBridgeOf.emplace(std::make_pair(F.Dumped.Location.Segment, F.Dumped.Location.Bus), 0);
    }
  }
  for (auto &[Root, Index] : RootBridgeOf) {
    Index = Machine.HostBridges.size();
    ImportedHostBridge Bridge;
    Bridge.Segment = Root.first;
    Bridge.Uid = static_cast<uint32_t>(Index);
    Bridge.BusBase = static_cast<uint8_t>(Root.second);
    Bridge.BusLimit = Bridge.BusBase;
    Machine.HostBridges.push_back(Bridge);
  }

  // Each function's host bridge, then the highest bus each tree uses.
  // Functions are sorted by bus and a parent sits on a lower bus, so a
  // parent is settled before its children.
  std::vector<int> HighestBus(Machine.HostBridges.size(), 0);
  for (ImportedFunction &F : Functions) {
    F.HostBridge = F.Parent < 0 ? RootBridgeOf.at({F.Dumped.Location.Segment, F.Dumped.Location.Bus})
                                : Functions[static_cast<size_t>(F.Parent)].HostBridge;
    int Highest = F.Dumped.Location.Bus;
    if (SecondaryBusOf(F.Dumped) >= 0) Highest = std::max<int>(Highest, F.Dumped.Config[0x1A]);
    HighestBus[F.HostBridge] = std::max(HighestBus[F.HostBridge], Highest);
  }
  for (size_t I = 0; I < Machine.HostBridges.size(); I++) {
    ImportedHostBridge &Bridge = Machine.HostBridges[I];
    int Limit = HighestBus[I];
    bool NextInSegment = I + 1 < Machine.HostBridges.size() && Machine.HostBridges[I + 1].Segment == Bridge.Segment;
    if (NextInSegment) Limit = std::min(Limit, Machine.HostBridges[I + 1].BusBase - 1);
    Bridge.BusLimit = static_cast<uint8_t>(Limit);
  }
  for (const ImportedFunction &F : Functions) {
    const ImportedHostBridge &Bridge = Machine.HostBridges[F.HostBridge];
    if (F.Dumped.Location.Bus > Bridge.BusLimit) {
      throw LspciImportError("function " + Name(F.Dumped) + " lies behind root bus " +
                             BusText(Bridge.Segment, Bridge.BusBase) + " but past the next root bus " +
                             BusText(Bridge.Segment, Bridge.BusLimit + 1u));
    }
  }

  EstimateBarSizes(&Functions);
  return Machine;
}

}  // namespace qor::emu
