// Defines the method table in which the web API server looks up the module's handler, and the module's name in the log.
#include "frame/failure_log.h"
#include "gpo/policy_link.h"

#pragma GCC visibility push(default)
extern "C" VELQ::APIMethod* GetAPITable(void);
#pragma GCC visibility pop

const char szModuleSource[] = "webapi_zem_gpo.cpp";

static VELQ::APIMethod gpoTable[] = {
    {"VELQ.ZEM.GPO", 1, "link", link_v1},
    {NULL, 0, NULL, NULL},
};

VELQ::APIMethod* GetAPITable(void)
{
    return gpoTable;
}
