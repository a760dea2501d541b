// Checks in the store before a record is written. They run inside the caller's transaction and throw Refusal or
// InvalidInput.
#pragma once

#include <cstdint>

#include <soci/soci.h>

#include "store/base/errors.h"
#include "store/rules/rights.h"

namespace store {

// ENOENT unless there is that group or server, EINVAL for another kind.
void requireExisting(soci::session& sql, int nodeType, int64_t id);

// The refusal of a record that names a group as its parent which is not there: ENOENT.
Refusal noSuchParent(int64_t id);

// For groups and servers that are to be written over the stored one, for a new one over a fresh record. Its links are
// brought to the form in which they are stored. EINVAL for a name that is empty or too long, a text that cannot be
// stored, JSON text that is none, and wrong policy links. A policy that is newly linked must be there (EINVAL) and seen
// by the caller (EACCES); the others are as they were.
template <typename R>
void checkRecord(const Rights& rights, R& record, const R& stored);

// Checks that the group or server may take the place of the stored one: EAGAIN when that was changed since the record
// was loaded, EACCES and ENOENT for a new parent group that is not the caller's or not there, EINVAL as above.
template <typename R>
void checkReplacement(soci::session& sql, const Rights& rights, R& record, const R& stored);

}  // namespace store
