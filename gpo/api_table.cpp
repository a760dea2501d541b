// Defines the method table in which the web API server looks up the module's handler.
#include "gpo/policy_link.h"

#pragma GCC visibility push(default)
extern "C" VELQ::APIMethod* GetAPITable(void);
#pragma GCC visibility pop

static VELQ::APIMethod gpoTable[] = {
    {"VELQ.ZEM.GPO", 1, "link", link_v1},
    {NULL, 0, NULL, NULL},
};

VELQ::APIMethod* GetAPITable(void)
{
    return gpoTable;
}
