#include "emulator/pci/extended_capabilities.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "emulator/board_json.h"
#include "emulator/pci/pci_function.h"

namespace qor::emu {

namespace {

constexpr uint32_t kExtendedStart = 0x100;
constexpr uint32_t kHeaderSize = 4;

// A register of a capability block: name, offset from the capability's
// start, width in bytes, value when the board leaves it out.
struct Register {
  const char *Name;
  uint32_t Offset;
  uint32_t Width;
  uint64_t Default;
};

// Uncorrectable errors that are fatal by default, and the advisory
// non-fatal error masked by default, as the PCI Express base specification
// sets them after reset.
constexpr uint64_t kAerSeverityDefault = 0x00462030;
constexpr uint64_t kAerCorrectableMaskDefault = 0x00002000;

const Register kAerRegisters[] = {
    {"uncorrectableStatus", 0x04, 4, 0},
    {"uncorrectableMask", 0x08, 4, 0},
    {"uncorrectableSeverity", 0x0C, 4, kAerSeverityDefault},
    {"correctableStatus", 0x10, 4, 0},
    {"correctableMask", 0x14, 4, kAerCorrectableMaskDefault},
    {"capabilitiesControl", 0x18, 4, 0},
};
const Register kAerRootRegisters[] = {
    {"rootCommand", 0x2C, 4, 0},
    {"rootStatus", 0x30, 4, 0},
    {"errorSourceId", 0x34, 4, 0},
};
const Register kSecondaryPcieRegisters[] = {
    {"linkControl3", 0x04, 4, 0},
    {"laneErrorStatus", 0x08, 4, 0},
};
const Register kSerialNumberRegisters[] = {
    {"value", 0x04, 8, 0},
};
// Root port defaults: RP extensions, poisoned TLP egress blocking, software
// trigger, an RP PIO log of 4 dwords, DL_Active ERR_COR.
constexpr uint64_t kDpcRootCapabilityDefault = 0x14E0;
constexpr uint16_t kDpcRpExtensions = 0x0020;
const Register kDpcRegisters[] = {
    {"control", 0x06, 2, 0},
    {"status", 0x08, 2, 0},
    {"errorSourceId", 0x0A, 2, 0},
};
const Register kDpcRpRegisters[] = {
    {"rpPioStatus", 0x0C, 4, 0},
    {"rpPioMask", 0x10, 4, 0},
    {"rpPioSeverity", 0x14, 4, 0},
    {"rpPioSysError", 0x18, 4, 0},
    {"rpPioException", 0x1C, 4, 0},
};
constexpr uint16_t kAcsEgressControl = 0x0020;
const Register kAcsRegisters[] = {
    {"capability", 0x04, 2, 0},
    {"control", 0x06, 2, 0},
};

template <size_t N>
void PutRegisters(const JsonField &Entry, const Register (&Registers)[N], std::vector<uint8_t> *Block) {
  for (const Register &R : Registers) {
    uint64_t Max = R.Width >= 8 ? UINT64_MAX : (uint64_t{1} << (8 * R.Width)) - 1;
    uint64_t Value = Entry.Has(R.Name) ? Entry.At(R.Name).Uint(Max) : R.Default;
    for (uint32_t I = 0; I < R.Width; I++) (*Block)[R.Offset - kHeaderSize + I] = static_cast<uint8_t>(Value >> (8 * I));
  }
}

uint32_t RoundUp4(uint32_t Size) { return (Size + 3) & ~3U; }

}  // namespace

std::vector<PciExtendedCapabilityDef> ParseExtendedCapabilities(const JsonField &List, bool RootPort,
                                                                uint8_t MaxWidth) {
  std::vector<PciExtendedCapabilityDef> Out;
  for (const JsonField &Entry : List.Elements()) {
    PciExtendedCapabilityDef Cap;
    std::string Type = Entry.At("type").String();
    auto Block = [&Cap](uint32_t Size) { Cap.Body.assign(Size - kHeaderSize, 0); };
    if (Type == "aer") {
      Entry.AllowOnly({"type", "offset", "version", "uncorrectableStatus", "uncorrectableMask",
                       "uncorrectableSeverity", "correctableStatus", "correctableMask", "capabilitiesControl",
                       "rootCommand", "rootStatus", "errorSourceId"});
      Cap.Id = kExtCapAer;
      Cap.Version = 2;
      Block(RootPort ? 0x48 : 0x38);
      PutRegisters(Entry, kAerRegisters, &Cap.Body);
      if (RootPort) {
        PutRegisters(Entry, kAerRootRegisters, &Cap.Body);
      } else {
        for (const Register &R : kAerRootRegisters) {
          if (Entry.Has(R.Name)) Entry.At(R.Name).Fail("no root error register: the function is not a root port");
        }
      }
    } else if (Type == "secondaryPcie") {
      Entry.AllowOnly({"type", "offset", "version", "linkControl3", "laneErrorStatus"});
      Cap.Id = kExtCapSecondaryPcie;
      Block(RoundUp4(0x0C + 2 * std::max<uint32_t>(MaxWidth, 1)));  // one equalization control per lane
      PutRegisters(Entry, kSecondaryPcieRegisters, &Cap.Body);
    } else if (Type == "serialNumber") {
      Entry.AllowOnly({"type", "offset", "version", "value"});
      Cap.Id = kExtCapSerialNumber;
      Block(0x0C);
      PutRegisters(Entry, kSerialNumberRegisters, &Cap.Body);
    } else if (Type == "dpc") {
      Entry.AllowOnly({"type", "offset", "version", "capability", "control", "status", "errorSourceId",
                       "rpPioStatus", "rpPioMask", "rpPioSeverity", "rpPioSysError", "rpPioException"});
      Cap.Id = kExtCapDpc;
      uint64_t Capability = Entry.Has("capability") ? Entry.At("capability").Uint(0xFFFF)
                                                    : (RootPort ? kDpcRootCapabilityDefault : 0);
      // The RP PIO registers and logs exist only with the root port extensions.
      bool RpExtensions = (Capability & kDpcRpExtensions) != 0;
      Block(RpExtensions ? 0x44 : 0x0C);
      Cap.Body[0] = static_cast<uint8_t>(Capability);
      Cap.Body[1] = static_cast<uint8_t>(Capability >> 8);
      PutRegisters(Entry, kDpcRegisters, &Cap.Body);
      if (RpExtensions) {
        PutRegisters(Entry, kDpcRpRegisters, &Cap.Body);
      } else {
        for (const Register &R : kDpcRpRegisters) {
          if (Entry.Has(R.Name)) Entry.At(R.Name).Fail("no RP PIO register: the capability has no RP extensions (bit 5)");
        }
      }
    } else if (Type == "acs") {
      Entry.AllowOnly({"type", "offset", "version", "capability", "control"});
      Cap.Id = kExtCapAcs;
      uint64_t Capability = Entry.Has("capability") ? Entry.At("capability").Uint(0xFFFF) : 0;
      uint32_t Vector = 0;
      if ((Capability & kAcsEgressControl) != 0) {
        uint32_t Bits = static_cast<uint32_t>(Capability >> 8) & 0xFF;
        Vector = 4 * (((Bits == 0 ? 256 : Bits) + 31) / 32);  // the egress control vector
      }
      Block(0x08 + Vector);
      PutRegisters(Entry, kAcsRegisters, &Cap.Body);
    } else if (Type == "raw") {
      Entry.AllowOnly({"type", "offset", "version", "id", "bytes"});
      Cap.Id = static_cast<uint16_t>(Entry.At("id").Uint(0xFFFF));
      if (Entry.Has("bytes")) Cap.Body = Entry.At("bytes").Bytes();
    } else {
      Entry.At("type").Fail("one of: aer, secondaryPcie, serialNumber, dpc, acs, raw");
    }
    if (auto Version = Entry.Optional("version")) Cap.Version = static_cast<uint8_t>(Version->Uint(0xF));
    if (auto Offset = Entry.Optional("offset")) {
      uint64_t At = Offset->Uint(kPciExpressConfigSize - kHeaderSize);
      if (At < kExtendedStart || At % 4 != 0) Offset->Fail("a dword-aligned offset from 0x100 to 0xFFC");
      Cap.Offset = static_cast<uint32_t>(At);
    }
    if (kHeaderSize + Cap.Body.size() > kPciExpressConfigSize - kExtendedStart) {
      Entry.Fail("a capability that fits the extended space");
    }
    Out.push_back(std::move(Cap));
  }
  return Out;
}

void PutExtendedCapabilities(const std::vector<PciExtendedCapabilityDef> &List, std::vector<uint8_t> *Space) {
  if (List.empty()) return;
  if (Space->size() < kPciExpressConfigSize) throw std::invalid_argument("extended capabilities need PCI Express");
  std::vector<bool> Used(kPciExpressConfigSize, false);
  uint32_t Next = kExtendedStart;
  uint32_t Previous = 0;
  for (size_t I = 0; I < List.size(); I++) {
    const PciExtendedCapabilityDef &Cap = List[I];
    uint32_t At = Cap.Offset.value_or(Next);
    if (I == 0 && At != kExtendedStart) throw std::invalid_argument("the first extended capability at 0x100");
    uint32_t Size = RoundUp4(kHeaderSize + static_cast<uint32_t>(Cap.Body.size()));
    if (At + Size > kPciExpressConfigSize) throw std::invalid_argument("extended capabilities past 0xFFF");
    for (uint32_t B = At; B < At + Size; B++) {
      if (Used[B]) throw std::invalid_argument("extended capabilities that overlap at " + std::to_string(B));
      Used[B] = true;
    }
    uint32_t Header = Cap.Id | uint32_t{Cap.Version & 0xFU} << 16;
    for (int B = 0; B < 4; B++) (*Space)[At + B] = static_cast<uint8_t>(Header >> (8 * B));
    std::copy(Cap.Body.begin(), Cap.Body.end(), Space->begin() + At + kHeaderSize);
    if (I > 0) {  // link the previous header's next pointer (bits 31:20) here
      (*Space)[Previous + 2] = static_cast<uint8_t>(((*Space)[Previous + 2] & 0x0F) | ((At & 0x0F) << 4));
      (*Space)[Previous + 3] = static_cast<uint8_t>(At >> 4);
    }
    Previous = At;
    Next = At + Size;
  }
}

}  // namespace qor::emu
