#pragma once

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

namespace VistrelKit {

/// JSON records keep their keys in the order they were written.
using Json = nlohmann::ordered_json;

/// Safe JSON entry points for anything that came over the network: never throw, bounded nesting.
class VISTREL_PRIVATE_EXPORT JsonUtils
{
public:
    /// Deeper documents are refused before parsing, so no reader ever recurses without bound.
    static constexpr int MaxDepth = 128;

    /// Parses UTF-8 JSON text. On failure returns nothing and, when asked, says why.
    static std::optional<Json> parse(const QByteArray &bytes, QString *error = nullptr);
    /// Compact JSON text; invalid UTF-8 inside strings is replaced rather than thrown on.
    static QByteArray dump(const Json &value);
    static QString dumpText(const Json &value) { return QString::fromUtf8(dump(value)); }

    static QString toQString(const Json &stringValue);
    static Json fromQString(const QString &text) { return Json(text.toStdString()); }
    /// Depth of the deepest array or object, counted without parsing (strings are skipped).
    static int nestingDepth(const QByteArray &bytes);
};

} // namespace VistrelKit
