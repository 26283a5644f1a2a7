// The UI strings reply (GET "api/in/i18n"): a JSON object whose nested objects become dotted
// keys. The reply's own check (an object, or "Cannot use response as dictionary") sits in
// OrvaneAPI::strings' completion, which only a real reply reaches; the checks here are those.
#include "FuzzEnvironment.h"

#include "Api/UIStrings.h"

using namespace VistrelKit;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto json = JsonUtils::parse(FuzzEnvironment::bytes(data, size));
    if (!json || !json->is_object())
        return 0;
    const QHash<QString, Json> strings = UIStrings::flatten(*json);
    // What UIStrings::find() hands out for each key.
    for (const Json &text : strings) {
        if (text.is_string())
            (void)JsonUtils::toQString(text);
    }
    return 0;
}
