// Loads the fleet that the store holds, and merges it with that of a file.
#pragma once

#include <soci/soci.h>

#include "store/fleet/fleet.h"

namespace store {

// Returns the fleet in the store, unchecked. Throws DatabaseError.
Fleet loadFleet(soci::session& sql);

// Returns the fleet of a new store: the root group alone.
Fleet newFleet();

// Returns the records of both fleets; a record that both have is taken from the file.
Fleet mergeFleets(const Fleet& file, const Fleet& stored);

}  // namespace store
