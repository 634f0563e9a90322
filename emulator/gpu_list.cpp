#include "emulator/gpu_list.h"

#include <cstring>

namespace qor::emu {

GpuList ReadGpuList(const std::vector<uint8_t> &Block) {
  GpuList List;
  constexpr size_t kEnd = QOR_SYSINFO_GPU_TABLE_OFFSET + QOR_SYSINFO_GPU_MAX * sizeof(QOR_GPU_ENTRY);
  if (Block.size() < kEnd) return List;
  List.Count = Block[QOR_SYSINFO_GPU_COUNT_OFFSET];
  for (size_t I = 0; I < List.Count && I < QOR_SYSINFO_GPU_MAX; I++) {
    QOR_GPU_ENTRY Entry;
    std::memcpy(&Entry, Block.data() + QOR_SYSINFO_GPU_TABLE_OFFSET + I * sizeof(Entry), sizeof(Entry));
    List.Entries.push_back(Entry);
  }
  return List;
}

}  // namespace qor::emu
