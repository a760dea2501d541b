// Records a plan with one row for each block of records.
#include "store/fleet/record_plan.h"

#include "store/history/recorder.h"

namespace store {
namespace {

GroupPaths pathsIn(const Section<Group>& groups)
{
    return GroupPaths([&groups](int64_t id) {
        const Entry<Group>* pEntry = find(groups, id);
        return pEntry == nullptr ? nullptr : &pEntry->record;
    });
}

template <typename R>
Change changeOf(const Difference<R>& difference)
{
    const Entry<R>*pBefore = difference.pBefore, *pAfter = difference.pAfter;
    Change change =
        changeBetween(pBefore == nullptr ? nullptr : &pBefore->record, pAfter == nullptr ? nullptr : &pAfter->record);
    change.members.addDelegates(pBefore == nullptr ? nullptr : &pBefore->delegates,
                                pAfter == nullptr ? nullptr : &pAfter->delegates);
    return change;
}

}  // namespace

void recordPlan(soci::session& sql, const Plan& plan, const Fleet& before, const Fleet& after)
{
    if (!isRecording()) {
        return;
    }
    GroupPaths pathsBefore = pathsIn(before.groups), pathsAfter = pathsIn(after.groups);
    BulkRecorder recorder(sql, commandActor());
    const auto record = [&](const auto& differences) {
        for (const auto& difference : differences) {
            recorder.add(changeOf(difference), difference.isDeleted() ? pathsBefore : pathsAfter);
        }
    };
    record(plan.accounts);
    record(plan.groups);
    record(plan.policies);
    record(plan.servers);
    recorder.flush();
}

}  // namespace store
