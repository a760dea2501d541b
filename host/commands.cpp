// The program's commands.
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
#include "host/http_server.h"
#include "host/module_loader.h"
#include "host/tokens.h"
#include "host/tree_view.h"
#include "standin/store/store.h"

namespace host {

namespace {

constexpr int kMaxNesting = 1000;  // of the values of a fleet file

ModuleSet loadModules(const Options& options)
{
    std::vector<std::string> paths = options.modules;
    if (paths.empty()) {
        paths.push_back(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "webapi_zem_ou.so");
    }
    ModuleSet modules;
    for (const std::string& path : paths) {
        modules.load(path);
    }
    return modules;
}

standin::Account accountOf(const Options& options)
{
    const auto account = standin::findAccountByName(options.account);
    if (!account) {
        throw std::runtime_error("there is no account \"" + options.account + "\"");
    }
    return *account;
}

Handler handlerOf(const ModuleSet& modules, const std::string& api, int64_t version, const std::string& method)
{
    const VELQ::APIMethod* pRow = modules.find(api, version, method);
    if (nullptr == pRow) {
        throw std::runtime_error("no module offers " + api + " " + std::to_string(version) + " " + method);
    }
    return pRow->pHandler;
}

int printAnswer(const Answer& answer)
{
    std::cout << answer.text << '\n';
    return 0 == answer.code ? 0 : 1;
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

int serveModules(const Options& options)
{
    serve(loadModules(options), options.listen, options.allowRemote);
    return 0;
}

int loadFleetFile(const Options& options)
{
    const Json::Value jFleet = parseFleet(options.file);
    const bool isTerminal = isatty(STDERR_FILENO);
    try {
        standin::loadFleet(jFleet, [isTerminal](size_t done, size_t total) {
            if (isTerminal) {
                std::cerr << '\r' << done << " of " << total << " records" << (done == total ? "\n" : "");
            }
        });
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(options.file + ": " + e.what());
    }
    const char* szBefore = "loaded ";
    for (const char* szPart : {"accounts", "groups", "policies", "servers"}) {
        std::cout << std::exchange(szBefore, ", ") << jFleet[szPart].size() << ' ' << szPart;
    }
    std::cout << '\n';
    return 0;
}

int printToken(const Options& options)
{
    std::cout << issueToken(accountOf(options)) << '\n';
    return 0;
}

int callMethod(const Options& options)
{
    const ModuleSet modules = loadModules(options);
    const Handler handler = handlerOf(modules, options.api, options.version, options.method);
    return printAnswer(answerRequest(handler, accountOf(options), parseParameters(options.params)));
}

int printTree(const Options& options)
{
    const ModuleSet modules = loadModules(options);
    VELQ::APIResponse resp;
    callHandler(handlerOf(modules, "VELQ.ZEM.Tree", 1, "get"), accountOf(options), Json::Value(), resp);
    if (!resp.IsSuccess()) {
        return printAnswer({200, resp.GetErrorCode(), envelope(resp)});
    }
    drawTree(resp.GetData(), std::cout);
    return 0;
}

int printOneLevel(const Options& options)
{
    const ModuleSet modules = loadModules(options);
    const auto handler = reinterpret_cast<Handler>(modules.symbol("list_one_level_v1"));
    const standin::Account account = accountOf(options);
    Json::Value jParams = options.jPaging;
    jParams["ugid"] = account.uid;
    jParams["user_type"] = standin::kLoginUserType;
    return printAnswer(answerRequest(handler, account, std::move(jParams)));
}

int changeLink(const Options& options)
{
    const ModuleSet modules = loadModules(options);
    const char* szName = "group" == options.kind ? "VELQZEMOuUpdateLinkGpo" : "VELQZEMKxUpdateLinkGpo";
    const auto update = reinterpret_cast<int (*)(Json::Value&, int)>(modules.symbol(szName));
    Json::Value jLink;
    jLink["node_id"] = Json::Int64{options.nodeId};
    jLink["gpo_id"] = Json::Int64{options.policyId};
    errno = 0;
    if (0 > update(jLink, "add" == options.action)) {
        throw std::runtime_error("the links of " + options.kind + " " + std::to_string(options.nodeId) +
                                 " were not changed: " + (0 == errno ? "refused" : strerror(errno)));
    }
    return 0;
}

}  // namespace host
