// Bytes as a fleet file: refused with a text and nothing stored, or loaded.
#include <memory>

#include "standin/store/store.h"
#include "tests/support.h"

namespace {

// A store in a folder of its own; made anew once a fleet was loaded into it.
struct EmptyStore {
    EmptyStore()
    {
        VELQZEMStoreOpen("sqlite:" + folder.path + "/fleet.db");
    }
    ~EmptyStore()
    {
        VELQZEMStoreClose();
    }
    const test::TempFolder folder;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static auto pStore = std::make_unique<EmptyStore>();
    Json::Value jFleet;
    if (!test::parse(reinterpret_cast<const char*>(pData), size, jFleet)) {
        return 0;
    }
    try {
        standin::loadFleet(jFleet, {});
        pStore = nullptr;
        pStore = std::make_unique<EmptyStore>();
    } catch (const std::runtime_error& error) {
        if (*error.what() == '\0') {
            abort();  // a refusal says what is wrong
        }
    }
    return 0;
}
