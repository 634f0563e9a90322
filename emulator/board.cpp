#include "emulator/board.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "emulator/board_iio_training.h"
#include "emulator/board_json.h"
#include "emulator/board_memory_map.h"
#include "emulator/board_storage_tpm.h"
#include "platform/custom_protocol.h"
#include "platform/guids.h"
#include "platform/system_information.h"
#include "platform/tpm_setup.h"

namespace qor::emu {

extern const char kBuiltInBoardJson[];

const std::vector<std::string> kProtocolNames = {
    "json", "quickTrans", "spi", "debugPrint", "pcd", "piPcd", "systemInformation", "systemTopology",
    "custom",
    "ipmi",
    "iioSys",
    "smbios", "cpuPower", "pciRootBridgeIo", "pciIo", "nicDb", "firmwareManagement",
    "nvmePassThru", "vendorNvme", "vroc",
    "cpuCsr",
};

bool PcdExKey::operator<(const PcdExKey &Other) const {
  int Order = std::memcmp(&TokenSpace, &Other.TokenSpace, sizeof(EFI_GUID));
  if (Order != 0) return Order < 0;
  return Token < Other.Token;
}

namespace {

const EFI_GUID kCustomerIdTokenSpace = {0xC9708650, 0xD794, 0x4988, {0xAB, 0x29, 0xFC, 0xAE, 0xD6, 0x2C, 0x65, 0xE1}};
constexpr size_t kMrcPpinCount = 4;
constexpr size_t kMrcSocketResultBytes = 4 * 90;

// Lays Overlay over Base: objects merge member by member, anything else
// (arrays included) replaces. An object with an "import" member replaces
// too: a PCI tree imported from a dump is not mixed with the base board's.
void MergeInto(rapidjson::Value &Base, const rapidjson::Value &Overlay, rapidjson::Document::AllocatorType &Alloc) {
  if (!Base.IsObject() || !Overlay.IsObject() || Overlay.HasMember("import")) {
    Base.CopyFrom(Overlay, Alloc);
    return;
  }
  for (auto It = Overlay.MemberBegin(); It != Overlay.MemberEnd(); ++It) {
    auto Existing = Base.FindMember(It->name);
    if (Existing == Base.MemberEnd()) {
      rapidjson::Value Name(It->name, Alloc);
      rapidjson::Value Value(It->value, Alloc);
      Base.AddMember(Name, Value, Alloc);
    } else {
      MergeInto(Existing->value, It->value, Alloc);
    }
  }
}

void ParsePcd(const JsonField &Pcd, Board *Out) {
  Pcd.AllowOnly({"tokens", "customerId", "dpuNicSlot", "dynamicEx"});
  if (auto Tokens = Pcd.Optional("tokens")) {
    for (auto &[Key, Value] : Tokens->Members()) {
      rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
      uint64_t Token = JsonField(KeyText, Tokens->Path() + "[key " + Key + "]").Uint();
      PcdValue Entry;
      if (Value.IsNull()) {
        Out->Pcds.erase(Token);
        continue;
      }
      if (Value.IsString() && !(Value.String().rfind("0x", 0) == 0 && Value.String().size() > 2 &&
                                Value.String().find_first_not_of("0123456789abcdefABCDEF_", 2) == std::string::npos)) {
        Entry.IsText = true;
        Entry.Text = Value.String();
      } else {
        Entry.Number = Value.Uint();
      }
      Out->Pcds[Token] = Entry;
    }
  }
  if (auto CustomerId = Pcd.Optional("customerId")) {
    Out->PcdsEx[{kCustomerIdTokenSpace, 2}] = CustomerId->Uint(255);
  }
  if (auto Slot = Pcd.Optional("dpuNicSlot")) Out->PcdsEx[{kCustomerIdTokenSpace, 177}] = Slot->Uint(255);
  if (auto DynamicEx = Pcd.Optional("dynamicEx")) {
    for (const JsonField &Entry : DynamicEx->Elements()) {
      Entry.AllowOnly({"tokenSpace", "token", "value"});
      Out->PcdsEx[{Entry.At("tokenSpace").Guid(), Entry.At("token").Uint()}] = Entry.At("value").Uint();
    }
  }
}

std::vector<uint8_t> ParseMrcData(const JsonField &Mrc) {
  Mrc.AllowOnly({"ppins", "socketResults", "raw"});
  if (auto Raw = Mrc.Optional("raw")) return Raw->Bytes();
  std::vector<uint8_t> Data(kMrcPpinCount * 8 + kMrcSocketResultBytes, 0);
  if (auto Ppins = Mrc.Optional("ppins")) {
    auto Elements = Ppins->Elements();
    if (Elements.size() > kMrcPpinCount) Ppins->Fail("at most 4 PPINs");
    for (size_t I = 0; I < Elements.size(); I++) {
      uint64_t Ppin = Elements[I].Uint();
      std::memcpy(Data.data() + I * 8, &Ppin, 8);
    }
  }
  if (auto Results = Mrc.Optional("socketResults")) {
    std::vector<uint8_t> Bytes = ParseMrcSocketResults(*Results);
    if (!Bytes.empty()) std::memcpy(Data.data() + kMrcPpinCount * 8, Bytes.data(), Bytes.size());
  }
  return Data;
}

void ParseHobs(const JsonField &Hobs, Board *Out) {
  Hobs.AllowOnly({"mrcData", "guidHobs",
                  "processorSpeed", "dimmMap", "memoryMap"});
  if (auto Mrc = Hobs.Optional("mrcData")) {
    if (Mrc->IsNull()) {
      Out->MrcData.reset();
    } else {
      Out->MrcData = ParseMrcData(*Mrc);
    }
  }
  if (auto Guided = Hobs.Optional("guidHobs")) {
    Out->GuidHobs.clear();
    for (const JsonField &Entry : Guided->Elements()) {
      Entry.AllowOnly({"guid", "data"});
      Out->GuidHobs.push_back({Entry.At("guid").Guid(), Entry.At("data").Bytes()});
    }
  }
  ParseCpuMemoryHobs(Hobs, Out);
}

// The platform's variables by name: a board may leave out their GUID.
const std::pair<const char *, const EFI_GUID *> kKnownVariables[] = {
    {"Setup", &gQorSetupVariableGuid},
    {"QorWakeupType", &gQorWakeupTypeVariableGuid},
    {"QorResetCheckPoint", &gQorWakeupTypeVariableGuid},
    {"Bf2Present", &gQorSkobiofBf2VariableGuid},
    {"FixedBootPriorities", &gQorFixedBootPrioritiesGuid},
    {"QorRecoveryBootMode", &gQorRecoveryBootModeGuid},
    {"JdNicSlot", &gQorJdNicSlotGuid},
    {"SocketMpLinkConfig", &gQorSocketMpLinkConfigGuid},
};

EFI_GUID VariableGuid(const JsonField &Entry, const std::string &Name) {
  if (auto Guid = Entry.Optional("guid")) return Guid->Guid();
  for (const auto &[Known, Guid] : kKnownVariables) {
    if (Name == Known) return *Guid;
  }
  Entry.Fail("a \"guid\" (only the platform's own variables, such as \"JdNicSlot\", may leave it out)");
}

void ParseVariables(const JsonField &Variables, Board *Out) {
  Out->Variables.clear();
  for (const JsonField &Entry : Variables.Elements()) {
    Entry.AllowOnly({"name", "guid", "attributes", "data", "size", "patches"});
    Variable Value;
    std::string Name = Entry.At("name").String();
    Value.Name = ToU16(Name);
    if (Value.Name.empty()) Entry.At("name").Fail("a non-empty variable name");
    Value.Guid = VariableGuid(Entry, Name);
    Value.Attributes = static_cast<uint32_t>(Entry.Optional("attributes") ? Entry.At("attributes").Uint(0xFFFFFFFF)
                                                                          : 0x7);
    if (auto Data = Entry.Optional("data")) Value.Data = Data->Bytes();
    if (auto Size = Entry.Optional("size")) {
      uint64_t Wanted = Size->Uint(1 << 20);
      if (Wanted < Value.Data.size()) Size->Fail("a size not below the length of \"data\"");
      Value.Data.resize(Wanted, 0);
    }
    if (auto Patches = Entry.Optional("patches")) {
      ApplyBytePatches(&Value.Data, ParseBytePatches(*Patches, Value.Data.size(), "variable"));
    }
    Out->Variables.push_back(std::move(Value));
  }
}

std::vector<std::string> ParseNames(const JsonField &List, const std::vector<std::string> &Allowed) {
  std::vector<std::string> Out;
  for (const JsonField &Entry : List.Elements()) {
    std::string Name = Entry.String();
    bool Known = Allowed.empty();
    for (const auto &Candidate : Allowed) Known = Known || Candidate == Name;
    if (!Known) {
      std::string Choices;
      for (const auto &Candidate : Allowed) Choices += (Choices.empty() ? "" : ", ") + Candidate;
      Entry.Fail("one of: " + Choices);
    }
    Out.push_back(Name);
  }
  return Out;
}

void ParseTriggers(const JsonField &Triggers, Board *Out) {
  Triggers.AllowOnly({"beforeEntry", "order"});
  const std::vector<std::string> Names = {"fill", "readyToLock", "late"};
  if (auto Before = Triggers.Optional("beforeEntry")) Out->Triggers.BeforeEntry = ParseNames(*Before, Names);
  if (auto Order = Triggers.Optional("order")) Out->Triggers.Order = ParseNames(*Order, Names);
}

void ParseFaults(const JsonField &Faults, Board *Out) {
  Faults.AllowOnly({"failAllocation", "missingProtocols", "failVariableGet", "failVariableSet", "sendFileStatus",
                    "jsonStatus", "memoryMapGrowth"});
  if (auto Alloc = Faults.Optional("failAllocation")) {
    Out->Faults.FailAllocations.clear();
    for (const JsonField &Entry : Alloc->Elements()) {
      uint64_t Ordinal = Entry.Uint();
      if (Ordinal == 0) Entry.Fail("a 1-based allocation ordinal");
      Out->Faults.FailAllocations.push_back(Ordinal);
    }
  }
  if (auto Missing = Faults.Optional("missingProtocols")) {
    Out->Faults.MissingProtocols = ParseNames(*Missing, kProtocolNames);
  }
  if (auto Get = Faults.Optional("failVariableGet")) Out->Faults.FailVariableGet = ParseNames(*Get, {});
  if (auto Set = Faults.Optional("failVariableSet")) Out->Faults.FailVariableSet = ParseNames(*Set, {});
  if (auto Send = Faults.Optional("sendFileStatus")) Out->Faults.SendFileStatus = Send->Status();
  if (auto Json = Faults.Optional("jsonStatus")) Out->Faults.JsonStatus = Json->Status();
  if (auto Growth = Faults.Optional("memoryMapGrowth")) {
    Out->Faults.MemoryMapGrowth = static_cast<uint32_t>(Growth->Uint(4096));
  }
}

void ParseIioStacks(const JsonField &Stacks, SystemInformationDef *Def) {
  Def->Stacks.reset();
  if (Stacks.IsNull()) return;
  auto Elements = Stacks.Elements();
  if (Elements.size() > QOR_SYSINFO_STACK_MAX) Stacks.Fail("at most " + std::to_string(QOR_SYSINFO_STACK_MAX) + " stacks");
  Def->Stacks.emplace();
  for (const JsonField &Entry : Elements) {
    Entry.AllowOnly({"valid", "segment", "rootPort", "buses"});
    IioStackDef Stack;
    if (auto Valid = Entry.Optional("valid")) Stack.Valid = Valid->Raw().IsBool() ? (Valid->Bool() ? 1 : 0) : static_cast<uint8_t>(Valid->Uint(255));
    if (auto Segment = Entry.Optional("segment")) Stack.Segment = static_cast<uint16_t>(Segment->Uint(0xFFFF));
    if (auto Port = Entry.Optional("rootPort")) {
      auto Parts = Port->Elements();
      if (Parts.size() != 3) Port->Fail("[bus, device, function]");
      Stack.RootPort.Bus = static_cast<uint8_t>(Parts[0].Uint(0xFF));
      Stack.RootPort.Device = static_cast<uint8_t>(Parts[1].Uint(0xFF));
      Stack.RootPort.Function = static_cast<uint8_t>(Parts[2].Uint(0xFF));
    }
    if (auto Buses = Entry.Optional("buses")) {
      auto Ends = Buses->Elements();
      if (Ends.size() != 2) Buses->Fail("[bus base, bus limit]");
      Stack.BusBase = static_cast<uint8_t>(Ends[0].Uint(0xFF));
      Stack.BusLimit = static_cast<uint8_t>(Ends[1].Uint(0xFF));
    }
    Def->Stacks->push_back(Stack);
  }
}

void ParseSystemInformation(const JsonField &Info, Board *Out) {
  Info.AllowOnly({"dataBlock", "cpuBitMap", "stepping", "sataDrives", "stacks", "iioTopology", "patches"});
  SystemInformationDef &Def = Out->SystemInformation;
  if (auto Present = Info.Optional("dataBlock")) Def.HasDataBlock = Present->Bool();
  if (auto BitMap = Info.Optional("cpuBitMap")) Def.CpuBitMap = static_cast<uint32_t>(BitMap->Uint(0xFFFFFFFF));
  if (auto Stepping = Info.Optional("stepping")) Def.Stepping = Stepping->String();
  if (auto Drives = Info.Optional("sataDrives")) ParseSataDrives(*Drives, &Def);
  if (auto Stacks = Info.Optional("stacks")) ParseIioStacks(*Stacks, &Def);
  if (auto Table = Info.Optional("iioTopology")) {
    Def.IioTopology.reset();
    if (!Table->IsNull()) Def.IioTopology = ParseIioTopology(*Table);
  }
  if (auto Patches = Info.Optional("patches")) {
    Def.Patches = ParseBytePatches(*Patches, kSystemInformationBlockSize, "block");
  }
}

void ParseSystemTopology(const JsonField &Topology, Board *Out) {
  Topology.AllowOnly({"sockets"});
  if (auto Sockets = Topology.Optional("sockets")) {
    auto Elements = Sockets->Elements();
    if (Elements.size() > 4) Sockets->Fail("at most 4 sockets");
    Out->SystemTopology.Sockets.clear();
    for (const JsonField &Entry : Elements) {
      Entry.AllowOnly({"valid", "chopType"});
      TopologySocket Socket;
      if (auto Valid = Entry.Optional("valid")) Socket.Valid = Valid->Bool();
      if (auto Chop = Entry.Optional("chopType")) Socket.ChopType = static_cast<uint8_t>(Chop->Uint(255));
      Out->SystemTopology.Sockets.push_back(Socket);
    }
  }
}

void ParseBoardObject(const JsonField &Root, Board *Out) {
  Root.AllowOnly({
      "base", "name", "boots", "pcd", "cpu", "pch", "mmio", "ioPorts", "hobs", "variables", "flash", "debugPrint",
      "triggers", "faults", "systemInformation", "systemTopology",
      // memory map
      "memoryMap",

      // processors, memory, SMBIOS, IIO
      "iio", "indexedIo",
      "smbios", "pci", "cpuPower", "cpuCsr",

      // TPM, SATA, BMC transport
      "tpm", "customProtocol", "ipmi",
  });
  if (auto Name = Root.Optional("name")) Out->Name = Name->String();
  if (auto Pcd = Root.Optional("pcd")) ParsePcd(*Pcd, Out);
  if (auto Cpu = Root.Optional("cpu")) {
    Cpu->AllowOnly({"msr", "tscTicksPerRead"});
    if (auto Step = Cpu->Optional("tscTicksPerRead")) Out->TscTicksPerRead = Step->Uint(1ULL << 32);
    if (auto Msr = Cpu->Optional("msr")) {
      for (auto &[Key, Value] : Msr->Members()) {
        rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
        Out->Msrs[static_cast<uint32_t>(JsonField(KeyText, Msr->Path() + "[key " + Key + "]").Uint(0xFFFFFFFF))] =
            Value.Uint();
      }
    }
  }
  if (auto Pch = Root.Optional("pch")) {
    Pch->AllowOnly({"deviceId", "revisionId"});
    if (auto Id = Pch->Optional("deviceId")) Out->PchDeviceId = static_cast<uint16_t>(Id->Uint(0xFFFF));
    if (auto Rev = Pch->Optional("revisionId")) Out->PchRevisionId = static_cast<uint8_t>(Rev->Uint(0xFF));
  }
  if (auto Mmio = Root.Optional("mmio")) {
    for (auto &[Key, Value] : Mmio->Members()) {
      rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
      Out->MmioBytes[JsonField(KeyText, Mmio->Path() + "[key " + Key + "]").Uint()] =
          static_cast<uint8_t>(Value.Uint(0xFF));
    }
  }
  if (auto Io = Root.Optional("ioPorts")) {
    for (auto &[Key, Value] : Io->Members()) {
      rapidjson::Value KeyText(Key.c_str(), static_cast<rapidjson::SizeType>(Key.size()));
      Out->IoPorts[static_cast<uint16_t>(JsonField(KeyText, Io->Path() + "[key " + Key + "]").Uint(0xFFFF))] =
          static_cast<uint8_t>(Value.Uint(0xFF));
    }
  }
  if (auto Hobs = Root.Optional("hobs")) ParseHobs(*Hobs, Out);
  if (auto Variables = Root.Optional("variables")) ParseVariables(*Variables, Out);
  if (auto Flash = Root.Optional("flash")) {
    Flash->AllowOnly({"id"});
    if (auto Id = Flash->Optional("id")) {
      Out->FlashId = Id->Bytes();
      if (Out->FlashId.size() > 4) Id->Fail("at most 4 identification bytes");
      Out->FlashId.resize(4, 0);
    }
  }
  if (auto Debug = Root.Optional("debugPrint")) {
    Debug->AllowOnly({"revision"});
    if (auto Revision = Debug->Optional("revision")) Out->DebugPrintRevision = Revision->Uint();
  }
  if (auto Triggers = Root.Optional("triggers")) ParseTriggers(*Triggers, Out);
  if (auto Faults = Root.Optional("faults")) ParseFaults(*Faults, Out);
  if (auto Info = Root.Optional("systemInformation")) ParseSystemInformation(*Info, Out);
  if (auto Topology = Root.Optional("systemTopology")) ParseSystemTopology(*Topology, Out);
  // memory map
  if (auto Map = Root.Optional("memoryMap")) ParseMemoryMap(*Map, Out);

  // processors, memory, SMBIOS, IIO
  if (auto Iio = Root.Optional("iio")) ParseIio(*Iio, Out);
  if (auto IndexedIo = Root.Optional("indexedIo")) ParseIndexedIo(*IndexedIo, Out);
  if (auto Smbios = Root.Optional("smbios")) ParseSmbios(*Smbios, Out);
  if (auto Pci = Root.Optional("pci")) ParsePci(*Pci, Out);
  if (auto CpuPower = Root.Optional("cpuPower")) ParseCpuPower(*CpuPower, Out);
  if (auto Csr = Root.Optional("cpuCsr")) Out->CpuCsr = ParseCpuCsr(*Csr);

  // TPM, SATA, BMC transport
  if (auto Tpm = Root.Optional("tpm")) ParseTpm(*Tpm, Out);
  if (auto Custom = Root.Optional("customProtocol")) ParseCustomProtocol(*Custom, Out);
  if (auto Ipmi = Root.Optional("ipmi")) ParseIpmi(*Ipmi, Out);
}

}  // namespace

namespace {
// A per-boot overlay describes at most this many boots in a row.
constexpr uint64_t kMaxPerBootRepeat = 1000000;

// "boots": one overlay per boot (or per "repeat" boots in a row), each laid
// over the board without its "boots"; the last one also describes every
// later boot.
void ParsePerBootBoards(const rapidjson::Document &Merged, const std::string &Directory, Board *Out) {
  JsonField Boots(Merged["boots"], "board.boots");
  auto Overlays = Boots.Elements();
  if (Overlays.empty()) Boots.Fail("a list of at least one per-boot overlay");
  for (const JsonField &Overlay : Overlays) {
    if (!Overlay.IsObject()) Overlay.Fail("an object laid over the board for this boot");
    for (const char *Key : {"boots", "base"}) {
      if (Overlay.Has(Key)) Overlay.At(Key).Fail("a member of the board itself, not of one boot");
    }
    uint64_t Repeat = 1;
    if (auto Count = Overlay.Optional("repeat")) {
      Repeat = Count->Uint(kMaxPerBootRepeat);
      if (Repeat == 0) Count->Fail("a number of boots from 1 to " + std::to_string(kMaxPerBootRepeat));
    }
    rapidjson::Document ThisBoot;
    ThisBoot.CopyFrom(Merged, ThisBoot.GetAllocator());
    ThisBoot.RemoveMember("boots");
    MergeInto(ThisBoot, Overlay.Raw(), ThisBoot.GetAllocator());
    ThisBoot.RemoveMember("repeat");
    Board Parsed;
    Parsed.Directory = Directory;
    ParseBoardObject(JsonField(ThisBoot, Overlay.Path()), &Parsed);
    Out->PerBoot.push_back(std::move(Parsed));
    Out->PerBootRepeat.push_back(Repeat);
  }
}

Board ParseOverBase(const std::string &JsonText, bool IsBuiltIn, const std::string &Directory = "") {
  rapidjson::Document Overlay;
  ParseBoardDocument(JsonText, &Overlay);
  std::string Base = "builtin";
  if (Overlay.HasMember("base")) Base = JsonField(Overlay["base"], "board.base").String();
  if (Base != "builtin" && Base != "empty") {
    throw BoardError("board.base: expected \"builtin\" or \"empty\", got \"" + Base + "\"");
  }
  rapidjson::Document Merged;
  if (Base == "builtin" && !IsBuiltIn) {
    ParseBoardDocument(BuiltInBoardJson(), &Merged);
    MergeInto(Merged, Overlay, Merged.GetAllocator());
  } else {
    Merged.CopyFrom(Overlay, Merged.GetAllocator());
  }
  Board Out;
  Out.Directory = Directory;
  ParseBoardObject(JsonField(Merged, "board"), &Out);
  if (Merged.HasMember("boots")) ParsePerBootBoards(Merged, Directory, &Out);
  return Out;
}
}  // namespace

Board ParseBoard(const std::string &JsonText, const std::string &Directory) {
  return ParseOverBase(JsonText, false, Directory);
}

Board LoadBoardFile(const std::string &Path) {
  std::error_code Error;
  if (std::filesystem::is_directory(Path, Error)) throw BoardError(Path + ": is a directory, not a board file");
  std::ifstream In(Path, std::ios::binary);
  if (!In) throw BoardError(Path + ": cannot be read");
  std::stringstream Text;
  Text << In.rdbuf();
  if (In.bad()) throw BoardError(Path + ": cannot be read");
  try {
    return ParseBoard(Text.str(), std::filesystem::path(Path).parent_path().string());
  } catch (const BoardError &Error) {
    throw BoardError(Path + ": " + Error.what());
  }
}

const char *BuiltInBoardJson() { return kBuiltInBoardJson; }

Board BuiltInBoard() { return ParseOverBase(BuiltInBoardJson(), true); }

const Board &BoardForBoot(const Board &Board, int Boot) {
  if (Board.PerBoot.empty() || Boot < 1) return Board;
  uint64_t Remaining = static_cast<uint64_t>(Boot);
  for (size_t I = 0; I + 1 < Board.PerBoot.size(); I++) {
    uint64_t Repeat = I < Board.PerBootRepeat.size() ? Board.PerBootRepeat[I] : 1;
    if (Remaining <= Repeat) return Board.PerBoot[I];
    Remaining -= Repeat;
  }
  return Board.PerBoot.back();
}

}  // namespace qor::emu
