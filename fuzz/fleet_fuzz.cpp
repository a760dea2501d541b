// Fuzz target: a fleet file is refused with nothing stored, or applied so that its own export changes nothing.
#include "tests/temp_store.h"

namespace {

std::string exported()
{
    std::string text;
    store::exportFleet([&text](const std::string& line) { text += line; });
    return text;
}

void require(bool condition)
{
    if (!condition) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static const test::TempStore kStore;
    Json::Value jFleet;
    if (!test::parse(reinterpret_cast<const char*>(pData), size, jFleet)) {
        return 0;
    }
    const std::string before = exported();
    store::PlanCount planned;
    try {
        planned = store::applyFleet(jFleet, {.dryRun = true, .prune = true});
    } catch (const std::runtime_error& error) {
        require(*error.what() != '\0');  // a refusal says what is wrong
        return 0;
    }
    require(exported() == before);
    store::applyFleet(jFleet, {.dryRun = false, .prune = true});
    std::string error;
    require(store::readUntrustedJson(exported(), 2000, jFleet, error));
    for (const bool prune : {false, true}) {
        const store::PlanCount count = store::applyFleet(jFleet, {.dryRun = false, .prune = prune});
        require(count.created + count.changed + count.deleted == 0);
    }
    return 0;
}
