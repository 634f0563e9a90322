// PCI Express extended capabilities a board adds to a built function: AER,
// Secondary PCI Express, Device Serial Number, DPC, ACS, or any other as raw
// bytes. They form the list from 0x100 in the order given, each at the
// next dword after the one before unless it names its offset.
#ifndef QOR_EMULATOR_PCI_EXTENDED_CAPABILITIES_H_
#define QOR_EMULATOR_PCI_EXTENDED_CAPABILITIES_H_

#include <cstdint>
#include <optional>
#include <vector>

namespace qor::emu {

class JsonField;

constexpr uint16_t kExtCapAer = 0x0001;
constexpr uint16_t kExtCapSerialNumber = 0x0003;
constexpr uint16_t kExtCapAcs = 0x000D;
constexpr uint16_t kExtCapSecondaryPcie = 0x0019;
constexpr uint16_t kExtCapDpc = 0x001D;

struct PciExtendedCapabilityDef {
  uint16_t Id = 0;
  uint8_t Version = 1;
  std::optional<uint32_t> Offset;  // none: the dword after the previous one
  std::vector<uint8_t> Body;       // the bytes after the 4-byte header
};

// "extendedCapabilities" of a device (docs/board-pci-resources.md). Port
// tells a root port, whose AER block carries the root error registers;
// MaxWidth sizes the Secondary PCI Express lane registers.
std::vector<PciExtendedCapabilityDef> ParseExtendedCapabilities(const JsonField &List, bool RootPort,
                                                                uint8_t MaxWidth);

// Writes the list into a 4096-byte space, linking the headers. Throws
// std::invalid_argument when a block does not fit or overlaps another.
void PutExtendedCapabilities(const std::vector<PciExtendedCapabilityDef> &List, std::vector<uint8_t> *Space);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_EXTENDED_CAPABILITIES_H_
