// Answers who the sender is, which accounts there are, and what was changed.
#include "host/calls/queries.h"

#include <stdexcept>

#include <json/writer.h>

namespace host {

namespace {

Answer answerWith(const Json::Value& jAnswer)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return {.text = makeText({Json::writeString(builder, jAnswer)}), .succeeded = true};
}

Json::Value toJson(const store::Account& account)
{
    Json::Value jAccount;
    jAccount["uid"] = account.uid;
    jAccount["name"] = account.name;
    return jAccount;
}

Answer answerSession(const Query& query)
{
    const auto session = store::findSession(query.tokenHash);
    if (!session) {
        return errorAnswer(401);  // revoked since the token was looked up
    }
    Json::Value jSession = toJson(session->account);
    jSession["admin"] = session->isAdministrator;
    jSession["token"]["label"] = session->label;
    jSession["token"]["expires"] = Json::Int64(session->expires);
    jSession["version"] = ZEM_VERSION;
    return answerWith(jSession);
}

Answer answerAccounts(const Query& query)
{
    const auto text = query.parameters.find("q");
    const auto accounts = store::searchAccounts(query.account.uid, text == query.parameters.end() ? "" : text->second);
    if (!accounts) {
        return errorAnswer(403);
    }
    Json::Value jAnswer;
    Json::Value& jAccounts = jAnswer["accounts"] = Json::Value(Json::arrayValue);
    for (const store::Account& account : *accounts) {
        jAccounts.append(toJson(account));
    }
    return answerWith(jAnswer);
}

Answer answerHistory(const Query& query)
{
    const auto valueOf = [&query](const char* szName) {
        const auto found = query.parameters.find(szName);
        return found == query.parameters.end() ? std::string() : found->second;
    };
    try {
        const auto page = store::readHistory(query.account.uid, {.node = valueOf("node"), .before = valueOf("before")});
        return page ? answerWith(*page)
                    : errorAnswer(403, {.reason = {}, .member = {}, .text = "the account may not see these changes"});
    } catch (const std::invalid_argument& error) {
        return errorAnswer(400, {.reason = {}, .member = {}, .text = error.what()});
    }
}

}  // namespace

const QueryRow* findQuery(const std::string& path)
{
    static const QueryRow kQueries[] = {
        {"/session", {}, answerSession},
        {"/accounts", {"q"}, answerAccounts},
        {"/history", {"node", "before"}, answerHistory},
    };
    for (const QueryRow& row : kQueries) {
        if (path == row.szPath) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace host
