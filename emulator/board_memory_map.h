// The board's "memoryMap" member: the descriptors GetMemoryMap serves
// (docs/board-memory-map.md).
#ifndef QOR_EMULATOR_BOARD_MEMORY_MAP_H_
#define QOR_EMULATOR_BOARD_MEMORY_MAP_H_

namespace qor::emu {

class JsonField;
struct Board;

void ParseMemoryMap(const JsonField &Map, Board *Out);

}  // namespace qor::emu

#endif  // QOR_EMULATOR_BOARD_MEMORY_MAP_H_
