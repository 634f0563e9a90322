// The emulated firmware's protocol database: handles and their interfaces,
// installation with notify events, HandleProtocol, LocateHandle(Buffer),
// LocateProtocol, LocateDevicePath.
#include <algorithm>
#include <cstring>

#include "emulator/device_path_util.h"
#include "emulator/firmware.h"
#include "platform/guids.h"

namespace qor::emu {

namespace {
bool SameGuid(const EFI_GUID &A, const EFI_GUID &B) { return std::memcmp(&A, &B, sizeof(EFI_GUID)) == 0; }
}  // namespace

// ---------------------------------------------------------------- protocol database

Firmware::HandleRecord *Firmware::NewHandle() {
  Handles_.push_back(std::make_unique<HandleRecord>());
  Index_.AddHandle(Handles_.back().get());
  return Handles_.back().get();
}

Firmware::HandleRecord *Firmware::FindHandle(EFI_HANDLE Handle) {
  return Index_.HasHandle(Handle) ? static_cast<HandleRecord *>(Handle) : nullptr;
}

// A registration key is only trusted while its registration is live.
Firmware::NotifyRecord *Firmware::FindNotify(void *Registration) {
  for (auto &Record : Notifies_) {
    if (Record.get() == Registration) return Record.get();
  }
  return nullptr;
}

std::vector<Firmware::HandleRecord *> Firmware::HandlesWith(const EFI_GUID &Guid) {
  std::vector<HandleRecord *> Out;
  for (const void *Handle : Index_.WithProtocol(Guid)) Out.push_back(static_cast<HandleRecord *>(const_cast<void *>(Handle)));
  return Out;
}

// Signals, in registration order, every notify event registered for Guid.
void Firmware::NotifyInstalled(HandleRecord *Handle, const EFI_GUID &Guid) {
  for (auto &Notify : Notifies_) {
    if (!SameGuid(Notify->Guid, Guid)) continue;
    Notify->Pending.push_back(Handle);
    Notify->Event->Signaled = true;
    QueueEvent(Notify->Event);
  }
}

EFI_STATUS Firmware::InstallProtocol(EFI_HANDLE *Handle, const EFI_GUID &Guid, void *Interface) {
  HandleRecord *Record = nullptr;
  if (*Handle == nullptr) {
    Record = NewHandle();
  } else {
    Record = FindHandle(*Handle);
    if (Record == nullptr) return EFI_INVALID_PARAMETER;
    for (auto &Entry : Record->Interfaces) {
      if (SameGuid(Entry.Guid, Guid)) return EFI_INVALID_PARAMETER;  // already on this handle
    }
  }
  EFI_TPL Old = RaiseTpl(TPL_NOTIFY);
  Record->Interfaces.push_back({Guid, Interface});
  Index_.Installed(Record, Guid, Interface);
  *Handle = Record;
  NotifyInstalled(Record, Guid);
  RestoreTpl(Old);
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::ReinstallProtocol(EFI_HANDLE Handle, const EFI_GUID &Guid, void *OldInterface,
                                       void *NewInterface) {
  HandleRecord *Record = FindHandle(Handle);
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  for (auto &Entry : Record->Interfaces) {
    if (SameGuid(Entry.Guid, Guid) && Entry.Interface == OldInterface) {
      EFI_TPL Old = RaiseTpl(TPL_NOTIFY);
      Index_.Uninstalled(Record, Guid, OldInterface);
      Entry.Interface = NewInterface;
      Index_.Installed(Record, Guid, NewInterface);
      NotifyInstalled(Record, Guid);
      RestoreTpl(Old);
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

EFI_STATUS Firmware::UninstallProtocol(EFI_HANDLE Handle, const EFI_GUID &Guid, void *Interface) {
  HandleRecord *Record = FindHandle(Handle);
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  for (size_t I = 0; I < Record->Interfaces.size(); I++) {
    if (SameGuid(Record->Interfaces[I].Guid, Guid) && Record->Interfaces[I].Interface == Interface) {
      Record->Interfaces.erase(Record->Interfaces.begin() + static_cast<std::ptrdiff_t>(I));
      Index_.Uninstalled(Record, Guid, Interface);
      for (auto &Notify : Notifies_) {
        Notify->Pending.erase(std::remove(Notify->Pending.begin(), Notify->Pending.end(), Record),
                              Notify->Pending.end());
      }
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

EFI_STATUS Firmware::HandleProtocol(EFI_HANDLE Handle, const EFI_GUID *Protocol, void **Interface) {
  Count("HandleProtocol");
  if (Protocol == nullptr || Interface == nullptr) return EFI_INVALID_PARAMETER;
  *Interface = nullptr;
  HandleRecord *Record = FindHandle(Handle);
  if (Record == nullptr) return EFI_INVALID_PARAMETER;
  for (auto &Entry : Record->Interfaces) {
    if (SameGuid(Entry.Guid, *Protocol)) {
      *Interface = Entry.Interface;
      return EFI_SUCCESS;
    }
  }
  return EFI_UNSUPPORTED;
}

EFI_STATUS Firmware::LocateHandle(EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID *Protocol, void *SearchKey,
                                  UINTN *BufferSize, EFI_HANDLE *Buffer) {
  Count("LocateHandle");
  if (BufferSize == nullptr) return EFI_INVALID_PARAMETER;
  std::vector<HandleRecord *> Found;
  switch (SearchType) {
    case AllHandles:
      for (auto &Record : Handles_) {
        if (!Record->Interfaces.empty()) Found.push_back(Record.get());
      }
      break;
    case ByProtocol:
      if (Protocol == nullptr) return EFI_INVALID_PARAMETER;
      Found = HandlesWith(*Protocol);
      break;
    case ByRegisterNotify: {
      NotifyRecord *Notify = FindNotify(SearchKey);
      if (Notify == nullptr) return EFI_INVALID_PARAMETER;
      // One handle per call, as firmware returns them.
      if (!Notify->Pending.empty()) {
        if (*BufferSize < sizeof(EFI_HANDLE)) {
          *BufferSize = sizeof(EFI_HANDLE);
          return EFI_BUFFER_TOO_SMALL;
        }
        Found.push_back(Notify->Pending.front());
        Notify->Pending.erase(Notify->Pending.begin());
      }
      break;
    }
    default:
      return EFI_INVALID_PARAMETER;
  }
  if (Found.empty()) return EFI_NOT_FOUND;
  UINTN Needed = Found.size() * sizeof(EFI_HANDLE);
  if (*BufferSize < Needed) {
    *BufferSize = Needed;
    return EFI_BUFFER_TOO_SMALL;
  }
  if (Buffer == nullptr) return EFI_INVALID_PARAMETER;
  for (size_t I = 0; I < Found.size(); I++) Buffer[I] = Found[I];
  *BufferSize = Needed;
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID *Protocol,
                                        void *SearchKey, UINTN *NoHandles, EFI_HANDLE **Buffer) {
  Count("LocateHandleBuffer");
  if (NoHandles == nullptr || Buffer == nullptr) return EFI_INVALID_PARAMETER;
  *NoHandles = 0;
  *Buffer = nullptr;
  UINTN Size = 0;
  EFI_STATUS Status = LocateHandle(SearchType, Protocol, SearchKey, &Size, nullptr);
  if (Status != EFI_BUFFER_TOO_SMALL) return Status == EFI_SUCCESS ? EFI_NOT_FOUND : Status;
  void *Memory = nullptr;
  Status = AllocatePool(EfiBootServicesData, Size, &Memory);
  if (EFI_ERROR(Status)) return EFI_OUT_OF_RESOURCES;
  Status = LocateHandle(SearchType, Protocol, SearchKey, &Size, static_cast<EFI_HANDLE *>(Memory));
  if (EFI_ERROR(Status)) {
    FreePool(Memory);
    return Status;
  }
  *Buffer = static_cast<EFI_HANDLE *>(Memory);
  *NoHandles = Size / sizeof(EFI_HANDLE);
  return EFI_SUCCESS;
}

EFI_STATUS Firmware::LocateProtocol(const EFI_GUID *Protocol, void *Registration, void **Interface) {
  Count("LocateProtocol");
  if (Protocol == nullptr || Interface == nullptr) return EFI_INVALID_PARAMETER;
  *Interface = nullptr;
  if (Registration != nullptr) {
    NotifyRecord *Notify = FindNotify(Registration);
    if (Notify == nullptr || Notify->Pending.empty()) return EFI_NOT_FOUND;
    HandleRecord *Handle = Notify->Pending.front();
    Notify->Pending.erase(Notify->Pending.begin());
    for (auto &Entry : Handle->Interfaces) {
      if (SameGuid(Entry.Guid, *Protocol)) {
        *Interface = Entry.Interface;
        return EFI_SUCCESS;
      }
    }
    return EFI_NOT_FOUND;
  }
  const std::vector<const void *> &With = Index_.WithProtocol(*Protocol);
  if (With.empty()) return EFI_NOT_FOUND;
  for (auto &Entry : static_cast<const HandleRecord *>(With.front())->Interfaces) {
    if (SameGuid(Entry.Guid, *Protocol)) {
      *Interface = Entry.Interface;
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

// The handle carrying Protocol whose device path is the longest prefix of
// the first instance of *DevicePath; *DevicePath then points past it.
EFI_STATUS Firmware::LocateDevicePath(const EFI_GUID *Protocol, EFI_DEVICE_PATH_PROTOCOL **DevicePath,
                                      EFI_HANDLE *Device) {
  Count("LocateDevicePath");
  if (Protocol == nullptr || DevicePath == nullptr || *DevicePath == nullptr) return EFI_INVALID_PARAMETER;
  long SourceSize = DevicePathFirstInstanceBytes(*DevicePath);
  if (SourceSize < 0) return EFI_NOT_FOUND;
  // Installed paths by length, longest first: the first length whose path
  // prefixes the source and whose handles include one with Protocol gives
  // the match. A second handle with an equally long match is a firmware
  // error; the first one created wins.
  const auto *Source = reinterpret_cast<const uint8_t *>(*DevicePath);
  HandleRecord *Best = nullptr;
  long BestSize = -1;
  for (const auto &[Size, Paths] : Index_.DevicePathLengths()) {
    if (Size > SourceSize) continue;
    const std::vector<const void *> *Candidates = Index_.WithDevicePath(Source, Size);
    for (size_t I = 0; Candidates != nullptr && I < Candidates->size() && Best == nullptr; I++) {
      auto *Handle = static_cast<HandleRecord *>(const_cast<void *>((*Candidates)[I]));
      for (auto &Entry : Handle->Interfaces) {
        if (SameGuid(Entry.Guid, *Protocol)) Best = Handle;
      }
    }
    if (Best != nullptr) {
      BestSize = Size;
      break;
    }
  }
  if (Best == nullptr) return EFI_NOT_FOUND;
  if (Device == nullptr) return EFI_INVALID_PARAMETER;
  *Device = Best;
  *DevicePath = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL *>(reinterpret_cast<uint8_t *>(*DevicePath) + BestSize);
  return EFI_SUCCESS;
}

}  // namespace qor::emu
