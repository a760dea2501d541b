// Bytes as a fleet file: refused with a text and nothing stored, or loaded.
#include "tests/temp_store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static auto pStore = std::make_unique<test::TempStore>();  // empty
    Json::Value jFleet;
    if (!test::parse(reinterpret_cast<const char*>(pData), size, jFleet)) {
        return 0;
    }
    try {
        standin::applyFleet(jFleet, {});
        pStore = nullptr;
        pStore = std::make_unique<test::TempStore>();
    } catch (const std::runtime_error& error) {
        if (*error.what() == '\0') {
            abort();  // a refusal says what is wrong
        }
    }
    return 0;
}
