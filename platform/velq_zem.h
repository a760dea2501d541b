// The node store of the management package: groups (Ou), servers (Kx), policies (Gpo), delegates, listings.
//
// Rules for every function below, unless it says otherwise:
// - A negative result, or a null pointer from an allocation, is failure, with errno saying why. Arguments that are
//   filled on success are left as they were on failure. A null pointer where none is allowed is EINVAL.
// - Besides the errno values named at a function, one that reads or writes the store may fail with EBUSY (others kept
//   it locked for too long), ENOMEM and EIO (anything else that the database reports; also no store opened, and a store
//   whose groups stand above themselves).
// - While the server has told the store on whose behalf the thread calls, a function that writes fails with EACCES
//   where that account may not make the change. That is checked within the call's transaction, before whether what the
//   call names is there.
// - Any thread may call any function. A record, a list or a JSON value is used by one thread at a time.
// - Identifiers are signed 64-bit, unique within a kind; group 0 is the root group. Texts are UTF-8.
// - A writing call is one transaction: it is done as a whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>

#include <json/value.h>

#include "velq_core.h"

extern "C" {

// Kind of a group node ("node_type"). The kinds of server and policy nodes are the store's.
constexpr int VELQ_ZEM_TYPE_OU = 2;

// --- Records. The first member of each is the pointer to the next record of its list, null in the last one.

// One group. Constructing one gives a fresh record; destroying one releases its four strings.
struct _tag_velq_zem_ou_ {
    _tag_velq_zem_ou_* pNext = nullptr;
    int32_t blockInheritance = 0;  // 1: policies of the groups above do not apply here
    int64_t id = -1;               // -1: not stored yet
    int64_t mtime = 0;             // last change, seconds since 1970
    VLIBCString name;
    VLIBCString desc;
    int64_t parentId = 0;   // identifier of the parent group
    int64_t revision = 0;   // of the stored group that was loaded; tells a concurrent change
    VLIBCString linkedGpo;  // JSON text of "linked_gpo"; empty: no links
    VLIBCString extraInfo;  // JSON text of "extra_info"; empty: none
};

struct _tag_velq_zem_kx_;   // one server; the store's own layout behind the pointer to the next record
struct _tag_velq_zem_gpo_;  // one policy; likewise

// One delegated administrator of a node.
struct _tag_velq_zem_delegate_ {
    _tag_velq_zem_delegate_* pNext = nullptr;
    int64_t userType = 0;   // read it with VELQZEMDelegateItemGetUserType
    uint64_t ugid = 0;      // read it with VELQZEMDelegateItemGetUGID
    VLIBCString extraInfo;  // JSON object text: "userNameCache", "domainName", "domainType"; read directly
};

// --- Groups

// A fresh record that the caller releases with VELQZEMOuFree; null on failure: ENOMEM.
_tag_velq_zem_ou_* VELQZEMOuAlloc(void);

// Releases one record from VELQZEMOuAlloc; null is allowed. errno is left as it is.
void VELQZEMOuFree(_tag_velq_zem_ou_* pOu);

// Releases a chain that a listing gave and sets *ppHead to null. errno is left as it is.
void VELQZEMOuListFree(_tag_velq_zem_ou_** ppHead);

// Loads the group into the record, all fields but pNext. ENOENT: no such group.
int VELQZEMOuGet(int64_t id, _tag_velq_zem_ou_* pOu);

// Writes the record over the stored group; mtime becomes the time of the call, and the record then holds the new mtime
// and revision.
// EACCES: the group, or a parent that is new to it, is not the caller's to manage, or the caller does not see a policy
// that is newly linked. ENOENT: no such group, or no such parent. EAGAIN: the group was changed since the record was
// loaded. EEXIST: a sibling has the name. EINVAL: a name that is empty or longer than 255 characters, a text that is
// not UTF-8, a new policy link that is unknown, a link that occurs twice, a move of the root group or under the group
// itself or below it, groups nested too deep.
int VELQZEMOuSet(_tag_velq_zem_ou_* pOu);

// Stores the record as a new group and puts its identifier, mtime and revision into the record; an identifier that the
// record already holds is ignored. ENOENT: no such parent. EEXIST, EINVAL: as for VELQZEMOuSet.
int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu);

// Deletes the group, its sub-groups and the delegates of all of them; servers and policies that hung there move to the
// root group. EACCES: the group is not the caller's to manage. ENOENT: no such group. EINVAL: the root group.
int VELQZEMOuDeleteAllByID(int64_t id);

// Writes the record's identifier, -1 for one not stored yet, to *pId.
int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu);

// Lays the members present in jRecord over the record: "id", "name", "desc", "parent_id", "block_inheritance",
// "linked_gpo", "extra_info". A null member counts as absent, but that it clears "linked_gpo" and "extra_info"; other
// members are ignored, "mtime" too, which is the store's to write. An entry of "linked_gpo"."order" may name its policy
// as "gpo_id" where it has no "id"; "gpo_id", "gpo_name" and "gpo_desc", which a tree's answer shows, are not kept.
// Over a group that was loaded, "revision" is that which the sender of the record knows, and a null "id" is refused: it
// would pass for the root group's. A fresh record takes any "revision" and a null "id". jRecord is not changed.
// EINVAL: jRecord is not an object or a member is of the wrong type, NUL and bytes that are not UTF-8 included; a null
// "id". EAGAIN: "revision" is not the record's, the group was changed since its sender read it.
int VELQZEMOuJsonToStruct(Json::Value& jRecord, _tag_velq_zem_ou_* pOu);

// Sets members of jOut from the record: those that jSearchArray, an array of member names, lists, all of them when it
// is null. The identifier is given twice, as "id" and as "node_id"; a group without links has no "linked_gpo".
// EINVAL: jSearchArray is neither null nor an array of texts, jOut is neither null nor an object.
int VELQZEMOuStructToJson(const _tag_velq_zem_ou_* pOu, const Json::Value& jSearchArray, Json::Value& jOut);

// Whether the account with that uid may manage the group: non-zero yes, 0 no. An administrator may manage any
// identifier, also one that names no group. On 0 the calling thread's last-error record says why, and so does errno:
// EACCES when the account may not or is not known, else what kept the store from answering.
int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id);

// --- Servers: as the group functions of the same name. A server's members are "id", "name", "address", "parent_id",
// "sid", "linked_gpo". VELQZEMKxSet demands a name, an existing parent group and known policies as VELQZEMOuSet does;
// EACCES: the group of the server, or one that is new to it, is not the caller's to manage, or a policy not one that it
// sees. VELQZEMKxJsonToStruct ignores "revision" and a null "id".

_tag_velq_zem_kx_* VELQZEMKxAlloc(void);
void VELQZEMKxFree(_tag_velq_zem_kx_* pKx);
void VELQZEMKxListFree(_tag_velq_zem_kx_** ppHead);
int VELQZEMKxGet(int64_t id, _tag_velq_zem_kx_* pKx);
int VELQZEMKxSet(_tag_velq_zem_kx_* pKx);
int VELQZEMKxJsonToStruct(Json::Value& jRecord, _tag_velq_zem_kx_* pKx);
int VELQZEMKxStructToJson(const _tag_velq_zem_kx_* pKx, const Json::Value& jSearchArray, Json::Value& jOut);

// --- Policies

// As VELQZEMOuAlloc, VELQZEMOuFree, VELQZEMOuListFree, VELQZEMOuGet.
_tag_velq_zem_gpo_* VELQZEMGpoAlloc(void);
void VELQZEMGpoFree(_tag_velq_zem_gpo_* pGpo);
void VELQZEMGpoListFree(_tag_velq_zem_gpo_** ppHead);
int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo);

// Copies the policy's name, NUL-terminated, into szBuf of cbBuf bytes; a longer one is cut before the first character
// that does not fit. EINVAL: cbBuf is 0.
int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo);

// The same for the description.
int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo);

// As VELQZEMOuStructToJson; the policy's settings are the member "setting".
int VELQZEMGpoStructToJson(const _tag_velq_zem_gpo_* pGpo, const Json::Value& jSearchArray, Json::Value& jOut);

// Raises the "version" of a policy's settings, in place, to that of the user interface ("major" of jUIVersion); a newer
// one stays. EINVAL: jSetting is not an object, its "version" or that of the interface is not a 32-bit integer.
int VELQZEMGpoGetWithVersionConvert(Json::Value& jSetting, Json::Value& jUIVersion);

// Notes that the servers at or below the node are to fetch their policies anew. uid: who caused it. nodeType: kind of
// the node. Asking again before they did changes nothing but the uid and the time. EACCES: the group, or that of the
// server, is not the caller's to manage. ENOENT: no such node.
int VELQZEMGpoNotifyFetch(uint32_t uid, int nodeType, int64_t id);

// --- Delegates

// Lists the delegates of a node, oldest first. *ppHead: the first item, null when there is none; the list is the
// store's and lives until the same thread lists delegates again. *pCount: number of items; pCount may be null.
int VELQZEMDelegateListByTarget(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount);

// Fills the extra information of every item of the list, null allowed, from the accounts; an item whose account is gone
// gets an empty one. flag: TRUE every item anew, FALSE only items that have none.
int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_* pHead, BOOL flag);

// Write one field of the item to their first argument: the user type, and the identifier of the user or group.
int VELQZEMDelegateItemGetUserType(int64_t* pUserType, const _tag_velq_zem_delegate_* pItem);
int VELQZEMDelegateItemGetUGID(uint64_t* pUgid, const _tag_velq_zem_delegate_* pItem);

// The item after pItem, null after the last one; errno is left as it is.
_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem);

// Replaces the delegates of a node by those of jRecord's member "delegate", an array of objects with "ugid" and
// "user_type" in the order to list them. Absent or null: Override leaves the node without delegates, Set leaves them as
// they are. EACCES: the group, or that of the server, is not the caller's to manage. ENOENT: no such node. EINVAL:
// another shape, a kind that has no delegates, a user type that is not known, a delegate named twice or without an
// account.
int VELQZEMDelegateOverrideListByTarget(int64_t id, int nodeType, Json::Value& jRecord);
int VELQZEMDelegateSetListByTarget(int64_t id, int nodeType, Json::Value& jRecord);

// --- Listings. The hash carries the query: "ugid" the uid in decimal, "user_type" "8" (a logged-in account). Without
// them, or with an unknown uid, nothing is visible.

// Lists the groups (but for the root), servers and policies that the account may see, each in ascending order of their
// identifiers, as one consistent moment of the store. The caller releases each list with its kind's list release. Until
// the last of the three is released, the delegate and policy queries of the same thread answer from that moment and for
// what the lists hold.
// EINVAL: "ugid" or "user_type" is malformed.
int VELQZEMListTreeByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                             _tag_velq_zem_gpo_** ppGpo);

// Lists the topmost groups that the account may see, filtered, then sorted, then cut to the page. Further keys, each
// optional: "offset" groups to skip, from 0 (default 0); "limit" groups to give at most, from 1 (default all);
// "sort_by" "id" (default), "name" or "mtime"; "sort_direction" "ASC" (default) or "DESC", in any case; groups that
// compare equal stand in ascending order of their identifiers. *pTotal: groups before paging; *pCount: groups given;
// both may be null. The caller releases the list with VELQZEMOuListFree. EINVAL: a value that is none of these.
int VELQZEMListOneLevelByUidHash(VLIBCSzHash* pHash, _tag_velq_zem_ou_** ppHead, int* pTotal, int* pCount);

// Writes a request's "linked_gpo", {"order":[{"id":N},...]} or the bare array, as jRecord's "linked_gpo" in the first
// form; an entry may have a "gpo_id" in place of the "id". Any other value is written as it is, for the record's
// conversion to refuse. EINVAL: jRecord is neither null nor an object (it is left as it was), or jValue has another
// form.
int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord);

}  // extern "C"
