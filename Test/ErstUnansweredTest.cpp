/** @file
  The simulated OS tells an ERST command nobody answered from a successful
  one: the status it would read is the zeroed region's 0 either way.
**/
#include <cstring>

#include <gtest/gtest.h>

#include <Host.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"

namespace {

enum class Platform { NoErrorLogVolume, ExecuteWritesMemory };

class ErstUnansweredTest : public ::testing::TestWithParam<std::pair<Platform, const char *>> {};

TEST_P (ErstUnansweredTest, CommandFailsInsteadOfSucceeding) {
  const auto [Kind, Expected] = GetParam ();
  Host::Flash::AttachMemory (Kind == Platform::NoErrorLogVolume ? std::vector<UINT8> (0x10000, 0xFF)
                                                                : FlashImage::BuildDefault ());
  const Sim::BootResult Booted = Sim::Boot (Sim::BootOptions ());
  if (Kind == Platform::ExecuteWritesMemory) {
    //
    // EXECUTE_OPERATION (entry 5) writes a byte of reserved memory instead
    // of the SMI command port.
    //
    auto *Register = reinterpret_cast<EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE *> (
        Booted.Platform.Erst + sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER) + 5 * 32 + 4);
    Register->AddressSpaceId = EFI_ACPI_6_3_SYSTEM_MEMORY;
    Register->Address        = Host::AllocateReserved (8);
  }

  Sim::ErstDriver Os (Booted.Platform.Erst);
  try {
    Os.Write (Cper::BuildRecord (Cper::RecordSpec ()));
    ADD_FAILURE () << "the write was reported as answered";
  } catch (const Sim::ErstExecutionError &Error) {
    EXPECT_NE (std::string (Error.what ()).find (Expected), std::string::npos) << Error.what ();
  }

  Host::SetSerialSink (nullptr);
}

INSTANTIATE_TEST_SUITE_P (Platforms,
                          ErstUnansweredTest,
                          ::testing::Values (std::pair{Platform::NoErrorLogVolume, "found no SMI handler"},
                                             std::pair{Platform::ExecuteWritesMemory, "raised no SMI"}),
                          [] (const auto &Info) {
                            return std::string (Info.param.first == Platform::NoErrorLogVolume ? "NoErrorLogVolume"
                                                                                               : "ExecuteWritesMemory");
                          });

} // namespace
