// Implements the function that returns the version of this console's user interface.
#include <cerrno>

#include "platform/velq_ui.h"

Json::Value GetUIVersion(int flag)
{
    if (flag != 0) {
        errno = EINVAL;
        return Json::Value();
    }
    Json::Value jVersion(Json::objectValue);
    jVersion["major"] = 2;
    jVersion["minor"] = 0;
    return jVersion;
}
