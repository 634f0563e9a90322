// Host side of the rig's serial channel (uefi/rig/rig_channel.h): splits the
// bytes QEMU wrote for the second serial port into frames. Bytes outside
// frames (the firmware's console before the rig claims the port) are
// skipped; a frame whose CRC does not match is counted and skipped.
#ifndef QOR_TESTS_FIRMWARE_RIG_FRAMES_H_
#define QOR_TESTS_FIRMWARE_RIG_FRAMES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qor::rig {

struct Frame {
  char Kind = 0;
  std::string Name;
  std::vector<uint8_t> Data;
};

struct DecodedChannel {
  std::vector<Frame> Frames;
  size_t SkippedBytes = 0;  // bytes outside any good frame
  size_t BadFrames = 0;     // frames whose CRC or length was wrong
  bool Truncated = false;   // the stream ends inside a frame
};

DecodedChannel DecodeFrames(const std::vector<uint8_t> &Stream);

// Encodes one frame as the rig writes it (for tests).
std::vector<uint8_t> EncodeFrame(char Kind, const std::string &Name, const std::vector<uint8_t> &Data);

}  // namespace qor::rig

#endif  // QOR_TESTS_FIRMWARE_RIG_FRAMES_H_
