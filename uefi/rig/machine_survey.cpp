// What the emulated machine has, read through the firmware's own services:
// processors (MP services), PCI functions (PCI I/O), memory devices and the
// host's OEM strings (SMBIOS), SATA drives (disk information). Everything
// the rig supplies to the driver is derived from this survey.
#include "platform/base_lib.h"
#include "platform/device_path_lib.h"
#include "platform/guids.h"
#include "platform/pci_io.h"
#include "platform/smbios.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig.h"
#include "uefi/rig/rig_protocols.h"
#include "uefi/rig/serial_channel.h"

namespace {

CONST EFI_GUID kMpServicesGuid = QOR_MP_SERVICES_PROTOCOL_GUID;
CONST EFI_GUID kDiskInfoGuid = QOR_DISK_INFO_PROTOCOL_GUID;
CONST EFI_GUID kDiskInfoAhciGuid = QOR_DISK_INFO_AHCI_INTERFACE_GUID;

constexpr UINTN kMaxProcessors = 1024;
constexpr UINTN kMaxCapabilities = 48;  // a capability list longer than this is looping
constexpr UINT8 kPciExpressCapabilityId = 0x10;
constexpr UINT16 kSlotImplemented = 0x0100;

VOID Cpuid(UINT32 Leaf, UINT32 *Eax, UINT32 *Ebx, UINT32 *Ecx, UINT32 *Edx) {
  __asm__ __volatile__("cpuid" : "=a"(*Eax), "=b"(*Ebx), "=c"(*Ecx), "=d"(*Edx) : "a"(Leaf), "c"(0));
}

VOID SurveyProcessors(QOR_RIG_MACHINE *Machine) {
  UINT32 Eax, Ebx, Ecx, Edx;
  Cpuid(1, &Eax, &Ebx, &Ecx, &Edx);
  Machine->CpuidSignature = Eax;
  Machine->Sockets = 1;
  Machine->Processors = 1;

  EFI_MP_SERVICES_PROTOCOL *Mp = nullptr;
  if (EFI_ERROR(QorLocateProtocol(&kMpServicesGuid, (VOID **)&Mp)) || Mp == nullptr) {
    QorRigWarn("no MP services: one socket assumed");
    return;
  }
  UINTN Count = 0, Enabled = 0;
  if (EFI_ERROR(Mp->GetNumberOfProcessors(Mp, &Count, &Enabled)) || Count == 0) return;
  if (Count > kMaxProcessors) Count = kMaxProcessors;
  Machine->Processors = (UINT32)Count;

  // Packages are counted as distinct numbers; QEMU numbers them 0..N-1.
  static UINT32 Packages[kMaxProcessors];
  UINTN PackageCount = 0;
  for (UINTN I = 0; I < Count; I++) {
    EFI_PROCESSOR_INFORMATION Info;
    QorZeroMem(&Info, sizeof(Info));
    if (EFI_ERROR(Mp->GetProcessorInfo(Mp, I, &Info))) continue;
    BOOLEAN Seen = FALSE;
    for (UINTN P = 0; P < PackageCount; P++) Seen = Seen || Packages[P] == Info.Location.Package;
    if (!Seen) Packages[PackageCount++] = Info.Location.Package;
  }
  if (PackageCount > 0) Machine->Sockets = (UINT32)PackageCount;
}

// Offset of the PCI Express capability, 0 when there is none.
UINT8 FindPciExpressCapability(EFI_PCI_IO_PROTOCOL *PciIo) {
  UINT8 Status = 0;
  if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, 0x06, 1, &Status)) || (Status & 0x10) == 0) return 0;
  UINT8 Pointer = 0;
  PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, 0x34, 1, &Pointer);
  for (UINTN Step = 0; Step < kMaxCapabilities && Pointer >= 0x40; Step++) {
    Pointer &= 0xFC;
    UINT8 Header[2] = {0, 0};
    if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Pointer, 2, Header))) return 0;
    if (Header[0] == kPciExpressCapabilityId) return Pointer;
    Pointer = Header[1];
  }
  return 0;
}

VOID SurveyPci(QOR_RIG_MACHINE *Machine) {
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  Machine->PciCount = 0;
  if (EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&gEfiPciIoProtocolGuid, nullptr, &Count, &Handles))) {
    QorRigWarn("no PCI I/O handles");
    return;
  }
  for (UINTN I = 0; I < Count && Machine->PciCount < QOR_RIG_MAX_PCI_FUNCTIONS; I++) {
    EFI_PCI_IO_PROTOCOL *PciIo = nullptr;
    if (EFI_ERROR(gBS->HandleProtocol(Handles[I], (EFI_GUID *)&gEfiPciIoProtocolGuid, (VOID **)&PciIo))) continue;
    UINTN Segment, Bus, Device, Function;
    if (EFI_ERROR(PciIo->GetLocation(PciIo, &Segment, &Bus, &Device, &Function))) continue;
    UINT8 Header[64];
    if (EFI_ERROR(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, 0, sizeof(Header), Header))) continue;

    QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[Machine->PciCount++];
    QorZeroMem(F, sizeof(*F));
    F->Handle = Handles[I];
    F->Segment = (UINT16)Segment;
    F->Bus = (UINT8)Bus;
    F->Device = (UINT8)Device;
    F->Function = (UINT8)Function;
    F->VendorId = (UINT16)(Header[0] | Header[1] << 8);
    F->DeviceId = (UINT16)(Header[2] | Header[3] << 8);
    F->SubClass = Header[0x0A];
    F->BaseClass = Header[0x0B];
    F->HeaderType = Header[0x0E] & 0x7F;
    if (F->HeaderType == 1) {
      F->SecondaryBus = Header[0x19];
      F->SubordinateBus = Header[0x1A];
    }
    F->PortType = 0xFF;
    F->PhysicalSlot = QOR_RIG_NO_SLOT;
    UINT8 Cap = FindPciExpressCapability(PciIo);
    if (Cap != 0) {
      UINT16 Capabilities = 0, LinkStatus = 0;
      PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Cap + 0x02, 1, &Capabilities);
      PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Cap + 0x12, 1, &LinkStatus);
      F->PortType = (UINT8)((Capabilities >> 4) & 0xF);
      F->LinkWidth = (UINT8)((LinkStatus >> 4) & 0x3F);
      if ((Capabilities & kSlotImplemented) != 0) {
        UINT32 SlotCapabilities = 0;
        PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Cap + 0x14, 1, &SlotCapabilities);
        F->PhysicalSlot = SlotCapabilities >> 19;
      }
    }
  }
  if (Count > QOR_RIG_MAX_PCI_FUNCTIONS) QorRigWarn("%u PCI functions, only %u surveyed", (UINT32)Count, QOR_RIG_MAX_PCI_FUNCTIONS);
  gBS->FreePool(Handles);
}

// String n (1-based) of an SMBIOS record, or NULL.
CONST CHAR8 *SmbiosString(CONST EFI_SMBIOS_TABLE_HEADER *Record, UINTN Number) {
  if (Number == 0) return nullptr;
  CONST CHAR8 *Text = (CONST CHAR8 *)Record + Record->Length;
  for (UINTN N = 1; *Text != '\0'; N++) {
    if (N == Number) return Text;
    Text += QorAsciiStrLen(Text) + 1;
  }
  return nullptr;
}

VOID SurveySmbios(QOR_RIG_MACHINE *Machine) {
  EFI_SMBIOS_PROTOCOL *Smbios = nullptr;
  if (EFI_ERROR(QorLocateProtocol(&gEfiSmbiosProtocolGuid, (VOID **)&Smbios)) || Smbios == nullptr) return;
  EFI_SMBIOS_HANDLE Handle = SMBIOS_HANDLE_PI_RESERVED;
  EFI_SMBIOS_TABLE_HEADER *Record = nullptr;
  BOOLEAN HaveSpeed = FALSE;
  for (UINTN Guard = 0; Guard < 4096; Guard++) {
    if (EFI_ERROR(Smbios->GetNext(Smbios, &Handle, nullptr, &Record, nullptr))) break;
    EFI_SMBIOS_TYPE Type = Record->Type;
    CONST UINT8 *Bytes = (CONST UINT8 *)Record;
    if (Type == SMBIOS_TYPE_PROCESSOR_INFORMATION && !HaveSpeed && Record->Length > SMBIOS_TYPE4_MAX_SPEED + 1) {
      Machine->MaxSpeedMhz = (UINT32)(Bytes[SMBIOS_TYPE4_MAX_SPEED] | Bytes[SMBIOS_TYPE4_MAX_SPEED + 1] << 8);
      HaveSpeed = TRUE;
    }
    if (Type == SMBIOS_TYPE_MEMORY_DEVICE && Record->Length > SMBIOS_TYPE17_SIZE + 1) {
      UINT16 Size = (UINT16)(Bytes[SMBIOS_TYPE17_SIZE] | Bytes[SMBIOS_TYPE17_SIZE + 1] << 8);
      if (Size != 0 && Size != 0xFFFF) Machine->Dimms++;
    }
  }
}

// ATA IDENTIFY text: words of two characters, the first in the high byte.
VOID IdentifyText(CONST UINT16 *Words, UINTN FirstWord, UINTN WordCount, CHAR8 *Out, UINTN OutSize) {
  UINTN N = 0;
  for (UINTN W = 0; W < WordCount && N + 2 < OutSize; W++) {
    Out[N++] = (CHAR8)(Words[FirstWord + W] >> 8);
    Out[N++] = (CHAR8)(Words[FirstWord + W] & 0xFF);
  }
  while (N > 0 && Out[N - 1] == ' ') N--;
  Out[N] = '\0';
}

// The AHCI port from a SATA node of the drive's device path.
BOOLEAN SataPort(EFI_HANDLE Handle, UINT8 *Port) {
  EFI_DEVICE_PATH_PROTOCOL *Node = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&Node))) return FALSE;
  for (; !QorIsDevicePathEnd(Node); Node = QorNextDevicePathNode(Node)) {
    if (Node->Type == MESSAGING_DEVICE_PATH && Node->SubType == MSG_SATA_DP &&
        QorDevicePathNodeLength(Node) >= sizeof(SATA_DEVICE_PATH)) {
      *Port = (UINT8)((SATA_DEVICE_PATH *)Node)->HBAPortNumber;
      return TRUE;
    }
  }
  return FALSE;
}

VOID SurveySata(QOR_RIG_MACHINE *Machine) {
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  Machine->SataCount = 0;
  if (EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&kDiskInfoGuid, nullptr, &Count, &Handles))) return;
  for (UINTN I = 0; I < Count && Machine->SataCount < QOR_RIG_MAX_SATA_DRIVES; I++) {
    EFI_DISK_INFO_PROTOCOL *DiskInfo = nullptr;
    if (EFI_ERROR(gBS->HandleProtocol(Handles[I], (EFI_GUID *)&kDiskInfoGuid, (VOID **)&DiskInfo))) continue;
    if (!QorCompareGuid(&DiskInfo->Interface, &kDiskInfoAhciGuid)) continue;
    UINT16 Identify[256];
    UINT32 Size = sizeof(Identify);
    UINT8 Port = 0;
    if (EFI_ERROR(DiskInfo->Identify(DiskInfo, Identify, &Size)) || Size < sizeof(Identify)) continue;
    if (!SataPort(Handles[I], &Port)) continue;
    QOR_RIG_SATA_DRIVE *Drive = &Machine->Sata[Machine->SataCount++];
    Drive->Port = Port;
    IdentifyText(Identify, 27, 20, Drive->Model, sizeof(Drive->Model));
    IdentifyText(Identify, 10, 10, Drive->Serial, sizeof(Drive->Serial));
    IdentifyText(Identify, 23, 4, Drive->Firmware, sizeof(Drive->Firmware));
    Drive->Sectors = (UINT64)Identify[100] | (UINT64)Identify[101] << 16 | (UINT64)Identify[102] << 32 |
                     (UINT64)Identify[103] << 48;
    Drive->SolidState = Identify[217] == 1;
  }
  gBS->FreePool(Handles);
}

}  // namespace

VOID QorRigReadConfig(QOR_RIG_CONFIG *Config) {
  QorZeroMem(Config, sizeof(*Config));
  EFI_SMBIOS_PROTOCOL *Smbios = nullptr;
  if (EFI_ERROR(QorLocateProtocol(&gEfiSmbiosProtocolGuid, (VOID **)&Smbios)) || Smbios == nullptr) return;
  EFI_SMBIOS_HANDLE Handle = SMBIOS_HANDLE_PI_RESERVED;
  EFI_SMBIOS_TYPE Type = 11;  // OEM strings
  EFI_SMBIOS_TABLE_HEADER *Record = nullptr;
  for (UINTN Guard = 0; Guard < 256; Guard++) {
    if (EFI_ERROR(Smbios->GetNext(Smbios, &Handle, &Type, &Record, nullptr))) break;
    UINT8 StringCount = Record->Length > 4 ? ((CONST UINT8 *)Record)[4] : 0;
    for (UINTN S = 1; S <= StringCount; S++) {
      CONST CHAR8 *Text = SmbiosString(Record, S);
      CONST CHAR8 *Prefix = "qor-rig:";
      if (Text == nullptr || QorAsciiStrStr(Text, Prefix) != Text) continue;
      Text += QorAsciiStrLen(Prefix);
      if (QorAsciiStrStr(Text, "customer-id=") == Text) {
        UINT32 Value = 0;
        for (CONST CHAR8 *D = Text + 12; *D >= '0' && *D <= '9'; D++) Value = Value * 10 + (UINT32)(*D - '0');
        Config->CustomerId = (UINT8)Value;
      } else if (QorAsciiStrCmp(Text, "jd-nic=1") == 0) {
        Config->PresentJdNic = TRUE;
      } else {
        QorRigWarn("unknown OEM string qor-rig:%a", Text);
      }
    }
  }
}

VOID QorRigSurveyMachine(QOR_RIG_MACHINE *Machine) {
  QorZeroMem(Machine, sizeof(*Machine));
  SurveyProcessors(Machine);
  SurveyPci(Machine);
  SurveySmbios(Machine);
  SurveySata(Machine);
}

UINT32 QorRigSlotAbove(CONST QOR_RIG_MACHINE *Machine, CONST QOR_RIG_PCI_FUNCTION *Function) {
  UINT16 Segment = Function->Segment;
  UINT8 Bus = Function->Bus;
  // Each step goes to the bridge whose secondary bus is this bus; the tree
  // is at most 256 buses deep.
  for (UINTN Step = 0; Step < 256; Step++) {
    CONST QOR_RIG_PCI_FUNCTION *Parent = nullptr;
    for (UINTN I = 0; I < Machine->PciCount; I++) {
      CONST QOR_RIG_PCI_FUNCTION *F = &Machine->Pci[I];
      if (F->HeaderType == 1 && F->Segment == Segment && F->SecondaryBus == Bus && F->SecondaryBus != F->Bus) {
        Parent = F;
        break;
      }
    }
    if (Parent == nullptr) return QOR_RIG_NO_SLOT;
    if (Parent->PhysicalSlot != QOR_RIG_NO_SLOT) return Parent->PhysicalSlot;
    Bus = Parent->Bus;
  }
  return QOR_RIG_NO_SLOT;
}
