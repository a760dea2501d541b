// The version of the program.
#pragma once

namespace host {

// "zemhost 1.0.0", followed by the commit in brackets where the build knew it. Any thread may read it.
extern const char* const kVersion;

}  // namespace host
