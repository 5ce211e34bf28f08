/** @file
  vornsim: the default platform's ACPI tables, their dump (checked by iasl),
  the module booted on them, and the --acpi loader on good and malformed
  tables.
**/
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Host.h>
#include <IndustryStandard/Acpi.h>
#include <VornApeiLoggingSmm.h>

#include "Builder/AcpiCheck.h"
#include "Builder/AcpiDump.h"
#include "Builder/AcpiLoader.h"
#include "Builder/AcpiTables.h"
#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"
#include "Os/GhesReader.h"
#include <Library/WheaSignalLib.h>
#include "VornsimShell.h"
#include <SpiFlash.h>

namespace {

namespace fs = std::filesystem;
using Bytes  = std::vector<UINT8>;
using Ghes   = EFI_ACPI_6_3_GENERIC_HARDWARE_ERROR_SOURCE_STRUCTURE;

constexpr size_t kHestSources = 40; // first error source structure
constexpr size_t kErstEntries = 48; // first instruction entry

UINT8
Sum (const void *Data, size_t Length) {
  UINT8 Total = 0;
  for (size_t Index = 0; Index < Length; Index++) {
    Total = static_cast<UINT8> (Total + static_cast<const UINT8 *> (Data)[Index]);
  }
  return Total;
}

const EFI_ACPI_DESCRIPTION_HEADER *Header (UINT64 Address) {
  return Host::At<EFI_ACPI_DESCRIPTION_HEADER> (Address);
}

template <typename T> T Read (UINT64 Address) {
  T Value;
  std::memcpy (&Value, Host::At<void> (Address), sizeof (Value));
  return Value;
}

bool InReserved (UINT64 Address, UINT64 Length) {
  return Address >= Host::kReservedBase && Address + Length <= Host::kReservedBase + Host::kReservedSize;
}

template <typename T> void Put (Bytes &Data, size_t Offset, T Value) {
  std::memcpy (Data.data () + Offset, &Value, sizeof (Value));
}

class DefaultPlatformTest : public ::testing::Test {
protected:
  void SetUp () override {
    Host::PowerOn ();
    Platform = Sim::BuildDefaultAcpiPlatform ();
  }
  Sim::AcpiPlatform Platform;
};

TEST_F (DefaultPlatformTest, HestGivesEachGenericSourceItsOwnStatusBlock) {
  const UINT16 SourceIds[]     = {7, 8, 0xFFFE};
  const UINT8  Notifications[] = {4, 3, 3};
  ASSERT_EQ (40u + 3 * 64, Header (Platform.Hest)->Length);
  ASSERT_EQ (3u, Platform.StatusBlocks.size ());

  std::vector<std::pair<UINT64, UINT64>> Used; // [start, end) of every register and block
  for (UINT32 Index = 0; Index < 3; Index++) {
    SCOPED_TRACE (Index);
    const Ghes Source = Read<Ghes> (Platform.Hest + kHestSources + 64 * Index);
    EXPECT_EQ (SourceIds[Index], Source.SourceId);
    EXPECT_EQ (Notifications[Index], Source.NotificationStructure.Type);
    const UINT64 Register = Source.ErrorStatusAddress.Address;
    const UINT64 Block    = Read<UINT64> (Register);
    EXPECT_TRUE (InReserved (Register, 8) && InReserved (Block, Source.ErrorStatusBlockLength));
    EXPECT_EQ (Block, Platform.StatusBlocks[Index].StatusBlock);
    for (const auto &[Start, End] : Used) {
      EXPECT_TRUE (Register + 8 <= Start || Register >= End) << "register overlaps";
      EXPECT_TRUE (Block + Source.ErrorStatusBlockLength <= Start || Block >= End) << "block overlaps";
    }
    Used.emplace_back (Register, Register + 8);
    Used.emplace_back (Block, Block + Source.ErrorStatusBlockLength);
  }
}

//
// Booted on the default platform and flash, the module takes the default
// status blocks, and the ERST is in place: an OS stores a record through it.
//
TEST (SimulatorBootTest, ModuleTakesTheDefaultStatusBlocksAndErst) {
  Host::Flash::AttachMemory (FlashImage::BuildDefault ());
  const Sim::BootResult Result = Sim::Boot (Sim::BootOptions ());
  EXPECT_EQ ("Success", Sim::StatusText (Result.Status));
  const auto &Private = mPrivateDataVornApeiLogging;
  ASSERT_EQ (3u, Result.Platform.StatusBlocks.size ());
  EXPECT_EQ (Result.Platform.StatusBlocks[0].StatusBlock, Private.pApeiHestGhessErrStsDataBlkNmi);
  EXPECT_EQ (Result.Platform.StatusBlocks[1].StatusBlock, Private.pApeiHestGhessErrStsDataBlkSci);
  EXPECT_EQ (Result.Platform.StatusBlocks[2].StatusBlock, Private.pApeiHestGhessErrStsDataBlkSciVmwareMemPageRetire);
  EXPECT_EQ (0x2000u, Private.ApeiHestGhessErrStsDataBlkLengthSciVmwareMemPageRetire);

  ASSERT_NE (Private.pErstSpiStoreInformation, nullptr);
  EXPECT_EQ (Private.pErstSpiStoreInformation->LengthTotalFv, 0x20000u);
  EXPECT_EQ (reinterpret_cast<UINT64> (Private.pErstParameterBlock),
             Read<UINT64> (Result.Platform.Erst + kErstEntries + 8));
  Sim::ErstDriver Os (Result.Platform.Erst);
  EXPECT_EQ (Os.Write (Cper::BuildRecord (Cper::RecordSpec ())), Sim::ErstResult::Success);
  EXPECT_EQ (Os.RecordCount (), 1u);
}

//
// Every dumped table with a standard header disassembles cleanly. (iasl
// refuses any binary RSDP, even one it compiled itself: the checksum test
// above covers it.)
//
class IaslTest : public DefaultPlatformTest, public ::testing::WithParamInterface<const char *> {};

TEST_P (IaslTest, DisassemblesWithoutComplaint) {
  VornsimShell Directory;
  Sim::DumpAcpiTables (Platform, Directory.Directory ());
  const std::string          Name   = GetParam ();
  const VornsimShell::Result Result = Directory.Run ("iasl -d " + Name + ".dat");
  ASSERT_EQ (0, Result.Status) << Result.Err;
  std::string Output = Result.Err;
  for (const std::string &Line : Result.Out) {
    Output += Line + "\n";
  }
  for (const char *Complaint : {"Warning", "Error", "Remark", "checksum", "Invalid"}) {
    EXPECT_EQ (std::string::npos, Output.find (Complaint)) << Output;
  }
  const Bytes       Listing = Directory.Read (Name + ".dsl");
  const std::string Text (Listing.begin (), Listing.end ());
  std::string       Signature = Name;
  std::transform (Signature.begin (), Signature.end (), Signature.begin (), ::toupper);
  EXPECT_NE (std::string::npos, Text.find ("Signature : \"" + Signature + "\"")) << Text;
  EXPECT_EQ (std::string::npos, Text.find ("Incorrect")) << Text;
}

INSTANTIATE_TEST_SUITE_P (Tables, IaslTest, ::testing::Values ("xsdt", "rsdt", "hest", "erst"), [] (const auto &Info) {
  return std::string (Info.param);
});

//
// The --acpi loader, on tables dumped from the default platform.
//
class AcpiLoaderTest : public DefaultPlatformTest {
protected:
  void SetUp () override {
    DefaultPlatformTest::SetUp ();
    Sim::DumpAcpiTables (Platform, Directory.Directory ());
    Hest = Directory.Read ("hest.dat");
    Erst = Directory.Read ("erst.dat");
    Host::PowerOn ();
  }

  Sim::AcpiPlatform Load () {
    Directory.Write ("hest.dat", Hest);
    Directory.Write ("erst.dat", Erst);
    return Sim::LoadAcpiPlatform (Directory.Directory (), Report);
  }

  VornsimShell      Directory;
  Bytes             Hest;
  Bytes             Erst;
  std::stringstream Report;
};

TEST_F (AcpiLoaderTest, RoundTripPlacesTablesAndPointsRegistersAtSimulatedMemory) {
  fs::rename (Directory.File ("erst.dat"), Directory.File ("ERST.DAT")); // names match in any case
  Directory.Write ("hest.dat", Hest);
  const Sim::AcpiPlatform Loaded = Sim::LoadAcpiPlatform (Directory.Directory (), Report);

  // Same bytes but for the placed register addresses and the checksum.
  Bytes Placed (Host::At<UINT8> (Loaded.Hest), Host::At<UINT8> (Loaded.Hest) + Hest.size ());
  ASSERT_EQ (3u, Loaded.StatusBlocks.size ());
  for (UINT32 Index = 0; Index < 3; Index++) {
    const size_t Gas      = kHestSources + 64 * Index + 24;
    const UINT64 Register = Read<UINT64> (Loaded.Hest + Gas);
    EXPECT_EQ (Loaded.StatusBlocks[Index].StatusBlock, Read<UINT64> (Register));
    EXPECT_TRUE (InReserved (Loaded.StatusBlocks[Index].StatusBlock, 0x2000));
    std::memcpy (Placed.data () + Gas, Hest.data () + Gas, 8);
  }
  Placed[9] = Hest[9];
  EXPECT_EQ (Hest, Placed);

  for (UINT64 Table : {Loaded.Hest, Loaded.Erst}) {
    EXPECT_EQ (0, Sum (Header (Table), Header (Table)->Length));
  }
  EXPECT_EQ (Loaded.Hest, Read<UINT64> (Loaded.Root.Xsdt + 36));
  EXPECT_EQ (Loaded.Erst, Read<UINT64> (Loaded.Root.Xsdt + 44));

  ASSERT_EQ (16u, Loaded.ErstRegisters.size ());
  for (UINT32 Index = 0; Index < 16; Index++) {
    const UINT64 Address = Read<UINT64> (Loaded.Erst + kErstEntries + 32 * Index + 8);
    if (Index == 5) {
      EXPECT_EQ (0xB0u, Address);
    } else {
      EXPECT_TRUE (InReserved (Address, 8)) << Index;
    }
  }
}

TEST_F (AcpiLoaderTest, WrongChecksumIsAWarningAndTheTableIsRepaired) {
  Hest[9] ^= 0x5A;
  const Sim::AcpiPlatform Loaded = Load ();
  EXPECT_EQ (0, Sum (Header (Loaded.Hest), Header (Loaded.Hest)->Length));
  char Expected[160];
  std::snprintf (
      Expected, sizeof (Expected),
      "vornsim: warning: HEST checksum 0x%02X is wrong (0x%02X is right); the placed table gets a recomputed "
      "checksum\n",
      Hest[9], Hest[9] ^ 0x5A);
  EXPECT_EQ (0u, Report.str ().find (Expected)) << Report.str ();
}

TEST_F (AcpiLoaderTest, ServerHestWithMachineCheckAerAndGhesV2SourcesIsWalked) {
  // MCE with 2 banks (40 + 56), CMC without banks (48), NMI (20), root-port
  // AER (48), then a GHES and a GHESv2 with a Read Ack register in memory.
  Bytes      Sources;
  const auto Add = [&Sources] (UINT16 Type, size_t Length, std::function<void (Bytes &)> Fill) {
    Bytes Structure (Length, 0);
    Put<UINT16> (Structure, 0, Type);
    Fill (Structure);
    Sources.insert (Sources.end (), Structure.begin (), Structure.end ());
  };
  Add (0, 40 + 2 * 28, [] (Bytes &S) { S[32] = 2; });
  Add (1, 48, [] (Bytes &) {});
  Add (2, 20, [] (Bytes &) {});
  Add (6, 48, [] (Bytes &) {});
  const Bytes Ghes9 (Hest.begin () + kHestSources, Hest.begin () + kHestSources + 64);
  Sources.insert (Sources.end (), Ghes9.begin (), Ghes9.end ());
  Add (10, 92, [&Ghes9] (Bytes &S) {
    std::copy (Ghes9.begin () + 2, Ghes9.end (), S.begin () + 2);
    Put<UINT16> (S, 2, 0x20);
    Put<UINT32> (S, 60, 0x1000);
    S[64] = 0; // Read Ack register in system memory
    S[65] = 64;
    S[67] = EFI_ACPI_6_3_QWORD;
    Put<UINT64> (S, 76, 0xF0); // preserve
    Put<UINT64> (S, 84, 0x01); // write
  });
  Hest.resize (kHestSources);
  Hest.insert (Hest.end (), Sources.begin (), Sources.end ());
  Put<UINT32> (Hest, 4, static_cast<UINT32> (Hest.size ()));
  Put<UINT32> (Hest, 36, 6);

  const Sim::AcpiPlatform Loaded = Load ();
  ASSERT_EQ (2u, Loaded.StatusBlocks.size ());
  EXPECT_EQ (4u, Loaded.StatusBlocks[0].Index);
  EXPECT_EQ (7, Loaded.StatusBlocks[0].SourceId);
  EXPECT_EQ (0u, Loaded.StatusBlocks[0].ReadAckRegister);
  EXPECT_EQ (5u, Loaded.StatusBlocks[1].Index);
  EXPECT_EQ (10, Loaded.StatusBlocks[1].Type);
  EXPECT_EQ (0x20, Loaded.StatusBlocks[1].SourceId);
  EXPECT_EQ (0x1000u, Loaded.StatusBlocks[1].StatusBlockLength);
  const UINT64 V2 = Loaded.Hest + Hest.size () - 92;
  EXPECT_EQ (Loaded.StatusBlocks[1].StatusBlock, Read<UINT64> (Read<UINT64> (V2 + 24)));
  EXPECT_EQ (Loaded.StatusBlocks[1].ReadAckRegister, Read<UINT64> (V2 + 68));
  EXPECT_TRUE (InReserved (Loaded.StatusBlocks[1].ReadAckRegister, 8));

  // Linux acknowledges a GHESv2 block through its Read Ack register too:
  // the preserved bits kept, the write bits set.
  *Host::At<UINT64> (Loaded.StatusBlocks[1].ReadAckRegister) = 0x3C;
  *Host::At<UINT32> (Loaded.StatusBlocks[1].StatusBlock)     = 1;
  std::ostringstream Out;
  Sim::GhesReader    Os (Loaded.Hest, Out);
  ASSERT_EQ (EFI_SUCCESS, VornTriggerWheaNmi (NULL, NULL));
  EXPECT_EQ (2u, Os.Poll ().size ()) << Out.str ();
  EXPECT_EQ (0u, *Host::At<UINT32> (Loaded.StatusBlocks[1].StatusBlock));
  EXPECT_EQ (0x31u, *Host::At<UINT64> (Loaded.StatusBlocks[1].ReadAckRegister));
}

//
// Malformed inputs: each is refused with a message naming the file.
//
struct MalformedCase {
  const char                                                      *Name;
  std::function<void (const fs::path &, Bytes &Hest, Bytes &Erst)> Break;
  const char *File; // the file the message names; "" for the directory
  const char *Message;
};

class AcpiLoaderMalformedTest : public AcpiLoaderTest, public ::testing::WithParamInterface<MalformedCase> {};

TEST_P (AcpiLoaderMalformedTest, IsRefusedWithAClearError) {
  const MalformedCase &Case = GetParam ();
  Directory.Write ("hest.dat", Hest);
  Directory.Write ("erst.dat", Erst);
  Case.Break (Directory.Directory (), Hest, Erst);
  if (fs::exists (Directory.File ("hest.dat"))) {
    Directory.Write ("hest.dat", Hest);
  }
  if (fs::exists (Directory.File ("erst.dat"))) {
    Directory.Write ("erst.dat", Erst);
  }
  const std::string Where =
      std::string (Case.File).empty () ? Directory.Directory ().string () : Directory.File (Case.File).string ();
  try {
    Sim::LoadAcpiPlatform (Directory.Directory (), Report);
    ADD_FAILURE () << "accepted";
  } catch (const Sim::AcpiTableError &Error) {
    EXPECT_EQ (Where + ": " + Case.Message, Error.what ());
  }
}

const MalformedCase kMalformedCases[] = {
    {"MissingErst", [] (const fs::path &D, Bytes &, Bytes &) { fs::remove (D / "erst.dat"); }, "",
     "no ERST table (expected erst.dat or erst.aml)"},
    {"TruncatedHeader", [] (const fs::path &, Bytes &H, Bytes &) { H.resize (20); }, "hest.dat",
     "HEST table truncated: 0x14 bytes, less than an ACPI table header (0x24)"},
    {"WrongSignature", [] (const fs::path &, Bytes &H, Bytes &) { H[3] = 'X'; }, "hest.dat",
     "signature is 'HESX', expected 'HEST'"},
    {"ErstCountDisagreesWithLength", [] (const fs::path &, Bytes &, Bytes &E) { Put<UINT32> (E, 44, 15); }, "erst.dat",
     "ERST Length 0x230 does not match 48 + 32 x 15 entries (0x210)"},
};

INSTANTIATE_TEST_SUITE_P (Inputs,
                          AcpiLoaderMalformedTest,
                          ::testing::ValuesIn (kMalformedCases),
                          [] (const auto &Info) { return std::string (Info.param.Name); });

//
// A HEST the module should meet as the user wrote it: placed with the field
// unchanged, a warning, and the module boots on it.
//
struct AsGivenCase {
  const char *Name;
  size_t      Offset; // of the HEST field changed
  size_t      Size;
  UINT64      Value;
  const char *Warning;
};

class AcpiLoaderAsGivenTest : public AcpiLoaderTest, public ::testing::WithParamInterface<AsGivenCase> {};

TEST_P (AcpiLoaderAsGivenTest, PassesTheHestOnWithAWarning) {
  const AsGivenCase &Case = GetParam ();
  std::memcpy (Hest.data () + Case.Offset, &Case.Value, Case.Size);
  Directory.Write ("hest.dat", Hest);
  Directory.Write ("erst.dat", Erst);
  Sim::BootOptions Options;
  Options.AcpiDirectory        = Directory.Directory ();
  Options.FlashImage           = Directory.File ("flash.img");
  Options.Report               = &Report;
  const Sim::BootResult Booted = Sim::Boot (Options);
  UINT64                Placed = 0;
  std::memcpy (&Placed, Host::At<UINT8> (Booted.Platform.Hest + Case.Offset), Case.Size);
  EXPECT_EQ (Case.Value, Placed);
  EXPECT_NE (std::string::npos, Report.str ().find (std::string ("vornsim: warning: ") + Case.Warning + "\n"))
      << Report.str ();
}

INSTANTIATE_TEST_SUITE_P (
    Inputs,
    AcpiLoaderAsGivenTest,
    ::testing::Values (
        AsGivenCase{"CountPastItsStructures", 36, 4, 4,
                    "HEST lists 4 error sources but the table ends after 3; the table is passed on as it is"},
        AsGivenCase{"StructureAfterTheCount", 36, 4, 2,
                    "HEST has 0x40 bytes after its 2 error sources; the table is passed on as it is"},
        AsGivenCase{"UnknownFirstType", kHestSources, 2, 3,
                    "HEST error source 0 at offset 0x28 has type 3, which has no defined length; the 3 structures "
                    "from there on cannot be walked; the table is passed on as it is"},
        AsGivenCase{"ZeroStatusAddress", kHestSources + 24, 8, 0,
                    "HEST error source 0 (type 9, Source Id 0x0007): Error Status Address is 0: kept, no status "
                    "block placed"}),
    [] (const auto &Info) { return std::string (Info.param.Name); });

//
// acpi dump --after-boot: the ERST as the module left it, patched to reach
// its parameter region in reserved memory, with a valid checksum.
//
TEST_F (AcpiLoaderTest, TablesAfterBootHoldTheErstTheModulePatched) {
  Sim::BootOptions Options;
  Options.FlashImage           = Directory.File ("flash.img");
  const Sim::BootResult Booted = Sim::Boot (Options);
  Sim::DumpAcpiTables (Booted.Platform, Directory.File ("after"));
  const Bytes Patched = Directory.Read ("after/erst.dat");
  ASSERT_EQ (Erst.size (), Patched.size ());
  EXPECT_EQ (0, Sum (Patched.data (), Patched.size ()));
  UINT64 Placeholder, Register;
  std::memcpy (&Placeholder, Erst.data () + kErstEntries + 8, sizeof (Placeholder));
  std::memcpy (&Register, Patched.data () + kErstEntries + 8, sizeof (Register));
  EXPECT_NE (Placeholder, Register);
  EXPECT_TRUE (InReserved (Register, sizeof (Register)));
}

} // namespace
