// Compresses answers. Any thread may call the function.
#pragma once

#include "host/base/compression.h"
#include "host/calls/dispatch.h"

namespace host {

// Returns the answer in the coding, or as it is when its text is shorter than kMinBytesToCompress. answer: not
// compressed. Throws as compressed().
Answer inCoding(Answer answer, Coding coding);

}  // namespace host
