// Parsing of what a function entry adds to its configuration space: "vpd",
// "nvme", "vroc" and "vmd" (docs/board-pci-devices.md).
#include <algorithm>

#include "emulator/board_json.h"
#include "emulator/pci/board_pci.h"
#include "emulator/pci/pci_device_extras.h"
#include "emulator/vmd/vmd_domain.h"
#include "platform/nvme.h"

namespace qor::emu {

namespace {

constexpr uint64_t kMegabyte = 1 << 20;

std::vector<VpdKeyword> ParseKeywords(const JsonField &Section) {
  std::vector<VpdKeyword> Out;
  for (auto &[Name, Value] : Section.Members()) {
    if (Name.size() != 2) Section.Fail("two-character keyword names, got \"" + Name + "\"");
    std::string Text = Value.String();
    if (Text.size() > 255) Value.Fail("a value of at most 255 bytes");
    Out.emplace_back(Name, Text);
  }
  return Out;
}

VpdDef ParseVpd(const JsonField &Vpd) {
  Vpd.AllowOnly({"image", "identifier", "readOnly", "readWrite", "checksum", "end", "size", "latencyUs", "failAt",
                 "capabilityOffset"});
  VpdDef Out;
  if (auto Image = Vpd.Optional("image")) {
    for (const char *Key : {"identifier", "readOnly", "readWrite", "checksum", "end"}) {
      if (Vpd.Has(Key)) Vpd.At(Key).Fail("no member besides \"image\" that describes the image");
    }
    Out.Image = Image->Bytes();
  } else {
    std::string Identifier = Vpd.Has("identifier") ? Vpd.At("identifier").String() : "";
    if (Identifier.size() > 0xFFFF) Vpd.At("identifier").Fail("a text of at most 65535 bytes");
    std::vector<VpdKeyword> ReadOnly, ReadWrite;
    if (auto Section = Vpd.Optional("readOnly")) ReadOnly = ParseKeywords(*Section);
    if (auto Section = Vpd.Optional("readWrite")) ReadWrite = ParseKeywords(*Section);
    bool Checksum = Vpd.Has("checksum") ? Vpd.At("checksum").Bool() : true;
    bool End = Vpd.Has("end") ? Vpd.At("end").Bool() : true;
    Out.Image = BuildVpdImage(Identifier, ReadOnly, ReadWrite, Checksum, End);
  }
  if (Out.Image.size() > kVpdMaxBytes) Vpd.Fail("a VPD image of at most 32768 bytes");
  if (auto Size = Vpd.Optional("size")) {
    Out.StorageSize = static_cast<uint32_t>(Size->Uint(kVpdMaxBytes));
    if (Out.StorageSize < 4) Size->Fail("at least 4 bytes of VPD storage");
  }
  if (auto Latency = Vpd.Optional("latencyUs")) {
    if (Latency->IsString() && Latency->String() == "never") {
      Out.LatencyUs.reset();
    } else {
      Out.LatencyUs = Latency->Uint(1000000);
    }
  }
  if (auto FailAt = Vpd.Optional("failAt")) {
    for (const JsonField &Address : FailAt->Elements()) {
      Out.FailAt.push_back(static_cast<uint32_t>(Address.Uint(kVpdMaxBytes - 1)) & ~3u);
    }
  }
  if (auto Offset = Vpd.Optional("capabilityOffset")) {
    Out.CapabilityOffset = static_cast<uint32_t>(Offset->Uint(0xF8));
    if (Out.CapabilityOffset < 0x40 || Out.CapabilityOffset % 4 != 0) {
      Offset->Fail("a dword-aligned offset from 0x40 to 0xF8");
    }
  }
  return Out;
}

void PutText(const JsonField &Field, size_t Width, std::string *Out) {
  *Out = Field.String();
  if (Out->size() > Width) Field.Fail("a text of at most " + std::to_string(Width) + " characters");
}

NvmeDriveDef ParseNvme(const JsonField &Nvme) {
  Nvme.AllowOnly({"serial", "model", "firmware", "capacity", "capacityHigh", "namespaces", "identifyPatches",
                  "commandStatus", "responseUs", "passThru", "vendorProtocol"});
  NvmeDriveDef Out;
  if (auto Serial = Nvme.Optional("serial")) PutText(*Serial, NVME_ID_SERIAL_NUMBER_SIZE, &Out.Serial);
  if (auto Model = Nvme.Optional("model")) PutText(*Model, NVME_ID_MODEL_NUMBER_SIZE, &Out.Model);
  if (auto Firmware = Nvme.Optional("firmware")) PutText(*Firmware, NVME_ID_FIRMWARE_REVISION_SIZE, &Out.Firmware);
  if (auto Capacity = Nvme.Optional("capacity")) Out.Capacity = Capacity->Uint();
  if (auto High = Nvme.Optional("capacityHigh")) Out.CapacityHigh = High->Uint();
  if (auto Namespaces = Nvme.Optional("namespaces")) {
    for (const JsonField &Entry : Namespaces->Elements()) {
      Entry.AllowOnly({"blockSize", "blockCount"});
      NvmeNamespaceDef Namespace;
      if (auto Size = Entry.Optional("blockSize")) {
        Namespace.BlockSize = static_cast<uint32_t>(Size->Uint(1U << 31));
        if (Namespace.BlockSize < 512 || (Namespace.BlockSize & (Namespace.BlockSize - 1)) != 0) {
          Size->Fail("a power of two of at least 512 bytes");
        }
      }
      Namespace.BlockCount = Entry.At("blockCount").Uint(UINT64_MAX / Namespace.BlockSize);
      Out.Namespaces.push_back(Namespace);
    }
  } else if (Out.Capacity) {
    Out.Namespaces.push_back({512, *Out.Capacity / 512});
  }
  if (auto Patches = Nvme.Optional("identifyPatches")) {
    Out.IdentifyPatches = ParseBytePatches(*Patches, kNvmeIdentifySize, "Identify Controller data");
  }
  if (auto Status = Nvme.Optional("commandStatus")) Out.CommandStatus = Status->Status();
  if (auto Response = Nvme.Optional("responseUs")) Out.ResponseUs = Response->Uint(60000000);
  if (auto PassThru = Nvme.Optional("passThru")) Out.PassThru = PassThru->Bool();
  if (auto Vendor = Nvme.Optional("vendorProtocol")) Out.VendorProtocol = Vendor->Bool();
  return Out;
}

VrocDriveDef ParseVroc(const JsonField &Vroc) {
  VrocDriveDef Out;
  if (Vroc.Raw().IsBool()) {
    Out.Present = Vroc.Bool();
    return Out;
  }
  Vroc.AllowOnly({"raidMember", "slot", "socket"});
  if (auto Raid = Vroc.Optional("raidMember")) Out.RaidMember = Raid->Bool();
  if (auto Slot = Vroc.Optional("slot")) Out.Slot = static_cast<uint32_t>(Slot->Uint(0xFFFFFFFF));
  if (auto Socket = Vroc.Optional("socket")) Out.Socket = static_cast<uint8_t>(Socket->Uint(0xFF));
  return Out;
}

std::shared_ptr<const VmdDomainDef> ParseVmd(const JsonField &Vmd, const PciFunctionDef &F) {
  Vmd.AllowOnly({"segment", "buses", "devices"});
  bool MemoryBar = F.Config.size() > 0x10 && (F.Config[0x10] & 1) == 0 && F.Bars.Size[0] != 0;
  if (!MemoryBar) Vmd.Fail("a function whose BAR0 is a memory BAR (the VMD's configuration aperture)");
  auto Out = std::make_shared<VmdDomainDef>();
  if (auto Segment = Vmd.Optional("segment")) Out->Segment = Segment->Uint();
  uint64_t Buses = std::clamp<uint64_t>(F.Bars.Size[0] / kMegabyte, 1, 256);
  Out->FirstBus = 0;
  Out->LastBus = static_cast<uint8_t>(Buses - 1);
  if (auto Range = Vmd.Optional("buses")) {
    auto Ends = Range->Elements();
    if (Ends.size() != 2) Range->Fail("[first bus, last bus]");
    Out->FirstBus = static_cast<uint8_t>(Ends[0].Uint(0xFF));
    Out->LastBus = static_cast<uint8_t>(Ends[1].Uint(0xFF));
    if (Out->LastBus < Out->FirstBus) Range->Fail("a last bus not below the first");
  }
  if (auto Devices = Vmd.Optional("devices")) Out->Functions = ParsePciDomain(*Devices, Out->FirstBus, Out->LastBus);
  return Out;
}

}  // namespace

void ParseDeviceExtras(const JsonField &Entry, PciFunctionDef *F) {
  if (auto Vpd = Entry.Optional("vpd")) {
    VpdDef Def = ParseVpd(*Vpd);
    Def.CapabilityOffset = AddVpdCapability(&F->Config, Def.CapabilityOffset);
    F->Extras.Vpd = std::move(Def);
  }
  if (auto Nvme = Entry.Optional("nvme")) F->Extras.Nvme = ParseNvme(*Nvme);
  if (auto Vroc = Entry.Optional("vroc")) F->Extras.Vroc = ParseVroc(*Vroc);
  if (auto Vmd = Entry.Optional("vmd")) F->Extras.Vmd = ParseVmd(*Vmd, *F);
}

}  // namespace qor::emu
