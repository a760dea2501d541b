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

#include "store/base/errors.h"

namespace store {
namespace {

// The folder of a service belongs to the service's account, and so must a file that root creates there. Returns false
// with errno when the owner cannot be changed.
bool giveToOwnerOfFolder(int file, const std::string& path)
{
    struct stat folder = {};
    return geteuid() != 0 || (stat(std::filesystem::path(path).parent_path().c_str(), &folder) == 0 &&
                              fchown(file, folder.st_uid, folder.st_gid) == 0);
}

}  // namespace

void provideStoreFile(const std::string& path, OpenMode mode)
{
    struct stat info = {};
    if (stat(path.c_str(), &info) == 0) {
        return;
    }
    const bool isMissing = errno == ENOENT;
    if (mode != OpenMode::createIfMissing) {
        const std::string text = "there is no store " + path + ": " + std::strerror(errno);
        if (isMissing) {
            throw NoStore(text);
        }
        throw std::runtime_error(text);
    }
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0 && errno == EEXIST) {
        return;
    }
    const int err = file >= 0 && giveToOwnerOfFolder(file, path) ? 0 : errno;
    if (file >= 0) {
        close(file);
    }
    if (err != 0) {
        throw std::runtime_error("cannot make the store " + path + ": " + std::strerror(err));
    }
}

bool isWritable(const std::string& path)
{
    return access(path.c_str(), W_OK) == 0;
}

void restrictStoreFile(const std::string& path)
{
    for (const char* szEnd : {"", "-wal", "-shm"}) {
        const std::string name = path + szEnd;
        struct stat info = {};
        if (stat(name.c_str(), &info) == 0 && (info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
            chmod(name.c_str(), info.st_mode & S_IRWXU);
        }
    }
}

}  // namespace store
