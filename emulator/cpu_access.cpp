// The processor as the driver sees it on the host: MSRs, I/O ports, physical
// memory bytes and the PCI Express configuration window, from the board.
#include "emulator/platform.h"

namespace qor::emu {

namespace {
Platform &Current() { return *Platform::Current(); }

UINT64 EFIAPI ReadMsr(UINT32 Index) {
  Current().CountCpuAccess();
  const auto &Msrs = Current().GetBoard().Msrs;
  auto It = Msrs.find(Index);
  return It == Msrs.end() ? 0 : It->second;
}

UINT8 EFIAPI IoRead8(UINT16 Port) {
  Current().CountCpuAccess();
  return Current().Io().Read(Port);
}

VOID EFIAPI IoWrite8(UINT16 Port, UINT8 Value) {
  Current().CountCpuAccess();
  Current().Io().Write(Port, Value);
}

UINT64 EFIAPI MmioRead(UINT64 Address, UINT32 Width) {
  Current().CountCpuAccess();
  const auto &Bytes = Current().GetBoard().MmioBytes;
  UINT64 Value = 0;
  for (UINT32 I = 0; I < Width; I++) {
    auto It = Bytes.find(Address + I);
    Value |= static_cast<UINT64>(It == Bytes.end() ? 0xFF : It->second) << (8 * I);
  }
  return Value;
}

// Only the PCH (bus 0, device 31, function 0) answers in this window; the
// rest reads all ones like an empty slot.
UINT32 EFIAPI PciExpressRead(UINT64 Address, UINT32 Width) {
  Current().CountCpuAccess();
  const Board &B = Current().GetBoard();
  uint8_t Config[16] = {};
  Config[0] = 0x86;
  Config[1] = 0x80;
  Config[2] = static_cast<uint8_t>(B.PchDeviceId);
  Config[3] = static_cast<uint8_t>(B.PchDeviceId >> 8);
  Config[8] = B.PchRevisionId;
  const UINT64 PchBase = (31ULL << 15);
  UINT32 Value = 0;
  for (UINT32 I = 0; I < Width; I++) {
    UINT64 At = Address + I;
    uint8_t Byte = 0xFF;
    if (At >= PchBase && At < PchBase + sizeof(Config)) Byte = Config[At - PchBase];
    Value |= static_cast<UINT32>(Byte) << (8 * I);
  }
  return Value;
}
}  // namespace

void InitCpuAccessProtocol(QOR_HOST_CPU_ACCESS_PROTOCOL *Protocol) {
  Protocol->ReadMsr = ReadMsr;
  Protocol->IoRead8 = IoRead8;
  Protocol->IoWrite8 = IoWrite8;
  Protocol->MmioRead = MmioRead;
  Protocol->PciExpressRead = PciExpressRead;
}

}  // namespace qor::emu
