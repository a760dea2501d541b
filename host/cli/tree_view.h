// Draws the tree of groups, servers and policies as text.
#pragma once

#include <iosfwd>

#include <json/value.h>

namespace host {

// Writes each node on a line of its own, indented under its parent, with its kind, name, delegates and linked policies,
// and a last line with their numbers. jNodes: the data that the tree method returned; members that are missing or have
// an unexpected type are left out. withIds: whether each name has its identifier before it. Any thread may call it.
void drawTree(const Json::Value& jNodes, bool withIds, std::ostream& out);

}  // namespace host
