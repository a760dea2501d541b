// Creates the file of a store on SQLite and keeps it private.
#pragma once

#include <string>

#include "store/store.h"

namespace store {

// Creates an empty file with mode 0600 when there is none, and returns the path to open. That is another one when root
// runs the process and the folder belongs to another account, which the process then becomes: see enterFolderOf. Throws
// NoStore when there is no file and the mode does not allow its creation, std::runtime_error when it cannot be created
// or inspected.
std::string provideStoreFile(const std::string& path, OpenMode mode);

// Returns whether this process may write the file.
bool isWritable(const std::string& path);

// Returns a message for people that says which right to read the store in the file this process lacks; empty when it
// lacks none.
std::string missingRight(const std::string& path);

// Removes the rights of group and others from the file and from the files that SQLite keeps beside it. A file of
// another owner and a link stay as they are.
void restrictStoreFile(const std::string& path);

}  // namespace store
