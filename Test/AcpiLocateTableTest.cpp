/** @file
  ACPI table locator: which root tables are scanned, in which order, and the
  first match.
**/
#include <gtest/gtest.h>

#include <TestAcpiTables.h>
#include <TestMachine.h>

#include <IndustryStandard/Acpi.h>
#include <Library/DebugLib.h>
#include <Library/UefiBootServicesTableLib.h>
#include <VornApeiLoggingSmm.h>

namespace {

constexpr UINT32 kFacp = SIGNATURE_32 ('F', 'A', 'C', 'P');
constexpr UINT32 kApic = SIGNATURE_32 ('A', 'P', 'I', 'C');
constexpr UINT32 kHest = EFI_ACPI_6_3_HARDWARE_ERROR_SOURCE_TABLE_SIGNATURE;
constexpr UINT32 kErst = EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_SIGNATURE;

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
  // Publishes an RSDP (2.0 and 1.0 GUIDs unless Only10) over the two roots.
  //
  static void Roots (const std::vector<UINT64> &Rsdt, UINT64 Xsdt, BOOLEAN Only10 = FALSE) {
    const UINT64 R = AcpiTables::InstallRsdt (std::vector<UINT32> (Rsdt.begin (), Rsdt.end ()));
    Host::PublishRsdp (AcpiTables::InstallRsdp (2, static_cast<UINT32> (R), Xsdt), !Only10, TRUE);
  }

  //
  // The table found (0 when none), and how many root entries were examined.
  //
  static std::pair<UINT64, size_t> Locate (UINT32 Signature) {
    UINT64 Found = 0xA5A5A5A5A5A5A5A5ULL;
    Host::ClearSerialOutput ();
    const EFI_STATUS Status  = VornApeiLoggingAcpiLocateTable (Signature, &Found);
    size_t           Entries = 0;
    for (const auto &Text : SerialLines ()) {
      Entries += Text.find ("Table Index") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ (Status, Found != 0 ? EFI_SUCCESS : EFI_NOT_FOUND);
    return {Found, Entries};
  }
};

TEST_F (AcpiLocateTableTest, FirstXsdtMatchWinsWithoutAnRsdtPass) {
  const std::vector<UINT64> Entries = {Table (kFacp), Table (kHest), Table (kHest)};
  Roots (Entries, AcpiTables::InstallXsdt (Entries));
  EXPECT_EQ (Locate (kHest), std::make_pair (Entries[1], size_t{2}));
}

TEST_F (AcpiLocateTableTest, TheRsdtIsScannedAfterTheWholeXsdt) {
  // The last entry of each root is examined; the RSDT pass keeps the XSDT wording.
  const std::vector<UINT64> Xsdt = {Table (kFacp), Table (kApic)};
  const std::vector<UINT64> Rsdt = {Xsdt[0], Table (kErst)};
  Roots (Rsdt, AcpiTables::InstallXsdt (Xsdt));
  EXPECT_EQ (Locate (kErst), std::make_pair (Rsdt[1], size_t{4}));
  EXPECT_EQ (SerialLines ()[SerialLines ().size () - 2],
             Line (0, "VornApeiLoggingAcpiLocateTable: XSDT Table Index 1 => Table Signature 0x54535245 (ERST)"));
  EXPECT_EQ (Locate (kHest), std::make_pair (UINT64{0}, size_t{4}));
}

TEST_F (AcpiLocateTableTest, EmptyOrForeignXsdtFallsToTheRsdt) {
  const std::vector<UINT64> Rsdt = {Table (kHest)};
  Roots (Rsdt, AcpiTables::InstallXsdt ({}));
  EXPECT_EQ (Locate (kHest), std::make_pair (Rsdt[0], size_t{1}));

  Roots (Rsdt, Table (kFacp)); // the XSDT address points at a FACP: skipped silently
  EXPECT_EQ (Locate (kHest), std::make_pair (Rsdt[0], size_t{1}));
}

TEST_F (AcpiLocateTableTest, UnderTheAcpi10GuidOnlyTheRsdtIsScanned) {
  const std::vector<UINT64> Rsdt = {Table (kFacp), Table (kHest)};
  Roots (Rsdt, AcpiTables::InstallXsdt ({Table (kHest)}), TRUE);
  EXPECT_EQ (Locate (kHest), std::make_pair (Rsdt[1], size_t{2}));
}

TEST_F (AcpiLocateTableTest, WithoutAnRsdpNothingIsFound) {
  EXPECT_EQ (Locate (kHest), std::make_pair (UINT64{0}, size_t{0}));
  EXPECT_EQ (SerialLines ()[1], Line (0, "VornApeiLoggingAcpiLocateTable: ERROR Not Found retrieving RSD PTR"));
}

} // namespace
