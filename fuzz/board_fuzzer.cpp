// Fuzzes board descriptions: every input is laid over the built-in board;
// a board the emulator accepts is booted. Board validation must reject bad
// input with a BoardError, and neither the emulator nor the driver may crash
// on what it accepts. Seed it with boards/default.json and boards/examples.
#include <cstddef>
#include <cstdint>
#include <string>

#include "emulator/board.h"
#include "emulator/boot.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *Data, size_t Size) {
  std::string Text(reinterpret_cast<const char *>(Data), Size);
  qor::emu::Board Board;
  try {
    Board = qor::emu::ParseBoard(Text);
  } catch (const qor::emu::BoardError &) {
    return 0;
  }
  // Boards that ask for enormous platform data would only measure the host.
  for (const auto &Variable : Board.Variables) {
    if (Variable.Data.size() > (1u << 20)) return 0;
  }
  try {
    qor::emu::RunBoot(Board);
  } catch (const qor::emu::BoardError &) {
    // Some members are checked only when the platform builds its tables.
  }
  return 0;
}
