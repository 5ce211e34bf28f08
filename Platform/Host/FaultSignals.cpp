/** @file
  Machine faults from host signals. A SIGSEGV or SIGBUS raised while firmware
  code runs, and the processor-time budget's timer firing in module code, make
  the interrupted thread continue as if the interrupted instruction had called
  VornRaiseMachineFault. That function runs in an ordinary context: it walks
  the stack through the module's frames, decides whose fault it is, and
  throws MachineFault, whose unwinding releases whatever the frames between
  held. A fault with no module frame before the host code that called in is a
  host bug: it goes to the handler that was there before (the sanitizer's
  report, or the default crash).

  AddressSanitizer's default handle_segv=1 lets a program install its own
  SIGSEGV handler; this one chains to it.
**/
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "CodeMap.h"
#include "FirmwareInternal.h"
#include "HostInternal.h"
#include "MachineAccess.h"

#if !defined(__x86_64__) || !defined(__linux__)
#error "machine faults are modelled for x86-64 Linux hosts"
#endif

extern "C" void              VornFaultTrampoline ();
extern "C" [[noreturn]] void VornRaiseMachineFault ();

//
// Entered on the alternate signal stack, below the frames the handler used,
// with two words on top: the return address (the interrupted instruction's
// address + 1, or for a fetch fault the return address of the call that
// jumped away) and the stack pointer the interrupted code had. The CFI names
// them, so the unwinder continues into the module's frames as if the
// interrupted instruction had made a call; the raise runs on this stack even
// when the interrupted code's stack has run out.
//
asm(R"(
  .text
  .p2align 4
  .globl VornFaultTrampoline
  .type VornFaultTrampoline, @function
VornFaultTrampoline:
  .cfi_startproc
  .cfi_escape 0x0f, 0x03, 0x77, 0x08, 0x06
  .cfi_escape 0x10, 0x10, 0x02, 0x77, 0x00
  call VornRaiseMachineFault
  ud2
  .cfi_endproc
  .size VornFaultTrampoline, .-VornFaultTrampoline
)");

namespace Host::Internal {

namespace {

// x86-64 page-fault error code bits, as the kernel hands them over.
constexpr UINT64 kPageFaultWrite = 0x2;
constexpr UINT64 kPageFaultFetch = 0x10;

// A budget that ran out while host code ran is tried again this soon.
constexpr long kRetryNanoseconds = 10000000;

// A fault this close below the stack pointer, or below the thread's stack,
// is the stack running out.
constexpr UINT64 kStackReach = 0x10000;

// What the handler's frames may still use of the alternate stack below the
// point it was entered at, kept free of the trampoline's two words.
constexpr UINT64 kHandlerReach = 0x400;

constexpr size_t kMaxFrames       = 64;
constexpr size_t kAltStackSize    = 0x10000;
constexpr UINT64 kTrampolineBytes = 32;

struct PendingFault {
  MachineFaultKind Kind;
  UINT64           Address;
  UINT64           Pc;
  bool             OutOfTime;
  int              Signal;
  siginfo_t        Info;
  ucontext_t       Context;
};

struct ThreadFaultState {
  FirmwareThread        Firmware;
  PendingFault          Pending;
  volatile sig_atomic_t Handling;  // a fault is on its way to an exception
  volatile sig_atomic_t OutOfTime; // the time budget ran out outside module code
  bool                  TimerReady;
  timer_t               Timer;
};

// Constant-initialised, so the signal handlers reach it without a guard.
thread_local ThreadFaultState tState;

struct sigaction mPreviousSegv;
struct sigaction mPreviousBus;
std::once_flag   mInstalled;

int TimerSignal () {
  return SIGRTMIN + 4;
}

//
// Releases the thread's timer and alternate stack when it ends.
//
struct ThreadResources {
  std::unique_ptr<UINT8[]> AltStack;

  ~ThreadResources () {
    if (tState.TimerReady) {
      timer_delete (tState.Timer);
      tState.TimerReady = false;
    }

    if (AltStack) {
      stack_t Off  = {};
      Off.ss_flags = SS_DISABLE;
      sigaltstack (&Off, nullptr);
    }
  }
};

thread_local ThreadResources tResources;

void Chain (int Signal, siginfo_t *Info, void *Context) {
  const struct sigaction &Previous = (Signal == SIGBUS) ? mPreviousBus : mPreviousSegv;
  if (((Previous.sa_flags & SA_SIGINFO) != 0) && (Previous.sa_sigaction != nullptr)) {
    Previous.sa_sigaction (Signal, Info, Context);
  } else if ((Previous.sa_handler != SIG_DFL) && (Previous.sa_handler != SIG_IGN)) {
    Previous.sa_handler (Signal);
  } else {
    //
    // Back to the default action: the instruction faults again and the
    // process ends as it would have without this handler.
    //
    signal (Signal, SIG_DFL);
  }
}

//
// The interrupted thread resumes in the trampoline, on this alternate stack
// below the handler's frames (which sigreturn leaves behind). A fetch fault
// has no instruction to come from: its caller's return address is on top of
// the interrupted stack.
//
__attribute__ ((no_sanitize_address)) void RedirectToRaise (ucontext_t *Context, bool Fetch) {
  greg_t      *Registers = Context->uc_mcontext.gregs;
  const UINT64 Sp        = static_cast<UINT64> (Registers[REG_RSP]);
  UINT64      *Top       = reinterpret_cast<UINT64 *> (
      ((reinterpret_cast<UINT64> (__builtin_frame_address (0)) - kHandlerReach) & ~UINT64{0xF}) - 16);

  Top[0]             = Fetch ? *reinterpret_cast<UINT64 *> (Sp) : static_cast<UINT64> (Registers[REG_RIP]) + 1;
  Top[1]             = Fetch ? Sp + sizeof (UINT64) : Sp;
  Registers[REG_RSP] = reinterpret_cast<greg_t> (Top);
  Registers[REG_RIP] = reinterpret_cast<greg_t> (&VornFaultTrampoline);
}

//
// The kind of a fault: a general-protection fault (SIGSEGV from the kernel
// itself: the address was not canonical, the processor reports none), the
// stack running out, or a page fault's access.
//
__attribute__ ((no_sanitize_address)) MachineFaultKind
KindOf (int Signal, const siginfo_t *Info, UINT64 Error, UINT64 Sp) {
  const UINT64 Address = reinterpret_cast<UINT64> (Info->si_addr);
  const UINT64 Low     = tStackLow;
  if ((Signal == SIGSEGV) && (Info->si_code == SI_KERNEL)) {
    return MachineFaultKind::GeneralProtection;
  }

  if (((Address < Sp) && (Sp - Address <= kStackReach)) || ((Address < Low) && (Low - Address <= kStackReach))) {
    return MachineFaultKind::StackOverflow;
  }

  return (Error & kPageFaultFetch) != 0   ? MachineFaultKind::Execute
         : (Error & kPageFaultWrite) != 0 ? MachineFaultKind::Write
                                          : MachineFaultKind::Read;
}

__attribute__ ((no_sanitize_address)) void OnFault (int Signal, siginfo_t *Info, void *RawContext) {
  ThreadFaultState &State   = tState;
  auto             *Context = static_cast<ucontext_t *> (RawContext);
  const UINT64      Sp      = static_cast<UINT64> (Context->uc_mcontext.gregs[REG_RSP]);

  if ((State.Firmware.Depth == 0) || State.Handling || (Info->si_code <= 0)) {
    Chain (Signal, Info, RawContext);
    return;
  }

  const UINT64 Error = static_cast<UINT64> (Context->uc_mcontext.gregs[REG_ERR]);
  State.Handling     = 1;
  State.Pending.Kind = KindOf (Signal, Info, Error, Sp);
  State.Pending.Address =
      (State.Pending.Kind == MachineFaultKind::GeneralProtection) ? 0 : reinterpret_cast<UINT64> (Info->si_addr);
  State.Pending.Pc        = static_cast<UINT64> (Context->uc_mcontext.gregs[REG_RIP]);
  State.Pending.OutOfTime = false;
  State.Pending.Signal    = Signal;
  std::memcpy (&State.Pending.Info, Info, sizeof (*Info));
  std::memcpy (&State.Pending.Context, Context, sizeof (*Context));
  RedirectToRaise (Context, State.Pending.Kind == MachineFaultKind::Execute);
}

void ArmTimer (time_t Seconds, long Nanoseconds) {
  itimerspec When = {};
  When.it_value   = {Seconds, Nanoseconds};
  timer_settime (tState.Timer, 0, &When, nullptr);
}

//
// Stopping is only safe in module code, which holds no host lock and no
// half-updated host structure; elsewhere the next checkpoint or the next
// retry stops the entry.
//
__attribute__ ((no_sanitize_address)) void OnTimer (int, siginfo_t *, void *RawContext) {
  ThreadFaultState &State   = tState;
  auto             *Context = static_cast<ucontext_t *> (RawContext);
  const UINT64      Pc      = static_cast<UINT64> (Context->uc_mcontext.gregs[REG_RIP]);

  if ((State.Firmware.Depth == 0) || State.Handling) {
    return;
  }

  State.OutOfTime = 1;
  if (OwnerOf (Pc) != CodeOwner::Module) {
    ArmTimer (0, kRetryNanoseconds);
    return;
  }

  State.Handling          = 1;
  State.Pending.Kind      = MachineFaultKind::Watchdog;
  State.Pending.Address   = 0;
  State.Pending.Pc        = Pc;
  State.Pending.OutOfTime = true;
  RedirectToRaise (Context, false);
}

void Install () {
  LoadCodeMap ();

  struct sigaction Action = {};
  Action.sa_sigaction     = OnFault;
  Action.sa_flags         = SA_SIGINFO | SA_ONSTACK;
  sigemptyset (&Action.sa_mask);
  sigaddset (&Action.sa_mask, TimerSignal ());
  sigaction (SIGSEGV, &Action, &mPreviousSegv);
  sigaction (SIGBUS, &Action, &mPreviousBus);

  struct sigaction Timer = {};
  Timer.sa_sigaction     = OnTimer;
  Timer.sa_flags         = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
  sigemptyset (&Timer.sa_mask);
  sigaction (TimerSignal (), &Timer, nullptr);
}

struct Frames {
  UINT64 Ip[kMaxFrames];
  size_t Count;
};

_Unwind_Reason_Code CollectFrame (struct _Unwind_Context *Context, void *Argument) {
  auto *Collected = static_cast<Frames *> (Argument);
  if (Collected->Count == kMaxFrames) {
    return _URC_END_OF_STACK;
  }

  Collected->Ip[Collected->Count++] = _Unwind_GetIP (Context);
  return _URC_NO_REASON;
}

//
// Return addresses outwards from the caller, or from the frame after the
// first one whose address satisfies After.
//
__attribute__ ((noinline)) std::vector<UINT64> ReturnAddresses (bool (*After) (UINT64)) {
  Frames Collected{};
  _Unwind_Backtrace (CollectFrame, &Collected);

  size_t From = 1;
  if (After != nullptr) {
    while ((From < Collected.Count) && !After (Collected.Ip[From])) {
      From++;
    }

    From++;
  }

  return std::vector<UINT64> (Collected.Ip + std::min (From, Collected.Count), Collected.Ip + Collected.Count);
}

bool InTrampoline (UINT64 Ip) {
  const UINT64 Start = reinterpret_cast<UINT64> (&VornFaultTrampoline);
  return (Ip > Start) && (Ip <= Start + kTrampolineBytes);
}

//
// True when a frame of module code comes before the first frame of host
// code: the module made the access, directly or through a platform service.
//
bool ModuleMadeIt (const std::vector<UINT64> &Stack) {
  for (size_t Index = 0; Index < Stack.size (); Index++) {
    switch (OwnerOf (Index == 0 ? Stack[Index] : Stack[Index] - 1)) {
      case CodeOwner::Module:
        return true;
      case CodeOwner::Host:
        return false;
      default:
        break;
    }
  }

  return false;
}

[[noreturn]] void
ThrowFault (MachineFaultKind Kind, UINT64 Address, std::vector<UINT64> &&Stack, const std::string &Reason) {
  MachineFault Fault;
  Fault.Kind      = Kind;
  Fault.Address   = Address;
  Fault.Pc        = Stack.front ();
  Fault.Stack     = std::move (Stack);
  Fault.Entry     = EntryText (tState.Firmware);
  Fault.Reason    = Reason;
  tState.Handling = 0;
  throw Fault;
}

std::string TimeReason () {
  return "used " + std::to_string (Config ().WatchdogSeconds) + " s of processor time";
}

} // namespace

FirmwareThread &CurrentFirmwareThread () {
  return tState.Firmware;
}

void PrepareFaultHandling () {
  std::call_once (mInstalled, Install);
  if (tState.TimerReady) {
    return;
  }

  pthread_attr_t Attributes;
  void          *Low  = nullptr;
  size_t         Size = 0;
  if (pthread_getattr_np (pthread_self (), &Attributes) == 0) {
    pthread_attr_getstack (&Attributes, &Low, &Size);
    pthread_attr_destroy (&Attributes);
  }

  tStackLow  = reinterpret_cast<UINT64> (Low);
  tStackHigh = tStackLow + Size;

  //
  // The handlers also run when a stack ran out, so each thread needs an
  // alternate one (the sanitizers bring their own).
  //
  ThreadResources &Resources = tResources;
  stack_t          Current   = {};
  if ((sigaltstack (nullptr, &Current) == 0) && ((Current.ss_flags & SS_DISABLE) != 0)) {
    Resources.AltStack = std::make_unique<UINT8[]> (kAltStackSize);
    stack_t Alternate  = {};
    Alternate.ss_sp    = Resources.AltStack.get ();
    Alternate.ss_size  = kAltStackSize;
    sigaltstack (&Alternate, nullptr);
  }

  sigevent Event       = {};
  Event.sigev_notify   = SIGEV_THREAD_ID;
  Event.sigev_signo    = TimerSignal ();
  Event._sigev_un._tid = gettid (); // glibc names no accessor for it
  tState.TimerReady    = timer_create (CLOCK_THREAD_CPUTIME_ID, &Event, &tState.Timer) == 0;
}

void StartCpuBudget (UINT32 Seconds) {
  tState.OutOfTime = 0;
  if (tState.TimerReady && (Seconds != 0)) {
    ArmTimer (static_cast<time_t> (Seconds), 0);
  }
}

void StopCpuBudget () {
  if (tState.TimerReady) {
    ArmTimer (0, 0);
  }

  tState.OutOfTime = 0;
}

void StopRunawayEntry (const std::string &Reason) {
  tState.Handling           = 1;
  std::vector<UINT64> Stack = ReturnAddresses (nullptr);
  ThrowFault (MachineFaultKind::Watchdog, 0, std::move (Stack), Reason);
}

void RaiseAccessFault (MachineFaultKind Kind, UINT64 Address) {
  std::vector<UINT64> Stack = ReturnAddresses (nullptr);
  if (ModuleMadeIt (Stack)) {
    ThrowFault (Kind, Address, std::move (Stack), std::string ());
  }
}

void FirmwareCheckpoint () {
  const FirmwareThread &Thread = tState.Firmware;
  if ((Thread.Depth == 0) || tState.Handling) {
    return;
  }

  if (tState.OutOfTime) {
    StopRunawayEntry (TimeReason ());
  }

  const UINT64 Lines = SerialLinesWritten () - Thread.LinesAtEntry;
  if (Lines > Thread.LineBudget) {
    StopRunawayEntry ("printed " + std::to_string (Lines) + " serial log lines");
  }
}

} // namespace Host::Internal

using namespace Host::Internal;

//
// Called only from the trampoline's assembly: kept, and kept global, when the
// program is linked with link-time optimisation.
//
extern "C" __attribute__ ((used)) void VornRaiseMachineFault () {
  const PendingFault  Pending = tState.Pending;
  std::vector<UINT64> Stack   = ReturnAddresses (InTrampoline);

  //
  // The first frame after the trampoline is the interrupted instruction's
  // (its address + 1), or for a fetch fault the caller that jumped away.
  //
  if ((Pending.Kind == Host::MachineFaultKind::Execute) || Stack.empty ()) {
    Stack.insert (Stack.begin (), Pending.Pc);
  } else {
    Stack.front () = Pending.Pc;
  }

  if (!Pending.OutOfTime && !ModuleMadeIt (Stack)) {
    siginfo_t  Info    = Pending.Info;
    ucontext_t Context = Pending.Context;
    Chain (Pending.Signal, &Info, &Context);
    raise (Pending.Signal);
    std::abort ();
  }

  ThrowFault (Pending.Kind, Pending.Address, std::move (Stack), Pending.OutOfTime ? TimeReason () : std::string ());
}
