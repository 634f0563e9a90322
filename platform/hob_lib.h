// HOB list lookup.
#ifndef QOR_PLATFORM_HOB_LIB_H_
#define QOR_PLATFORM_HOB_LIB_H_

#include "platform/hob.h"

// The HOB list from the system configuration table (NULL when absent).
VOID *QorGetHobList(VOID);
// Finds the HOB list in the configuration table; called by the constructors.
VOID QorHobLibInit(VOID);
// First GUID extension HOB with this name, or NULL. The walk stops at the
// end-of-list HOB and at a malformed (zero-length) HOB.
VOID *QorGetFirstGuidHob(CONST EFI_GUID *Guid);

#endif  // QOR_PLATFORM_HOB_LIB_H_
