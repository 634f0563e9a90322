#include "emulator/vmd/vroc_device_info.h"

#include <algorithm>
#include <cstring>

#include "emulator/nvme/nvme_drive.h"
#include "platform/vroc.h"

namespace qor::emu {

namespace {

template <typename T>
void Put(std::vector<uint8_t> *Record, size_t Offset, T Value) {
  std::memcpy(Record->data() + Offset, &Value, sizeof(T));
}

uint16_t Word(const std::vector<uint8_t> &Config, size_t Offset) {
  return static_cast<uint16_t>(Config[Offset] | Config[Offset + 1] << 8);
}

// The physical slot number a port implements, 0 when it implements none.
uint32_t PortSlot(const PciFunction &Port) {
  uint32_t Express = FindPciCapability(Port.Bytes(), 0x10);
  if (Express == 0) return 0;
  const std::vector<uint8_t> &C = Port.Bytes();
  if ((Word(C, Express + 0x02) & 0x0100) == 0) return 0;
  uint32_t SlotCapabilities = Word(C, Express + 0x14) | uint32_t{Word(C, Express + 0x16)} << 16;
  return SlotCapabilities >> 19;
}

}  // namespace

VrocDeviceInfo::VrocDeviceInfo(const VmdDomain &Domain, size_t Hidden, EFI_HANDLE DriveHandle)
    : Record_(QOR_VROC_INFO_SIZE, 0) {
  const HiddenFunction &Drive = Domain.Functions()[Hidden];
  const std::vector<uint8_t> &Config = Drive.Function->Bytes();
  const PciLocation &Location = Drive.Function->Location();
  const PciDeviceExtras &Extras = Drive.Def->Extras;
  VrocDriveDef Vroc = Extras.Vroc.value_or(VrocDriveDef{});
  NvmeDriveDef Nvme = Extras.Nvme.value_or(NvmeDriveDef{});

  PciLocation Port{0, Domain.Def().FirstBus, 0, 0};
  uint32_t Slot = 0;
  if (Drive.Parent >= 0) {
    const PciFunction &Above = *Domain.Functions()[static_cast<size_t>(Drive.Parent)].Function;
    Port = Above.Location();
    Slot = PortSlot(Above);
  }
  Record_[QOR_VROC_CPU_SOCKET] = Vroc.Socket;
  Put<uint32_t>(&Record_, QOR_VROC_SLOT, Vroc.Slot.value_or(Slot));
  Put<uint64_t>(&Record_, QOR_VROC_BUS, Location.Bus);
  Put<uint64_t>(&Record_, QOR_VROC_DEVICE, Location.Device);
  Put<uint64_t>(&Record_, QOR_VROC_FUNCTION, Location.Function);
  Put<uint16_t>(&Record_, QOR_VROC_VENDOR_ID, Word(Config, 0x00));
  Serial_.assign(Nvme.Serial.begin(), Nvme.Serial.end());
  Model_.assign(Nvme.Model.begin(), Nvme.Model.end());
  Put<const char16_t *>(&Record_, QOR_VROC_SERIAL_NUMBER, Serial_.c_str());
  Put<const char16_t *>(&Record_, QOR_VROC_MODEL, Model_.c_str());
  uint32_t BlockSize = Nvme.Namespaces.empty() ? 512 : Nvme.Namespaces.front().BlockSize;
  uint64_t Bytes = Nvme.Capacity.value_or(NvmeNamespaceBytes(Nvme));
  Put<uint64_t>(&Record_, QOR_VROC_BLOCK_COUNT, BlockSize == 0 ? 0 : Bytes / BlockSize);
  Put<uint32_t>(&Record_, QOR_VROC_BLOCK_SIZE, BlockSize);
  Record_[QOR_VROC_RAID_MEMBER] = Vroc.RaidMember ? 1 : 0;
  Put<EFI_HANDLE>(&Record_, QOR_VROC_DRIVE_HANDLE, DriveHandle);
  Put<uint16_t>(&Record_, QOR_VROC_DEVICE_ID, Word(Config, 0x02));
  Put<uint16_t>(&Record_, QOR_VROC_SUBSYSTEM_VENDOR, Word(Config, 0x2C));
  Put<uint16_t>(&Record_, QOR_VROC_SUBSYSTEM_ID, Word(Config, 0x2E));
  Record_[QOR_VROC_PROG_IF] = Config[0x09];
  Record_[QOR_VROC_SUB_CLASS] = Config[0x0A];
  Record_[QOR_VROC_BASE_CLASS] = Config[0x0B];
  // Up to 8 characters and their terminator fit before the root port bytes.
  std::memcpy(Record_.data() + QOR_VROC_FIRMWARE_REVISION, Nvme.Firmware.data(),
              std::min<size_t>(Nvme.Firmware.size(), QOR_VROC_FIRMWARE_REVISION_SIZE - 1));
  Record_[QOR_VROC_ROOT_PORT_BUS] = Port.Bus;
  Record_[QOR_VROC_ROOT_PORT_DEVICE] = Port.Device;
  Record_[QOR_VROC_ROOT_PORT_FUNCTION] = Port.Function;
  Put<uint64_t>(&Record_, QOR_VROC_SEGMENT, Domain.Def().Segment);
}

}  // namespace qor::emu
