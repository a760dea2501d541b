// Says which store a command uses.
#pragma once

#include <string>

namespace host {

// Returns the first of these URLs: option, if it is not empty; the environment variable ZEM_STORE, in which other users
// cannot read a password; for a program that a package installed, the URL of its service, which is then announced on
// standard error; a file in the current folder. Throws UsageError when the service's URL cannot be read.
std::string storeUrl(const std::string& option);

}  // namespace host
