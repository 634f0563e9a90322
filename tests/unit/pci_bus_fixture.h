// A machine with only the PCI bus a test describes, reached the way the
// driver reaches it: PCI I/O handles from LocateHandleBuffer, their device
// paths, gBS->LocateDevicePath.
//
//   StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [...]}]})");
//   EFI_PCI_IO_PROTOCOL *Nic = PciIoAt(0, 2, 0, 0);
#ifndef QOR_TESTS_UNIT_PCI_BUS_FIXTURE_H_
#define QOR_TESTS_UNIT_PCI_BUS_FIXTURE_H_

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/guids.h"
#include "platform/pci_io.h"
#include "tests/unit/driver_fixture.h"

class PciBusOnEmulator : public DriverOnEmulator {
 protected:
  // Installs the platform of the built-in board with its "pci" member
  // replaced by Pci (a JSON object; members it leaves out are empty) and
  // further top-level members from Extra ("key": value, ...).
  void StartPci(const std::string &Pci, const std::string &Extra = "") {
    rapidjson::Document Given;
    Given.Parse(Pci.c_str());
    ASSERT_TRUE(Given.IsObject()) << Pci;
    for (const char *Key : {"hostBridges", "functions", "nicDb"}) {
      if (!Given.HasMember(Key)) Given.AddMember(rapidjson::StringRef(Key), rapidjson::Value(rapidjson::kArrayType), Given.GetAllocator());
    }
    if (!Given.HasMember("rootBridges")) Given.AddMember("rootBridges", rapidjson::Value(), Given.GetAllocator());
    rapidjson::StringBuffer Text;
    rapidjson::Writer<rapidjson::StringBuffer> Writer(Text);
    Given.Accept(Writer);
    Start(BoardFrom(std::string(R"({"pci": )") + Text.GetString() + (Extra.empty() ? "" : ", " + Extra) + "}"));
  }

  // The PCI I/O handles in the order LocateHandleBuffer returns them.
  std::vector<EFI_HANDLE> PciHandles() {
    UINTN Count = 0;
    EFI_HANDLE *Buffer = nullptr;
    std::vector<EFI_HANDLE> Out;
    if (gBS->LocateHandleBuffer(ByProtocol, const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), nullptr, &Count,
                                &Buffer) != EFI_SUCCESS) {
      return Out;
    }
    Out.assign(Buffer, Buffer + Count);
    gBS->FreePool(Buffer);
    return Out;
  }
  static EFI_PCI_IO_PROTOCOL *PciIoOf(EFI_HANDLE Handle) {
    void *Interface = nullptr;
    gBS->HandleProtocol(Handle, const_cast<EFI_GUID *>(&gEfiPciIoProtocolGuid), &Interface);
    return static_cast<EFI_PCI_IO_PROTOCOL *>(Interface);
  }
  static EFI_DEVICE_PATH_PROTOCOL *PathOf(EFI_HANDLE Handle) {
    void *Interface = nullptr;
    gBS->HandleProtocol(Handle, const_cast<EFI_GUID *>(&gEfiDevicePathProtocolGuid), &Interface);
    return static_cast<EFI_DEVICE_PATH_PROTOCOL *>(Interface);
  }
  static std::string Location(EFI_PCI_IO_PROTOCOL *PciIo) {
    UINTN S = 0, B = 0, D = 0, F = 0;
    PciIo->GetLocation(PciIo, &S, &B, &D, &F);
    char Text[24];
    std::snprintf(Text, sizeof(Text), "%04zx:%02zx:%02zx.%zx", S, B, D, F);
    return Text;
  }
  // The handle of a function, or nullptr.
  EFI_HANDLE HandleAt(UINTN Segment, UINTN Bus, UINTN Device, UINTN Function) {
    char Want[24];
    std::snprintf(Want, sizeof(Want), "%04zx:%02zx:%02zx.%zx", Segment, Bus, Device, Function);
    for (EFI_HANDLE Handle : PciHandles()) {
      if (Location(PciIoOf(Handle)) == Want) return Handle;
    }
    return nullptr;
  }
  EFI_PCI_IO_PROTOCOL *PciIoAt(UINTN Segment, UINTN Bus, UINTN Device, UINTN Function) {
    EFI_HANDLE Handle = HandleAt(Segment, Bus, Device, Function);
    return Handle == nullptr ? nullptr : PciIoOf(Handle);
  }

  static uint32_t Read32(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
    UINT32 Value = 0;
    EXPECT_EQ(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint32, Offset, 1, &Value), EFI_SUCCESS) << Offset;
    return Value;
  }
  static uint16_t Read16(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
    UINT16 Value = 0;
    EXPECT_EQ(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint16, Offset, 1, &Value), EFI_SUCCESS) << Offset;
    return Value;
  }
  static uint8_t Read8(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset) {
    UINT8 Value = 0;
    EXPECT_EQ(PciIo->Pci.Read(PciIo, EfiPciIoWidthUint8, Offset, 1, &Value), EFI_SUCCESS) << Offset;
    return Value;
  }
  static void Write32(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset, UINT32 Value) {
    EXPECT_EQ(PciIo->Pci.Write(PciIo, EfiPciIoWidthUint32, Offset, 1, &Value), EFI_SUCCESS) << Offset;
  }
  static void Write16(EFI_PCI_IO_PROTOCOL *PciIo, UINT32 Offset, UINT16 Value) {
    EXPECT_EQ(PciIo->Pci.Write(PciIo, EfiPciIoWidthUint16, Offset, 1, &Value), EFI_SUCCESS) << Offset;
  }

};

#endif  // QOR_TESTS_UNIT_PCI_BUS_FIXTURE_H_
