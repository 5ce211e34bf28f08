/** @file
  What the bench measures: the cost table and the growth curves.
**/
#pragma once

namespace Bench {

void CostTable ();
void GrowthCurves ();

} // namespace Bench
