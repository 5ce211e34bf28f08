/** @file
  The simulated OS tells an ERST command nobody answered from a successful
  one: the status it would read is the zeroed region's 0 either way.
**/
#include <gtest/gtest.h>

#include <Host.h>
#include <SpiFlash.h>

#include "Builder/Boot.h"
#include "Builder/FlashImage.h"
#include "Handlers/CperBuilder.h"
#include "Os/ErstDriver.h"

TEST (ErstUnansweredTest, CommandFailsInsteadOfSucceeding) {
  // No error-log volume: no handler is registered. Then a platform whose
  // EXECUTE_OPERATION (entry 5) writes reserved memory instead of the SMI
  // command port.
  for (const bool Volume : {false, true}) {
    Host::Flash::AttachMemory (Volume ? FlashImage::BuildDefault () : std::vector<UINT8> (0x10000, 0xFF));
    const Sim::BootResult Booted = Sim::Boot (Sim::BootOptions ());
    if (Volume) {
      auto *Register = reinterpret_cast<EFI_ACPI_6_3_GENERIC_ADDRESS_STRUCTURE *> (
          Booted.Platform.Erst + sizeof (EFI_ACPI_6_3_ERROR_RECORD_SERIALIZATION_TABLE_HEADER) + 5 * 32 + 4);
      Register->AddressSpaceId = EFI_ACPI_6_3_SYSTEM_MEMORY;
      Register->Address        = Host::AllocateReserved (8);
    }

    try {
      Sim::ErstDriver (Booted.Platform.Erst).Write (Cper::BuildRecord (Cper::RecordSpec ()));
      ADD_FAILURE () << "the write was reported as answered";
    } catch (const Sim::ErstExecutionError &Error) {
      EXPECT_NE (std::string (Error.what ()).find (Volume ? "raised no SMI" : "found no SMI handler"),
                 std::string::npos)
          << Error.what ();
    }
  }

  Host::SetSerialSink (nullptr);
}
