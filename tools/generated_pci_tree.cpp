#include "tools/generated_pci_tree.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/board_generator.h"

namespace qor::tool {

namespace {

using rapidjson::Value;
using Functions = std::vector<Value>;

constexpr uint32_t kBusesPerSocket = 128;
constexpr uint32_t kMaxStacksPerSocket = 4;
constexpr uint32_t kMaxRootPortsPerStack = 4;
constexpr uint32_t kFunctionsPerStack = 32;     // a socket opens a stack per this many functions
constexpr uint32_t kFunctionsPerRootPort = 4;   // and a root port per this many
constexpr int kMaxSwitchLevels = 3;             // what the IIO topology table describes
constexpr uint32_t kMaxDownstreamPorts = 32;    // device numbers on a switch's internal bus
constexpr uint32_t kMaxCardFunctions = 8;
// Slot numbers: root ports from 1 (at most 64 of them), slotted downstream
// ports from 101 up to 250 (251 and 252 name the M.2 sockets).
constexpr uint32_t kFirstDownstreamSlot = 101;
constexpr uint32_t kLastSlotNumber = 250;
// Relative sizes of the root ports' subtrees, in turn: small cards beside
// switches of several sizes.
constexpr uint32_t kPortWeights[] = {2, 1, 3, 1, 2, 5, 1, 2};

struct Link {
  int MaxSpeed, MaxWidth;
};

class TreeGenerator {
 public:
  TreeGenerator(JsonAllocator &Allocator, uint32_t ShareTarget) : A_(Allocator), ShareTarget_(ShareTarget) {}

  Value HostBridges(uint32_t Total, uint32_t Sockets) {
    Value Out(rapidjson::kArrayType);
    for (uint32_t Socket = 0; Socket < Sockets; Socket++) {
      uint32_t Budget = Total / Sockets + (Socket < Total % Sockets ? 1 : 0);
      AddSocket(Socket, Budget, &Out);
    }
    if (Emitted_ != Total) throw std::logic_error("generator counted " + std::to_string(Emitted_) + " functions");
    return Out;
  }

 private:
  // ------------------------------------------------------------ sockets
  void AddSocket(uint32_t Socket, uint32_t Budget, Value *Out) {
    Socket_ = Socket;
    LegacyCardPlaced_ = false;
    bool HasPch = Socket == 0;
    uint32_t Own = Budget - (HasPch ? 1 : 0);  // functions besides the PCH
    if (Own == 0 && !HasPch) return;
    uint32_t Stacks = std::clamp<uint32_t>((Own + kFunctionsPerStack - 1) / kFunctionsPerStack, 1, kMaxStacksPerSocket);
    Stacks = std::max<uint32_t>(1, std::min(Stacks, Own));
    uint32_t PortFunctions = Own - std::min(Own, Stacks);
    uint32_t Ports = std::min(Stacks * kMaxRootPortsPerStack,
                              (PortFunctions + kFunctionsPerRootPort - 1) / kFunctionsPerRootPort);
    std::vector<uint32_t> PortBudgets = Split(PortFunctions, Ports);
    uint32_t NextBus = (Socket % 2) * kBusesPerSocket;
    const uint32_t LastBus = NextBus + kBusesPerSocket - 1;
    for (uint32_t Stack = 0; Stack < Stacks; Stack++) {
      Bridges_ = 0;
      Value Devices(rapidjson::kArrayType);
      if (Stack < Own) Devices.PushBack(StackFunction(), A_);
      uint8_t Device = 1;
      for (uint32_t Port = Stack; Port < Ports; Port += Stacks) {
        Devices.PushBack(RootPort(Device++, PortBudgets[Port]), A_);
      }
      if (HasPch && Stack == 0) Devices.PushBack(Pch(), A_);
      if (NextBus + Bridges_ > LastBus) {
        throw ShapeError("--functions: " + std::to_string(Budget) + " functions on socket " + std::to_string(Socket) +
                         " need more than its " + std::to_string(kBusesPerSocket) + " buses; give more --sockets");
      }
      JsonObject Host(A_);
      Value Buses(rapidjson::kArrayType);
      Buses.PushBack(Value(HexText(NextBus, 2).c_str(), A_), A_);
      Buses.PushBack(Value(HexText(NextBus + Bridges_, 2).c_str(), A_), A_);
      Host.Set("segment", static_cast<int>(Socket / 2)).Set("uid", static_cast<int>(Uid_++)).Set("buses", std::move(Buses));
      Host.Set("devices", std::move(Devices));
      Out->PushBack(Host.Take(), A_);
      NextBus += Bridges_ + 1;
    }
  }

  // Budget over Count parts by kPortWeights, each part at least 1 (the port).
  static std::vector<uint32_t> Split(uint32_t Budget, uint32_t Count) {
    std::vector<uint32_t> Parts(Count, 1);
    if (Count == 0) return Parts;
    uint64_t Spare = Budget - Count, WeightSum = 0;
    for (uint32_t I = 0; I < Count; I++) WeightSum += kPortWeights[I % std::size(kPortWeights)];
    uint64_t Given = 0;
    for (uint32_t I = 0; I < Count; I++) {
      uint64_t Share = Spare * kPortWeights[I % std::size(kPortWeights)] / WeightSum;
      Parts[I] += static_cast<uint32_t>(Share);
      Given += Share;
    }
    for (uint32_t I = 0; Given < Spare; I = (I + 1) % Count, Given++) Parts[I]++;
    return Parts;
  }

  // --------------------------------------------------------------- ports
  Value RootPort(uint8_t Device, uint32_t Budget) {
    JsonObject Port(A_);
    Port.Set("device", static_cast<int>(Device)).Set("type", "rootPort").Set("vendorId", "0x8086");
    Port.Set("deviceId", HexText(0x352A + Device - 1, 4));
    Port.Set("slot", static_cast<uint64_t>(RootSlot_++));
    Value Extended(rapidjson::kArrayType);
    Extended.PushBack(Kind("aer"), A_);
    Extended.PushBack(Kind("dpc"), A_);
    JsonObject Iio(A_);
    Iio.Set("socket", static_cast<int>(Socket_));
    return Below(std::move(Port), Budget, 0, {5, 16}, std::move(Extended), std::move(Iio));
  }

  Value DownstreamPort(uint8_t Device, uint32_t Budget, int Level, bool Slotted) {
    JsonObject Port(A_);
    Port.Set("device", static_cast<int>(Device)).Set("type", "downstreamPort").Set("vendorId", "0x10B5");
    Port.Set("deviceId", "0x8796").Set("portNumber", static_cast<int>(Device) + 1);
    if (Slotted && DownstreamSlot_ <= kLastSlotNumber) Port.Set("slot", static_cast<uint64_t>(DownstreamSlot_++));
    Value Extended(rapidjson::kArrayType);
    JsonObject Acs(A_);
    Acs.Set("type", "acs").Set("capability", "0x001F").Set("control", "0x001D");
    Extended.PushBack(Acs.Take(), A_);
    return Below(std::move(Port), Budget, Level, {4, 16}, std::move(Extended), JsonObject(A_));
  }

  // A port (Budget counts it) and what sits below it: nothing, a card, or a
  // switch one level down.
  Value Below(JsonObject &&Port, uint32_t Budget, int Level, Link Caps, Value Extended, JsonObject &&Iio) {
    Bridges_++;
    Emitted_++;
    uint32_t Rest = Budget - 1;
    Functions Children;
    Link Trained = Caps;
    if (Rest == 0) {
      Trained = {1, 0};  // an empty slot: link down
    } else if (Rest < ShareTarget_ || (Level >= kMaxSwitchLevels && Rest <= kMaxCardFunctions)) {
      Children = Card(Rest, Level, &Trained);
    } else {
      if (Level >= kMaxSwitchLevels) throw ShapeError("a switch level past the third");
      Children = Switch(Rest, Level + 1);
      Trained = {4, 16};
    }
    JsonObject Speeds(A_);
    Speeds.Set("maxSpeed", Caps.MaxSpeed).Set("maxWidth", Caps.MaxWidth);
    int Speed = std::min(Trained.MaxSpeed, Caps.MaxSpeed), Width = std::min(Trained.MaxWidth, Caps.MaxWidth);
    if (Speed != Caps.MaxSpeed || Width != Caps.MaxWidth) Speeds.Set("speed", Speed).Set("width", Width);
    Port.Set("link", std::move(Speeds));
    Port.Set("extendedCapabilities", std::move(Extended));
    Value IioValue = Iio.Take();
    if (IioValue.MemberCount() != 0) Port.Set("iio", std::move(IioValue));
    if (!Children.empty()) Port.Set("devices", ArrayOf(std::move(Children)));
    return Port.Take();
  }

  // ------------------------------------------------------------ switches
  // The upstream port and Rest - 1 functions of downstream ports and below.
  Functions Switch(uint32_t Rest, int Level) {
    uint32_t Variant = Switches_++ % 4;
    JsonObject Upstream(A_);
    Upstream.Set("type", "upstreamPort").Set("vendorId", "0x10B5").Set("deviceId", "0x8796");
    Upstream.Set("link", LinkOf({4, 16}));
    if (Variant % 2 == 0) Upstream.Set("bars", Bars({{"mem32", "256K", false}}));
    Bridges_++;
    Emitted_++;
    uint32_t Below = Rest - 1;
    std::vector<uint32_t> Shares;
    // A dense tree (cards of up to eight functions, when buses run short)
    // leaves out the shapes that spend a bus on every one or two functions.
    bool Dense = ShareTarget_ > kMaxCardFunctions;
    bool Chips = !Dense && Variant == 1 && Level == 1 && Below % 2 == 0 && Below / 2 <= 8;
    if (Chips) {
      Shares.assign(Below / 2, 2);  // a port and one chip each
    } else if (!Dense && Variant == 2 && Level < kMaxSwitchLevels && Below >= 9) {
      uint32_t Ports = Below >= 15 ? 3 : 2;
      Shares.assign(Ports, 3);  // the first port takes the rest: a switch below it
      Shares[0] = Below - 3 * (Ports - 1);
    } else {
      uint32_t Target = Level >= kMaxSwitchLevels ? kMaxCardFunctions + 1 : ShareTarget_;
      uint32_t Ports = std::clamp<uint32_t>((Below + Target - 1) / Target, 2, kMaxDownstreamPorts);
      Ports = std::min(Ports, Below);
      for (uint32_t I = 0; I < Ports; I++) Shares.push_back(Below / Ports + (I < Below % Ports ? 1 : 0));
    }
    Value Ports(rapidjson::kArrayType);
    for (size_t I = 0; I < Shares.size(); I++) {
      if (Chips) {
        Ports.PushBack(ChipPort(static_cast<uint8_t>(I)), A_);
      } else {
        Ports.PushBack(DownstreamPort(static_cast<uint8_t>(I), Shares[I], Level, Variant == 0 && Level == 1), A_);
      }
    }
    Upstream.Set("devices", std::move(Ports));
    Functions Out;
    Out.push_back(Upstream.Take());
    return Out;
  }

  // A downstream port of a card whose chips all carry one identity: the
  // driver keeps the first of them in a slot.
  Value ChipPort(uint8_t Device) {
    JsonObject Port(A_);
    Port.Set("device", static_cast<int>(Device)).Set("type", "downstreamPort").Set("vendorId", "0x10B5");
    Port.Set("deviceId", "0x8796").Set("portNumber", static_cast<int>(Device) + 1).Set("link", LinkOf({4, 8}));
    Bridges_++;
    Emitted_++;
    JsonObject Chip(A_);
    Chip.Set("vendorId", "0x8086").Set("deviceId", "0x37C8").Set("subsystemVendorId", "0x8086");
    Chip.Set("subsystemId", "0x0001").Set("classCode", "0x0B4000").Set("link", LinkOf({3, 8}));
    Chip.Set("bars", Bars({{"mem64", "256K", false}, {"mem64", "8M", true}}));
    Emitted_++;
    Functions One;
    One.push_back(Chip.Take());
    Port.Set("devices", ArrayOf(std::move(One)));
    return Port.Take();
  }

  // --------------------------------------------------------------- cards
  // A device of Count functions (1 to 8) below a port at Level.
  Functions Card(uint32_t Count, int Level, Link *Trained) {
    uint32_t Turn = Cards_++;
    Functions Out;
    if (Count == 1) {
      switch (Turn % 7) {
        case 0: case 3: Out.push_back(Nvme(Turn % 14 == 3 ? 6 : 4, Trained)); break;
        case 1: Out.push_back(Accelerator(0, Trained)); break;
        case 2: Out.push_back(Gpu(Trained)); break;
        case 4: Out.push_back(Excluded(Trained)); break;
        case 5: Out.push_back(Fpga(Trained)); break;
        default: Out.push_back(Nvme(5, Trained)); break;
      }
    } else if (Count == 2 && Level == 0 && !LegacyCardPlaced_ && Turn % 3 == 2) {
      LegacyCardPlaced_ = true;
      Out.push_back(LegacyBridge(Trained));
    } else if (Count == 2 && Turn % 2 == 1) {
      Out.push_back(Gpu(Trained));
      Out.push_back(GpuAudio());
    } else if (Turn % 3 == 1) {
      for (uint32_t F = 0; F < Count; F++) Out.push_back(Accelerator(F, Trained));
    } else {
      for (uint32_t F = 0; F < Count; F++) Out.push_back(NicPort(F, Count, Trained));
    }
    Emitted_ += Count;
    return Out;
  }

  Value Nvme(int Gen, Link *Trained) {
    uint32_t Number = Serial_++;
    *Trained = {Gen, 4};
    JsonObject F(A_);
    F.Set("vendorId", "0x8086").Set("deviceId", Gen == 6 ? "0x0B70" : "0x0B60").Set("subsystemVendorId", "0x8086");
    F.Set("subsystemId", "0x8008").Set("classCode", "0x010802").Set("link", LinkOf(*Trained));
    F.Set("bars", Bars({{"mem64", "16K", false}}));
    Value Extended(rapidjson::kArrayType);
    Extended.PushBack(Kind("aer"), A_);
    JsonObject Dsn(A_);
    Dsn.Set("type", "serialNumber").Set("value", HexText(0x5CD2E4FFFE000000ULL + Number, 16));
    Extended.PushBack(Dsn.Take(), A_);
    F.Set("extendedCapabilities", std::move(Extended));
    JsonObject Drive(A_);
    Drive.Set("serial", "QGN" + std::to_string(100000 + Number)).Set("model", "QOR U.2 NVMe 3.84TB");
    Drive.Set("firmware", "QDV1R180").Set("capacity", static_cast<uint64_t>(3840755982336ULL));
    F.Set("nvme", std::move(Drive));
    return F.Take();
  }

  Value NicPort(uint32_t Function, uint32_t Ports, Link *Trained) {
    *Trained = {4, 16};
    JsonObject F(A_);
    if (Function != 0) F.Set("function", static_cast<int>(Function));
    F.Set("vendorId", "0x8086").Set("deviceId", "0x1592").Set("subsystemVendorId", "0x8086");
    F.Set("subsystemId", "0x0004").Set("classCode", "0x020000").Set("link", LinkOf(*Trained));
    F.Set("bars", Function == 0 ? Bars({{"mem64", "32M", true}, {"mem64", "64K", true}}) : Bars({{"mem64", "32M", true}}));
    if (Function == 0) {
      uint32_t Card = Nics_++;
      Value List(rapidjson::kArrayType);
      for (uint32_t P = 0; P < Ports; P++) {
        JsonObject Port(A_);
        Port.Set("description", "Qor 100GbE QSFP28 Adapter Port " + std::to_string(P));
        Port.Set("mac", Mac(Card, P));
        List.PushBack(Port.Take(), A_);
      }
      JsonObject Nic(A_);
      Nic.Set("onBoard", false).Set("ports", std::move(List));
      F.Set("nic", std::move(Nic));
      F.Set("firmware", Firmware("4.20 0x8001A5B1 1.3256.0"));
    }
    return F.Take();
  }

  Value Gpu(Link *Trained) {
    *Trained = {5, 16};
    JsonObject F(A_);
    F.Set("vendorId", "0x10DE").Set("deviceId", "0x2331").Set("subsystemVendorId", "0x10DE");
    F.Set("subsystemId", "0x1626").Set("classCode", "0x030200").Set("link", LinkOf(*Trained));
    F.Set("bars", Bars({{"mem32", "16M", false}, {"mem64", "64G", true}, {"mem64", "32M", true}}));
    Value Extended(rapidjson::kArrayType);
    Extended.PushBack(Kind("aer"), A_);
    F.Set("extendedCapabilities", std::move(Extended));
    F.Set("firmware", Firmware("96.00.5E.00.01"));
    return F.Take();
  }

  Value GpuAudio() {
    JsonObject F(A_);
    F.Set("function", 1).Set("vendorId", "0x10DE").Set("deviceId", "0x22A3").Set("subsystemVendorId", "0x10DE");
    F.Set("subsystemId", "0x1626").Set("classCode", "0x040300").Set("link", LinkOf({5, 16}));
    F.Set("bars", Bars({{"mem32", "16K", false}}));
    return F.Take();
  }

  Value Accelerator(uint32_t Function, Link *Trained) {
    *Trained = {4, 16};
    JsonObject F(A_);
    if (Function != 0) F.Set("function", static_cast<int>(Function));
    F.Set("vendorId", "0x8086").Set("deviceId", Function == 0 ? "0x0D54" : "0x0D55").Set("subsystemVendorId", "0x8086");
    F.Set("subsystemId", "0x0001").Set("classCode", "0x120000").Set("link", LinkOf(*Trained));
    F.Set("bars", Function == 0 ? Bars({{"mem64", "256M", true}, {"mem32", "1M", true}}) : Bars({{"mem64", "16M", true}}));
    return F.Take();
  }

  Value Fpga(Link *Trained) {
    *Trained = {4, 8};
    JsonObject F(A_);
    F.Set("vendorId", "0x1172").Set("deviceId", "0x5052").Set("subsystemVendorId", "0x1172");
    F.Set("subsystemId", "0x0010").Set("classCode", "0x120000").Set("link", LinkOf(*Trained));
    F.Set("bars", Bars({{"mem32", "32M", false}, {"mem64", "512M", true}}));
    return F.Take();
  }

  // A device of the driver's exclusion table: listed in the tree and the
  // resources, never in the device inventory.
  Value Excluded(Link *Trained) {
    *Trained = {3, 16};
    JsonObject F(A_);
    F.Set("vendorId", "0x8086").Set("deviceId", "0x37CC").Set("subsystemVendorId", "0x8086");
    F.Set("subsystemId", "0x0000").Set("classCode", "0x0B4000").Set("link", LinkOf(*Trained));
    F.Set("bars", Bars({{"mem64", "1M", false}}));
    return F.Take();
  }

  // A PCIe-to-PCI bridge with a conventional serial card (I/O BARs, one of
  // them a 16-bit decoder).
  Value LegacyBridge(Link *Trained) {
    *Trained = {2, 1};
    Bridges_++;
    JsonObject Bridge(A_);
    Bridge.Set("type", "pcieToPciBridge").Set("vendorId", "0x1A03").Set("deviceId", "0x1150").Set("link", LinkOf(*Trained));
    JsonObject Card(A_);
    Card.Set("pcie", false).Set("vendorId", "0x1415").Set("deviceId", "0xC208").Set("subsystemVendorId", "0x1415");
    Card.Set("subsystemId", "0x0001").Set("classCode", "0x070002");
    Card.Set("bars", Bars({{"io16", "8", false}, {"io", "32", false}, {"mem32", "4K", false}}));
    Functions One;
    One.push_back(Card.Take());
    Bridge.Set("devices", ArrayOf(std::move(One)));
    return Bridge.Take();
  }

  // The stack's own integrated function on its root bus, and the PCH.
  Value StackFunction() {
    Emitted_++;
    JsonObject F(A_);
    F.Set("device", 0).Set("type", "rcEndpoint").Set("vendorId", "0x8086").Set("deviceId", "0x09A2");
    F.Set("classCode", "0x088000");
    return F.Take();
  }

  Value Pch() {
    Emitted_++;
    JsonObject F(A_);
    F.Set("device", 31).Set("pcie", false).Set("vendorId", "0x8086").Set("deviceId", HexText(kGeneratedPchDeviceId, 4));
    F.Set("revisionId", HexText(kGeneratedPchRevisionId, 2)).Set("classCode", "0x060100");
    return F.Take();
  }

  // --------------------------------------------------------------- pieces
  struct BarText {
    const char *Type;
    const char *Size;
    bool Prefetchable;
  };
  Value Bars(std::initializer_list<BarText> List) {
    Value Out(rapidjson::kArrayType);
    for (const BarText &Bar : List) {
      JsonObject B(A_);
      if (std::string(Bar.Type) != "mem32") B.Set("type", Bar.Type);
      B.Set("size", Bar.Size);
      if (Bar.Prefetchable) B.Set("prefetchable", true);
      Out.PushBack(B.Take(), A_);
    }
    return Out;
  }

  Value LinkOf(Link L) {
    JsonObject Out(A_);
    Out.Set("maxSpeed", L.MaxSpeed).Set("maxWidth", L.MaxWidth);
    return Out.Take();
  }

  Value Kind(const char *Type) {
    JsonObject Out(A_);
    Out.Set("type", Type);
    return Out.Take();
  }

  Value Firmware(const char *Version) {
    JsonObject Image(A_);
    Image.Set("below", 1).Set("packageVersionName", Version);
    Value Out(rapidjson::kArrayType);
    Out.PushBack(Image.Take(), A_);
    return Out;
  }

  Value ArrayOf(Functions List) {
    Value Out(rapidjson::kArrayType);
    for (Value &Item : List) Out.PushBack(Item, A_);
    return Out;
  }

  static std::string Mac(uint32_t Card, uint32_t Port) {
    char Text[24];
    std::snprintf(Text, sizeof(Text), "02:51:00:%02X:%02X:%02X", (Card >> 8) & 0xFF, Card & 0xFF, Port & 0xFF);
    return Text;
  }

  JsonAllocator &A_;
  uint32_t ShareTarget_;
  uint32_t Socket_ = 0;
  uint32_t Uid_ = 0;
  uint32_t Bridges_ = 0;  // of the stack being written: the buses it needs below its root bus
  uint32_t Emitted_ = 0;
  uint32_t RootSlot_ = 1;
  uint32_t DownstreamSlot_ = kFirstDownstreamSlot;
  uint32_t Cards_ = 0;
  uint32_t Switches_ = 0;
  uint32_t Serial_ = 0;
  uint32_t Nics_ = 0;
  bool LegacyCardPlaced_ = false;
};

}  // namespace

rapidjson::Value GeneratePciHostBridges(uint32_t Functions, uint32_t Sockets, JsonAllocator &Allocator) {
  // Downstream ports carry cards of about four functions; when the buses run
  // short, cards of up to eight.
  try {
    return TreeGenerator(Allocator, 5).HostBridges(Functions, Sockets);
  } catch (const ShapeError &) {
    return TreeGenerator(Allocator, kMaxCardFunctions + 1).HostBridges(Functions, Sockets);
  }
}

}  // namespace qor::tool
