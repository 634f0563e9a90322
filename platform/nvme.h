// NVMe access: EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL (UEFI specification,
// chapter "NVM Express Pass Through Protocol"), the offsets of the Identify
// Controller data the driver reads (NVM Express base specification), and the
// vendor NVMe controller protocol whose layout its provider fixes here.
#ifndef QOR_PLATFORM_NVME_H_
#define QOR_PLATFORM_NVME_H_

#include "platform/device_path.h"

typedef struct {
  UINT32 Attributes;
  UINT32 IoAlign;
  UINT32 NvmeVersion;
} EFI_NVM_EXPRESS_PASS_THRU_MODE;

#define NVME_ADMIN_QUEUE 0x00
#define NVME_IO_QUEUE 0x01

#define CDW2_VALID 0x01
#define CDW3_VALID 0x02
#define CDW10_VALID 0x04
#define CDW11_VALID 0x08
#define CDW12_VALID 0x10
#define CDW13_VALID 0x20
#define CDW14_VALID 0x40
#define CDW15_VALID 0x80

typedef struct {
  UINT32 Cdw0;  // opcode in bits 7:0, fused operation in bits 9:8
  UINT8 Flags;  // CDWn_VALID bits
  UINT32 Nsid;
  UINT32 Cdw2;
  UINT32 Cdw3;
  UINT32 Cdw10;
  UINT32 Cdw11;
  UINT32 Cdw12;
  UINT32 Cdw13;
  UINT32 Cdw14;
  UINT32 Cdw15;
} EFI_NVM_EXPRESS_COMMAND;

typedef struct {
  UINT32 DW0;
  UINT32 DW1;
  UINT32 DW2;
  UINT32 DW3;
} EFI_NVM_EXPRESS_COMPLETION;

typedef struct {
  UINT64 CommandTimeout;  // units of 100 ns, 0 waits forever
  VOID *TransferBuffer;
  UINT32 TransferLength;
  VOID *MetadataBuffer;
  UINT32 MetadataLength;
  UINT8 QueueType;
  EFI_NVM_EXPRESS_COMMAND *NvmeCmd;
  EFI_NVM_EXPRESS_COMPLETION *NvmeCompletion;
} EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET;

typedef struct EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL;
typedef EFI_STATUS(EFIAPI *EFI_NVM_EXPRESS_PASS_THRU_PASSTHRU)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This,
                                                              UINT32 NamespaceId,
                                                              EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET *Packet,
                                                              EFI_EVENT Event);
typedef EFI_STATUS(EFIAPI *EFI_NVM_EXPRESS_PASS_THRU_GET_NEXT_NAMESPACE)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This,
                                                                        UINT32 *NamespaceId);
typedef EFI_STATUS(EFIAPI *EFI_NVM_EXPRESS_PASS_THRU_BUILD_DEVICE_PATH)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This,
                                                                       UINT32 NamespaceId,
                                                                       EFI_DEVICE_PATH_PROTOCOL **DevicePath);
typedef EFI_STATUS(EFIAPI *EFI_NVM_EXPRESS_PASS_THRU_GET_NAMESPACE)(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL *This,
                                                                   EFI_DEVICE_PATH_PROTOCOL *DevicePath,
                                                                   UINT32 *NamespaceId);
struct EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL {
  EFI_NVM_EXPRESS_PASS_THRU_MODE *Mode;
  EFI_NVM_EXPRESS_PASS_THRU_PASSTHRU PassThru;
  EFI_NVM_EXPRESS_PASS_THRU_GET_NEXT_NAMESPACE GetNextNamespace;
  EFI_NVM_EXPRESS_PASS_THRU_BUILD_DEVICE_PATH BuildDevicePath;
  EFI_NVM_EXPRESS_PASS_THRU_GET_NAMESPACE GetNamespace;
};

// Identify (admin opcode 0x06) with CNS 1 returns the 4096-byte controller
// data structure.
#define NVME_ADMIN_IDENTIFY_CMD 0x06
#define NVME_IDENTIFY_CNS_CONTROLLER 1
#define NVME_IDENTIFY_DATA_SIZE 4096
#define NVME_ID_SERIAL_NUMBER_OFFSET 4
#define NVME_ID_SERIAL_NUMBER_SIZE 20
#define NVME_ID_MODEL_NUMBER_OFFSET 24
#define NVME_ID_MODEL_NUMBER_SIZE 40
#define NVME_ID_FIRMWARE_REVISION_OFFSET 64
#define NVME_ID_FIRMWARE_REVISION_SIZE 8
#define NVME_ID_TNVMCAP_OFFSET 280  // 16 bytes, little endian

// Vendor NVMe controller protocol: the controller's cached Identify data and
// its namespaces.
typedef struct {
  UINT32 NamespaceId;
  UINT32 BlockSize;   // bytes per logical block
  UINT64 BlockCount;
} QOR_NVME_NAMESPACE_INFO;
typedef struct {
  UINT64 Revision;
  UINT8 *IdentifyControllerData;  // NVME_IDENTIFY_DATA_SIZE bytes
  UINT32 NamespaceCount;
  QOR_NVME_NAMESPACE_INFO *Namespaces;
} QOR_VENDOR_NVME_CONTROLLER_PROTOCOL;

#endif  // QOR_PLATFORM_NVME_H_
