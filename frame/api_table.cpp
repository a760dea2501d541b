// Defines the method table in which the web API server looks up the first module's handlers, and that module's name in
// the log.
#include "frame/failure_log.h"
#include "include/webapi_zem_ou.h"

static_assert(32 == sizeof(VELQ::APIMethod), "the web API server reads rows of 32 bytes");

const char szModuleSource[] = "webapi_zem_ou.cpp";

VELQ::APIMethod gTable[] = {
    {"VELQ.ZEM.KXGroup", 1, "create", create_v1},
    {"VELQ.ZEM.KXGroup", 1, "set", set_v1},
    {"VELQ.ZEM.KXGroup", 1, "delete", delete_v1},
    {"VELQ.ZEM.Tree", 1, "get", list_tree_by_uid_v1},
    {NULL, 0, NULL, NULL},
};

VELQ::APIMethod* GetAPITable(void)
{
    return gTable;
}
