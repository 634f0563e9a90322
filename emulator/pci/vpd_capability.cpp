#include "emulator/pci/vpd_capability.h"

#include <algorithm>
#include <set>

namespace qor::emu {

namespace {

constexpr uint8_t kTagIdentifier = 0x82;
constexpr uint8_t kTagReadOnly = 0x90;
constexpr uint8_t kTagReadWrite = 0x91;
constexpr uint8_t kTagEnd = 0x78;
constexpr uint32_t kCapabilitiesListStatusBit = 0x10;  // Status register bit 4
constexpr uint16_t kVpdFlag = 0x8000;

void PutLargeResource(std::vector<uint8_t> *Out, uint8_t Tag, const std::vector<uint8_t> &Data) {
  Out->push_back(Tag);
  Out->push_back(static_cast<uint8_t>(Data.size()));
  Out->push_back(static_cast<uint8_t>(Data.size() >> 8));
  Out->insert(Out->end(), Data.begin(), Data.end());
}

std::vector<uint8_t> Keywords(const std::vector<VpdKeyword> &List) {
  std::vector<uint8_t> Out;
  for (const auto &[Name, Value] : List) {
    Out.push_back(static_cast<uint8_t>(Name.size() > 0 ? Name[0] : ' '));
    Out.push_back(static_cast<uint8_t>(Name.size() > 1 ? Name[1] : ' '));
    Out.push_back(static_cast<uint8_t>(Value.size()));
    Out.insert(Out.end(), Value.begin(), Value.end());
  }
  return Out;
}

}  // namespace

std::vector<uint8_t> BuildVpdImage(const std::string &Identifier, const std::vector<VpdKeyword> &ReadOnly,
                                   const std::vector<VpdKeyword> &ReadWrite, bool Checksum, bool End) {
  std::vector<uint8_t> Image;
  PutLargeResource(&Image, kTagIdentifier, std::vector<uint8_t>(Identifier.begin(), Identifier.end()));
  std::vector<uint8_t> Section = Keywords(ReadOnly);
  if (Checksum) {
    Section.insert(Section.end(), {'R', 'V', 1, 0});
  }
  if (!Section.empty()) {
    PutLargeResource(&Image, kTagReadOnly, Section);
    if (Checksum) {
      uint8_t Sum = 0;
      for (size_t I = 0; I + 1 < Image.size(); I++) Sum = static_cast<uint8_t>(Sum + Image[I]);
      Image.back() = static_cast<uint8_t>(0x100 - Sum);
    }
  }
  if (!ReadWrite.empty()) PutLargeResource(&Image, kTagReadWrite, Keywords(ReadWrite));
  if (End) Image.push_back(kTagEnd);
  return Image;
}

uint32_t AddVpdCapability(std::vector<uint8_t> *Config, uint32_t Offset) {
  std::vector<uint8_t> &C = *Config;
  if (uint32_t Existing = FindPciCapability(C, kPciCapabilityIdVpd)) return Existing;
  C[Offset] = kPciCapabilityIdVpd;
  C[Offset + 1] = 0;
  std::fill(C.begin() + Offset + 2, C.begin() + Offset + 8, 0);
  uint32_t Pointer = C[0x34] & 0xFC;
  if (Pointer < 0x40 || (C[0x06] & kCapabilitiesListStatusBit) == 0) {
    C[0x34] = static_cast<uint8_t>(Offset);
    C[0x06] |= kCapabilitiesListStatusBit;
    return Offset;
  }
  std::set<uint32_t> Seen;
  while (Seen.insert(Pointer).second && Pointer + 1 < C.size()) {
    uint32_t Next = C[Pointer + 1] & 0xFC;
    if (Next < 0x40) {
      C[Pointer + 1] = static_cast<uint8_t>(Offset);
      return Offset;
    }
    Pointer = Next;
  }
  return Offset;  // a looping list: left as it is
}

VpdCapability::VpdCapability(const VpdDef &Def, uint32_t CapabilityOffset, const TimeStampCounter &Clock)
    : FailAt_(Def.FailAt), Cap_(CapabilityOffset), Clock_(Clock) {
  uint32_t Size = Def.StorageSize != 0 ? Def.StorageSize : static_cast<uint32_t>((Def.Image.size() + 3) & ~size_t{3});
  Size = std::clamp<uint32_t>(Size, 4, kVpdMaxBytes);
  Storage_.assign(Size, 0xFF);
  std::copy_n(Def.Image.begin(), std::min<size_t>(Def.Image.size(), Size), Storage_.begin());
  if (Def.LatencyUs) LatencyTicks_ = Clock.TicksFor(*Def.LatencyUs);
}

bool VpdCapability::Covers(uint32_t Offset, uint32_t Width, uint32_t Register) const {
  return Cap_ + Register >= Offset && Cap_ + Register - Offset < Width;
}

uint32_t VpdCapability::StorageDword(uint32_t Address) const {
  uint32_t Value = 0;
  for (uint32_t I = 0; I < 4; I++) Value |= uint32_t{Storage_[(Address + I) % Storage_.size()]} << (8 * I);
  return Value;
}

// Completes the operation in flight once its time has come.
void VpdCapability::Settle() {
  if (!Pending_ || Never_ || Clock_.Now() < ReadyAt_) return;
  Pending_ = false;
  uint32_t Address = Address_ & 0x7FFC;
  if (Writing_) {
    for (uint32_t I = 0; I < 4; I++) Storage_[(Address + I) % Storage_.size()] = static_cast<uint8_t>(Data_ >> (8 * I));
    Flag_ = false;
  } else {
    Data_ = StorageDword(Address);
    Flag_ = true;
  }
}

uint8_t VpdCapability::RegisterByte(uint32_t Index) const {
  uint16_t AddressRegister = static_cast<uint16_t>(Address_ | (Flag_ ? kVpdFlag : 0));
  if (Index < 4) return static_cast<uint8_t>(AddressRegister >> (8 * (Index - 2)));
  return static_cast<uint8_t>(Data_ >> (8 * (Index - 4)));
}

void VpdCapability::AfterRead(uint32_t Offset, uint32_t Width, uint64_t *Value) {
  bool Touches = false;
  for (uint32_t Register = 2; Register < 8; Register++) Touches = Touches || Covers(Offset, Width, Register);
  if (!Touches) return;
  Settle();
  if (Covers(Offset, Width, 3)) FlagReads_++;
  for (uint32_t I = 0; I < Width && I < 8; I++) {
    uint32_t At = Offset + I;
    if (At < Cap_ + 2 || At >= Cap_ + 8) continue;
    *Value &= ~(uint64_t{0xFF} << (8 * I));
    *Value |= uint64_t{RegisterByte(At - Cap_)} << (8 * I);
  }
}

void VpdCapability::AfterWrite(uint32_t Offset, uint32_t Width, uint64_t Value) {
  uint16_t AddressRegister = static_cast<uint16_t>(Address_ | (Flag_ ? kVpdFlag : 0));
  for (uint32_t I = 0; I < Width && I < 8; I++) {
    uint32_t At = Offset + I;
    uint8_t Byte = static_cast<uint8_t>(Value >> (8 * I));
    if (At == Cap_ + 2) AddressRegister = static_cast<uint16_t>((AddressRegister & 0xFF00) | Byte);
    if (At == Cap_ + 3) AddressRegister = static_cast<uint16_t>((AddressRegister & 0x00FF) | Byte << 8);
    if (At >= Cap_ + 4 && At < Cap_ + 8) {
      uint32_t Shift = 8 * (At - Cap_ - 4);
      Data_ = (Data_ & ~(0xFFu << Shift)) | uint32_t{Byte} << Shift;
    }
  }
  Address_ = AddressRegister & 0x7FFF;
  // Writing the byte that holds the flag starts an operation.
  if (!Covers(Offset, Width, 3)) return;
  Writing_ = (AddressRegister & kVpdFlag) != 0;
  Flag_ = Writing_;
  Pending_ = true;
  Requests_++;
  FlagReads_ = 0;
  uint32_t Address = Address_ & 0x7FFC;
  Never_ = !LatencyTicks_ ||
           (!Writing_ && std::find(FailAt_.begin(), FailAt_.end(), Address) != FailAt_.end());
  ReadyAt_ = Clock_.Now() + LatencyTicks_.value_or(0);
}

}  // namespace qor::emu
