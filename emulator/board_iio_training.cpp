// Parsing of the IIO board members and of the readable MRC training
// records, and the IIO data built from them.
#include "emulator/board_iio_training.h"

#include <cstring>
#include <string>

#include "emulator/board.h"
#include "emulator/board_json.h"
#include "platform/mrc_data_hob.h"

namespace qor::emu {

namespace {

constexpr const char *kPortLetterNames[QOR_IIO_PORT_LETTERS] = {"A", "B", "C", "D", "E", "F", "G", "H"};

// memcpy that accepts an empty source (whose data() may be null).
void CopyBytes(uint8_t *Destination, const std::vector<uint8_t> &Source) {
  if (!Source.empty()) std::memcpy(Destination, Source.data(), Source.size());
}

uint8_t Byte(const JsonField &Field) { return static_cast<uint8_t>(Field.Uint(0xFF)); }

// A number key of an object ("2", "0x20"), at most Max.
uint64_t KeyNumber(const JsonField &Object, const std::string &Key, uint64_t Max) {
  rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
  return JsonField(KeyText, Object.Path() + "[key " + Key + "]").Uint(Max);
}

// Eight port bytes: bytes for A to H in order, or an object keyed by letter.
std::array<uint8_t, QOR_IIO_PORT_LETTERS> ParsePortBytes(const JsonField &Ports) {
  std::array<uint8_t, QOR_IIO_PORT_LETTERS> Out{};
  if (Ports.IsObject()) {
    Ports.AllowOnly({"A", "B", "C", "D", "E", "F", "G", "H"});
    for (size_t Letter = 0; Letter < QOR_IIO_PORT_LETTERS; Letter++) {
      if (auto Value = Ports.Optional(kPortLetterNames[Letter])) Out[Letter] = Byte(*Value);
    }
    return Out;
  }
  std::vector<uint8_t> Bytes = Ports.Bytes();
  if (Bytes.size() > QOR_IIO_PORT_LETTERS) Ports.Fail("at most 8 port bytes (A to H)");
  CopyBytes(Out.data(), Bytes);
  return Out;
}

void ParseVmd(const JsonField &Vmd, IioDef *Iio) {
  Vmd.AllowOnly({"stackEnable", "portAssign"});
  if (auto Enable = Vmd.Optional("stackEnable")) {
    Iio->VmdStackEnable = {};
    auto Sockets = Enable->Elements();
    if (Sockets.size() > QOR_IIO_MAX_SOCKETS) Enable->Fail("at most 4 sockets");
    for (size_t Socket = 0; Socket < Sockets.size(); Socket++) {
      std::vector<uint8_t> Stacks = Sockets[Socket].Bytes();
      if (Stacks.size() > QOR_IIO_VMD_STACK_ENABLE_SOCKET_STRIDE) Sockets[Socket].Fail("at most 8 stack bytes");
      CopyBytes(Iio->VmdStackEnable[Socket].data(), Stacks);
    }
  }
  if (auto Assign = Vmd.Optional("portAssign")) {
    Iio->VmdPortAssign = {};
    auto Sockets = Assign->Elements();
    if (Sockets.size() > QOR_IIO_MAX_SOCKETS) Assign->Fail("at most 4 sockets");
    for (size_t Socket = 0; Socket < Sockets.size(); Socket++) {
      // Stacks 1 to 7 fit the socket's block.
      for (auto &[Key, Ports] : Sockets[Socket].Members()) {
        uint64_t Stack = KeyNumber(Sockets[Socket], Key, 7);
        if (Stack == 0) Sockets[Socket].Fail("stack numbers 1 to 7 as keys");
        auto Bytes = ParsePortBytes(Ports);
        for (uint32_t Port = 0; Port < QOR_IIO_VMD_PORTS_PER_STACK; Port++) {
          Iio->VmdPortAssign[Socket][QorIioVmdPortAssignIndex(static_cast<uint32_t>(Stack), Port)] = Bytes[Port];
        }
      }
    }
  }
}

// The HOB from readable stacks: per socket at most five stacks of
// {"bifurcation", "ports"}, laid out for all four sockets.
std::vector<uint8_t> ParsePortHobSockets(const JsonField &Sockets) {
  std::vector<uint8_t> Data(kIioPortHobSize, 0);
  auto SocketList = Sockets.Elements();
  if (SocketList.size() > QOR_IIO_MAX_SOCKETS) Sockets.Fail("at most 4 sockets");
  for (size_t Socket = 0; Socket < SocketList.size(); Socket++) {
    auto Stacks = SocketList[Socket].Elements();
    if (Stacks.size() > QOR_IIO_STACKS_PER_SOCKET) SocketList[Socket].Fail("at most 5 stacks");
    for (size_t Stack = 0; Stack < Stacks.size(); Stack++) {
      Stacks[Stack].AllowOnly({"bifurcation", "ports"});
      QOR_IIO_PORT_HOB_ENTRY Entry{};
      if (auto Code = Stacks[Stack].Optional("bifurcation")) Entry.Bifurcation = Byte(*Code);
      if (auto Ports = Stacks[Stack].Optional("ports")) {
        auto Bytes = ParsePortBytes(*Ports);
        std::memcpy(Entry.Port, Bytes.data(), Bytes.size());
      }
      size_t At = (Socket * QOR_IIO_STACKS_PER_SOCKET + Stack) * sizeof(Entry);
      std::memcpy(Data.data() + At, &Entry, sizeof(Entry));
    }
  }
  return Data;
}

void ParsePortHob(const JsonField &Hob, IioDef *Iio) {
  if (Hob.IsNull()) {
    Iio->PortHob.reset();
  } else if (Hob.IsObject()) {
    Hob.AllowOnly({"raw"});
    Iio->PortHob = Hob.At("raw").Bytes();
  } else {
    Iio->PortHob = ParsePortHobSockets(Hob);
  }
}

void ParseChannel(const JsonField &Channel, size_t Position, QOR_MRC_CHANNEL_RESULT *Out) {
  Channel.AllowOnly({"channel", "result", "dimmNum", "dimms"});
  Out->Channel = static_cast<uint8_t>(Position);
  if (auto Number = Channel.Optional("channel")) Out->Channel = Byte(*Number);
  if (auto Result = Channel.Optional("result")) Out->Result = Byte(*Result);
  if (auto Dimms = Channel.Optional("dimms")) {
    auto List = Dimms->Elements();
    if (List.size() > QOR_MRC_MAX_DIMMS_PER_CHANNEL) Dimms->Fail("at most 2 DIMMs");
    Out->DimmNum = static_cast<uint8_t>(List.size());
    for (size_t Dimm = 0; Dimm < List.size(); Dimm++) {
      List[Dimm].AllowOnly({"result", "mapoutReason", "certification"});
      if (auto Value = List[Dimm].Optional("result")) Out->DimmResult[Dimm] = Byte(*Value);
      if (auto Value = List[Dimm].Optional("mapoutReason")) Out->MapoutReason[Dimm] = Byte(*Value);
      if (auto Value = List[Dimm].Optional("certification")) Out->Certification[Dimm] = Byte(*Value);
    }
  }
  // An explicit count may differ from the DIMMs listed (a corrupt record).
  if (auto Count = Channel.Optional("dimmNum")) Out->DimmNum = Byte(*Count);
}

void ParseSocketResult(const JsonField &Socket, QOR_MRC_SOCKET_RESULT *Out) {
  Socket.AllowOnly({"channelNum", "channels"});
  if (auto Channels = Socket.Optional("channels")) {
    auto List = Channels->Elements();
    if (List.size() > QOR_MRC_CHANNELS_PER_SOCKET) Channels->Fail("at most 8 channels");
    Out->ChannelNum = static_cast<uint8_t>(List.size());
    for (size_t Channel = 0; Channel < List.size(); Channel++) {
      ParseChannel(List[Channel], Channel, &Out->Channels[Channel]);
    }
  }
  if (auto Count = Socket.Optional("channelNum")) Out->ChannelNum = Byte(*Count);
}

bool IsReadableList(const JsonField &Field) {
  return Field.IsArray() && !Field.Raw().Empty() && Field.Raw()[0].IsObject();
}

}  // namespace

void ParseIio(const JsonField &Iio, Board *Out) {
  Iio.AllowOnly({"iioData", "vmd", "patches", "portHob"});
  IioDef &Def = Out->Iio;
  if (auto Present = Iio.Optional("iioData")) Def.HasIioData = Present->Bool();
  if (auto Vmd = Iio.Optional("vmd")) ParseVmd(*Vmd, &Def);
  if (auto Patches = Iio.Optional("patches")) Def.Patches = ParseBytePatches(*Patches, kIioDataSize, "IIO data");
  if (auto Hob = Iio.Optional("portHob")) ParsePortHob(*Hob, &Def);
}

void ParseIndexedIo(const JsonField &IndexedIo, Board *Out) {
  Out->Iio.IndexedIo.clear();
  for (auto &[Key, Value] : IndexedIo.Members()) {
    Out->Iio.IndexedIo[static_cast<uint16_t>(KeyNumber(IndexedIo, Key, 0xFFFF))] = Byte(Value);
  }
}

std::vector<uint8_t> ParseMrcSocketResults(const JsonField &Results) {
  constexpr size_t kAllResults = sizeof(QOR_MRC_SOCKET_RESULT) * QOR_MRC_MAX_SOCKETS;
  if (!IsReadableList(Results)) {
    std::vector<uint8_t> Bytes = Results.Bytes();
    if (Bytes.size() > kAllResults) Results.Fail("at most 360 bytes of socket results");
    return Bytes;
  }
  auto Sockets = Results.Elements();
  if (Sockets.size() > QOR_MRC_MAX_SOCKETS) Results.Fail("at most 4 socket result records");
  QOR_MRC_SOCKET_RESULT Records[QOR_MRC_MAX_SOCKETS] = {};
  for (size_t Socket = 0; Socket < Sockets.size(); Socket++) ParseSocketResult(Sockets[Socket], &Records[Socket]);
  std::vector<uint8_t> Bytes(kAllResults);
  std::memcpy(Bytes.data(), Records, kAllResults);
  return Bytes;
}

std::vector<uint8_t> BuildIioData(const Board &Board) {
  const IioDef &Def = Board.Iio;
  std::vector<uint8_t> Data(kIioDataSize, 0);
  for (uint32_t Socket = 0; Socket < QOR_IIO_MAX_SOCKETS; Socket++) {
    std::memcpy(Data.data() + QOR_IIO_VMD_STACK_ENABLE_AT(Socket, 0), Def.VmdStackEnable[Socket].data(),
                QOR_IIO_VMD_STACK_ENABLE_SOCKET_STRIDE);
    std::memcpy(Data.data() + QOR_IIO_VMD_PORT_ASSIGN_OFFSET + Socket * QOR_IIO_VMD_PORT_ASSIGN_SOCKET_STRIDE,
                Def.VmdPortAssign[Socket].data(), kIioVmdPortAssignBytes);
  }
  ApplyBytePatches(&Data, Def.Patches);
  return Data;
}

}  // namespace qor::emu
