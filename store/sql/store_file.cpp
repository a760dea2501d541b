// Creates the file of a store and restricts its mode. An existing file is never opened here, because closing it would
// release the locks that SQLite holds on it. SQLite creates the files beside a database with the mode of the database's
// file.
#include "store/sql/store_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "store/base/errors.h"
#include "store/sql/store_folder.h"

namespace store {
namespace {

[[noreturn]] void refuse(const std::string& path, OpenMode mode, int err)
{
    if (mode == OpenMode::createIfMissing) {
        throw std::runtime_error("cannot make the store " + path + ": " + std::strerror(err));
    }
    const std::string text = "there is no store " + path + ": " + std::strerror(err);
    if (err == ENOENT) {
        throw NoStore(text);
    }
    throw std::runtime_error(text);
}

// Returns 0 or the errno.
int createFile(const std::string& place)
{
    const int file = open(place.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) {
        return errno == EEXIST ? 0 : errno;
    }
    close(file);
    return 0;
}

}  // namespace

std::string provideStoreFile(const std::string& path, OpenMode mode)
try {
    const std::string place = enterFolderOf(path);
    struct stat info = {};
    if (stat(place.c_str(), &info) == 0) {
        return place;
    }
    const int err = mode == OpenMode::createIfMissing ? createFile(place) : errno;
    if (err != 0) {
        refuse(path, mode, err);
    }
    return place;
} catch (const std::system_error& error) {
    refuse(path, mode, error.code().value());
}

bool isWritable(const std::string& path)
{
    return access(path.c_str(), W_OK) == 0;
}

std::string missingRight(const std::string& path)
{
    const std::filesystem::path shared = path + "-shm";
    for (const char* szEnd : {"", "-wal", "-shm"}) {
        const std::filesystem::path file = path + szEnd;
        if (access(file.c_str(), R_OK) != 0 && errno == EACCES) {
            return "this account may not read " + file.filename().string();
        }
    }
    if (access(shared.c_str(), F_OK) != 0 && access(shared.parent_path().c_str(), W_OK) != 0) {
        return "this account may not write its folder, where SQLite needs " + shared.filename().string() +
               " to read it";
    }
    return "";
}

void restrictStoreFile(const std::string& path)
{
    for (const char* szEnd : {"", "-wal", "-shm"}) {
        const std::string name = path + szEnd;
        struct stat info = {};
        if (lstat(name.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
            chmod(name.c_str(), info.st_mode & S_IRWXU);
        }
    }
}

}  // namespace store
