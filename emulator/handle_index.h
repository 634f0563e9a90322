// The lookup tables of the protocol database, so that a machine of
// thousands of handles is searched in constant or logarithmic time rather
// than handle by handle on every call: which handles exist, which handles
// carry a protocol (in creation order, the order LocateHandle lists them),
// and which handles carry a device path, by the path's bytes before its End
// node. Installed device paths are read once, when installed: a path must
// not change while it is installed, as the UEFI specification requires of
// protocol interfaces.
#ifndef QOR_EMULATOR_HANDLE_INDEX_H_
#define QOR_EMULATOR_HANDLE_INDEX_H_

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/uefi_base.h"

namespace qor::emu {

class HandleIndex {
 public:
  // Handles are added in creation order and never removed.
  void AddHandle(const void *Handle);
  bool HasHandle(const void *Handle) const { return Order_.count(Handle) != 0; }

  void Installed(const void *Handle, const EFI_GUID &Guid, const void *Interface);
  void Uninstalled(const void *Handle, const EFI_GUID &Guid, const void *Interface);

  // The handles carrying Guid, in creation order.
  const std::vector<const void *> &WithProtocol(const EFI_GUID &Guid) const;

  // Lengths of the installed device paths (bytes before the End node),
  // longest first; and the handles whose path is exactly Bytes[0..Length),
  // in creation order (nullptr when none).
  const std::map<long, size_t, std::greater<long>> &DevicePathLengths() const { return PathLengths_; }
  const std::vector<const void *> *WithDevicePath(const uint8_t *Bytes, long Length) const;

 private:
  void Insert(std::vector<const void *> *List, const void *Handle);
  void Erase(std::vector<const void *> *List, const void *Handle);

  std::unordered_map<const void *, size_t> Order_;
  std::unordered_map<std::string, std::vector<const void *>> ByProtocol_;  // by the GUID's 16 bytes
  std::unordered_map<std::string, std::vector<const void *>> ByPath_;
  std::unordered_map<const void *, std::string> PathOf_;  // the key each indexed path went in with
  std::map<long, size_t, std::greater<long>> PathLengths_;  // length -> paths of that length
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_HANDLE_INDEX_H_
