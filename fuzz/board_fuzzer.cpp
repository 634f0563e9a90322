// Fuzzes board descriptions: every input is laid over the built-in board;
// a board the emulator accepts is booted. Board validation must reject bad
// input with a BoardError, neither the emulator nor the driver may crash on
// what it accepts, and whatever the driver sends must be well formed.
// Seed it with the boards folder (boards/default.json, boards/examples).
//
// The driver image stays loaded for the whole run, its globals reset before
// every boot, so the coverage of the driver's own code guides the fuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/driver_image.h"
#include "fuzz/sent_document_check.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  qor::emu::DriverImage::KeepResident(true);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *Data, size_t Size) {
  std::string Text(reinterpret_cast<const char *>(Data), Size);
  qor::emu::Board Board;
  try {
    Board = qor::emu::ParseBoard(Text);
  } catch (const qor::emu::BoardError &) {
    return -1;  // refused boards do not enter the corpus
  }
  // Boards that ask for enormous platform data would only measure the host.
  for (const auto &Variable : Board.Variables) {
    if (Variable.Data.size() > (1u << 20)) return -1;
  }
  qor::emu::BootResult Result;
  try {
    Result = qor::emu::RunBoot(Board);
  } catch (const qor::emu::BoardError &) {
    return -1;  // some members are checked only when the platform builds its tables
  }
  std::string Fault = qor::fuzz::CheckSentDocuments(Result);
  if (!Fault.empty()) {
    std::fprintf(stderr, "qor_board_fuzzer: %s\n", Fault.c_str());
    std::abort();
  }
  return 0;
}
