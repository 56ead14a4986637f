#ifndef QUORBIX_VIRTDISK_GUARD_HAZARDS_H_
#define QUORBIX_VIRTDISK_GUARD_HAZARDS_H_

#include <cstddef>
#include <vector>

#include "guard/facts.h"
#include "guard/model.h"
#include "guard/pairing.h"
#include "guard/planning.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

using Hazards = std::vector<GuardedHazardReport>;

// What stands in the way before anything is planned. With one that cannot be accepted there is no
// plan.
Hazards HazardsOfSides(const Facts& facts);

struct HazardLimits {
  std::size_t mostDeletions = 10;
  double mostDeletedShare = 0.5;
  bool stopsAtConflicts = false;
};

// What stands in the way of a plan.
Hazards HazardsOfPlan(const Facts& facts, const PlanFacts& planFacts,
                      const Observation& observation, const Memory& memory, const Pairing& pairing,
                      const Plan& plan, const HazardLimits& limits);

// Whether a hazard was found that is not accepted, or cannot be.
bool StandsInTheWay(const Hazards& hazards, const std::vector<GuardedHazard>& accepted);

bool Contains(const Hazards& hazards, GuardedHazard hazard);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_HAZARDS_H_
