// The platform's CPU CSR access protocol: processor configuration registers
// by address, from the board's "cpuCsr" member (the same values for every
// socket and box instance; unlisted registers read 0). Without the member
// the protocol is not installed.
#ifndef QOR_EMULATOR_CPU_CSR_ACCESS_H_
#define QOR_EMULATOR_CPU_CSR_ACCESS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "platform/vendor_protocols.h"

namespace qor::emu {

class JsonField;

struct CpuCsrDef {
  std::map<uint32_t, uint32_t> Registers;
};

// "cpuCsr": {"registers": {"0x110200A8": "0x7B800000", ...}}, or null.
std::optional<CpuCsrDef> ParseCpuCsr(const JsonField &Csr);

class CpuCsrAccess {
 public:
  struct Read {
    uint8_t Socket;
    uint8_t Box;
    uint32_t Address;
  };

  explicit CpuCsrAccess(const CpuCsrDef &Def);
  ~CpuCsrAccess();
  CpuCsrAccess(const CpuCsrAccess &) = delete;
  CpuCsrAccess &operator=(const CpuCsrAccess &) = delete;

  QOR_CPU_CSR_ACCESS_PROTOCOL *Protocol() { return &Protocol_; }
  // Every register read, in order.
  const std::vector<Read> &Reads() const { return Reads_; }

 private:
  static UINT32 EFIAPI ReadCsr(UINT8 Socket, UINT8 BoxInstance, UINT32 RegisterAddress);

  CpuCsrDef Def_;
  QOR_CPU_CSR_ACCESS_PROTOCOL Protocol_{};
  std::vector<Read> Reads_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_CPU_CSR_ACCESS_H_
