#pragma once

#include "Core/JsonUtils.h"
#include "Core/Result.h"

#include <Vistrel/vistrel_export.h>

#include <QHash>
#include <QObject>
#include <QStringList>

#include <optional>

namespace VistrelKit {

class OrvaneAPI;

/// User-visible texts by dotted key ("ui.mobile.connecting"), fetched from the service.
/// Nested objects of the reply are flattened into dotted keys.
class VISTREL_AUTOTEST_EXPORT UIStrings : public QObject
{
    Q_OBJECT
public:
    explicit UIStrings(OrvaneAPI *orvaneAPI, QObject *parent = nullptr);

    /// The text for key, or the key itself when there is none.
    QString get(const QString &key) const;
    /// The text for key only when one is loaded.
    std::optional<QString> find(const QString &key) const;
    bool isLoaded() const { return m_strings.has_value(); }

    /// Fetches the table for a language; on success it replaces the loaded one.
    void load(const QString &languageCode, ErrorCompletion completion);
    /// The language to ask for: the system's first UI language ("de" of "de-CH"), else "en".
    QString preferredLanguage() const;
    /// The primary subtag of the first entry, lower case; fallback when that names no real
    /// language (none, or the C/POSIX locale).
    static QString languageFor(const QStringList &uiLanguages, const QString &fallback);
    QString defaultLanguageCode() const { return m_defaultLanguageCode; }

    /// {"ui": {"mobile": {"error": "x"}}} -> {"ui.mobile.error": "x"}; non-objects stay leaves.
    static QHash<QString, Json> flatten(const Json &object);

private:
    const QString m_defaultLanguageCode;
    OrvaneAPI *m_orvaneAPI;
    std::optional<QHash<QString, Json>> m_strings;
};

} // namespace VistrelKit
