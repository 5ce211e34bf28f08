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

TEST_F (PlatformTest, PowerOnPublishesTheServiceTablesInTheirRanges) {
  EFI_SMM_BASE2_PROTOCOL *Base2 = nullptr;
  ASSERT_EQ (Bs ()->LocateProtocol (&gEfiSmmBase2ProtocolGuid, nullptr, (VOID **)&Base2), EFI_SUCCESS);
  BOOLEAN                InSmram = FALSE;
  EFI_SMM_SYSTEM_TABLE2 *Smst    = nullptr;
  EXPECT_EQ (Base2->InSmm (Base2, &InSmram), EFI_SUCCESS);
  EXPECT_EQ (InSmram, TRUE);
  EXPECT_EQ (Base2->GetSmstLocation (Base2, &Smst), EFI_SUCCESS);
  EXPECT_EQ (Smst, Host::Smst ());
  EXPECT_EQ (Smst->Hdr.Signature, UINT64 (SMM_SMST_SIGNATURE));
  EXPECT_EQ (Smst->NumberOfCpus, 16u);

  const UINT64 SystemTable = reinterpret_cast<UINT64> (Host::SystemTable ());
  const UINT64 SmstAddress = reinterpret_cast<UINT64> (Smst);
  EXPECT_TRUE (SystemTable >= Host::kBootServicesBase &&
               SystemTable < Host::kBootServicesBase + Host::kBootServicesSize);
  EXPECT_TRUE (SmstAddress >= Host::kSmramBase && SmstAddress < Host::kSmramBase + Host::kSmramSize);
  EXPECT_EQ (Bs ()->CreateEvent, nullptr);

  VOID *Interface = nullptr;
  EXPECT_EQ (Bs ()->LocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, nullptr, &Interface), EFI_NOT_FOUND);
  EXPECT_EQ (SmmProtocol<EFI_SMM_SW_DISPATCH2_PROTOCOL> (gEfiSmmSwDispatch2ProtocolGuid)->MaximumSwiValue, 0xFFu);
  auto *Mfg = static_cast<VORN_MANUFACTURING_MODE_PROTOCOL *> (nullptr);
  ASSERT_EQ (Bs ()->LocateProtocol (&gVornManufacturingModeProtocolGuid, nullptr, (VOID **)&Mfg), EFI_SUCCESS);
  EXPECT_EQ (Mfg->GetManufacturingMode (Mfg), 0u);
  EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&gVornSmmAttributeStorageProtocolGuid, nullptr, &Interface),
             EFI_NOT_FOUND);
}

TEST_F (PlatformTest, ServiceTableLibrariesFollowThePlatform) {
  ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  ASSERT_EQ (SmmServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
  EXPECT_EQ (gBS, Bs ());
  EXPECT_EQ (gSmst, Host::Smst ());

  VOID *Table = nullptr;
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi10TableGuid, &Table), EFI_NOT_FOUND);
  Host::PublishRsdp (0x10000040, FALSE, TRUE);
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi20TableGuid, &Table), EFI_NOT_FOUND);
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi10TableGuid, &Table), EFI_SUCCESS);
  EXPECT_EQ (Table, Host::At<VOID> (0x10000040));
  Host::PublishRsdp (0x10000080);
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi20TableGuid, &Table), EFI_SUCCESS);
  EXPECT_EQ (Table, Host::At<VOID> (0x10000080));
  EXPECT_EQ (EfiGetSystemConfigurationTable (nullptr, &Table), EFI_INVALID_PARAMETER);

  Host::SetFault (Host::Service::ConfigTableAcpi20, {Host::FaultKind::Absent});
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi20TableGuid, &Table), EFI_NOT_FOUND);
  EXPECT_EQ (EfiGetSystemConfigurationTable (&gEfiAcpi10TableGuid, &Table), EFI_SUCCESS);
}

//
// Boot-services pool requests land, aligned, in the range of their memory type.
//
TEST_F (PlatformTest, PoolsLandInTheirTypesRange) {
  const struct {
    EFI_MEMORY_TYPE Type;
    UINT64          Base, Size;
  } Routes[] = {{EfiReservedMemoryType, Host::kReservedBase, Host::kReservedSize},
                {EfiACPIReclaimMemory, Host::kAcpiBase, Host::kAcpiSize},
                {EfiACPIMemoryNVS, Host::kAcpiBase, Host::kAcpiSize},
                {EfiBootServicesData, Host::kBootServicesBase, Host::kBootServicesSize},
                {EfiRuntimeServicesData, Host::kBootServicesBase, Host::kBootServicesSize}};
  for (const auto &Route : Routes) {
    VOID *Buffer = nullptr;
    ASSERT_EQ (Bs ()->AllocatePool (Route.Type, 40, &Buffer), EFI_SUCCESS);
    const UINT64 Address = reinterpret_cast<UINT64> (Buffer);
    EXPECT_TRUE (Address >= Route.Base && Address < Route.Base + Route.Size && Address % 16 == 0) << Route.Type;
    EXPECT_EQ (Bs ()->FreePool (Buffer), EFI_SUCCESS);
    EXPECT_EQ (Bs ()->FreePool (Buffer), EFI_INVALID_PARAMETER);
  }
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

TEST_F (PlatformTest, AbsentProtocolIsUninstalledUntilPowerOn) {
  Host::SetFault (Host::Service::SwDispatch2, {Host::FaultKind::Absent});
  VOID      *Interface = nullptr;
  UINTN      Size      = 0;
  EFI_HANDLE Handle;
  EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, nullptr, &Interface), EFI_NOT_FOUND);
  EXPECT_EQ (Host::Smst ()->SmmLocateHandle (ByProtocol, &gEfiSmmSwDispatch2ProtocolGuid, nullptr, &Size, &Handle),
             EFI_NOT_FOUND);
  Host::PowerOn ();
  EXPECT_EQ (Host::Smst ()->SmmLocateProtocol (&gEfiSmmSwDispatch2ProtocolGuid, nullptr, &Interface), EFI_SUCCESS);
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

//
// Processor numbering: ((socket * cores) + core) * threads + thread.
//
TEST_F (PlatformTest, CpuServiceReportsTheTopology) {
  auto *Service = SmmProtocol<EFI_SMM_CPU_SERVICE_PROTOCOL> (gEfiSmmCpuServiceProtocolGuid);
  const struct {
    UINTN  Index;
    UINT64 ApicId;
    UINT32 Package, Core, Thread, StatusFlag;
  } Cases[] = {{0, 0x00, 0, 0, 0, 7},
               {1, 0x01, 0, 0, 1, 6},
               {6, 0x06, 0, 3, 0, 6},
               {9, 0x11, 1, 0, 1, 6},
               {15, 0x17, 1, 3, 1, 6}};
  for (const auto &Case : Cases) {
    EFI_PROCESSOR_INFORMATION Info;
    ASSERT_EQ (Service->GetProcessorInfo (Service, Case.Index, &Info), EFI_SUCCESS);
    EXPECT_EQ (Info.ProcessorId, Case.ApicId);
    EXPECT_EQ (Info.StatusFlag, Case.StatusFlag);
    EXPECT_EQ (Info.Location.Package, Case.Package);
    EXPECT_EQ (Info.Location.Core, Case.Core);
    EXPECT_EQ (Info.Location.Thread, Case.Thread);
    UINTN Who = 99;
    Host::SetCurrentCpu (Case.Index);
    EXPECT_EQ (Service->WhoAmI (Service, &Who), EFI_SUCCESS);
    EXPECT_EQ (Who, Case.Index);
  }
  EFI_PROCESSOR_INFORMATION Info;
  EXPECT_EQ (Service->GetProcessorInfo (Service, 16, &Info), EFI_INVALID_PARAMETER);
  EXPECT_EQ (Service->GetProcessorInfo (Service, 0, nullptr), EFI_INVALID_PARAMETER);
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

TEST_F (PlatformTest, PciConfigurationAndMsrModels) {
  const UINTN Scratch = PCI_EXPRESS_LIB_ADDRESS (0, 0, 0, 0x74);
  const UINTN Absent  = PCI_EXPRESS_LIB_ADDRESS (0, 1, 0, 0);
  Host::ClearTrace ();
  EXPECT_EQ (PciExpressRead32 (PCI_EXPRESS_LIB_ADDRESS (0, 0, 0, 0)), 0x14801022u);
  PciExpressWrite32 (Scratch, 0x5);
  PciExpressWrite32 (PCI_EXPRESS_LIB_ADDRESS (0, 0, 0, 0), 0);
  PciExpressWrite32 (Absent, 0x1234);
  EXPECT_EQ (PciExpressRead32 (Absent), 0xFFFFFFFFu);
  EXPECT_EQ (AsmReadMsr64 (Host::kMsrMmioCfgBaseAddr), 0x60000021u);
  EXPECT_EQ (AsmReadMsr64 (0x1B), 0u);

  EXPECT_EQ (Host::Trace (), (std::vector<Access>{{AccessKind::PciRead, 0, 4, 0x14801022},
                                                  {AccessKind::PciWrite, Scratch, 4, 0x5},
                                                  {AccessKind::PciWrite, 0, 4, 0},
                                                  {AccessKind::PciWrite, Absent, 4, 0x1234},
                                                  {AccessKind::PciRead, Absent, 4, 0xFFFFFFFF},
                                                  {AccessKind::MsrRead, Host::kMsrMmioCfgBaseAddr, 8, 0x60000021},
                                                  {AccessKind::MsrRead, 0x1B, 8, 0}}));
  EXPECT_EQ (Host::GetPciConfig32 (Scratch), 0x5u);
  EXPECT_EQ (Host::GetPciConfig32 (0), 0x14801022u);
  EXPECT_EQ (Host::ToString (Host::Trace ()[1]), "PciExpressWrite32 0x00000074 (00:00.0+0x074) = 0x00000005");
  Host::SetPciConfig32 (Absent + 8, 0x0C0330);
  EXPECT_EQ (PciExpressRead32 (Absent), 0u);
  EXPECT_EQ (PciExpressRead32 (Absent + 8), 0x0C0330u);
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

TEST_F (PlatformTest, UartAndCmosPorts) {
  Host::ClearTrace ();
  EXPECT_EQ (IoRead8 (0x3FD), 0x60);
  IoWrite8 (0x3FA, 0);
  EXPECT_EQ (IoRead8 (0x3FA), 0x01);
  IoWrite8 (0x3FA, 1);
  EXPECT_EQ (IoRead8 (0x3FA), 0xC1);
  IoWrite8 (0x3FB, 0x83);
  IoWrite8 (0x3F8, 0x01); // divisor, not data
  IoWrite8 (0x3FB, 0x03);
  for (char Byte : std::string ("ok\r\n")) {
    IoWrite8 (Host::kCom1, static_cast<UINT8> (Byte));
  }

  IoWrite8 (Host::kCom2, 'x');
  EXPECT_EQ (Host::SerialOutput (), "ok\r\n");
  EXPECT_EQ (Host::SerialBytesWritten (), 4u);
  EXPECT_EQ (Host::SerialBytesWritten (Host::kCom2), 1u);
  EXPECT_TRUE (Host::Trace ().empty ());

  Host::TraceSerialPorts (true);
  Host::SetCmos (0x6F, 4);
  IoWrite8 (Host::kCmosIndex, 0xEF); // the top bit is not part of the index
  EXPECT_EQ (IoRead8 (Host::kCmosData), 4);
  EXPECT_EQ (IoRead8 (0x3FB), 0x03);
  EXPECT_EQ (IoRead8 (0x80), 0xFF);
  EXPECT_EQ (Host::Trace (), (std::vector<Access>{{AccessKind::IoWrite, 0x70, 1, 0xEF},
                                                  {AccessKind::IoRead, 0x71, 1, 4},
                                                  {AccessKind::IoRead, 0x3FB, 1, 3},
                                                  {AccessKind::IoRead, 0x80, 1, 0xFF}}));
  EXPECT_EQ (Host::ToString (Host::Trace ()[1]), "IoRead8 0x0071 = 0x04");
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

//
// Settings present only on some machines.
//
class ConfiguredPlatformTest : public PlatformTest {
protected:
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.ManufacturingMode      = std::nullopt;
    Config.CorErrLoggingThreshold = u"42";
    Config.InSmm                  = FALSE;
    return Config;
  }
};

TEST_F (ConfiguredPlatformTest, AttributeStorageAndAbsentManufacturingMode) {
  VOID *Interface = nullptr;
  EXPECT_EQ (Bs ()->LocateProtocol (&gVornManufacturingModeProtocolGuid, nullptr, &Interface), EFI_NOT_FOUND);

  auto  *Storage = SmmProtocol<VORN_SMM_ATTRIBUTE_STORAGE_PROTOCOL> (gVornSmmAttributeStorageProtocolGuid);
  CHAR16 Data[4] = {u'?', u'?', u'?', u'?'};
  UINTN  Size    = 2;
  EXPECT_EQ (
      Storage->GetAttribute (Storage, &gVornRasAttributeNamespaceGuid, u"CorErrLoggingThreshold", nullptr, &Size, Data),
      EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ (Size, 4u);
  Size = sizeof (Data);
  EXPECT_EQ (
      Storage->GetAttribute (Storage, &gVornRasAttributeNamespaceGuid, u"CorErrLoggingThreshold", nullptr, &Size, Data),
      EFI_SUCCESS);
  EXPECT_EQ (Size, 4u);
  EXPECT_EQ (std::u16string (Data, 4), u"42??");
  EXPECT_EQ (Storage->GetAttribute (Storage, &gVornRasAttributeNamespaceGuid, u"Other", nullptr, &Size, Data),
             EFI_NOT_FOUND);
  EXPECT_EQ (Storage->GetAttribute (Storage, &kGuidA, u"CorErrLoggingThreshold", nullptr, &Size, Data), EFI_NOT_FOUND);

  EFI_SMM_BASE2_PROTOCOL *Base2   = nullptr;
  BOOLEAN                 InSmram = TRUE;
  ASSERT_EQ (Bs ()->LocateProtocol (&gEfiSmmBase2ProtocolGuid, nullptr, (VOID **)&Base2), EFI_SUCCESS);
  EXPECT_EQ (Base2->InSmm (Base2, &InSmram), EFI_SUCCESS);
  EXPECT_EQ (InSmram, FALSE);
}

} // namespace
