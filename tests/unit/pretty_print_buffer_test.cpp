// The buffer the upload hands the json protocol's PrettyPrint: four times
// the sum of the section buffers, so that indentation never runs out of room
// and no size is negotiated. Both the size passed and the pool memory behind
// it are checked.
#include <gtest/gtest.h>

#include <vector>

#include "platform/guids.h"
#include "platform/vendor_protocols.h"
#include "registry_fixture.h"

namespace {

struct PrettyPrintCall {
  UINTN OutputSize;
  uint64_t PoolBytesHeld;  // by the driver at the call
  bool OutputIsPool;
};

struct {
  QOR_JSON_PRETTY_PRINT Original = nullptr;
  qor::emu::Pool *Pool = nullptr;
  std::vector<PrettyPrintCall> Calls;
} gPretty;

EFI_STATUS EFIAPI RecordPrettyPrint(QOR_JSON_PROTOCOL *This, CONST CHAR8 *Input, UINTN OutputSize, CHAR8 *Output) {
  gPretty.Calls.push_back({OutputSize, gPretty.Pool->Counters().BytesHeld, gPretty.Pool->Owns(Output)});
  return gPretty.Original(This, Input, OutputSize, Output);
}

class PrettyPrintBuffer : public RegistryOnEmulator {
 protected:
  void SetUp() override {
    RegistryOnEmulator::SetUp();
    QOR_JSON_PROTOCOL *Json = nullptr;
    ASSERT_EQ(Fw->BootServices()->LocateProtocol(const_cast<EFI_GUID *>(&gQorJsonProtocolGuid), nullptr,
                                                 reinterpret_cast<VOID **>(&Json)),
              EFI_SUCCESS);
    gPretty.Original = Json->PrettyPrint;
    gPretty.Pool = &Fw->GetPool();
    gPretty.Calls.clear();
    Json->PrettyPrint = RecordPrettyPrint;
  }
};

TEST_F(PrettyPrintBuffer, IsFourTimesTheSectionBuffersAllocatedAtEntry) {
  // All fourteen allocated (0x5A6000 bytes), then only the first few.
  for (UINT64 Total : {0x5A6000ULL, 0x12000ULL}) {
    TotalBufferSize = Total;
    gPretty.Calls.clear();
    const uint64_t HeldBefore = Fw->GetPool().Counters().BytesHeld;
    ASSERT_EQ(QorUploadInfoData(), EFI_SUCCESS) << Total;
    ASSERT_EQ(gPretty.Calls.size(), 1u);
    EXPECT_EQ(gPretty.Calls[0].OutputSize, 4 * Total);
    EXPECT_TRUE(gPretty.Calls[0].OutputIsPool);
    // The assembly buffer (Total) and the pretty buffer are held at the call.
    EXPECT_EQ(gPretty.Calls[0].PoolBytesHeld - HeldBefore, Total + 4 * Total);
    EXPECT_EQ(Fw->GetPool().Counters().BytesHeld, HeldBefore) << "both freed after the send";
  }
  EXPECT_EQ(Documents().size(), 2u);
}

}  // namespace
