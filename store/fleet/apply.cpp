// Brings the store to the state that a fleet file describes, in one transaction, and exports the store as such a file.
#include "store/base/errors.h"
#include "store/db/database.h"
#include "store/db/transaction.h"
#include "store/fleet/check.h"
#include "store/fleet/export.h"
#include "store/fleet/load.h"
#include "store/fleet/parse.h"
#include "store/fleet/plan_text.h"
#include "store/fleet/record_plan.h"
#include "store/fleet/write.h"
#include "store/records/analyze.h"

namespace store {
namespace {

// Reports the progress every thousand records and at the end.
class ProgressReporter {
public:
    ProgressReporter(const FleetProgress& progress, const PlanCount& counts)
        : m_progress(progress), m_total(counts.created + counts.changed + counts.deleted)
    {
    }

    void addRecord()
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

// The lines go to the sink after the transaction, because the sink may be slow.
struct ApplyResult {
    PlanCount counts;
    std::vector<std::string> lines;
};

// Plans how the stored fleet becomes that of the file, and writes the plan unless the session is null.
ApplyResult planAndWrite(const Fleet& stored, const Fleet& file, bool prune, soci::session* pSql,
                         const FleetProgress& progress)
{
    const Fleet after = mergeFleets(file, prune ? newFleet() : stored);
    checkFleet(after, RelationsChecked::ofFile);
    checkAdministrator(after);
    const Plan plan = makePlan(stored, after);
    checkLengths(plan);
    const ApplyResult result = {countOf(plan), planLines(plan)};
    if (pSql != nullptr && !result.lines.empty()) {
        ProgressReporter reporter(progress, result.counts);
        writePlan(*pSql, plan, after, [&reporter] { reporter.addRecord(); });
        recordPlan(*pSql, plan, stored, after);
    }
    return result;
}

// fileFor(stored): returns the fleet of the file, which may depend on the stored one.
template <typename FileFor>
PlanCount applyFile(FileFor&& fileFor, const ApplyOptions& options, const PlanSink& plan, const FleetProgress& progress)
{
    const auto apply = [&]() -> ApplyResult {
        if (options.dryRun && !isDatabaseOpen()) {
            const Fleet empty = newFleet();
            return planAndWrite(empty, fileFor(empty), options.prune, nullptr, progress);
        }
        return inTransaction(options.dryRun ? Access::read : Access::write, [&](soci::session& sql) {
            const Fleet stored = loadFleet(sql);
            return planAndWrite(stored, fileFor(stored), options.prune, options.dryRun ? nullptr : &sql, progress);
        });
    };
    const ApplyResult result = apply();
    if (!options.dryRun && !result.lines.empty()) {
        analyzeTables();
    }
    if (plan) {
        for (const std::string& line : result.lines) {
            plan(line);
        }
    }
    return result.counts;
}

}  // namespace

PlanCount applyFleet(const Json::Value& jFleet, const ApplyOptions& options, const PlanSink& plan,
                     const FleetProgress& progress)
{
    const Fleet file = parseFleet(jFleet);  // before the store is locked
    return applyFile([&file](const Fleet&) -> const Fleet& { return file; }, options, plan, progress);
}

PlanCount reviseFleet(const Revision& revise, bool dryRun, const PlanSink& plan, const FleetProgress& progress)
{
    const auto fileFor = [&revise](const Fleet& stored) {
        return parseFleet(revise(toJson(stored), stored.lastGroup));
    };
    return applyFile(fileFor, {dryRun, false}, plan, progress);
}

void exportFleet(const std::function<void(const std::string& line)>& sink)
{
    const Fleet fleet = inTransaction(Access::read, loadFleet);
    const std::vector<std::string> lines = fileLines(fleet);
    checkFleet(fleet, RelationsChecked::all);
    for (const std::string& line : lines) {
        sink(line);
    }
}

}  // namespace store
