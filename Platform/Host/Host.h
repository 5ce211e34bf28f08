/** @file
  The simulated AMD server behind the platform interface: fixed-address
  memory, register models with access traces, processors, SMM services and
  platform protocols. Only the simulator and the tests use this header; the
  module reaches the machine through Platform/Include alone.
**/
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <Uefi.h>
#include <Pi/PiSmmCis.h>
#include <Protocol/MpService.h>

namespace Host {

//
// Memory map. A physical address in these ranges is a usable host pointer.
//
constexpr UINT64 kAcpiBase         = 0x10000000; // ACPI tables, RSDP        (EfiACPIReclaimMemory)
constexpr UINT64 kAcpiSize         = 0x00800000;
constexpr UINT64 kReservedBase     = 0x10800000; // reserved pool, status blocks (EfiReservedMemoryType)
constexpr UINT64 kReservedSize     = 0x00800000;
constexpr UINT64 kBootServicesBase = 0x11000000; // boot-services pool and pages, system table
constexpr UINT64 kBootServicesSize = 0x03000000;
constexpr UINT64 kSmramBase        = 0x20000000; // SMRAM: SMST, SMM pool and pages, SMM protocols
constexpr UINT64 kSmramSize        = 0x02000000;
constexpr UINT64 kModuleDataBase   = 0x22000000; // SMRAM: the module image's data (MODULE_DATA), placed by the linker
constexpr UINT64 kModuleDataSize   = 0x00100000;

//
// Fixed register addresses of the platform.
//
constexpr UINT16 kSmiCommandPort     = 0xB0;
constexpr UINT16 kCom1               = 0x3F8;
constexpr UINT16 kCom2               = 0x2F8;
constexpr UINT16 kCmosIndex          = 0x70;
constexpr UINT16 kCmosData           = 0x71;
constexpr UINT32 kMsrMmioCfgBaseAddr = 0xC0010058;

struct Topology {
  UINT32 Sockets        = 2;
  UINT32 CoresPerSocket = 4;
  UINT32 ThreadsPerCore = 2;
};

//
// Switches that replace a specified rule known to hurt users by what a
// careful firmware does instead; the module reads each as a feature-flag
// PCD (PcdVornFix<Name>). All are off by default.
//
enum class Fix {
  ErstRead,     // a read copies the record into the OS buffer
  ErstClear,    // a clear marks the record whatever its flag byte reads
  FreeSpace,    // discovery computes the free length from the records found
  FvHeader,     // store maintenance keeps the whole volume header
  HestLength,   // a status block is never filled past its HEST length
  CxlGuid,      // CXL component section types in EFI GUID byte order
  OsBuffer,     // every OS-supplied address and length is checked
  CperBounds,   // population and printers stay inside the record
  KeepOnEnable, // APEI enable keeps the stored records
  DuplicateId,  // a write supersedes the stored copy of its identifier
  NullStore,    // mark-obsolete without store information is an error
  TornTail,     // discovery keeps the good records before a damaged one
  SafeDefrag,   // store maintenance survives a power cut at any point
  RecordIndex,  // reads and enumeration go straight to their record
};

//
// Settings a platform is built with; PowerOn applies them.
//
struct MachineConfig {
  Topology                      Cpus;
  UINT32                        DebugPrintErrorLevel  = 0x80000040; // info and errors
  UINT8                         DebugPropertyMask     = 0x1F;
  UINT64                        PciExpressBaseAddress = 0x60000000;
  UINT64                        MsrMmioCfgBaseAddr    = 0x0000000060000021; // base 0x60000000, 256 buses, enabled
  UINT8                         CmosBaudSelect        = 0;                  // CMOS 0x6F: 0 means 115200
  BOOLEAN                       InSmm                 = TRUE;               // what EFI_SMM_BASE2_PROTOCOL.InSmm answers
  std::optional<UINT32>         ManufacturingMode     = 0;                  // nullopt: protocol absent
  std::optional<std::u16string> CorErrLoggingThreshold;                     // nullopt: attribute absent
  std::set<Fix>                 Fixes;                                      // switches turned on
  UINT64                        ErstSpareBase = 0; // flash range store maintenance may use as its spare
  UINT32                        ErstSpareSize = 0; // 0: the platform has none

  //
  // The watchdog (see Firmware.h): an entry into firmware that prints more
  // serial log lines, or uses more processor time, never returns. The module
  // entry gets more lines: discovery and defragmentation of a full store print
  // far more than any SMI. WatchdogSeconds 0 turns the time budget off (for
  // runs under valgrind, say).
  //
  UINT64 WatchdogLines      = 200000;
  UINT64 WatchdogEntryLines = 4000000;
  UINT32 WatchdogSeconds    = 60;
};

//
// Services that a test can make absent or failing.
//
enum class Service {
  SmmBase2,        // boot-services LocateProtocol of gEfiSmmBase2ProtocolGuid
  SmmBase2InSmm,   // InSmm member
  SmmBase2GetSmst, // GetSmstLocation member
  SwDispatch2,     // SMM protocol
  SwDispatch2Register,
  SmmCpuService,     // SMM protocol
  ManufacturingMode, // boot-services protocol
  AttributeStorage,  // SMM protocol
  SmmAllocatePool,
  SmmLocateHandle,
  SmmInstallProtocolInterface,
  BsAllocatePool,
  BsAllocatePages,
  BsFreePages,
  ConfigTableAcpi20, // RSDP under gEfiAcpi20TableGuid
  ConfigTableAcpi10, // RSDP under gEfiAcpi10TableGuid
};

enum class FaultKind { Absent, Fail };

struct Fault {
  FaultKind  Kind       = FaultKind::Fail;
  EFI_STATUS Status     = EFI_DEVICE_ERROR;
  UINT32     AfterCalls = 0; // the fault applies from call AfterCalls + 1 on
};

//
// Power-on: maps memory on first use, clears it, resets every model and
// service, and installs the platform's protocols. Deterministic: the same
// config gives the same addresses and the same bytes.
//
void                 PowerOn (const MachineConfig &Config = MachineConfig ());
const MachineConfig &Config ();

//
// A fault on a protocol applies to LocateProtocol of its GUID (Fail) or
// uninstalls it at once (Absent); a fault on a member or service function
// makes that call return Status (Absent acts as Fail there). A configuration
// table entry has no call to fail, so any fault removes it. Faults count
// calls from the moment they are set. ClearFaults stops further failures but
// does not reinstall what was removed; the next PowerOn does.
//
void SetFault (Service Which, Fault What);
void ClearFaults ();

//
// Platform parts built elsewhere (the SPI flash and its firmware volume
// protocols) register here once; every PowerOn runs the hooks after the
// platform's own protocols are installed, in registration order. A hook
// registered again under the same name replaces the earlier one.
//
void AddPowerOnHook (const std::string &Name, std::function<void ()> Hook);

//
// The simulated memory (with its allocators), the flash part and the FCH
// registers as they are now. Restoring puts them back within the same power-on, so a harness can
// run many handler calls on one booted machine, each from the same state.
// The module's own data is the module image's to save.
//
struct MachineState;
std::shared_ptr<const MachineState> SaveMachine ();
void                                RestoreMachine (const MachineState &State);

//
// Firmware tables the module is handed.
//
EFI_HANDLE             ImageHandle ();
EFI_SYSTEM_TABLE      *SystemTable ();
EFI_SMM_SYSTEM_TABLE2 *Smst ();

//
// Publishes the RSDP under both ACPI configuration-table GUIDs (or only the
// 1.0 one when Acpi20 is FALSE).
//
void PublishRsdp (UINT64 RsdpAddress, BOOLEAN Acpi20 = TRUE, BOOLEAN Acpi10 = TRUE);

//
// Simple bump allocation in the fixed ranges, for the simulator's platform
// builder and the tests (tables, status blocks, CPER records in SMRAM).
//
UINT64 AllocateAcpi (UINT64 Size, UINT64 Align = 16);
UINT64 AllocateReserved (UINT64 Size, UINT64 Align = 16);
UINT64 AllocateSmram (UINT64 Size, UINT64 Align = 16);

template <typename T> T *At (UINT64 PhysicalAddress) {
  return reinterpret_cast<T *> (PhysicalAddress);
}

//
// Processors. The current processor is per host thread; an SMI runs on the
// processor that raised it. Processor number is
// ((socket * cores) + core) * threads + thread; the APIC id is
// (socket << 4) | (core << 1) | thread.
//
UINTN                     NumberOfCpus ();
UINTN                     CurrentCpu ();
void                      SetCurrentCpu (UINTN CpuIndex);
UINT64                    ApicId (UINTN CpuIndex);
EFI_CPU_PHYSICAL_LOCATION CpuLocation (UINTN CpuIndex);

//
// Register access trace, in the order the accesses happened.
//
enum class AccessKind { IoRead, IoWrite, MmioRead, MmioWrite, PciRead, PciWrite, MsrRead };

struct Access {
  AccessKind Kind;
  UINT64     Address; // port, MMIO address, ECAM offset (PCI_EXPRESS_LIB_ADDRESS) or MSR index
  UINT8      Width;   // bytes
  UINT64     Value;
  bool       operator== (const Access &Other) const = default;
};

std::ostream &operator<< (std::ostream &Stream, const Access &A);

std::vector<Access> Trace ();
std::vector<Access> Trace (AccessKind Kind);
void                ClearTrace ();
std::string         ToString (const Access &A);

//
// The UART ports are left out of the trace unless asked for: every log line
// would otherwise bury the accesses a test looks at. PowerOn turns it off.
//
void TraceSerialPorts (bool Enable);

//
// Register models: values a test presets and reads back.
//
void   SetMmio32 (UINT64 Address, UINT32 Value);
UINT32 GetMmio32 (UINT64 Address);
void   SetPciConfig32 (UINTN PciExpressLibAddress, UINT32 Value);
UINT32 GetPciConfig32 (UINTN PciExpressLibAddress);
void   SetMsr (UINT32 Index, UINT64 Value);
void   SetCmos (UINT8 Index, UINT8 Value);

//
// Serial output of the primary UART (0x3F8). The bytes go to the sink if one
// is set, and are always kept in memory for tests. Like a terminal on the
// port, the output, the sink and the byte counts outlast PowerOn;
// ClearSerialOutput empties the output and restarts both ports' counts.
//
void               SetSerialSink (std::ostream *Sink);
const std::string &SerialOutput ();
void               ClearSerialOutput ();
UINT64             SerialBytesWritten ();
UINT64             SerialBytesWritten (UINT16 Port); // kCom1 or kCom2

//
// Notifications the FCH raises: an SCI on a rising SOFTWARESCIDATA bit 22, an
// NMI on a rising SMITRIG0 bit 25 while SMICONTROL8 routes FakeSts0 to NMI.
// The callbacks run after the write that raised them, outside the register
// lock; PowerOn resets the counts and drops the callbacks.
//
UINT64 SciCount ();
UINT64 NmiCount ();
void   OnSci (std::function<void ()> Callback);
void   OnNmi (std::function<void ()> Callback);

//
// Software SMI: writes Value to the SMI command port as processor CpuIndex;
// the handler registered for Value runs on that processor.
//
void RaiseSwSmi (UINT8 Value, UINTN CpuIndex = 0);

//
// Software SMIs the command port raised since power-on, and how many of them
// found a handler: what an agent checks to tell that nobody answered.
//
struct SwSmiCount {
  UINT64 Raised   = 0;
  UINT64 Answered = 0;
  UINT8  Last     = 0; // the last value written
};

SwSmiCount SwSmis ();

//
// Breakpoints hit (a breakpoint resumes, as under a debugger).
//
UINT64 BreakpointCount ();

} // namespace Host
