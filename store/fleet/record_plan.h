// Records the changes of a plan in the history.
#pragma once

#include <soci/soci.h>

#include "store/fleet/plan.h"

namespace store {

// Records all changes of a plan that leads from one fleet to the other, as made by this process's command. Throws
// DatabaseError.
void recordPlan(soci::session& sql, const Plan& plan, const Fleet& before, const Fleet& after);

}  // namespace store
