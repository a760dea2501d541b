// Walks to the folder of a store one directory at a time, so that nobody can replace a directory that was checked.
#include "store/sql/store_folder.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <deque>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace store {
namespace {

constexpr int kMaxLinks = 40;  // on one way, as the kernel's limit

void check(bool isDone, int err)
{
    if (!isDone) {
        throw std::system_error(err, std::generic_category());
    }
}

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd)
    {
        check(fd >= 0, errno);
    }
    ~Descriptor()
    {
        close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;

    int get() const
    {
        return m_fd;
    }
    void swap(Descriptor& other)
    {
        std::swap(m_fd, other.m_fd);
    }
    struct stat info() const
    {
        struct stat info = {};
        check(fstat(m_fd, &info) == 0, errno);
        return info;
    }

private:
    int m_fd;
};

// The way to a folder, walked to its end.
class Walk {
public:
    explicit Walk(const std::filesystem::path& folder)
        : m_at(open("/", O_PATH | O_CLOEXEC)), m_rest(folder.begin(), folder.end())
    {
        while (!m_rest.empty()) {
            step();
        }
    }

    const Descriptor& folder() const
    {
        return m_at;
    }
    // Whether an account other than root owns a part of the way.
    bool isForeign() const
    {
        return m_isForeign;
    }

private:
    void step()
    {
        const std::filesystem::path name = m_rest.front().empty() ? "." : m_rest.front();
        m_rest.pop_front();
        Descriptor next(openat(m_at.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        const struct stat info = next.info();
        m_isForeign = m_isForeign || info.st_uid != 0;
        if (S_ISLNK(info.st_mode)) {
            follow(next, name);
        } else {
            m_at.swap(next);
        }
    }

    void follow(const Descriptor& link, const std::string& name)
    {
        if (m_isForeign) {
            throw std::runtime_error("root does not follow the link \"" + name +
                                     "\" on the way to the store: another account could change it");
        }
        check(++m_links <= kMaxLinks, ELOOP);
        char target[PATH_MAX];
        const ssize_t length = readlinkat(link.get(), "", target, sizeof(target));
        check(length >= 0, errno);
        const std::filesystem::path parts(target, target + length);
        m_rest.insert(m_rest.begin(), parts.begin(), parts.end());
    }

    Descriptor m_at;
    std::deque<std::filesystem::path> m_rest;
    bool m_isForeign = false;
    int m_links = 0;
};

}  // namespace

std::string enterFolderOf(const std::string& path)
{
    static std::string entered;  // the path of the file in the folder that has become the root
    const std::filesystem::path file(path);
    if (geteuid() != 0) {
        return path == entered ? "/" + file.filename().string() : path;
    }
    const Walk walk(file.parent_path());
    if (!walk.isForeign()) {
        return path;
    }
    const struct stat owner = walk.folder().info();
    check(fchdir(walk.folder().get()) == 0 && chroot(".") == 0, errno);
    check(setgroups(0, nullptr) == 0, errno);
    check(setresgid(owner.st_gid, owner.st_gid, owner.st_gid) == 0, errno);
    check(setresuid(owner.st_uid, owner.st_uid, owner.st_uid) == 0, errno);
    entered = path;
    return "/" + file.filename().string();
}

}  // namespace store
