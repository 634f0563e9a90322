// Parsing of the TPM, SATA and BMC transport members of a board
// (docs/board-storage-tpm.md).
#include "emulator/board_storage_tpm.h"

#include <algorithm>
#include <cstring>

#include "emulator/board.h"
#include "emulator/board_json.h"
#include "platform/custom_protocol.h"
#include "platform/guids.h"
#include "platform/system_information.h"
#include "platform/tpm_setup.h"

namespace qor::emu {

// TPM, SATA, BMC transport.

// A text stored NUL-terminated in a field of Width bytes.
std::string FieldText(const JsonField &Field, size_t Width) {
  std::string Text = Field.String();
  if (Text.size() >= Width) Field.Fail("a text of at most " + std::to_string(Width - 1) + " characters");
  return Text;
}

void ParseSataDrives(const JsonField &Drives, SystemInformationDef *Def) {
  auto Elements = Drives.Elements();
  if (Elements.size() > QOR_SYSINFO_SATA_DRIVES_MAX) {
    Drives.Fail("at most " + std::to_string(QOR_SYSINFO_SATA_DRIVES_MAX) + " drive entries");
  }
  Def->SataDrives.clear();
  for (const JsonField &Entry : Elements) {
    Entry.AllowOnly({"present", "portIndex", "model", "firmware", "capacity", "speed", "mediaType", "formFactor",
                     "serial"});
    QOR_SATA_DRIVE_ENTRY Layout;
    SataDriveDef Drive;
    if (auto Present = Entry.Optional("present")) {
      Drive.Present = Present->Raw().IsBool() ? (Present->Bool() ? 1 : 0) : static_cast<uint8_t>(Present->Uint(255));
    }
    if (auto Port = Entry.Optional("portIndex")) Drive.PortIndex = static_cast<uint8_t>(Port->Uint(255));
    if (auto Model = Entry.Optional("model")) Drive.Model = FieldText(*Model, sizeof(Layout.Model));
    if (auto Firmware = Entry.Optional("firmware")) Drive.Firmware = FieldText(*Firmware, sizeof(Layout.FwVersion));
    if (auto Capacity = Entry.Optional("capacity")) Drive.Capacity = FieldText(*Capacity, sizeof(Layout.Capacity));
    if (auto Speed = Entry.Optional("speed")) Drive.SpeedIndex = static_cast<uint8_t>(Speed->Uint(255));
    if (auto Media = Entry.Optional("mediaType")) {
      if (Media->IsString() && (Media->String() == "SSD" || Media->String() == "HDD")) {
        Drive.MediaType = Media->String() == "SSD" ? QOR_SATA_MEDIA_SSD : 2;
      } else {
        Drive.MediaType = static_cast<uint16_t>(Media->Uint(0xFFFF));
      }
    }
    if (auto Form = Entry.Optional("formFactor")) Drive.FormFactor = static_cast<uint16_t>(Form->Uint(0xFFFF));
    if (auto Serial = Entry.Optional("serial")) Drive.Serial = FieldText(*Serial, sizeof(Layout.SerialNumber));
    Def->SataDrives.push_back(Drive);
  }
}

void ParseCustomProtocol(const JsonField &Custom, Board *Out) {
  Custom.AllowOnly({"sataPorts", "m2Names"});
  if (auto Names = Custom.Optional("m2Names")) {
    auto Elements = Names->Elements();
    if (Elements.size() > 3) Names->Fail("at most 3 names: slot 251, slot 252 first and second choice");
    Out->CustomProtocol.M2Names.clear();
    for (const JsonField &Name : Elements) Out->CustomProtocol.M2Names.push_back(FieldText(Name, QOR_CUSTOM_M2_NAME_SIZE));
  }
  if (auto Ports = Custom.Optional("sataPorts")) {
    auto Elements = Ports->Elements();
    if (Elements.size() > QOR_CUSTOM_SATA_PORT_COUNT) {
      Ports->Fail("at most " + std::to_string(QOR_CUSTOM_SATA_PORT_COUNT) + " port records");
    }
    Out->CustomProtocol.SataPorts.clear();
    for (const JsonField &Entry : Elements) {
      Entry.AllowOnly({"portIndex", "slot"});
      SataPortDef Port;
      Port.PortIndex = static_cast<uint8_t>(Entry.At("portIndex").Uint(255));
      if (auto Slot = Entry.Optional("slot")) Port.Slot = FieldText(*Slot, QOR_SATA_SLOT_NAME_SIZE);
      Out->CustomProtocol.SataPorts.push_back(Port);
    }
  }
}

void ParseIpmi(const JsonField &Ipmi, Board *Out) {
  Ipmi.AllowOnly({"response", "status"});
  if (auto Response = Ipmi.Optional("response")) Out->Ipmi.Response = Response->Bytes();
  if (auto Status = Ipmi.Optional("status")) Out->Ipmi.Status = Status->Status();
}

namespace {

// TPM settings bytes of the "Setup" variable by their board names.
struct SetupByteName {
  const char *Name;
  size_t Offset;
};
const SetupByteName kSetupTpmBytes[] = {
    {"tpmEnable", QOR_SETUP_TPM_ENABLE},
    {"tpmOperation", QOR_SETUP_TPM_OPERATION},
    {"tpmEnaDisable", QOR_SETUP_TPM_ENA_DISABLE},
    {"tpmActDeact", QOR_SETUP_TPM_ACT_DEACT},
    {"tpmOwnedUnowned", QOR_SETUP_TPM_OWNED_UNOWNED},
    {"tpmSupport", QOR_SETUP_TPM_SUPPORT},
    {"tcgSupportEnabled", QOR_SETUP_TCG_SUPPORT_ENABLED},
    {"tcmSupportEnabled", QOR_SETUP_TCM_SUPPORT_ENABLED},
    {"tpmAuthenticate", QOR_SETUP_TPM_AUTHENTICATE},
    {"tpmError", QOR_SETUP_TPM_ERROR},
    {"tpm20Device", QOR_SETUP_TPM20_DEVICE},
    {"tcg2SpecVersion", QOR_SETUP_TCG2_SPEC_VERSION},
    {"platformHierarchy", QOR_SETUP_PLATFORM_HIERARCHY},
    {"storageHierarchy", QOR_SETUP_STORAGE_HIERARCHY},
    {"endorsementHierarchy", QOR_SETUP_ENDORSEMENT_HIERARCHY},
    {"interfaceSel", QOR_SETUP_INTERFACE_SEL},
    {"deviceType", QOR_SETUP_DEVICE_TYPE},
    {"reserved3", QOR_SETUP_RESERVED3},
    {"tpmTcmDeviceType", QOR_SETUP_TPM_TCM_DEVICE_TYPE},
};
constexpr uint8_t kTpmAccessRegisterValid = 0xA1;  // valid, active locality, established

// Builds the "Setup" variable from named TPM bytes; it replaces a "Setup"
// entry of the "variables" list.
Variable ParseSetupVariable(const JsonField &Setup) {
  Setup.AllowOnly({"size", "attributes", "pcrBanks", "patches", "tpmEnable", "tpmOperation", "tpmEnaDisable",
                   "tpmActDeact", "tpmOwnedUnowned", "tpmSupport", "tcgSupportEnabled", "tcmSupportEnabled",
                   "tpmAuthenticate", "tpmError", "tpm20Device", "tcg2SpecVersion", "platformHierarchy",
                   "storageHierarchy", "endorsementHierarchy", "interfaceSel", "deviceType", "reserved3",
                   "tpmTcmDeviceType"});
  constexpr size_t kLastTpmByte = QOR_SETUP_TPM_TCM_DEVICE_TYPE;
  Variable Value;
  Value.Name = u"Setup";
  Value.Guid = gQorSetupVariableGuid;
  Value.Attributes = 0x7;
  if (auto Attributes = Setup.Optional("attributes")) Value.Attributes = static_cast<uint32_t>(Attributes->Uint(0xFFFFFFFF));
  size_t Size = QOR_SETUP_VARIABLE_READ_SIZE;
  if (auto Wanted = Setup.Optional("size")) {
    Size = Wanted->Uint(1 << 20);
    if (Size <= kLastTpmByte) Wanted->Fail("a size above " + std::to_string(kLastTpmByte) + " (the TPM bytes)");
  }
  Value.Data.assign(Size, 0);
  for (const SetupByteName &Byte : kSetupTpmBytes) {
    if (auto Field = Setup.Optional(Byte.Name)) Value.Data[Byte.Offset] = static_cast<uint8_t>(Field->Uint(255));
  }
  if (auto Banks = Setup.Optional("pcrBanks")) {
    uint64_t Mask = Banks->Uint((1U << QOR_SETUP_PCR_BANK_COUNT) - 1);
    for (size_t Bank = 0; Bank < QOR_SETUP_PCR_BANK_COUNT; Bank++) {
      Value.Data[QOR_SETUP_PCR_BANK_FIRST + Bank] = static_cast<uint8_t>(Mask & (1U << Bank));
    }
  }
  if (auto Patches = Setup.Optional("patches")) {
    for (const JsonField &Entry : Patches->Elements()) {
      Entry.AllowOnly({"offset", "bytes"});
      uint64_t Offset = Entry.At("offset").Uint(Size - 1);
      std::vector<uint8_t> Bytes = Entry.At("bytes").Bytes();
      if (Offset + Bytes.size() > Size) Entry.Fail("bytes that end inside the " + std::to_string(Size) + "-byte variable");
      std::copy(Bytes.begin(), Bytes.end(), Value.Data.begin() + static_cast<std::ptrdiff_t>(Offset));
    }
  }
  return Value;
}

}  // namespace

void ParseTpm(const JsonField &Tpm, Board *Out) {
  Tpm.AllowOnly({"present", "accessRegister", "setup"});
  auto Present = Tpm.Optional("present");
  auto Access = Tpm.Optional("accessRegister");
  if (Present || Access) {
    bool HasDevice = Present ? Present->Bool() : true;
    uint8_t Byte = Access ? static_cast<uint8_t>(Access->Uint(255)) : kTpmAccessRegisterValid;
    Out->MmioBytes[QOR_TPM_ACCESS_REGISTER_ADDRESS] = HasDevice ? Byte : QOR_TPM_NO_DEVICE;
  }
  if (auto Setup = Tpm.Optional("setup")) {
    if (Setup->IsNull()) return;
    Variable Value = ParseSetupVariable(*Setup);
    auto &Variables = Out->Variables;
    Variables.erase(std::remove_if(Variables.begin(), Variables.end(),
                                   [&](const Variable &V) {
                                     return V.Name == Value.Name &&
                                            std::memcmp(&V.Guid, &Value.Guid, sizeof(EFI_GUID)) == 0;
                                   }),
                    Variables.end());
    Variables.push_back(std::move(Value));
  }
}

}  // namespace qor::emu
