// The node store of this platform, on SQL: what a process needs beyond platform/velq_zem.h to open and fill it, and the
// store's own ways to read texts from outside. The one header of the store that others include.
//
// Every function declared here may be called by any thread and throws std::runtime_error, with a text for people, when
// the store fails or refuses; what it returns is the caller's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <json/value.h>

#include "standin/store/json_reader.h"
#include "standin/store/utf8.h"

// Opens the one store of the process: "sqlite:PATH" or "postgresql://...". The schema is created on first use; one of
// another version is refused. Call it before any VELQZEM function and when no thread uses the store; opening another
// store closes the first.
void VELQZEMStoreOpen(const std::string& url);

// Closes the store; VELQZEM functions then fail with EIO. No thread may be using it.
void VELQZEMStoreClose();

namespace standin {

constexpr int kServerType = 3;        // "node_type" of servers; groups are VELQ_ZEM_TYPE_OU
constexpr int kPolicyType = 4;        // "node_type" of policies
constexpr int kDelegateUserType = 2;  // "user_type" of a delegate: an account, the one kind there is
constexpr int kLoginUserType = 8;     // "user_type" of a listing's query: a logged-in account, the one kind there is
constexpr int kMaxGroupDepth = 128;   // levels of groups below the root

struct Account {
    uint32_t uid = 0;
    std::string name;
};

// The account of that name, or of that token's hash; nothing when there is none.
std::optional<Account> findAccountByName(const std::string& name);
std::optional<Account> findAccountByToken(const std::string& tokenHash);

// Gives the account its bearer token, of which the store keeps only this hash; an earlier token stops working.
void setAccountToken(uint32_t uid, const std::string& tokenHash);

// Stores a fleet file's accounts, groups, policies and servers, all or nothing, into a store that holds none yet. The
// whole fleet is checked first; the exception's text says what is wrong and where ("groups[3].parent_id: ...").
// progress: called now and then with the records stored so far and their total; may be empty.
void loadFleet(const Json::Value& jFleet, const std::function<void(size_t done, size_t total)>& progress);

// SQL statements that the calling thread has executed so far, transaction statements included.
uint64_t statementCount();

}  // namespace standin
