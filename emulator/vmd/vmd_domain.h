// The buses a VMD hides from the PCI bus driver. Its memory BAR0 is an
// aperture onto their configuration space in the PCI Express layout, bus
// relative to the domain's first bus: BAR0 + ((bus - first) << 20 |
// device << 15 | function << 12 | register). Reads inside it reach the
// hidden functions while the VMD decodes memory (Command bit 1) and the BAR
// is assigned; a hidden location without a function reads all ones.
#ifndef QOR_EMULATOR_VMD_VMD_DOMAIN_H_
#define QOR_EMULATOR_VMD_VMD_DOMAIN_H_

#include <cstdint>
#include <vector>

#include "emulator/pci/board_pci.h"
#include "emulator/pci/pci_bus.h"

namespace qor::emu {

struct VmdDomainDef {
  uint64_t Segment = 0;     // the segment VROC reports for the hidden drives
  uint8_t FirstBus = 0;     // the bus of the aperture's first megabyte
  uint8_t LastBus = 0;
  std::vector<PciFunctionDef> Functions;
};

// A hidden function as the VMD's own enumeration finds it.
struct HiddenFunction {
  PciFunction *Function;
  const PciFunctionDef *Def;
  int Parent;                          // index of the bridge above, -1 on the first bus
  std::vector<uint8_t> DevicePath;     // the VMD's path, one PCI node per level below it, End
};

class VmdDomain {
 public:
  // Vmd: the VMD function on the PCI bus; Bar0Size: its aperture's size.
  VmdDomain(PciFunction &Vmd, uint64_t Bar0Size, const VmdDomainDef &Def, const std::vector<uint8_t> &VmdDevicePath);
  VmdDomain(const VmdDomain &) = delete;
  VmdDomain &operator=(const VmdDomain &) = delete;

  // A physical memory read; false when the address is outside the aperture
  // (or the VMD does not decode it).
  bool Read(uint64_t Address, uint32_t Width, uint64_t *Value);
  const std::vector<HiddenFunction> &Functions() const { return Hidden_; }
  const VmdDomainDef &Def() const { return Def_; }
  PciBus &Bus() { return Bus_; }

 private:
  PciFunction &Vmd_;
  uint64_t Bar0Size_;
  const VmdDomainDef &Def_;
  PciBus Bus_;
  std::vector<HiddenFunction> Hidden_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_VMD_VMD_DOMAIN_H_
