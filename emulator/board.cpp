#include "emulator/board.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "emulator/board_iio_training.h"
#include "emulator/board_json.h"
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
    "smbios", "cpuPower", "pciRootBridgeIo", "pciIo",
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
// (arrays included) replaces.
void MergeInto(rapidjson::Value &Base, const rapidjson::Value &Overlay, rapidjson::Document::AllocatorType &Alloc) {
  if (!Base.IsObject() || !Overlay.IsObject()) {
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
  Pcd.AllowOnly({"tokens", "customerId", "dynamicEx"});
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

void ParseVariables(const JsonField &Variables, Board *Out) {
  Out->Variables.clear();
  for (const JsonField &Entry : Variables.Elements()) {
    Entry.AllowOnly({"name", "guid", "attributes", "data", "size"});
    Variable Value;
    Value.Name = ToU16(Entry.At("name").String());
    if (Value.Name.empty()) Entry.At("name").Fail("a non-empty variable name");
    Value.Guid = Entry.At("guid").Guid();
    Value.Attributes = static_cast<uint32_t>(Entry.Optional("attributes") ? Entry.At("attributes").Uint(0xFFFFFFFF)
                                                                          : 0x7);
    if (auto Data = Entry.Optional("data")) Value.Data = Data->Bytes();
    if (auto Size = Entry.Optional("size")) {
      uint64_t Wanted = Size->Uint(1 << 20);
      if (Wanted < Value.Data.size()) Size->Fail("a size not below the length of \"data\"");
      Value.Data.resize(Wanted, 0);
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
                    "jsonStatus"});
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
}

// TPM, SATA, BMC transport.

// A text stored NUL-terminated in a field of Width bytes.
std::string FieldText(const JsonField &Field, size_t Width) {
  std::string Text = Field.String();
  if (Text.size() >= Width) Field.Fail("a text of at most " + std::to_string(Width - 1) + " characters");
  return Text;
}

void ParseSataDrives(const JsonField &Drives, SystemInformationDef *Def) {
  auto Elements = Drives.Elements();
  if (Elements.size() > QOR_SYSINFO_SATA_DRIVES_MAX) {
    Drives.Fail("at most " + std::to_string(QOR_SYSINFO_SATA_DRIVES_MAX) + " drive entries");
  }
  Def->SataDrives.clear();
  for (const JsonField &Entry : Elements) {
    Entry.AllowOnly({"present", "portIndex", "model", "firmware", "capacity", "speed", "mediaType", "formFactor",
                     "serial"});
    QOR_SATA_DRIVE_ENTRY Layout;
    SataDriveDef Drive;
    if (auto Present = Entry.Optional("present")) {
      Drive.Present = Present->Raw().IsBool() ? (Present->Bool() ? 1 : 0) : static_cast<uint8_t>(Present->Uint(255));
    }
    if (auto Port = Entry.Optional("portIndex")) Drive.PortIndex = static_cast<uint8_t>(Port->Uint(255));
    if (auto Model = Entry.Optional("model")) Drive.Model = FieldText(*Model, sizeof(Layout.Model));
    if (auto Firmware = Entry.Optional("firmware")) Drive.Firmware = FieldText(*Firmware, sizeof(Layout.FwVersion));
    if (auto Capacity = Entry.Optional("capacity")) Drive.Capacity = FieldText(*Capacity, sizeof(Layout.Capacity));
    if (auto Speed = Entry.Optional("speed")) Drive.SpeedIndex = static_cast<uint8_t>(Speed->Uint(255));
    if (auto Media = Entry.Optional("mediaType")) {
      if (Media->IsString() && (Media->String() == "SSD" || Media->String() == "HDD")) {
        Drive.MediaType = Media->String() == "SSD" ? QOR_SATA_MEDIA_SSD : 2;
      } else {
        Drive.MediaType = static_cast<uint16_t>(Media->Uint(0xFFFF));
      }
    }
    if (auto Form = Entry.Optional("formFactor")) Drive.FormFactor = static_cast<uint16_t>(Form->Uint(0xFFFF));
    if (auto Serial = Entry.Optional("serial")) Drive.Serial = FieldText(*Serial, sizeof(Layout.SerialNumber));
    Def->SataDrives.push_back(Drive);
  }
}

void ParseCustomProtocol(const JsonField &Custom, Board *Out) {
  Custom.AllowOnly({"sataPorts"});
  if (auto Ports = Custom.Optional("sataPorts")) {
    auto Elements = Ports->Elements();
    if (Elements.size() > QOR_CUSTOM_SATA_PORT_COUNT) {
      Ports->Fail("at most " + std::to_string(QOR_CUSTOM_SATA_PORT_COUNT) + " port records");
    }
    Out->CustomProtocol.SataPorts.clear();
    for (const JsonField &Entry : Elements) {
      Entry.AllowOnly({"portIndex", "slot"});
      SataPortDef Port;
      Port.PortIndex = static_cast<uint8_t>(Entry.At("portIndex").Uint(255));
      if (auto Slot = Entry.Optional("slot")) Port.Slot = FieldText(*Slot, QOR_SATA_SLOT_NAME_SIZE);
      Out->CustomProtocol.SataPorts.push_back(Port);
    }
  }
}

void ParseIpmi(const JsonField &Ipmi, Board *Out) {
  Ipmi.AllowOnly({"response", "status"});
  if (auto Response = Ipmi.Optional("response")) Out->Ipmi.Response = Response->Bytes();
  if (auto Status = Ipmi.Optional("status")) Out->Ipmi.Status = Status->Status();
}

// TPM settings bytes of the "Setup" variable by their board names.
struct SetupByteName {
  const char *Name;
  size_t Offset;
};
const SetupByteName kSetupTpmBytes[] = {
    {"tpmEnable", QOR_SETUP_TPM_ENABLE},
    {"tpmOperation", QOR_SETUP_TPM_OPERATION},
    {"tpmEnaDisable", QOR_SETUP_TPM_ENA_DISABLE},
    {"tpmActDeact", QOR_SETUP_TPM_ACT_DEACT},
    {"tpmOwnedUnowned", QOR_SETUP_TPM_OWNED_UNOWNED},
    {"tpmSupport", QOR_SETUP_TPM_SUPPORT},
    {"tcgSupportEnabled", QOR_SETUP_TCG_SUPPORT_ENABLED},
    {"tcmSupportEnabled", QOR_SETUP_TCM_SUPPORT_ENABLED},
    {"tpmAuthenticate", QOR_SETUP_TPM_AUTHENTICATE},
    {"tpmError", QOR_SETUP_TPM_ERROR},
    {"tpm20Device", QOR_SETUP_TPM20_DEVICE},
    {"tcg2SpecVersion", QOR_SETUP_TCG2_SPEC_VERSION},
    {"platformHierarchy", QOR_SETUP_PLATFORM_HIERARCHY},
    {"storageHierarchy", QOR_SETUP_STORAGE_HIERARCHY},
    {"endorsementHierarchy", QOR_SETUP_ENDORSEMENT_HIERARCHY},
    {"interfaceSel", QOR_SETUP_INTERFACE_SEL},
    {"deviceType", QOR_SETUP_DEVICE_TYPE},
    {"reserved3", QOR_SETUP_RESERVED3},
    {"tpmTcmDeviceType", QOR_SETUP_TPM_TCM_DEVICE_TYPE},
};
constexpr uint8_t kTpmAccessRegisterValid = 0xA1;  // valid, active locality, established

// Builds the "Setup" variable from named TPM bytes; it replaces a "Setup"
// entry of the "variables" list.
Variable ParseSetupVariable(const JsonField &Setup) {
  Setup.AllowOnly({"size", "attributes", "pcrBanks", "patches", "tpmEnable", "tpmOperation", "tpmEnaDisable",
                   "tpmActDeact", "tpmOwnedUnowned", "tpmSupport", "tcgSupportEnabled", "tcmSupportEnabled",
                   "tpmAuthenticate", "tpmError", "tpm20Device", "tcg2SpecVersion", "platformHierarchy",
                   "storageHierarchy", "endorsementHierarchy", "interfaceSel", "deviceType", "reserved3",
                   "tpmTcmDeviceType"});
  constexpr size_t kLastTpmByte = QOR_SETUP_TPM_TCM_DEVICE_TYPE;
  Variable Value;
  Value.Name = u"Setup";
  Value.Guid = gQorSetupVariableGuid;
  Value.Attributes = 0x7;
  if (auto Attributes = Setup.Optional("attributes")) Value.Attributes = static_cast<uint32_t>(Attributes->Uint(0xFFFFFFFF));
  size_t Size = QOR_SETUP_VARIABLE_READ_SIZE;
  if (auto Wanted = Setup.Optional("size")) {
    Size = Wanted->Uint(1 << 20);
    if (Size <= kLastTpmByte) Wanted->Fail("a size above " + std::to_string(kLastTpmByte) + " (the TPM bytes)");
  }
  Value.Data.assign(Size, 0);
  for (const SetupByteName &Byte : kSetupTpmBytes) {
    if (auto Field = Setup.Optional(Byte.Name)) Value.Data[Byte.Offset] = static_cast<uint8_t>(Field->Uint(255));
  }
  if (auto Banks = Setup.Optional("pcrBanks")) {
    uint64_t Mask = Banks->Uint((1U << QOR_SETUP_PCR_BANK_COUNT) - 1);
    for (size_t Bank = 0; Bank < QOR_SETUP_PCR_BANK_COUNT; Bank++) {
      Value.Data[QOR_SETUP_PCR_BANK_FIRST + Bank] = static_cast<uint8_t>(Mask & (1U << Bank));
    }
  }
  if (auto Patches = Setup.Optional("patches")) {
    for (const JsonField &Entry : Patches->Elements()) {
      Entry.AllowOnly({"offset", "bytes"});
      uint64_t Offset = Entry.At("offset").Uint(Size - 1);
      std::vector<uint8_t> Bytes = Entry.At("bytes").Bytes();
      if (Offset + Bytes.size() > Size) Entry.Fail("bytes that end inside the " + std::to_string(Size) + "-byte variable");
      std::copy(Bytes.begin(), Bytes.end(), Value.Data.begin() + static_cast<std::ptrdiff_t>(Offset));
    }
  }
  return Value;
}

void ParseTpm(const JsonField &Tpm, Board *Out) {
  Tpm.AllowOnly({"present", "accessRegister", "setup"});
  auto Present = Tpm.Optional("present");
  auto Access = Tpm.Optional("accessRegister");
  if (Present || Access) {
    bool HasDevice = Present ? Present->Bool() : true;
    uint8_t Byte = Access ? static_cast<uint8_t>(Access->Uint(255)) : kTpmAccessRegisterValid;
    Out->MmioBytes[QOR_TPM_ACCESS_REGISTER_ADDRESS] = HasDevice ? Byte : QOR_TPM_NO_DEVICE;
  }
  if (auto Setup = Tpm.Optional("setup")) {
    if (Setup->IsNull()) return;
    Variable Value = ParseSetupVariable(*Setup);
    auto &Variables = Out->Variables;
    Variables.erase(std::remove_if(Variables.begin(), Variables.end(),
                                   [&](const Variable &V) {
                                     return V.Name == Value.Name &&
                                            std::memcmp(&V.Guid, &Value.Guid, sizeof(EFI_GUID)) == 0;
                                   }),
                    Variables.end());
    Variables.push_back(std::move(Value));
  }
}

void ParseSystemInformation(const JsonField &Info, Board *Out) {
  Info.AllowOnly({"dataBlock", "cpuBitMap", "stepping", "sataDrives", "iioTopology", "patches"});
  SystemInformationDef &Def = Out->SystemInformation;
  if (auto Present = Info.Optional("dataBlock")) Def.HasDataBlock = Present->Bool();
  if (auto BitMap = Info.Optional("cpuBitMap")) Def.CpuBitMap = static_cast<uint32_t>(BitMap->Uint(0xFFFFFFFF));
  if (auto Stepping = Info.Optional("stepping")) Def.Stepping = Stepping->String();
  if (auto Drives = Info.Optional("sataDrives")) ParseSataDrives(*Drives, &Def);
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

// memory map: the descriptors GetMemoryMap serves.
const char *const kMemoryTypeNames[] = {
    "EfiReservedMemoryType",  "EfiLoaderCode",       "EfiLoaderData",          "EfiBootServicesCode",
    "EfiBootServicesData",    "EfiRuntimeServicesCode", "EfiRuntimeServicesData", "EfiConventionalMemory",
    "EfiUnusableMemory",      "EfiACPIReclaimMemory", "EfiACPIMemoryNVS",       "EfiMemoryMappedIO",
    "EfiMemoryMappedIOPortSpace", "EfiPalCode",       "EfiPersistentMemory",    "EfiUnacceptedMemoryType",
};

uint32_t ParseMemoryType(const JsonField &Type) {
  if (Type.IsString()) {
    std::string Name = Type.String();
    for (uint32_t I = 0; I < sizeof(kMemoryTypeNames) / sizeof(kMemoryTypeNames[0]); I++) {
      if (Name == kMemoryTypeNames[I]) return I;
    }
    if (Name.empty() || !std::isdigit(static_cast<unsigned char>(Name[0]))) {
      Type.Fail("a memory type: a number up to 0xFFFFFFFF or a name such as \"EfiConventionalMemory\", got \"" +
                Name + "\"");
    }
  }
  return static_cast<uint32_t>(Type.Uint(0xFFFFFFFF));
}

void ParseMemoryMap(const JsonField &Map, Board *Out) {
  Map.AllowOnly({"descriptorSize", "descriptorVersion", "descriptors"});
  Board::MemoryMapDef &Def = Out->MemoryMap;
  if (auto Size = Map.Optional("descriptorSize")) {
    Def.DescriptorSize = Size->Uint(4096);
    if (Def.DescriptorSize < 40 || Def.DescriptorSize % 8 != 0) {
      Size->Fail("a descriptor size of at least 40 (the descriptor structure) and a multiple of 8, got " +
                 std::to_string(Def.DescriptorSize));
    }
  }
  if (auto Version = Map.Optional("descriptorVersion")) {
    Def.DescriptorVersion = static_cast<uint32_t>(Version->Uint(0xFFFFFFFF));
  }
  if (auto Descriptors = Map.Optional("descriptors")) {
    Def.Descriptors.clear();
    for (const JsonField &Entry : Descriptors->Elements()) {
      Entry.AllowOnly({"type", "start", "pages", "attribute"});
      Board::MemoryDescriptor Descriptor;
      Descriptor.Type = ParseMemoryType(Entry.At("type"));
      JsonField Start = Entry.At("start");
      Descriptor.Start = Start.Uint();
      if (Descriptor.Start % 4096 != 0) Start.Fail("a start address aligned to 4 KiB");
      JsonField Pages = Entry.At("pages");
      Descriptor.Pages = Pages.Uint();
      if (Descriptor.Pages == 0) Pages.Fail("at least 1 page");
      if (Descriptor.Pages - 1 > (UINT64_MAX - Descriptor.Start) / 4096) {
        Pages.Fail("a page count that keeps the range below 2^64");
      }
      if (auto Attribute = Entry.Optional("attribute")) Descriptor.Attribute = Attribute->Uint();
      Def.Descriptors.push_back(Descriptor);
    }
  }
}

void ParseBoardObject(const JsonField &Root, Board *Out) {
  Root.AllowOnly({
      "base", "name", "pcd", "cpu", "pch", "mmio", "ioPorts", "hobs", "variables", "flash", "debugPrint",
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
    Cpu->AllowOnly({"msr"});
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
Board ParseOverBase(const std::string &JsonText, bool IsBuiltIn) {
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
  ParseBoardObject(JsonField(Merged, "board"), &Out);
  return Out;
}
}  // namespace

Board ParseBoard(const std::string &JsonText) { return ParseOverBase(JsonText, false); }

Board LoadBoardFile(const std::string &Path) {
  std::error_code Error;
  if (std::filesystem::is_directory(Path, Error)) throw BoardError(Path + ": is a directory, not a board file");
  std::ifstream In(Path, std::ios::binary);
  if (!In) throw BoardError(Path + ": cannot be read");
  std::stringstream Text;
  Text << In.rdbuf();
  if (In.bad()) throw BoardError(Path + ": cannot be read");
  try {
    return ParseBoard(Text.str());
  } catch (const BoardError &Error) {
    throw BoardError(Path + ": " + Error.what());
  }
}

const char *BuiltInBoardJson() { return kBuiltInBoardJson; }

Board BuiltInBoard() { return ParseOverBase(BuiltInBoardJson(), true); }

}  // namespace qor::emu
