// The rig's channel to the host: records ("frames") written to the second
// serial port of the machine, decoded on the host into the files the BMC
// would have received, the debug log and the boot report. The layout is
// shared by the firmware side (uefi/rig) and the host decoder (tests/firmware).
//
// A frame, all numbers little-endian:
//   offset 0   "QRIG"                 magic
//   offset 4   UINT8  Kind            one of QOR_RIG_FRAME_*
//   offset 5   UINT8  Reserved (0)
//   offset 6   UINT16 NameLength
//   offset 8   UINT32 DataLength
//   offset 12  Name bytes, then Data bytes
//   then       UINT32 CRC-32 of the bytes from offset 4 to the end of Data
#ifndef QOR_UEFI_RIG_RIG_CHANNEL_H_
#define QOR_UEFI_RIG_RIG_CHANNEL_H_

#define QOR_RIG_FRAME_MAGIC "QRIG"
#define QOR_RIG_FRAME_HEADER_SIZE 12
#define QOR_RIG_FRAME_TRAILER_SIZE 4
// Larger frames are refused by both ends (the inventory document is far
// below this; a frame this size takes minutes over the emulated port).
#define QOR_RIG_FRAME_MAX_DATA (64u * 1024u * 1024u)

// The loader started (Data: the rig's version text).
#define QOR_RIG_FRAME_START 'S'
// A file sent through the quick trans protocol (Name: file name, Data: bytes).
#define QOR_RIG_FRAME_FILE 'F'
// A line printed through the debug print service (Data: UINT64 error level,
// then the text).
#define QOR_RIG_FRAME_LOG 'L'
// One boot-report value measured in the guest (Name: key, Data: value text).
#define QOR_RIG_FRAME_REPORT 'K'
// A binary snapshot taken by the rig (Name: what it is, Data: bytes).
#define QOR_RIG_FRAME_BLOB 'B'
// A SetVariable call of the driver (Name: variable name in ASCII; Data:
// EFI_GUID vendor, UINT32 attributes, UINT64 status, then the data).
#define QOR_RIG_FRAME_VARIABLE 'V'
// A ResetSystem call of the driver (Data: UINT32 reset type, UINT64 status).
// The machine resets right after it.
#define QOR_RIG_FRAME_RESET 'X'
// Something in the rig itself went wrong (Data: text).
#define QOR_RIG_FRAME_WARNING 'W'
// The loader finished and shuts the machine down.
#define QOR_RIG_FRAME_END 'E'

// Blob names.
#define QOR_RIG_BLOB_MEMORY_MAP "memory-map"  // UINT64 descriptor size, then the descriptors

#endif  // QOR_UEFI_RIG_RIG_CHANNEL_H_
