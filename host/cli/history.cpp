// Prints the history of changes.
#include <iostream>
#include <optional>
#include <string>
#include <utility>

#include <json/writer.h>

#include "host/base/log.h"
#include "host/base/text.h"
#include "host/cli/commands.h"
#include "store/store.h"

namespace host {

namespace {

std::string authorOf(const Json::Value& jChange)
{
    if (jChange.isMember("account")) {
        return printable(jChange["account"].asString());
    }
    return jChange.isMember("uid") ? "uid=" + jChange["uid"].asString()
                                   : "zemhost " + printable(jChange["command"].asString());
}

std::string valueOf(const Json::Value& jValue)
{
    const std::string text = printable(jValue.asString());
    return text.empty() ? "\"\"" : text;
}

std::string memberOf(const Json::Value& jMember)
{
    std::string text = jMember["member"].asString();
    if (jMember.isMember("before")) {
        text += " " + valueOf(jMember["before"]);
    }
    if (jMember.isMember("before") && jMember.isMember("after")) {
        text += " ->";
    }
    if (jMember.isMember("after")) {
        text += " " + valueOf(jMember["after"]);
    }
    return text + (jMember.isMember("cut") ? " (cut)" : "");
}

void printChange(const Json::Value& jChange)
{
    std::string members;
    for (const Json::Value& jMember : jChange["members"]) {
        members += (members.empty() ? ": " : ", ") + memberOf(jMember);
    }
    std::cout << utcTime(jChange["time"].asInt64()) << ' ' << authorOf(jChange) << ' ' << jChange["action"].asString()
              << ' ' << jChange["kind"].asString() << ' ' << jChange["id"].asString() << ' '
              << printable(jChange["path"].asString()) << members << '\n';
}

}  // namespace

int printHistory(store::HistoryFilter filter, bool asJson)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    if (const size_t colon = filter.node.find(':'); colon != std::string::npos) {
        const std::string kind = filter.node.substr(0, colon);
        if (kind != "group" && kind != "server" && kind != "policy" && kind != "account") {
            throw std::runtime_error("there is no kind of record " + printable(kind) +
                                     ": group, server, policy or account");
        }
        filter.node = kind + ':' + std::to_string(store::findRecord(kind, filter.node.substr(colon + 1)));
    }
    do {
        const Json::Value jPage = *store::readHistory(std::nullopt, filter);
        for (const Json::Value& jChange : jPage["changes"]) {
            if (asJson) {
                std::cout << Json::writeString(builder, jChange) << '\n';
            } else {
                printChange(jChange);
            }
        }
        filter.before = jPage["next"].asString();
    } while (!filter.before.empty());
    return 0;
}

}  // namespace host
