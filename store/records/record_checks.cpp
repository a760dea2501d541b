// Checks names, texts and settings; each refusal names the member at fault.
#include "store/records/record_checks.h"

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

template <typename R>
void checkTexts(const R& record)
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
}

template void checkTexts(const Group&);
template void checkTexts(const Server&);

int settingVersion(const Json::Value& jSetting)
{
    requireValid(jSetting.isObject(), "setting", "not an object");
    const Json::Value& jVersion = jSetting["version"];
    requireValid(jVersion.isInt(), "setting.version", "not a 32-bit integer");
    return jVersion.asInt();
}

}  // namespace store
