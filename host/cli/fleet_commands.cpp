// Runs the commands that read or write fleet files and inventories.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "host/base/text.h"
#include "host/cli/ansible_inventory.h"
#include "host/cli/commands.h"

namespace host {

namespace {

constexpr int kMaxFileNesting = 1010;  // of a file, in which a value of a record may have 1,000 levels by itself

std::string displayName(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

void printLine(const std::string& line)
{
    std::cout << line << '\n';
}

void printCount(const store::PlanCount& count, bool isDryRun)
{
    std::cout << count.created << " created, " << count.changed << " changed, " << count.deleted << " deleted"
              << (isDryRun ? "; dry run, nothing was written" : "") << '\n';
}

// Shows the number of records done when standard error is a terminal.
void showProgress(size_t done, size_t total)
{
    static const bool kIsTerminal = isatty(STDERR_FILENO) != 0;
    if (kIsTerminal) {
        std::cerr << '\r' << done << " of " << total << " records" << (done == total ? "\n" : "");
    }
}

}  // namespace

Json::Value readJsonFile(const std::string& path)
{
    errno = 0;
    std::ifstream file(path == "-" ? "/dev/stdin" : path);
    if (file.peek() == std::ifstream::traits_type::eof()) {
        throw std::runtime_error("cannot read " + displayName(path) + ": " +
                                 (errno == 0 ? "it is empty" : strerror(errno)));
    }
    const std::string text(std::istreambuf_iterator<char>(file), {});
    Json::Value jValue;
    std::string error;
    if (!store::readUntrustedJson(text, kMaxFileNesting, jValue, error)) {
        throw std::runtime_error(displayName(path) + " is not JSON: " + error);
    }
    return jValue;
}

int applyFleetFile(const Json::Value& jFleet, const std::string& path, const store::ApplyOptions& options,
                   const std::function<void()>& createStore)
{
    try {
        if (!options.dryRun && !store::isStoreAnswering()) {
            store::applyFleet(jFleet, {true, options.prune});
            createStore();
        }
        printCount(store::applyFleet(jFleet, options, printLine, showProgress), options.dryRun);
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(displayName(path) + ": " + e.what());
    }
    return 0;
}

int importAnsibleInventory(const Json::Value& jInventory, const std::string& path, bool isDryRun)
{
    std::vector<std::string> notes;
    const auto revise = [&](const Json::Value& jStored, int64_t lastGroup) {
        Import import = importInventory(jInventory, jStored, lastGroup);
        notes = std::move(import.notes);
        return std::move(import.jFleet);
    };
    try {
        printCount(store::reviseFleet(revise, isDryRun, printLine, showProgress), isDryRun);
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(displayName(path) + ": " + e.what());
    }
    for (const std::string& note : notes) {
        std::cerr << printable(note) + "\n";
    }
    return 0;
}

int backUpStore(const std::string& name)
{
    std::cout << printable(store::backUp(name)) << '\n';
    return 0;
}

int exportFleet()
{
    store::exportFleet(printLine);
    return 0;
}

}  // namespace host
