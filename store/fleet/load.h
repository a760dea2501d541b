// Loads the fleet that the store holds.
#pragma once

#include <soci/soci.h>

#include "store/fleet/fleet.h"

namespace store {

// The fleet in the store as it is, unchecked. Throws DatabaseError.
Fleet loadFleet(soci::session& sql);

// The fleet of a new store: the root group alone.
Fleet newFleet();

// The records of both fleets; a record that both have is taken from the file.
Fleet mergeFleets(const Fleet& file, const Fleet& stored);

}  // namespace store
