// The HOB list handed from the earlier boot phases: a PHIT HOB, the GUID
// HOBs (the MRC data HOB first, then the platform's, then the board's own)
// and the end-of-list HOB.
#include <cstring>

#include "emulator/platform.h"
#include "platform/guids.h"
#include "platform/hob.h"

namespace qor::emu {

namespace {
void AppendGuidHob(std::vector<uint8_t> *Bytes, const EFI_GUID &Name, const std::vector<uint8_t> &Data) {
  size_t Length = sizeof(EFI_HOB_GUID_TYPE) + Data.size();
  Length = (Length + 7) & ~static_cast<size_t>(7);
  if (Length > 0xFFF8) throw BoardError("board.hobs: a GUID HOB of " + std::to_string(Data.size()) +
                                        " bytes does not fit the 16-bit HOB length");
  EFI_HOB_GUID_TYPE Header{};
  Header.Header.HobType = EFI_HOB_TYPE_GUID_EXTENSION;
  Header.Header.HobLength = static_cast<UINT16>(Length);
  Header.Name = Name;
  size_t Start = Bytes->size();
  Bytes->resize(Start + Length, 0);
  std::memcpy(Bytes->data() + Start, &Header, sizeof(Header));
  if (!Data.empty()) std::memcpy(Bytes->data() + Start + sizeof(Header), Data.data(), Data.size());
}
}  // namespace

std::vector<uint64_t> BuildHobList(const Board &Board, const std::vector<GuidHob> &PlatformHobs) {
  std::vector<uint8_t> Bytes;
  EFI_HOB_HANDOFF_INFO_TABLE Phit{};
  Phit.Header.HobType = EFI_HOB_TYPE_HANDOFF;
  Phit.Header.HobLength = sizeof(Phit);
  Phit.Version = 9;
  Bytes.resize(sizeof(Phit));
  std::memcpy(Bytes.data(), &Phit, sizeof(Phit));
  if (Board.MrcData) AppendGuidHob(&Bytes, gQorMrcDataHobGuid, *Board.MrcData);
  if (Board.Iio.PortHob) AppendGuidHob(&Bytes, gQorIioPortHobGuid, *Board.Iio.PortHob);
  for (const GuidHob &Hob : PlatformHobs) AppendGuidHob(&Bytes, Hob.Name, Hob.Data);
  for (const GuidHob &Hob : Board.GuidHobs) AppendGuidHob(&Bytes, Hob.Name, Hob.Data);
  EFI_HOB_GENERIC_HEADER End{EFI_HOB_TYPE_END_OF_HOB_LIST, sizeof(EFI_HOB_GENERIC_HEADER), 0};
  size_t Start = Bytes.size();
  Bytes.resize(Start + sizeof(End));
  std::memcpy(Bytes.data() + Start, &End, sizeof(End));

  std::vector<uint64_t> Aligned((Bytes.size() + 7) / 8, 0);
  std::memcpy(Aligned.data(), Bytes.data(), Bytes.size());
  return Aligned;
}

}  // namespace qor::emu
