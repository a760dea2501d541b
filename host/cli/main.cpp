// Reads the command line of zemhost, opens the store and runs the command.
#include <syslog.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/base/text.h"
#include "host/base/usage_error.h"
#include "host/cli/check.h"
#include "host/cli/commands.h"
#include "host/cli/store_url.h"
#include "host/cli/version.h"
#include "host/http/client_address.h"
#include "host/http/listen_socket.h"
#include "store/store.h"

namespace {

constexpr int kFailure = 1;     // exit status
constexpr int kWrongUsage = 2;  // exit status

using host::UsageError;

// The options that all commands share, and the functions of the given command. They own the command's own options.
struct CommandLine {
    CLI::App app{"Serves web API modules over HTTP and on the command line.", "zemhost"};
    std::string store;  // its URL; empty until the store is opened if --store is not given
    std::vector<std::string> modulePaths;
    bool hasDefaultModules = true;
    host::ModuleSet modules;
    store::OpenMode mode = store::OpenMode::existingOnly;
    size_t connections = 1;         // to the store; all commands but serve use one thread
    std::string command;            // name of the given command
    std::function<void()> prepare;  // reads files, before the store is opened; empty when there are none
    std::function<int()> run;
};

// Adds a command with the option --store. work, prepare: as in CommandLine.
CLI::App* addCommand(CommandLine& line, const char* szName, const char* szHelp, const std::function<int()>& work,
                     const std::function<void()>& prepare = nullptr)
{
    CLI::App* pCommand = line.app.add_subcommand(szName, szHelp);
    pCommand->callback([&line, szName, work, prepare] {
        line.command = szName;
        line.run = work;
        line.prepare = prepare;
    });
    pCommand->add_option(
        "--store", line.store,
        "URL of the store: sqlite:PATH or postgresql://...; default: the environment variable ZEM_STORE, else "
        "ZEM_STORE in /etc/default/zemhost if the package is installed, else sqlite:zem.db");
    return pCommand;
}

// Adds a command that calls modules. Arguments as for addCommand.
CLI::App* addModuleCommand(CommandLine& line, const char* szName, const char* szHelp, const std::function<int()>& work,
                           const std::function<void()>& prepare = nullptr)
{
    CLI::App* pCommand = addCommand(line, szName, szHelp, work, [&line, prepare] {
        line.modules = host::loadModules(line.modulePaths, line.hasDefaultModules);
        if (prepare) {
            prepare();
        }
    });
    pCommand
        ->add_option("--module", line.modulePaths,
                     "Module to load in addition to those that came with zemhost; repeatable")
        ->allow_extra_args(false);
    pCommand->add_flag("!--no-default-modules", line.hasDefaultModules,
                       "Do not load the modules that came with zemhost");
    return pCommand;
}

CLI::Option* addAccount(CLI::App* pCommand, const char* szOption, std::string& account)
{
    return pCommand->add_option(szOption, account, "Name of an account")->required();
}

void addServe(CommandLine& line)
{
    const auto pOptions = std::make_shared<host::ServeOptions>();
    const auto pConsole = std::make_shared<host::ConsoleOptions>();
    const auto pPage = std::make_shared<host::StaticFiles>();
    CLI::App* pServe = addModuleCommand(
        line, "serve", "Serve the modules' methods and the console over HTTP until SIGTERM",
        [&line, pPage, pOptions] { return host::serveModules(line.modules, *pPage, *pOptions); },
        [pPage, pConsole, pOptions] {
            *pPage = host::loadPage(*pConsole);
            pOptions->listenFd = host::openListenSocket(pOptions->address, pOptions->allowRemote);
            if (!pOptions->metricsAddress.empty()) {
                pOptions->metricsFd = host::openListenSocket(pOptions->metricsAddress, pOptions->allowRemote);
            }
        });
    pServe
        ->add_option("--listen", pOptions->address,
                     "Address to listen on: NAME:PORT, IPV4:PORT or [IPV6]:PORT; port 0: any free port")
        ->capture_default_str();
    pServe->add_option("--metrics", pOptions->metricsAddress,
                       "Second address, which serves only /metrics and /health, without a token; default: none");
    pServe
        ->add_option(
            "--connections", pOptions->connections,
            "Connections to the store; as many requests run at a time, and more for accounts that have none running")
        ->capture_default_str()
        ->check(CLI::Range(1, 64));
    pServe->add_option("--idle-timeout", pOptions->idleTimeout, "Seconds until an idle connection is closed")
        ->capture_default_str()
        ->check(CLI::Range(1u, 3600u));
    pServe
        ->add_option("--drain", pOptions->drainSeconds,
                     "Seconds for which it still serves after SIGTERM, with status 503 at /health for proxies")
        ->capture_default_str()
        ->check(CLI::Range(0u, 3600u));
    pServe
        ->add_option("--request-seconds", pOptions->requestSeconds,
                     "Seconds after which a request makes no further change")
        ->capture_default_str()
        ->check(CLI::Range(1u, 3600u));
    pServe
        ->add_option("--keep-answers", pOptions->keptAnswersMib,
                     "MiB of memory for answers that are kept until the store changes; 0: keep none")
        ->capture_default_str()
        ->check(CLI::Range(0, 65536));
    pServe
        ->add_option("--memory", pOptions->memoryMib,
                     "MiB of memory for all requests together; default: half of that of the machine or control group")
        ->check(CLI::Range(32, 1 << 24));
    pServe
        ->add_option("--proxy", pOptions->proxies,
                     "Address of a trusted proxy, whose X-Forwarded-For names the client; repeatable")
        ->allow_extra_args(false)
        ->check([](const std::string& text) {
            return host::addressNamed(text).empty() ? text + " is no address of a proxy: IPV4 or IPV6 in digits" : "";
        });
    pServe
        ->add_option("--keep-history", pOptions->historyDays,
                     "Days for which changes stay in the history; 0: keep none")
        ->capture_default_str()
        ->check(CLI::Range(0, 36500));
    pServe
        ->add_option("--quota-groups", pOptions->quota.groups,
                     "Most groups that one delegate may manage; 0: any number")
        ->capture_default_str()
        ->check(CLI::Range(0, 1 << 30));
    pServe
        ->add_option("--quota", pOptions->quota.bytes,
                     "Most bytes of text in the groups and servers of one delegate, for example 64MiB; 0: any number")
        ->capture_default_str()
        ->transform(CLI::AsSizeValue(false));
    pServe->add_flag("--allow-remote", pOptions->allowRemote, "Allow addresses that other machines can reach");
    pServe->add_flag("--debug", pOptions->echoesFailures, "Also write the modules' failure lines to standard output");
    auto* pFolder = pServe->add_option("--console", pConsole->folder,
                                       "Folder of the page; default: the one that came with zemhost");
    pServe->add_flag("!--no-console", pConsole->isServed, "Do not serve the page")->excludes(pFolder);
    pServe->parse_complete_callback([&line, pOptions] {
        line.mode = store::OpenMode::createIfMissing;
        line.connections = pOptions->connections;
    });
}

void addApply(CommandLine& line)
{
    const auto pPath = std::make_shared<std::string>();
    const auto pFleet = std::make_shared<Json::Value>();
    const auto pOptions = std::make_shared<store::ApplyOptions>();
    CLI::App* pApply = addCommand(
        line, "apply", "Change the store so that it matches a fleet file, all of it or nothing",
        [&line, pFleet, pPath, pOptions] {
            return host::applyFleetFile(*pFleet, *pPath, *pOptions, [&line] { VELQZEMStoreOpen(line.store); });
        },
        [pFleet, pPath] { *pFleet = host::readJsonFile(*pPath); });
    pApply
        ->add_option("FILE", *pPath,
                     "Fleet file, a JSON object of accounts, groups, policies and servers; - is standard input")
        ->required();
    pApply->add_flag("--dry-run", pOptions->dryRun, "Only print what would change");
    pApply->add_flag("--prune", pOptions->prune, "Also delete the records that the file does not contain");
    pApply->parse_complete_callback([&line] { line.mode = store::OpenMode::ifThere; });
}

struct ImportSource {
    std::string kind, path;
    Json::Value jInventory;
    bool dryRun = false;
};

void addImport(CommandLine& line)
{
    const auto pSource = std::make_shared<ImportSource>();
    CLI::App* pImport = addCommand(
        line, "import", "Add or update the groups and servers of an inventory in the store, all of them or none",
        [pSource] { return host::importAnsibleInventory(pSource->jInventory, pSource->path, pSource->dryRun); },
        [pSource] { pSource->jInventory = host::readJsonFile(pSource->path); });
    pImport->add_option("KIND", pSource->kind, "Kind of inventory")->required()->check(CLI::IsMember({"ansible"}));
    pImport->add_option("FILE", pSource->path, "What ansible-inventory --list prints; - is standard input")->required();
    pImport->add_flag("--dry-run", pSource->dryRun, "Only print what would change");
}

void addExport(CommandLine& line)
{
    addCommand(line, "export", "Print the store as a fleet file", [] { return host::exportFleet(); });
}

void addBackup(CommandLine& line)
{
    const auto pName = std::make_shared<std::string>();
    CLI::App* pBackup = addCommand(line, "backup", "Copy the store into a new file beside it, while it is in use",
                                   [pName] { return host::backUpStore(*pName); });
    pBackup->add_option("NAME", *pName, "Name of the file, without a folder")->required();
}

void addCheck(CommandLine& line)
{
    const auto pIsSound = std::make_shared<bool>(true);
    addCommand(
        line, "check", "Check this installation; status 1 if anything is wrong",
        [pIsSound] { return host::checkStore() && *pIsSound ? 0 : kFailure; },
        [pIsSound] { *pIsSound = host::checkFiles(); });
}

void addAccounts(CommandLine& line)
{
    addCommand(line, "accounts", "List the accounts, and how many groups are delegated to each",
               [] { return host::listAccounts(); });
}

void addToken(CommandLine& line)
{
    const auto pNew = std::make_shared<host::NewToken>();
    CLI::App* pToken = addCommand(line, "token", "Make a bearer token for an account and print it, only this time",
                                  [pNew] { return host::createToken(*pNew); });
    addAccount(pToken, "NAME", pNew->account);
    pToken->add_option("--label", pNew->label, "Label that distinguishes it from other tokens of the account");
    pToken->add_option("--days", pNew->days, "Days until it expires; default: never")->check(CLI::Range(1, 36500));
}

void addTokens(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    CLI::App* pTokens = addCommand(line, "tokens", "List the tokens of one account or of all, with times in UTC",
                                   [pAccount] { return host::listTokens(*pAccount); });
    addAccount(pTokens, "NAME", *pAccount)->required(false);
}

void addRevoke(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    const auto pLabel = std::make_shared<std::optional<std::string>>();
    CLI::App* pRevoke = addCommand(line, "revoke", "Revoke tokens of an account",
                                   [pAccount, pLabel] { return host::revokeTokens(*pAccount, *pLabel); });
    addAccount(pRevoke, "NAME", *pAccount);
    pRevoke->add_option_function<std::string>(
        "LABEL", [pLabel](const std::string& label) { *pLabel = label; },
        "Label of the tokens to revoke; default: all tokens");
}

void addTree(CommandLine& line)
{
    const auto pAccount = std::make_shared<std::string>();
    const auto pWithIds = std::make_shared<bool>(false);
    const auto work = [&line, pAccount, pWithIds] { return host::printTree(line.modules, *pAccount, *pWithIds); };
    CLI::App* pTree = addModuleCommand(line, "tree", "Draw the tree that an account sees", work);
    addAccount(pTree, "--as", *pAccount);
    pTree->add_flag("--ids", *pWithIds, "Write the identifier before each name");
}

void addCall(CommandLine& line)
{
    const auto pCall = std::make_shared<host::MethodCall>();
    CLI::App* pCommand = addModuleCommand(line, "call", "Call one method and print the answer",
                                          [&line, pCall] { return host::callMethod(line.modules, *pCall); });
    pCommand->add_option("API", pCall->api, "API, for example VELQ.ZEM.Tree")->required();
    pCommand->add_option("METHOD", pCall->method, "Method, for example get")->required();
    pCommand->add_option("--version", pCall->version, "Version of the method")->capture_default_str();
    pCommand->add_option("--params", pCall->params, "JSON object of parameters; default: none");
    addAccount(pCommand, "--as", pCall->account);
}

// Adds a paging option. Its value becomes a parameter of the listing when the option is given.
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
    const auto work = [&line, pAccount, pPaging] { return host::listTopGroups(line.modules, *pAccount, *pPaging); };
    CLI::App* pList = addModuleCommand(line, "list", "List the topmost groups that an account sees", work);
    addPaging<Json::Int64>(pList, "--offset", pPaging, "offset", "Groups to skip");
    addPaging<Json::Int64>(pList, "--limit", pPaging, "limit", "Most groups to list");
    addPaging<std::string>(pList, "--sort-by", pPaging, "sort_by", "Field to sort by");
    addPaging<std::string>(pList, "--sort-direction", pPaging, "sort_direction", "ASC or DESC");
    addAccount(pList, "--as", *pAccount);
}

void addLink(CommandLine& line)
{
    const auto pChange = std::make_shared<host::LinkChange>();
    CLI::App* pLink = addModuleCommand(line, "link", "Link a policy to a group or server, or remove the link",
                                       [&line, pChange] { return host::changeLink(line.modules, *pChange); });
    pLink->add_option("ACTION", pChange->action, "What to do")->required()->check(CLI::IsMember({"add", "remove"}));
    pLink->add_option("KIND", pChange->kind, "Whether NODE is a group or a server")
        ->required()
        ->check(CLI::IsMember({"group", "server"}));
    pLink
        ->add_option("NODE", pChange->node,
                     "Identifier; or path of the group, for example Web/Stage; or name of the server, if unique")
        ->required();
    pLink->add_option("POLICY", pChange->policy, "Identifier, or name, if unique")->required();
}

// Reads "2026-11-23" or "2026-11-23T16:00:00Z", a time in UTC.
int64_t timeOf(const std::string& text)
{
    for (const char* szFormat : {"%Y-%m-%d", "%Y-%m-%dT%H:%M:%SZ"}) {
        tm parts{};
        const char* szEnd = strptime(text.c_str(), szFormat, &parts);
        if (szEnd != nullptr && *szEnd == '\0') {
            return timegm(&parts);
        }
    }
    throw CLI::ValidationError("--since", "neither a date, as 2026-11-23, nor a time, as 2026-11-23T16:00:00Z");
}

void addHistory(CommandLine& line)
{
    const auto pFilter = std::make_shared<store::HistoryFilter>();
    const auto pAsJson = std::make_shared<bool>(false);
    CLI::App* pHistory = addCommand(line, "history", "Print who changed what, the newest change first",
                                    [pFilter, pAsJson] { return host::printHistory(*pFilter, *pAsJson); });
    pHistory->add_option(
        "--node", pFilter->node,
        "Only changes of group:N, server:N, policy:N or account:N; N: identifier, path or name, as for link");
    pHistory->add_option("--by", pFilter->by,
                         "Only changes by an account (its name, or uid=N) or by a command, for example apply");
    pHistory->add_option_function<std::string>(
        "--since", [pFilter](const std::string& text) { pFilter->since = timeOf(text); },
        "Only changes since a date or time in UTC, for example 2026-11-23 or 2026-11-23T16:00:00Z");
    pHistory->add_flag("--json", *pAsJson, "Print each change as a JSON object");
}

void addCommands(CommandLine& line)
{
    line.app.set_version_flag("--version", host::kVersion, "Print the version and exit");
    line.app.footer("zemhost COMMAND --help describes a command. Exit status: 0 success, 1 failure, 2 wrong usage.");
    for (const auto add : {addServe, addApply, addImport, addExport, addBackup, addCheck, addAccounts, addToken,
                           addTokens, addRevoke, addTree, addCall, addList, addLink, addHistory}) {
        add(line);
    }
    line.app.allow_extras();  // set after the commands were added, which would inherit it; parse() names the words
}

// Reads the command line. Returns whether there is a command to run; otherwise the help or version has been printed.
bool parse(CommandLine& line, int argc, char** argv)
{
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        line.app.exit(e);  // --help, --version
        return false;
    } catch (const CLI::ParseError& e) {
        throw UsageError(e.what());
    }
    const std::vector<std::string> words = line.app.remaining();
    if (!line.run) {
        throw UsageError(words.empty() ? "a command is missing" : "there is no command \"" + words.front() + '"');
    }
    if (!words.empty()) {
        throw UsageError('"' + words.front() + "\" stands before the command: what is for a command comes after it");
    }
    return true;
}

// Opens the store, and closes it before the objects that its threads use are destroyed.
struct OpenStore {
    explicit OpenStore(const CommandLine& line)
    {
        VELQZEMStoreOpen(line.store, line.mode, line.connections);
    }
    ~OpenStore()
    {
        VELQZEMStoreClose();
    }
    OpenStore(const OpenStore&) = delete;
};

int run(int argc, char** argv)
{
    CommandLine line;
    addCommands(line);
    if (!parse(line, argc, argv)) {
        return 0;
    }
    openlog("zemhost", LOG_PID | LOG_NDELAY, LOG_DAEMON);  // now, because the store may take the way to its socket
    if (line.prepare) {
        line.prepare();
    }
    store::setCommand(line.command);
    line.store = host::storeUrl(line.store);
    const OpenStore store(line);
    const int status = line.run();
    if (!std::cout.flush()) {
        throw std::runtime_error("the output could not be written");
    }
    return status;
}

void printError(const std::exception& e)
{
    std::cerr << "zemhost: " + host::printable(e.what()) + "\n";
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const UsageError& e) {
        printError(e);
        std::cerr << "zemhost --help lists the commands, zemhost COMMAND --help their arguments.\n";
        return kWrongUsage;
    } catch (const std::exception& e) {
        printError(e);
        return kFailure;
    }
}
