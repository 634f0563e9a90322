#include "emulator/pool.h"

#include <cstdlib>
#include <cstring>

namespace qor::emu {

Pool::~Pool() {
  for (auto &Entry : Live_) std::free(Entry.first);
}

void *Pool::Allocate(size_t Size) {
  Requests_++;
  if (FailOrdinals_.count(Requests_) != 0) {
    Counters_.FailedAllocations++;
    return nullptr;
  }
  // Pool contents are undefined on real firmware; fill with a pattern so a
  // caller that forgets to clear a buffer shows it.
  void *Buffer = std::malloc(Size == 0 ? 1 : Size);
  if (Buffer == nullptr) {
    Counters_.FailedAllocations++;
    return nullptr;
  }
  std::memset(Buffer, 0xAF, Size);
  Live_[Buffer] = Size;
  Counters_.Allocations++;
  Counters_.BytesAllocated += Size;
  Counters_.BytesHeld += Size;
  if (Counters_.BytesHeld > Counters_.PeakBytesHeld) Counters_.PeakBytesHeld = Counters_.BytesHeld;
  return Buffer;
}

bool Pool::Free(void *Buffer) {
  auto It = Live_.find(Buffer);
  if (It == Live_.end()) {
    Counters_.BadFrees++;
    return false;
  }
  Counters_.BytesHeld -= It->second;
  Counters_.Frees++;
  Live_.erase(It);
  std::free(Buffer);
  return true;
}

}  // namespace qor::emu
