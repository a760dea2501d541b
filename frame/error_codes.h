// The error codes with which handlers answer; the console's clients know them by these numbers.
#pragma once

enum ErrorCode {
    errParameter = 101,   // a required parameter is missing or cannot be used
    errLogin = 105,       // the caller's login uid cannot be determined
    errFailed = 117,      // a step failed; the default, which stays when nothing more is known
    errPermission = 414,  // the caller may not manage the group
    errListing = 500,     // the one-level listing failed
};
