// Platform values the rig gives the driver where QEMU has nothing to read
// them from. The host checks expect exactly these.
#ifndef QOR_UEFI_RIG_RIG_PLATFORM_VALUES_H_
#define QOR_UEFI_RIG_RIG_PLATFORM_VALUES_H_

// Version texts behind the PCD tokens of the BiosVersion section.
#define QOR_RIG_PCD_CODE_TEXT "QEMU-OVMF"
#define QOR_RIG_PCD_INT_VERSION_TEXT "RIG-1.0"
#define QOR_RIG_PCD_EXT_VERSION_TEXT "1.0.0"
#define QOR_RIG_PCD_EXT_VERSION_ALT_TEXT "1.0.0-C17"
#define QOR_RIG_PCD_HIDE_VERSION_TEXT "R1"

// Ports of the q35 machine's AHCI controller.
#define QOR_RIG_MAX_SATA 6

// SATA drive entries: form factor code of every drive (2.5 inch).
#define QOR_RIG_SATA_FORM_FACTOR 3

// M.2 socket names of the board description (slot 251, then slot 252's
// second choice; its first choice is empty).
#define QOR_RIG_M2_SLOT251_NAME "M2_SLOT0"
#define QOR_RIG_M2_SLOT252_NAME "M2_SLOT1"

// Flash identification the Spi protocol reports: a 256 Mbit SPI NOR part's
// JEDEC bytes, in keeping with the fixed "32MB" size text.
#define QOR_RIG_FLASH_ID_BYTES {0xEF, 0x40, 0x19, 0x00}
#define QOR_RIG_FLASH_ID 0xEF4019

// Thermal design power the CPU power protocol reports for every socket (W).
#define QOR_RIG_SOCKET_TDP 205
// Chop type the system topology data gives every valid socket.
#define QOR_RIG_CHOP_TYPE 3

// PPIN of socket s: QOR_RIG_PPIN_BASE + s ("QRIG" in the upper half).
#define QOR_RIG_PPIN_BASE 0x5152494700000000ULL

// Installed DIMMs (one per SMBIOS memory device record): DDR5 registered
// modules; training passed, certification byte as below.
#define QOR_RIG_DIMM_MODULE_TYPE 1  // RDIMM
#define QOR_RIG_DIMM_VENDOR_ID 0x80CE
#define QOR_RIG_DIMM_CERTIFICATION 1
#define QOR_RIG_DDR_VOLTAGE 1

// IIO topology: kind of every root port (neither a PCH port, 2, nor the
// kind without switch levels, 3: the switch-level rules apply).
#define QOR_RIG_IIO_PORT_KIND 1

// IIO port HOB: bifurcation code of every stack (0 shows letter A only).
#define QOR_RIG_IIO_BIFURCATION 0

// "Setup" variable: the TPM bytes the rig writes (a TPM 2.0 device enabled,
// SHA-256 bank only); every other byte is 0.
#define QOR_RIG_SETUP_TPM_SUPPORT 1
#define QOR_RIG_SETUP_TPM_ENABLE 1
#define QOR_RIG_SETUP_TPM20_DEVICE 1
#define QOR_RIG_SETUP_PCR_SHA256 1  // byte 40 (bank 1) carries bit 1

#endif  // QOR_UEFI_RIG_RIG_PLATFORM_VALUES_H_
