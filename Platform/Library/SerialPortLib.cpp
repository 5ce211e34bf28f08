/** @file
  Serial output on the two legacy 16550 UARTs, written in parallel.

  The baud rate comes from a CMOS byte the setup menu keeps. Every write goes
  to both ports so that either cable sees the whole log.
**/
#include <Library/SerialPortLib.h>
#include <Library/IoLib.h>

#define SERIAL_PRIMARY_BASE   0x3F8
#define SERIAL_SECONDARY_BASE 0x2F8

//
// 16550 register offsets; the divisor latch overlays THR and IER while
// LCR.DLAB is set.
//
#define UART_THR 0
#define UART_DLL 0
#define UART_DLM 1
#define UART_IER 1
#define UART_IIR 2
#define UART_FCR 2
#define UART_LCR 3
#define UART_MCR 4
#define UART_LSR 5

#define UART_LCR_DLAB        0x80
#define UART_LCR_8N1         0x03
#define UART_LCR_FORMAT_MASK 0x3F
#define UART_FCR_FIFO_ENABLE 0x01
#define UART_IIR_FIFO_BITS   0xC0
#define UART_LSR_THRE        0x20
#define UART_LSR_TEMT        0x40
#define UART_FIFO_DEPTH      16

#define CMOS_INDEX_PORT       0x70
#define CMOS_DATA_PORT        0x71
#define CMOS_BAUD_SELECT      0x6F
#define CMOS_BAUD_SELECT_MASK 0x06

#define SERIAL_BASE_CLOCK_BAUD 115200

STATIC CONST UINTN mSerialPortBases[] = {SERIAL_PRIMARY_BASE, SERIAL_SECONDARY_BASE};

/**
  Baud rate selected by the CMOS setting.
**/
STATIC UINT32 SerialPortBaudRate (VOID) {
  IoWrite8 (CMOS_INDEX_PORT, CMOS_BAUD_SELECT);
  switch (IoRead8 (CMOS_DATA_PORT) & CMOS_BAUD_SELECT_MASK) {
    case 2:
      return 57600;
    case 4:
      return 19200;
    case 6:
      return 9600;
    default:
      return 115200;
  }
}

/**
  Reads the divisor latch, then restores LineControl (the current LCR value).
**/
STATIC UINT32 SerialPortReadDivisor (IN UINTN Base, IN UINT8 LineControl) {
  UINT32 Divisor;

  IoWrite8 (Base + UART_LCR, (UINT8)(LineControl | UART_LCR_DLAB));
  Divisor = IoRead8 (Base + UART_DLL);
  Divisor |= (UINT32)IoRead8 (Base + UART_DLM) << 8;
  IoWrite8 (Base + UART_LCR, LineControl);
  return Divisor;
}

/**
  Programs one UART for 8N1 at Divisor unless it already runs that way.
**/
STATIC VOID SerialPortProgram (IN UINTN Base, IN UINT32 Divisor) {
  UINT8 LineControl;

  LineControl = IoRead8 (Base + UART_LCR);
  if ((LineControl & UART_LCR_FORMAT_MASK) == UART_LCR_8N1 && SerialPortReadDivisor (Base, LineControl) == Divisor) {
    return;
  }

  //
  // Changing the rate mid-character would garble it: let the transmitter
  // drain first.
  //
  while ((IoRead8 (Base + UART_LSR) & (UART_LSR_TEMT | UART_LSR_THRE)) != (UART_LSR_TEMT | UART_LSR_THRE)) {
  }

  IoWrite8 (Base + UART_LCR, UART_LCR_DLAB);
  IoWrite8 (Base + UART_DLL, (UINT8)Divisor);
  IoWrite8 (Base + UART_DLM, (UINT8)(Divisor >> 8));
  IoWrite8 (Base + UART_LCR, UART_LCR_8N1);
  IoWrite8 (Base + UART_FCR, 0);
  IoWrite8 (Base + UART_FCR, UART_FCR_FIFO_ENABLE);
  IoWrite8 (Base + UART_IER, 0);
  IoWrite8 (Base + UART_MCR, 0);
}

/**
  Sets both UARTs to 8N1 at the configured baud rate.
**/
RETURN_STATUS
SerialPortInitialize (VOID) {
  UINT32 Divisor;

  Divisor = SERIAL_BASE_CLOCK_BAUD / SerialPortBaudRate ();
  for (UINTN Index = 0; Index < ARRAY_SIZE (mSerialPortBases); Index++) {
    SerialPortProgram (mSerialPortBases[Index], Divisor);
  }

  return EFI_SUCCESS;
}

/**
  Writes NumberOfBytes bytes to both UARTs, a FIFO's worth at a time.
  Returns the number of bytes written: 0 while the primary UART's FIFO is not
  enabled (the port is not set up).
**/
UINTN
SerialPortWrite (IN UINT8 *Buffer, IN UINTN NumberOfBytes) {
  UINTN Sent;
  UINTN Chunk;

  if (Buffer == NULL || NumberOfBytes == 0 || (IoRead8 (SERIAL_PRIMARY_BASE + UART_IIR) & UART_IIR_FIFO_BITS) == 0) {
    return 0;
  }

  for (Sent = 0; Sent < NumberOfBytes; Sent += Chunk) {
    for (UINTN Index = 0; Index < ARRAY_SIZE (mSerialPortBases); Index++) {
      while ((IoRead8 (mSerialPortBases[Index] + UART_LSR) & UART_LSR_TEMT) == 0) {
      }
    }

    Chunk = NumberOfBytes - Sent;
    if (Chunk > UART_FIFO_DEPTH) {
      Chunk = UART_FIFO_DEPTH;
    }

    for (UINTN Index = 0; Index < ARRAY_SIZE (mSerialPortBases); Index++) {
      IoWriteFifo8 (mSerialPortBases[Index] + UART_THR, Chunk, Buffer + Sent);
    }
  }

  return NumberOfBytes;
}
