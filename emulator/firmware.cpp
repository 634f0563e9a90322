#include "emulator/firmware.h"

#include <zlib.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace qor::emu {

namespace {

Firmware *gCurrent = nullptr;

bool SameGuid(const EFI_GUID &A, const EFI_GUID &B) { return std::memcmp(&A, &B, sizeof(EFI_GUID)) == 0; }

Firmware &Fw() { return *Firmware::Current(); }

// ---- boot services entry points ----
EFI_TPL EFIAPI BsRaiseTpl(EFI_TPL NewTpl) { return Fw().RaiseTpl(NewTpl); }
VOID EFIAPI BsRestoreTpl(EFI_TPL OldTpl) { Fw().RestoreTpl(OldTpl); }
EFI_STATUS EFIAPI BsAllocatePages(EFI_ALLOCATE_TYPE, EFI_MEMORY_TYPE, UINTN, EFI_PHYSICAL_ADDRESS *) {
  Fw().Count("AllocatePages");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsFreePages(EFI_PHYSICAL_ADDRESS, UINTN) {
  Fw().Count("FreePages");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsGetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey, UINTN *DescriptorSize,
                                 UINT32 *DescriptorVersion) {
  return Fw().GetMemoryMap(MapSize, Map, MapKey, DescriptorSize, DescriptorVersion);
}
EFI_STATUS EFIAPI BsAllocatePool(EFI_MEMORY_TYPE Type, UINTN Size, VOID **Buffer) {
  return Fw().AllocatePool(Type, Size, Buffer);
}
EFI_STATUS EFIAPI BsFreePool(VOID *Buffer) { return Fw().FreePool(Buffer); }
EFI_STATUS EFIAPI BsCreateEvent(UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY Notify, VOID *Context,
                                EFI_EVENT *Event) {
  return Fw().CreateEvent(Type, NotifyTpl, Notify, Context, Event);
}
EFI_STATUS EFIAPI BsSetTimer(EFI_EVENT, EFI_TIMER_DELAY, UINT64) {
  Fw().Count("SetTimer");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsWaitForEvent(UINTN, EFI_EVENT *, UINTN *) {
  Fw().Count("WaitForEvent");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsSignalEvent(EFI_EVENT Event) { return Fw().SignalEvent(Event); }
EFI_STATUS EFIAPI BsCloseEvent(EFI_EVENT Event) { return Fw().CloseEvent(Event); }
EFI_STATUS EFIAPI BsCheckEvent(EFI_EVENT Event) { return Fw().CheckEvent(Event); }
EFI_STATUS EFIAPI BsInstallProtocolInterface(EFI_HANDLE *Handle, EFI_GUID *Protocol, EFI_INTERFACE_TYPE Type,
                                             VOID *Interface) {
  Fw().Count("InstallProtocolInterface");
  if (Handle == nullptr || Protocol == nullptr || Type != EFI_NATIVE_INTERFACE) return EFI_INVALID_PARAMETER;
  return Fw().InstallProtocol(Handle, *Protocol, Interface);
}
EFI_STATUS EFIAPI BsReinstallProtocolInterface(EFI_HANDLE Handle, EFI_GUID *Protocol, VOID *Old, VOID *New) {
  Fw().Count("ReinstallProtocolInterface");
  if (Protocol == nullptr) return EFI_INVALID_PARAMETER;
  return Fw().ReinstallProtocol(Handle, *Protocol, Old, New);
}
EFI_STATUS EFIAPI BsUninstallProtocolInterface(EFI_HANDLE Handle, EFI_GUID *Protocol, VOID *Interface) {
  Fw().Count("UninstallProtocolInterface");
  if (Protocol == nullptr) return EFI_INVALID_PARAMETER;
  return Fw().UninstallProtocol(Handle, *Protocol, Interface);
}
EFI_STATUS EFIAPI BsHandleProtocol(EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface) {
  return Fw().HandleProtocol(Handle, Protocol, Interface);
}
EFI_STATUS EFIAPI BsRegisterProtocolNotify(EFI_GUID *Protocol, EFI_EVENT Event, VOID **Registration) {
  return Fw().RegisterProtocolNotify(Protocol, Event, Registration);
}
EFI_STATUS EFIAPI BsLocateHandle(EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey,
                                 UINTN *BufferSize, EFI_HANDLE *Buffer) {
  return Fw().LocateHandle(SearchType, Protocol, SearchKey, BufferSize, Buffer);
}
EFI_STATUS EFIAPI BsLocateDevicePath(EFI_GUID *Protocol, EFI_DEVICE_PATH_PROTOCOL **DevicePath, EFI_HANDLE *Device) {
  return Fw().LocateDevicePath(Protocol, DevicePath, Device);
}
EFI_STATUS EFIAPI BsInstallConfigurationTable(EFI_GUID *Guid, VOID *Table) {
  Fw().Count("InstallConfigurationTable");
  if (Guid == nullptr) return EFI_INVALID_PARAMETER;
  Fw().AddConfigurationTable(*Guid, Table);
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI BsLoadImage(BOOLEAN, EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL *, VOID *, UINTN, EFI_HANDLE *) {
  Fw().Count("LoadImage");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsStartImage(EFI_HANDLE, UINTN *, CHAR16 **) {
  Fw().Count("StartImage");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsExit(EFI_HANDLE, EFI_STATUS, UINTN, CHAR16 *) {
  Fw().Count("Exit");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsUnloadImage(EFI_HANDLE) {
  Fw().Count("UnloadImage");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsExitBootServices(EFI_HANDLE, UINTN) {
  Fw().Count("ExitBootServices");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsGetNextMonotonicCount(UINT64 *Count) {
  static UINT64 Counter = 0;
  Fw().Count("GetNextMonotonicCount");
  if (Count == nullptr) return EFI_INVALID_PARAMETER;
  *Count = ++Counter;
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI BsStall(UINTN) {
  Fw().Count("Stall");
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI BsSetWatchdogTimer(UINTN, UINT64, UINTN, CHAR16 *) {
  Fw().Count("SetWatchdogTimer");
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI BsConnectController(EFI_HANDLE, EFI_HANDLE *, EFI_DEVICE_PATH_PROTOCOL *, BOOLEAN) {
  Fw().Count("ConnectController");
  return EFI_NOT_FOUND;
}
EFI_STATUS EFIAPI BsDisconnectController(EFI_HANDLE, EFI_HANDLE, EFI_HANDLE) {
  Fw().Count("DisconnectController");
  return EFI_NOT_FOUND;
}
EFI_STATUS EFIAPI BsOpenProtocol(EFI_HANDLE Handle, EFI_GUID *Protocol, VOID **Interface, EFI_HANDLE, EFI_HANDLE,
                                 UINT32 Attributes) {
  Fw().Count("OpenProtocol");
  if (Attributes == EFI_OPEN_PROTOCOL_TEST_PROTOCOL) {
    VOID *Ignored = nullptr;
    return Fw().HandleProtocol(Handle, Protocol, &Ignored);
  }
  return Fw().HandleProtocol(Handle, Protocol, Interface);
}
EFI_STATUS EFIAPI BsCloseProtocol(EFI_HANDLE, EFI_GUID *, EFI_HANDLE, EFI_HANDLE) {
  Fw().Count("CloseProtocol");
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI BsOpenProtocolInformation(EFI_HANDLE, EFI_GUID *, EFI_OPEN_PROTOCOL_INFORMATION_ENTRY **,
                                            UINTN *) {
  Fw().Count("OpenProtocolInformation");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsProtocolsPerHandle(EFI_HANDLE, EFI_GUID ***, UINTN *) {
  Fw().Count("ProtocolsPerHandle");
  return EFI_UNSUPPORTED;
}
EFI_STATUS EFIAPI BsLocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE SearchType, EFI_GUID *Protocol, VOID *SearchKey,
                                       UINTN *NoHandles, EFI_HANDLE **Buffer) {
  return Fw().LocateHandleBuffer(SearchType, Protocol, SearchKey, NoHandles, Buffer);
}
EFI_STATUS EFIAPI BsLocateProtocol(EFI_GUID *Protocol, VOID *Registration, VOID **Interface) {
  return Fw().LocateProtocol(Protocol, Registration, Interface);
}
// Applies Apply to each (GUID, interface) pair of a variadic list ended by a
// null GUID pointer, stopping at the first failure.
template <typename ApplyPair>
EFI_STATUS ForEachInterfacePair(VA_LIST Marker, ApplyPair Apply) {
  for (;;) {
    EFI_GUID *Guid = VA_ARG(Marker, EFI_GUID *);
    if (Guid == nullptr) return EFI_SUCCESS;
    VOID *Interface = VA_ARG(Marker, VOID *);
    EFI_STATUS Status = Apply(*Guid, Interface);
    if (EFI_ERROR(Status)) return Status;
  }
}
EFI_STATUS EFIAPI BsInstallMultipleProtocolInterfaces(EFI_HANDLE *Handle, ...) {
  Fw().Count("InstallMultipleProtocolInterfaces");
  if (Handle == nullptr) return EFI_INVALID_PARAMETER;
  VA_LIST Marker;
  VA_START(Marker, Handle);
  EFI_STATUS Status = ForEachInterfacePair(
      Marker, [Handle](const EFI_GUID &Guid, VOID *Interface) { return Fw().InstallProtocol(Handle, Guid, Interface); });
  VA_END(Marker);
  return Status;
}
EFI_STATUS EFIAPI BsUninstallMultipleProtocolInterfaces(EFI_HANDLE Handle, ...) {
  Fw().Count("UninstallMultipleProtocolInterfaces");
  VA_LIST Marker;
  VA_START(Marker, Handle);
  EFI_STATUS Status = ForEachInterfacePair(Marker, [Handle](const EFI_GUID &Guid, VOID *Interface) {
    return Fw().UninstallProtocol(Handle, Guid, Interface);
  });
  VA_END(Marker);
  return Status;
}
EFI_STATUS EFIAPI BsCalculateCrc32(VOID *Data, UINTN DataSize, UINT32 *Crc32) {
  Fw().Count("CalculateCrc32");
  if (Data == nullptr || DataSize == 0 || Crc32 == nullptr) return EFI_INVALID_PARAMETER;
  uLong Crc = crc32(0L, Z_NULL, 0);
  // zlib takes 32-bit lengths; feed large buffers in pieces.
  const Bytef *Bytes = static_cast<const Bytef *>(Data);
  while (DataSize > 0) {
    uInt Piece = DataSize > 0x40000000 ? 0x40000000 : static_cast<uInt>(DataSize);
    Crc = crc32(Crc, Bytes, Piece);
    Bytes += Piece;
    DataSize -= Piece;
  }
  *Crc32 = static_cast<UINT32>(Crc);
  return EFI_SUCCESS;
}
VOID EFIAPI BsCopyMem(VOID *Destination, VOID *Source, UINTN Length) {
  Fw().Count("CopyMem");
  std::memmove(Destination, Source, Length);
}
VOID EFIAPI BsSetMem(VOID *Buffer, UINTN Size, UINT8 Value) {
  Fw().Count("SetMem");
  std::memset(Buffer, Value, Size);
}
EFI_STATUS EFIAPI BsCreateEventEx(UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY Notify, CONST VOID *Context,
                                  CONST EFI_GUID *, EFI_EVENT *Event) {
  return Fw().CreateEvent(Type, NotifyTpl, Notify, const_cast<VOID *>(Context), Event);
}

// ---- runtime services entry points ----
EFI_STATUS EFIAPI RtGetTime(EFI_TIME *Time, VOID *) {
  Fw().Count("GetTime");
  if (Time == nullptr) return EFI_INVALID_PARAMETER;
  *Time = EFI_TIME{2026, 11, 21, 9, 0, 0, 0, 0, 0x7FF, 0, 0};
  return EFI_SUCCESS;
}
EFI_STATUS EFIAPI RtUnsupportedSetTime(EFI_TIME *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtGetWakeupTime(BOOLEAN *, BOOLEAN *, EFI_TIME *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtSetWakeupTime(BOOLEAN, EFI_TIME *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtSetVirtualAddressMap(UINTN, UINTN, UINT32, EFI_MEMORY_DESCRIPTOR *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtConvertPointer(UINTN, VOID **) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtGetVariable(CHAR16 *Name, EFI_GUID *Guid, UINT32 *Attributes, UINTN *DataSize, VOID *Data) {
  Fw().Count("GetVariable");
  return Fw().Variables().Get(Name, Guid, Attributes, DataSize, Data);
}
EFI_STATUS EFIAPI RtGetNextVariableName(UINTN *NameSize, CHAR16 *Name, EFI_GUID *Guid) {
  Fw().Count("GetNextVariableName");
  return Fw().Variables().GetNextName(NameSize, Name, Guid);
}
EFI_STATUS EFIAPI RtSetVariable(CHAR16 *Name, EFI_GUID *Guid, UINT32 Attributes, UINTN DataSize, VOID *Data) {
  Fw().Count("SetVariable");
  return Fw().Variables().Set(Name, Guid, Attributes, DataSize, Data);
}
EFI_STATUS EFIAPI RtGetNextHighMonotonicCount(UINT32 *) { return EFI_UNSUPPORTED; }
VOID EFIAPI RtResetSystem(EFI_RESET_TYPE Type, EFI_STATUS Status, UINTN DataSize, VOID *Data) {
  Fw().ResetSystem(Type, Status, DataSize, Data);
}
EFI_STATUS EFIAPI RtUpdateCapsule(VOID **, UINTN, EFI_PHYSICAL_ADDRESS) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtQueryCapsuleCapabilities(VOID **, UINTN, UINT64 *, EFI_RESET_TYPE *) { return EFI_UNSUPPORTED; }
EFI_STATUS EFIAPI RtQueryVariableInfo(UINT32, UINT64 *, UINT64 *, UINT64 *) { return EFI_UNSUPPORTED; }

}  // namespace

uint64_t ServiceCounters::TotalCalls() const {
  uint64_t Total = 0;
  for (const auto &Entry : Calls) Total += Entry.second;
  return Total;
}

Firmware *Firmware::Current() { return gCurrent; }

Firmware::Firmware() {
  BootServices_.Hdr = {EFI_BOOT_SERVICES_SIGNATURE, 0x00020046, sizeof(EFI_BOOT_SERVICES), 0, 0};
  BootServices_.RaiseTPL = BsRaiseTpl;
  BootServices_.RestoreTPL = BsRestoreTpl;
  BootServices_.AllocatePages = BsAllocatePages;
  BootServices_.FreePages = BsFreePages;
  BootServices_.GetMemoryMap = BsGetMemoryMap;
  BootServices_.AllocatePool = BsAllocatePool;
  BootServices_.FreePool = BsFreePool;
  BootServices_.CreateEvent = BsCreateEvent;
  BootServices_.SetTimer = BsSetTimer;
  BootServices_.WaitForEvent = BsWaitForEvent;
  BootServices_.SignalEvent = BsSignalEvent;
  BootServices_.CloseEvent = BsCloseEvent;
  BootServices_.CheckEvent = BsCheckEvent;
  BootServices_.InstallProtocolInterface = BsInstallProtocolInterface;
  BootServices_.ReinstallProtocolInterface = BsReinstallProtocolInterface;
  BootServices_.UninstallProtocolInterface = BsUninstallProtocolInterface;
  BootServices_.HandleProtocol = BsHandleProtocol;
  BootServices_.RegisterProtocolNotify = BsRegisterProtocolNotify;
  BootServices_.LocateHandle = BsLocateHandle;
  BootServices_.LocateDevicePath = BsLocateDevicePath;
  BootServices_.InstallConfigurationTable = BsInstallConfigurationTable;
  BootServices_.LoadImage = BsLoadImage;
  BootServices_.StartImage = BsStartImage;
  BootServices_.Exit = BsExit;
  BootServices_.UnloadImage = BsUnloadImage;
  BootServices_.ExitBootServices = BsExitBootServices;
  BootServices_.GetNextMonotonicCount = BsGetNextMonotonicCount;
  BootServices_.Stall = BsStall;
  BootServices_.SetWatchdogTimer = BsSetWatchdogTimer;
  BootServices_.ConnectController = BsConnectController;
  BootServices_.DisconnectController = BsDisconnectController;
  BootServices_.OpenProtocol = BsOpenProtocol;
  BootServices_.CloseProtocol = BsCloseProtocol;
  BootServices_.OpenProtocolInformation = BsOpenProtocolInformation;
  BootServices_.ProtocolsPerHandle = BsProtocolsPerHandle;
  BootServices_.LocateHandleBuffer = BsLocateHandleBuffer;
  BootServices_.LocateProtocol = BsLocateProtocol;
  BootServices_.InstallMultipleProtocolInterfaces = BsInstallMultipleProtocolInterfaces;
  BootServices_.UninstallMultipleProtocolInterfaces = BsUninstallMultipleProtocolInterfaces;
  BootServices_.CalculateCrc32 = BsCalculateCrc32;
  BootServices_.CopyMem = BsCopyMem;
  BootServices_.SetMem = BsSetMem;
  BootServices_.CreateEventEx = BsCreateEventEx;

  RuntimeServices_.Hdr = {EFI_RUNTIME_SERVICES_SIGNATURE, 0x00020046, sizeof(EFI_RUNTIME_SERVICES), 0, 0};
  RuntimeServices_.GetTime = RtGetTime;
  RuntimeServices_.SetTime = RtUnsupportedSetTime;
  RuntimeServices_.GetWakeupTime = RtGetWakeupTime;
  RuntimeServices_.SetWakeupTime = RtSetWakeupTime;
  RuntimeServices_.SetVirtualAddressMap = RtSetVirtualAddressMap;
  RuntimeServices_.ConvertPointer = RtConvertPointer;
  RuntimeServices_.GetVariable = RtGetVariable;
  RuntimeServices_.GetNextVariableName = RtGetNextVariableName;
  RuntimeServices_.SetVariable = RtSetVariable;
  RuntimeServices_.GetNextHighMonotonicCount = RtGetNextHighMonotonicCount;
  RuntimeServices_.ResetSystem = RtResetSystem;
  RuntimeServices_.UpdateCapsule = RtUpdateCapsule;
  RuntimeServices_.QueryCapsuleCapabilities = RtQueryCapsuleCapabilities;
  RuntimeServices_.QueryVariableInfo = RtQueryVariableInfo;

  SystemTable_.Hdr = {EFI_SYSTEM_TABLE_SIGNATURE, 0x00020046, sizeof(EFI_SYSTEM_TABLE), 0, 0};
  static CHAR16 Vendor[] = u"Qor host firmware emulator";
  SystemTable_.FirmwareVendor = Vendor;
  SystemTable_.FirmwareRevision = 0x00010000;
  SystemTable_.BootServices = &BootServices_;
  SystemTable_.RuntimeServices = &RuntimeServices_;

  // The image handle of the driver.
  ImageHandle_ = NewHandle();
  gCurrent = this;
}

Firmware::~Firmware() {
  if (gCurrent == this) gCurrent = nullptr;
}

void Firmware::AddConfigurationTable(const EFI_GUID &Guid, void *Table) {
  for (auto &Entry : ConfigurationTable_) {
    if (SameGuid(Entry.VendorGuid, Guid)) {
      Entry.VendorTable = Table;
      return;
    }
  }
  ConfigurationTable_.push_back({Guid, Table});
  SystemTable_.NumberOfTableEntries = ConfigurationTable_.size();
  SystemTable_.ConfigurationTable = ConfigurationTable_.data();
}

void Firmware::SetMemoryMap(std::vector<EFI_MEMORY_DESCRIPTOR> Map, UINTN DescriptorSize, UINT32 DescriptorVersion) {
  MemoryMap_ = std::move(Map);
  DescriptorSize_ = std::max<UINTN>(DescriptorSize, sizeof(EFI_MEMORY_DESCRIPTOR));
  DescriptorVersion_ = DescriptorVersion;
  MapKey_++;
}

// ---------------------------------------------------------------- memory

EFI_STATUS Firmware::AllocatePool(EFI_MEMORY_TYPE Type, UINTN Size, void **Buffer) {
  Count("AllocatePool");
  if (Buffer == nullptr || Type >= EfiMaxMemoryType) return EFI_INVALID_PARAMETER;
  *Buffer = Pool_.Allocate(Size);
  return *Buffer == nullptr ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
}

EFI_STATUS Firmware::FreePool(void *Buffer) {
  Count("FreePool");
  if (Buffer == nullptr) return EFI_INVALID_PARAMETER;
  return Pool_.Free(Buffer) ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

EFI_STATUS Firmware::GetMemoryMap(UINTN *MapSize, EFI_MEMORY_DESCRIPTOR *Map, UINTN *MapKey, UINTN *DescriptorSize,
                                  UINT32 *DescriptorVersion) {
  Count("GetMemoryMap");
  if (MapSize == nullptr) return EFI_INVALID_PARAMETER;
  UINTN Needed = MemoryMap_.size() * DescriptorSize_;
  if (DescriptorSize != nullptr) *DescriptorSize = DescriptorSize_;
  if (DescriptorVersion != nullptr) *DescriptorVersion = DescriptorVersion_;
  if (*MapSize < Needed) {
    *MapSize = Needed;
    GrowMemoryMap();
    return EFI_BUFFER_TOO_SMALL;
  }
  if (Map == nullptr) return EFI_INVALID_PARAMETER;
  auto *Out = reinterpret_cast<uint8_t *>(Map);
  for (size_t I = 0; I < MemoryMap_.size(); I++) {
    std::memset(Out + I * DescriptorSize_, 0, DescriptorSize_);
    std::memcpy(Out + I * DescriptorSize_, &MemoryMap_[I], sizeof(EFI_MEMORY_DESCRIPTOR));
  }
  *MapSize = Needed;
  if (MapKey != nullptr) *MapKey = MapKey_;
  return EFI_SUCCESS;
}

void Firmware::GrowMemoryMap() {
  constexpr uint32_t kMaxMapGrowths = 16;  // a caller that keeps asking sees the map settle
  if (MapGrowth_ == 0 || MapGrowths_ == kMaxMapGrowths) return;
  MapGrowths_++;
  uint64_t Next = 0;
  for (const auto &Entry : MemoryMap_) {
    Next = std::max<uint64_t>(Next, Entry.PhysicalStart + Entry.NumberOfPages * 4096);
  }
  for (uint32_t I = 0; I < MapGrowth_; I++, Next += 4096) {
    EFI_MEMORY_DESCRIPTOR Entry{};
    Entry.Type = EfiBootServicesData;
    Entry.PhysicalStart = Next;
    Entry.NumberOfPages = 1;
    Entry.Attribute = 0xF;
    MemoryMap_.push_back(Entry);
  }
  MapKey_++;
}

// ---------------------------------------------------------------- reset

void Firmware::ResetSystem(EFI_RESET_TYPE Type, EFI_STATUS Status, UINTN DataSize, void *Data) {
  Count("ResetSystem");
  ResetRecord Record{Type, Status, {}};
  if (Data != nullptr && DataSize != 0) {
    const auto *Bytes = static_cast<const uint8_t *>(Data);
    Record.Data.assign(Bytes, Bytes + DataSize);
  }
  Resets_.push_back(std::move(Record));
  Tpl_ = TPL_APPLICATION;
  EventQueue_.clear();
  if (ResetTarget_ != nullptr) std::longjmp(*ResetTarget_, 1);
  // Nothing to return to: a reset outside a boot ends the process as a
  // machine would stop.
  std::abort();
}

}  // namespace qor::emu
