// The web API modules that are loaded, and the methods that their tables offer.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/velq_webapi.h"

namespace host {

// Load all modules before other threads look anything up; from then on any thread may. Modules stay loaded until the
// process ends. Each function throws std::runtime_error on failure.
class ModuleSet {
public:
    // Loads the shared object and takes over the rows of its method table. Refused: one that has no table, one with a
    // row that lacks a name or the handler, one with a row that a table already had. The set is of no use after that.
    void load(const std::string& path);

    // The row of a method, null when no module offers it.
    const VELQ::APIMethod* find(std::string_view api, int64_t version, std::string_view method) const;

    // The address of a function that a module exports with C linkage.
    void* symbol(const char* szName) const;

private:
    void takeOver(const VELQ::APIMethod& row);

    std::vector<void*> m_handles;
    std::map<std::tuple<std::string_view, int64_t, std::string_view>, const VELQ::APIMethod*> m_methods;
};

}  // namespace host
