// Full boots of the driver on boards laid over the built-in one.
#ifndef QOR_TESTS_INTEGRATION_BOOT_HELPERS_H_
#define QOR_TESTS_INTEGRATION_BOOT_HELPERS_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "tests/common/sent_document.h"

namespace qortest {

inline constexpr char kDocumentName[] = "push_BiosBeforeBoot.json";
inline constexpr char kFlashName[] = "push_FlashInfo.json";

// Boots the built-in board with Overlay laid over it.
inline qor::emu::BootResult Boot(const std::string &Overlay = "{}") {
  return qor::emu::RunBoot(qor::emu::ParseBoard(Overlay));
}

inline std::vector<std::string> LogOf(const qor::emu::BootResult &Result) { return Lines(Result.DebugLines); }

inline size_t CountOf(const qor::emu::BootResult &Result, const std::string &Line) {
  return CountOf(Result.DebugLines, Line);
}

// The level a line was logged at; 0 when it was not logged.
inline uint64_t LevelOf(const qor::emu::BootResult &Result, const std::string &Line) {
  for (const auto &Entry : Result.DebugLines) {
    if (Entry.Text == Line) return Entry.Level;
  }
  return 0;
}

// The inventory document of a boot that sent exactly one.
inline rapidjson::Document OnlyDocument(const qor::emu::BootResult &Result) {
  auto Sent = UploadsNamed(Result.Uploads, kDocumentName);
  EXPECT_EQ(Sent.size(), 1u) << "inventory documents sent";
  if (Sent.size() != 1) return rapidjson::Document();
  return Parse(Sent[0]->Bytes);
}

// The force-upload listing: section index -> "0"/"1"; empty without one.
inline std::vector<std::string> ForceListing(const qor::emu::BootResult &Result) {
  std::vector<std::string> Flags;
  for (size_t I = 0; I < kSectionOrder.size(); I++) {
    std::string Prefix = "[" + std::to_string(I) + "] [" + kSectionOrder[I] + "] [";
    for (const auto &Line : Result.DebugLines) {
      if (Line.Text.rfind(Prefix, 0) == 0) Flags.push_back(Line.Text.substr(Prefix.size(), 1));
    }
  }
  return Flags;
}

}  // namespace qortest

#endif  // QOR_TESTS_INTEGRATION_BOOT_HELPERS_H_
