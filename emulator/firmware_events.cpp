// The emulated firmware's TPL and events: raising and restoring the TPL,
// event creation, signalling and dispatch, protocol-notify registrations.
#include <algorithm>

#include "emulator/firmware.h"

namespace qor::emu {

// ---------------------------------------------------------------- TPL and events

EFI_TPL Firmware::RaiseTpl(EFI_TPL NewTpl) {
  Count("RaiseTPL");
  EFI_TPL Old = Tpl_;
  if (NewTpl > Tpl_) Tpl_ = NewTpl;
  return Old;
}

void Firmware::RestoreTpl(EFI_TPL OldTpl) {
  Count("RestoreTPL");
  if (OldTpl > Tpl_) return;  // restoring upwards is a caller error; ignore it
  DispatchAbove(OldTpl);
  Tpl_ = OldTpl;
}

Firmware::EventRecord *Firmware::FindEvent(EFI_EVENT Event) {
  for (auto &Record : Events_) {
    if (Record.get() == Event && !Record->Closed) return Record.get();
  }
  return nullptr;
}

void Firmware::QueueEvent(EventRecord *Event) {
  if (Event->Queued) return;
  Event->Queued = true;
  EventQueue_.push_back(Event);
}

// Runs queued notify functions whose TPL is above Tpl, highest TPL first and
// in signal order within one TPL, each at its own TPL.
void Firmware::DispatchAbove(EFI_TPL Tpl) {
  for (;;) {
    size_t Best = EventQueue_.size();
    for (size_t I = 0; I < EventQueue_.size(); I++) {
      if (EventQueue_[I]->NotifyTpl > Tpl && (Best == EventQueue_.size() ||
                                              EventQueue_[I]->NotifyTpl > EventQueue_[Best]->NotifyTpl)) {
        Best = I;
      }
    }
    if (Best == EventQueue_.size()) return;
    EventRecord *Event = EventQueue_[Best];
    EventQueue_.erase(EventQueue_.begin() + static_cast<std::ptrdiff_t>(Best));
    Event->Queued = false;
    if (Event->Closed || Event->Notify == nullptr) continue;
    EFI_TPL Saved = Tpl_;
    Tpl_ = Event->NotifyTpl;
    Event->Notify(Event, Event->Context);
    Tpl_ = Saved;
  }
}

EFI_STATUS Firmware::CreateEvent(UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY Notify, void *Context,
                                 EFI_EVENT *Event) {
  Count("CreateEvent");
  if (Event == nullptr) return EFI_INVALID_PARAMETER;
  if ((Type & (EVT_NOTIFY_SIGNAL | EVT_NOTIFY_WAIT)) != 0) {
    if (Notify == nullptr || NotifyTpl <= TPL_APPLICATION || NotifyTpl >= TPL_HIGH_LEVEL) {
      return EFI_INVALID_PARAMETER;
    }
  }
  auto Record = std::make_unique<EventRecord>();
  Record->Type = Type;
  Record->NotifyTpl = NotifyTpl;
  Record->Notify = Notify;
  Record->Context = Context;
  *Event = Record.get();
  Events_.push_back(std::move(Record));
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::SignalEvent(EFI_EVENT Event) {
  Count("SignalEvent");
  EventRecord *Record = FindEvent(Event);
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  Record->Signaled = true;
  if ((Record->Type & EVT_NOTIFY_SIGNAL) != 0) {
    QueueEvent(Record);
    EFI_TPL Old = Tpl_;
    DispatchAbove(Old);
  }
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::CloseEvent(EFI_EVENT Event) {
  Count("CloseEvent");
  EventRecord *Record = FindEvent(Event);
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  Record->Closed = true;
  EventQueue_.erase(std::remove(EventQueue_.begin(), EventQueue_.end(), Record), EventQueue_.end());
  Notifies_.erase(std::remove_if(Notifies_.begin(), Notifies_.end(),
                                 [Record](const std::unique_ptr<NotifyRecord> &N) { return N->Event == Record; }),
                  Notifies_.end());
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::CheckEvent(EFI_EVENT Event) {
  Count("CheckEvent");
  EventRecord *Record = FindEvent(Event);
  if (Record == nullptr || (Record->Type & EVT_NOTIFY_SIGNAL) != 0) return EFI_INVALID_PARAMETER;
  if (Record->Signaled) {
    Record->Signaled = false;
    return EFI_SUCCESS;
  }
  return EFI_NOT_READY;
}

EFI_STATUS Firmware::RegisterProtocolNotify(const EFI_GUID *Protocol, EFI_EVENT Event, void **Registration) {
  Count("RegisterProtocolNotify");
  EventRecord *Record = FindEvent(Event);
  if (Protocol == nullptr || Record == nullptr || Registration == nullptr) return EFI_INVALID_PARAMETER;
  auto Notify = std::make_unique<NotifyRecord>();
  Notify->Guid = *Protocol;
  Notify->Event = Record;
  *Registration = Notify.get();
  Notifies_.push_back(std::move(Notify));
  return EFI_SUCCESS;
}

}  // namespace qor::emu
