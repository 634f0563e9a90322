#include "emulator/pci/iio_topology.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "emulator/board.h"
#include "emulator/board_json.h"

namespace qor::emu {

namespace {

constexpr uint8_t kCapPciExpress = 0x10;
constexpr uint8_t kRootPort = 4;
constexpr uint8_t kUpstreamPort = 5;
constexpr uint8_t kDownstreamPort = 6;
constexpr int kSwitchLevels = 3;
constexpr uint8_t kNodesPerSwitch = 2;  // the upstream and a downstream port
constexpr uint32_t kMaxPort = QOR_IIO_PORTS_PER_SOCKET - 1;
// Entries that fit below the table's end, leaving room for the end marker.
constexpr size_t kMaxEntries = QOR_SYSINFO_IIO_TOPOLOGY_MAX - 1;

// The PCI Express device/port type of a bridge, or 0xFF.
uint8_t PortType(const PciFunction &Function) {
  const std::vector<uint8_t> &Config = Function.Bytes();
  if (Function.HeaderLayout() != 1) return 0xFF;
  uint32_t Express = FindPciCapability(Config, kCapPciExpress);
  return Express == 0 ? 0xFF : static_cast<uint8_t>((Config[Express + 2] >> 4) & 0xF);
}

uint8_t SlotOf(const PciFunction &Function) {
  const std::vector<uint8_t> &Config = Function.Bytes();
  uint32_t Express = FindPciCapability(Config, kCapPciExpress);
  if (Express == 0 || (Config[Express + 3] & 0x01) == 0) return 0xFF;  // no slot implemented
  uint32_t SlotCapabilities = 0;
  std::memcpy(&SlotCapabilities, &Config[Express + 0x14], 4);
  return static_cast<uint8_t>(SlotCapabilities >> 19);
}

// Level bytes of the switches below the root port at Index: a level exists
// when an upstream port sits below a port of the level above. Children
// lists each function's children by index.
std::array<uint8_t, 3> SwitchLevelsBelow(const std::vector<EnumeratedFunction> &Functions,
                                         const std::vector<std::vector<size_t>> &Children, size_t Index) {
  std::array<uint8_t, 3> Levels{};
  std::vector<size_t> Above = {Index};
  auto Below = [&](const std::vector<size_t> &Parents, uint8_t Type) {
    std::vector<size_t> Out;
    for (size_t Parent : Parents) {
      for (size_t Child : Children[Parent]) {
        if (PortType(*Functions[Child].Function) == Type) Out.push_back(Child);
      }
    }
    return Out;
  };
  for (int Level = 0; Level < kSwitchLevels; Level++) {
    std::vector<size_t> Upstream = Below(Above, kUpstreamPort);
    if (Upstream.empty()) break;
    Levels[Level] = static_cast<uint8_t>(1 | kNodesPerSwitch << 1);
    Above = Below(Upstream, kDownstreamPort);
  }
  return Levels;
}

uint8_t ParseKind(const JsonField &Kind) {
  if (Kind.IsString() && Kind.String() == "pch") return QOR_IIO_PORT_KIND_PCH;
  return static_cast<uint8_t>(Kind.Uint(0xFF));
}

std::array<uint8_t, 3> ParseLevels(const JsonField &Levels) {
  auto Elements = Levels.Elements();
  if (Elements.size() > 3) Levels.Fail("at most 3 level bytes (bit 0: the level exists; bits 3:1: its nodes)");
  std::array<uint8_t, 3> Out{};
  for (size_t I = 0; I < Elements.size(); I++) Out[I] = static_cast<uint8_t>(Elements[I].Uint(0xFF));
  return Out;
}

std::pair<uint8_t, uint8_t> ParseBuses(const JsonField &Buses) {
  auto Ends = Buses.Elements();
  if (Ends.size() != 2) Buses.Fail("[first bus, last bus]");
  return {static_cast<uint8_t>(Ends[0].Uint(0xFF)), static_cast<uint8_t>(Ends[1].Uint(0xFF))};
}

}  // namespace

IioPortDef ParseIioPort(const JsonField &Iio) {
  Iio.AllowOnly({"listed", "socket", "port", "kind", "present", "slot", "buses", "switchLevels"});
  IioPortDef Out;
  if (auto Listed = Iio.Optional("listed")) Out.Listed = Listed->Bool();
  if (auto Socket = Iio.Optional("socket")) Out.Socket = static_cast<uint8_t>(Socket->Uint(0xFF));
  if (auto Port = Iio.Optional("port")) Out.Port = static_cast<uint8_t>(Port->Uint(kMaxPort));
  if (auto Kind = Iio.Optional("kind")) Out.Kind = ParseKind(*Kind);
  if (auto Present = Iio.Optional("present")) Out.Present = Present->Bool();
  if (auto Slot = Iio.Optional("slot")) Out.Slot = static_cast<uint8_t>(Slot->Uint(0xFF));
  if (auto Buses = Iio.Optional("buses")) Out.Buses = ParseBuses(*Buses);
  if (auto Levels = Iio.Optional("switchLevels")) Out.SwitchLevels = ParseLevels(*Levels);
  return Out;
}

std::vector<QOR_IIO_TOPOLOGY_ENTRY> ParseIioTopology(const JsonField &Table) {
  auto Elements = Table.Elements();
  if (Elements.size() > kMaxEntries) Table.Fail("at most " + std::to_string(kMaxEntries) + " entries");
  std::vector<QOR_IIO_TOPOLOGY_ENTRY> Out;
  for (const JsonField &Entry : Elements) {
    Entry.AllowOnly({"portIndex", "socket", "port", "present", "slot", "kind", "segment", "buses", "device",
                     "function", "reserved", "switchLevels"});
    QOR_IIO_TOPOLOGY_ENTRY E{};
    if (Entry.Has("portIndex")) {
      if (Entry.Has("socket") || Entry.Has("port")) Entry.Fail("either \"portIndex\" or \"socket\" and \"port\"");
      E.PortIndex = static_cast<UINT16>(Entry.At("portIndex").Uint(0xFFFF));
    } else {
      uint64_t Socket = Entry.Has("socket") ? Entry.At("socket").Uint(0xFF) : 0;
      E.PortIndex = static_cast<UINT16>(Socket * QOR_IIO_PORTS_PER_SOCKET + Entry.At("port").Uint(kMaxPort));
    }
    E.Present = Entry.Has("present") ? (Entry.At("present").Raw().IsBool() ? Entry.At("present").Bool()
                                                                          : static_cast<UINT8>(Entry.At("present").Uint(0xFF)))
                                     : 1;
    E.Slot = Entry.Has("slot") ? static_cast<UINT8>(Entry.At("slot").Uint(0xFF)) : 0xFF;
    if (auto Kind = Entry.Optional("kind")) E.PortKind = ParseKind(*Kind);
    if (auto Segment = Entry.Optional("segment")) E.Segment = static_cast<UINT8>(Segment->Uint(0xFF));
    std::pair<uint8_t, uint8_t> Buses = ParseBuses(Entry.At("buses"));
    E.Bus = Buses.first;
    E.LastBus = Buses.second;
    if (auto Device = Entry.Optional("device")) E.Device = static_cast<UINT8>(Device->Uint(31));
    if (auto Function = Entry.Optional("function")) E.Function = static_cast<UINT8>(Function->Uint(7));
    if (auto Reserved = Entry.Optional("reserved")) E.Reserved = static_cast<UINT8>(Reserved->Uint(0xFF));
    if (auto Levels = Entry.Optional("switchLevels")) {
      std::array<uint8_t, 3> L = ParseLevels(*Levels);
      std::copy(L.begin(), L.end(), E.SwitchLevel);
    }
    Out.push_back(E);
  }
  return Out;
}

std::vector<QOR_IIO_TOPOLOGY_ENTRY> DeriveIioTopology(const std::vector<PciFunctionDef> &Defs,
                                                      const std::vector<EnumeratedFunction> &Functions) {
  std::map<PciLocation, const IioPortDef *> Annotations;
  for (const PciFunctionDef &Def : Defs) {
    if (Def.IioPort) Annotations[Def.Location()] = &*Def.IioPort;
  }
  const IioPortDef Plain;
  // Ports the board places explicitly are taken first, so a port left to
  // the default never lands on one of them.
  std::map<uint8_t, std::set<uint8_t>> Taken;
  for (const auto &[Location, Def] : Annotations) {
    if (Def->Port) Taken[Def->Socket.value_or(0)].insert(*Def->Port);
  }
  std::vector<std::vector<size_t>> Children(Functions.size());
  for (size_t I = 0; I < Functions.size(); I++) {
    int Parent = Functions[I].Parent;
    if (Parent >= 0 && static_cast<size_t>(Parent) < Functions.size()) Children[static_cast<size_t>(Parent)].push_back(I);
  }
  std::vector<QOR_IIO_TOPOLOGY_ENTRY> Out;
  for (size_t I = 0; I < Functions.size(); I++) {
    const PciFunction &Function = *Functions[I].Function;
    if (PortType(Function) != kRootPort) continue;
    auto It = Annotations.find(Function.Location());
    const IioPortDef &Def = It == Annotations.end() ? Plain : *It->second;
    if (!Def.Listed) continue;
    uint8_t Socket = Def.Socket.value_or(0);
    uint32_t Port = 0;
    if (Def.Port) {
      Port = *Def.Port;
    } else {
      std::set<uint8_t> &Used = Taken[Socket];
      while (Port <= kMaxPort && Used.count(static_cast<uint8_t>(Port)) != 0) Port++;
      if (Port > kMaxPort) continue;  // the socket's ports are used up
      Used.insert(static_cast<uint8_t>(Port));
    }
    const PciLocation &At = Function.Location();
    QOR_IIO_TOPOLOGY_ENTRY E{};
    E.PortIndex = static_cast<UINT16>(Socket * QOR_IIO_PORTS_PER_SOCKET + Port);
    E.Present = Def.Present ? 1 : 0;
    E.Slot = Def.Slot.value_or(SlotOf(Function));
    E.PortKind = Def.Kind;
    E.Segment = static_cast<UINT8>(At.Segment);
    E.Bus = Def.Buses ? Def.Buses->first : At.Bus;
    E.LastBus = Def.Buses ? Def.Buses->second : Function.Bytes()[0x1A];
    E.Device = At.Device;
    E.Function = At.Function;
    std::array<uint8_t, 3> Levels = Def.SwitchLevels.value_or(SwitchLevelsBelow(Functions, Children, I));
    std::copy(Levels.begin(), Levels.end(), E.SwitchLevel);
    Out.push_back(E);
  }
  if (Out.size() > kMaxEntries) Out.resize(kMaxEntries);
  return Out;
}

void WriteIioTopologyTable(const Board &Board, const std::vector<EnumeratedFunction> &Functions,
                           std::vector<uint8_t> *Block) {
  static_assert(QOR_SYSINFO_IIO_TOPOLOGY_END <= kSystemInformationBlockSize, "IIO topology inside the block");
  std::vector<QOR_IIO_TOPOLOGY_ENTRY> Entries = Board.SystemInformation.IioTopology
                                                    ? *Board.SystemInformation.IioTopology
                                                    : DeriveIioTopology(Board.Pci.Functions, Functions);
  (*Block)[QOR_SYSINFO_IIO_TOPOLOGY_COUNT_OFFSET] = static_cast<uint8_t>(Entries.size());
  QOR_IIO_TOPOLOGY_ENTRY End{};
  End.PortIndex = QOR_IIO_PORT_INDEX_END;
  Entries.push_back(End);
  std::memcpy(Block->data() + QOR_SYSINFO_IIO_TOPOLOGY_OFFSET, Entries.data(),
              Entries.size() * sizeof(QOR_IIO_TOPOLOGY_ENTRY));
}

}  // namespace qor::emu
