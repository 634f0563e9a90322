#include "emulator/cpu_csr_access.h"

#include "emulator/board_json.h"

namespace qor::emu {

namespace {
// The protocol's read member has no instance argument: the instance of the
// running platform answers.
CpuCsrAccess *gCurrent = nullptr;
}  // namespace

std::optional<CpuCsrDef> ParseCpuCsr(const JsonField &Csr) {
  if (Csr.IsNull()) return std::nullopt;
  Csr.AllowOnly({"registers"});
  CpuCsrDef Out;
  if (auto Registers = Csr.Optional("registers")) {
    for (auto &[Key, Value] : Registers->Members()) {
      rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
      uint32_t Address =
          static_cast<uint32_t>(JsonField(KeyText, Registers->Path() + "[key " + Key + "]").Uint(0xFFFFFFFF));
      Out.Registers[Address] = static_cast<uint32_t>(Value.Uint(0xFFFFFFFF));
    }
  }
  return Out;
}

CpuCsrAccess::CpuCsrAccess(const CpuCsrDef &Def) : Def_(Def) {
  Protocol_.Member0 = nullptr;
  Protocol_.ReadCpuCsr = ReadCsr;
  gCurrent = this;
}

CpuCsrAccess::~CpuCsrAccess() {
  if (gCurrent == this) gCurrent = nullptr;
}

UINT32 EFIAPI CpuCsrAccess::ReadCsr(UINT8 Socket, UINT8 BoxInstance, UINT32 RegisterAddress) {
  if (gCurrent == nullptr) return 0xFFFFFFFF;
  gCurrent->Reads_.push_back({Socket, BoxInstance, RegisterAddress});
  auto It = gCurrent->Def_.Registers.find(RegisterAddress);
  return It == gCurrent->Def_.Registers.end() ? 0 : It->second;
}

}  // namespace qor::emu
