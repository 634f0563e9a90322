// Builds a valid configuration space from a short description of a PCI
// function: header of the right layout, capability list from 0x34 (power
// management, then PCI Express with the device/port type, link registers
// and slot), BARs with their type bits. Capability layout:
//   0x40 power management -> 0x50 PCI Express (version 2) -> end,
// and the extended capabilities the board lists from 0x100.
#ifndef QOR_EMULATOR_PCI_CONFIG_BUILDER_H_
#define QOR_EMULATOR_PCI_CONFIG_BUILDER_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "emulator/pci/extended_capabilities.h"
#include "emulator/pci/pci_function.h"

namespace qor::emu {

// PCI Express device/port types (PCI Express Capabilities bits 7:4), plus a
// conventional PCI-to-PCI bridge that has no PCI Express capability.
enum class PciPortType : uint8_t {
  Endpoint = 0,
  LegacyEndpoint = 1,
  RootPort = 4,
  UpstreamPort = 5,
  DownstreamPort = 6,
  PcieToPciBridge = 7,
  RcEndpoint = 9,
  PciBridge = 0xFF,
};

bool IsBridgeType(PciPortType Type);

struct PciLinkDef {
  uint8_t MaxSpeed = 4;   // Link Capabilities 3:0 (1 = 2.5 GT/s ... 6 = 64 GT/s)
  uint8_t MaxWidth = 16;  // Link Capabilities 9:4
  uint8_t Speed = 4;      // Link Status 3:0
  uint8_t Width = 16;     // Link Status 9:4
};

struct PciBarDef {
  enum Kind { Mem32, Mem64, Io, Io16 } Type = Mem32;
  uint64_t Size = 0;
  bool Prefetchable = false;
  uint64_t Base = 0;  // 0: not assigned
  bool AutoBase = true;  // the board left the base out: the bus driver assigns one
};

struct PciDeviceDescription {
  uint16_t VendorId = 0xFFFF;
  uint16_t DeviceId = 0xFFFF;
  uint16_t SubsystemVendorId = 0;
  uint16_t SubsystemId = 0;
  uint8_t RevisionId = 0;
  std::optional<uint32_t> ClassCode;   // default: 0x060400 for bridges, 0 otherwise
  PciPortType Type = PciPortType::Endpoint;
  bool Express = true;                 // false: conventional PCI, 256 bytes, no PCI Express capability
  PciLinkDef Link;
  std::optional<uint16_t> Slot;        // physical slot number of a root or downstream port
  std::vector<PciBarDef> Bars;         // in register order; a 64-bit BAR takes two registers
  uint8_t PrimaryBus = 0, SecondaryBus = 0, SubordinateBus = 0;
  uint8_t PortNumber = 0;              // Link Capabilities 31:24 of a port
  bool CapabilityLoop = false;         // fault: the last capability points back to the first
  std::optional<uint8_t> CapabilityPointer;  // fault: the byte at 0x34
  std::vector<PciExtendedCapabilityDef> Extended;  // from 0x100, PCI Express only
};

struct BuiltConfig {
  std::vector<uint8_t> Bytes;  // 256 or 4096
  PciBarSizes Bars;
};

// Throws std::invalid_argument naming what does not fit (too many BARs,
// extended capabilities past the space).
BuiltConfig BuildConfigSpace(const PciDeviceDescription &Description);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_CONFIG_BUILDER_H_
