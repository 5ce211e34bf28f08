/** @file
  The OS's APEI enable and disable software SMIs.
**/
#include "Os/OsApei.h"

#include <Host.h>

namespace Sim {

void OsEnableApei (UINTN Cpu) {
  Host::RaiseSwSmi (kApeiEnableSwSmi, Cpu);
}

void OsDisableApei (UINTN Cpu) {
  Host::RaiseSwSmi (kApeiDisableSwSmi, Cpu);
}

} // namespace Sim
