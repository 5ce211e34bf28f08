/** @file
  Each switch against the specified rule it replaces: the same steps run on
  a machine with the switch off, where the harm shows, and on one with it
  on, where it is gone. What is compared is what the OS or the flash sees:
  ERST statuses, the OS buffer, flash bytes, the identifiers an OS lists.
**/
#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <set>

#include <ErstFixture.h>

#include <CperSections.h>
#include <Library/DebugLib.h>
#include <Library/ElogCperDump.h>
#include <Pi/PiFirmwareVolume.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Handlers/CperBuilder.h"
#include "Os/GhesReader.h"

namespace {

class FixSwitchTest;

struct SwitchCase {
  const char                                  *Name;
  Host::Fix                                    Fix;
  std::set<Host::Fix>                          Base; // on in both runs
  std::function<std::string (FixSwitchTest &)> Observe;
  const char                                  *Off;
  const char                                  *On;
};

class FixSwitchTest : public ErstFixture, public ::testing::WithParamInterface<SwitchCase> {
public:
  using ErstFixture::ClearLog, ErstFixture::CperRecord, ErstFixture::Flash, ErstFixture::Fmt,
      ErstFixture::kVolumeLength, ErstFixture::LinesContaining, ErstFixture::OsCommand, ErstFixture::PowerCycle,
      ErstFixture::Reboot, ErstFixture::Records, ErstFixture::Region, ErstFixture::StoredIds, ErstFixture::UpdateErst,
      ErstFixture::Volume, ErstFixture::WriteRecord;

  //
  // Errors only and no dumps: the cases write large stores.
  //
  Host::MachineConfig MachineConfiguration () const override {
    Host::MachineConfig Config;
    Config.DebugPrintErrorLevel = DEBUG_ERROR;
    Config.DebugPropertyMask    = 0x03;
    Config.Fixes                = mFixes;
    Config.ErstSpareBase        = FlashImage::SpareAreaAddress ();
    Config.ErstSpareSize        = mSpare ? FlashImage::kSpareAreaLength : 0;
    return Config;
  }

  //
  // Runs Step with the power going at the Nth program from now, Landed
  // bytes of it on flash.
  //
  static void CutAtProgram (UINT64 Nth, UINT32 Landed, const std::function<void ()> &Step) {
    Host::Flash::InjectFailure ({Host::Flash::Op::Program, Nth, Host::Flash::Cut::Partial, Landed, TRUE});
    EXPECT_THROW (Step (), Host::Flash::PowerLost);
  }

  //
  // A fresh machine and flash image with these switches, the ERST set up.
  //
  EFI_STATUS Start (const std::set<Host::Fix> &Fixes) {
    mFixes = Fixes;
    ErstFixture::SetUp ();
    return UpdateErst ();
  }

  void SetUp () override {}

  //
  // An OS write of a record of Length bytes; returns the ERST status.
  //
  static UINT64 OsWrite (UINT64 RecordId, UINT32 Length = 0x100) {
    PlaceRecord (CperRecord (RecordId, Length));
    OsCommand (ERST_PERSISTENT_SET_RECORD);
    return Region ()->Status;
  }

  static void OsWrite (std::initializer_list<UINT64> RecordIds) {
    for (UINT64 Id : RecordIds) {
      EXPECT_EQ (OsWrite (Id), ERST_STATUS_SUCCESS);
    }
  }

  //
  // The identifiers an OS enumerates: the current one, then a read of each
  // to move on.
  //
  static std::string OsList () {
    std::string Ids;
    for (UINT64 Id = Region ()->CurRecordID; (Id != MAX_UINT64) && (Ids.size () < 64); Id = Region ()->CurRecordID) {
      Ids += Fmt ("%llu ", static_cast<unsigned long long> (Id));
      OsCommand (ERST_PERSISTENT_GET_RECORD, Id);
    }
    return Ids;
  }

  //
  // A status block of BlockLength bytes in its cleared state, with a marked
  // block right behind it.
  //
  static GENERIC_ERROR_STATUS *StatusBlock (UINT32 BlockLength) {
    const UINT64 Block = Host::AllocateReserved (BlockLength + 0x1000);
    std::memset (reinterpret_cast<void *> (Block), 0, BlockLength);
    std::memset (reinterpret_cast<void *> (Block + BlockLength), 0xA5, 0x1000);
    return Host::At<GENERIC_ERROR_STATUS> (Block);
  }

  static bool Untouched (const void *Address, size_t Length, UINT8 Value) {
    const auto *Bytes = static_cast<const UINT8 *> (Address);
    return std::all_of (Bytes, Bytes + Length, [Value] (UINT8 Byte) { return Byte == Value; });
  }

  static EFI_STATUS Populate (const Cper::RecordSpec &Spec, GENERIC_ERROR_STATUS *Block, UINT32 BlockLength) {
    return VornApeiLoggingElogPopulateGhess (&mVornApeiLoggingSmmProtocol,
                                             Cper::PlaceInSmram (Cper::BuildRecord (Spec)), Block, BlockLength);
  }

  bool mSpare = true;

private:
  std::set<Host::Fix> mFixes;
};

const SwitchCase kCases[] = {
    {"ErstRead",
     Host::Fix::ErstRead,
     {},
     [] (FixSwitchTest &T) {
       const auto Record = T.CperRecord (5, 0x200);
       T.OsWrite (5, 0x200);
       std::memset (reinterpret_cast<void *> (T.Region ()->ErrorLogAddressRange), 0, Record.size ());
       T.OsCommand (ERST_PERSISTENT_GET_RECORD, 5);
       const bool Holds = std::memcmp (reinterpret_cast<void *> (T.Region ()->ErrorLogAddressRange), Record.data (),
                                       Record.size ()) == 0;
       return T.Fmt ("status %llu, buffer %s", static_cast<unsigned long long> (T.Region ()->Status),
                     Holds ? "holds the record" : "zeroed");
     },
     "status 0, buffer zeroed",
     "status 0, buffer holds the record"},
    {"ErstClear",
     Host::Fix::ErstClear,
     {},
     [] (FixSwitchTest &T) {
       T.OsWrite (7);
       T.OsWrite (8);
       T.OsCommand (ERST_PERSISTENT_CLEAR_RECORD, 7);
       const UINT64 Status = T.Region ()->Status;
       const UINT64 Count  = T.Region ()->RecordCount;
       const UINT8  Flag   = T.Flash (T.Records () + 76, 1)[0];
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       return T.Fmt ("status %llu, count %llu, flag 0x%02X, stored after reboot %zu",
                     static_cast<unsigned long long> (Status), static_cast<unsigned long long> (Count), Flag,
                     T.StoredIds ().size ());
     },
     "status 0, count 1, flag 0xFF, stored after reboot 2",
     "status 0, count 1, flag 0x22, stored after reboot 1"},
    {"FreeSpace",
     Host::Fix::FreeSpace,
     {},
     [] (FixSwitchTest &T) {
       UINT64 Stored = 0;
       while (T.WriteRecord (Stored + 1, 8000) == ERST_STATUS_SUCCESS) {
         Stored++;
       }
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const UINT64 After   = T.WriteRecord (100, 8000);
       const auto   Faults  = Host::Flash::ProgramFaults ();
       const bool   Outside = std::any_of (Faults.begin (), Faults.end (), [&T] (const Host::Flash::ProgramFault &F) {
         return F.Address >= T.Volume () + T.kVolumeLength;
       });
       return T.Fmt ("%llu fit, after reboot status %llu, %s", static_cast<unsigned long long> (Stored),
                     static_cast<unsigned long long> (After),
                     Outside ? "programmed past the volume" : "nothing past the volume");
     },
     "16 fit, after reboot status 3, programmed past the volume",
     "16 fit, after reboot status 1, nothing past the volume"},
    {"FvHeader",
     Host::Fix::FvHeader,
     {},
     [] (FixSwitchTest &T) {
       // An extended header of 0x24 bytes, so the store begins 16 bytes later.
       const UINT8 ExtHeaderSize[] = {0x24, 0, 0, 0};
       Host::Flash::Poke (T.Volume () + FlashImage::kExtHeaderOffset + sizeof (EFI_GUID), ExtHeaderSize);
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const UINT64 Status     = T.WriteRecord (1, 0x100);
       const auto   Terminator = T.Flash (T.Volume () + sizeof (EFI_FIRMWARE_VOLUME_HEADER), 8);
       return T.Fmt ("write status %llu, block-map terminator %s", static_cast<unsigned long long> (Status),
                     T.Untouched (Terminator.data (), 8, 0x00) ? "kept" : "erased");
     },
     "write status 3, block-map terminator erased",
     "write status 0, block-map terminator kept"},
    {"HestLength",
     Host::Fix::HestLength,
     {},
     [] (FixSwitchTest &T) {
       Cper::RecordSpec Spec;
       Spec.BodyLength              = 4100;
       GENERIC_ERROR_STATUS *Block  = T.StatusBlock (0x1000);
       const EFI_STATUS      Status = T.Populate (Spec, Block, 0x1000);
       return Sim::StatusText (Status) + (T.Untouched (reinterpret_cast<UINT8 *> (Block) + 0x1000, 0x1000, 0xA5)
                                              ? ", next block intact"
                                              : ", next block overwritten");
     },
     "Success, next block overwritten",
     "Buffer Too Small, next block intact"},
    {"HestLengthLookup",
     Host::Fix::HestLength,
     {},
     [] (FixSwitchTest &) {
       // A HEST whose Length ends at its header; the generic source asked for lies behind it.
       struct HestWithOneSource {
         EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_HEADER      Header;
         EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE Ghes;
         UINT64                                               Register;
       };
       auto *Hest                    = Host::At<HestWithOneSource> (Host::AllocateAcpi (sizeof (HestWithOneSource)));
       *Hest                         = {};
       Hest->Header.Header.Length    = sizeof (Hest->Header);
       Hest->Header.ErrorSourceCount = 1;
       Hest->Ghes.Type               = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR;
       Hest->Ghes.SourceId           = 7;
       Hest->Ghes.RelatedSourceId    = 0xFFFF;
       Hest->Ghes.ErrorStatusAddress = {EFI_ACPI_6_3_SYSTEM_MEMORY, 64, 0, 4, (UINT64)(UINTN)&Hest->Register};
       Hest->Register                = 0x10801000;
       UINT64 Block = 0, Length = 0;
       return Sim::StatusText (
           VornApeiLoggingFindHestGhess (Hest, EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR, 7, 0xFFFF, &Block, &Length));
     },
     "Success",
     "Buffer Too Small"},
    {"CxlGuid",
     Host::Fix::CxlGuid,
     {},
     [] (FixSwitchTest &T) {
       Cper::RecordSpec Spec;
       Spec.Kind                    = Cper::SectionKind::CxlComponent;
       GENERIC_ERROR_STATUS *Block  = T.StatusBlock (0x2000);
       const EFI_STATUS      Status = T.Populate (Spec, Block, 0x2000);
       std::array<UINT8, 16> Type;
       std::memcpy (Type.data (), reinterpret_cast<UINT8 *> (Block + 1), Type.size ());
       return Sim::StatusText (Status) + ", the OS sees " + Sim::SectionTypeName (Type);
     },
     "Success, the OS sees unknown",
     "Success, the OS sees CXL General Media Event"},
    {"OsBuffer",
     Host::Fix::OsBuffer,
     {Host::Fix::ErstRead},
     [] (FixSwitchTest &T) {
       // SMRAM that happens to hold a CPER record, reached through LogOffset.
       const auto   Secret = T.CperRecord (0x5EC, 0x100);
       const UINT64 Smram  = Host::AllocateSmram (Secret.size ());
       std::memcpy (reinterpret_cast<void *> (Smram), Secret.data (), Secret.size ());
       T.OsCommand (ERST_PERSISTENT_SET_RECORD, 0, static_cast<UINT32> (Smram - T.Region ()->ErrorLogAddressRange));
       const UINT64 WriteStatus = T.Region ()->Status;
       const auto   Ids         = T.StoredIds ();
       // A read into SMRAM, through an error-log range the OS moved there.
       T.OsWrite (0x77);
       const UINT64 Target               = Host::AllocateSmram (0x100);
       T.Region ()->ErrorLogAddressRange = Target;
       T.OsCommand (ERST_PERSISTENT_GET_RECORD, 0x77);
       return T.Fmt ("write %llu, SMRAM record stored %s; read %llu, SMRAM %s",
                     static_cast<unsigned long long> (WriteStatus),
                     std::count (Ids.begin (), Ids.end (), 0x5EC) != 0 ? "yes" : "no",
                     static_cast<unsigned long long> (T.Region ()->Status),
                     T.Untouched (reinterpret_cast<void *> (Target), 0x100, 0) ? "untouched" : "written");
     },
     "write 0, SMRAM record stored yes; read 0, SMRAM written",
     "write 3, SMRAM record stored no; read 3, SMRAM untouched"},
    {"CperBounds",
     Host::Fix::CperBounds,
     {},
     [] (FixSwitchTest &T) {
       // A PCI component section that claims four register pairs and holds none.
       Cper::RecordSpec Spec;
       Spec.Kind                  = Cper::SectionKind::PciComponent;
       Spec.BodyLength            = sizeof (CPER_SECTION_PCI_COMPONENT);
       std::vector<UINT8> Record  = Cper::BuildRecord (Spec);
       const UINT32       Pairs[] = {2, 2};
       std::memcpy (&Record[Spec.SectionOffset + offsetof (CPER_SECTION_PCI_COMPONENT, MemoryNumber)], Pairs,
                    sizeof (Pairs));
       T.ClearLog ();
       DisplayCperRecord (DEBUG_ERROR, Cper::PlaceInSmram (Record));
       // And a section longer than the record it comes in.
       EFI_ERROR_SECTION_DESCRIPTOR Descriptor;
       std::memcpy (&Descriptor, &Record[sizeof (EFI_COMMON_ERROR_RECORD_HEADER)], sizeof (Descriptor));
       Descriptor.SectionLength = 0x400;
       std::memcpy (&Record[sizeof (EFI_COMMON_ERROR_RECORD_HEADER)], &Descriptor, sizeof (Descriptor));
       GENERIC_ERROR_STATUS *Block = T.StatusBlock (0x2000);
       const EFI_STATUS      Status =
           VornApeiLoggingElogPopulateGhess (&mVornApeiLoggingSmmProtocol, Cper::PlaceInSmram (Record), Block, 0x2000);
       return T.Fmt ("%zu register pair lines; populate %s", T.LinesContaining ("Register Pair[").size (),
                     Sim::StatusText (Status).c_str ());
     },
     "8 register pair lines; populate Success",
     "0 register pair lines; populate Invalid Parameter"},
    {"KeepOnEnable",
     Host::Fix::KeepOnEnable,
     {},
     [] (FixSwitchTest &T) {
       T.OsWrite (9);
       VornApeiLoggingSoftSmiEnable (nullptr, nullptr, nullptr, nullptr);
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       return T.Fmt ("stored after reboot %zu", T.StoredIds ().size ());
     },
     "stored after reboot 0",
     "stored after reboot 1"},
    {"TornTail",
     Host::Fix::TornTail,
     {},
     [] (FixSwitchTest &T) {
       T.OsWrite ({1, 2, 3});
       // A cut in the fourth record's header, then in the sixth one's data.
       T.CutAtProgram (1, 30, [&T] { T.OsWrite (4); });
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const size_t Kept = T.StoredIds ().size ();
       T.OsWrite (5);
       T.CutAtProgram (3, 40, [&T] { T.OsWrite (6); });
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const auto Ids = T.StoredIds ();
       return T.Fmt ("header torn: %zu kept; data torn: record 6 %s", Kept,
                     std::count (Ids.begin (), Ids.end (), 6) != 0 ? "kept with wrong bytes" : "dropped");
     },
     "header torn: 0 kept; data torn: record 6 kept with wrong bytes",
     "header torn: 3 kept; data torn: record 6 dropped"},
    {"SafeDefrag",
     Host::Fix::SafeDefrag,
     {},
     [] (FixSwitchTest &T) {
       T.OsWrite ({1, 2, 3});
       VornApeiLoggingSoftSmiEnable (nullptr, nullptr, nullptr, nullptr);
       T.OsWrite ({4, 5});
       // The next start-up defragments; the power goes at its first program.
       T.PowerCycle ();
       T.CutAtProgram (1, 0, [&T] { T.UpdateErst (); });
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const auto   Signature = T.Flash (T.Volume () + OFFSET_OF (EFI_FIRMWARE_VOLUME_HEADER, Signature), 4);
       const size_t Stored    = T.StoredIds ().size ();
       // A damaged store header: the store is cleared and takes writes again.
       Host::Flash::Poke (T.Records () - sizeof (ERST_STORE_HEADER), std::vector<UINT8> (1, 0));
       EXPECT_EQ (T.Reboot (), EFI_SUCCESS);
       const size_t Kept = T.StoredIds ().size ();
       return T.Fmt ("stored %zu, volume header %s; damaged store header: %zu kept, write %llu", Stored,
                     std::memcmp (Signature.data (), "_FVH", 4) == 0 ? "intact" : "gone", Kept,
                     static_cast<unsigned long long> (T.OsWrite (9)));
     },
     "stored 0, volume header gone; damaged store header: 0 kept, write 1",
     "stored 2, volume header intact; damaged store header: 0 kept, write 0"},
    {"DuplicateId",
     Host::Fix::DuplicateId,
     {},
     [] (FixSwitchTest &T) {
       T.OsWrite ({1, 2, 1, 3});
       const UINT64 Count = T.Region ()->RecordCount;
       return T.Fmt ("count %llu, listed ", static_cast<unsigned long long> (Count)) + T.OsList ();
     },
     "count 4, listed 1 3 ",
     "count 3, listed 2 1 3 "},
};

TEST_P (FixSwitchTest, HarmWithoutTheSwitchNoneWithIt) {
  const SwitchCase &Case = GetParam ();
  ASSERT_EQ (Start (Case.Base), EFI_SUCCESS);
  const std::string   Off   = Case.Observe (*this);
  std::set<Host::Fix> Fixes = Case.Base;
  Fixes.insert (Case.Fix);
  ASSERT_EQ (Start (Fixes), EFI_SUCCESS);
  const std::string On = Case.Observe (*this);
  EXPECT_EQ (Off, Case.Off);
  EXPECT_EQ (On, Case.On);
}

INSTANTIATE_TEST_SUITE_P (Switches,
                          FixSwitchTest,
                          ::testing::ValuesIn (kCases),
                          [] (const ::testing::TestParamInfo<SwitchCase> &Info) { return Info.param.Name; });

//
// Without firmware volume block handles discovery leaves no store
// information; the APEI-enable SMI then reaches mark-obsolete.
//
TEST_F (FixSwitchTest, MarkObsoleteWithoutStoreIsAnError) {
  Host::Flash::SetOptions ({TRUE, FALSE});
  EXPECT_EQ (Start ({Host::Fix::NullStore}), EFI_NOT_FOUND);
  Host::Flash::SetOptions ({});
  EXPECT_EQ (VornApeiLoggingSoftSmiEnable (nullptr, nullptr, nullptr, nullptr), EFI_NOT_READY);
  EXPECT_TRUE (Logged ("VornApeiLoggingErstMarkObsoleteRecords: ERROR "
                       "mPrivateDataVornApeiLogging.pErstSpiStoreInformation is NULL, aborting..."));
}

} // namespace

//
// Without a spare area safe store maintenance erases nothing: the store
// keeps its obsolete records rather than risk the others, and a torn header
// it cannot erase takes no write.
//
TEST_F (FixSwitchTest, SafeDefragWithoutSpareKeepsTheStore) {
  mSpare = false;
  ASSERT_EQ (Start ({Host::Fix::SafeDefrag, Host::Fix::TornTail}), EFI_SUCCESS);
  OsWrite ({1, 2, 3});
  VornApeiLoggingSoftSmiEnable (nullptr, nullptr, nullptr, nullptr);
  OsWrite (4);
  EXPECT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (StoredIds ().size (), 4u);
  EXPECT_EQ (LinesContaining ("ERROR no usable spare area").size (), 1u);
  EXPECT_EQ (OsWrite (5), ERST_STATUS_SUCCESS);
  CutAtProgram (1, 30, [] { OsWrite (6); });
  EXPECT_EQ (Reboot (), EFI_SUCCESS);
  EXPECT_EQ (OsWrite (7), ERST_STATUS_NOT_ENOUGH_SPACE);
}
