// Parsing of the board's "memoryMap" member (docs/board-memory-map.md).
#include "emulator/board_memory_map.h"

#include <cctype>

#include "emulator/board.h"
#include "emulator/board_json.h"

namespace qor::emu {

namespace {

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

}  // namespace

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

}  // namespace qor::emu
