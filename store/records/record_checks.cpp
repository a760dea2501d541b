// Checks names, texts and settings; each refusal names the member at fault.
#include "store/records/record_checks.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "store/base/errors.h"
#include "store/records/json_text.h"
#include "store/records/records.h"

namespace store {

void checkName(const char* szName)
{
    requireValid(*szName != '\0', "name", "missing or empty", Reason::missing);
    requireValid(characterCount(szName) <= kMaxNameLength, "name",
                 "longer than " + std::to_string(kMaxNameLength) + " characters", Reason::tooLong);
}

namespace {

CheckedLinks checkedLinks(const VLIBCString& text)
{
    if (text.empty()) {
        return {};
    }
    try {
        return {storableLinks(text), nullptr};
    } catch (const std::runtime_error&) {
        return {{}, std::current_exception()};
    }
}

}  // namespace

template <typename R>
CheckedLinks checkTexts(const R& record)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if (!field.isText()) {
            continue;
        }
        const VLIBCString& text = record.*std::get<VLIBCString R::*>(field.member);
        requireValid(isPlainText(text.c_str()), field.name, "a text that is not UTF-8");
        if (field.kind == FieldKind::json && !text.empty()) {
            parseJson(text.c_str());
        }
    }
    checkName(record.name.c_str());
    return checkedLinks(record.linkedGpo);
}

template <typename R>
void checkLengths(const R& record, const R& stored, size_t links)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if (!field.isText()) {
            continue;
        }
        const auto text = std::get<VLIBCString R::*>(field.member);
        const size_t size = std::strlen((record.*text).c_str());
        if (size <= std::strlen((stored.*text).c_str())) {
            continue;
        }
        const size_t linkBytes = field.kind == FieldKind::links ? kMaxLinkBytes * std::min(links, kMaxLinks) : 0;
        const size_t most = field.maxBytes + linkBytes;
        requireValid(size <= most, field.name, "longer than " + std::to_string(most) + " bytes", Reason::tooLong);
        requireValid(field.kind != FieldKind::links || links <= kMaxLinks, field.name,
                     "more than " + std::to_string(kMaxLinks) + " policies", Reason::tooMany);
    }
}

template CheckedLinks checkTexts(const Group&);
template CheckedLinks checkTexts(const Server&);
template void checkLengths(const Group&, const Group&, size_t);
template void checkLengths(const Server&, const Server&, size_t);
template void checkLengths(const Policy&, const Policy&, size_t);
template void checkLengths(const AccountRow&, const AccountRow&, size_t);

int settingVersion(const Json::Value& jSetting)
{
    requireValid(jSetting.isObject(), "setting", "not an object");
    const Json::Value& jVersion = jSetting["version"];
    requireValid(jVersion.isInt(), "setting.version", "not a 32-bit integer");
    return jVersion.asInt();
}

}  // namespace store
