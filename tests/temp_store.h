// Opens a node store in a temporary folder.
#pragma once

#include "store/store.h"
#include "tests/support.h"

namespace test {

// A store that is open while the object lives and holds the fleet, unless that is null. A process can have one at a
// time.
struct TempStore {
    explicit TempStore(const Json::Value& jFleet = Json::Value())
    {
        VELQZEMStoreOpen("sqlite:" + path);
        if (!jFleet.isNull()) {
            store::applyFleet(jFleet, {});
        }
    }
    ~TempStore()
    {
        VELQZEMStoreClose();
    }
    const TempFolder folder;
    const std::string path = folder.path + "/store.db";
};

}  // namespace test
