// Keeps the table of the policies that groups and servers link. A function runs in the session's transaction and throws
// DatabaseError.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include <soci/soci.h>

#include "store/records/rows.h"

namespace store {

// Inserts links of a node that it does not have. The caller flushes the inserter.
void insertLinks(Inserter<LinkRow>& inserter, int nodeType, int64_t id, const std::vector<int64_t>& policyIds);

// Returns the policies that the node links.
std::unordered_set<int64_t> linksOf(soci::session& sql, int nodeType, int64_t id);

// The policies that a node links anew, and those that it links no more.
struct LinkChange {
    std::vector<int64_t> added;
    std::vector<int64_t> removed;
};

// Makes that change to the links of the node.
void writeLinkChange(soci::session& sql, int nodeType, int64_t id, const LinkChange& change);

// Fills the empty table from the texts of all groups and servers. A damaged text counts as no links.
void fillLinkRows(soci::session& sql);

}  // namespace store
