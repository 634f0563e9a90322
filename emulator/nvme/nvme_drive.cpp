#include "emulator/nvme/nvme_drive.h"

#include <algorithm>
#include <cstring>

#include "platform/nvme.h"

namespace qor::emu {

namespace {

// Identify Controller fields besides the ones the driver reads (platform/nvme.h).
constexpr size_t kIdVendorId = 0;
constexpr size_t kIdSubsystemVendorId = 2;
constexpr size_t kIdRecommendedArbitrationBurst = 72;
constexpr size_t kIdMaximumDataTransferSize = 77;
constexpr size_t kIdControllerId = 78;
constexpr size_t kIdVersion = 80;
constexpr size_t kIdUnallocatedCapacity = 296;
constexpr size_t kIdQueueEntrySizes = 512;  // SQES, CQES
constexpr size_t kIdNamespaceCount = 516;
constexpr uint32_t kVersion14 = 0x00010400;

// Identify Namespace fields.
constexpr size_t kNsSize = 0;
constexpr size_t kNsCapacity = 8;
constexpr size_t kNsUtilization = 16;
constexpr size_t kNsLbaFormat0 = 128;

template <typename T>
void Put(std::vector<uint8_t> *Data, size_t Offset, T Value) {
  std::memcpy(Data->data() + Offset, &Value, sizeof(T));
}

// ASCII text padded with blanks to the field's width, as NVMe keeps it.
void PutText(std::vector<uint8_t> *Data, size_t Offset, size_t Width, const std::string &Text) {
  std::fill_n(Data->begin() + Offset, Width, ' ');
  std::copy_n(Text.begin(), std::min(Text.size(), Width), Data->begin() + Offset);
}

uint8_t Log2(uint32_t Value) {
  uint8_t Shift = 0;
  while (Shift < 31 && (uint32_t{1} << (Shift + 1)) <= Value) Shift++;
  return Shift;
}

}  // namespace

uint64_t NvmeNamespaceBytes(const NvmeDriveDef &Drive) {
  uint64_t Total = 0;
  for (const NvmeNamespaceDef &Namespace : Drive.Namespaces) Total += Namespace.BlockCount * Namespace.BlockSize;
  return Total;
}

std::vector<uint8_t> NvmeIdentifyController(const NvmeDriveDef &Drive, uint16_t VendorId, uint16_t SubsystemVendorId) {
  std::vector<uint8_t> Data(kNvmeIdentifySize, 0);
  Put<uint16_t>(&Data, kIdVendorId, VendorId);
  Put<uint16_t>(&Data, kIdSubsystemVendorId, SubsystemVendorId);
  PutText(&Data, NVME_ID_SERIAL_NUMBER_OFFSET, NVME_ID_SERIAL_NUMBER_SIZE, Drive.Serial);
  PutText(&Data, NVME_ID_MODEL_NUMBER_OFFSET, NVME_ID_MODEL_NUMBER_SIZE, Drive.Model);
  PutText(&Data, NVME_ID_FIRMWARE_REVISION_OFFSET, NVME_ID_FIRMWARE_REVISION_SIZE, Drive.Firmware);
  Data[kIdRecommendedArbitrationBurst] = 6;
  Data[kIdMaximumDataTransferSize] = 5;
  Put<uint16_t>(&Data, kIdControllerId, 1);
  Put<uint32_t>(&Data, kIdVersion, kVersion14);
  uint64_t Capacity = Drive.Capacity.value_or(NvmeNamespaceBytes(Drive));
  Put<uint64_t>(&Data, NVME_ID_TNVMCAP_OFFSET, Capacity);
  Put<uint64_t>(&Data, NVME_ID_TNVMCAP_OFFSET + 8, Drive.CapacityHigh);
  uint64_t Used = NvmeNamespaceBytes(Drive);
  Put<uint64_t>(&Data, kIdUnallocatedCapacity, Capacity > Used ? Capacity - Used : 0);
  Data[kIdQueueEntrySizes] = 0x66;
  Data[kIdQueueEntrySizes + 1] = 0x44;
  Put<uint32_t>(&Data, kIdNamespaceCount, static_cast<uint32_t>(Drive.Namespaces.size()));
  for (const BytePatch &Patch : Drive.IdentifyPatches) {
    std::copy(Patch.Bytes.begin(), Patch.Bytes.end(), Data.begin() + static_cast<std::ptrdiff_t>(Patch.Offset));
  }
  return Data;
}

std::vector<uint8_t> NvmeIdentifyNamespace(const NvmeDriveDef &Drive, size_t Index) {
  std::vector<uint8_t> Data(kNvmeIdentifySize, 0);
  if (Index >= Drive.Namespaces.size()) return Data;
  const NvmeNamespaceDef &Namespace = Drive.Namespaces[Index];
  Put<uint64_t>(&Data, kNsSize, Namespace.BlockCount);
  Put<uint64_t>(&Data, kNsCapacity, Namespace.BlockCount);
  Put<uint64_t>(&Data, kNsUtilization, Namespace.BlockCount);
  Put<uint32_t>(&Data, kNsLbaFormat0, uint32_t{Log2(Namespace.BlockSize)} << 16);
  return Data;
}

std::vector<uint8_t> NvmeActiveNamespaceList(const NvmeDriveDef &Drive) {
  std::vector<uint8_t> Data(kNvmeIdentifySize, 0);
  for (size_t I = 0; I < Drive.Namespaces.size() && I < kNvmeIdentifySize / 4; I++) {
    Put<uint32_t>(&Data, I * 4, static_cast<uint32_t>(I + 1));
  }
  return Data;
}

}  // namespace qor::emu
