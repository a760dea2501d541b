// The line is made within the transaction, where the caller's name can be read, and told after it.
#include "standin/store/change_log.h"

#include <algorithm>
#include <utility>

#include "standin/store/caller.h"
#include "standin/store/statement.h"

namespace standin {
namespace {

std::function<void(const std::string&)> gSink;

// Whether the name can stand in a line without being taken for more than a name, or for something else.
bool isPlainName(const std::string& name)
{
    const bool isVisible = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
    return isVisible && !name.empty() && name != "-" && !name.starts_with("uid=");
}

std::string callerName(soci::session& sql)
{
    if (!currentCaller()) {
        return "-";
    }
    const int64_t uid = *currentCaller();
    std::string name;
    Statement(sql).in(uid).out(name).prepare("SELECT name FROM account WHERE uid = :uid").first();
    return isPlainName(name) ? name : "uid=" + std::to_string(uid);
}

}  // namespace

std::string changeLine(soci::session& sql, const char* szKind, int64_t id, const std::string& what)
{
    if (!gSink || what.empty()) {
        return "";
    }
    return callerName(sql) + " " + szKind + " " + std::to_string(id) + " " + what;
}

void tellChange(const std::string& line) noexcept
{
    if (line.empty()) {
        return;
    }
    const int saved = errno;
    try {
        gSink(line);
    } catch (...) {  // the change is made: a log that fails is no reason to call it failed
    }
    errno = saved;
}

void setChangeSink(std::function<void(const std::string& line)> sink)
{
    gSink = std::move(sink);
}

}  // namespace standin
