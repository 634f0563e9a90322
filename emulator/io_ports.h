// The board's I/O ports: plain byte ports from "ioPorts" and the index/data
// trio at 0x1500-0x1502 from "indexedIo". Every access is recorded in order.
#ifndef QOR_EMULATOR_IO_PORTS_H_
#define QOR_EMULATOR_IO_PORTS_H_

#include <cstdint>
#include <map>
#include <vector>

namespace qor::emu {

struct IoPortAccess {
  uint16_t Port;
  uint8_t Value;  // written, or returned by the read
  bool IsWrite;
};

class IoPortSpace {
 public:
  IoPortSpace(const std::map<uint16_t, uint8_t> &Plain, const std::map<uint16_t, uint8_t> &Indexed)
      : Plain_(Plain), Indexed_(Indexed) {}

  // Index ports read back the latched index bytes; the data port returns
  // the byte at the latched index, else the plain port's value, else 0xFF.
  uint8_t Read(uint16_t Port);
  // Writes to the index ports latch the low or high index byte; other
  // writes are recorded only.
  void Write(uint16_t Port, uint8_t Value);

  uint16_t Index() const { return Index_; }
  const std::vector<IoPortAccess> &Accesses() const { return Accesses_; }

 private:
  uint8_t ReadPlain(uint16_t Port) const;

  std::map<uint16_t, uint8_t> Plain_;
  std::map<uint16_t, uint8_t> Indexed_;
  uint16_t Index_ = 0;
  std::vector<IoPortAccess> Accesses_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_IO_PORTS_H_
