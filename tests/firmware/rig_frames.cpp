#include "tests/firmware/rig_frames.h"

#include <zlib.h>

#include <cstring>

#include "uefi/rig/rig_channel.h"

namespace qor::rig {

namespace {
uint32_t Little(const uint8_t *Bytes, size_t Size) {
  uint32_t Value = 0;
  for (size_t I = 0; I < Size; I++) Value |= static_cast<uint32_t>(Bytes[I]) << (8 * I);
  return Value;
}

uint32_t Crc(const uint8_t *Bytes, size_t Size) {
  return static_cast<uint32_t>(crc32(crc32(0L, Z_NULL, 0), Bytes, static_cast<uInt>(Size)));
}
}  // namespace

DecodedChannel DecodeFrames(const std::vector<uint8_t> &Stream) {
  DecodedChannel Out;
  const uint8_t *Magic = reinterpret_cast<const uint8_t *>(QOR_RIG_FRAME_MAGIC);
  size_t Position = 0;
  size_t Size = Stream.size();
  while (Position < Size) {
    if (Size - Position < 4 || std::memcmp(&Stream[Position], Magic, 4) != 0) {
      Out.SkippedBytes++;
      Position++;
      continue;
    }
    if (Size - Position < QOR_RIG_FRAME_HEADER_SIZE) {
      Out.Truncated = true;
      Out.SkippedBytes += Size - Position;
      break;
    }
    const uint8_t *Header = &Stream[Position];
    size_t NameLength = Little(Header + 6, 2);
    size_t DataLength = Little(Header + 8, 4);
    if (DataLength > QOR_RIG_FRAME_MAX_DATA) {
      Out.BadFrames++;
      Out.SkippedBytes++;
      Position++;
      continue;
    }
    size_t Total = QOR_RIG_FRAME_HEADER_SIZE + NameLength + DataLength + QOR_RIG_FRAME_TRAILER_SIZE;
    if (Size - Position < Total) {
      Out.Truncated = true;
      Out.SkippedBytes += Size - Position;
      break;
    }
    size_t Covered = Total - 4 - QOR_RIG_FRAME_TRAILER_SIZE;
    if (Crc(Header + 4, Covered) != Little(Header + Total - QOR_RIG_FRAME_TRAILER_SIZE, 4)) {
      // Resynchronise at the next magic: the length may be what is wrong.
      Out.BadFrames++;
      Out.SkippedBytes++;
      Position++;
      continue;
    }
    Frame F;
    F.Kind = static_cast<char>(Header[4]);
    const uint8_t *Name = Header + QOR_RIG_FRAME_HEADER_SIZE;
    F.Name.assign(reinterpret_cast<const char *>(Name), NameLength);
    F.Data.assign(Name + NameLength, Name + NameLength + DataLength);
    Out.Frames.push_back(std::move(F));
    Position += Total;
  }
  return Out;
}

std::vector<uint8_t> EncodeFrame(char Kind, const std::string &Name, const std::vector<uint8_t> &Data) {
  std::vector<uint8_t> Bytes(QOR_RIG_FRAME_MAGIC, QOR_RIG_FRAME_MAGIC + 4);
  auto Put = [&Bytes](uint64_t Value, size_t Size) {
    for (size_t I = 0; I < Size; I++) Bytes.push_back(static_cast<uint8_t>(Value >> (8 * I)));
  };
  Bytes.push_back(static_cast<uint8_t>(Kind));
  Bytes.push_back(0);
  Put(Name.size(), 2);
  Put(Data.size(), 4);
  Bytes.insert(Bytes.end(), Name.begin(), Name.end());
  Bytes.insert(Bytes.end(), Data.begin(), Data.end());
  Put(Crc(Bytes.data() + 4, Bytes.size() - 4), 4);
  return Bytes;
}

}  // namespace qor::rig
