#include "emulator/handle_index.h"

#include <algorithm>
#include <cstring>

#include "emulator/device_path_util.h"
#include "platform/guids.h"

namespace qor::emu {

namespace {

std::string KeyOf(const EFI_GUID &Guid) { return std::string(reinterpret_cast<const char *>(&Guid), sizeof(Guid)); }

bool IsDevicePath(const EFI_GUID &Guid) {
  return std::memcmp(&Guid, &gEfiDevicePathProtocolGuid, sizeof(EFI_GUID)) == 0;
}

const std::vector<const void *> kNone;

}  // namespace

void HandleIndex::AddHandle(const void *Handle) { Order_.emplace(Handle, Order_.size()); }

void HandleIndex::Insert(std::vector<const void *> *List, const void *Handle) {
  size_t Order = Order_.at(Handle);
  auto At = std::lower_bound(List->begin(), List->end(), Order,
                             [this](const void *Other, size_t Wanted) { return Order_.at(Other) < Wanted; });
  List->insert(At, Handle);
}

void HandleIndex::Erase(std::vector<const void *> *List, const void *Handle) {
  List->erase(std::remove(List->begin(), List->end(), Handle), List->end());
}

void HandleIndex::Installed(const void *Handle, const EFI_GUID &Guid, const void *Interface) {
  Insert(&ByProtocol_[KeyOf(Guid)], Handle);
  if (!IsDevicePath(Guid) || Interface == nullptr) return;
  long Length = DevicePathPrefixBytes(static_cast<const EFI_DEVICE_PATH_PROTOCOL *>(Interface));
  if (Length < 0) return;  // malformed: LocateDevicePath never matches it
  std::string Key(static_cast<const char *>(Interface), static_cast<size_t>(Length));
  Insert(&ByPath_[Key], Handle);
  PathOf_[Handle] = std::move(Key);
  PathLengths_[Length]++;
}

void HandleIndex::Uninstalled(const void *Handle, const EFI_GUID &Guid, const void *Interface) {
  auto Protocol = ByProtocol_.find(KeyOf(Guid));
  if (Protocol != ByProtocol_.end()) Erase(&Protocol->second, Handle);
  auto Path = PathOf_.find(Handle);
  if (!IsDevicePath(Guid) || Interface == nullptr || Path == PathOf_.end()) return;
  long Length = static_cast<long>(Path->second.size());
  auto Entry = ByPath_.find(Path->second);
  if (Entry != ByPath_.end()) {
    Erase(&Entry->second, Handle);
    if (Entry->second.empty()) ByPath_.erase(Entry);
  }
  if (--PathLengths_[Length] == 0) PathLengths_.erase(Length);
  PathOf_.erase(Path);
}

const std::vector<const void *> &HandleIndex::WithProtocol(const EFI_GUID &Guid) const {
  auto It = ByProtocol_.find(KeyOf(Guid));
  return It == ByProtocol_.end() ? kNone : It->second;
}

const std::vector<const void *> *HandleIndex::WithDevicePath(const uint8_t *Bytes, long Length) const {
  auto It = ByPath_.find(std::string(reinterpret_cast<const char *>(Bytes), static_cast<size_t>(Length)));
  return It == ByPath_.end() ? nullptr : &It->second;
}

}  // namespace qor::emu
