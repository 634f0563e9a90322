// The PCI Vital Product Data capability (id 0x03) over a board-given VPD
// image. Software writes a dword address with the flag (bit 15 of the
// address register) clear; the device fetches the dword into the data
// register and sets the flag. Writing the address with the flag set stores
// the data register; the device clears the flag when done. A device takes
// its latency in microseconds of the time-stamp counter to answer; one that
// never answers (or never answers for some addresses) keeps the flag as it
// is, so a driver must give up after its polls.
//
// Registers (capability offset C): C+0 id, C+1 next, C+2 address and flag
// (16 bits), C+4 data (32 bits).
#ifndef QOR_EMULATOR_PCI_VPD_CAPABILITY_H_
#define QOR_EMULATOR_PCI_VPD_CAPABILITY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "emulator/pci/pci_function.h"
#include "emulator/time_stamp_counter.h"

namespace qor::emu {

constexpr uint8_t kPciCapabilityIdVpd = 0x03;
constexpr uint32_t kVpdDefaultCapabilityOffset = 0x90;  // after the PCI Express capability
constexpr uint32_t kVpdMaxBytes = 0x8000;               // 15 address bits

struct VpdDef {
  std::vector<uint8_t> Image;        // the storage from address 0; unused storage reads 0xFF
  uint32_t StorageSize = 0;          // bytes the device decodes (addresses wrap there); 0: the image rounded up to a dword
  std::optional<uint64_t> LatencyUs = 0;  // none: the flag never changes
  std::vector<uint32_t> FailAt;      // dword addresses whose reads never complete
  uint32_t CapabilityOffset = kVpdDefaultCapabilityOffset;
};

// One keyword of a VPD section, in order.
using VpdKeyword = std::pair<std::string, std::string>;

// A VPD image in the layout of the PCI specification: the identifier string
// (large resource 0x82), the read-only section (0x90) with its keywords and,
// when Checksum, an "RV" keyword whose byte makes the image sum to zero up to
// it, the read-write section (0x91) when it has keywords, the end tag (0x78)
// when End.
std::vector<uint8_t> BuildVpdImage(const std::string &Identifier, const std::vector<VpdKeyword> &ReadOnly,
                                   const std::vector<VpdKeyword> &ReadWrite, bool Checksum, bool End);

// Puts a VPD capability at Offset of a configuration space and links it at
// the end of the capability list (an empty list starts with it). A list that
// loops is left as it is, with the capability unreachable. A space that
// already has a VPD capability is not changed. Returns the capability's offset.
uint32_t AddVpdCapability(std::vector<uint8_t> *Config, uint32_t Offset);

class VpdCapability : public PciRegisterHandler {
 public:
  VpdCapability(const VpdDef &Def, uint32_t CapabilityOffset, const TimeStampCounter &Clock);

  void AfterRead(uint32_t Offset, uint32_t Width, uint64_t *Value) override;
  void AfterWrite(uint32_t Offset, uint32_t Width, uint64_t Value) override;

  // Operations software started, and reads of the flag since the last one.
  uint64_t Requests() const { return Requests_; }
  uint32_t FlagReadsSinceRequest() const { return FlagReads_; }
  const std::vector<uint8_t> &Storage() const { return Storage_; }

 private:
  void Settle();
  bool Covers(uint32_t Offset, uint32_t Width, uint32_t Register) const;
  uint8_t RegisterByte(uint32_t Index) const;
  uint32_t StorageDword(uint32_t Address) const;

  std::vector<uint8_t> Storage_;
  std::optional<uint64_t> LatencyTicks_;
  std::vector<uint32_t> FailAt_;
  uint32_t Cap_;
  const TimeStampCounter &Clock_;

  uint16_t Address_ = 0;
  bool Flag_ = false;
  uint32_t Data_ = 0;
  bool Pending_ = false;
  bool Writing_ = false;
  bool Never_ = false;
  uint64_t ReadyAt_ = 0;
  uint64_t Requests_ = 0;
  uint32_t FlagReads_ = 0;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_VPD_CAPABILITY_H_
