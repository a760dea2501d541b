// Fleet files in and out: what is printed is the plan, or the file.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "host/commands.h"

namespace host {

namespace {

constexpr int kMaxNesting = 1010;  // of the values of a fleet file: a record may hold one of 1,000 levels

Json::Value parseFleet(const std::string& path)
{
    errno = 0;
    std::ifstream file(path);
    if (file.peek() == std::ifstream::traits_type::eof()) {
        throw std::runtime_error("cannot read " + path + ": " + (errno == 0 ? "it is empty" : strerror(errno)));
    }
    const std::string text(std::istreambuf_iterator<char>(file), {});
    Json::Value jFleet;
    std::string error;
    if (!standin::readUntrustedJson(text, kMaxNesting, jFleet, error)) {
        throw std::runtime_error(path + " is not JSON: " + error);
    }
    return jFleet;
}

void printLine(const std::string& line)
{
    std::cout << line << '\n';
}

void printCount(const standin::PlanCount& count, bool isDryRun)
{
    std::cout << count.created << " created, " << count.changed << " changed, " << count.deleted << " deleted"
              << (isDryRun ? "; dry run, nothing was written" : "") << '\n';
}

// Counts records on a terminal.
void showProgress(size_t done, size_t total)
{
    static const bool kIsTerminal = isatty(STDERR_FILENO) != 0;
    if (kIsTerminal) {
        std::cerr << '\r' << done << " of " << total << " records" << (done == total ? "\n" : "");
    }
}

}  // namespace

int applyFleetFile(const std::string& path, const standin::ApplyOptions& options)
{
    const Json::Value jFleet = parseFleet(path);
    try {
        printCount(standin::applyFleet(jFleet, options, printLine, showProgress), options.dryRun);
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(path + ": " + e.what());
    }
    return 0;
}

int exportFleet()
{
    standin::exportFleet(printLine);
    return 0;
}

}  // namespace host
