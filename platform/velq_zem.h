// Declares the node store of the management package: groups (Ou), servers (Kx), policies (Gpo), delegates, listings.
//
// Unless a function says otherwise:
// - A negative result, or a null pointer from an allocation, means failure, and errno says why. Output arguments are
//   then unchanged. A null pointer for an argument that must not be null gives EINVAL.
// - Besides the errno values named at a function, one that reads or writes the store may fail with EBUSY (locked by
//   others for too long), ENOMEM and EIO (any other error of the database; no store is open; the stored groups form a
//   cycle).
// - While the server has set an account for the calling thread, a function that writes fails with EACCES if the account
//   may not make the change. The permission is checked in the transaction of the call, before the existence of the
//   records that the call names.
// - Any thread may call any function. Only one thread at a time may use a record, a list or a JSON value.
// - Identifiers are signed 64-bit integers, unique within a kind; group 0 is the root group. Texts are UTF-8.
// - A call that writes is one transaction: it takes effect completely or not at all.
#pragma once

#include <cstddef>
#include <cstdint>

#include <json/value.h>

#include "velq_core.h"

extern "C" {

// "node_type" of a group. The store chooses the kinds of servers and policies.
constexpr int VELQ_ZEM_TYPE_OU = 2;

// --- Records. The first member of each is the pointer to the next record of its list, null in the last record.

// One group. A newly constructed record is a group that is not stored yet.
struct _tag_velq_zem_ou_ {
    _tag_velq_zem_ou_* pNext = nullptr;
    int32_t blockInheritance = 0;  // 1: policies of the groups above do not apply here
    int64_t id = -1;               // -1: not stored yet
    int64_t mtime = 0;             // last change, seconds since 1970
    VLIBCString name;
    VLIBCString desc;
    int64_t parentId = 0;   // identifier of the parent group
    int64_t revision = 0;   // of the group when it was loaded; reveals a concurrent change
    VLIBCString linkedGpo;  // JSON text of "linked_gpo"; empty: no links
    VLIBCString extraInfo;  // JSON text of "extra_info"; empty: none
};

struct _tag_velq_zem_kx_;   // one server; only the store knows the members after the first
struct _tag_velq_zem_gpo_;  // one policy; the same holds for its members

// One delegated administrator of a node.
struct _tag_velq_zem_delegate_ {
    _tag_velq_zem_delegate_* pNext = nullptr;
    int64_t userType = 0;   // read it with VELQZEMDelegateItemGetUserType
    uint64_t ugid = 0;      // read it with VELQZEMDelegateItemGetUGID
    VLIBCString extraInfo;  // JSON object text: "userNameCache", "domainName", "domainType"; read directly
};

// --- Groups

// Returns a new record, which the caller releases with VELQZEMOuFree, or null with errno ENOMEM.
_tag_velq_zem_ou_* VELQZEMOuAlloc(void);

// Releases a record from VELQZEMOuAlloc; null is allowed. Leaves errno unchanged.
void VELQZEMOuFree(_tag_velq_zem_ou_* pOu);

// Releases a list that a listing returned and sets *ppHead to null. Leaves errno unchanged.
void VELQZEMOuListFree(_tag_velq_zem_ou_** ppHead);

// Loads the group into all members of the record except pNext. ENOENT: no such group.
int VELQZEMOuGet(int64_t id, _tag_velq_zem_ou_* pOu);

// Stores the record over its group, with the current time as mtime, and sets the record's mtime and revision. A record
// with the values of the stored group changes nothing, also not mtime and revision.
// EACCES: the caller may not manage the group or its new parent, or may not see a newly linked policy. ENOENT: no such
// group, or no such parent. EAGAIN: the group was changed since the record was loaded. EEXIST: a sibling has the name.
// EINVAL: the name is empty, only blanks or longer than 255 characters, a text is not UTF-8, a newly linked policy does
// not exist, a policy is linked twice, the root group is moved, a group is moved under itself or one of its
// descendants, or groups are nested too deep.
int VELQZEMOuSet(_tag_velq_zem_ou_* pOu);

// Stores the record as a new group and sets the record's identifier, mtime and revision; an identifier that the record
// has already is ignored. ENOENT: no such parent. EEXIST, EINVAL: as for VELQZEMOuSet.
int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu);

// Deletes the group, its descendants and all their delegates; their servers and policies move to the root group.
// EACCES: the caller may not manage the group. ENOENT: no such group. EINVAL: the group is the root group.
int VELQZEMOuDeleteAllByID(int64_t id);

// Writes the record's identifier to *pId; it is -1 if the record is not stored yet.
int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu);

// Copies the members of jRecord into the record: "id", "name", "desc", "parent_id", "block_inheritance", "linked_gpo",
// "extra_info". A null member counts as absent, except that it clears "linked_gpo" and "extra_info". Other members are
// ignored, also "mtime", which only the store sets. An entry of "linked_gpo"."order" without "id" may name its policy
// as "gpo_id"; "gpo_id", "gpo_name" and "gpo_desc", which a tree answer contains, are not stored.
// If the record was loaded, "revision" must equal the loaded one if it is present, and "id" must not be null, because
// null would be read as the root group. A new record accepts any "revision" and a null "id". jRecord is not changed.
// EINVAL: jRecord is not an object; a member has the wrong type, contains a NUL or is not UTF-8; "id" is null.
// EAGAIN: "revision" differs, so the group was changed since the sender read it.
int VELQZEMOuJsonToStruct(Json::Value& jRecord, _tag_velq_zem_ou_* pOu);

// Sets members of jOut from the record: those whose names are in the array jSearchArray, or all if it is null. The
// identifier is written twice, as "id" and as "node_id"; a group without links has no "linked_gpo".
// EINVAL: jSearchArray is neither null nor an array of strings, or jOut is neither null nor an object.
int VELQZEMOuStructToJson(const _tag_velq_zem_ou_* pOu, const Json::Value& jSearchArray, Json::Value& jOut);

// Returns non-zero if the account with that uid may manage the group, else 0. An administrator may manage any
// identifier, even one without a group. On 0 the calling thread's last-error record and errno say why: EACCES if the
// account may not or does not exist, otherwise the error of the store.
int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id);

// --- Servers. The functions correspond to those for groups. A server's members are "id", "name", "address",
// "parent_id", "sid", "linked_gpo". VELQZEMKxSet requires a name, an existing parent group and existing policies, as
// VELQZEMOuSet does; EACCES: the caller may not manage the server's group or its new group, or may not see a newly
// linked policy.

_tag_velq_zem_kx_* VELQZEMKxAlloc(void);
void VELQZEMKxFree(_tag_velq_zem_kx_* pKx);
void VELQZEMKxListFree(_tag_velq_zem_kx_** ppHead);
int VELQZEMKxGet(int64_t id, _tag_velq_zem_kx_* pKx);
int VELQZEMKxSet(_tag_velq_zem_kx_* pKx);
int VELQZEMKxJsonToStruct(Json::Value& jRecord, _tag_velq_zem_kx_* pKx);
int VELQZEMKxStructToJson(const _tag_velq_zem_kx_* pKx, const Json::Value& jSearchArray, Json::Value& jOut);

// --- Policies

// These correspond to VELQZEMOuAlloc, VELQZEMOuFree, VELQZEMOuListFree and VELQZEMOuGet.
_tag_velq_zem_gpo_* VELQZEMGpoAlloc(void);
void VELQZEMGpoFree(_tag_velq_zem_gpo_* pGpo);
void VELQZEMGpoListFree(_tag_velq_zem_gpo_** ppHead);
int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo);

// Copies the policy's name, NUL-terminated, into szBuf of cbBuf bytes; a name that is too long is cut before the first
// character that does not fit. EINVAL: cbBuf is 0.
int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo);

// Copies the policy's description in the same way.
int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo);

// Corresponds to VELQZEMOuStructToJson; the policy's settings are the member "setting".
int VELQZEMGpoStructToJson(const _tag_velq_zem_gpo_* pGpo, const Json::Value& jSearchArray, Json::Value& jOut);

// Raises the "version" of a policy's settings, in place, to "major" of jUIVersion, the version of the user interface; a
// higher version stays. EINVAL: jSetting is not an object, or one of the versions is not a 32-bit integer.
int VELQZEMGpoGetWithVersionConvert(Json::Value& jSetting, Json::Value& jUIVersion);

// Records that the servers at or below the node must fetch their policies again. uid: the account that caused it.
// nodeType: kind of the node. A second call before they have done so only updates uid and time. EACCES: the caller may
// not manage the group or the server's group, and has not changed the node itself in this request: a change may give
// its own right away, and the servers must hear of it all the same. ENOENT: no such node.
int VELQZEMGpoNotifyFetch(uint32_t uid, int nodeType, int64_t id);

// --- Delegates

// Lists the delegates of a node, oldest first. *ppHead: the first item, or null if there is none; the list belongs to
// the store and is valid until the same thread lists delegates again. *pCount: number of items; pCount may be null.
int VELQZEMDelegateListByTarget(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount);

// Fills in the extra information of the list's items from the accounts; it is empty where the account no longer exists.
// pHead: may be null. flag: TRUE fills in every item, FALSE only items without extra information.
int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_* pHead, BOOL flag);

// The first function writes the item's user type to *pUserType, the second the identifier of its user or group to
// *pUgid.
int VELQZEMDelegateItemGetUserType(int64_t* pUserType, const _tag_velq_zem_delegate_* pItem);
int VELQZEMDelegateItemGetUGID(uint64_t* pUgid, const _tag_velq_zem_delegate_* pItem);

// Returns the item after pItem, or null after the last one. Leaves errno unchanged.
_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem);

// Replace the delegates of a node by those in jRecord's member "delegate", an array of objects with "ugid" and
// "user_type" in the order of listing. If the member is absent or null, Override removes all delegates and Set changes
// nothing. EACCES: the caller may not manage the group or the server's group. ENOENT: no such node. EINVAL: "delegate"
// has another form, the kind of node has no delegates, a user type is unknown, a delegate occurs twice or has no
// account.
int VELQZEMDelegateOverrideListByTarget(int64_t id, int nodeType, Json::Value& jRecord);
int VELQZEMDelegateSetListByTarget(int64_t id, int nodeType, Json::Value& jRecord);

// --- Listings. The hash contains the query: "ugid" is the uid in decimal, "user_type" is "8" (a logged-in account). If
// one is missing, or the uid is unknown, the lists are empty.

// Lists the groups (except the root), servers and policies that the account may see, each in ascending order of
// identifiers, from one snapshot of the store. The caller releases each list with the release function of its kind.
// Until the last of the three lists is released, delegate and policy queries of the same thread read that snapshot and
// answer for the listed nodes only.
// EINVAL: "ugid" or "user_type" is malformed.
int VELQZEMListTreeByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                             _tag_velq_zem_gpo_** ppGpo);

// Lists the topmost groups that the account may see: filtered, then sorted, then cut to one page. Further keys, each
// optional: "offset", the number of groups to skip, 0 or more (default 0); "limit", the largest number of groups to
// return, 1 or more (default: all); "sort_by": "id" (default), "name" or "mtime"; "sort_direction": "ASC" (default) or
// "DESC", in upper or lower case. Groups that compare equal are in ascending order of identifiers. *pTotal: number of
// groups before paging; *pCount: number of groups returned; both pointers may be null. The caller releases the list
// with VELQZEMOuListFree. EINVAL: another value of a key.
int VELQZEMListOneLevelByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppHead, int* pTotal, int* pCount);

// Sets jRecord's "linked_gpo" to the value that a request sent: {"order":[{"id":N},...]}, or only the array, which the
// function puts into such an object. An entry may have a "gpo_id" instead of the "id". EINVAL: jRecord is neither null
// nor an object, and is then unchanged; or jValue has another form, and is then copied as it is, so that the record's
// conversion refuses it.
int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord);

}  // extern "C"
