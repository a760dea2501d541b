// Converts delegates between requests, rows and list items.
#include "store/records/delegates.h"

#include <string>
#include <unordered_set>

#include "store/base/errors.h"
#include "store/records/json_text.h"

namespace store {

std::vector<int64_t> delegateUgids(const Json::Value& jDelegates, const std::function<bool(int64_t)>& isKnown)
{
    requireValid(jDelegates.isArray(), "delegate", "not an array");
    std::vector<int64_t> ugids;
    std::unordered_set<int64_t> seen;
    const std::string notAnAccount = "not " + std::to_string(kDelegateUserType) + ", an account";
    for (Json::ArrayIndex i = 0; i < jDelegates.size(); ++i) {
        const Json::Value& jDelegate = jDelegates[i];
        const std::string place = "delegate[" + std::to_string(i) + "]";
        requireValid(jDelegate.isObject(), place, "not an object");
        const Json::Value& jUserType = jDelegate["user_type"];
        const Json::Value& jUgid = jDelegate["ugid"];
        requireValid(jUserType.isInt() && jUserType.asInt() == kDelegateUserType, place + ".user_type", notAnAccount);
        requireValid(jUgid.isInt64(), place + ".ugid", "not an integer");
        requireValid(isKnown(jUgid.asInt64()), place + ".ugid", "no account " + std::to_string(jUgid.asInt64()),
                     Reason::unknownAccount);
        requireValid(seen.insert(jUgid.asInt64()).second, place, "a delegate that is named before", Reason::duplicate);
        ugids.push_back(jUgid.asInt64());
    }
    return ugids;
}

Delegate delegateOf(const DelegateRow& row)
{
    Delegate delegate;
    delegate.userType = row.userType;
    delegate.ugid = static_cast<uint64_t>(row.ugid);
    return delegate;
}

VLIBCString extraInfoOf(const AccountRow& account)
{
    Json::Value jExtra;
    jExtra["userNameCache"] = account.name.c_str();
    jExtra["domainName"] = account.domainName.c_str();
    jExtra["domainType"] = account.domainType.c_str();
    return VLIBCString(writeJson(jExtra));
}

void insertDelegates(Inserter<DelegateRow>& inserter, int nodeType, int64_t id, const std::vector<int64_t>& ugids)
{
    DelegateRow row;
    row.nodeType = nodeType;
    row.nodeId = id;
    for (const int64_t ugid : ugids) {
        row.ugid = ugid;
        inserter.insert(row);
        ++row.position;
    }
}

}  // namespace store
