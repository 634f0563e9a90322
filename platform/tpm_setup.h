// TPM settings kept by the platform's setup configuration in the "Setup"
// variable, and the TPM interface register probed for a device. Byte offsets
// are fixed by the platform's setup layout; the driver and the emulator both
// use these.
#ifndef QOR_PLATFORM_TPM_SETUP_H_
#define QOR_PLATFORM_TPM_SETUP_H_

// The driver reads "Setup" into a buffer of this many bytes; a larger
// variable cannot be read.
#define QOR_SETUP_VARIABLE_READ_SIZE 275

// One byte each.
#define QOR_SETUP_TPM_ENABLE 14
#define QOR_SETUP_TPM_OPERATION 15
#define QOR_SETUP_TPM_ENA_DISABLE 16
#define QOR_SETUP_TPM_ACT_DEACT 17
#define QOR_SETUP_TPM_OWNED_UNOWNED 18
#define QOR_SETUP_TPM_SUPPORT 19
#define QOR_SETUP_TCG_SUPPORT_ENABLED 20
#define QOR_SETUP_TCM_SUPPORT_ENABLED 21
#define QOR_SETUP_TPM_AUTHENTICATE 23
#define QOR_SETUP_TPM_ERROR 25
#define QOR_SETUP_TPM20_DEVICE 26
#define QOR_SETUP_TCG2_SPEC_VERSION 27
#define QOR_SETUP_PLATFORM_HIERARCHY 28
#define QOR_SETUP_STORAGE_HIERARCHY 29
#define QOR_SETUP_ENDORSEMENT_HIERARCHY 30
#define QOR_SETUP_INTERFACE_SEL 31
#define QOR_SETUP_DEVICE_TYPE 32
#define QOR_SETUP_RESERVED3 33
#define QOR_SETUP_TPM_TCM_DEVICE_TYPE 46
// Four PCR bank bytes; bank k (0 to 3) counts as enabled when its byte has
// bit k set, so the bank mask is the OR of (byte k AND (1 << k)).
#define QOR_SETUP_PCR_BANK_FIRST 39
#define QOR_SETUP_PCR_BANK_COUNT 4

// Locality-0 access register of the TPM interface; it reads all ones when
// no device answers.
#define QOR_TPM_ACCESS_REGISTER_ADDRESS 0xFED40000ULL
#define QOR_TPM_NO_DEVICE 0xFF

#endif  // QOR_PLATFORM_TPM_SETUP_H_
