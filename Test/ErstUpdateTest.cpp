/** @file
  ERST set-up: the parameter region, the patched ERST, the store brought
  into a usable state and the ERST software SMI registered; and the ERST
  step of module start-up.
**/
#include <algorithm>
#include <cstring>

#include <ErstFixture.h>

#include "Builder/Boot.h"
#include <TestAcpiTables.h>
#include <IndustryStandard/Acpi.h>
#include <SpiFlash.h>

namespace {

using Host::Flash::Cut;
using Host::Flash::Op;

const char kUpdate[] = "VornApeiLoggingUpdateErst: ";

class ErstUpdateTest : public ErstFixture {
protected:
  static std::vector<std::string> UpdateLines () {
    std::vector<std::string> Lines;
    for (const auto &Text : LinesContaining (kUpdate)) {
      Lines.push_back (Text.substr (CpuPrefix (0).size () + sizeof (kUpdate) - 1));
    }

    return Lines;
  }

  //
  // TRUE when SMI 0x9C reaches the ERST command handler.
  //
  static bool HandlerRegistered () {
    ClearLog ();
    OsCommand (ERST_PERSISTENT_DUMMY_WRITE);
    return !LinesContaining ("VornApeiLoggingErstElogSwSmiCallback: ").empty ();
  }

  static UINT8 TableSum (UINT64 Table) {
    const auto *Bytes = reinterpret_cast<const UINT8 *> (Table);
    UINT8       Sum   = 0;
    for (UINT32 Index = 0; Index < reinterpret_cast<const EFI_ACPI_DESCRIPTION_HEADER *> (Table)->Length; Index++) {
      Sum = static_cast<UINT8> (Sum + Bytes[Index]);
    }

    return Sum;
  }
};

TEST_F (ErstUpdateTest, PointsTableAtRegionAndInitialisesErasedStore) {
  ASSERT_EQ (UpdateErst (), EFI_SUCCESS);

  const UINT64 Base = reinterpret_cast<UINT64> (Region ());
  // Field each entry's register must reach, in action order; -1: the platform's own register.
  const INT64 Offsets[16] = {0x00, 0x00, 0x00, 0x00, 0x18, -1,   0x28, 0x20,
                             0x58, 0x08, 0x30, 0x00, 0x10, 0x38, 0x40, 0x48};
  const auto *Entries = reinterpret_cast<const EFI_ACPI_6_3_ERST_SERIALIZATION_INSTRUCTION_ENTRY *> (ErstTable () + 48);
  for (UINT32 Index = 0; Index < 16; Index++) {
    EXPECT_EQ (Entries[Index].RegisterRegion.Address,
               Offsets[Index] < 0 ? ErstRegisters ()[Index].Address : Base + Offsets[Index])
        << "entry " << Index;
  }

  EXPECT_EQ (TableSum (ErstTable ()), 0u);
  VORN_ERST_PARAMETER_REGION Expected = {};
  Expected.ErrorLogAddressRange       = Base + 0x60;
  Expected.ErrorLogAddressLength      = 0x1FA0;
  Expected.CurRecordID                = MAX_UINT64;
  EXPECT_EQ (std::memcmp (Region (), &Expected, sizeof (Expected)), 0);
  EXPECT_EQ (mPrivateDataVornApeiLogging.pErstRecordBlock, reinterpret_cast<UINT8 *> (Base + 0x60));
  EXPECT_EQ (mPrivateDataVornApeiLogging.OsBufferSize, 0x1FA0u);
  EXPECT_EQ (Flash (StoreHeader (), 8), (std::vector<UINT8>{'E', 'R', 'S', 'T', ' ', 'L', 'O', 'G'}));

  EXPECT_TRUE (HandlerRegistered ());
}

TEST_F (ErstUpdateTest, NullArgumentsAreRefused) {
  EFI_SMM_SW_DISPATCH2_PROTOCOL Dispatch     = {};
  UINT8                         Table[0x230] = {};

  EXPECT_EQ (VornApeiLoggingUpdateErst (nullptr, Table), EFI_INVALID_PARAMETER);
  EXPECT_EQ (VornApeiLoggingUpdateErst (&Dispatch, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ (UpdateLines (), (std::vector<std::string>{"ERROR pSwDispatch2Protocol is NULL, aborting...",
                                                       "ERROR pApeiErstTable is NULL, aborting..."}));
  EXPECT_EQ (Region (), nullptr);
}

//
// A failing step of the set-up: its status comes back, its line is the last
// one before the return, and the command handler stays unregistered.
//
struct SetUpFailure {
  const char *Name;
  void (*Arrange) ();
  EFI_STATUS  Status;
  const char *LastLine;
  bool        Registered;
};

void PrintTo (const SetUpFailure &Case, std::ostream *Out) {
  *Out << Case.Name;
}

class ErstUpdateFailureTest : public ErstUpdateTest, public ::testing::WithParamInterface<SetUpFailure> {};

TEST_P (ErstUpdateFailureTest, ReturnsStatusOfFailedStep) {
  // A store with an OS-cleared record, so that start-up defragments.
  ASSERT_EQ (UpdateErst (), EFI_SUCCESS);
  ASSERT_EQ (WriteRecord (1, 0x100), 0u);
  Host::Flash::Poke (Records () + 76, std::vector<UINT8>{0x22});
  PowerCycle ();
  GetParam ().Arrange ();

  EXPECT_EQ (UpdateErst (), GetParam ().Status);

  EXPECT_EQ (UpdateLines ().back (), GetParam ().LastLine);
  if (Region () != nullptr) {
    EXPECT_EQ (HandlerRegistered (), GetParam ().Registered);
  }
}

INSTANTIATE_TEST_SUITE_P (
    Steps,
    ErstUpdateFailureTest,
    ::testing::Values (
        SetUpFailure{
            "RegionAllocation", [] { Host::SetFault (Host::Service::BsAllocatePool, {}); }, EFI_DEVICE_ERROR,
            "ERROR Device Error allocating EfiReservedMemoryType 0 length 0x0000000000002000 bytes for mPrivateDataVornApeiLogging.pErstParameterBlock, aborting...",
            false},
        SetUpFailure{"Discovery", [] { Host::SetFault (Host::Service::SmmLocateHandle, {}); }, EFI_NOT_FOUND,
                     "ERROR Not Found from VornApeiLoggingGetErstPersistentStoreData", false},
        SetUpFailure{"Defragmentation",
                     [] {
                       Host::SetFault (Host::Service::BsAllocatePages, {});
                       Host::Flash::InjectFailure ({Op::Erase, 1, Cut::Fail, 0});
                     },
                     EFI_DEVICE_ERROR, "ERROR Device Error from VornApeiLoggingErstDefragment, aborting...", false},
        SetUpFailure{"Registration", [] { Host::SetFault (Host::Service::SwDispatch2Register, {}); }, EFI_DEVICE_ERROR,
                     "Exiting with status Device Error", false}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

TEST_F (ErstUpdateTest, FailedClearOfDamagedStoreIsReturned) {
  Host::Flash::InjectFailure ({Op::Erase, 1, Cut::Fail, 0});
  EXPECT_EQ (UpdateErst (), EFI_DEVICE_ERROR);
  EXPECT_EQ (UpdateLines ().back (), "ERROR Device Error clearing and re-initializing entire pstore region");
  EXPECT_FALSE (HandlerRegistered ());
}

//
// Module start-up finds the ERST and sets it up; without one it goes on.
//
TEST_F (ErstUpdateTest, StartUpSetsUpErst) {
  const auto Result = Sim::Boot (Sim::BootOptions ());

  EXPECT_EQ (Result.Status, EFI_SUCCESS);
  EXPECT_TRUE (mPrivateDataVornApeiLogging.ErstPresent);
  const auto Lines = LinesContaining ("VornApeiLoggingSmmConstructor: ");
  const auto At =
      std::find (Lines.begin (), Lines.end (), Line (0, "VornApeiLoggingSmmConstructor: Retrieving ACPI ERST address"));
  ASSERT_GE (std::distance (At, Lines.end ()), 3);
  EXPECT_EQ (
      std::vector<std::string> (At, At + 3),
      (std::vector<std::string>{
          Line (0, "VornApeiLoggingSmmConstructor: Retrieving ACPI ERST address"),
          Line (0, Fmt ("VornApeiLoggingSmmConstructor: ERST @ 0x%016llX", (unsigned long long)Result.Platform.Erst)),
          Line (0, "VornApeiLoggingSmmConstructor: Update ACPI APEI ERST data"),
      }));
  EXPECT_EQ (UpdateLines ().back (), "Exiting with status Success");
  EXPECT_TRUE (HandlerRegistered ());
}

TEST_F (ErstUpdateTest, StartUpWithoutErstGoesOn) {
  AcpiTables::InstallApeiTables ();

  EXPECT_EQ (_ModuleEntryPoint (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);

  EXPECT_FALSE (mPrivateDataVornApeiLogging.ErstPresent);
  EXPECT_EQ (Region (), nullptr);
  EXPECT_TRUE (Logged ("VornApeiLoggingSmmConstructor: WARN Not Found searching for ERST, ERST not found..."));
  EXPECT_TRUE (UpdateLines ().empty ());
}

} // namespace
