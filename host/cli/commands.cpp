// Runs the commands of the program that serve or call modules and those that manage tokens.
#include "host/cli/commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

#include "host/base/log.h"
#include "host/base/text.h"
#include "host/base/usage_error.h"
#include "host/calls/dispatch.h"
#include "host/calls/module_loader.h"
#include "host/calls/tokens.h"
#include "host/cli/program_files.h"
#include "host/cli/tree_view.h"
#include "store/store.h"

namespace host {

namespace {

store::Account accountOf(const std::string& name)
{
    const auto account = store::findAccountByName(name);
    if (!account) {
        throw std::runtime_error("there is no account \"" + name + "\"");
    }
    return *account;
}

const VELQ::APIMethod& rowOf(const ModuleSet& modules, const std::string& api, int64_t version,
                             const std::string& method)
{
    const VELQ::APIMethod* pRow = modules.find(api, version, method);
    if (pRow == nullptr) {
        throw std::runtime_error("no module offers " + api + " " + std::to_string(version) + " " + method);
    }
    return *pRow;
}

int printAnswer(const Answer& answer)
{
    std::string text;
    for (const std::string& part : *answer.text) {
        text += part;
    }
    std::cout << printable(text) << '\n';
    return answer.code == 0 ? 0 : 1;
}

// The printable texts of a table's row, one for each column.
using Row = std::vector<std::string>;

// Prints the rows with aligned columns.
void drawTable(const std::vector<Row>& rows, std::ostream& out)
{
    std::vector<size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], store::characterCount(row[i]));
        }
    }
    for (const Row& row : rows) {
        for (size_t i = 0; i + 1 < row.size(); ++i) {
            out << row[i] << std::string(widths[i] - store::characterCount(row[i]) + 2, ' ');
        }
        out << row.back() << '\n';
    }
}

void drawTokens(const std::vector<store::Token>& tokens, int64_t now, std::ostream& out)
{
    const auto timeOr = [](const char* szNone, int64_t seconds) { return seconds == 0 ? szNone : utcTime(seconds); };
    std::vector<Row> rows = {{"ACCOUNT", "LABEL", "MADE", "EXPIRES", "LAST USED"}};
    for (const store::Token& token : tokens) {
        const bool isExpired = token.expires != 0 && token.expires <= now;
        rows.push_back({printable(token.account), token.label.empty() ? "-" : printable(token.label),
                        timeOr("not known", token.made),
                        timeOr("never", token.expires) + (isExpired ? " (expired)" : ""),
                        timeOr("never", token.lastUsed)});
    }
    drawTable(rows, out);
}

}  // namespace

ModuleSet loadModules(const std::vector<std::string>& paths, bool withDefaults)
{
    ModuleSet modules;
    for (const std::string& path : withDefaults ? defaultModules() : std::vector<std::string>()) {
        modules.load(path);
    }
    for (const std::string& path : paths) {
        modules.load(path);
    }
    return modules;
}

StaticFiles loadPage(const ConsoleOptions& console)
{
    StaticFiles page;
    if (!console.isServed) {
        return page;
    }
    const std::filesystem::path folder = programFile("share/zemhost", "console");
    if (!console.folder.empty()) {
        try {
            page.load(console.folder);
        } catch (const std::runtime_error& e) {
            throw UsageError(e.what());
        }
    } else if (std::filesystem::exists(folder / "index.html")) {
        page.load(folder);
    } else {
        std::cerr << "zemhost: the console's page is not served: it is not in " << printable(folder.string()) << '\n';
    }
    return page;
}

int serveModules(const ModuleSet& modules, const StaticFiles& page, const ServeOptions& options)
{
    if (!store::hasAccounts()) {
        std::cerr << "zemhost: the store holds no accounts yet, so nobody can call anything; to fill it:\n"
                     "  zemhost apply FILE   a fleet file, with the same --store\n"
                     "  zemhost token NAME   likewise, for one of its accounts\n";
    }
    store::keepHistory(options.historyDays);
    store::setQuota(options.quota);
    serve(modules, page, options);
    return 0;
}

int listAccounts()
{
    std::vector<Row> rows = {{"ACCOUNT", "UID", "ADMINISTRATOR", "GROUPS"}};
    for (const store::AccountRights& rights : store::listAccounts()) {
        rows.push_back({printable(rights.account.name), std::to_string(rights.account.uid),
                        rights.isAdministrator ? "yes" : "no", std::to_string(rights.groups)});
    }
    drawTable(rows, std::cout);
    return 0;
}

int createToken(const NewToken& token)
{
    constexpr int64_t kDay = 24 * 60 * 60;  // seconds
    std::cout << issueToken(accountOf(token.account), token.label, token.days * kDay) << '\n';
    return 0;
}

int listTokens(const std::string& account)
{
    const auto uid = account.empty() ? std::nullopt : std::optional(accountOf(account).uid);
    drawTokens(store::listTokens(uid), time(nullptr), std::cout);
    return 0;
}

int revokeTokens(const std::string& account, const std::optional<std::string>& label)
{
    const int64_t revoked = store::revokeTokens(accountOf(account).uid, label);
    std::cout << revoked << (revoked == 1 ? " token" : " tokens") << " revoked\n";
    return revoked > 0 ? 0 : 1;
}

int callMethod(const ModuleSet& modules, const MethodCall& call)
{
    const VELQ::APIMethod& row = rowOf(modules, call.api, call.version, call.method);
    return printAnswer(answerRequest(row, accountOf(call.account), parseParameters(call.params)));
}

int printTree(const ModuleSet& modules, const std::string& account, bool withIds)
{
    VELQ::APIResponse resp;
    callHandler(rowOf(modules, "VELQ.ZEM.Tree", 1, "get").pHandler, accountOf(account), Json::Value(), resp);
    if (!resp.IsSuccess()) {
        return printAnswer(answerOf(resp));
    }
    drawTree(resp.GetData(), withIds, std::cout);
    return 0;
}

int listTopGroups(const ModuleSet& modules, const std::string& account, const Json::Value& jPaging)
{
    constexpr char kListing[] = "list_one_level_v1";  // of no API
    const VELQ::APIMethod row = {"", 1, kListing, reinterpret_cast<Handler>(modules.symbol(kListing))};
    const store::Account caller = accountOf(account);
    Json::Value jParams = jPaging;
    jParams["ugid"] = caller.uid;
    jParams["user_type"] = store::kLoginUserType;
    return printAnswer(answerRequest(row, caller, std::move(jParams)));
}

int changeLink(const ModuleSet& modules, const LinkChange& change)
{
    const char* szName = change.kind == "group" ? "VELQZEMOuUpdateLinkGpo" : "VELQZEMKxUpdateLinkGpo";
    const auto update = reinterpret_cast<int (*)(Json::Value&, int)>(modules.symbol(szName));
    Json::Value jLink;
    jLink["node_id"] = Json::Int64{store::findRecord(change.kind, change.node)};
    jLink["gpo_id"] = Json::Int64{store::findRecord("policy", change.policy)};
    errno = 0;
    if (update(jLink, change.action == "add") < 0) {
        const std::string reason = errno == 0 ? "refused" : strerror(errno);
        const std::string refusal = store::takeRefusal().text;
        throw std::runtime_error("the links of " + change.kind + " " + change.node +
                                 " were not changed: " + (refusal.empty() ? reason : refusal));
    }
    return 0;
}

}  // namespace host
