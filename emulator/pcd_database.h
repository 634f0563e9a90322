// The PCD database behind both PCD protocols, filled from the board.
#ifndef QOR_EMULATOR_PCD_DATABASE_H_
#define QOR_EMULATOR_PCD_DATABASE_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "platform/pcd_protocol.h"

namespace qor::emu {

// A value the driver set through the PCD protocol.
struct PcdWrite {
  uint64_t Token;
  uint32_t Size;   // bytes of the Set call: 1, 2, 4, 8 (SetBool: 1)
  uint64_t Value;
};

class PcdDatabase {
 public:
  explicit PcdDatabase(const Board &Board);
  ~PcdDatabase();
  static PcdDatabase *Current();

  PCD_PROTOCOL *Protocol() { return &Protocol_; }
  EFI_PCD_PROTOCOL *PiProtocol() { return &PiProtocol_; }

  uint64_t Number(uint64_t Token);
  void *Pointer(uint64_t Token);
  // Stores Value and records the write; a token the board lacks is
  // created (and listed among the unknown tokens).
  EFI_STATUS SetNumber(uint64_t Token, uint64_t Value, uint32_t Size);
  const std::vector<PcdWrite> &Writes() const { return Writes_; }
  uint64_t NumberEx(const EFI_GUID *Space, uint64_t Token);
  // Tokens the driver asked for that the board does not define.
  const std::set<std::string> &UnknownTokens() const { return Unknown_; }

 private:
  std::map<uint64_t, PcdValue> Values_;
  std::map<PcdExKey, uint64_t> ExValues_;
  std::set<std::string> Unknown_;
  std::vector<PcdWrite> Writes_;
  PCD_PROTOCOL Protocol_{};
  EFI_PCD_PROTOCOL PiProtocol_{};
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_PCD_DATABASE_H_
