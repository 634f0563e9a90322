#include "emulator/io_ports.h"

#include "platform/indexed_io_ports.h"

namespace qor::emu {

uint8_t IoPortSpace::ReadPlain(uint16_t Port) const {
  auto It = Plain_.find(Port);
  return It == Plain_.end() ? 0xFF : It->second;
}

uint8_t IoPortSpace::Read(uint16_t Port) {
  uint8_t Value;
  switch (Port) {
    case QOR_INDEXED_IO_INDEX_LOW_PORT:
      Value = static_cast<uint8_t>(Index_);
      break;
    case QOR_INDEXED_IO_INDEX_HIGH_PORT:
      Value = static_cast<uint8_t>(Index_ >> 8);
      break;
    case QOR_INDEXED_IO_DATA_PORT: {
      auto It = Indexed_.find(Index_);
      Value = It == Indexed_.end() ? ReadPlain(Port) : It->second;
      break;
    }
    default:
      Value = ReadPlain(Port);
  }
  Accesses_.push_back({Port, Value, false});
  return Value;
}

void IoPortSpace::Write(uint16_t Port, uint8_t Value) {
  if (Port == QOR_INDEXED_IO_INDEX_LOW_PORT) Index_ = static_cast<uint16_t>((Index_ & 0xFF00) | Value);
  if (Port == QOR_INDEXED_IO_INDEX_HIGH_PORT) Index_ = static_cast<uint16_t>((Index_ & 0x00FF) | (Value << 8));
  Accesses_.push_back({Port, Value, true});
}

}  // namespace qor::emu
