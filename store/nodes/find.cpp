// Finds records by the names that people give them.
#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "store/base/visible_text.h"
#include "store/records/rows.h"
#include "store/store.h"

namespace store {
namespace {

template <typename R>
[[noreturn]] void refuse(const char* szWhy, const std::string& name)
{
    throw std::runtime_error(std::string("there ") + szWhy + Kind<R>::kName + " " + visibleJson(Json::Value(name)));
}

// Returns the names in a path, without the backslashes before slashes and backslashes of names.
std::vector<std::string> namesIn(const std::string& path)
{
    std::vector<std::string> names(1);
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/') {
            names.emplace_back();
            continue;
        }
        i += path[i] == '\\' && i + 1 < path.size() ? 1 : 0;
        names.back() += path[i];
    }
    std::erase(names, "");
    return names;
}

int64_t groupAt(soci::session& sql, const std::string& path)
{
    if (path.empty()) {
        refuse<Group>("is no ", path);
    }
    int64_t id = 0;
    for (const std::string& name : namesIn(path)) {
        id = number(sql, "SELECT id FROM ou WHERE parent_id = :parent AND name = :name AND id <> 0", id, name);
        if (id == 0) {
            refuse<Group>("is no ", path);
        }
    }
    return id;
}

template <typename R>
int64_t onlyOneNamed(soci::session& sql, const std::string& name)
{
    const auto ids = numbers(
        sql, std::string("SELECT ") + Kind<R>::kFields[0].name + " FROM " + Kind<R>::kTable + " WHERE name = :name",
        name);
    if (ids.size() != 1) {
        refuse<R>(ids.empty() ? "is no " : "is more than one ", name);
    }
    return *ids.begin();
}

}  // namespace

int64_t findRecord(const std::string& kind, const std::string& text)
{
    int64_t id = 0;
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error == std::errc() && pEnd == text.data() + text.size()) {
        return id;
    }
    return inTransaction(Access::read, [&](soci::session& sql) {
        return kind == Kind<Group>::kName    ? groupAt(sql, text)
               : kind == Kind<Server>::kName ? onlyOneNamed<Server>(sql, text)
               : kind == Kind<Policy>::kName ? onlyOneNamed<Policy>(sql, text)
                                             : onlyOneNamed<AccountRow>(sql, text);
    });
}

}  // namespace store
