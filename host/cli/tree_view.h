// The fleet's tree drawn for people.
#pragma once

#include <iosfwd>

#include <json/value.h>

namespace host {

// Draws the nodes, each on a line of its own under its parent, and counts them on a last line. jNodes: the answer of
// the tree method; a member that is missing or of another type than expected is left out. Any thread may call it.
void drawTree(const Json::Value& jNodes, std::ostream& out);

}  // namespace host
