// Tests of the registry, the events and the upload called directly on the
// static driver library. Its registry and flags are module globals that
// outlive a test, so each test starts from the state the entry leaves with
// every buffer allocated (nothing filled, TotalBufferSize 0x5A6000) and the
// registry is restored afterwards. Section buffers are owned by the test.
#ifndef QOR_TESTS_UNIT_REGISTRY_FIXTURE_H_
#define QOR_TESTS_UNIT_REGISTRY_FIXTURE_H_

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "driver_fixture.h"
#include "tests/common/sent_document.h"

class RegistryOnEmulator : public DriverOnEmulator {
 protected:
  void SetUp() override {
    std::copy(std::begin(gQorUploadSections), std::end(gQorUploadSections), Saved);
    SavedTotal = TotalBufferSize;
    SavedUploaded = DataUploaded;
    for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
      Storage[I].assign(gQorUploadSections[I].MaxSize, 0);
      gQorUploadSections[I].Filled = FALSE;
      gQorUploadSections[I].Buffer = Storage[I].data();
      gQorUploadSections[I].Length = 0;
      gQorUploadSections[I].Index = I;
    }
    TotalBufferSize = 0x5A6000;
    DataUploaded = FALSE;
    Start();
  }
  void TearDown() override {
    std::copy(std::begin(Saved), std::end(Saved), gQorUploadSections);
    TotalBufferSize = SavedTotal;
    DataUploaded = SavedUploaded;
    DriverOnEmulator::TearDown();
  }

  // Writes Text into a section's buffer as its filler would (not marked filled).
  void SetText(UINT32 Index, const std::string &Text) {
    std::fill(Storage[Index].begin(), Storage[Index].end(), 0);
    std::memcpy(Storage[Index].data(), Text.data(), std::min(Text.size(), Storage[Index].size() - 1));
    gQorUploadSections[Index].Length = Text.size();
  }
  void MarkAllFilledExcept(UINT32 Index) {
    for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) gQorUploadSections[I].Filled = I != Index;
  }
  std::vector<std::string> LogLines() const { return qortest::Lines(Plat->DebugLines()); }
  std::vector<const qor::emu::Upload *> Documents() const {
    return qortest::UploadsNamed(Plat->Uploads(), "push_BiosBeforeBoot.json");
  }

  std::vector<char> Storage[QOR_SECTION_COUNT];

 private:
  UPLOAD_SECTION Saved[QOR_SECTION_COUNT];
  UINT64 SavedTotal = 0;
  BOOLEAN SavedUploaded = FALSE;
};

#endif  // QOR_TESTS_UNIT_REGISTRY_FIXTURE_H_
