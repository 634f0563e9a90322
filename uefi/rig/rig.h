// The firmware test rig's loader: a UEFI application started by OVMF from
// EFI/BOOT/BOOTX64.EFI. It reads the machine QEMU emulates, supplies the
// platform pieces OVMF lacks (HOBs, PCDs, platform protocols, the json,
// quick trans and debug print services), loads QorUploadDataDxe.efi from its
// own volume, installs the trigger protocols in the boot's order and sends
// everything the driver produced to the host over the second serial port.
#ifndef QOR_UEFI_RIG_RIG_H_
#define QOR_UEFI_RIG_RIG_H_

#include "platform/uefi_tables.h"

#define QOR_RIG_VERSION "qor-rig 1"

// ---- what the host asks for: SMBIOS OEM strings (type 11) "qor-rig:KEY=VALUE"
typedef struct {
  UINT8 CustomerId;       // "customer-id", default 0
  // "jd-nic=1": the first modern virtio-net function (1AF4:1041) reads
  // with the subsystem ids of the JD customer's network card.
  BOOLEAN PresentJdNic;
} QOR_RIG_CONFIG;

// ---- what the machine has, read from the firmware's own services
#define QOR_RIG_MAX_PCI_FUNCTIONS 256
#define QOR_RIG_NO_SLOT 0xFFFFFFFFU

typedef struct {
  EFI_HANDLE Handle;
  UINT16 Segment;
  UINT8 Bus;
  UINT8 Device;
  UINT8 Function;
  UINT16 VendorId;
  UINT16 DeviceId;
  UINT8 BaseClass;
  UINT8 SubClass;
  UINT8 HeaderType;     // bits 6:0
  UINT8 PortType;       // PCI Express device/port type, 0xFF without the capability
  UINT8 SecondaryBus;   // bridges only
  UINT8 SubordinateBus;
  UINT32 PhysicalSlot;  // Slot Capabilities of a port with a slot, else QOR_RIG_NO_SLOT
  UINT8 LinkWidth;      // negotiated width (Link Status), 0 without the capability
} QOR_RIG_PCI_FUNCTION;

#define QOR_RIG_PCIE_PORT_TYPE_ROOT_PORT 4
#define QOR_RIG_PCIE_PORT_TYPE_SWITCH_UPSTREAM 5
#define QOR_RIG_PCIE_PORT_TYPE_SWITCH_DOWNSTREAM 6

#define QOR_RIG_MAX_SATA_DRIVES 8

typedef struct {
  UINT8 Port;  // AHCI port number
  CHAR8 Model[41];
  CHAR8 Serial[21];
  CHAR8 Firmware[9];
  UINT64 Sectors;
  BOOLEAN SolidState;  // nominal media rotation rate 1
} QOR_RIG_SATA_DRIVE;

typedef struct {
  UINT32 Sockets;             // distinct packages of the MP services
  UINT32 Processors;          // logical processors
  UINT32 MaxSpeedMhz;         // SMBIOS type 4 maximum speed of the first socket
  UINT32 Dimms;               // SMBIOS type 17 records of installed memory
  UINT32 CpuidSignature;      // CPUID leaf 1 EAX
  UINTN PciCount;
  QOR_RIG_PCI_FUNCTION Pci[QOR_RIG_MAX_PCI_FUNCTIONS];
  UINTN SataCount;
  QOR_RIG_SATA_DRIVE Sata[QOR_RIG_MAX_SATA_DRIVES];
} QOR_RIG_MACHINE;

// Reads the OEM strings; unknown keys are reported as warnings.
VOID QorRigReadConfig(QOR_RIG_CONFIG *Config);
// Fills Machine from the MP services, PCI I/O, SMBIOS and disk information.
VOID QorRigSurveyMachine(QOR_RIG_MACHINE *Machine);
// The function's slot: the physical slot number of the nearest port above
// it that implements a slot, QOR_RIG_NO_SLOT when there is none.
UINT32 QorRigSlotAbove(CONST QOR_RIG_MACHINE *Machine, CONST QOR_RIG_PCI_FUNCTION *Function);

// ---- the platform pieces, installed before the driver is loaded
EFI_STATUS QorRigInstallHobList(CONST QOR_RIG_MACHINE *Machine);
EFI_STATUS QorRigInstallPcdProtocols(CONST QOR_RIG_CONFIG *Config, CONST QOR_RIG_MACHINE *Machine);
EFI_STATUS QorRigInstallPlatformData(CONST QOR_RIG_MACHINE *Machine);
EFI_STATUS QorRigInstallNicDatabase(CONST QOR_RIG_MACHINE *Machine);
EFI_STATUS QorRigInstallCpuCsrAccess(VOID);
EFI_STATUS QorRigInstallBmcServices(VOID);  // json, quick trans, Spi, debug print
EFI_STATUS QorRigSetSetupVariable(VOID);
EFI_STATUS QorRigPresentJdNic(CONST QOR_RIG_MACHINE *Machine);

// ---- the driver under test
// Code addresses inside the loaded driver image: calls made from there are
// the driver's (pool use, variables, resets, PCD reads).
VOID QorRigSetDriverImage(CONST VOID *Base, UINT64 Size);
BOOLEAN QorRigCalledFromDriver(CONST VOID *ReturnAddress);
// Wraps AllocatePool/FreePool, SetVariable and ResetSystem so that the
// driver's use of them is counted and reported.
EFI_STATUS QorRigMeterServices(VOID);
VOID QorRigReportPoolUse(VOID);
// Powers the machine off (not reported as a reset).
VOID QorRigShutdown(VOID);

// Installs Interface on a new handle.
EFI_STATUS QorRigInstallOnNewHandle(CONST EFI_GUID *Guid, VOID *Interface);

// TSC of the driver's first send of the inventory document (0 until then).
UINT64 QorRigInventoryUploadTsc(VOID);

#endif  // QOR_UEFI_RIG_RIG_H_
