// Says which store a command uses.
#pragma once

#include <string>

namespace host {

// Returns the URL of the store: option, if it is not empty; else that of ZEM_STORE in the environment, where other
// users cannot read a password; else, for the program of an installed package, that of its service, which it tells on
// standard error; else a file in the current folder. Throws UsageError when the service's cannot be read.
std::string storeUrl(const std::string& option);

}  // namespace host
