// zemhost: serves the methods of web API modules over HTTP, and offers them and the node store on the command line.
#include <syslog.h>

#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "host/commands.h"
#include "host/text.h"
#include "standin/store/store.h"

namespace {

// The options of all commands, and what the command that is given does. Its own options live with that.
struct CommandLine {
    CLI::App app{"Serves web API modules over HTTP and on the command line", "zemhost"};
    std::string store = "sqlite:zem.db";
    host::ModulePaths modules;
    std::function<int()> run;
    int logOptions = 0;  // of openlog
};

// Adds a command. work: what it does, with the options that are still to be read.
CLI::App* addCommand(CommandLine& line, const char* szName, const char* szHelp, std::function<int()> work,
                     int logOptions = LOG_PERROR)
{
    CLI::App* pCommand = line.app.add_subcommand(szName, szHelp);
    pCommand->callback([&line, work = std::move(work), logOptions] {
        line.run = work;
        line.logOptions = logOptions;
    });
    return pCommand;
}

void addAccount(CLI::App* pCommand, const char* szOption, std::string& account)
{
    pCommand->add_option(szOption, account, "Name of an account")->required();
}

void addServe(CommandLine& line)
{
    const auto pOptions = std::make_shared<host::ServeOptions>();
    const auto work = [&line, pOptions] { return host::serveModules(line.modules, *pOptions); };
    CLI::App* pServe = addCommand(line, "serve", "Serve the modules' methods over HTTP until SIGTERM", work, LOG_PID);
    pServe->add_option("--listen", pOptions->address, "IPV4:PORT or [IPV6]:PORT")->capture_default_str();
    pServe->add_option("--idle-timeout", pOptions->idleTimeout, "Seconds until an idle connection is closed")
        ->capture_default_str()
        ->check(CLI::Range(1u, 3600u));
    pServe->add_flag("--allow-remote", pOptions->allowRemote, "Allow an address that can be reached from elsewhere");
}

void addLoad(CommandLine& line)
{
    const auto pPath = std::make_shared<std::string>();
    addCommand(line, "load", "Load a fleet file into an empty store, all or nothing",
               [pPath] { return host::loadFleetFile(*pPath); })
        ->add_option("FILE", *pPath)
        ->required();
}

void addToken(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    CLI::App* pToken = addCommand(line, "token", "Make a new bearer token and print it, this once",
                                  [pAccount] { return host::printToken(*pAccount); });
    addAccount(pToken, "NAME", *pAccount);
}

void addTree(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    CLI::App* pTree = addCommand(line, "tree", "Draw the tree that an account sees",
                                 [&line, pAccount] { return host::printTree(line.modules, *pAccount); });
    addAccount(pTree, "--as", *pAccount);
}

void addCall(CommandLine& line)
{
    const auto pCall = std::make_shared<host::MethodCall>();
    CLI::App* pCommand = addCommand(line, "call", "Call one method and print the answer",
                                    [&line, pCall] { return host::callMethod(line.modules, *pCall); });
    pCommand->add_option("API", pCall->api)->required();
    pCommand->add_option("METHOD", pCall->method)->required();
    pCommand->add_option("--version", pCall->version, "Version of the method")->capture_default_str();
    pCommand->add_option("--params", pCall->params, "JSON object of parameters");
    addAccount(pCommand, "--as", pCall->account);
}

// Adds a paging option whose value becomes a parameter of the listing only when it is given.
template <typename Value>
void addPaging(CLI::App* pList, const char* szOption, const std::shared_ptr<Json::Value>& pPaging, const char* szParam,
               const char* szHelp)
{
    pList->add_option_function<Value>(
        szOption, [pPaging, szParam](const Value& value) { (*pPaging)[szParam] = value; }, szHelp);
}

void addList(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    const auto pPaging = std::make_shared<Json::Value>(Json::objectValue);
    const auto work = [&line, pAccount, pPaging] { return host::printOneLevel(line.modules, *pAccount, *pPaging); };
    CLI::App* pList = addCommand(line, "list", "List the topmost groups that an account sees", work);
    addPaging<Json::Int64>(pList, "--offset", pPaging, "offset", "Groups to skip");
    addPaging<Json::Int64>(pList, "--limit", pPaging, "limit", "Groups to list at most");
    addPaging<std::string>(pList, "--sort-by", pPaging, "sort_by", "Field");
    addPaging<std::string>(pList, "--sort-direction", pPaging, "sort_direction", "ASC or DESC");
    addAccount(pList, "--as", *pAccount);
}

void addLink(CommandLine& line)
{
    const auto pChange = std::make_shared<host::LinkChange>();
    CLI::App* pLink = addCommand(line, "link", "Link a policy to a node, or take the link away",
                                 [&line, pChange] { return host::changeLink(line.modules, *pChange); });
    pLink->add_option("ACTION", pChange->action)->required()->check(CLI::IsMember({"add", "remove"}));
    pLink->add_option("KIND", pChange->kind)->required()->check(CLI::IsMember({"group", "server"}));
    pLink->add_option("NODE", pChange->nodeId, "Identifier of the group or server")->required();
    pLink->add_option("POLICY", pChange->policyId, "Identifier of the policy")->required();
}

int run(int argc, char** argv)
{
    CommandLine line;
    line.app.add_option("--store", line.store, "sqlite:PATH or postgresql://...")->capture_default_str();
    line.app
        .add_option("--module", line.modules, "Module to load, repeatable; default: webapi_zem_ou.so beside zemhost")
        ->allow_extra_args(false);
    line.app.fallthrough();
    line.app.require_subcommand(1);
    for (const auto add : {addServe, addLoad, addToken, addTree, addCall, addList, addLink}) {
        add(line);
    }
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return line.app.exit(e);  // --help
    }
    openlog("zemhost", line.logOptions, LOG_DAEMON);
    VELQZEMStoreOpen(line.store);
    const int status = line.run();
    if (!std::cout.flush()) {
        throw std::runtime_error("the output could not be written");
    }
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "zemhost: " + host::printable(e.what()) + "\n";
        return 1;
    }
}
