// The memory of a generated board: DIMMs (SMBIOS memory devices, the DIMM
// map and memory map HOBs, training results) and the UEFI memory map.
//
// DIMMs go in one per channel first, socket by socket, then the second slot
// of each channel. Every slot of a socket is listed in SMBIOS and present in
// the DIMM map; the memory map HOB marks the installed ones, so the driver
// lists exactly the installed DIMMs. Each is a 32 GiB RDIMM.
//
// The memory map: the usual ranges below 4 GiB (legacy, TSEG, the MMCFG and
// platform MMIO windows) and DRAM split into as many ranges as asked for,
// below 2 GiB and above 4 GiB, of the memory types 0 to 14 in turn (so each
// is listed by the driver).
#ifndef QOR_TOOLS_GENERATED_MEMORY_H_
#define QOR_TOOLS_GENERATED_MEMORY_H_

#include <rapidjson/document.h>

#include <cstdint>

#include "tools/board_text.h"

namespace qor::tool {

// The bytes of DRAM of Dimms installed DIMMs (one DIMM's worth without any).
uint64_t DramBytes(uint32_t Dimms);

// "hobs.dimmMap", "hobs.memoryMap" (into Hobs) and "smbios.memoryDevices".
void AddDimms(uint32_t Sockets, uint32_t Dimms, JsonAllocator &Allocator, JsonObject *Hobs, JsonObject *Smbios);

// "hobs.mrcData.socketResults": every installed DIMM trained.
rapidjson::Value DimmTrainingResults(uint32_t Sockets, uint32_t Dimms, JsonAllocator &Allocator);

// "memoryMap.descriptors": exactly Count of them.
rapidjson::Value MemoryDescriptors(uint32_t Count, uint64_t DramBytes, JsonAllocator &Allocator);

}  // namespace qor::tool

#endif  // QOR_TOOLS_GENERATED_MEMORY_H_
