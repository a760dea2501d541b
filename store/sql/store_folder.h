// Lets root use a store in a folder of another account without doing there what that account may not do itself.
#pragma once

#include <string>

namespace store {

// Returns the path under which this process opens the store from now on: path itself, unless root runs the process and
// another account could lead the way to the store elsewhere, because it owns a directory on the way.
//
// The process then gives up root for good: it takes on the user and group of the store's folder, and the folder becomes
// the root of its file system. So a symbolic link in the folder leads to nothing outside of it. Everything else that
// the process reads or loads by its path must be open before. A link of another account on the way is not followed.
//
// path: absolute, of the store's file, which may be missing. Call it while the process has one thread, again with the
// same path when the store is opened again. Throws
// std::runtime_error when a link is not followed, and std::system_error when the folder cannot be opened or the system
// does not let the process change its account.
std::string enterFolderOf(const std::string& path);

}  // namespace store
