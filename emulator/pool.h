// Boot-services pool of the emulator: real host memory with full accounting
// and an injectable failure of the k-th allocation.
#ifndef QOR_EMULATOR_POOL_H_
#define QOR_EMULATOR_POOL_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <unordered_map>

namespace qor::emu {

struct PoolCounters {
  uint64_t Allocations = 0;      // successful AllocatePool calls
  uint64_t FailedAllocations = 0;
  uint64_t Frees = 0;
  uint64_t BadFrees = 0;          // FreePool of a pointer the pool never gave out
  uint64_t BytesAllocated = 0;    // sum over successful allocations
  uint64_t BytesHeld = 0;         // still allocated now
  uint64_t PeakBytesHeld = 0;
};

class Pool {
 public:
  Pool() = default;
  ~Pool();
  Pool(const Pool &) = delete;
  Pool &operator=(const Pool &) = delete;

  // Makes the k-th allocation (1-based, counting every request) fail.
  void FailAllocation(uint64_t Ordinal) { FailOrdinals_.insert(Ordinal); }
  // Nullptr when the request is to fail.
  void *Allocate(size_t Size);
  // False when the pointer is not a live allocation.
  bool Free(void *Buffer);
  bool Owns(const void *Buffer) const { return Live_.count(const_cast<void *>(Buffer)) != 0; }
  const PoolCounters &Counters() const { return Counters_; }
  uint64_t LiveAllocationCount() const { return Live_.size(); }

 private:
  std::set<uint64_t> FailOrdinals_;
  uint64_t Requests_ = 0;
  std::unordered_map<void *, size_t> Live_;
  PoolCounters Counters_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_POOL_H_
