// Bytes as a fleet file: refused with a text and nothing stored, or loaded.
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <json/reader.h>
#include <unistd.h>

#include "standin/store/store.h"

namespace {

// A store that is opened once, and again after a fleet was loaded into it.
class EmptyStore {
public:
    EmptyStore() : m_folder(std::filesystem::temp_directory_path() / ("fleet_fuzz." + std::to_string(getpid())))
    {
        open();
    }
    ~EmptyStore()
    {
        VELQZEMStoreClose();
        std::filesystem::remove_all(m_folder);
    }
    void open()
    {
        VELQZEMStoreClose();
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        VELQZEMStoreOpen("sqlite:" + (m_folder / "fleet.db").string());
    }

private:
    std::filesystem::path m_folder;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    static EmptyStore store;
    Json::Value jFleet;
    const char* pText = reinterpret_cast<const char*>(pData);
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        if (!reader->parse(pText, pText + size, &jFleet, nullptr)) {
            return 0;
        }
    } catch (const std::exception&) {
        return 0;
    }
    try {
        standin::loadFleet(jFleet, {});
    } catch (const std::runtime_error& e) {
        if (*e.what() == '\0') {
            abort();  // a refusal says what is wrong
        }
        return 0;
    }
    store.open();
    return 0;
}
