#include "emulator/pci/pci_function.h"

#include <cstdio>
#include <set>
#include <tuple>

namespace qor::emu {

bool PciLocation::operator<(const PciLocation &Other) const {
  return std::tie(Segment, Bus, Device, Function) < std::tie(Other.Segment, Other.Bus, Other.Device, Other.Function);
}

bool PciLocation::operator==(const PciLocation &Other) const {
  return std::tie(Segment, Bus, Device, Function) == std::tie(Other.Segment, Other.Bus, Other.Device, Other.Function);
}

std::string PciLocation::Text() const {
  char Out[16];
  std::snprintf(Out, sizeof(Out), "%04x:%02x:%02x.%x", Segment, Bus, Device, Function);
  return Out;
}

uint32_t FindPciCapability(const std::vector<uint8_t> &Config, uint8_t Id) {
  std::set<uint32_t> Seen;
  uint32_t Offset = Config.size() > 0x34 ? Config[0x34] & 0xFC : 0;
  while (Offset >= 0x40 && Offset + 1 < Config.size() && Seen.insert(Offset).second) {
    if (Config[Offset] == Id) return Offset;
    Offset = Config[Offset + 1] & 0xFC;
  }
  return 0;
}

namespace {

// Header registers (both layouts).
constexpr uint32_t kCommand = 0x04;
constexpr uint32_t kStatus = 0x06;
constexpr uint32_t kCacheLineSize = 0x0C;
constexpr uint32_t kFirstBar = 0x10;
constexpr uint32_t kInterruptLine = 0x3C;
// Command bits a PCI Express function implements: I/O, memory, bus master,
// parity error response, SERR#, INTx disable.
constexpr uint64_t kCommandWritable = 0x0547;
constexpr uint64_t kStatusErrorBits = 0xF900;  // write one to clear

constexpr uint8_t kCapPowerManagement = 0x01;
constexpr uint8_t kCapPciExpress = 0x10;

uint64_t SizeMask(uint64_t Size) {
  // A size that is not a power of two decodes the next power of two.
  uint64_t Power = 1;
  while (Power < Size && Power != 0) Power <<= 1;
  return Power == 0 ? 0 : ~(Power - 1);
}

}  // namespace

PciFunction::PciFunction(const PciLocation &Location, std::vector<uint8_t> Config, const PciBarSizes &Bars)
    : Location_(Location) {
  bool Express = Config.size() >= kPciExpressConfigSize;
  Config.resize(Express ? kPciExpressConfigSize : kPciConventionalConfigSize, 0);
  if (!Express && FindPciCapability(Config, kCapPciExpress) != 0) Config.resize(kPciExpressConfigSize, 0);
  Config_ = std::move(Config);
  BuildMasks(Bars);
}

void PciFunction::SetMask(uint32_t Offset, uint32_t Width, uint64_t Writable, uint64_t ClearOnOne) {
  for (uint32_t I = 0; I < Width && Offset + I < Config_.size(); I++) {
    WriteMask_[Offset + I] = static_cast<uint8_t>(Writable >> (8 * I));
    ClearMask_[Offset + I] = static_cast<uint8_t>(ClearOnOne >> (8 * I));
  }
}

void PciFunction::BuildMasks(const PciBarSizes &Bars) {
  WriteMask_.assign(Config_.size(), 0);
  ClearMask_.assign(Config_.size(), 0);
  SetMask(kCommand, 2, kCommandWritable);
  SetMask(kStatus, 2, 0, kStatusErrorBits);
  SetMask(kCacheLineSize, 1, 0xFF);
  SetMask(kInterruptLine, 1, 0xFF);

  uint8_t Layout = HeaderLayout();
  int BarCount = Layout == 0 ? 6 : Layout == 1 ? 2 : 0;
  for (int I = 0; I < BarCount; I++) {
    uint32_t Offset = kFirstBar + 4 * I;
    uint32_t Low = Config_[Offset] | Config_[Offset + 1] << 8 | Config_[Offset + 2] << 16 |
                   static_cast<uint32_t>(Config_[Offset + 3]) << 24;
    uint64_t Mask = Bars.Size[I] == 0 ? 0 : SizeMask(Bars.Size[I]);
    if ((Low & 1) != 0) {
      uint64_t IoMask = Mask & 0xFFFFFFFC;
      if ((Bars.Io16Mask & (1U << I)) != 0) IoMask &= 0xFFFF;
      SetMask(Offset, 4, IoMask);
    } else if (((Low >> 1) & 3) == 2 && (I + 1 < BarCount || Layout == 0)) {
      SetMask(Offset, 4, Mask & 0xFFFFFFF0);
      SetMask(Offset + 4, 4, Mask >> 32);
      I++;  // the upper half is part of this BAR
    } else {
      SetMask(Offset, 4, Mask & 0xFFFFFFF0);
    }
  }
  if (Layout == 1) {
    SetMask(0x18, 3, 0xFFFFFF);       // primary, secondary, subordinate bus
    SetMask(0x1C, 2, 0xF0F0);         // I/O base and limit; the low nibbles tell 16/32-bit
    SetMask(0x1E, 2, 0, kStatusErrorBits);
    SetMask(0x20, 4, 0xFFF0FFF0);     // memory base and limit
    SetMask(0x24, 4, 0xFFF0FFF0);     // prefetchable base and limit; low nibbles tell 32/64-bit
    SetMask(0x28, 4, 0xFFFFFFFF);     // prefetchable base and limit, upper 32 bits
    SetMask(0x2C, 4, 0xFFFFFFFF);
    SetMask(0x30, 4, 0xFFFFFFFF);     // I/O base and limit, upper 16 bits
    SetMask(0x3E, 2, 0x0FFF);         // bridge control
  }

  if (uint32_t Pm = FindPciCapability(Config_, kCapPowerManagement)) {
    SetMask(Pm + 4, 2, 0x0103, 0x8000);  // power state, PME enable; PME status
  }
  if (uint32_t Exp = FindPciCapability(Config_, kCapPciExpress)) {
    SetMask(Exp + 0x08, 2, 0x7FFF);            // Device Control
    SetMask(Exp + 0x0A, 2, 0, 0x000F);         // Device Status error bits
    SetMask(Exp + 0x10, 2, 0x0FFB);            // Link Control
    SetMask(Exp + 0x12, 2, 0, 0xC000);         // Link Status: bandwidth notifications
    SetMask(Exp + 0x18, 2, 0x1FFF);            // Slot Control
    SetMask(Exp + 0x1A, 2, 0, 0x011F);         // Slot Status events
    SetMask(Exp + 0x1C, 2, 0x001F);            // Root Control
    SetMask(Exp + 0x20, 4, 0, 0x00010000);     // Root Status: PME status
    SetMask(Exp + 0x28, 2, 0xFFFF);            // Device Control 2
    SetMask(Exp + 0x30, 2, 0xFFFF);            // Link Control 2
  }
}

uint8_t PciFunction::ByteAt(uint32_t Offset) const {
  if (Faults_.MirrorExtendedSpace && Offset >= kPciConventionalConfigSize && Offset < kPciExpressConfigSize) {
    return Config_[Offset & 0xFF];
  }
  return Offset < Config_.size() ? Config_[Offset] : 0xFF;
}

std::vector<uint8_t> PciFunction::View() const {
  if (Faults_.AllOnes) return std::vector<uint8_t>(Config_.size(), 0xFF);
  if (!Faults_.MirrorExtendedSpace) return Config_;  // the common case, without a byte-by-byte view
  std::vector<uint8_t> Out(Config_.size());
  for (uint32_t I = 0; I < Out.size(); I++) Out[I] = ByteAt(I);
  return Out;
}

EFI_STATUS PciFunction::Read(uint32_t Offset, uint32_t Width, uint64_t *Value) const {
  *Value = 0;
  if (Faults_.AllOnes) {
    *Value = Width >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * Width)) - 1;
    return EFI_SUCCESS;
  }
  if (Faults_.FailAllReads) return Faults_.ReadStatus;
  for (uint32_t At : Faults_.FailReadsAt) {
    if (At >= Offset && At - Offset < Width) return Faults_.ReadStatus;
  }
  for (uint32_t I = 0; I < Width && I < 8; I++) *Value |= uint64_t{ByteAt(Offset + I)} << (8 * I);
  if (Handler_ != nullptr) Handler_->AfterRead(Offset, Width, Value);
  return EFI_SUCCESS;
}

void PciFunction::Write(uint32_t Offset, uint32_t Width, uint64_t Value) {
  if (Faults_.AllOnes) return;
  for (uint32_t I = 0; I < Width && I < 8; I++) {
    uint64_t At = uint64_t{Offset} + I;
    if (At >= Config_.size()) break;
    uint8_t New = static_cast<uint8_t>(Value >> (8 * I));
    uint8_t &Byte = Config_[At];
    Byte = static_cast<uint8_t>((Byte & ~WriteMask_[At]) | (New & WriteMask_[At]));
    Byte = static_cast<uint8_t>(Byte & ~(New & ClearMask_[At]));
  }
  if (Handler_ != nullptr) Handler_->AfterWrite(Offset, Width, Value);
}

}  // namespace qor::emu
