// Copies the store's file while it is in use.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "store/db/database.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

[[noreturn]] void throwCannotWrite(const std::string& path)
{
    throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

// A file that is removed again unless the whole copy arrived.
class NewFile {
public:
    explicit NewFile(const std::string& path)
        : m_path(path + ".part"), m_file(open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (m_file < 0) {
            throwCannotWrite(m_path);
        }
    }
    ~NewFile()
    {
        close(m_file);
        unlink(m_path.c_str());
    }
    NewFile(const NewFile&) = delete;

    const std::string& path() const
    {
        return m_path;
    }

    // Gives the file its final name once its content is on the disk. An existing file is not replaced.
    void publish(const std::string& path)
    {
        if (fsync(m_file) != 0 || link(m_path.c_str(), path.c_str()) != 0) {
            throwCannotWrite(path);
        }
    }

private:
    const std::string m_path;
    const int m_file;
};

}  // namespace

std::string backUp(const std::string& name)
{
    if (isPostgres()) {
        throw std::runtime_error(
            "the store is a PostgreSQL database; back it up with: pg_dump --format=custom --file=" + name +
            " DATABASE");
    }
    if (name.empty() || name.find('/') != name.npos) {
        throw std::runtime_error("\"" + name + "\" is not the name of a file beside the store");
    }
    Connection connection;
    std::string store;
    Statement(connection.sql()).out(store).prepare("SELECT file FROM pragma_database_list WHERE name = 'main'").first();
    const std::string path = std::filesystem::path(store).replace_filename(name);
    if (access(path.c_str(), F_OK) == 0) {
        errno = EEXIST;
        throwCannotWrite(path);
    }
    NewFile file(path);
    // SQLite copies the store as it is at one moment. Others go on reading and writing meanwhile.
    change(connection.sql(), "VACUUM INTO :path", file.path());
    file.publish(path);
    return path;
}

}  // namespace store
