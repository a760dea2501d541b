// Says whether an installation is sound.
#pragma once

namespace host {

// Each function prints a line for each subject: what was found, or what is wrong. It returns whether nothing is wrong.
// It throws only std::bad_alloc. One thread at a time may call it.

// Checks the files that come with the program. Call it before the store is opened.
bool checkFiles();

// Checks the open store: its records, and that there is an administrator and no token that is about to end.
bool checkStore();

}  // namespace host
