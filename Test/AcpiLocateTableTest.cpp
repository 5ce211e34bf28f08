/** @file
  ACPI table locator: root table choice, scan order, first match, and the
  whole log of each search.
**/
#include <gtest/gtest.h>

#include <TestAcpiTables.h>
#include <TestFormat.h>
#include <TestMachine.h>

#include <IndustryStandard/Acpi.h>
#include <Library/DebugLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <VornApeiLoggingSmm.h>

namespace {

constexpr UINT32 kFacp = SIGNATURE_32 ('F', 'A', 'C', 'P');
constexpr UINT32 kApic = SIGNATURE_32 ('A', 'P', 'I', 'C');

std::string SignatureText (UINT32 Signature) {
  return std::string (reinterpret_cast<const char *> (&Signature), 4);
}

class AcpiLocateTableTest : public MachineTest {
protected:
  void SetUp () override {
    MachineTest::SetUp ();
    ASSERT_EQ (UefiBootServicesTableLibConstructor (Host::ImageHandle (), Host::SystemTable ()), EFI_SUCCESS);
    mPrivateDataVornApeiLogging.SerDbgLevelConstructor = DEBUG_INFO;
  }

  static UINT64 Table (UINT32 Signature) {
    return AcpiTables::InstallTable (Signature, AcpiTables::Bytes (8, 0));
  }

  //
  // Runs the locator and returns its status; *Found gets the address.
  //
  static EFI_STATUS Locate (UINT32 Signature, UINT64 *Found) {
    *Found = 0xA5A5A5A5A5A5A5A5ULL;
    Host::ClearSerialOutput ();
    return VornApeiLoggingAcpiLocateTable (Signature, Found);
  }

  static std::string L (const std::string &Text) {
    return Line (0, "VornApeiLoggingAcpiLocateTable: " + Text);
  }

  static std::vector<std::string> Opening (UINT32 Signature, const std::string &RsdpLine, UINT64 Rsdt, UINT64 Xsdt) {
    return {L (Format ("Searching ACPI tables for entry signature = 0x%08X (%s)", Signature,
                       SignatureText (Signature).c_str ())),
            L (RsdpLine), L (Format ("RSDT at 0x%llX", static_cast<unsigned long long> (Rsdt))),
            L (Format ("XSDT at 0x%llX", static_cast<unsigned long long> (Xsdt)))};
  }

  //
  // The lines of a root table scan over its first Scanned entries.
  //
  static std::vector<std::string>
  Scan (const char *Root, UINT64 Address, UINT32 EntrySize, const std::vector<UINT64> &Entries, std::size_t Scanned) {
    const UINT32             Length = 36 + EntrySize * static_cast<UINT32> (Entries.size ());
    const UINT32             Count  = static_cast<UINT32> (Entries.size ());
    std::vector<std::string> Lines  = {
         L (Format ("%s length = 0x%X (%u)", Root, Length, Length)),
         L ("Size table header = 0x24 (36)"),
         L (Format ("%s NumberTableEntries = 0x%X (%u)", Root, Count, Count)),
         L (Format ("Scanning %s for requested table signature", Root)),
    };
    for (std::size_t Index = 0; Index < Scanned; Index++) {
      const UINT64 Entry     = Entries[Index];
      const UINT32 Signature = *Host::At<UINT32> (Entry);
      Lines.push_back (L (Format ("%s Entry @ 0x%llX = 0x%llX, Deferenced Table @ 0x%llX", Root,
                                  static_cast<unsigned long long> (Address + 36 + EntrySize * Index),
                                  static_cast<unsigned long long> (Entry), static_cast<unsigned long long> (Entry))));
      Lines.push_back (L (Format ("XSDT Table Index %zu => Table Signature 0x%08X (%s)", Index, Signature,
                                  SignatureText (Signature).c_str ())));
    }

    return Lines;
  }

  static std::string FoundLine (UINT64 Address) {
    return L (Format ("Requested signature found, returning address 0x%llX to caller",
                      static_cast<unsigned long long> (Address)));
  }

  static std::vector<std::string> Join (std::initializer_list<std::vector<std::string>> Parts) {
    std::vector<std::string> All;
    for (const auto &Part : Parts) {
      All.insert (All.end (), Part.begin (), Part.end ());
    }

    return All;
  }
};

std::vector<UINT32> Narrow (const std::vector<UINT64> &Entries) {
  return std::vector<UINT32> (Entries.begin (), Entries.end ());
}

TEST_F (AcpiLocateTableTest, FirstXsdtMatchWinsWithoutRsdtPass) {
  const std::vector<UINT64> Entries = {Table (kFacp), Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE),
                                       Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE)};
  const UINT64              Rsdt    = AcpiTables::InstallRsdt (Narrow (Entries));
  const UINT64              Xsdt    = AcpiTables::InstallXsdt (Entries);
  Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (Rsdt), Xsdt));

  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &Found), EFI_SUCCESS);
  EXPECT_EQ (Found, Entries[1]);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 2 (RSDT & XSDT)", Rsdt, Xsdt),
                                    Scan ("XSDT", Xsdt, 8, Entries, 2),
                                    {FoundLine (Entries[1])}}));
}

TEST_F (AcpiLocateTableTest, TableOnlyInRsdtIsFoundAfterFullXsdtPassWithXsdtWording) {
  const std::vector<UINT64> XsdtEntries = {Table (kFacp), Table (kApic)};
  const std::vector<UINT64> RsdtEntries = {XsdtEntries[0], Table (SIGNATURE_32 ('E', 'R', 'S', 'T'))};
  const UINT64              Rsdt        = AcpiTables::InstallRsdt (Narrow (RsdtEntries));
  const UINT64              Xsdt        = AcpiTables::InstallXsdt (XsdtEntries);
  Host::PublishRsdp (AcpiTables::InstallRsdp (0, static_cast<UINT32> (Rsdt), Xsdt));

  // Revision 0 is printed, not tested: the XSDT is still scanned.
  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, &Found), EFI_SUCCESS);
  EXPECT_EQ (Found, RsdtEntries[1]);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 0 (RSDT & XSDT)", Rsdt, Xsdt),
                                    Scan ("XSDT", Xsdt, 8, XsdtEntries, 2),
                                    Scan ("RSDT", Rsdt, 4, RsdtEntries, 2),
                                    {FoundLine (RsdtEntries[1])}}));
}

TEST_F (AcpiLocateTableTest, EmptyXsdtFallsToRsdt) {
  const std::vector<UINT64> RsdtEntries = {Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE)};
  const UINT64              Rsdt        = AcpiTables::InstallRsdt (Narrow (RsdtEntries));
  const UINT64              Xsdt        = AcpiTables::InstallXsdt ({});
  Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (Rsdt), Xsdt));

  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &Found), EFI_SUCCESS);
  EXPECT_EQ (Found, RsdtEntries[0]);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 2 (RSDT & XSDT)", Rsdt, Xsdt),
                                    Scan ("XSDT", Xsdt, 8, {}, 0),
                                    Scan ("RSDT", Rsdt, 4, RsdtEntries, 1),
                                    {FoundLine (RsdtEntries[0])}}));
}

TEST_F (AcpiLocateTableTest, Acpi10RsdpScansOnlyRsdt) {
  //
  // The RSDP carries an XSDT holding the table, but under the 1.0 GUID
  // only the RSDT is used.
  //
  const std::vector<UINT64> XsdtEntries = {Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE)};
  const std::vector<UINT64> RsdtEntries = {Table (kFacp), Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE)};
  const UINT64              Rsdt        = AcpiTables::InstallRsdt (Narrow (RsdtEntries));
  const UINT64              Xsdt        = AcpiTables::InstallXsdt (XsdtEntries);
  Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (Rsdt), Xsdt), FALSE, TRUE);

  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &Found), EFI_SUCCESS);
  EXPECT_EQ (Found, RsdtEntries[1]);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 1 (RSDT only)", Rsdt, 0),
                                    Scan ("RSDT", Rsdt, 4, RsdtEntries, 2),
                                    {FoundLine (RsdtEntries[1])}}));
}

TEST_F (AcpiLocateTableTest, RootWithWrongSignatureIsSkippedSilently) {
  //
  // The XSDT address points at a FACP: no XSDT lines at all.
  //
  const std::vector<UINT64> RsdtEntries = {Table (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE)};
  const UINT64              Rsdt        = AcpiTables::InstallRsdt (Narrow (RsdtEntries));
  const UINT64              NotXsdt     = Table (kFacp);
  Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (Rsdt), NotXsdt));

  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &Found), EFI_SUCCESS);
  EXPECT_EQ (Found, RsdtEntries[0]);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 2 (RSDT & XSDT)", Rsdt, NotXsdt),
                                    Scan ("RSDT", Rsdt, 4, RsdtEntries, 1),
                                    {FoundLine (RsdtEntries[0])}}));
}

TEST_F (AcpiLocateTableTest, AbsentSignatureScansBothRootsAndReturnsNotFound) {
  const std::vector<UINT64> Entries = {Table (kFacp), Table (kApic)};
  const UINT64              Rsdt    = AcpiTables::InstallRsdt (Narrow (Entries));
  const UINT64              Xsdt    = AcpiTables::InstallXsdt (Entries);
  Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (Rsdt), Xsdt));

  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE, &Found), EFI_NOT_FOUND);
  EXPECT_EQ (Found, 0u);
  EXPECT_EQ (SerialLines (), Join ({Opening (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE,
                                             "Retrieved RSD PTR Revision 2 (RSDT & XSDT)", Rsdt, Xsdt),
                                    Scan ("XSDT", Xsdt, 8, Entries, 2), Scan ("RSDT", Rsdt, 4, Entries, 2)}));
}

TEST_F (AcpiLocateTableTest, NoRsdpLogsErrorAndZeroRoots) {
  UINT64 Found;
  ASSERT_EQ (Locate (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, &Found), EFI_NOT_FOUND);
  EXPECT_EQ (Found, 0u);
  EXPECT_EQ (SerialLines (),
             Opening (EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE, "ERROR Not Found retrieving RSD PTR", 0, 0));
}

} // namespace
