// Holds the version in a file of its own: it is compiled again after each commit.
#include "host/cli/version.h"

namespace host {

const char* const kVersion = "zemhost " ZEM_VERSION ZEM_COMMIT;

}  // namespace host
