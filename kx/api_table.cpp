// Defines the method table in which the web API server looks up the module's handler, and the module's name in the log.
#include "frame/failure_log.h"
#include "kx/server_set.h"

#pragma GCC visibility push(default)
extern "C" VELQ::APIMethod* GetAPITable(void);
#pragma GCC visibility pop

const char szModuleSource[] = "webapi_zem_kx.cpp";

static VELQ::APIMethod kxTable[] = {
    {"VELQ.ZEM.KX", 1, "set", set_servers_v1},
    {NULL, 0, NULL, NULL},
};

VELQ::APIMethod* GetAPITable(void)
{
    return kxTable;
}
