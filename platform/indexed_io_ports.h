// The index/data I/O port trio: the index goes to two byte ports (low, then
// high) and the selected byte is read from the data port.
#ifndef QOR_PLATFORM_INDEXED_IO_PORTS_H_
#define QOR_PLATFORM_INDEXED_IO_PORTS_H_

#define QOR_INDEXED_IO_INDEX_LOW_PORT 0x1500
#define QOR_INDEXED_IO_INDEX_HIGH_PORT 0x1501
#define QOR_INDEXED_IO_DATA_PORT 0x1502

#endif  // QOR_PLATFORM_INDEXED_IO_PORTS_H_
