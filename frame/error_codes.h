// Declares the error codes of the handlers. Clients of the console depend on the numbers.
#pragma once

enum ErrorCode {
    errParameter = 101,   // a required parameter is missing or invalid
    errLogin = 105,       // the caller's login uid cannot be determined
    errFailed = 117,      // any other failure; every handler sets it first, as the default
    errPermission = 414,  // the caller may not manage the group
    errListing = 500,     // the one-level listing failed
};
