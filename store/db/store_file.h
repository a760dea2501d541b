// The file of a store on SQLite: how it comes into being, and who may read it.
#pragma once

#include <string>

#include "store/store.h"

namespace store {

// Makes an empty file that is its owner's alone when there is none; throws NoStore then where none is to be made,
// and std::runtime_error when the file cannot be made. One that root makes belongs to the owner of its folder.
void provideStoreFile(const std::string& path, OpenMode mode);

// Whether this process may write the file.
bool isWritable(const std::string& path);

// Takes the rights of group and others from the file and from what SQLite keeps beside it; a file of another owner
// stays as it is.
void restrictStoreFile(const std::string& path);

}  // namespace store
