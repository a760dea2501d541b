// The store's records and, for each kind, the one table of fields that the JSON conversion and the SQL rows share.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "platform/velq_zem.h"
#include "standin/store/store.h"

struct _tag_velq_zem_kx_ {
    _tag_velq_zem_kx_* pNext = nullptr;
    int64_t id = -1;
    int64_t mtime = 0;
    VLIBCString name;
    VLIBCString address;
    VLIBCString sid;
    int64_t parentId = 0;
    int64_t revision = 0;
    VLIBCString linkedGpo;  // JSON text; empty: no links
};

struct _tag_velq_zem_gpo_ {
    _tag_velq_zem_gpo_* pNext = nullptr;
    int64_t id = -1;
    int64_t mtime = 0;
    VLIBCString name;
    VLIBCString desc;
    int64_t parentId = 0;
    int64_t revision = 0;
    VLIBCString setting;  // JSON text; empty: none
};

namespace standin {

using Group = _tag_velq_zem_ou_;
using Server = _tag_velq_zem_kx_;
using Policy = _tag_velq_zem_gpo_;
using Delegate = _tag_velq_zem_delegate_;

struct AccountRow {
    int64_t uid = -1;
    VLIBCString name;
    int32_t admin = 0;
    VLIBCString domainName;
    VLIBCString domainType = "local";
};

struct DelegateRow {
    int64_t nodeType = 0;
    int64_t nodeId = 0;
    int64_t position = 0;  // within the node's list
    int64_t ugid = 0;
    int64_t userType = kDelegateUserType;
};

// What a field's value is: written by the store alone, taken as it is, JSON text, or the JSON text of policy links.
enum class Rule { own, plain, json, links };

// One field: its name as JSON member and as column, and the member of the record, exactly one of the three.
template <class R>
struct Field {
    const char* name;
    Rule rule = Rule::plain;
    int64_t R::*number = nullptr;
    int32_t R::*flag = nullptr;
    VLIBCString R::*text = nullptr;
};

template <class R>
struct Kind;

template <>
struct Kind<Group> {
    static constexpr int type = VELQ_ZEM_TYPE_OU;
    static constexpr const char* table = "ou";
    static constexpr std::array<Field<Group>, 9> fields = {{
        {.name = "id", .number = &Group::id},
        {.name = "parent_id", .number = &Group::parentId},
        {.name = "name", .text = &Group::name},
        {.name = "desc", .text = &Group::desc},
        {.name = "mtime", .rule = Rule::own, .number = &Group::mtime},
        {.name = "revision", .rule = Rule::own, .number = &Group::revision},
        {.name = "block_inheritance", .flag = &Group::blockInheritance},
        {.name = "linked_gpo", .rule = Rule::links, .text = &Group::linkedGpo},
        {.name = "extra_info", .rule = Rule::json, .text = &Group::extraInfo},
    }};
};

template <>
struct Kind<Server> {
    static constexpr int type = kServerType;
    static constexpr const char* table = "kx";
    static constexpr std::array<Field<Server>, 8> fields = {{
        {.name = "id", .number = &Server::id},
        {.name = "parent_id", .number = &Server::parentId},
        {.name = "name", .text = &Server::name},
        {.name = "address", .text = &Server::address},
        {.name = "sid", .text = &Server::sid},
        {.name = "mtime", .rule = Rule::own, .number = &Server::mtime},
        {.name = "revision", .rule = Rule::own, .number = &Server::revision},
        {.name = "linked_gpo", .rule = Rule::links, .text = &Server::linkedGpo},
    }};
};

template <>
struct Kind<Policy> {
    static constexpr int type = kPolicyType;
    static constexpr const char* table = "gpo";
    static constexpr std::array<Field<Policy>, 7> fields = {{
        {.name = "id", .number = &Policy::id},
        {.name = "parent_id", .number = &Policy::parentId},
        {.name = "name", .text = &Policy::name},
        {.name = "desc", .text = &Policy::desc},
        {.name = "mtime", .rule = Rule::own, .number = &Policy::mtime},
        {.name = "revision", .rule = Rule::own, .number = &Policy::revision},
        {.name = "setting", .rule = Rule::json, .text = &Policy::setting},
    }};
};

template <>
struct Kind<AccountRow> {
    static constexpr const char* table = "account";
    static constexpr std::array<Field<AccountRow>, 5> fields = {{
        {.name = "uid", .number = &AccountRow::uid},
        {.name = "name", .text = &AccountRow::name},
        {.name = "admin", .flag = &AccountRow::admin},
        {.name = "domain_name", .text = &AccountRow::domainName},
        {.name = "domain_type", .text = &AccountRow::domainType},
    }};
};

template <>
struct Kind<DelegateRow> {
    static constexpr const char* table = "delegate";
    static constexpr std::array<Field<DelegateRow>, 5> fields = {{
        {.name = "node_type", .number = &DelegateRow::nodeType},
        {.name = "node_id", .number = &DelegateRow::nodeId},
        {.name = "position", .number = &DelegateRow::position},
        {.name = "ugid", .number = &DelegateRow::ugid},
        {.name = "user_type", .number = &DelegateRow::userType},
    }};
};

// Releases the chain from pHead on; null is allowed.
template <class R>
void freeChain(R* pHead)
{
    while (pHead != nullptr) {
        R* pNext = pHead->pNext;
        delete pHead;
        pHead = pNext;
    }
}

struct ChainFree {
    template <class R>
    void operator()(R* pHead) const
    {
        freeChain(pHead);
    }
};

// A chain of records that is not given away yet.
template <class R>
using Chain = std::unique_ptr<R, ChainFree>;

}  // namespace standin
