// Parsing of the processor and memory members of a board.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>

#include "emulator/board.h"
#include "emulator/board_json.h"
#include "emulator/smbios_table.h"
#include "platform/cpu_power.h"
#include "platform/memory_map_data.h"
#include "platform/smbios.h"

namespace qor::emu {

namespace {

uint8_t U8(const JsonField &Field) { return static_cast<uint8_t>(Field.Uint(0xFF)); }
uint16_t U16(const JsonField &Field) { return static_cast<uint16_t>(Field.Uint(0xFFFF)); }
uint32_t U32(const JsonField &Field) { return static_cast<uint32_t>(Field.Uint(0xFFFFFFFF)); }

template <typename T, typename Reader>
T Get(const JsonField &Object, const char *Key, T Default, Reader Read) {
  auto Field = Object.Optional(Key);
  return Field ? static_cast<T>(Read(*Field)) : Default;
}

std::string Text(const JsonField &Object, const char *Key, const std::string &Default = "") {
  auto Field = Object.Optional(Key);
  return Field ? Field->String() : Default;
}

// ---------------------------------------------------------------- SMBIOS

// Handles: given ones are kept, the others are numbered from 0 in table
// order, skipping the given ones.
class HandlePlan {
 public:
  void Reserve(const JsonField &Field) {
    uint16_t Handle = U16(Field);
    if (Handle >= SMBIOS_HANDLE_PI_RESERVED) Field.Fail("a handle below 0xFFFE");
    if (!Used_.insert(Handle).second) Field.Fail("a handle no other SMBIOS record uses");
  }
  uint16_t Take(const JsonField &Record) {
    if (auto Given = Record.Optional("handle")) return U16(*Given);
    while (Used_.count(Next_) != 0) Next_++;
    Used_.insert(Next_);
    return Next_++;
  }

 private:
  std::set<uint16_t> Used_;
  uint16_t Next_ = 0;
};

// Cache sizes in the word form: 1 KB units up to 0x7FFF, else 64 KB units.
uint16_t CacheSizeWord(const JsonField &Field, uint32_t SizeKb) {
  if (SizeKb <= SMBIOS_CACHE_SIZE_MASK) return static_cast<uint16_t>(SizeKb);
  if (SizeKb % 64 != 0) Field.Fail("a size above 32767 KB that is a multiple of 64 KB");
  if (SizeKb / 64 <= SMBIOS_CACHE_SIZE_MASK) return static_cast<uint16_t>(SMBIOS_CACHE_SIZE_64K_GRANULARITY | SizeKb / 64);
  return 0xFFFF;  // too large for the word: the dword fields carry it
}

uint32_t CacheSizeKb(uint16_t Word) {
  uint32_t Size = Word & SMBIOS_CACHE_SIZE_MASK;
  return (Word & SMBIOS_CACHE_SIZE_64K_GRANULARITY) != 0 ? Size * 64 : Size;
}

std::vector<uint8_t> BuildCache(const JsonField &Cache, uint16_t Handle) {
  Cache.AllowOnly({"id", "handle", "designation", "level", "sizeKb", "maximumSizeField", "installedSizeKb",
                   "cacheType", "associativity", "errorCorrection"});
  uint8_t Level = Get<uint8_t>(Cache, "level", 1, [](const JsonField &F) { return F.Uint(8); });
  if (Level == 0) Cache.At("level").Fail("a cache level from 1 to 8");
  uint32_t SizeKb = Get<uint32_t>(Cache, "sizeKb", 0, U32);
  uint16_t MaximumWord = CacheSizeWord(Cache, SizeKb);
  if (auto Raw = Cache.Optional("maximumSizeField")) {
    MaximumWord = U16(*Raw);
    SizeKb = CacheSizeKb(MaximumWord);
  }
  uint32_t InstalledKb = Get<uint32_t>(Cache, "installedSizeKb", SizeKb, U32);
  SmbiosRecordBuilder R(SMBIOS_TYPE_CACHE_INFORMATION, SMBIOS_TYPE7_LENGTH);
  R.SetString(SMBIOS_TYPE7_SOCKET_DESIGNATION, Text(Cache, "designation", "L" + std::to_string(Level) + "-Cache"));
  // Level, internal, enabled, write-back.
  R.Set16(SMBIOS_TYPE7_CONFIGURATION, static_cast<uint16_t>((Level - 1) | 0x80 | 0x100));
  R.Set16(SMBIOS_TYPE7_MAXIMUM_SIZE, MaximumWord);
  R.Set16(SMBIOS_TYPE7_INSTALLED_SIZE, InstalledKb <= SMBIOS_CACHE_SIZE_MASK ? static_cast<uint16_t>(InstalledKb)
                                                                               : CacheSizeWord(Cache, InstalledKb));
  R.Set16(SMBIOS_TYPE7_SUPPORTED_SRAM_TYPE, 0x0020);  // synchronous
  R.Set16(SMBIOS_TYPE7_CURRENT_SRAM_TYPE, 0x0020);
  R.Set8(SMBIOS_TYPE7_ERROR_CORRECTION, Get<uint8_t>(Cache, "errorCorrection", 6, U8));  // multi-bit ECC
  R.Set8(SMBIOS_TYPE7_SYSTEM_CACHE_TYPE, Get<uint8_t>(Cache, "cacheType", 5, U8));       // unified
  R.Set8(SMBIOS_TYPE7_ASSOCIATIVITY, Get<uint8_t>(Cache, "associativity", 8, U8));       // 16-way
  R.Set32(SMBIOS_TYPE7_MAXIMUM_SIZE2, SizeKb);
  R.Set32(SMBIOS_TYPE7_INSTALLED_SIZE2, InstalledKb);
  return R.Build(Handle);
}

uint16_t CacheReference(const JsonField &Processor, const char *Key, const std::map<std::string, uint16_t> &Caches) {
  auto Field = Processor.Optional(Key);
  if (!Field) return SMBIOS_HANDLE_NONE;
  if (Field->IsString()) {
    auto It = Caches.find(Field->String());
    if (It != Caches.end()) return It->second;
  }
  if (Field->IsString() && Field->String().rfind("0x", 0) != 0 &&
      Field->String().find_first_not_of("0123456789") != std::string::npos) {
    Field->Fail("the \"id\" of a cache in board.smbios.caches or a handle number");
  }
  return U16(*Field);
}

std::vector<uint8_t> BuildProcessor(const JsonField &Cpu, uint16_t Handle,
                                    const std::map<std::string, uint16_t> &Caches) {
  Cpu.AllowOnly({"handle", "socket", "populated", "status", "type", "family", "family2", "manufacturer", "id",
                 "version", "voltage", "externalClock", "maxSpeed", "currentSpeed", "upgrade", "l1", "l2", "l3",
                 "serialNumber", "assetTag", "partNumber", "coreCount", "coresEnabled", "threadCount",
                 "threadsEnabled", "characteristics"});
  bool Populated = Get<bool>(Cpu, "populated", true, [](const JsonField &F) { return F.Bool(); });
  SmbiosRecordBuilder R(SMBIOS_TYPE_PROCESSOR_INFORMATION, SMBIOS_TYPE4_LENGTH);
  R.SetString(SMBIOS_TYPE4_SOCKET_DESIGNATION, Text(Cpu, "socket"));
  R.Set8(SMBIOS_TYPE4_PROCESSOR_TYPE, Get<uint8_t>(Cpu, "type", 3, U8));  // central processor
  uint16_t Family2 = Get<uint16_t>(Cpu, "family2", 0x01, U16);  // "Other"
  R.Set8(SMBIOS_TYPE4_PROCESSOR_FAMILY,
         Get<uint8_t>(Cpu, "family", static_cast<uint8_t>(Family2 > 0xFD ? 0xFE : Family2), U8));
  R.SetString(SMBIOS_TYPE4_PROCESSOR_MANUFACTURER, Text(Cpu, "manufacturer"));
  if (auto Id = Cpu.Optional("id")) {
    std::vector<uint8_t> Bytes = Id->Bytes();
    if (Bytes.size() != 8) Id->Fail("8 processor ID bytes");
    R.SetBytes(SMBIOS_TYPE4_PROCESSOR_ID, Bytes);
  }
  R.SetString(SMBIOS_TYPE4_PROCESSOR_VERSION, Text(Cpu, "version"));
  R.Set8(SMBIOS_TYPE4_VOLTAGE, Get<uint8_t>(Cpu, "voltage", 0x80 | 16, U8));  // 1.6 V
  R.Set16(SMBIOS_TYPE4_EXTERNAL_CLOCK, Get<uint16_t>(Cpu, "externalClock", Populated ? 100 : 0, U16));
  R.Set16(SMBIOS_TYPE4_MAX_SPEED, Get<uint16_t>(Cpu, "maxSpeed", 0, U16));
  R.Set16(SMBIOS_TYPE4_CURRENT_SPEED, Get<uint16_t>(Cpu, "currentSpeed", 0, U16));
  // Populated and enabled, or empty.
  R.Set8(SMBIOS_TYPE4_STATUS, Get<uint8_t>(Cpu, "status", Populated ? 0x41 : 0x00, U8));
  R.Set8(SMBIOS_TYPE4_PROCESSOR_UPGRADE, Get<uint8_t>(Cpu, "upgrade", 0x01, U8));
  R.Set16(SMBIOS_TYPE4_L1_CACHE_HANDLE, CacheReference(Cpu, "l1", Caches));
  R.Set16(SMBIOS_TYPE4_L2_CACHE_HANDLE, CacheReference(Cpu, "l2", Caches));
  R.Set16(SMBIOS_TYPE4_L3_CACHE_HANDLE, CacheReference(Cpu, "l3", Caches));
  R.SetString(SMBIOS_TYPE4_SERIAL_NUMBER, Text(Cpu, "serialNumber"));
  R.SetString(SMBIOS_TYPE4_ASSET_TAG, Text(Cpu, "assetTag"));
  R.SetString(SMBIOS_TYPE4_PART_NUMBER, Text(Cpu, "partNumber"));
  uint16_t Cores = Get<uint16_t>(Cpu, "coreCount", 0, U16);
  uint16_t Enabled = Get<uint16_t>(Cpu, "coresEnabled", Cores, U16);
  uint16_t Threads = Get<uint16_t>(Cpu, "threadCount", 0, U16);
  uint16_t ThreadsEnabled = Get<uint16_t>(Cpu, "threadsEnabled", Threads, U16);
  // Counts above 255 go to the 2-byte fields with 0xFF in the byte ones.
  R.Set8(SMBIOS_TYPE4_CORE_COUNT, static_cast<uint8_t>(Cores > 255 ? 0xFF : Cores));
  R.Set8(SMBIOS_TYPE4_CORE_ENABLED, static_cast<uint8_t>(Enabled > 255 ? 0xFF : Enabled));
  R.Set8(SMBIOS_TYPE4_THREAD_COUNT, static_cast<uint8_t>(Threads > 255 ? 0xFF : Threads));
  R.Set16(SMBIOS_TYPE4_CHARACTERISTICS, Get<uint16_t>(Cpu, "characteristics", Populated ? 0x00FC : 0, U16));
  R.Set16(SMBIOS_TYPE4_PROCESSOR_FAMILY2, Family2);
  R.Set16(SMBIOS_TYPE4_CORE_COUNT2, Cores);
  R.Set16(SMBIOS_TYPE4_CORE_ENABLED2, Enabled);
  R.Set16(SMBIOS_TYPE4_THREAD_COUNT2, Threads);
  R.Set16(SMBIOS_TYPE4_THREAD_ENABLED, ThreadsEnabled);
  return R.Build(Handle);
}

std::vector<uint8_t> BuildMemoryDevice(const JsonField &Device, uint16_t Handle) {
  Device.AllowOnly({"handle", "locator", "bankLocator", "arrayHandle", "sizeMb", "sizeField", "extendedSize",
                    "formFactor", "type", "typeDetail", "speed", "configuredSpeed", "manufacturer", "serialNumber",
                    "assetTag", "partNumber", "rank", "totalWidth", "dataWidth", "voltageMv"});
  uint32_t SizeMb = Get<uint32_t>(Device, "sizeMb", 0, [](const JsonField &F) { return F.Uint(0x7FFFFFFF); });
  bool Installed = SizeMb != 0 || Device.Has("sizeField");
  uint16_t SizeWord = SizeMb < SMBIOS_TYPE17_SIZE_USE_EXTENDED ? static_cast<uint16_t>(SizeMb)
                                                               : static_cast<uint16_t>(SMBIOS_TYPE17_SIZE_USE_EXTENDED);
  uint32_t Extended = SizeMb < SMBIOS_TYPE17_SIZE_USE_EXTENDED ? 0 : SizeMb;
  SizeWord = Get<uint16_t>(Device, "sizeField", SizeWord, U16);
  Extended = Get<uint32_t>(Device, "extendedSize", Extended, U32);
  uint16_t VoltageMv = Get<uint16_t>(Device, "voltageMv", Installed ? 1100 : 0, U16);

  SmbiosRecordBuilder R(SMBIOS_TYPE_MEMORY_DEVICE, SMBIOS_TYPE17_LENGTH);
  R.Set16(SMBIOS_TYPE17_ARRAY_HANDLE, Get<uint16_t>(Device, "arrayHandle", 0x1000, U16));
  R.Set16(SMBIOS_TYPE17_ERROR_HANDLE, SMBIOS_HANDLE_PI_RESERVED);  // no error information
  R.Set16(SMBIOS_TYPE17_TOTAL_WIDTH, Get<uint16_t>(Device, "totalWidth", Installed ? 72 : 0xFFFF, U16));
  R.Set16(SMBIOS_TYPE17_DATA_WIDTH, Get<uint16_t>(Device, "dataWidth", Installed ? 64 : 0xFFFF, U16));
  R.Set16(SMBIOS_TYPE17_SIZE, SizeWord);
  R.Set8(SMBIOS_TYPE17_FORM_FACTOR, Get<uint8_t>(Device, "formFactor", 0x09, U8));  // DIMM
  R.SetString(SMBIOS_TYPE17_DEVICE_LOCATOR, Text(Device, "locator"));
  R.SetString(SMBIOS_TYPE17_BANK_LOCATOR, Text(Device, "bankLocator"));
  R.Set8(SMBIOS_TYPE17_MEMORY_TYPE, Get<uint8_t>(Device, "type", Installed ? 0x22 : 0x02, U8));  // DDR5 / unknown
  // Synchronous and registered, or unknown.
  R.Set16(SMBIOS_TYPE17_TYPE_DETAIL, Get<uint16_t>(Device, "typeDetail", Installed ? 0x2080 : 0x0004, U16));
  R.Set16(SMBIOS_TYPE17_SPEED, Get<uint16_t>(Device, "speed", 0, U16));
  R.SetString(SMBIOS_TYPE17_MANUFACTURER, Text(Device, "manufacturer"));
  R.SetString(SMBIOS_TYPE17_SERIAL_NUMBER, Text(Device, "serialNumber"));
  R.SetString(SMBIOS_TYPE17_ASSET_TAG, Text(Device, "assetTag"));
  R.SetString(SMBIOS_TYPE17_PART_NUMBER, Text(Device, "partNumber"));
  R.Set8(SMBIOS_TYPE17_ATTRIBUTES, Get<uint8_t>(Device, "rank", 0, U8));
  R.Set32(SMBIOS_TYPE17_EXTENDED_SIZE, Extended);
  R.Set16(SMBIOS_TYPE17_CONFIGURED_SPEED, Get<uint16_t>(Device, "configuredSpeed", 0, U16));
  R.Set16(SMBIOS_TYPE17_MINIMUM_VOLTAGE, VoltageMv);
  R.Set16(SMBIOS_TYPE17_MAXIMUM_VOLTAGE, VoltageMv);
  R.Set16(SMBIOS_TYPE17_CONFIGURED_VOLTAGE, VoltageMv);
  return R.Build(Handle);
}

// Builds every record, turning the builders' argument errors into board
// errors at the record's path.
template <typename Build>
std::vector<uint8_t> Checked(const JsonField &Record, Build Make) {
  try {
    return Make();
  } catch (const std::invalid_argument &Error) {
    Record.Fail(Error.what());
  } catch (const std::out_of_range &) {
    Record.Fail("fields inside the record");
  }
}

// ---------------------------------------------------------------- HOBs

QOR_DIMM_MAP_ENTRY DimmMapEntry(uint8_t Socket, uint8_t Channel, uint8_t Dimm, uint8_t Index, uint8_t Number,
                                bool Present, const std::string &Label) {
  QOR_DIMM_MAP_ENTRY Entry{};
  Entry.Location = QOR_DIMM_MAP_LOCATION(Socket, Channel, Dimm);
  Entry.SlotIndex = Index;
  Entry.Slot = static_cast<uint8_t>((Present ? QOR_DIMM_MAP_SLOT_PRESENT : 0) | (Number & QOR_DIMM_MAP_SLOT_NUMBER_MASK));
  std::memcpy(Entry.Label, Label.data(), std::min(Label.size(), sizeof(Entry.Label)));  // NUL-padded, not terminated
  return Entry;
}

std::vector<uint8_t> ParseDimmMap(const JsonField &Map) {
  Map.AllowOnly({"sockets", "channels", "dimms", "absentSlots", "slots", "raw"});
  if (auto Raw = Map.Optional("raw")) {
    std::vector<uint8_t> Bytes = Raw->Bytes();
    if (Bytes.size() % sizeof(QOR_DIMM_MAP_ENTRY) != 0) Raw->Fail("whole 9-byte DIMM map entries");
    return Bytes;
  }
  std::vector<QOR_DIMM_MAP_ENTRY> Entries;
  if (auto Slots = Map.Optional("slots")) {
    for (const JsonField &Slot : Slots->Elements()) {
      Slot.AllowOnly({"socket", "channel", "dimm", "index", "number", "present", "label"});
      std::string Label = Text(Slot, "label");
      if (Label.size() > 5) Slot.At("label").Fail("a label of at most 5 characters");
      uint8_t Index = static_cast<uint8_t>(Slot.At("index").Uint(254));
      Entries.push_back(DimmMapEntry(static_cast<uint8_t>(Slot.At("socket").Uint(7)),
                                     static_cast<uint8_t>(Slot.At("channel").Uint(7)),
                                     static_cast<uint8_t>(Slot.At("dimm").Uint(3)), Index,
                                     static_cast<uint8_t>(Get<uint8_t>(Slot, "number", 0, [](const JsonField &F) {
                                       return F.Uint(QOR_DIMM_MAP_SLOT_NUMBER_MASK);
                                     })),
                                     Get<bool>(Slot, "present", true, [](const JsonField &F) { return F.Bool(); }),
                                     Label));
    }
  } else {
    // The platform's usual numbering, as many sockets, channels and DIMMs as
    // the board has: index socket*16 + channel*2 + DIMM, number channel+1 or
    // channel+9, label A (even sockets) or B (odd sockets) and the number.
    unsigned Sockets = static_cast<unsigned>(Get<uint64_t>(Map, "sockets", 2, [](const JsonField &F) { return F.Uint(4); }));
    unsigned Channels = static_cast<unsigned>(Get<uint64_t>(Map, "channels", 8, [](const JsonField &F) { return F.Uint(8); }));
    unsigned Dimms = static_cast<unsigned>(Get<uint64_t>(Map, "dimms", 2, [](const JsonField &F) { return F.Uint(2); }));
    std::set<uint64_t> Absent;
    if (auto List = Map.Optional("absentSlots")) {
      for (const JsonField &Index : List->Elements()) Absent.insert(Index.Uint(254));
    }
    for (unsigned S = 0; S < Sockets; S++) {
      for (unsigned C = 0; C < Channels; C++) {
        for (unsigned D = 0; D < Dimms; D++) {
          uint8_t Index = static_cast<uint8_t>(S * 16 + C * 2 + D);
          uint8_t Number = static_cast<uint8_t>(D == 0 ? C + 1 : C + 9);
          std::string Label = std::string(S % 2 == 0 ? "A" : "B") + std::to_string(Number);
          Entries.push_back(DimmMapEntry(static_cast<uint8_t>(S), static_cast<uint8_t>(C), static_cast<uint8_t>(D),
                                         Index, Number, Absent.count(Index) == 0, Label));
        }
      }
    }
  }
  QOR_DIMM_MAP_ENTRY End{};
  End.SlotIndex = QOR_DIMM_MAP_END_SLOT_INDEX;
  std::memcpy(End.Label, "END", 4);
  Entries.push_back(End);
  std::vector<uint8_t> Bytes(Entries.size() * sizeof(QOR_DIMM_MAP_ENTRY));
  std::memcpy(Bytes.data(), Entries.data(), Bytes.size());
  return Bytes;
}

MemoryMapDataDef ParseMemoryMap(const JsonField &Map) {
  Map.AllowOnly({"nullPointer", "ddrVoltage", "ecc", "socketsEnabled", "dimms", "patches"});
  MemoryMapDataDef Def;
  Def.NullPointer = Get<bool>(Map, "nullPointer", false, [](const JsonField &F) { return F.Bool(); });
  Def.DdrVoltage = Get<uint8_t>(Map, "ddrVoltage", 0, U8);
  Def.Ecc = Get<bool>(Map, "ecc", true, [](const JsonField &F) { return F.Bool(); });
  if (auto Sockets = Map.Optional("socketsEnabled")) {
    auto Elements = Sockets->Elements();
    if (Elements.size() > QOR_MEMMAP_MAX_SOCKETS) Sockets->Fail("at most 4 sockets");
    for (const JsonField &Enabled : Elements) Def.SocketsEnabled.push_back(Enabled.Bool());
  }
  if (auto Dimms = Map.Optional("dimms")) {
    for (const JsonField &Entry : Dimms->Elements()) {
      Entry.AllowOnly({"socket", "channel", "dimm", "present", "flags", "keyType", "moduleType", "nvdimm", "vendorId",
                       "deviceId", "sizeGb", "repairCount"});
      MemoryMapDataDimmDef D;
      D.Socket = static_cast<uint8_t>(Entry.At("socket").Uint(QOR_MEMMAP_MAX_SOCKETS - 1));
      D.Channel = static_cast<uint8_t>(Entry.At("channel").Uint(QOR_MEMMAP_MAX_CHANNELS - 1));
      D.Dimm = static_cast<uint8_t>(Entry.At("dimm").Uint(QOR_MEMMAP_MAX_DIMMS - 1));
      D.Present = Get<bool>(Entry, "present", true, [](const JsonField &F) { return F.Bool(); });
      if (auto Flags = Entry.Optional("flags")) {
        std::vector<uint8_t> Bytes = Flags->Bytes();
        if (Bytes.size() != 2) Flags->Fail("two flag bytes");
        D.SizeFlags[0] = Bytes[0];
        D.SizeFlags[1] = Bytes[1];
      }
      D.KeyType = Get<uint8_t>(Entry, "keyType", QOR_DRAM_KEY_TYPE_DDR5, U8);
      D.ModuleType = Get<uint8_t>(Entry, "moduleType", 1, U8);
      D.Nvdimm = Get<uint32_t>(Entry, "nvdimm", 0, U32);
      D.VendorId = Get<uint16_t>(Entry, "vendorId", 0, U16);
      D.DeviceId = Get<uint16_t>(Entry, "deviceId", 0, U16);
      D.SizeGb = Get<uint32_t>(Entry, "sizeGb", 0, U32);
      D.RepairCount = Get<uint8_t>(Entry, "repairCount", 0, U8);
      Def.Dimms.push_back(D);
    }
  }
  if (auto Patches = Map.Optional("patches")) Def.Patches = ParseBytePatches(*Patches, QOR_MEMMAP_DATA_SIZE, "block");
  return Def;
}

}  // namespace

void ParseSmbios(const JsonField &Smbios, Board *Out) {
  Smbios.AllowOnly({"present", "version", "processors", "caches", "memoryDevices", "raw"});
  SmbiosDef &Def = Out->Smbios;
  Def = SmbiosDef();
  Def.Present = Get<bool>(Smbios, "present", true, [](const JsonField &F) { return F.Bool(); });
  if (auto Version = Smbios.Optional("version")) {
    unsigned Major = 0, Minor = 0;
    char Tail = 0;
    if (std::sscanf(Version->String().c_str(), "%u.%u%c", &Major, &Minor, &Tail) != 2 || Major < 2 || Major > 255 ||
        Minor > 255) {
      Version->Fail("a version \"MAJOR.MINOR\" such as \"3.6\"");
    }
    Def.MajorVersion = static_cast<uint8_t>(Major);
    Def.MinorVersion = static_cast<uint8_t>(Minor);
  }
  if (auto Raw = Smbios.Optional("raw")) {
    // A raw table stands for the whole SMBIOS content.
    try {
      Def.Records = SplitSmbiosTable(Raw->Bytes());
    } catch (const std::invalid_argument &Error) {
      Raw->Fail(Error.what());
    }
    return;
  }
  auto Caches = Smbios.Optional("caches");
  auto Processors = Smbios.Optional("processors");
  auto Devices = Smbios.Optional("memoryDevices");
  std::vector<JsonField> CacheList = Caches ? Caches->Elements() : std::vector<JsonField>();
  std::vector<JsonField> ProcessorList = Processors ? Processors->Elements() : std::vector<JsonField>();
  std::vector<JsonField> DeviceList = Devices ? Devices->Elements() : std::vector<JsonField>();

  HandlePlan Handles;
  for (const auto *List : {&CacheList, &ProcessorList, &DeviceList}) {
    for (const JsonField &Record : *List) {
      if (auto Handle = Record.Optional("handle")) Handles.Reserve(*Handle);
    }
  }
  std::map<std::string, uint16_t> CacheIds;
  for (const JsonField &Cache : CacheList) {
    uint16_t Handle = Handles.Take(Cache);
    if (auto Id = Cache.Optional("id")) {
      if (!CacheIds.emplace(Id->String(), Handle).second) Id->Fail("an id no other cache uses");
    }
    Def.Records.push_back(Checked(Cache, [&] { return BuildCache(Cache, Handle); }));
  }
  for (const JsonField &Cpu : ProcessorList) {
    uint16_t Handle = Handles.Take(Cpu);
    Def.Records.push_back(Checked(Cpu, [&] { return BuildProcessor(Cpu, Handle, CacheIds); }));
  }
  for (const JsonField &Device : DeviceList) {
    uint16_t Handle = Handles.Take(Device);
    Def.Records.push_back(Checked(Device, [&] { return BuildMemoryDevice(Device, Handle); }));
  }
}

void ParseCpuPower(const JsonField &CpuPower, Board *Out) {
  CpuPower.AllowOnly({"dataBlock", "tdp"});
  Out->CpuPower.HasData = Get<bool>(CpuPower, "dataBlock", true, [](const JsonField &F) { return F.Bool(); });
  if (auto Tdp = CpuPower.Optional("tdp")) {
    Out->CpuPower.Tdp.clear();
    auto Elements = Tdp->Elements();
    if (Elements.size() > QOR_CPU_POWER_MAX_SOCKETS) Tdp->Fail("at most 4 TDP values");
    for (const JsonField &Value : Elements) Out->CpuPower.Tdp.push_back(U32(Value));
  }
}

void ParseCpuMemoryHobs(const JsonField &Hobs, Board *Out) {
  if (auto Speed = Hobs.Optional("processorSpeed")) {
    if (Speed->IsNull()) {
      Out->ProcessorSpeedHob.reset();
    } else {
      std::vector<uint8_t> Ratios = Speed->Bytes();
      if (Ratios.size() > QOR_MEMMAP_MAX_SOCKETS) Speed->Fail("at most 4 ratios (one per socket)");
      Out->ProcessorSpeedHob = Ratios;
    }
  }
  if (auto Map = Hobs.Optional("dimmMap")) {
    if (Map->IsNull()) {
      Out->DimmMapHob.reset();
    } else {
      Out->DimmMapHob = ParseDimmMap(*Map);
    }
  }
  if (auto Map = Hobs.Optional("memoryMap")) {
    if (Map->IsNull()) {
      Out->MemoryMapData.reset();
    } else {
      Out->MemoryMapData = ParseMemoryMap(*Map);
    }
  }
}

}  // namespace qor::emu
