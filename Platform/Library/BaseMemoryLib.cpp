/** @file
  Memory copy, fill and compare routines.

  They move 16-byte chunks, eight to a loop step, and end with one chunk
  that may overlap the last one moved, so a 1 KiB copy costs about what the
  C library's does and no length needs a byte loop. Every chunk is loaded
  before anything it could be overwritten by is stored, which keeps
  overlapping copies correct in both directions.

  Each routine first checks its buffers against the machine's memory
  (MachineAccess.h): module code that names memory the machine lacks gets a
  machine fault, not the host's bytes.
**/
#include <Library/BaseMemoryLib.h>

#include <MachineAccess.h>

#include "BaseMemoryInternal.h"

using Host::MachineFaultKind;
using Host::Internal::CheckMachineAccess;
using Host::Internal::IsPlainMachineAccess;

typedef UINT64 MEMORY_CHUNK __attribute__ ((vector_size (16)));

#define MEMORY_CHUNK_SIZE  sizeof (MEMORY_CHUNK)
#define MEMORY_CHUNK_BURST 8
#define MEMORY_BURST_SIZE  (MEMORY_CHUNK_SIZE * MEMORY_CHUNK_BURST)

//
// Unaligned chunk and word access; the compiler turns each into one move.
//
STATIC inline MEMORY_CHUNK MemoryLoadChunk (IN CONST UINT8 *Source) {
  MEMORY_CHUNK Chunk;

  __builtin_memcpy (&Chunk, Source, sizeof (Chunk));
  return Chunk;
}

STATIC inline VOID MemoryStoreChunk (OUT UINT8 *Destination, IN MEMORY_CHUNK Chunk) {
  __builtin_memcpy (Destination, &Chunk, sizeof (Chunk));
}

STATIC inline UINT64 MemoryLoadWord (IN CONST UINT8 *Source) {
  UINT64 Word;

  __builtin_memcpy (&Word, Source, sizeof (Word));
  return Word;
}

/**
  Copies up to 16 bytes with two words that may overlap; both are loaded
  before either is stored.
**/
STATIC VOID MemoryCopySmall (OUT UINT8 *Destination, IN CONST UINT8 *Source, IN UINTN Length) {
  UINT64 Head;
  UINT64 Tail;

  if (Length >= 8) {
    __builtin_memcpy (&Head, Source, 8);
    __builtin_memcpy (&Tail, Source + Length - 8, 8);
    __builtin_memcpy (Destination, &Head, 8);
    __builtin_memcpy (Destination + Length - 8, &Tail, 8);
  } else if (Length >= 4) {
    __builtin_memcpy (&Head, Source, 4);
    __builtin_memcpy (&Tail, Source + Length - 4, 4);
    __builtin_memcpy (Destination, &Head, 4);
    __builtin_memcpy (Destination + Length - 4, &Tail, 4);
  } else if (Length >= 2) {
    __builtin_memcpy (&Head, Source, 2);
    __builtin_memcpy (&Tail, Source + Length - 2, 2);
    __builtin_memcpy (Destination, &Head, 2);
    __builtin_memcpy (Destination + Length - 2, &Tail, 2);
  } else {
    *Destination = *Source;
  }
}

/**
  Copies Length (at least 16) bytes at ascending addresses. The last chunk,
  loaded first, ends the copy so that no byte is left for a byte loop.
**/
STATIC VOID MemoryCopyForward (OUT UINT8 *Destination, IN CONST UINT8 *Source, IN UINTN Length) {
  MEMORY_CHUNK Chunks[MEMORY_CHUNK_BURST];
  MEMORY_CHUNK Last;
  UINTN        Offset;
  UINTN        Bursts;

  Last   = MemoryLoadChunk (Source + Length - MEMORY_CHUNK_SIZE);
  Offset = 0;
#pragma GCC unroll 2
  for (Bursts = Length / MEMORY_BURST_SIZE; Bursts != 0; Bursts--, Offset += MEMORY_BURST_SIZE) {
#pragma GCC unroll 8
    for (UINTN Index = 0; Index < MEMORY_CHUNK_BURST; Index++) {
      Chunks[Index] = MemoryLoadChunk (Source + Offset + Index * MEMORY_CHUNK_SIZE);
    }

#pragma GCC unroll 8
    for (UINTN Index = 0; Index < MEMORY_CHUNK_BURST; Index++) {
      MemoryStoreChunk (Destination + Offset + Index * MEMORY_CHUNK_SIZE, Chunks[Index]);
    }
  }

  for (; Length - Offset >= MEMORY_CHUNK_SIZE; Offset += MEMORY_CHUNK_SIZE) {
    MemoryStoreChunk (Destination + Offset, MemoryLoadChunk (Source + Offset));
  }

  MemoryStoreChunk (Destination + Length - MEMORY_CHUNK_SIZE, Last);
}

/**
  Copies Length (at least 16) bytes at descending addresses, for a
  destination that starts inside the source. The first chunk, loaded first,
  ends the copy.
**/
STATIC VOID MemoryCopyBackward (OUT UINT8 *Destination, IN CONST UINT8 *Source, IN UINTN Length) {
  MEMORY_CHUNK Chunks[MEMORY_CHUNK_BURST];
  MEMORY_CHUNK First;
  UINTN        End;

  First = MemoryLoadChunk (Source);
  for (End = Length; End >= MEMORY_BURST_SIZE; End -= MEMORY_BURST_SIZE) {
#pragma GCC unroll 8
    for (UINTN Index = 1; Index <= MEMORY_CHUNK_BURST; Index++) {
      Chunks[Index - 1] = MemoryLoadChunk (Source + End - Index * MEMORY_CHUNK_SIZE);
    }

#pragma GCC unroll 8
    for (UINTN Index = 1; Index <= MEMORY_CHUNK_BURST; Index++) {
      MemoryStoreChunk (Destination + End - Index * MEMORY_CHUNK_SIZE, Chunks[Index - 1]);
    }
  }

  for (; End >= MEMORY_CHUNK_SIZE; End -= MEMORY_CHUNK_SIZE) {
    MemoryStoreChunk (Destination + End - MEMORY_CHUNK_SIZE, MemoryLoadChunk (Source + End - MEMORY_CHUNK_SIZE));
  }

  MemoryStoreChunk (Destination, First);
}

/**
  Copies Length bytes; the two buffers may overlap. Not checked: for the
  platform's own buffers.
**/
VOID *InternalCopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  UINT8       *Destination;
  CONST UINT8 *Source;

  Destination = (UINT8 *)DestinationBuffer;
  Source      = (CONST UINT8 *)SourceBuffer;

  //
  // Copy backwards when the destination starts inside the source, so that
  // no source byte is overwritten before it is read.
  //
  if (Length <= MEMORY_CHUNK_SIZE) {
    MemoryCopySmall (Destination, Source, Length);
  } else if (Destination > Source && Destination < Source + Length) {
    MemoryCopyBackward (Destination, Source, Length);
  } else {
    MemoryCopyForward (Destination, Source, Length);
  }

  return DestinationBuffer;
}

/**
  CopyMem for buffers that need the closer look; kept out of line so that
  the common case calls nothing before it copies.
**/
STATIC __attribute__ ((noinline)) VOID *
CheckedCopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  CheckMachineAccess (SourceBuffer, Length, MachineFaultKind::Read);
  CheckMachineAccess (DestinationBuffer, Length, MachineFaultKind::Write);
  return InternalCopyMem (DestinationBuffer, SourceBuffer, Length);
}

/**
  Copies Length bytes; the two buffers may overlap.
**/
VOID *CopyMem (OUT VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  if (DestinationBuffer == SourceBuffer || Length == 0) {
    return DestinationBuffer;
  }

  if (!IsPlainMachineAccess (SourceBuffer, Length) || !IsPlainMachineAccess (DestinationBuffer, Length)) {
    return CheckedCopyMem (DestinationBuffer, SourceBuffer, Length);
  }

  return InternalCopyMem (DestinationBuffer, SourceBuffer, Length);
}

/**
  Fills Length bytes with Value; a last chunk or two last words, which may
  overlap what is already filled, end the fill. Not checked: for the
  platform's own buffers.
**/
VOID *InternalSetMem (OUT VOID *Buffer, IN UINTN Length, IN UINT8 Value) {
  UINT8       *Bytes;
  MEMORY_CHUNK Chunk;
  UINT64       Word;
  UINTN        Offset;

  Bytes = (UINT8 *)Buffer;
  Word  = 0x0101010101010101ULL * Value;
  if (Length >= 8 && Length < MEMORY_CHUNK_SIZE) {
    __builtin_memcpy (Bytes, &Word, 8);
    __builtin_memcpy (Bytes + Length - 8, &Word, 8);
    return Buffer;
  }

  if (Length < 8) {
    for (Offset = 0; Offset < Length; Offset++) {
      Bytes[Offset] = Value;
    }

    return Buffer;
  }

  Chunk = (MEMORY_CHUNK){Word, Word};
  for (Offset = 0; Length - Offset >= MEMORY_BURST_SIZE; Offset += MEMORY_BURST_SIZE) {
#pragma GCC unroll 8
    for (UINTN Index = 0; Index < MEMORY_CHUNK_BURST; Index++) {
      MemoryStoreChunk (Bytes + Offset + Index * MEMORY_CHUNK_SIZE, Chunk);
    }
  }

  for (; Length - Offset >= MEMORY_CHUNK_SIZE; Offset += MEMORY_CHUNK_SIZE) {
    MemoryStoreChunk (Bytes + Offset, Chunk);
  }

  MemoryStoreChunk (Bytes + Length - MEMORY_CHUNK_SIZE, Chunk);
  return Buffer;
}

/**
  Fills Length bytes with Value.
**/
VOID *SetMem (OUT VOID *Buffer, IN UINTN Length, IN UINT8 Value) {
  if (Length != 0) {
    CheckMachineAccess (Buffer, Length, MachineFaultKind::Write);
  }

  return InternalSetMem (Buffer, Length, Value);
}

/**
  Fills Length bytes with zero.
**/
VOID *ZeroMem (OUT VOID *Buffer, IN UINTN Length) {
  return SetMem (Buffer, Length, 0);
}

/**
  Compares two buffers: 0 when equal, otherwise the difference of the first
  differing bytes (destination minus source). Equal words are skipped eight
  bytes at a time; the first differing word is then searched byte by byte.
**/
INTN CompareMem (IN CONST VOID *DestinationBuffer, IN CONST VOID *SourceBuffer, IN UINTN Length) {
  CONST UINT8 *Destination;
  CONST UINT8 *Source;
  UINTN        Offset;

  Destination = (CONST UINT8 *)DestinationBuffer;
  Source      = (CONST UINT8 *)SourceBuffer;
  if (Length != 0) {
    CheckMachineAccess (Destination, Length, MachineFaultKind::Read);
    CheckMachineAccess (Source, Length, MachineFaultKind::Read);
  }

  for (Offset = 0; Length - Offset >= sizeof (UINT64); Offset += sizeof (UINT64)) {
    if (MemoryLoadWord (Destination + Offset) != MemoryLoadWord (Source + Offset)) {
      break;
    }
  }

  for (; Offset < Length; Offset++) {
    if (Destination[Offset] != Source[Offset]) {
      return (INTN)Destination[Offset] - (INTN)Source[Offset];
    }
  }

  return 0;
}

/**
  Whether two GUIDs are equal, compared as two words each.
**/
STATIC inline BOOLEAN MemoryGuidsEqual (IN CONST GUID *Guid1, IN CONST GUID *Guid2) {
  CONST UINT8 *First;
  CONST UINT8 *Second;

  First  = (CONST UINT8 *)Guid1;
  Second = (CONST UINT8 *)Guid2;
  return (BOOLEAN)((MemoryLoadWord (First) == MemoryLoadWord (Second)) &&
                   (MemoryLoadWord (First + 8) == MemoryLoadWord (Second + 8)));
}

/**
  CompareGuid for GUIDs that need the closer look, out of line as above.
**/
STATIC __attribute__ ((noinline)) BOOLEAN CheckedCompareGuid (IN CONST GUID *Guid1, IN CONST GUID *Guid2) {
  CheckMachineAccess (Guid1, sizeof (GUID), MachineFaultKind::Read);
  CheckMachineAccess (Guid2, sizeof (GUID), MachineFaultKind::Read);
  return MemoryGuidsEqual (Guid1, Guid2);
}

/**
  TRUE when the two GUIDs are equal.
**/
BOOLEAN
CompareGuid (IN CONST GUID *Guid1, IN CONST GUID *Guid2) {
  if (!IsPlainMachineAccess (Guid1, sizeof (GUID)) || !IsPlainMachineAccess (Guid2, sizeof (GUID))) {
    return CheckedCompareGuid (Guid1, Guid2);
  }

  return MemoryGuidsEqual (Guid1, Guid2);
}

/**
  Copies a GUID and returns the destination.
**/
GUID *CopyGuid (OUT GUID *DestinationGuid, IN CONST GUID *SourceGuid) {
  CheckMachineAccess (SourceGuid, sizeof (GUID), MachineFaultKind::Read);
  CheckMachineAccess (DestinationGuid, sizeof (GUID), MachineFaultKind::Write);
  MemoryStoreChunk ((UINT8 *)DestinationGuid, MemoryLoadChunk ((CONST UINT8 *)SourceGuid));
  return DestinationGuid;
}
