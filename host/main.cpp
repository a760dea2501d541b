// zemhost: serves the methods of web API modules over HTTP, and offers them and the node store on the command line.
#include <syslog.h>

#include <iostream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "host/commands.h"
#include "host/text.h"
#include "standin/store/store.h"

namespace {

using host::Options;

// Adds a paging option whose value becomes a parameter of the listing only when it is given.
template <typename Value>
void addPaging(CLI::App& list, const char* szOption, const char* szParam, Options& options, const char* szHelp)
{
    list.add_option_function<Value>(
        szOption, [&options, szParam](const Value& value) { options.jPaging[szParam] = value; }, szHelp);
}

void addCommands(CLI::App& app, Options& options, int (*&command)(const Options&))
{
    const auto add = [&](const char* szName, const char* szHelp, int (*run)(const Options&)) {
        CLI::App* pCommand = app.add_subcommand(szName, szHelp);
        pCommand->callback([&command, run] { command = run; });
        return pCommand;
    };
    const auto addAccount = [&](CLI::App* pCommand, const char* szOption) {
        pCommand->add_option(szOption, options.account, "Name of an account")->required();
    };
    CLI::App* pServe = add("serve", "Serve the modules' methods over HTTP until SIGTERM", host::serveModules);
    pServe->add_option("--listen", options.listen, "IPV4:PORT or [IPV6]:PORT")->capture_default_str();
    pServe->add_flag("--allow-remote", options.allowRemote, "Allow an address that can be reached from elsewhere");

    CLI::App* pLoad = add("load", "Load a fleet file into an empty store, all or nothing", host::loadFleetFile);
    pLoad->add_option("FILE", options.file)->required();

    addAccount(add("token", "Make a new bearer token and print it, this once", host::printToken), "NAME");
    addAccount(add("tree", "Draw the tree that an account sees", host::printTree), "--as");

    CLI::App* pCall = add("call", "Call one method and print the answer", host::callMethod);
    pCall->add_option("API", options.api)->required();
    pCall->add_option("METHOD", options.method)->required();
    pCall->add_option("--version", options.version, "Version of the method")->capture_default_str();
    pCall->add_option("--params", options.params, "JSON object of parameters");
    addAccount(pCall, "--as");

    CLI::App* pList = add("list", "List the topmost groups that an account sees", host::printOneLevel);
    addPaging<Json::Int64>(*pList, "--offset", "offset", options, "Groups to skip");
    addPaging<Json::Int64>(*pList, "--limit", "limit", options, "Groups to list at most");
    addPaging<std::string>(*pList, "--sort-by", "sort_by", options, "Field");
    addPaging<std::string>(*pList, "--sort-direction", "sort_direction", options, "ASC or DESC");
    addAccount(pList, "--as");

    CLI::App* pLink = add("link", "Link a policy to a node, or take the link away", host::changeLink);
    pLink->add_option("ACTION", options.action)->required()->check(CLI::IsMember({"add", "remove"}));
    pLink->add_option("KIND", options.kind)->required()->check(CLI::IsMember({"group", "server"}));
    pLink->add_option("NODE", options.nodeId, "Identifier of the group or server")->required();
    pLink->add_option("POLICY", options.policyId, "Identifier of the policy")->required();
}

int run(int argc, char** argv)
{
    Options options;
    int (*command)(const Options&) = nullptr;
    CLI::App app("Serves web API modules over HTTP and on the command line", "zemhost");
    app.add_option("--store", options.store, "sqlite:PATH or postgresql://...")->capture_default_str();
    app.add_option("--module", options.modules, "Module to load, repeatable; default: webapi_zem_ou.so beside zemhost")
        ->allow_extra_args(false);
    app.fallthrough();
    app.require_subcommand(1);
    addCommands(app, options, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help
    }
    openlog("zemhost", host::serveModules == command ? LOG_PID : LOG_PERROR, LOG_DAEMON);
    VELQZEMStoreOpen(options.store);
    const int status = command(options);
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
