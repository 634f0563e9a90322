#include "emulator/nvme/nvme_controller.h"

#include <algorithm>
#include <cstring>

#include "emulator/firmware.h"
#include "platform/device_path.h"

namespace qor::emu {

namespace {

constexpr uint32_t kAllNamespaces = 0xFFFFFFFF;
constexpr uint32_t kIoAlign = 4;
constexpr uint8_t kIdentifyNamespace = 0;
constexpr uint8_t kIdentifyController = 1;
constexpr uint8_t kIdentifyActiveNamespaces = 2;
// Generic command status codes (completion DW3 bits 24:17).
constexpr uint32_t kStatusInvalidOpcode = 0x01;
constexpr uint32_t kStatusInvalidField = 0x02;
constexpr uint32_t kStatusInternalError = 0x06;
constexpr uint32_t kStatusInvalidNamespace = 0x0B;
// Pass-thru mode attributes.
constexpr uint32_t kAttributePhysical = 0x01;
constexpr uint32_t kAttributeLogical = 0x02;
constexpr uint32_t kAttributeCommandSetNvm = 0x08;

EFI_STATUS EFIAPI PassThruEntry(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This, UINT32 NamespaceId,
                                EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet, EFI_EVENT) {
  if (Firmware::Current() != nullptr) Firmware::Current()->Count("NvmePassThru.PassThru");
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  // Without non-blocking support the event is ignored and the call blocks.
  return NvmeController::From(This)->Execute(NamespaceId, Packet);
}

EFI_STATUS EFIAPI GetNextNamespaceEntry(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This, UINT32 *NamespaceId) {
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return NvmeController::From(This)->NextNamespace(NamespaceId);
}

EFI_STATUS EFIAPI BuildDevicePathEntry(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This, UINT32 NamespaceId,
                                       EFI_DEVICE_PATH_PROTOCOL **DevicePath) {
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return NvmeController::From(This)->BuildDevicePath(NamespaceId, DevicePath);
}

EFI_STATUS EFIAPI GetNamespaceEntry(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This, EFI_DEVICE_PATH_PROTOCOL *DevicePath,
                                    UINT32 *NamespaceId) {
  if (This == nullptr) return EFI_INVALID_PARAMETER;
  return NvmeController::From(This)->NamespaceOf(DevicePath, NamespaceId);
}

}  // namespace

NvmeController::NvmeController(const NvmeDriveDef &Def, uint16_t VendorId, uint16_t SubsystemVendorId,
                               TimeStampCounter &Clock, std::string Location)
    : Def_(Def), Clock_(Clock), Location_(std::move(Location)) {
  Mode_.Attributes = kAttributePhysical | kAttributeLogical | kAttributeCommandSetNvm;
  Mode_.IoAlign = kIoAlign;
  Mode_.NvmeVersion = 0x00010400;
  Interface_.Owner = this;
  Interface_.Protocol = {&Mode_, PassThruEntry, GetNextNamespaceEntry, BuildDevicePathEntry, GetNamespaceEntry};
  Identify_ = NvmeIdentifyController(Def_, VendorId, SubsystemVendorId);
  for (size_t I = 0; I < Def_.Namespaces.size(); I++) {
    Namespaces_.push_back({static_cast<UINT32>(I + 1), Def_.Namespaces[I].BlockSize, Def_.Namespaces[I].BlockCount});
  }
  Vendor_.Revision = 1;
  Vendor_.IdentifyControllerData = Identify_.data();
  Vendor_.NamespaceCount = static_cast<UINT32>(Namespaces_.size());
  Vendor_.Namespaces = Namespaces_.empty() ? nullptr : Namespaces_.data();
}

NvmeController *NvmeController::From(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This) {
  return reinterpret_cast<Interface *>(This)->Owner;
}

EFI_STATUS NvmeController::Execute(uint32_t NamespaceId, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet) {
  if (Packet == nullptr || Packet->NvmeCmd == nullptr || Packet->NvmeCompletion == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  NvmeCommandRecord Record;
  Record.Controller = Location_;
  Record.Opcode = static_cast<uint8_t>(Packet->NvmeCmd->Cdw0 & 0xFF);
  Record.QueueType = Packet->QueueType;
  Record.NamespaceId = NamespaceId;
  Record.Nsid = Packet->NvmeCmd->Nsid;
  Record.Flags = Packet->NvmeCmd->Flags;
  Record.Cdw10 = Packet->NvmeCmd->Cdw10;
  Record.CommandTimeout = Packet->CommandTimeout;
  Record.TransferLength = Packet->TransferLength;
  Record.Status = Run(NamespaceId, Packet);
  Commands_.push_back(Record);
  return Record.Status;
}

EFI_STATUS NvmeController::Run(uint32_t NamespaceId, EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet) {
  if (Packet->QueueType != NVME_ADMIN_QUEUE && Packet->QueueType != NVME_IO_QUEUE) return EFI_INVALID_PARAMETER;
  if (NamespaceId != 0 && NamespaceId != kAllNamespaces && !IsActive(NamespaceId)) return EFI_INVALID_PARAMETER;
  if (Packet->TransferLength != 0 &&
      (Packet->TransferBuffer == nullptr || reinterpret_cast<uintptr_t>(Packet->TransferBuffer) % kIoAlign != 0)) {
    return EFI_INVALID_PARAMETER;
  }
  EFI_NVM_EXPRESS_COMPLETION &Completion = *Packet->NvmeCompletion;
  Completion = {};
  auto Fail = [&](uint32_t StatusCode, EFI_STATUS Status) {
    Completion.DW3 = StatusCode << 17;
    return Status;
  };

  // The command runs for the drive's response time; a caller that gives it
  // less gets EFI_TIMEOUT once its own time has passed.
  uint64_t Needed = Def_.ResponseUs * 10;  // in 100 ns units
  if (Packet->CommandTimeout != 0 && Packet->CommandTimeout < Needed) {
    Clock_.Advance(Clock_.TicksFor(Packet->CommandTimeout / 10));
    return EFI_TIMEOUT;
  }
  Clock_.Advance(Clock_.TicksFor(Def_.ResponseUs));
  if (Def_.CommandStatus) return Fail(kStatusInternalError, *Def_.CommandStatus);

  const EFI_NVM_EXPRESS_COMMAND &Command = *Packet->NvmeCmd;
  if (Packet->QueueType != NVME_ADMIN_QUEUE || (Command.Cdw0 & 0xFF) != NVME_ADMIN_IDENTIFY_CMD) {
    return Fail(kStatusInvalidOpcode, EFI_DEVICE_ERROR);
  }
  // A CDW10 not marked valid reaches the controller as zero.
  uint32_t Cdw10 = (Command.Flags & CDW10_VALID) != 0 ? Command.Cdw10 : 0;
  std::vector<uint8_t> Data;
  switch (Cdw10 & 0xFF) {
    case kIdentifyController:
      Data = Identify_;
      break;
    case kIdentifyNamespace:
      if (!IsActive(Command.Nsid)) return Fail(kStatusInvalidNamespace, EFI_DEVICE_ERROR);
      Data = NvmeIdentifyNamespace(Def_, Command.Nsid - 1);
      break;
    case kIdentifyActiveNamespaces:
      Data = NvmeActiveNamespaceList(Def_);
      break;
    default:
      return Fail(kStatusInvalidField, EFI_DEVICE_ERROR);
  }
  if (Packet->TransferLength < Data.size()) {
    Packet->TransferLength = static_cast<UINT32>(Data.size());
    return EFI_BAD_BUFFER_SIZE;
  }
  std::memcpy(Packet->TransferBuffer, Data.data(), Data.size());
  Packet->TransferLength = static_cast<UINT32>(Data.size());
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::NextNamespace(uint32_t *NamespaceId) const {
  if (NamespaceId == nullptr) return EFI_INVALID_PARAMETER;
  if (*NamespaceId == kAllNamespaces) {
    if (Def_.Namespaces.empty()) return EFI_NOT_FOUND;
    *NamespaceId = 1;
    return EFI_SUCCESS;
  }
  if (!IsActive(*NamespaceId)) return EFI_INVALID_PARAMETER;
  if (*NamespaceId == Def_.Namespaces.size()) return EFI_NOT_FOUND;
  (*NamespaceId)++;
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::BuildDevicePath(uint32_t NamespaceId, EFI_DEVICE_PATH_PROTOCOL **DevicePath) const {
  if (DevicePath == nullptr) return EFI_INVALID_PARAMETER;
  if (!IsActive(NamespaceId)) return EFI_NOT_FOUND;
  struct {
    NVME_NAMESPACE_DEVICE_PATH Node;
    EFI_DEVICE_PATH_PROTOCOL End;
  } Path{};
  Path.Node.Header = {MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP, {sizeof(Path.Node), 0}};
  Path.Node.NamespaceId = NamespaceId;
  Path.End = {END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, {sizeof(Path.End), 0}};
  void *Buffer = nullptr;
  Firmware *Fw = Firmware::Current();
  if (Fw == nullptr || Fw->AllocatePool(EfiBootServicesData, sizeof(Path), &Buffer) != EFI_SUCCESS) {
    return EFI_OUT_OF_RESOURCES;
  }
  std::memcpy(Buffer, &Path, sizeof(Path));
  *DevicePath = static_cast<EFI_DEVICE_PATH_PROTOCOL *>(Buffer);
  return EFI_SUCCESS;
}

EFI_STATUS NvmeController::NamespaceOf(const EFI_DEVICE_PATH_PROTOCOL *DevicePath, uint32_t *NamespaceId) const {
  if (DevicePath == nullptr || NamespaceId == nullptr) return EFI_INVALID_PARAMETER;
  if (DevicePath->Type != MESSAGING_DEVICE_PATH || DevicePath->SubType != MSG_NVME_NAMESPACE_DP ||
      (DevicePath->Length[0] | DevicePath->Length[1] << 8) != sizeof(NVME_NAMESPACE_DEVICE_PATH)) {
    return EFI_UNSUPPORTED;
  }
  uint32_t Id = 0;
  std::memcpy(&Id, reinterpret_cast<const uint8_t *>(DevicePath) + sizeof(EFI_DEVICE_PATH_PROTOCOL), sizeof(Id));
  if (!IsActive(Id)) return EFI_NOT_FOUND;
  *NamespaceId = Id;
  return EFI_SUCCESS;
}

}  // namespace qor::emu
