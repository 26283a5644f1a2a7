#include "Core/JsonUtils.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

int JsonUtils::nestingDepth(const QByteArray &bytes)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : bytes) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        switch (c) {
        case '"':
            inString = true;
            break;
        case '[':
        case '{':
            deepest = std::max(deepest, ++depth);
            break;
        case ']':
        case '}':
            --depth;
            break;
        default:
            break;
        }
    }
    return deepest;
}

std::optional<Json> JsonUtils::parse(const QByteArray &bytes, QString *error)
{
    if (nestingDepth(bytes) > MaxDepth) {
        if (error)
            *error = u"JSON nested deeper than %1 levels"_s.arg(MaxDepth);
        return std::nullopt;
    }
    try {
        // Parsed into sorted maps, then copied: an ordered object looks each new key up one by
        // one, so an object of many keys would take quadratic time. Key order read from the
        // network carries no meaning; only the order the kit writes does.
        return Json(nlohmann::json::parse(bytes.constBegin(), bytes.constEnd()));
    } catch (const Json::exception &e) {
        if (error)
            *error = QString::fromUtf8(e.what());
        return std::nullopt;
    }
}

QByteArray JsonUtils::dump(const Json &value)
{
    const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return QByteArray(text.data(), qsizetype(text.size()));
}

QString JsonUtils::toQString(const Json &stringValue)
{
    if (!stringValue.is_string())
        return {};
    const auto &text = stringValue.get_ref<const std::string &>();
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

} // namespace VistrelKit
