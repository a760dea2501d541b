// The line is made within the transaction, where the caller's name is read, and told after it.
#include "standin/store/change_log.h"

#include <algorithm>
#include <utility>

#include "standin/store/caller.h"

namespace standin {
namespace {

std::function<void(const std::string&)> gSink;

// Whether the name can stand in a line without being taken for more than a name, or for something else.
bool isPlainName(const std::string& name)
{
    const bool isVisible = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
    return isVisible && !name.empty() && name != "-" && !name.starts_with("uid=");
}

std::string nameForLine(const CallerRights& rights)
{
    if (!currentCaller()) {
        return "-";
    }
    return isPlainName(rights.callerName()) ? rights.callerName() : "uid=" + std::to_string(*currentCaller());
}

}  // namespace

std::string changeLine(const CallerRights& rights, const char* szKind, int64_t id, const std::string& what)
{
    if (!gSink || what.empty()) {
        return "";
    }
    return nameForLine(rights) + " " + szKind + " " + std::to_string(id) + " " + what;
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
