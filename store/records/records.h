// Declares the store's records and, for each kind, the table of fields that the JSON conversion and the SQL rows share.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <variant>

#include "platform/velq_zem.h"
#include "store/store.h"

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

namespace store {

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

// One policy that a group or server links. The table is derived from the texts of links, so that no question about
// links has to read them.
struct LinkRow {
    int64_t nodeType = 0;
    int64_t nodeId = 0;
    int64_t policyId = 0;
};

// The content of a field: a value that only the store sets, a plain value, JSON text, or the JSON text of policy links.
enum class FieldKind { storeManaged, plain, json, links };

constexpr size_t kMaxTextBytes = 64 << 10;    // of a text
constexpr size_t kMaxSettingBytes = 1 << 20;  // of a policy's settings
constexpr size_t kMaxLinks = 10'000;          // policies that one group or server links
constexpr size_t kMaxLinkBytes = 32;          // for each link, besides kMaxTextBytes for all links together

// One field: its name as JSON member and as column, and the member of the record: a number, a flag (0 or 1) or a text.
template <typename R>
struct Field {
    const char* name;
    std::variant<int64_t R::*, int32_t R::*, VLIBCString R::*> member;
    FieldKind kind = FieldKind::plain;
    size_t maxBytes = kMaxTextBytes;  // of a text

    constexpr bool isText() const
    {
        return std::holds_alternative<VLIBCString R::*>(member);
    }
};

// Returns the revision that follows. After the highest, which only direct SQL can store, comes 1.
constexpr int64_t nextRevision(int64_t revision)
{
    return revision == INT64_MAX ? 1 : revision + 1;
}

// The same as SQL.
constexpr char kNextRevision[] = "CASE WHEN revision < 9223372036854775807 THEN revision + 1 ELSE 1 END";

// Returns whether the records have the same value of that field.
template <typename R>
bool isSame(const Field<R>& field, const R& one, const R& other)
{
    struct Same {
        bool operator()(int64_t a, int64_t b) const
        {
            return a == b;
        }
        bool operator()(const VLIBCString& a, const VLIBCString& b) const
        {
            return std::strcmp(a.c_str(), b.c_str()) == 0;
        }
    };
    return std::visit([&](auto member) { return Same()(one.*member, other.*member); }, field.member);
}

// Describes a kind of record: kName, its name for people; kType, the "node_type" of nodes; kTable, the database table;
// kFields, the fields, the identifier first.
template <typename R>
struct Kind;

template <>
struct Kind<Group> {
    static constexpr const char* kName = "group";
    static constexpr int kType = VELQ_ZEM_TYPE_OU;
    static constexpr const char* kTable = "ou";
    static constexpr std::array<Field<Group>, 9> kFields = {{
        {"id", &Group::id},
        {"parent_id", &Group::parentId},
        {"name", &Group::name},
        {"desc", &Group::desc},
        {"mtime", &Group::mtime, FieldKind::storeManaged},
        {"revision", &Group::revision, FieldKind::storeManaged},
        {"block_inheritance", &Group::blockInheritance},
        {"linked_gpo", &Group::linkedGpo, FieldKind::links},
        {"extra_info", &Group::extraInfo, FieldKind::json},
    }};
};

template <>
struct Kind<Server> {
    static constexpr const char* kName = "server";
    static constexpr int kType = kServerType;
    static constexpr const char* kTable = "kx";
    static constexpr std::array<Field<Server>, 8> kFields = {{
        {"id", &Server::id},
        {"parent_id", &Server::parentId},
        {"name", &Server::name},
        {"address", &Server::address},
        {"sid", &Server::sid},
        {"mtime", &Server::mtime, FieldKind::storeManaged},
        {"revision", &Server::revision, FieldKind::storeManaged},
        {"linked_gpo", &Server::linkedGpo, FieldKind::links},
    }};
};

template <>
struct Kind<Policy> {
    static constexpr const char* kName = "policy";
    static constexpr int kType = kPolicyType;
    static constexpr const char* kTable = "gpo";
    static constexpr std::array<Field<Policy>, 7> kFields = {{
        {"id", &Policy::id},
        {"parent_id", &Policy::parentId},
        {"name", &Policy::name},
        {"desc", &Policy::desc},
        {"mtime", &Policy::mtime, FieldKind::storeManaged},
        {"revision", &Policy::revision, FieldKind::storeManaged},
        {"setting", &Policy::setting, FieldKind::json, kMaxSettingBytes},
    }};
};

template <>
struct Kind<AccountRow> {
    static constexpr const char* kName = "account";
    static constexpr const char* kTable = "account";
    static constexpr std::array<Field<AccountRow>, 5> kFields = {{
        {"uid", &AccountRow::uid},
        {"name", &AccountRow::name},
        {"admin", &AccountRow::admin},
        {"domain_name", &AccountRow::domainName},
        {"domain_type", &AccountRow::domainType},
    }};
};

template <>
struct Kind<DelegateRow> {
    static constexpr const char* kTable = "delegate";
    static constexpr std::array<Field<DelegateRow>, 5> kFields = {{
        {"node_type", &DelegateRow::nodeType},
        {"node_id", &DelegateRow::nodeId},
        {"position", &DelegateRow::position},
        {"ugid", &DelegateRow::ugid},
        {"user_type", &DelegateRow::userType},
    }};
};

template <>
struct Kind<LinkRow> {
    static constexpr const char* kTable = "policy_link";
    static constexpr std::array<Field<LinkRow>, 3> kFields = {{
        {"node_type", &LinkRow::nodeType},
        {"node_id", &LinkRow::nodeId},
        {"policy_id", &LinkRow::policyId},
    }};
};

// Returns whether the records have the same values of all fields but those that only the store sets.
template <typename R>
bool hasSameFields(const R& one, const R& other)
{
    return std::all_of(Kind<R>::kFields.begin(), Kind<R>::kFields.end(), [&](const Field<R>& field) {
        return field.kind == FieldKind::storeManaged || isSame(field, one, other);
    });
}

// Releases the chain from pHead on; null is allowed.
template <typename R>
void freeChain(R* pHead)
{
    while (pHead != nullptr) {
        R* pNext = pHead->pNext;
        delete pHead;
        pHead = pNext;
    }
}

struct ChainFree {
    template <typename R>
    void operator()(R* pHead) const
    {
        freeChain(pHead);
    }
};

// Owns a chain of records.
template <typename R>
using Chain = std::unique_ptr<R, ChainFree>;

}  // namespace store
