// The platform's IIO configuration as this driver reads it: the VMD bytes of
// the IIO data behind the iio sys protocol (its first member points to the
// data) and the stack entries of the IIO port HOB.
#ifndef QOR_PLATFORM_IIO_DATA_H_
#define QOR_PLATFORM_IIO_DATA_H_

#include "platform/uefi_base.h"

#define QOR_IIO_MAX_SOCKETS 4
// VMD stacks are numbered 1 to 5; stack 0 never hosts VMD.
#define QOR_IIO_VMD_FIRST_STACK 1
#define QOR_IIO_VMD_LAST_STACK 5
#define QOR_IIO_VMD_PORTS_PER_STACK 8

// VMD stack enable: one byte per socket and stack, 1 = VMD enabled.
#define QOR_IIO_VMD_STACK_ENABLE_OFFSET 6953
#define QOR_IIO_VMD_STACK_ENABLE_SOCKET_STRIDE 8
// VMD port assignment: one byte per socket, stack and port, 1 = assigned.
// Within a socket the byte sits at (Stack - 1) * 8 + 1 + Port, an index the
// platform code keeps in 8 bits.
#define QOR_IIO_VMD_PORT_ASSIGN_OFFSET 6985
#define QOR_IIO_VMD_PORT_ASSIGN_SOCKET_STRIDE 57

#define QOR_IIO_VMD_STACK_ENABLE_AT(Socket, Stack) \
  (QOR_IIO_VMD_STACK_ENABLE_OFFSET + (Socket) * QOR_IIO_VMD_STACK_ENABLE_SOCKET_STRIDE + (Stack))

static inline UINT8 QorIioVmdPortAssignIndex(UINT32 Stack, UINT32 Port) {
  return (UINT8)((Stack - 1) * QOR_IIO_VMD_PORTS_PER_STACK + 1 + Port);
}

#define QOR_IIO_VMD_PORT_ASSIGN_AT(Socket, Stack, Port) \
  (QOR_IIO_VMD_PORT_ASSIGN_OFFSET + (Socket) * QOR_IIO_VMD_PORT_ASSIGN_SOCKET_STRIDE + \
   QorIioVmdPortAssignIndex((Stack), (Port)))

// IIO port HOB: five stack entries per socket, socket 0 first.
#define QOR_IIO_STACKS_PER_SOCKET 5
#define QOR_IIO_PORT_LETTERS 8

#pragma pack(push, 1)
typedef struct {
  UINT8 Bifurcation;
  UINT8 Port[QOR_IIO_PORT_LETTERS];  // letters A to H
} QOR_IIO_PORT_HOB_ENTRY;
#pragma pack(pop)
static_assert(sizeof(QOR_IIO_PORT_HOB_ENTRY) == 9, "IIO port HOB entry");

#endif  // QOR_PLATFORM_IIO_DATA_H_
