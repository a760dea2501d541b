// A node store in a folder of its own.
#pragma once

#include "store/store.h"
#include "tests/support.h"

namespace test {

// Open, with that fleet in it unless it is null, for as long as the object is there; one at a time.
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
