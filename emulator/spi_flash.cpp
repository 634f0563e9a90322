// The Spi protocol: the flash part's identification bytes from the board.
#include <cstring>

#include "emulator/platform.h"

namespace qor::emu {

namespace {
EFI_STATUS EFIAPI ReadId(QOR_SPI_PROTOCOL *, UINTN, UINTN Size, VOID *Buffer) {
  Platform *Current = Platform::Current();
  if (Current == nullptr || Buffer == nullptr) return EFI_INVALID_PARAMETER;
  const std::vector<uint8_t> &Id = Current->GetBoard().FlashId;
  std::memset(Buffer, 0, Size);
  std::memcpy(Buffer, Id.data(), Size < Id.size() ? Size : Id.size());
  return EFI_SUCCESS;
}
}  // namespace

void InitSpiProtocol(QOR_SPI_PROTOCOL *Protocol) {
  *Protocol = {};
  Protocol->ReadId = ReadId;
}

}  // namespace qor::emu
