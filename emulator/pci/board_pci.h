// The "pci" member of a board (docs/board-pci.md): host bridges holding
// nested devices, functions at fixed locations given as raw bytes, the root
// bridge I/O instances, and the platform data that hangs off PCI devices
// (nic db entries, firmware-management instances).
//
// Nested devices are expanded while the board is parsed: bus numbers are
// assigned depth-first as a bus driver would (unless fixed), configuration
// spaces are built, and everything lands in Functions. A loader that brings
// machines from elsewhere (a dump) fills HostBridges and Functions directly.
#ifndef QOR_EMULATOR_PCI_BOARD_PCI_H_
#define QOR_EMULATOR_PCI_BOARD_PCI_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "emulator/pci/iio_topology.h"
#include "emulator/pci/pci_bus.h"
#include "emulator/pci/pci_device_extras.h"
#include "emulator/pci/pci_function.h"

namespace qor::emu {

class JsonField;
struct Board;

// An EFI_FIRMWARE_MANAGEMENT_PROTOCOL instance on a handle whose device path
// is the function's path with Below more nodes (0: on the function's own
// handle).
struct FirmwareImageDef {
  int Below = 1;
  std::optional<std::string> PackageVersionName;  // none: GetImageInfo returns a null name
  uint32_t PackageVersion = 0xFFFFFFFE;
  std::string ImageVersionName;                   // the descriptor's VersionName
  std::optional<EFI_STATUS> FirstCallStatus;      // instead of EFI_BUFFER_TOO_SMALL
  std::optional<EFI_STATUS> SecondCallStatus;     // instead of filling the descriptors
};

struct NicPortDef {
  std::optional<PciLocation> Location;  // none: the function with the port's number
  std::string Description;
  std::array<uint8_t, 6> Mac{};
};

// A nic db entry. In "nicDb" the slot is given; on a function ("nic" of a
// device) it defaults to the slot the function sits in.
struct NicEntryDef {
  std::optional<uint32_t> Slot;
  bool OnBoard = false;
  std::optional<uint32_t> PortCount;  // none: the number of ports listed
  std::vector<NicPortDef> Ports;
};

struct PciFunctionDef {
  uint16_t Segment = 0;
  uint8_t Bus = 0;
  uint8_t Device = 0;
  uint8_t Function = 0;
  std::vector<uint8_t> Config;  // 64, 256 or 4096 bytes
  PciBarSizes Bars;
  PciFaults Faults;
  std::vector<FirmwareImageDef> FirmwareImages;
  std::optional<NicEntryDef> Nic;
  PciDeviceExtras Extras;  // VPD, NVMe drive, VMD domain, VROC info
  std::optional<IioPortDef> IioPort;  // a root port's IIO topology entry
  PciLocation Location() const { return {Segment, Bus, Device, Function}; }
};

// An EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL instance: the buses it decodes,
// reported through Configuration() as bus-range descriptors, or
// EFI_UNSUPPORTED when the bridge cannot tell (it then decodes every bus of
// its segment).
struct PciRootBridgeDef {
  uint16_t Segment = 0;
  std::vector<std::pair<uint16_t, uint16_t>> BusRanges;
  bool ConfigurationUnsupported = false;
};

struct PciDef {
  std::vector<PciHostBridge> HostBridges;
  std::vector<PciFunctionDef> Functions;
  // Given: exactly these instances; otherwise one per host bridge.
  std::optional<std::vector<PciRootBridgeDef>> RootBridges;
  std::vector<NicEntryDef> NicDb;  // entries by slot, besides those of the functions
};

void ParsePci(const JsonField &Pci, Board *Out);
// The nested devices of a separate PCI domain (the buses behind a VMD): on
// FirstBus, bridges numbered from FirstBus + 1 up to LastBus.
std::vector<PciFunctionDef> ParsePciDomain(const JsonField &Devices, uint8_t FirstBus, uint8_t LastBus);

// The root bridge I/O instances the board asks for.
std::vector<PciRootBridgeDef> RootBridgesOf(const PciDef &Pci);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_BOARD_PCI_H_
