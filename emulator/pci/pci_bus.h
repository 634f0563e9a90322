// The PCI bus of the emulated machine: host bridges and the functions below
// them, one model for every access path (the PCI Express configuration
// window of the CPU access hooks, the root bridge I/O instances, the PCI I/O
// instances). An absent function reads all ones and ignores writes, as on
// real hardware.
//
// Two ways in, both used by board loaders:
//   AddHostBridge(segment, ACPI UID, bus range) and AddFunction(location,
//   raw configuration bytes (64, 256 or 4096), per-BAR sizes). Nothing else
//   is needed: bridges are recognised from their header type and their
//   secondary/subordinate bus registers when the bus is enumerated.
// One way out:
//   Snapshot() lists every function with its location and its bytes as a
//   reader sees them now (taken before the driver starts, it is the machine
//   as the driver first saw it).
#ifndef QOR_EMULATOR_PCI_PCI_BUS_H_
#define QOR_EMULATOR_PCI_PCI_BUS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "emulator/pci/pci_function.h"

namespace qor::emu {

struct PciHostBridge {
  uint16_t Segment = 0;
  uint32_t Uid = 0;        // ACPI _UID: the UID of the device path's root node
  uint8_t FirstBus = 0;    // the root bus
  uint8_t LastBus = 0xFF;
  bool PcieRoot = true;    // PciRoot (PNP0A03) or PcieRoot (PNP0A08) in device paths
};

// A function as the bus driver found it.
struct EnumeratedFunction {
  PciFunction *Function;
  size_t HostBridge;                // index into HostBridges()
  int Parent;                       // index of the bridge above, -1 on a root bus
  std::vector<uint8_t> DevicePath;  // ACPI node, one PCI node per level, End node
};

struct PciFunctionSnapshot {
  PciLocation Location;
  std::vector<uint8_t> Bytes;  // 256 or 4096
};

class PciBus {
 public:
  void AddHostBridge(const PciHostBridge &Bridge) { HostBridges_.push_back(Bridge); }
  // Adds a function at a fixed location, replacing one there.
  PciFunction &AddFunction(const PciLocation &Location, std::vector<uint8_t> Config, const PciBarSizes &Bars = {});
  PciFunction *Find(const PciLocation &Location);
  const std::vector<PciHostBridge> &HostBridges() const { return HostBridges_; }

  // Configuration access by location, counted as one access of the function
  // (or of the absent-function counters) when Count is set.
  EFI_STATUS Read(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t *Value, bool Count = true);
  void Write(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t Value, bool Count = true);

  // Walks the bus as a bus driver does: for each host bridge in order, its
  // root bus device by device (functions 1-7 only behind a multi-function
  // function 0), descending into a bridge's secondary bus as soon as the
  // bridge is found. The result is the order in which firmware creates the
  // PCI I/O handles. A bus is entered once at most, and only when it lies
  // above the bridge's own bus, inside its subordinate range and inside the
  // host bridge's range, so looping or overlapping bus registers end.
  std::vector<EnumeratedFunction> Enumerate();

  // Every function in location order with the bytes a reader sees.
  std::vector<PciFunctionSnapshot> Snapshot() const;
  const std::map<PciLocation, std::unique_ptr<PciFunction>> &Functions() const { return Functions_; }

  // Turns the access trace of every function on or off.
  void TraceAccesses(bool On);
  PciAccessCounts AbsentCounts() const { return Absent_; }
  uint64_t TotalReads() const;
  uint64_t TotalWrites() const;

 private:
  void ScanBus(size_t Bridge, uint8_t Bus, int Parent, const std::vector<uint8_t> &Prefix,
               std::vector<bool> *Entered, std::vector<EnumeratedFunction> *Out);

  std::vector<PciHostBridge> HostBridges_;
  std::map<PciLocation, std::unique_ptr<PciFunction>> Functions_;
  PciAccessCounts Absent_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_BUS_H_
