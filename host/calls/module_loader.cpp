// Loads web API modules and checks each row of their method tables.
#include "host/calls/module_loader.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>

namespace host {

namespace {

constexpr size_t kMaxRows = 1000;  // no real table has so many rows; a longer one lacks its final row

bool isEnd(const VELQ::APIMethod& row)
{
    return row.szApi == nullptr && row.version == 0 && row.szMethod == nullptr && row.pHandler == nullptr;
}

}  // namespace

bool onlyReads(const VELQ::APIMethod& row)
{
    const std::string_view method = row.szMethod;
    return method == "get" || method == "list";
}

void ModuleSet::load(const std::string& path)
{
    // An absolute path, because dlopen searches the library folders for a name without a slash.
    m_handles.push_back(dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL));
    if (m_handles.back() == nullptr) {
        throw std::runtime_error("cannot load module " + path + ": " + dlerror());
    }
    const auto getTable = reinterpret_cast<VELQ::APIMethod* (*)()>(dlsym(m_handles.back(), "GetAPITable"));
    const VELQ::APIMethod* pTable = getTable == nullptr ? nullptr : getTable();
    if (pTable == nullptr) {
        throw std::runtime_error("module " + path + " refused: it has no method table (GetAPITable)");
    }
    for (size_t i = 0; !isEnd(pTable[i]); ++i) {
        try {
            if (i >= kMaxRows) {
                throw std::runtime_error("comes after " + std::to_string(kMaxRows) + " others without an end");
            }
            addMethod(pTable[i]);
        } catch (const std::runtime_error& e) {
            throw std::runtime_error("module " + path + " refused: table row " + std::to_string(i + 1) + " " +
                                     e.what());
        }
    }
}

void ModuleSet::addMethod(const VELQ::APIMethod& row)
{
    if (row.szApi == nullptr || row.szMethod == nullptr || row.pHandler == nullptr) {
        throw std::runtime_error("lacks a name or the handler");
    }
    if (!m_methods.emplace(std::tuple(row.szApi, row.version, row.szMethod), &row).second) {
        throw std::runtime_error(std::string("is a duplicate: ") + row.szApi + " " + std::to_string(row.version) + " " +
                                 row.szMethod);
    }
}

const VELQ::APIMethod* ModuleSet::find(std::string_view api, int64_t version, std::string_view method) const
{
    const auto it = m_methods.find({api, version, method});
    return it == m_methods.end() ? nullptr : it->second;
}

void* ModuleSet::symbol(const char* szName) const
{
    for (void* pHandle : m_handles) {
        if (void* pSymbol = dlsym(pHandle, szName)) {
            return pSymbol;
        }
    }
    throw std::runtime_error(std::string("no module exports ") + szName);
}

}  // namespace host
