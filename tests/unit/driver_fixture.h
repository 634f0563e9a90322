// Runs driver functions directly (from the static driver library) on the
// emulator's tables: a fresh firmware and platform per test, with the
// library constructors bound to them. Driver module state beyond the
// library caches persists between tests in this binary, so behaviour that
// depends on it is tested through full boots (tests/integration).
#ifndef QOR_TESTS_UNIT_DRIVER_FIXTURE_H_
#define QOR_TESTS_UNIT_DRIVER_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/upload_section.h"
#include "emulator/board.h"
#include "emulator/firmware.h"
#include "emulator/platform.h"
#include "platform/uefi_lib.h"

class DriverOnEmulator : public ::testing::Test {
 protected:
  // Builds the environment from Board (the built-in board by default).
  void Start(const qor::emu::Board &Board = qor::emu::BuiltInBoard()) {
    Plat.reset();
    Fw = std::make_unique<qor::emu::Firmware>();
    Plat = std::make_unique<qor::emu::Platform>(*Fw, Board);
    Plat->Install();
    QorLibraryConstructors(Fw->ImageHandle(), Fw->SystemTable());
  }
  // A board laid over the built-in one, from JSON text.
  static qor::emu::Board BoardFrom(const std::string &Json) { return qor::emu::ParseBoard(Json); }

  // A section record with a zero-filled buffer of MaxSize bytes, not in the registry.
  struct LocalSection {
    explicit LocalSection(const char *Name, uint64_t MaxSize, uint32_t Index)
        : Storage(new char[MaxSize]()) {
      Record = UPLOAD_SECTION{Name, MaxSize, nullptr, 0, Storage.get(), 0, Index};
    }
    std::string Text() const { return std::string(Record.Buffer); }
    std::unique_ptr<char[]> Storage;
    UPLOAD_SECTION Record;
  };

  std::string Log() const { return Plat->DebugLog(); }

  void TearDown() override {
    Plat.reset();
    Fw.reset();
  }

  std::unique_ptr<qor::emu::Firmware> Fw;
  std::unique_ptr<qor::emu::Platform> Plat;
};

#endif  // QOR_TESTS_UNIT_DRIVER_FIXTURE_H_
