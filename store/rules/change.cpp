// Makes and logs the lines about changes. A line is made within the transaction, where the account's name is read, and
// logged after the commit.
#include "store/rules/change.h"

#include <algorithm>
#include <utility>

#include "store/base/thread_state.h"
#include "store/store.h"

namespace store {
namespace {

std::function<void(const std::string&)> gChangeSink;

// Returns whether a line can show the name as it is: it cannot be taken for two fields, for "no account" or for a uid.
bool isPlainName(const std::string& name)
{
    const bool isVisible = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
    return isVisible && !name.empty() && name != "-" && !name.starts_with("uid=");
}

std::string nameForLine(const Rights& rights)
{
    const std::optional<uint32_t>& actingUid = threadState().actingUid;
    if (!actingUid) {
        return "-";
    }
    return isPlainName(rights.accountName()) ? rights.accountName() : "uid=" + std::to_string(*actingUid);
}

}  // namespace

std::string changeLine(const Rights& rights, const char* szKind, int64_t id, const std::string& what)
{
    if (!gChangeSink || what.empty()) {
        return "";
    }
    return nameForLine(rights) + " " + szKind + " " + std::to_string(id) + " " + what;
}

void logChange(const std::string& line) noexcept
{
    if (line.empty()) {
        return;
    }
    const int saved = errno;
    try {
        gChangeSink(line);
    } catch (...) {  // the change is committed, so a failure of the log must not make the call fail
    }
    errno = saved;
}

void rememberChange(int nodeType, int64_t id) noexcept
{
    ThreadState& state = threadState();
    if (!state.actingUid) {
        return;
    }
    try {
        state.changedNodes.emplace(nodeType, id);
    } catch (const std::bad_alloc&) {  // the change is made; its notice then needs the right
    }
}

void setChangeSink(std::function<void(const std::string& line)> sink)
{
    gChangeSink = std::move(sink);
}

}  // namespace store
