/** @file
  The simulated platform: protocol databases, allocators, faults, software
  SMI dispatch, processors, register models and their trace.
**/
#include <thread>

#include <TestMachine.h>

#include <Guid/Acpi.h>
#include <Library/BaseLib.h>
#include <Library/IoLib.h>
#include <Library/PciExpressLib.h>
#include <Library/SmmMemLib.h>
#include <Library/SmmServicesTableLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <Library/UefiLib.h>
#include <Protocol/SmmBase2.h>
#include <Protocol/SmmCpuService.h>
#include <Protocol/SmmSwDispatch2.h>
#include <Protocol/VornAttributeStorage.h>
#include <Protocol/VornManufacturingMode.h>

using Host::Access;
using Host::AccessKind;

namespace {

EFI_GUID kGuidA = {0x11111111, 0x2222, 0x3333, {0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB}};
EFI_GUID kGuidB = {0x11111111, 0x2222, 0x3333, {0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBC}};

class PlatformTest : public MachineTest {
protected:
  template <typename T> static T *SmmProtocol (EFI_GUID &Guid) {
    VOID *Interface = nullptr;
    EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&Guid, nullptr, &Interface), EFI_SUCCESS);
    return static_cast<T *> (Interface);
  }

  static EFI_BOOT_SERVICES *Bs () {
    return Host::SystemTable ()->BootServices;
  }
};

//
// The same database semantics hold for the boot-services and SMM cores.
//
struct Database {
  EFI_INSTALL_PROTOCOL_INTERFACE Install;
  EFI_LOCATE_PROTOCOL            Locate;
  EFI_LOCATE_HANDLE              LocateHandle;
  EFI_HANDLE_PROTOCOL            HandleProtocol;
};

Database BootDatabase () {
  EFI_BOOT_SERVICES *Bs = Host::SystemTable ()->BootServices;
  return {Bs->InstallProtocolInterface, Bs->LocateProtocol, Bs->LocateHandle, Bs->HandleProtocol};
}

void ExpectDatabaseSemantics (const Database &Db);

Database SmmDatabase () {
  EFI_SMM_SYSTEM_TABLE2 *Smst = Host::Smst ();
  return {Smst->SmmInstallProtocolInterface, Smst->SmmLocateProtocol, Smst->SmmLocateHandle, Smst->SmmHandleProtocol};
}

TEST_F (PlatformTest, ProtocolDatabasesOfBothCores) {
  for (const Database &Db : {BootDatabase (), SmmDatabase ()}) {
    ExpectDatabaseSemantics (Db);
  }
}

void ExpectDatabaseSemantics (const Database &Db) {
  UINT64     InterfaceA1 = 0xA1, InterfaceA2 = 0xA2, InterfaceB = 0xB;
  EFI_HANDLE First = nullptr, Second = nullptr;

  ASSERT_EQ (Db.Install (&First, &kGuidA, EFI_NATIVE_INTERFACE, &InterfaceA1), EFI_SUCCESS);
  ASSERT_EQ (Db.Install (&Second, &kGuidA, EFI_NATIVE_INTERFACE, &InterfaceA2), EFI_SUCCESS);
  ASSERT_EQ (Db.Install (&Second, &kGuidB, EFI_NATIVE_INTERFACE, &InterfaceB), EFI_SUCCESS);
  EXPECT_NE (First, Second);
  EXPECT_EQ (Db.Install (&Second, &kGuidB, EFI_NATIVE_INTERFACE, &InterfaceB), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Db.Install (nullptr, &kGuidB, EFI_NATIVE_INTERFACE, &InterfaceB), EFI_INVALID_PARAMETER);

  VOID *Interface = &InterfaceB;
  EXPECT_EQ (Db.Locate (&kGuidA, nullptr, &Interface), EFI_SUCCESS);
  EXPECT_EQ (Interface, &InterfaceA1);
  EFI_GUID Unknown = kGuidA;
  Unknown.Data1    = 0;
  EXPECT_EQ (Db.Locate (&Unknown, nullptr, &Interface), EFI_NOT_FOUND);
  EXPECT_EQ (Interface, nullptr);
  EXPECT_EQ (Db.Locate (nullptr, nullptr, &Interface), EFI_INVALID_PARAMETER);

  UINTN      Size       = 0;
  EFI_HANDLE Handles[2] = {};
  EXPECT_EQ (Db.LocateHandle (ByProtocol, &kGuidA, nullptr, &Size, nullptr), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Size, 2 * sizeof (EFI_HANDLE));
  EXPECT_EQ (Db.LocateHandle (ByProtocol, &kGuidA, nullptr, &Size, Handles), EFI_SUCCESS);
  EXPECT_EQ (Handles[0], First);
  EXPECT_EQ (Handles[1], Second);
  EXPECT_EQ (Db.LocateHandle (ByProtocol, &Unknown, nullptr, &Size, Handles), EFI_NOT_FOUND);
  EXPECT_EQ (Db.LocateHandle (ByProtocol, nullptr, nullptr, &Size, Handles), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Db.LocateHandle (ByProtocol, &kGuidA, nullptr, nullptr, Handles), EFI_INVALID_PARAMETER);

  EXPECT_EQ (Db.HandleProtocol (Second, &kGuidB, &Interface), EFI_SUCCESS);
  EXPECT_EQ (Interface, &InterfaceB);
  EXPECT_EQ (Db.HandleProtocol (First, &kGuidB, &Interface), EFI_UNSUPPORTED);
  EXPECT_EQ (Db.HandleProtocol (&InterfaceB, &kGuidB, &Interface), EFI_INVALID_PARAMETER);
}

TEST_F (PlatformTest, AllocatorsReuseFreedBlocksAndRefuseBadRequests) {
  EFI_SMM_SYSTEM_TABLE2 *Smst = Host::Smst ();
  VOID                  *A = nullptr, *B = nullptr, *C = nullptr;
  ASSERT_EQ (Smst->SmmAllocatePool (EfiRuntimeServicesData, 100, &A), EFI_SUCCESS);
  ASSERT_EQ (Smst->SmmAllocatePool (EfiRuntimeServicesCode, 100, &B), EFI_SUCCESS);
  EXPECT_EQ (reinterpret_cast<UINT64> (B) - reinterpret_cast<UINT64> (A), 128u); // 100 bytes + header, rounded
  ASSERT_EQ (Smst->SmmFreePool (A), EFI_SUCCESS);
  ASSERT_EQ (Smst->SmmAllocatePool (EfiRuntimeServicesData, 64, &C), EFI_SUCCESS);
  EXPECT_EQ (C, A);
  EXPECT_EQ (Smst->SmmAllocatePool (EfiBootServicesData, 16, &C), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Smst->SmmAllocatePool (EfiRuntimeServicesData, Host::kSmramSize, &C), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ (Smst->SmmFreePool (static_cast<UINT8 *> (B) + 16), EFI_INVALID_PARAMETER);

  EFI_PHYSICAL_ADDRESS Pages = 0;
  ASSERT_EQ (Bs ()->AllocatePages (AllocateAnyPages, EfiBootServicesData, 3, &Pages), EFI_SUCCESS);
  EXPECT_EQ (Pages % EFI_PAGE_SIZE, 0u);
  EXPECT_EQ (Bs ()->AllocatePages (AllocateAddress, EfiBootServicesData, 1, &Pages), EFI_UNSUPPORTED);
  EXPECT_EQ (Bs ()->AllocatePool (EfiConventionalMemory, 8, &C), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Bs ()->FreePages (Pages, 2), EFI_NOT_FOUND);
  EXPECT_EQ (Bs ()->FreePages (Pages + 8, 3), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Bs ()->FreePages (Pages, 3), EFI_SUCCESS);
  EXPECT_EQ (Bs ()->FreePages (Pages, 3), EFI_NOT_FOUND);
}

TEST_F (PlatformTest, PowerOnRepeatsAddressesAndClearsMemory) {
  auto Sequence = [] () {
    VOID                *Pool  = nullptr;
    EFI_PHYSICAL_ADDRESS Pages = 0;
    EXPECT_EQ (Bs ()->AllocatePool (EfiReservedMemoryType, 24, &Pool), EFI_SUCCESS);
    EXPECT_EQ (Bs ()->AllocatePages (AllocateAnyPages, EfiBootServicesData, 1, &Pages), EFI_SUCCESS);
    return std::vector<UINT64>{reinterpret_cast<UINT64> (Host::SystemTable ()),
                               reinterpret_cast<UINT64> (Host::Smst ()),
                               reinterpret_cast<UINT64> (Host::ImageHandle ()),
                               reinterpret_cast<UINT64> (Pool),
                               Pages,
                               Host::AllocateSmram (64, 64),
                               Host::AllocateAcpi (36)};
  };

  Host::PowerOn ();
  const std::vector<UINT64> First = Sequence ();
  *Host::At<UINT32> (First[5])    = 0xDEADBEEF;
  Host::PowerOn ();
  EXPECT_EQ (Sequence (), First);
  EXPECT_EQ (*Host::At<UINT32> (First[5]), 0u);
}

//
// Each fault fails its service from call AfterCalls + 1 on, until cleared.
//
EFI_STATUS CallSmmAllocatePool () {
  VOID *Buffer = nullptr;
  return Host::Smst ()->SmmAllocatePool (EfiRuntimeServicesData, 8, &Buffer);
}

EFI_STATUS CallBsAllocatePages () {
  EFI_PHYSICAL_ADDRESS Pages = 0;
  return Host::SystemTable ()->BootServices->AllocatePages (AllocateAnyPages, EfiBootServicesData, 1, &Pages);
}

EFI_STATUS CallLocateSmmCpuService () {
  VOID *Interface = nullptr;
  return Host::Smst ()->SmmLocateProtocol (&gEfiSmmCpuServiceProtocolGuid, nullptr, &Interface);
}

EFI_STATUS CallSwRegister () {
  static UINTN                   Value    = 0x40;
  EFI_SMM_SW_DISPATCH2_PROTOCOL *Dispatch = nullptr;
  EFI_SMM_SW_REGISTER_CONTEXT    Context  = {Value++};
  EFI_HANDLE                     Handle;
  Host::Smst ()->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, nullptr, (VOID **)&Dispatch);
  return Dispatch->Register (
      Dispatch, [] (EFI_HANDLE, CONST VOID *, VOID *, UINTN *) { return EFI_SUCCESS; }, &Context, &Handle);
}

TEST_F (PlatformTest, FaultsFailTheirServiceAfterTheGivenCalls) {
  const std::pair<Host::Service, EFI_STATUS (*) ()> Cases[] = {{Host::Service::SmmAllocatePool, CallSmmAllocatePool},
                                                               {Host::Service::BsAllocatePages, CallBsAllocatePages},
                                                               {Host::Service::SmmCpuService, CallLocateSmmCpuService},
                                                               {Host::Service::SwDispatch2Register, CallSwRegister}};
  for (const auto &[Which, Call] : Cases) {
    Host::SetFault (Which, {Host::FaultKind::Fail, EFI_DEVICE_ERROR, 2});
    EXPECT_EQ (Call (), EFI_SUCCESS);
    EXPECT_EQ (Call (), EFI_SUCCESS);
    EXPECT_EQ (Call (), EFI_DEVICE_ERROR);
    Host::ClearFaults ();
    EXPECT_EQ (Call (), EFI_SUCCESS);
  }
}

//
// What the last software SMI handler saw.
//
struct SmiSeen {
  EFI_HANDLE         DispatchHandle;
  UINTN              RegisteredValue;
  EFI_SMM_SW_CONTEXT Context;
  UINTN              Size;
  UINTN              ExecutingCpu;
  UINTN              Calls;
};

SmiSeen mSeen;

EFI_STATUS EFIAPI RecordSmi (EFI_HANDLE DispatchHandle, CONST VOID *Context, VOID *CommBuffer, UINTN *CommBufferSize) {
  mSeen = {DispatchHandle,
           static_cast<CONST EFI_SMM_SW_REGISTER_CONTEXT *> (Context)->SwSmiInputValue,
           *static_cast<EFI_SMM_SW_CONTEXT *> (CommBuffer),
           *CommBufferSize,
           Host::Smst ()->CurrentlyExecutingCpu,
           mSeen.Calls + 1};
  return EFI_SUCCESS;
}

TEST_F (PlatformTest, SoftwareSmiDispatchThroughTheCommandPort) {
  auto                       *Dispatch = SmmProtocol<EFI_SMM_SW_DISPATCH2_PROTOCOL> (gEfiSmmSwDispatch2ProtocolGuid);
  EFI_SMM_SW_REGISTER_CONTEXT Context  = {0x9C};
  EFI_HANDLE                  Handle   = nullptr;
  mSeen                                = {};
  ASSERT_EQ (Dispatch->Register (Dispatch, RecordSmi, &Context, &Handle), EFI_SUCCESS);
  EXPECT_EQ (Dispatch->Register (Dispatch, RecordSmi, &Context, &Handle), EFI_INVALID_PARAMETER);
  Context.SwSmiInputValue = 0x100;
  EXPECT_EQ (Dispatch->Register (Dispatch, RecordSmi, &Context, &Handle), EFI_INVALID_PARAMETER);

  IoWrite8 (0xB1, 0x5A);
  Host::SetCurrentCpu (3);
  IoWrite8 (Host::kSmiCommandPort, 0x9C);
  EXPECT_EQ (mSeen.Calls, 1u);
  EXPECT_EQ (mSeen.DispatchHandle, Handle);
  EXPECT_EQ (mSeen.RegisteredValue, 0x9Cu);
  EXPECT_EQ (mSeen.Context.SwSmiCpuIndex, 3u);
  EXPECT_EQ (mSeen.Context.CommandPort, 0x9C);
  EXPECT_EQ (mSeen.Context.DataPort, 0x5A);
  EXPECT_EQ (mSeen.Size, sizeof (EFI_SMM_SW_CONTEXT));
  EXPECT_EQ (mSeen.ExecutingCpu, 3u);

  IoWrite8 (Host::kSmiCommandPort, 0x9D);
  EXPECT_EQ (mSeen.Calls, 1u);
  Host::RaiseSwSmi (0x9C, 7);
  EXPECT_EQ (mSeen.ExecutingCpu, 7u);
  EXPECT_EQ (Host::CurrentCpu (), 3u);

  EXPECT_EQ (Dispatch->UnRegister (Dispatch, Handle), EFI_SUCCESS);
  Host::RaiseSwSmi (0x9C);
  EXPECT_EQ (mSeen.Calls, 2u);
}

TEST_F (PlatformTest, FchRaisesSciAndNmiOnRisingEdges) {
  UINT64 Notified = 0;
  Host::OnSci ([&] { Notified += 1; });
  Host::OnNmi ([&] { Notified += 100; });
  Host::ClearTrace ();

  MmioWrite32 (0xFED8021C, 0x00400000);
  MmioWrite32 (0xFED8021C, 0x00400001); // still set: no new SCI
  MmioWrite32 (0xFED8021C, 0);
  MmioWrite32 (0xFED80298, 0x02000000); // not routed to NMI yet
  MmioWrite32 (0xFED80298, 0);
  MmioWrite32 (0xFED802C0, 0x00200000);
  MmioWrite32 (0xFED80298, 0x12000000);
  Host::SetMmio32 (0xFED80284, 0x00000006);
  MmioWrite32 (0xFED80284, 0x00000002);
  EXPECT_EQ (MmioRead32 (0xFED80284), 0x00000004u);
  EXPECT_EQ (MmioRead32 (0xFED90000), 0xFFFFFFFFu);

  EXPECT_EQ (Host::SciCount (), 1u);
  EXPECT_EQ (Host::NmiCount (), 1u);
  EXPECT_EQ (Notified, 101u);
  std::vector<std::string> Rendered;
  for (const Access &A : Host::Trace ()) {
    Rendered.push_back (Host::ToString (A));
  }

  EXPECT_EQ (Rendered,
             (std::vector<std::string>{"MmioWrite32 0xFED8021C = 0x00400000", "MmioWrite32 0xFED8021C = 0x00400001",
                                       "MmioWrite32 0xFED8021C = 0x00000000", "MmioWrite32 0xFED80298 = 0x02000000",
                                       "MmioWrite32 0xFED80298 = 0x00000000", "MmioWrite32 0xFED802C0 = 0x00200000",
                                       "MmioWrite32 0xFED80298 = 0x12000000", "MmioWrite32 0xFED80284 = 0x00000002",
                                       "MmioRead32 0xFED80284 = 0x00000004", "MmioRead32 0xFED90000 = 0xFFFFFFFF"}));
}

constexpr UINT64 kSmramEnd      = Host::kSmramBase + Host::kSmramSize;
constexpr UINT64 kModuleDataEnd = Host::kModuleDataBase + Host::kModuleDataSize;

TEST (SmmBufferTest, BuffersOutsideSmmMustNotOverlapItOrWrap) {
  const struct {
    UINT64  Buffer, Length;
    BOOLEAN Outside;
  } Cases[] = {{Host::kSmramBase - 16, 16, TRUE},
               {Host::kSmramBase - 16, 17, FALSE},
               {Host::kSmramBase, 0, FALSE},
               {kSmramEnd - 1, 1, FALSE},
               {kSmramEnd, 0x1000, FALSE},
               {kModuleDataEnd - 1, 1, FALSE},
               {kModuleDataEnd, 0x1000, TRUE},
               {0, Host::kSmramBase, TRUE},
               {0, MAX_UINT64, FALSE},
               {MAX_UINT64, 1, TRUE},
               {MAX_UINT64, 2, FALSE}};
  for (const auto &Case : Cases) {
    EXPECT_EQ (SmmIsBufferOutsideSmmValid (Case.Buffer, Case.Length), Case.Outside)
        << Case.Buffer << " " << Case.Length;
  }
}

TEST_F (PlatformTest, RegisterModelsTakeAccessesFromTwoThreads) {
  auto Drive = [] (UINT32 Tag) {
    for (UINT32 Count = 0; Count < 500; Count++) {
      IoWrite8 (Host::kCom1, 'a');
      MmioWrite32 (0xFED80200, Tag | Count);
    }
  };

  std::thread Other (Drive, 0x10000);
  Drive (0x20000);
  Other.join ();

  EXPECT_EQ (Host::SerialOutput (), std::string (1000, 'a'));
  const std::vector<Access> Writes = Host::Trace (AccessKind::MmioWrite);
  ASSERT_EQ (Writes.size (), 1000u);
  UINT32 Next[2] = {0, 0};
  for (const Access &A : Writes) {
    UINT32 &Expected = Next[(A.Value >> 16) - 1];
    EXPECT_EQ (A.Value & 0xFFFF, Expected++);
  }
}

} // namespace
