// The processor's time-stamp counter. Emulated time passes only while the
// driver reads the counter: each read advances it by a fixed number of
// ticks, so a wait that spins on it ends after a known number of reads, and
// devices that answer after some microseconds (a VPD read, an NVMe command)
// see the time the driver actually waited.
#ifndef QOR_EMULATOR_TIME_STAMP_COUNTER_H_
#define QOR_EMULATOR_TIME_STAMP_COUNTER_H_

#include <cstdint>

namespace qor::emu {

class TimeStampCounter {
 public:
  // TicksPerMicrosecond: the counter's rate (the maximum non-turbo ratio
  // times 100); TicksPerRead: how far one read moves it.
  TimeStampCounter(uint64_t TicksPerMicrosecond, uint64_t TicksPerRead)
      : TicksPerMicrosecond_(TicksPerMicrosecond == 0 ? 1 : TicksPerMicrosecond), TicksPerRead_(TicksPerRead) {}

  // What the driver's read returns; time moves on.
  uint64_t Read() {
    Ticks_ += TicksPerRead_;
    Reads_++;
    return Ticks_;
  }
  // The current time without moving it (what a device looks at).
  uint64_t Now() const { return Ticks_; }
  // Moves time on by a device's own work (a command that takes a while).
  void Advance(uint64_t Ticks) { Ticks_ += Ticks; }
  uint64_t TicksFor(uint64_t Microseconds) const { return Microseconds * TicksPerMicrosecond_; }
  uint64_t Reads() const { return Reads_; }

 private:
  uint64_t TicksPerMicrosecond_;
  uint64_t TicksPerRead_;
  uint64_t Ticks_ = 0;
  uint64_t Reads_ = 0;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_TIME_STAMP_COUNTER_H_
