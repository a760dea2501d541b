// Fleets and the store: a file is read before the store is locked, and what becomes of the store is worked out and done
// in the one transaction.
#include "store/fleet/fleet.h"

#include <optional>

#include "store/base/errors.h"
#include "store/db/database.h"
#include "store/db/transaction.h"
#include "store/records/analyze.h"

namespace store {
namespace {

// Tells of progress now and then, and at the end.
class Steps {
public:
    Steps(const FleetProgress& progress, const PlanCount& counts)
        : m_progress(progress), m_total(counts.created + counts.changed + counts.deleted)
    {
    }

    void operator()()
    {
        constexpr size_t kReportEvery = 1000;
        ++m_done;
        if (m_progress && (m_done % kReportEvery == 0 || m_done == m_total)) {
            m_progress(m_done, m_total);
        }
    }

private:
    const FleetProgress& m_progress;
    const size_t m_total;
    size_t m_done = 0;
};

// What an apply did, told once the store is free again: who reads the lines may be slow.
struct Outcome {
    PlanCount counts;
    std::vector<std::string> lines;
};

// The stored fleet as the file leads on from it. Writes when there is a session.
Outcome applyTo(const Fleet& stored, const Fleet& file, bool prune, soci::session* pSql, const FleetProgress& progress)
{
    const Fleet after = merged(file, prune ? newFleet() : stored);
    checkFleet(after, Checked::ofFile);
    checkAdministrator(after);
    const Plan plan = compare(stored, after);
    const Outcome outcome = {countOf(plan), linesOf(plan)};
    if (pSql != nullptr && !outcome.lines.empty()) {
        Steps steps(progress, outcome.counts);
        writePlan(*pSql, plan, after, [&steps] { steps(); });
    }
    return outcome;
}

// read: gives the file's fleet for the stored one.
template <typename Read>
PlanCount applyWith(Read&& read, const ApplyOptions& options, const PlanSink& plan, const FleetProgress& progress)
{
    const auto apply = [&]() -> Outcome {
        if (options.dryRun && !isDatabaseOpen()) {
            const Fleet empty = newFleet();
            return applyTo(empty, read(empty), options.prune, nullptr, progress);
        }
        return inTransaction(options.dryRun ? Access::read : Access::write, [&](soci::session& sql) {
            const Fleet stored = storedFleet(sql);
            return applyTo(stored, read(stored), options.prune, options.dryRun ? nullptr : &sql, progress);
        });
    };
    const Outcome outcome = apply();
    if (!options.dryRun && !outcome.lines.empty()) {
        analyzeTables();
    }
    for (const std::string& line : outcome.lines) {
        plan ? plan(line) : void();
    }
    return outcome.counts;
}

}  // namespace

PlanCount applyFleet(const Json::Value& jFleet, const ApplyOptions& options, const PlanSink& plan,
                     const FleetProgress& progress)
{
    const Fleet file = readFleet(jFleet);
    return applyWith([&file](const Fleet&) -> const Fleet& { return file; }, options, plan, progress);
}

PlanCount reviseFleet(const Revision& revise, bool dryRun, const PlanSink& plan, const FleetProgress& progress)
{
    const auto read = [&revise](const Fleet& stored) { return readFleet(revise(jsonOf(stored), stored.lastGroup)); };
    return applyWith(read, {dryRun, false}, plan, progress);
}

void exportFleet(const std::function<void(const std::string& line)>& sink)
{
    const Fleet fleet = inTransaction(Access::read, storedFleet);
    const std::vector<std::string> lines = fileOf(fleet);
    checkFleet(fleet, Checked::all);
    for (const std::string& line : lines) {
        sink(line);
    }
}

}  // namespace store
