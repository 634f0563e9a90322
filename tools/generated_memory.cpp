#include "tools/generated_memory.h"

#include <iterator>
#include <string>

namespace qor::tool {

namespace {

using rapidjson::Value;

constexpr uint32_t kChannels = 8;
constexpr uint32_t kSlotsPerChannel = 2;
constexpr uint64_t kDimmBytes = uint64_t{32} << 30;
constexpr uint64_t kPage = 4096;
constexpr uint64_t k4G = uint64_t{1} << 32;
constexpr uint64_t kLowDramEnd = 0x70000000;  // TSEG and the MMIO windows follow

bool Installed(uint32_t Sockets, uint32_t Dimms, uint32_t Socket, uint32_t Channel, uint32_t Slot) {
  return Slot * Sockets * kChannels + Socket * kChannels + Channel < Dimms;
}

const char *const kRuntimeTypes[] = {"EfiRuntimeServicesCode", "EfiRuntimeServicesData"};

// The types DRAM ranges take in turn: every type the section lists, with
// conventional memory in between.
const char *const kDramTypes[] = {
    "EfiConventionalMemory", "EfiBootServicesData",    "EfiConventionalMemory", "EfiBootServicesCode",
    "EfiConventionalMemory", "EfiRuntimeServicesData", "EfiConventionalMemory", "EfiACPIReclaimMemory",
    "EfiConventionalMemory", "EfiLoaderData",          "EfiConventionalMemory", "EfiRuntimeServicesCode",
    "EfiConventionalMemory", "EfiACPIMemoryNVS",       "EfiConventionalMemory", "EfiLoaderCode",
    "EfiConventionalMemory", "EfiPalCode",             "EfiConventionalMemory", "EfiUnusableMemory",
    "EfiConventionalMemory", "EfiPersistentMemory",
};

class MapWriter {
 public:
  explicit MapWriter(JsonAllocator &A) : A_(A), Out_(rapidjson::kArrayType) {}

  void Add(const std::string &Type, uint64_t Start, uint64_t Pages) {
    bool Runtime = Type == kRuntimeTypes[0] || Type == kRuntimeTypes[1];
    bool Mmio = Type == "EfiMemoryMappedIO";
    JsonObject D(A_);
    D.Set("type", Type).Set("start", HexText(Start)).Set("pages", HexText(Pages));
    D.Set("attribute", Mmio ? "0x8000000000000001" : Runtime ? "0x800000000000000F" : "0xF");
    Out_.PushBack(D.Take(), A_);
  }

  // Pages from Start split into Count ranges of the DRAM types in turn.
  void Split(uint64_t Start, uint64_t Pages, uint32_t Count) {
    uint64_t Each = Pages / Count;
    for (uint32_t I = 0; I < Count; I++) {
      uint64_t Size = I + 1 == Count ? Pages - Each * (Count - 1) : Each;
      Add(kDramTypes[Turn_++ % std::size(kDramTypes)], Start, Size);
      Start += Size * kPage;
    }
  }

  Value Take() { return std::move(Out_); }

 private:
  JsonAllocator &A_;
  Value Out_;
  uint32_t Turn_ = 0;
};

}  // namespace

uint64_t DramBytes(uint32_t Dimms) { return kDimmBytes * (Dimms == 0 ? 1 : Dimms); }

void AddDimms(uint32_t Sockets, uint32_t Dimms, JsonAllocator &A, JsonObject *Hobs, JsonObject *Smbios) {
  Value Devices(rapidjson::kArrayType), HobDimms(rapidjson::kArrayType), Enabled(rapidjson::kArrayType);
  uint32_t Serial = 0;
  for (uint32_t Socket = 0; Socket < Sockets; Socket++) {
    Enabled.PushBack(true, A);
    for (uint32_t Channel = 0; Channel < kChannels; Channel++) {
      for (uint32_t Slot = 0; Slot < kSlotsPerChannel; Slot++) {
        JsonObject Device(A);
        Device.Set("locator", "CPU" + std::to_string(Socket) + "_DIMM_" + static_cast<char>('A' + Channel) +
                                  std::to_string(Slot + 1));
        Device.Set("bankLocator", "NODE " + std::to_string(Socket));
        if (Installed(Sockets, Dimms, Socket, Channel, Slot)) {
          Device.Set("manufacturer", "Qor Memory").Set("serialNumber", "24B" + HexText(0x10000 + Serial++).substr(2));
          Device.Set("speed", 4800).Set("configuredSpeed", 4400).Set("rank", 2).Set("sizeMb", 32768);
          Device.Set("partNumber", "QM5R32G48R2-A1");
          JsonObject Hob(A);
          Hob.Set("socket", static_cast<int>(Socket)).Set("channel", static_cast<int>(Channel));
          Hob.Set("dimm", static_cast<int>(Slot)).Set("vendorId", "0x8A45");
          Value Flags(rapidjson::kArrayType);
          Flags.PushBack(1, A).PushBack(1, A);
          Hob.Set("flags", std::move(Flags)).Set("moduleType", 1).Set("sizeGb", 32);
          HobDimms.PushBack(Hob.Take(), A);
        }
        Devices.PushBack(Device.Take(), A);
      }
    }
  }
  JsonObject Map(A);
  Map.Set("sockets", static_cast<int>(Sockets)).Set("channels", static_cast<int>(kChannels));
  Map.Set("dimms", static_cast<int>(kSlotsPerChannel));
  JsonObject MemoryHob(A);
  MemoryHob.Set("ddrVoltage", 1).Set("ecc", true).Set("socketsEnabled", std::move(Enabled));
  MemoryHob.Set("dimms", std::move(HobDimms));
  Hobs->Set("dimmMap", std::move(Map)).Set("memoryMap", std::move(MemoryHob));
  Smbios->Set("memoryDevices", std::move(Devices));
}

Value DimmTrainingResults(uint32_t Sockets, uint32_t Dimms, JsonAllocator &A) {
  Value Out(rapidjson::kArrayType);
  for (uint32_t Socket = 0; Socket < Sockets; Socket++) {
    Value Channels(rapidjson::kArrayType);
    for (uint32_t Channel = 0; Channel < kChannels; Channel++) {
      Value Trained(rapidjson::kArrayType);
      for (uint32_t Slot = 0; Slot < kSlotsPerChannel; Slot++) {
        if (!Installed(Sockets, Dimms, Socket, Channel, Slot)) continue;
        JsonObject Dimm(A);
        Dimm.Set("result", 0).Set("mapoutReason", 0).Set("certification", 1);
        Trained.PushBack(Dimm.Take(), A);
      }
      JsonObject Record(A);
      Record.Set("channel", static_cast<int>(Channel)).Set("result", 0).Set("dimms", std::move(Trained));
      Channels.PushBack(Record.Take(), A);
    }
    JsonObject Result(A);
    Result.Set("channelNum", static_cast<int>(kChannels)).Set("channels", std::move(Channels));
    Out.PushBack(Result.Take(), A);
  }
  return Out;
}

Value MemoryDescriptors(uint32_t Count, uint64_t DramBytes, JsonAllocator &A) {
  // Eight fixed ranges; the rest is DRAM, an eighth of the ranges below
  // 2 GiB, the others above 4 GiB.
  uint32_t Dram = Count - 8;
  uint32_t Low = Dram / 8 == 0 ? 1 : Dram / 8;
  uint64_t LowPages = (kLowDramEnd - 0x100000) / kPage;
  MapWriter Map(A);
  Map.Add("EfiBootServicesCode", 0, 1);
  Map.Add("EfiConventionalMemory", 0x1000, 0x9F);
  Map.Add("EfiReservedMemoryType", 0xA0000, 0x60);
  Map.Split(0x100000, LowPages, Low);
  Map.Add("EfiReservedMemoryType", kLowDramEnd, 0x10000);
  Map.Add("EfiMemoryMappedIO", 0x80000000, 0x10000);
  Map.Add("EfiMemoryMappedIO", 0xFE000000, 0x20);
  Map.Add("EfiMemoryMappedIO", 0xFEC00000, 0x1);
  Map.Add("EfiMemoryMappedIO", 0xFF000000, 0x1000);
  uint64_t Below4G = kLowDramEnd;
  Map.Split(k4G, (DramBytes > Below4G ? DramBytes - Below4G : kDimmBytes) / kPage, Dram - Low);
  return Map.Take();
}

}  // namespace qor::tool
