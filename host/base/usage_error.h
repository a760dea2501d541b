// The error of a command line that cannot work, whatever the store contains.
#pragma once

#include <stdexcept>

namespace host {

// Ends the program with the status for wrong usage, with which systemd does not start it again. what() is a text for
// people.
struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

}  // namespace host
