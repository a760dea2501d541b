// Checks in the store before a record is written. They run inside the caller's transaction and throw Refusal or
// BadInput.
#pragma once

#include <cstdint>

#include <soci/soci.h>

namespace standin {

// Whether the kind's table holds that identifier; false for a kind without a table.
bool hasNode(soci::session& sql, int nodeType, int64_t id);

// For groups and servers. EINVAL for an empty name, a text that cannot be stored, JSON text that is none, and wrong
// policy links.
template <typename R>
void checkRecord(soci::session& sql, const R& record);

// Checks that the group or server may take the place of the stored one: EAGAIN when that was changed since the record
// was loaded, ENOENT when there is no such parent group, EINVAL as above.
template <typename R>
void checkReplacement(soci::session& sql, const R& record, const R& stored);

}  // namespace standin
