// Writes a plan as lines for people.
#pragma once

#include <string>
#include <vector>

#include "store/fleet/plan.h"

namespace store {

// Returns one line for each record that differs, in the form that PlanSink of store.h describes.
std::vector<std::string> planLines(const Plan& plan);

}  // namespace store
