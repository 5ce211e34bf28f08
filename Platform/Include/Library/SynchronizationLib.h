/** @file
  Spin locks.
**/
#pragma once

#include <Uefi.h>

typedef volatile UINTN SPIN_LOCK;

SPIN_LOCK *InitializeSpinLock (OUT SPIN_LOCK *SpinLock);
SPIN_LOCK *AcquireSpinLock (IN OUT SPIN_LOCK *SpinLock);
BOOLEAN    AcquireSpinLockOrFail (IN OUT SPIN_LOCK *SpinLock);
SPIN_LOCK *ReleaseSpinLock (IN OUT SPIN_LOCK *SpinLock);
