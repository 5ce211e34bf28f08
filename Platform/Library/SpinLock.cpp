/** @file
  Spin locks shared between processors.

  A lock word holds SPIN_LOCK_RELEASED or SPIN_LOCK_ACQUIRED; taking it is one
  atomic compare-and-exchange, so a lock in shared memory serialises every
  processor (host thread) that uses it.
**/
#include <Library/BaseLib.h>
#include <Library/SynchronizationLib.h>

#define SPIN_LOCK_RELEASED ((UINTN)1)
#define SPIN_LOCK_ACQUIRED ((UINTN)2)

/**
  Puts the lock in the released state.
**/
SPIN_LOCK *InitializeSpinLock (OUT SPIN_LOCK *SpinLock) {
  __atomic_store_n (SpinLock, SPIN_LOCK_RELEASED, __ATOMIC_RELEASE);
  return SpinLock;
}

/**
  Takes the lock if it is free. TRUE when taken.
**/
BOOLEAN
AcquireSpinLockOrFail (IN OUT SPIN_LOCK *SpinLock) {
  UINTN Expected;

  Expected = SPIN_LOCK_RELEASED;
  return (BOOLEAN)__atomic_compare_exchange_n (SpinLock, &Expected, SPIN_LOCK_ACQUIRED, FALSE, __ATOMIC_ACQUIRE,
                                               __ATOMIC_RELAXED);
}

/**
  Waits until the lock is free and takes it.
**/
SPIN_LOCK *AcquireSpinLock (IN OUT SPIN_LOCK *SpinLock) {
  while (!AcquireSpinLockOrFail (SpinLock)) {
    CpuPause ();
  }

  return SpinLock;
}

/**
  Releases a lock taken by this processor.
**/
SPIN_LOCK *ReleaseSpinLock (IN OUT SPIN_LOCK *SpinLock) {
  __atomic_store_n (SpinLock, SPIN_LOCK_RELEASED, __ATOMIC_RELEASE);
  return SpinLock;
}
