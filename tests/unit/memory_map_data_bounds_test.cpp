// The platform's memory map data describes four sockets, while a DIMM map
// entry can name sockets up to 7. The data block here ends at an
// inaccessible page, so any read past it ends the test with a fault.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "driver_fixture.h"
#include "emulator/smbios_table.h"
#include "platform/memory_map_data.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

// QOR_MEMMAP_DATA_SIZE bytes, followed by 64 KiB that cannot be read.
class GuardedMemoryMapData {
 public:
  GuardedMemoryMapData() {
    const size_t Page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    Data_ = (QOR_MEMMAP_DATA_SIZE + Page - 1) / Page * Page;
    Mapping_ = static_cast<uint8_t *>(
        mmap(nullptr, Data_ + kGuard, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (Mapping_ == MAP_FAILED) Mapping_ = nullptr;
    if (Mapping_ != nullptr) mprotect(Mapping_ + Data_, kGuard, PROT_NONE);
  }
  ~GuardedMemoryMapData() {
    if (Mapping_ != nullptr) munmap(Mapping_, Data_ + kGuard);
  }
  uint8_t *Block() const { return Mapping_ == nullptr ? nullptr : Mapping_ + Data_ - QOR_MEMMAP_DATA_SIZE; }

 private:
  static constexpr size_t kGuard = 0x10000;
  uint8_t *Mapping_ = nullptr;
  size_t Data_ = 0;
};

class MemoryMapDataBounds : public DriverOnEmulator {};

TEST_F(MemoryMapDataBounds, ASlotOnSocket4OrAboveIsNotEnabledAndItsDataIsNotRead) {
  Start();
  GuardedMemoryMapData Data;
  ASSERT_NE(Data.Block(), nullptr);
  std::memset(Data.Block(), 1, QOR_MEMMAP_DATA_SIZE);  // every socket enabled, every DIMM present
  // One present slot: socket 7, channel 7, DIMM 1 (slot position 127).
  QOR_DIMM_MAP_ENTRY Map[2] = {};
  Map[0].Location = 7 | 7 << 3 | 1 << 6;
  Map[0].SlotIndex = 127;
  Map[0].Slot = QOR_DIMM_MAP_SLOT_PRESENT | 16;
  Map[1].SlotIndex = QOR_DIMM_MAP_END_SLOT_INDEX;
  std::vector<uint8_t> Record = qor::emu::SmbiosRecordBuilder(17, 0x28).Build(0x20);
  DIMM_INFO_ENTRY Entry = {};
  EXPECT_EQ(QorIsDimmAvaliable(Data.Block(), Map, reinterpret_cast<const EFI_SMBIOS_TABLE_HEADER *>(Record.data()),
                               &Entry),
            EFI_UNSUPPORTED);
  EXPECT_EQ(Log(), "QorIsDimmAvaliable: 7 7 1 1 Socket not enable\n");
}

}  // namespace
