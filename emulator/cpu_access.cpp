// The processor as the driver sees it on the host: MSRs, I/O ports, physical
// memory bytes, the PCI Express configuration window, from the board, and the
// time-stamp counter.
#include "emulator/platform.h"
#include "emulator/pci/pci_device_services.h"

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
  UINT64 Value = 0;
  // A VMD's configuration aperture decodes before the board's bytes.
  if (Current().PciDevices() != nullptr && Current().PciDevices()->ReadMmio(Address, Width, &Value)) return Value;
  const auto &Bytes = Current().GetBoard().MmioBytes;
  for (UINT32 I = 0; I < Width; I++) {
    auto It = Bytes.find(Address + I);
    Value |= static_cast<UINT64>(It == Bytes.end() ? 0xFF : It->second) << (8 * I);
  }
  return Value;
}

UINT64 EFIAPI ReadTsc() {
  Current().CountCpuAccess();
  return Current().Tsc().Read();
}

// The PCI Express configuration window of segment 0:
// bus << 20 | device << 15 | function << 12 | register.
UINT32 EFIAPI PciExpressRead(UINT64 Address, UINT32 Width) {
  Current().CountCpuAccess();
  PciLocation Location{0, static_cast<uint8_t>(Address >> 20), static_cast<uint8_t>((Address >> 15) & 0x1F),
                       static_cast<uint8_t>((Address >> 12) & 0x7)};
  // A failing read ends as a master abort: all ones.
  uint64_t Value = 0;
  if (EFI_ERROR(Current().Pci().Read(Location, static_cast<uint32_t>(Address & 0xFFF), Width, &Value))) {
    Value = ~uint64_t{0};
  }
  return static_cast<UINT32>(Value);
}
}  // namespace

void InitCpuAccessProtocol(QOR_HOST_CPU_ACCESS_PROTOCOL *Protocol) {
  Protocol->ReadMsr = ReadMsr;
  Protocol->IoRead8 = IoRead8;
  Protocol->IoWrite8 = IoWrite8;
  Protocol->MmioRead = MmioRead;
  Protocol->PciExpressRead = PciExpressRead;
  Protocol->ReadTsc = ReadTsc;
}

uint64_t TscTicksPerMicrosecond(const Board &Board) {
  auto It = Board.Msrs.find(QOR_MSR_PLATFORM_INFO);
  uint64_t Ratio = It == Board.Msrs.end() ? 0 : (It->second >> 8) & 0xFF;
  return Ratio * 100;
}

}  // namespace qor::emu
