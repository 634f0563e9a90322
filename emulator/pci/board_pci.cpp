// Parsing of the board's "pci" member: host bridges with nested devices
// (expanded here into functions at fixed locations), raw functions, root
// bridge I/O instances, nic db entries.
#include "emulator/pci/board_pci.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "emulator/board.h"
#include "emulator/board_json.h"
#include "emulator/pci/bar_assignment.h"
#include "emulator/pci/bridge_windows.h"
#include "emulator/pci/config_builder.h"
#include "emulator/pci/lspci_board_import.h"
#include "platform/nic_db.h"

namespace qor::emu {

namespace {

constexpr size_t kMaxNicPorts = 32;
constexpr uint32_t kMaxPhysicalSlot = 0x1FFF;  // Slot Capabilities 31:19

uint8_t U8(const JsonField &Field) { return static_cast<uint8_t>(Field.Uint(0xFF)); }
uint16_t U16(const JsonField &Field) { return static_cast<uint16_t>(Field.Uint(0xFFFF)); }

// A size: a number, or a text with a K, M, G or T suffix ("64K", "16M").
uint64_t ParseSize(const JsonField &Field) {
  if (Field.IsString()) {
    std::string Text = Field.String();
    if (!Text.empty()) {
      int Shift = 0;
      switch (std::toupper(static_cast<unsigned char>(Text.back()))) {
        case 'K': Shift = 10; break;
        case 'M': Shift = 20; break;
        case 'G': Shift = 30; break;
        case 'T': Shift = 40; break;
        default: break;
      }
      if (Shift != 0) {
        Text.pop_back();
        char *End = nullptr;
        unsigned long long Number = std::strtoull(Text.c_str(), &End, 0);
        if (Text.empty() || *End != '\0' || Number == 0 || Number > (~0ULL >> Shift)) {
          Field.Fail("a size: a number or a text such as \"64K\", \"16M\", \"1G\"");
        }
        return Number << Shift;
      }
    }
  }
  return Field.Uint();
}

bool IsPowerOfTwo(uint64_t Value) { return Value != 0 && (Value & (Value - 1)) == 0; }

// "BB:DD.F" or "SSSS:BB:DD.F" in hexadecimal.
PciLocation ParseLocation(const JsonField &Field) {
  std::string Text = Field.String();
  unsigned Segment = 0, Bus = 0, Device = 0, Function = 0;
  char Tail = 0;
  bool Ok = std::sscanf(Text.c_str(), "%x:%x:%x.%x%c", &Segment, &Bus, &Device, &Function, &Tail) == 4;
  if (!Ok) {
    Segment = 0;
    Ok = std::sscanf(Text.c_str(), "%x:%x.%x%c", &Bus, &Device, &Function, &Tail) == 3;
  }
  if (!Ok || Segment > 0xFFFF || Bus > 0xFF || Device > 31 || Function > 7) {
    Field.Fail("\"BB:DD.F\" or \"SSSS:BB:DD.F\" in hexadecimal (device up to 1f, function up to 7)");
  }
  return {static_cast<uint16_t>(Segment), static_cast<uint8_t>(Bus), static_cast<uint8_t>(Device),
          static_cast<uint8_t>(Function)};
}

std::array<uint8_t, 6> ParseMac(const JsonField &Field) {
  std::string Hex;
  for (char C : Field.String()) {
    if (C == ':' || C == '-' || C == ' ') continue;
    Hex += C;
  }
  std::array<uint8_t, 6> Mac{};
  bool Ok = Hex.size() == 12 && Hex.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  for (size_t I = 0; Ok && I < 6; I++) Mac[I] = static_cast<uint8_t>(std::stoul(Hex.substr(2 * I, 2), nullptr, 16));
  if (!Ok) Field.Fail("a MAC address such as \"00:1B:21:0A:4C:01\"");
  return Mac;
}

PciFaults ParseRuntimeFaults(const JsonField &Faults) {
  PciFaults Out;
  if (auto AllOnes = Faults.Optional("allOnes")) Out.AllOnes = AllOnes->Bool();
  if (auto Fails = Faults.Optional("readFails")) {
    if (Fails->IsString()) {
      if (Fails->String() != "all") Fails->Fail("\"all\" or a list of offsets");
      Out.FailAllReads = true;
    } else {
      for (const JsonField &Offset : Fails->Elements()) {
        Out.FailReadsAt.push_back(static_cast<uint32_t>(Offset.Uint(kPciExpressConfigSize - 1)));
      }
    }
  }
  if (auto Status = Faults.Optional("readStatus")) Out.ReadStatus = Status->Status();
  if (auto Mirror = Faults.Optional("mirrorExtendedSpace")) Out.MirrorExtendedSpace = Mirror->Bool();
  if (auto Fails = Faults.Optional("writeFails")) {
    for (const JsonField &Offset : Fails->Elements()) {
      Out.FailWritesAt.push_back(static_cast<uint32_t>(Offset.Uint(kPciExpressConfigSize - 1)));
    }
  }
  if (auto Status = Faults.Optional("writeStatus")) Out.WriteStatus = Status->Status();
  return Out;
}

std::vector<FirmwareImageDef> ParseFirmwareImages(const JsonField &List) {
  std::vector<FirmwareImageDef> Out;
  bool OnOwnHandle = false;
  for (const JsonField &Entry : List.Elements()) {
    Entry.AllowOnly({"below", "packageVersionName", "packageVersion", "versionName", "firstCall", "secondCall"});
    FirmwareImageDef Image;
    if (auto Below = Entry.Optional("below")) Image.Below = static_cast<int>(Below->Uint(3));
    if (Image.Below == 0) {
      if (OnOwnHandle) Entry.At("below").Fail("one instance at most on the function's own handle (below 0)");
      OnOwnHandle = true;
    }
    if (auto Name = Entry.Optional("packageVersionName")) {
      if (!Name->IsNull()) Image.PackageVersionName = Name->String();
    }
    if (auto Version = Entry.Optional("packageVersion")) Image.PackageVersion = static_cast<uint32_t>(Version->Uint(0xFFFFFFFF));
    if (auto Version = Entry.Optional("versionName")) Image.ImageVersionName = Version->String();
    if (auto First = Entry.Optional("firstCall")) Image.FirstCallStatus = First->Status();
    if (auto Second = Entry.Optional("secondCall")) Image.SecondCallStatus = Second->Status();
    Out.push_back(Image);
  }
  return Out;
}

// SlotRequired: a "nicDb" entry; a function's "nic" may leave it out.
NicEntryDef ParseNic(const JsonField &Nic, bool SlotRequired) {
  Nic.AllowOnly({"slot", "onBoard", "portCount", "ports"});
  NicEntryDef Out;
  if (SlotRequired || Nic.Has("slot")) Out.Slot = static_cast<uint32_t>(Nic.At("slot").Uint(0xFFFFFFFF));
  if (auto OnBoard = Nic.Optional("onBoard")) Out.OnBoard = OnBoard->Bool();
  if (auto Count = Nic.Optional("portCount")) Out.PortCount = static_cast<uint32_t>(Count->Uint(0xFFFFFFFF));
  if (auto Ports = Nic.Optional("ports")) {
    auto Elements = Ports->Elements();
    if (Elements.size() > kMaxNicPorts) Ports->Fail("at most " + std::to_string(kMaxNicPorts) + " ports");
    for (const JsonField &Entry : Elements) {
      Entry.AllowOnly({"location", "description", "mac"});
      NicPortDef Port;
      if (auto Location = Entry.Optional("location")) Port.Location = ParseLocation(*Location);
      if (auto Description = Entry.Optional("description")) {
        Port.Description = Description->String();
        if (Port.Description.size() >= QOR_NIC_PORT_DESC_SIZE) {
          Description->Fail("a description of at most " + std::to_string(QOR_NIC_PORT_DESC_SIZE - 1) + " characters");
        }
      }
      if (auto Mac = Entry.Optional("mac")) Port.Mac = ParseMac(*Mac);
      Out.Ports.push_back(Port);
    }
  }
  return Out;
}

// Raw bytes laid over a configuration space: "config" from offset 0, then
// "patches".
struct RawOverride {
  std::vector<uint8_t> Config;
  std::vector<BytePatch> Patches;
};

RawOverride ParseRawOverride(const JsonField &Entry) {
  RawOverride Out;
  if (auto Config = Entry.Optional("config")) {
    Out.Config = Config->Bytes();
    if (Out.Config.size() > kPciExpressConfigSize) Config->Fail("at most 4096 configuration bytes");
  }
  if (auto Patches = Entry.Optional("patches")) {
    Out.Patches = ParseBytePatches(*Patches, kPciExpressConfigSize, "configuration space");
  }
  return Out;
}

void ApplyRawOverride(const RawOverride &Raw, std::vector<uint8_t> *Config) {
  size_t Needed = Raw.Config.size();
  for (const BytePatch &Patch : Raw.Patches) Needed = std::max<size_t>(Needed, Patch.Offset + Patch.Bytes.size());
  if (Needed > Config->size()) Config->resize(Needed > kPciConventionalConfigSize ? kPciExpressConfigSize : kPciConventionalConfigSize, 0);
  std::copy(Raw.Config.begin(), Raw.Config.end(), Config->begin());
  ApplyBytePatches(Config, Raw.Patches);
}

// ---------------------------------------------------------------- flat functions

PciFunctionDef ParseFlatFunction(const JsonField &Entry) {
  Entry.AllowOnly({"bdf", "vendorId", "deviceId", "revisionId", "classCode", "headerType", "subsystemVendorId",
                   "subsystemId", "config", "patches", "barSizes", "io16Bars", "faults", "firmware", "nic",
                   "vpd", "nvme", "vroc", "vmd"});
  PciFunctionDef F;
  PciLocation Location = ParseLocation(Entry.At("bdf"));
  F.Segment = Location.Segment;
  F.Bus = Location.Bus;
  F.Device = Location.Device;
  F.Function = Location.Function;
  if (!Entry.Has("config") && !Entry.Has("vendorId")) Entry.Fail("a \"vendorId\" or the \"config\" bytes");
  RawOverride Raw = ParseRawOverride(Entry);
  F.Config.assign(kPciConventionalConfigSize, 0);
  ApplyRawOverride(Raw, &F.Config);
  auto Put = [&F](size_t Offset, uint64_t Value, int Bytes) {
    for (int I = 0; I < Bytes; I++) F.Config[Offset + I] = static_cast<uint8_t>(Value >> (8 * I));
  };
  if (auto V = Entry.Optional("vendorId")) Put(0x00, V->Uint(0xFFFF), 2);
  if (auto V = Entry.Optional("deviceId")) Put(0x02, V->Uint(0xFFFF), 2);
  if (auto V = Entry.Optional("revisionId")) Put(0x08, V->Uint(0xFF), 1);
  if (auto V = Entry.Optional("classCode")) Put(0x09, V->Uint(0xFFFFFF), 3);
  if (auto V = Entry.Optional("headerType")) Put(0x0E, V->Uint(0xFF), 1);
  if (auto V = Entry.Optional("subsystemVendorId")) Put(0x2C, V->Uint(0xFFFF), 2);
  if (auto V = Entry.Optional("subsystemId")) Put(0x2E, V->Uint(0xFFFF), 2);
  if (auto Sizes = Entry.Optional("barSizes")) {
    auto Elements = Sizes->Elements();
    if (Elements.size() > kPciBarCount) Sizes->Fail("at most 6 BAR sizes");
    for (size_t I = 0; I < Elements.size(); I++) {
      F.Bars.Size[I] = ParseSize(Elements[I]);
      if (F.Bars.Size[I] != 0 && !IsPowerOfTwo(F.Bars.Size[I])) Elements[I].Fail("a power of two (or 0: no BAR)");
    }
  }
  if (auto Io16 = Entry.Optional("io16Bars")) {
    for (const JsonField &Index : Io16->Elements()) F.Bars.Io16Mask |= static_cast<uint8_t>(1U << Index.Uint(5));
  }
  if (auto Faults = Entry.Optional("faults")) {
    Faults->AllowOnly({"allOnes", "readFails", "readStatus", "mirrorExtendedSpace", "writeFails", "writeStatus"});
    F.Faults = ParseRuntimeFaults(*Faults);
  }
  if (auto Firmware = Entry.Optional("firmware")) F.FirmwareImages = ParseFirmwareImages(*Firmware);
  if (auto Nic = Entry.Optional("nic")) F.Nic = ParseNic(*Nic, false);
  ParseDeviceExtras(Entry, &F);
  return F;
}

// ---------------------------------------------------------------- nested devices

const std::pair<const char *, PciPortType> kPortTypeNames[] = {
    {"endpoint", PciPortType::Endpoint},
    {"legacyEndpoint", PciPortType::LegacyEndpoint},
    {"rcEndpoint", PciPortType::RcEndpoint},
    {"rootPort", PciPortType::RootPort},
    {"upstreamPort", PciPortType::UpstreamPort},
    {"downstreamPort", PciPortType::DownstreamPort},
    {"pcieToPciBridge", PciPortType::PcieToPciBridge},
    {"pciBridge", PciPortType::PciBridge},
};

PciPortType ParsePortType(const JsonField &Field) {
  std::string Name = Field.String();
  std::string Choices;
  for (const auto &[Text, Type] : kPortTypeNames) {
    if (Name == Text) return Type;
    Choices += std::string(Choices.empty() ? "" : ", ") + Text;
  }
  Field.Fail("one of: " + Choices);
}

bool IsPortType(PciPortType Type) { return Type == PciPortType::RootPort || Type == PciPortType::DownstreamPort; }

PciLinkDef ParseLink(const JsonField &Link) {
  Link.AllowOnly({"maxSpeed", "maxWidth", "speed", "width"});
  PciLinkDef Out;
  if (auto Speed = Link.Optional("maxSpeed")) Out.MaxSpeed = static_cast<uint8_t>(Speed->Uint(15));
  if (auto Width = Link.Optional("maxWidth")) Out.MaxWidth = static_cast<uint8_t>(Width->Uint(63));
  Out.Speed = Link.Has("speed") ? static_cast<uint8_t>(Link.At("speed").Uint(15)) : Out.MaxSpeed;
  Out.Width = Link.Has("width") ? static_cast<uint8_t>(Link.At("width").Uint(63)) : Out.MaxWidth;
  return Out;
}

std::vector<PciBarDef> ParseBars(const JsonField &Bars) {
  std::vector<PciBarDef> Out;
  for (const JsonField &Entry : Bars.Elements()) {
    Entry.AllowOnly({"type", "size", "prefetchable", "base"});
    PciBarDef Bar;
    std::string Type = Entry.Has("type") ? Entry.At("type").String() : "mem32";
    if (Type == "mem32") {
      Bar.Type = PciBarDef::Mem32;
    } else if (Type == "mem64") {
      Bar.Type = PciBarDef::Mem64;
    } else if (Type == "io") {
      Bar.Type = PciBarDef::Io;
    } else if (Type == "io16") {
      Bar.Type = PciBarDef::Io16;
    } else {
      Entry.At("type").Fail("one of: mem32, mem64, io, io16");
    }
    bool Io = Bar.Type == PciBarDef::Io || Bar.Type == PciBarDef::Io16;
    JsonField Size = Entry.At("size");
    Bar.Size = ParseSize(Size);
    uint64_t Smallest = Io ? 4 : 16;
    uint64_t Largest = Bar.Type == PciBarDef::Mem64 ? (uint64_t{1} << 63) : Bar.Type == PciBarDef::Io16 ? 0x10000 : (uint64_t{1} << 31);
    if (!IsPowerOfTwo(Bar.Size) || Bar.Size < Smallest || Bar.Size > Largest) {
      Size.Fail("a power of two from " + std::to_string(Smallest) + " to " + std::to_string(Largest) + " bytes");
    }
    if (auto Prefetchable = Entry.Optional("prefetchable")) {
      Bar.Prefetchable = Prefetchable->Bool();
      if (Io && Bar.Prefetchable) Prefetchable->Fail("false: an I/O BAR is never prefetchable");
    }
    if (auto Base = Entry.Optional("base")) {
      Bar.Base = Base->Uint();
      Bar.AutoBase = false;
      uint64_t Top = Bar.Type == PciBarDef::Mem64 ? ~uint64_t{0} : Bar.Type == PciBarDef::Io16 ? 0xFFFF : 0xFFFFFFFF;
      if (Bar.Base % Bar.Size != 0 || Bar.Base > Top - (Bar.Size - 1)) {
        Base->Fail("a base aligned to the BAR's size and reachable by its decoder");
      }
    }
    Out.push_back(Bar);
  }
  return Out;
}

struct Expansion {
  uint16_t Segment = 0;
  unsigned LastBus = 0xFF;
  unsigned NextBus = 0;
  std::set<PciLocation> *Taken = nullptr;
  std::vector<PciFunctionDef> *Out = nullptr;
  BarAssignmentPlan *Plan = nullptr;  // BARs that take an assigned base, bridges whose windows follow
};

PciDeviceDescription ParseDescription(const JsonField &Entry) {
  PciDeviceDescription D;
  if (auto Type = Entry.Optional("type")) D.Type = ParsePortType(*Type);
  if (!Entry.Has("vendorId") && !Entry.Has("config")) Entry.Fail("a \"vendorId\" or the \"config\" bytes");
  if (auto V = Entry.Optional("vendorId")) D.VendorId = U16(*V);
  if (auto V = Entry.Optional("deviceId")) D.DeviceId = U16(*V);
  if (auto V = Entry.Optional("subsystemVendorId")) D.SubsystemVendorId = U16(*V);
  if (auto V = Entry.Optional("subsystemId")) D.SubsystemId = U16(*V);
  if (auto V = Entry.Optional("revisionId")) D.RevisionId = U8(*V);
  if (auto V = Entry.Optional("classCode")) D.ClassCode = static_cast<uint32_t>(V->Uint(0xFFFFFF));
  if (auto V = Entry.Optional("pcie")) {
    D.Express = V->Bool();
    if (D.Express && D.Type == PciPortType::PciBridge) V->Fail("false for a \"pciBridge\" (conventional)");
    if (!D.Express && D.Type != PciPortType::Endpoint && D.Type != PciPortType::PciBridge) {
      V->Fail("true for a PCI Express port type (a conventional bridge is \"pciBridge\")");
    }
  }
  if (auto Link = Entry.Optional("link")) D.Link = ParseLink(*Link);
  if (auto Bars = Entry.Optional("bars")) D.Bars = ParseBars(*Bars);
  if (auto Port = Entry.Optional("portNumber")) D.PortNumber = U8(*Port);
  if (auto Extended = Entry.Optional("extendedCapabilities")) {
    if (!D.Express) Extended->Fail("a PCI Express function (extended capabilities need its 4096-byte space)");
    D.Extended = ParseExtendedCapabilities(*Extended, D.Type == PciPortType::RootPort, D.Link.MaxWidth);
    try {
      std::vector<uint8_t> Scratch(kPciExpressConfigSize, 0);
      PutExtendedCapabilities(D.Extended, &Scratch);
    } catch (const std::invalid_argument &Error) {
      Extended->Fail(Error.what());
    }
  }
  if (auto Faults = Entry.Optional("faults")) {
    Faults->AllowOnly({"allOnes", "readFails", "readStatus", "mirrorExtendedSpace", "writeFails", "writeStatus",
                       "capabilityLoop", "capabilityPointer"});
    if (auto Loop = Faults->Optional("capabilityLoop")) D.CapabilityLoop = Loop->Bool();
    if (auto Pointer = Faults->Optional("capabilityPointer")) D.CapabilityPointer = U8(*Pointer);
  }
  return D;
}

unsigned ParseBus(const JsonField &Devices, uint8_t Bus, PciDeviceDescription *Parent, Expansion &X);

// One function on Bus; bridges take their secondary bus and descend.
// Returns the highest bus the function uses (its own, or its subordinate).
unsigned ParseDevice(const JsonField &Entry, uint8_t Bus, PciDeviceDescription *Parent, Expansion &X,
                 std::vector<std::pair<PciFunctionDef, RawOverride>> *OnBus) {
  Entry.AllowOnly({"device", "function", "type", "vendorId", "deviceId", "subsystemVendorId", "subsystemId",
                   "revisionId", "classCode", "pcie", "link", "slot", "bars", "portNumber", "devices",
                   "secondaryBus", "subordinateBus", "config", "patches", "faults", "firmware", "nic",
                   "vpd", "nvme", "vroc", "vmd", "extendedCapabilities", "iio", "windows"});
  PciFunctionDef F;
  F.Segment = X.Segment;
  F.Bus = Bus;
  F.Device = Entry.Has("device") ? static_cast<uint8_t>(Entry.At("device").Uint(31)) : 0;
  F.Function = Entry.Has("function") ? static_cast<uint8_t>(Entry.At("function").Uint(7)) : 0;
  if (!X.Taken->insert(F.Location()).second) {
    Entry.Fail("a device and function not used before at " + F.Location().Text());
  }
  PciDeviceDescription D = ParseDescription(Entry);
  bool Bridge = IsBridgeType(D.Type);

  if (auto Slot = Entry.Optional("slot")) {
    uint16_t Number = static_cast<uint16_t>(Slot->Uint(kMaxPhysicalSlot));
    if (IsPortType(D.Type)) {
      D.Slot = Number;
    } else if (!Bridge && Parent != nullptr && IsPortType(Parent->Type)) {
      // An endpoint's slot is the one its port implements.
      if (Parent->Slot.has_value() && *Parent->Slot != Number) {
        Slot->Fail("the slot number of the port above (" + std::to_string(*Parent->Slot) + ")");
      }
      Parent->Slot = Number;
    } else {
      Slot->Fail("a slot on a root or downstream port, or on an endpoint directly below one");
    }
  }

  if (Bridge) {
    D.PrimaryBus = Bus;
    unsigned Secondary = X.NextBus;
    if (auto Fixed = Entry.Optional("secondaryBus")) {
      Secondary = static_cast<unsigned>(Fixed->Uint(0xFF));
      if (Secondary <= Bus) Fixed->Fail("a bus above the bridge's own bus " + std::to_string(Bus));
    }
    if (Secondary > X.LastBus) {
      Entry.Fail("a free bus for its secondary side inside the host bridge's buses (up to " +
                 std::to_string(X.LastBus) + ")");
    }
    X.NextBus = std::max(X.NextBus, Secondary + 1);
    unsigned Subordinate = Secondary;
    if (auto Children = Entry.Optional("devices")) {
      Subordinate = ParseBus(*Children, static_cast<uint8_t>(Secondary), &D, X);
    }
    if (auto Fixed = Entry.Optional("subordinateBus")) {
      unsigned Given = static_cast<unsigned>(Fixed->Uint(0xFF));
      if (Given < Subordinate || Given > X.LastBus) {
        Fixed->Fail("a bus from " + std::to_string(Subordinate) + " (the buses below) to " +
                    std::to_string(X.LastBus));
      }
      Subordinate = Given;
    }
    X.NextBus = std::max(X.NextBus, Subordinate + 1);
    D.SecondaryBus = static_cast<uint8_t>(Secondary);
    D.SubordinateBus = static_cast<uint8_t>(Subordinate);
  } else {
    for (const char *Key : {"devices", "secondaryBus", "subordinateBus", "portNumber"}) {
      if (Entry.Has(Key)) Entry.At(Key).Fail("a bridge \"type\" for this member");
    }
  }

  try {
    BuiltConfig Built = BuildConfigSpace(D);
    F.Config = std::move(Built.Bytes);
    F.Bars = Built.Bars;
  } catch (const std::invalid_argument &Error) {
    Entry.At("bars").Fail(Error.what());
  }
  // BARs without a base get one from the bus driver, unless raw bytes may
  // have set the registers themselves.
  if (!Entry.Has("config") && !Entry.Has("patches")) {
    uint8_t Registers = 0;
    int Index = 0;
    for (const PciBarDef &Bar : D.Bars) {
      if (Bar.AutoBase) Registers |= static_cast<uint8_t>(1U << Index);
      Index += Bar.Type == PciBarDef::Mem64 ? 2 : 1;
    }
    if (Registers != 0) X.Plan->Registers[F.Location()] = Registers;
  }
  if (auto Faults = Entry.Optional("faults")) F.Faults = ParseRuntimeFaults(*Faults);
  if (auto Firmware = Entry.Optional("firmware")) F.FirmwareImages = ParseFirmwareImages(*Firmware);
  if (auto Nic = Entry.Optional("nic")) F.Nic = ParseNic(*Nic, false);
  ParseDeviceExtras(Entry, &F);
  if (Bridge) {
    // Raw bytes may set the windows themselves; then only "auto" derives them.
    bool Auto = !Entry.Has("config") && !Entry.Has("patches");
    if (auto Windows = Entry.Optional("windows")) Auto = ParseBridgeWindows(*Windows, &F.Config);
    if (Auto) X.Plan->DerivedWindows.insert(F.Location());
  } else if (Entry.Has("windows")) {
    Entry.At("windows").Fail("a bridge \"type\" for this member");
  }
  if (auto Iio = Entry.Optional("iio")) {
    if (D.Type != PciPortType::RootPort) Iio->Fail("a \"rootPort\" type for this member");
    F.IioPort = ParseIioPort(*Iio);
  }
  OnBus->emplace_back(std::move(F), ParseRawOverride(Entry));
  return Bridge ? D.SubordinateBus : Bus;
}

// The functions on Bus; returns the highest bus used at or below it.
unsigned ParseBus(const JsonField &Devices, uint8_t Bus, PciDeviceDescription *Parent, Expansion &X) {
  unsigned Highest = Bus;
  std::vector<std::pair<PciFunctionDef, RawOverride>> OnBus;
  for (const JsonField &Entry : Devices.Elements()) {
    Highest = std::max(Highest, ParseDevice(Entry, Bus, Parent, X, &OnBus));
  }
  // A device with more than one function says so in function 0's header.
  for (auto &[First, Raw] : OnBus) {
    if (First.Function != 0) continue;
    for (const auto &Other : OnBus) {
      if (Other.first.Device == First.Device && Other.first.Function != 0) First.Config[0x0E] |= 0x80;
    }
  }
  for (auto &[Function, Raw] : OnBus) {
    ApplyRawOverride(Raw, &Function.Config);
    X.Out->push_back(std::move(Function));
  }
  return Highest;
}

PciHostBridge ParseHostBridge(const JsonField &Entry, size_t Index, const std::vector<PciHostBridge> &Earlier,
                              std::set<PciLocation> *Taken, std::vector<PciFunctionDef> *Out,
                              BarAssignmentPlan *Plan) {
  Entry.AllowOnly({"segment", "uid", "buses", "pcieRoot", "devices"});
  PciHostBridge Host;
  Host.Segment = Entry.Has("segment") ? U16(Entry.At("segment")) : 0;
  Host.Uid = Entry.Has("uid") ? static_cast<uint32_t>(Entry.At("uid").Uint(0xFFFFFFFF)) : static_cast<uint32_t>(Index);
  if (auto Root = Entry.Optional("pcieRoot")) Host.PcieRoot = Root->Bool();
  unsigned First = 0;
  for (const PciHostBridge &Other : Earlier) {
    if (Other.Segment == Host.Segment) First = std::max<unsigned>(First, Other.LastBus + 1u);
  }
  unsigned Last = 0xFF;
  auto Buses = Entry.Optional("buses");
  if (Buses) {
    auto Ends = Buses->Elements();
    if (Ends.size() != 2) Buses->Fail("[first bus, last bus]");
    First = static_cast<unsigned>(Ends[0].Uint(0xFF));
    Last = static_cast<unsigned>(Ends[1].Uint(0xFF));
    if (Last < First) Buses->Fail("a last bus not below the first");
  } else if (First > 0xFF) {
    Entry.Fail("\"buses\": the buses of segment " + std::to_string(Host.Segment) + " are used up");
  }
  Expansion X;
  X.Segment = Host.Segment;
  X.LastBus = Last;
  X.NextBus = First + 1;
  X.Taken = Taken;
  X.Out = Out;
  X.Plan = Plan;
  unsigned Highest = First;
  if (auto Devices = Entry.Optional("devices")) Highest = ParseBus(*Devices, static_cast<uint8_t>(First), nullptr, X);
  Host.FirstBus = static_cast<uint8_t>(First);
  Host.LastBus = static_cast<uint8_t>(Buses ? Last : Highest);
  for (const PciHostBridge &Other : Earlier) {
    if (Other.Segment == Host.Segment && Host.FirstBus <= Other.LastBus && Other.FirstBus <= Host.LastBus) {
      Entry.Fail("buses no other host bridge of segment " + std::to_string(Host.Segment) + " decodes");
    }
  }
  return Host;
}

PciRootBridgeDef ParseRootBridge(const JsonField &Entry) {
  Entry.AllowOnly({"segment", "busRanges", "configuration"});
  PciRootBridgeDef Bridge;
  if (auto Segment = Entry.Optional("segment")) Bridge.Segment = U16(*Segment);
  if (auto Configuration = Entry.Optional("configuration")) {
    if (Configuration->String() != "unsupported") Configuration->Fail("\"unsupported\" (or leave it out)");
    Bridge.ConfigurationUnsupported = true;
  }
  if (auto Ranges = Entry.Optional("busRanges")) {
    for (const JsonField &Range : Ranges->Elements()) {
      auto Ends = Range.Elements();
      if (Ends.size() != 2) Range.Fail("a range [first bus, last bus]");
      uint16_t First = static_cast<uint16_t>(Ends[0].Uint(255));
      uint16_t Last = static_cast<uint16_t>(Ends[1].Uint(255));
      if (Last < First) Range.Fail("a last bus not below the first");
      Bridge.BusRanges.emplace_back(First, Last);
    }
  }
  if (!Bridge.ConfigurationUnsupported && Bridge.BusRanges.empty()) {
    Entry.Fail("\"busRanges\" or \"configuration\": \"unsupported\"");
  }
  return Bridge;
}

}  // namespace

void ParsePci(const JsonField &Pci, Board *Out) {
  Pci.AllowOnly({"import", "hostBridges", "functions", "rootBridges", "nicDb"});
  PciDef Def;
  std::set<PciLocation> Taken;
  BarAssignmentPlan Plan;
  if (auto Functions = Pci.Optional("functions")) {
    for (const JsonField &Entry : Functions->Elements()) {
      PciFunctionDef F = ParseFlatFunction(Entry);
      if (!Taken.insert(F.Location()).second) Entry.At("bdf").Fail("a function address not listed before");
      Def.Functions.push_back(std::move(F));
    }
  }
  // An imported machine comes first: the board's own functions replace its
  // functions, the board's own host bridges come after its host bridges.
  if (auto Import = Pci.Optional("import")) AddLspciImport(*Import, Out->Directory, &Def, &Taken);
  if (auto Hosts = Pci.Optional("hostBridges")) {
    auto Elements = Hosts->Elements();
    for (size_t I = 0; I < Elements.size(); I++) {
      size_t Index = Def.HostBridges.size();
      Def.HostBridges.push_back(
          ParseHostBridge(Elements[I], Index, Def.HostBridges, &Taken, &Def.Functions, &Plan));
    }
    AssignBarBases(Def.HostBridges, Plan, &Def.Functions);
    AssignBridgeWindows(Plan.DerivedWindows, &Def.Functions);
  }
  auto Bridges = Pci.Optional("rootBridges");
  if (Bridges && !Bridges->IsNull()) {
    Def.RootBridges.emplace();
    for (const JsonField &Entry : Bridges->Elements()) Def.RootBridges->push_back(ParseRootBridge(Entry));
  }
  if (auto NicDb = Pci.Optional("nicDb")) {
    for (const JsonField &Entry : NicDb->Elements()) Def.NicDb.push_back(ParseNic(Entry, true));
  }
  Out->Pci = std::move(Def);
}

std::vector<PciFunctionDef> ParsePciDomain(const JsonField &Devices, uint8_t FirstBus, uint8_t LastBus) {
  std::vector<PciFunctionDef> Out;
  std::set<PciLocation> Taken;
  BarAssignmentPlan Plan;  // behind a VMD BARs keep the bases the board gives
  Expansion X;
  X.LastBus = LastBus;
  X.NextBus = FirstBus + 1u;
  X.Taken = &Taken;
  X.Out = &Out;
  X.Plan = &Plan;
  ParseBus(Devices, FirstBus, nullptr, X);
  AssignBridgeWindows(Plan.DerivedWindows, &Out);
  return Out;
}

std::vector<PciRootBridgeDef> RootBridgesOf(const PciDef &Pci) {
  if (Pci.RootBridges) return *Pci.RootBridges;
  std::vector<PciRootBridgeDef> Out;
  for (const PciHostBridge &Host : Pci.HostBridges) {
    PciRootBridgeDef Bridge;
    Bridge.Segment = Host.Segment;
    Bridge.BusRanges.emplace_back(Host.FirstBus, Host.LastBus);
    Out.push_back(Bridge);
  }
  return Out;
}

}  // namespace qor::emu
