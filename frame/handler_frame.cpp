// Checks a handler's arguments and the caller's login.
#include "frame/handler_frame.h"

#include "frame/error_codes.h"
#include "frame/failure_log.h"

int check_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line)
{
    if (NULL == req || NULL == resp) {
        log_null_request(req, resp, line);
        return -1;
    }
    return 0;
}

int begin_request(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t* pUid, int line)
{
    *pUid = req.GetLoginUID();
    if (UINT32_MAX == *pUid) {
        log_no_login_uid(line);
        resp.SetError(errLogin, Json::Value());
        return -1;
    }
    resp.SetError(errFailed, Json::Value());
    return 0;
}
