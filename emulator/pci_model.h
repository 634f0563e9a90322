// The PCI configuration space of the emulated machine: functions by
// segment, bus, device and function, each with its 4 KiB configuration
// space. Every path to configuration space (the PCI Express window of the
// CPU access hooks, the root bridge I/O instances, later PCI I/O instances)
// reads and writes this one model. An absent function reads all ones and
// ignores writes, as on real hardware.
#ifndef QOR_EMULATOR_PCI_MODEL_H_
#define QOR_EMULATOR_PCI_MODEL_H_

#include <cstdint>
#include <map>
#include <vector>

namespace qor::emu {

struct Board;

struct PciLocation {
  uint16_t Segment = 0;
  uint8_t Bus = 0;
  uint8_t Device = 0;
  uint8_t Function = 0;
  bool operator<(const PciLocation &Other) const;
  bool operator==(const PciLocation &Other) const;
};

class PciModel {
 public:
  static constexpr uint32_t kConfigSize = 4096;

  // Adds a function or replaces the one at the same location; Config is
  // padded with zeros (or cut) to kConfigSize.
  void AddFunction(const PciLocation &Location, std::vector<uint8_t> Config);
  bool Has(const PciLocation &Location) const { return Functions_.count(Location) != 0; }
  // The function's configuration space, or nullptr when absent.
  const std::vector<uint8_t> *Config(const PciLocation &Location) const;

  // Width bytes (1, 2, 4 or 8) at Offset, little endian. Absent functions
  // and bytes past the configuration space read 0xFF.
  uint64_t Read(const PciLocation &Location, uint32_t Offset, uint32_t Width);
  // Writes to present functions; the rest is dropped.
  void Write(const PciLocation &Location, uint32_t Offset, uint32_t Width, uint64_t Value);

  const std::map<PciLocation, std::vector<uint8_t>> &Functions() const { return Functions_; }
  uint64_t ReadCount() const { return Reads_; }
  uint64_t WriteCount() const { return Writes_; }

 private:
  std::map<PciLocation, std::vector<uint8_t>> Functions_;
  uint64_t Reads_ = 0;
  uint64_t Writes_ = 0;
};

// The board's functions: its "pci" functions and the PCH at 00:1f.0 from
// "pch" (a "pci" function at that address replaces the PCH one).
PciModel BuildPciModel(const Board &Board);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_MODEL_H_
