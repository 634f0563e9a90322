// Protocol-notify events of the emulated firmware behave as real firmware's:
// a registration sees only later installations, the events of one protocol
// run in registration order at TPL_CALLBACK, a closed event is gone.
#include <gtest/gtest.h>

#include <vector>

#include "emulator/firmware.h"

namespace {

const EFI_GUID kWatched = {0x0B1F2E3D, 0x4C5B, 0x6A79, {0x88, 0x97, 0xA6, 0xB5, 0xC4, 0xD3, 0xE2, 0xF1}};
const EFI_GUID kOther = {0x1C2D3E4F, 0x5A6B, 0x7C8D, {0x9E, 0xAF, 0xB0, 0xC1, 0xD2, 0xE3, 0xF4, 0x05}};

struct Notification {
  UINTN Tag;
  EFI_TPL Tpl;
};
std::vector<Notification> gNotified;

VOID EFIAPI Record(EFI_EVENT, VOID *Context) {
  gNotified.push_back({reinterpret_cast<UINTN>(Context), qor::emu::Firmware::Current()->CurrentTpl()});
}

class ProtocolNotify : public ::testing::Test {
 protected:
  void SetUp() override { gNotified.clear(); }

  EFI_EVENT Listen(const EFI_GUID &Guid, UINTN Tag) {
    EFI_EVENT Event = nullptr;
    void *Registration = nullptr;
    EXPECT_EQ(Fw.CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, Record, reinterpret_cast<void *>(Tag), &Event),
              EFI_SUCCESS);
    EXPECT_EQ(Fw.RegisterProtocolNotify(&Guid, Event, &Registration), EFI_SUCCESS);
    return Event;
  }
  void Install(const EFI_GUID &Guid) {
    EFI_HANDLE Handle = nullptr;
    ASSERT_EQ(Fw.InstallProtocol(&Handle, Guid, &Interface), EFI_SUCCESS);
  }
  std::vector<UINTN> Tags() const {
    std::vector<UINTN> Out;
    for (const auto &Entry : gNotified) Out.push_back(Entry.Tag);
    return Out;
  }

  qor::emu::Firmware Fw;
  int Interface = 0;
};

}  // namespace

TEST_F(ProtocolNotify, FiresOnlyForInstallationsAfterTheRegistration) {
  Install(kWatched);
  Listen(kWatched, 1);
  EXPECT_TRUE(gNotified.empty());
  Install(kWatched);
  EXPECT_EQ(Tags(), std::vector<UINTN>{1});
}

TEST_F(ProtocolNotify, RunsTheEventsOfOneProtocolInRegistrationOrder) {
  Listen(kWatched, 3);
  Listen(kOther, 9);
  Listen(kWatched, 1);
  Listen(kWatched, 2);
  Install(kWatched);
  EXPECT_EQ(Tags(), (std::vector<UINTN>{3, 1, 2}));
}

TEST_F(ProtocolNotify, RunsNotifyFunctionsAtTplCallbackAndReturnsToTheCallersTpl) {
  Listen(kWatched, 1);
  Install(kWatched);
  ASSERT_EQ(gNotified.size(), 1u);
  EXPECT_EQ(gNotified[0].Tpl, static_cast<EFI_TPL>(TPL_CALLBACK));
  EXPECT_EQ(Fw.CurrentTpl(), static_cast<EFI_TPL>(TPL_APPLICATION));
}

TEST_F(ProtocolNotify, WaitsWhileTheCallerIsAtOrAboveTplCallback) {
  Listen(kWatched, 1);
  EFI_TPL Old = Fw.RaiseTpl(TPL_CALLBACK);
  Install(kWatched);
  EXPECT_TRUE(gNotified.empty());
  Fw.RestoreTpl(Old);
  EXPECT_EQ(Tags(), std::vector<UINTN>{1});
}

TEST_F(ProtocolNotify, AClosedEventNoLongerFires) {
  EFI_EVENT Closed = Listen(kWatched, 1);
  Listen(kWatched, 2);
  EXPECT_EQ(Fw.CloseEvent(Closed), EFI_SUCCESS);
  Install(kWatched);
  Install(kWatched);
  EXPECT_EQ(Tags(), (std::vector<UINTN>{2, 2}));
}
