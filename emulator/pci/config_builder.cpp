#include "emulator/pci/config_builder.h"

#include <stdexcept>

namespace qor::emu {

bool IsBridgeType(PciPortType Type) {
  return Type == PciPortType::RootPort || Type == PciPortType::UpstreamPort ||
         Type == PciPortType::DownstreamPort || Type == PciPortType::PcieToPciBridge ||
         Type == PciPortType::PciBridge;
}

namespace {

constexpr uint32_t kPmCap = 0x40;
constexpr uint32_t kExpressCap = 0x50;

class Space {
 public:
  explicit Space(size_t Size) : Bytes(Size, 0) {}
  void Put(uint32_t Offset, uint64_t Value, int Width) {
    for (int I = 0; I < Width; I++) Bytes[Offset + I] = static_cast<uint8_t>(Value >> (8 * I));
  }
  std::vector<uint8_t> Bytes;
};

bool IsPort(PciPortType Type) {
  return Type == PciPortType::RootPort || Type == PciPortType::DownstreamPort;
}

void PutBars(const PciDeviceDescription &D, bool Bridge, Space &S, BuiltConfig &Out, uint16_t *Command) {
  int Limit = Bridge ? 2 : 6;
  int Index = 0;
  for (const PciBarDef &Bar : D.Bars) {
    int Registers = Bar.Type == PciBarDef::Mem64 ? 2 : 1;
    if (Index + Registers > Limit) {
      throw std::invalid_argument("at most " + std::to_string(Limit) +
                                  " BAR registers for this header (a 64-bit BAR takes two)");
    }
    uint32_t Offset = 0x10 + 4 * Index;
    Out.Bars.Size[Index] = Bar.Size;
    switch (Bar.Type) {
      case PciBarDef::Io16:
        Out.Bars.Io16Mask |= static_cast<uint8_t>(1U << Index);
        [[fallthrough]];
      case PciBarDef::Io:
        S.Put(Offset, (Bar.Base & ~uint64_t{3}) | 1, 4);
        *Command |= 0x1;
        break;
      case PciBarDef::Mem32:
        S.Put(Offset, (Bar.Base & 0xFFFFFFF0) | (Bar.Prefetchable ? 0x8 : 0), 4);
        *Command |= 0x2;
        break;
      case PciBarDef::Mem64:
        S.Put(Offset, (Bar.Base & 0xFFFFFFF0) | 0x4 | (Bar.Prefetchable ? 0x8 : 0), 4);
        S.Put(Offset + 4, Bar.Base >> 32, 4);
        *Command |= 0x2;
        break;
    }
    Index += Registers;
  }
}

void PutExpressCapability(const PciDeviceDescription &D, Space &S) {
  const uint32_t P = kExpressCap;
  const PciLinkDef &L = D.Link;
  bool SlotImplemented = IsPort(D.Type) && D.Slot.has_value();
  S.Put(P + 0x00, 0x10, 1);
  S.Put(P + 0x01, D.CapabilityLoop ? kPmCap : 0, 1);
  S.Put(P + 0x02, 0x0002 | (static_cast<uint32_t>(D.Type) & 0xF) << 4 | (SlotImplemented ? 0x100 : 0), 2);
  S.Put(P + 0x04, 0x00008001, 4);  // Device Capabilities: 256-byte payload, role-based errors
  S.Put(P + 0x08, 0x2810, 2);      // Device Control: relaxed ordering, no snoop, 512-byte reads
  uint32_t LinkCaps = (L.MaxSpeed & 0xF) | (L.MaxWidth & 0x3F) << 4;
  if (IsBridgeType(D.Type)) LinkCaps |= uint32_t{D.PortNumber} << 24;
  if (IsPort(D.Type)) LinkCaps |= 1U << 20;  // data link layer active reporting
  S.Put(P + 0x0C, LinkCaps, 4);
  uint32_t LinkStatus = (L.Speed & 0xF) | (L.Width & 0x3F) << 4 | 0x1000;  // slot clock
  if (IsPort(D.Type) && L.Width != 0) LinkStatus |= 0x2000;               // link active
  S.Put(P + 0x12, LinkStatus, 2);
  if (SlotImplemented) {
    S.Put(P + 0x14, uint32_t{*D.Slot} << 19 | 0x4B << 7, 4);  // slot number, 75 W
    S.Put(P + 0x1A, L.Width != 0 ? 0x0040 : 0, 2);            // presence detect
  }
  S.Put(P + 0x24, 0x0000001F, 4);  // Device Capabilities 2: completion timeout ranges
  S.Put(P + 0x2C, ((1U << (L.MaxSpeed & 0x7)) - 1) << 1, 4);  // supported speeds vector
  S.Put(P + 0x30, L.MaxSpeed & 0xF, 2);                         // target link speed
}

}  // namespace

BuiltConfig BuildConfigSpace(const PciDeviceDescription &D) {
  bool Bridge = IsBridgeType(D.Type);
  bool Express = D.Express && D.Type != PciPortType::PciBridge;
  Space S(Express ? kPciExpressConfigSize : kPciConventionalConfigSize);
  BuiltConfig Out;
  uint16_t Command = 0x0004;  // bus master
  S.Put(0x00, D.VendorId, 2);
  S.Put(0x02, D.DeviceId, 2);
  S.Put(0x06, 0x0010, 2);  // capabilities list
  S.Put(0x08, D.RevisionId, 1);
  S.Put(0x09, D.ClassCode.value_or(Bridge ? 0x060400 : 0), 3);
  S.Put(0x0E, Bridge ? 1 : 0, 1);
  PutBars(D, Bridge, S, Out, &Command);
  if (Bridge) {
    Command |= 0x0003;
    S.Put(0x18, D.PrimaryBus, 1);
    S.Put(0x19, D.SecondaryBus, 1);
    S.Put(0x1A, D.SubordinateBus, 1);
    S.Put(0x1C, 0x01F1, 2);       // I/O window closed, 32-bit decoder
    S.Put(0x20, 0x0000FFF0, 4);   // memory window closed
    S.Put(0x24, 0x0001FFF1, 4);   // prefetchable window closed, 64-bit decoder
  } else {
    S.Put(0x2C, D.SubsystemVendorId, 2);
    S.Put(0x2E, D.SubsystemId, 2);
    S.Put(0x3D, 1, 1);  // INTA#
  }
  S.Put(0x04, Command, 2);
  S.Put(0x34, D.CapabilityPointer.value_or(kPmCap), 1);
  S.Put(0x3C, 0xFF, 1);
  // Power management: version 3, D0, no soft reset.
  S.Put(kPmCap + 0, 0x01, 1);
  S.Put(kPmCap + 1, Express ? kExpressCap : (D.CapabilityLoop ? kPmCap : 0), 1);
  S.Put(kPmCap + 2, 0x0003, 2);
  S.Put(kPmCap + 4, 0x0008, 2);
  if (Express) {
    PutExpressCapability(D, S);
    PutExtendedCapabilities(D.Extended, &S.Bytes);
  }
  Out.Bytes = std::move(S.Bytes);
  return Out;
}

}  // namespace qor::emu
