// The emulated UEFI environment: system table, boot and runtime services, the
// protocol database with protocol-notify events and TPL dispatch, the pool,
// the variable store and the configuration table. One instance is current at
// a time; the service functions of the tables reach it through Current().
#ifndef QOR_EMULATOR_FIRMWARE_H_
#define QOR_EMULATOR_FIRMWARE_H_

#include <csetjmp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "emulator/handle_index.h"
#include "emulator/pool.h"
#include "emulator/variable_store.h"
#include "platform/uefi_tables.h"

namespace qor::emu {

struct ResetRecord {
  EFI_RESET_TYPE Type;
  EFI_STATUS Status;
  std::vector<uint8_t> Data;
};

// Counts of what the driver asked of the firmware.
struct ServiceCounters {
  std::map<std::string, uint64_t> Calls;  // by service name
  uint64_t TotalCalls() const;
};

class Firmware {
 public:
  Firmware();
  ~Firmware();
  Firmware(const Firmware &) = delete;
  Firmware &operator=(const Firmware &) = delete;

  static Firmware *Current();

  EFI_SYSTEM_TABLE *SystemTable() { return &SystemTable_; }
  EFI_BOOT_SERVICES *BootServices() { return &BootServices_; }
  EFI_RUNTIME_SERVICES *RuntimeServices() { return &RuntimeServices_; }
  EFI_HANDLE ImageHandle() { return ImageHandle_; }

  Pool &GetPool() { return Pool_; }
  VariableStore &Variables() { return Variables_; }
  ServiceCounters &Counters() { return Counters_; }

  // Adds an entry to the configuration table; the table owns nothing.
  void AddConfigurationTable(const EFI_GUID &Guid, void *Table);

  // Installs an interface as the platform would, at the current TPL (so the
  // notify functions of the protocol run before this returns when called at
  // TPL_APPLICATION). A null *Handle creates a new handle.
  EFI_STATUS InstallProtocol(EFI_HANDLE *Handle, const EFI_GUID &Guid, void *Interface);
  EFI_STATUS ReinstallProtocol(EFI_HANDLE Handle, const EFI_GUID &Guid, void *OldInterface, void *NewInterface);
  EFI_STATUS UninstallProtocol(EFI_HANDLE Handle, const EFI_GUID &Guid, void *Interface);

  // Memory map served by GetMemoryMap; DescriptorSize may exceed the
  // structure size, as on some firmware.
  void SetMemoryMap(std::vector<EFI_MEMORY_DESCRIPTOR> Map, UINTN DescriptorSize, UINT32 DescriptorVersion);
  // Models the pool allocation a caller makes between sizing the map and
  // reading it: every "too small" answer (the first 16 of them)
  // adds Descriptors one-page boot-services-data entries above the map.
  void GrowMemoryMapWhenSized(uint32_t Descriptors) { MapGrowth_ = Descriptors; }

  // Reset handling: ResetSystem records the request and longjmps here.
  void ArmResetTarget(std::jmp_buf *Target) { ResetTarget_ = Target; }
  const std::vector<ResetRecord> &Resets() const { return Resets_; }

  EFI_TPL CurrentTpl() const { return Tpl_; }

  // ---- service implementations (called through the tables) ----
  EFI_TPL RaiseTpl(EFI_TPL NewTpl);
  void RestoreTpl(EFI_TPL OldTpl);
  EFI_STATUS CreateEvent(UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY Notify, void *Context, EFI_EVENT *Event);
  EFI_STATUS SignalEvent(EFI_EVENT Event);
  EFI_STATUS CloseEvent(EFI_EVENT Event);
  EFI_STATUS CheckEvent(EFI_EVENT Event);
  EFI_STATUS RegisterProtocolNotify(const EFI_GUID *Protocol, EFI_EVENT Event, void **Registration);
  EFI_STATUS HandleProtocol(EFI_HANDLE Handle, const EFI_GUID *Protocol, void **Interface);
  EFI_STATUS LocateHandle(EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID *Protocol, void *SearchKey,
                          UINTN *BufferSize, EFI_HANDLE *Buffer);
  EFI_STATUS LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID *Protocol, void *SearchKey,
                                UINTN *NoHandles, EFI_HANDLE **Buffer);
  EFI_STATUS LocateProtocol(const EFI_GUID *Protocol, void *Registration, void **Interface);
  EFI_STATUS LocateDevicePath(const EFI_GUID *Protocol, EFI_DEVICE_PATH_PROTOCOL **DevicePath, EFI_HANDLE *Device);
  EFI_STATUS AllocatePool(EFI_MEMORY_TYPE Type, UINTN Size, void **Buffer);
  EFI_STATUS FreePool(void *Buffer);
  EFI_STATUS GetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey, UINTN *DescriptorSize,
                          UINT32 *DescriptorVersion);
  [[noreturn]] void ResetSystem(EFI_RESET_TYPE Type, EFI_STATUS Status, UINTN DataSize, void *Data);

  // Service names are literals: each is looked up by name once, then by its
  // address (so the entries of Counters().Calls are never to be erased).
  void Count(const char *Service) {
    uint64_t *&Slot = CountSlots_[Service];
    if (Slot == nullptr) Slot = &Counters_.Calls[Service];
    ++*Slot;
  }

 private:
  struct EventRecord {
    UINT32 Type = 0;
    EFI_TPL NotifyTpl = 0;
    EFI_EVENT_NOTIFY Notify = nullptr;
    void *Context = nullptr;
    bool Signaled = false;
    bool Queued = false;
    bool Closed = false;
  };
  struct InterfaceRecord {
    EFI_GUID Guid;
    void *Interface;
  };
  struct HandleRecord {
    std::vector<InterfaceRecord> Interfaces;
  };
  struct NotifyRecord {
    EFI_GUID Guid;
    EventRecord *Event;
    // Handles installed with Guid since the registration, not yet returned by
    // LocateHandle(ByRegisterNotify) / LocateProtocol(Registration).
    std::vector<HandleRecord *> Pending;
  };

  HandleRecord *NewHandle();
  HandleRecord *FindHandle(EFI_HANDLE Handle);
  EventRecord *FindEvent(EFI_EVENT Event);
  NotifyRecord *FindNotify(void *Registration);
  void QueueEvent(EventRecord *Event);
  void DispatchAbove(EFI_TPL Tpl);
  void NotifyInstalled(HandleRecord *Handle, const EFI_GUID &Guid);
  std::vector<HandleRecord *> HandlesWith(const EFI_GUID &Guid);

  EFI_SYSTEM_TABLE SystemTable_{};
  EFI_BOOT_SERVICES BootServices_{};
  EFI_RUNTIME_SERVICES RuntimeServices_{};
  std::vector<EFI_CONFIGURATION_TABLE> ConfigurationTable_;
  EFI_HANDLE ImageHandle_ = nullptr;

  Pool Pool_;
  VariableStore Variables_;
  ServiceCounters Counters_;

  EFI_TPL Tpl_ = TPL_APPLICATION;
  std::vector<std::unique_ptr<EventRecord>> Events_;
  std::vector<EventRecord *> EventQueue_;  // signalled, waiting for dispatch
  std::vector<std::unique_ptr<HandleRecord>> Handles_;  // in creation order
  HandleIndex Index_;
  std::unordered_map<const char *, uint64_t *> CountSlots_;
  std::vector<std::unique_ptr<NotifyRecord>> Notifies_;

  std::vector<EFI_MEMORY_DESCRIPTOR> MemoryMap_;
  UINTN DescriptorSize_ = sizeof(EFI_MEMORY_DESCRIPTOR);
  UINT32 DescriptorVersion_ = EFI_MEMORY_DESCRIPTOR_VERSION;
  UINTN MapKey_ = 1;
  uint32_t MapGrowth_ = 0;
  uint32_t MapGrowths_ = 0;
  void GrowMemoryMap();

  std::jmp_buf *ResetTarget_ = nullptr;
  std::vector<ResetRecord> Resets_;
};

}  // namespace qor::emu

#endif  // QOR_EMULATOR_FIRMWARE_H_
