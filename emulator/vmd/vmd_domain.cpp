#include "emulator/vmd/vmd_domain.h"

#include <map>

namespace qor::emu {

namespace {
constexpr size_t kEndNodeBytes = 4;

uint32_t Dword(const std::vector<uint8_t> &Bytes, size_t Offset) {
  return Bytes[Offset] | Bytes[Offset + 1] << 8 | Bytes[Offset + 2] << 16 | static_cast<uint32_t>(Bytes[Offset + 3]) << 24;
}
}  // namespace

VmdDomain::VmdDomain(PciFunction &Vmd, uint64_t Bar0Size, const VmdDomainDef &Def,
                     const std::vector<uint8_t> &VmdDevicePath)
    : Vmd_(Vmd), Bar0Size_(Bar0Size), Def_(Def) {
  PciHostBridge Root;
  Root.FirstBus = Def.FirstBus;
  Root.LastBus = Def.LastBus;
  Bus_.AddHostBridge(Root);
  std::map<PciLocation, const PciFunctionDef *> Defs;
  for (const PciFunctionDef &F : Def.Functions) {
    Bus_.AddFunction(F.Location(), F.Config, F.Bars).Faults() = F.Faults;
    Defs[F.Location()] = &F;
  }
  // The hidden paths continue the VMD's own: its path without the End node,
  // then the PCI nodes below the domain's root.
  std::vector<uint8_t> Prefix(VmdDevicePath.begin(), VmdDevicePath.end() - kEndNodeBytes);
  for (const EnumeratedFunction &Entry : Bus_.Enumerate()) {
    size_t RootNode = Entry.DevicePath[2] | Entry.DevicePath[3] << 8;
    std::vector<uint8_t> Path = Prefix;
    Path.insert(Path.end(), Entry.DevicePath.begin() + static_cast<std::ptrdiff_t>(RootNode), Entry.DevicePath.end());
    Hidden_.push_back({Entry.Function, Defs[Entry.Function->Location()], Entry.Parent, std::move(Path)});
  }
}

bool VmdDomain::Read(uint64_t Address, uint32_t Width, uint64_t *Value) {
  const std::vector<uint8_t> &Config = Vmd_.Bytes();
  uint32_t Low = Dword(Config, 0x10);
  if ((Low & 1) != 0 || (Config[0x04] & 0x2) == 0) return false;
  uint64_t Base = Low & ~uint64_t{0xF};
  if (((Low >> 1) & 3) == 2) Base |= uint64_t{Dword(Config, 0x14)} << 32;
  if (Base == 0 || Address < Base || Address - Base >= Bar0Size_) return false;
  uint64_t Offset = Address - Base;
  uint64_t Bus = Def_.FirstBus + (Offset >> 20);
  PciLocation Location{0, static_cast<uint8_t>(Bus), static_cast<uint8_t>((Offset >> 15) & 0x1F),
                       static_cast<uint8_t>((Offset >> 12) & 0x7)};
  if (Bus > Def_.LastBus) {
    *Value = Width >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * Width)) - 1;
    return true;
  }
  if (EFI_ERROR(Bus_.Read(Location, static_cast<uint32_t>(Offset & 0xFFF), Width, Value))) {
    // A failing configuration read ends as a master abort.
    *Value = Width >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * Width)) - 1;
  }
  return true;
}

}  // namespace qor::emu
