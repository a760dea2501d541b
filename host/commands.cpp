// A command loads modules, finds the account, calls what the modules offer and prints what comes of it.
#include "host/commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "host/dispatch.h"
#include "host/module_loader.h"
#include "host/tokens.h"
#include "host/tree_view.h"
#include "standin/store/store.h"

namespace host {

namespace {

constexpr int kMaxNesting = 1000;  // of the values of a fleet file

ModuleSet loadModules(const ModulePaths& paths)
{
    ModuleSet modules;
    for (const std::string& path : paths) {
        modules.load(path);
    }
    if (paths.empty()) {
        modules.load(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "webapi_zem_ou.so");
    }
    return modules;
}

standin::Account accountOf(const std::string& name)
{
    const auto account = standin::findAccountByName(name);
    if (!account) {
        throw std::runtime_error("there is no account \"" + name + "\"");
    }
    return *account;
}

Handler handlerOf(const ModuleSet& modules, const std::string& api, int64_t version, const std::string& method)
{
    const VELQ::APIMethod* pRow = modules.find(api, version, method);
    if (pRow == nullptr) {
        throw std::runtime_error("no module offers " + api + " " + std::to_string(version) + " " + method);
    }
    return pRow->pHandler;
}

int printAnswer(const Answer& answer)
{
    for (const std::string& part : answer.parts) {
        std::cout << part;
    }
    std::cout << '\n';
    return answer.code == 0 ? 0 : 1;
}

Json::Value parseFleet(const std::string& path)
{
    errno = 0;
    std::ifstream file(path);
    if (std::ifstream::traits_type::eof() == file.peek()) {
        throw std::runtime_error("cannot read " + path + ": " + (0 == errno ? "it is empty" : strerror(errno)));
    }
    const std::string text(std::istreambuf_iterator<char>(file), {});
    Json::Value jFleet;
    std::string error;
    if (!standin::readUntrustedJson(text, kMaxNesting, jFleet, error)) {
        throw std::runtime_error(path + " is not JSON: " + error);
    }
    return jFleet;
}

}  // namespace

int serveModules(const ModulePaths& modules, const ServeOptions& options)
{
    serve(loadModules(modules), options);
    return 0;
}

int loadFleetFile(const std::string& path)
{
    const Json::Value jFleet = parseFleet(path);
    const bool isTerminal = isatty(STDERR_FILENO);
    try {
        standin::loadFleet(jFleet, [isTerminal](size_t done, size_t total) {
            if (isTerminal) {
                std::cerr << '\r' << done << " of " << total << " records" << (done == total ? "\n" : "");
            }
        });
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(path + ": " + e.what());
    }
    const char* szBefore = "loaded ";
    for (const char* szPart : {"accounts", "groups", "policies", "servers"}) {
        std::cout << std::exchange(szBefore, ", ") << jFleet[szPart].size() << ' ' << szPart;
    }
    std::cout << '\n';
    return 0;
}

int printToken(const std::string& account)
{
    std::cout << issueToken(accountOf(account)) << '\n';
    return 0;
}

int callMethod(const ModulePaths& modules, const MethodCall& call)
{
    const ModuleSet loaded = loadModules(modules);
    const Handler handler = handlerOf(loaded, call.api, call.version, call.method);
    return printAnswer(answerRequest(handler, accountOf(call.account), parseParameters(call.params)));
}

int printTree(const ModulePaths& modules, const std::string& account)
{
    const ModuleSet loaded = loadModules(modules);
    VELQ::APIResponse resp;
    callHandler(handlerOf(loaded, "VELQ.ZEM.Tree", 1, "get"), accountOf(account), Json::Value(), resp);
    if (!resp.IsSuccess()) {
        return printAnswer({200, resp.GetErrorCode(), envelope(resp)});
    }
    drawTree(resp.GetData(), std::cout);
    return 0;
}

int printOneLevel(const ModulePaths& modules, const std::string& account, const Json::Value& jPaging)
{
    const ModuleSet loaded = loadModules(modules);
    const auto handler = reinterpret_cast<Handler>(loaded.symbol("list_one_level_v1"));
    const standin::Account caller = accountOf(account);
    Json::Value jParams = jPaging;
    jParams["ugid"] = caller.uid;
    jParams["user_type"] = standin::kLoginUserType;
    return printAnswer(answerRequest(handler, caller, std::move(jParams)));
}

int changeLink(const ModulePaths& modules, const LinkChange& change)
{
    const ModuleSet loaded = loadModules(modules);
    const char* szName = change.kind == "group" ? "VELQZEMOuUpdateLinkGpo" : "VELQZEMKxUpdateLinkGpo";
    const auto update = reinterpret_cast<int (*)(Json::Value&, int)>(loaded.symbol(szName));
    Json::Value jLink;
    jLink["node_id"] = Json::Int64{change.nodeId};
    jLink["gpo_id"] = Json::Int64{change.policyId};
    errno = 0;
    if (update(jLink, change.action == "add") < 0) {
        throw std::runtime_error("the links of " + change.kind + " " + std::to_string(change.nodeId) +
                                 " were not changed: " + (errno == 0 ? "refused" : strerror(errno)));
    }
    return 0;
}

}  // namespace host
