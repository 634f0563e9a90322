// One PCI function of the emulated machine: its configuration space with the
// behaviour of hardware registers. Writes go through per-byte masks: writable
// bits take the new value, write-one-to-clear bits are cleared by a one, all
// other bits stay as they are. The masks follow from the header type and the
// capabilities the space holds, so a function built from a dump behaves like
// one built from a board description.
//
// Base address registers: a BAR of size S keeps its type bits (I/O, 32/64-bit
// memory, prefetchable) and takes only the address bits at and above S, so
// the all-ones sizing write reads back as the size mask and the restore write
// puts the base back. A 16-bit I/O decoder keeps its upper half at zero. A
// 64-bit BAR in the last register of an endpoint takes 0x28 as its upper
// half, as the board says (hardware never does; the driver must cope).
#ifndef QOR_EMULATOR_PCI_PCI_FUNCTION_H_
#define QOR_EMULATOR_PCI_PCI_FUNCTION_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace qor::emu {

struct PciLocation {
  uint16_t Segment = 0;
  uint8_t Bus = 0;
  uint8_t Device = 0;
  uint8_t Function = 0;
  bool operator<(const PciLocation &Other) const;
  bool operator==(const PciLocation &Other) const;
  // "SSSS:BB:DD.F", as lspci prints with domains.
  std::string Text() const;
};

// Faults a board injects into one function.
struct PciFaults {
  bool AllOnes = false;                // reads return all ones, writes are dropped
  bool FailAllReads = false;           // every read fails
  std::vector<uint32_t> FailReadsAt;   // a read that covers one of these offsets fails
  EFI_STATUS ReadStatus = EFI_DEVICE_ERROR;  // what a failing read returns
  bool MirrorExtendedSpace = false;    // 0x100..0xFFF read as 0x00..0xFF (a broken
                                       // host bridge that ignores the extended register bits)
  std::vector<uint32_t> FailWritesAt;  // a write that covers one of these offsets fails
                                       // (through PCI I/O) with WriteStatus and changes nothing
  EFI_STATUS WriteStatus = EFI_DEVICE_ERROR;
};

struct PciAccessCounts {
  uint64_t Reads = 0;   // read calls, whatever their count and width
  uint64_t Writes = 0;
};

// One configuration access through PCI I/O, in call order: element size
// (1, 2, 4 or 8), offset, element count, the first element's value (read or
// written) and the status returned.
struct PciAccessRecord {
  bool Write = false;
  uint32_t Size = 0;
  uint32_t Offset = 0;
  uint64_t Count = 0;
  uint64_t Value = 0;
  EFI_STATUS Status = EFI_SUCCESS;
};

constexpr uint32_t kPciConventionalConfigSize = 256;
constexpr uint32_t kPciExpressConfigSize = 4096;
constexpr int kPciBarCount = 6;

// BAR sizes by register index (0 = not implemented; for a 64-bit BAR the
// size sits at its first index), and which I/O BARs decode only 16 bits.
struct PciBarSizes {
  std::array<uint64_t, kPciBarCount> Size{};
  uint8_t Io16Mask = 0;  // bit i: BAR i is a 16-bit I/O decoder
};

// Registers whose behaviour is more than masks: a capability with a
// handshake (the VPD address/flag pair) is served by a handler that sees
// every access after the stored bytes were read or written and may replace
// the bytes of its registers in what a read returns.
class PciRegisterHandler {
 public:
  virtual ~PciRegisterHandler() = default;
  virtual void AfterRead(uint32_t Offset, uint32_t Width, uint64_t *Value) = 0;
  virtual void AfterWrite(uint32_t Offset, uint32_t Width, uint64_t Value) = 0;
};

class PciFunction {
 public:
  // Config holds 64, 256 or 4096 bytes; the space is 4096 bytes when 4096
  // are given or when the capability list holds a PCI Express capability,
  // otherwise 256. Missing bytes are zero.
  PciFunction(const PciLocation &Location, std::vector<uint8_t> Config, const PciBarSizes &Bars = {});

  const PciLocation &Location() const { return Location_; }
  uint32_t ConfigSize() const { return static_cast<uint32_t>(Config_.size()); }
  // The bytes as stored (the current register values, faults not applied).
  const std::vector<uint8_t> &Bytes() const { return Config_; }
  // The bytes a reader sees (faults applied), for snapshots.
  std::vector<uint8_t> View() const;
  uint8_t HeaderLayout() const { return Config_[0x0E] & 0x7F; }  // 0 endpoint, 1 bridge
  bool IsMultiFunction() const { return (Config_[0x0E] & 0x80) != 0; }

  // Width bytes (1, 2, 4 or 8) at Offset, little endian, faults applied.
  // Bytes past the space read 0xFF. Returns the fault's status on failure.
  EFI_STATUS Read(uint32_t Offset, uint32_t Width, uint64_t *Value) const;
  // Width bytes at Offset through the register masks; bytes past the space
  // and writes to an all-ones function are dropped.
  void Write(uint32_t Offset, uint32_t Width, uint64_t Value);

  // The handler stays owned by the caller and must outlive the function's use.
  void SetRegisterHandler(PciRegisterHandler *Handler) { Handler_ = Handler; }

  PciFaults &Faults() { return Faults_; }
  const PciFaults &Faults() const { return Faults_; }
  PciAccessCounts &Counts() { return Counts_; }
  const PciAccessCounts &Counts() const { return Counts_; }
  // The accesses in call order once tracing is on (off by default: a large
  // board's boot makes hundreds of thousands).
  void TraceAccesses(bool On) { Tracing_ = On; }
  bool Tracing() const { return Tracing_; }
  std::vector<PciAccessRecord> &Trace() { return Trace_; }
  const std::vector<PciAccessRecord> &Trace() const { return Trace_; }

 private:
  void BuildMasks(const PciBarSizes &Bars);
  void SetMask(uint32_t Offset, uint32_t Width, uint64_t Writable, uint64_t ClearOnOne = 0);
  uint8_t ByteAt(uint32_t Offset) const;

  PciLocation Location_;
  std::vector<uint8_t> Config_;
  std::vector<uint8_t> WriteMask_;
  std::vector<uint8_t> ClearMask_;
  PciFaults Faults_;
  PciAccessCounts Counts_;
  PciRegisterHandler *Handler_ = nullptr;
  bool Tracing_ = false;
  std::vector<PciAccessRecord> Trace_;
};

// Offset of the first capability with Id in the list from 0x34 of a
// configuration space, or 0. The walk stops at a pointer below 0x40, past
// the space or seen before, so looping lists end.
uint32_t FindPciCapability(const std::vector<uint8_t> &Config, uint8_t Id);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCI_PCI_FUNCTION_H_
