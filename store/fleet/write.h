// Writes a plan into the database.
#pragma once

#include <functional>

#include <soci/soci.h>

#include "store/fleet/plan.h"

namespace store {

// Makes the changes of a plan that leads from the stored fleet to the fleet passed as after. onRecord: called for each
// record of the plan once it is done. Throws DatabaseError.
void writePlan(soci::session& sql, const Plan& plan, const Fleet& after, const std::function<void()>& onRecord);

}  // namespace store
