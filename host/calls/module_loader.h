// Loads web API modules and finds the methods that their tables offer.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/velq_webapi.h"

namespace host {

// Whether the method only reads, by its name: "get" or "list". Its answer then depends on the caller, the parameters
// and the state of the store alone.
bool onlyReads(const VELQ::APIMethod& row);

// The loaded modules. Load all of them before other threads use the object; after that any thread may look methods up.
// Modules stay loaded until the process ends.
class ModuleSet {
public:
    // Loads the shared object and adds the methods of its table. Throws std::runtime_error when it cannot be loaded,
    // has no table, or has a row that lacks a name or the handler, or that names a method which is there already. The
    // object must not be used after that.
    void load(const std::string& path);

    // Returns the table row of a method, null when no module offers it.
    const VELQ::APIMethod* find(std::string_view api, int64_t version, std::string_view method) const;

    // Returns the address of a function that a module exports with C linkage. Throws std::runtime_error when none does.
    void* symbol(const char* szName) const;

private:
    void addMethod(const VELQ::APIMethod& row);

    std::vector<void*> m_handles;
    std::map<std::tuple<std::string_view, int64_t, std::string_view>, const VELQ::APIMethod*> m_methods;
};

}  // namespace host
