#include "Api/UIStrings.h"

#include "Api/OrvaneAPI.h"

#include <QLocale>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace VistrelKit {

UIStrings::UIStrings(OrvaneAPI *orvaneAPI, QObject *parent)
    : QObject(parent)
    , m_defaultLanguageCode(u"en"_s)
    , m_orvaneAPI(orvaneAPI)
{}

std::optional<QString> UIStrings::find(const QString &key) const
{
    if (!m_strings || m_strings->isEmpty())
        return std::nullopt;
    const auto it = m_strings->constFind(key);
    if (it == m_strings->constEnd() || !it->is_string())
        return std::nullopt;
    return JsonUtils::toQString(*it);
}

QString UIStrings::get(const QString &key) const
{
    return find(key).value_or(key);
}

void UIStrings::load(const QString &languageCode, ErrorCompletion completion)
{
    // The reply may come after this object is gone; the caller still hears of it.
    m_orvaneAPI->strings(languageCode,
                         [self = QPointer<UIStrings>(this),
                          completion = std::move(completion)](const Result<Json> &result) {
                             if (!result.isOk()) {
                                 completion(result.error());
                                 return;
                             }
                             if (self)
                                 self->m_strings = flatten(result.value());
                             completion(std::nullopt);
                         });
}

QString UIStrings::preferredLanguage() const
{
    return languageFor(QLocale::system().uiLanguages(), m_defaultLanguageCode);
}

QString UIStrings::languageFor(const QStringList &uiLanguages, const QString &fallback)
{
    if (uiLanguages.isEmpty())
        return fallback;
    // The service keys its tables by language, so the region is dropped.
    const QString language = uiLanguages.first().section(u'-', 0, 0).section(u'_', 0, 0).toLower();
    // Under the C/POSIX locale the system names no language at all.
    if (language.isEmpty() || language == u"c"_s || language == u"posix"_s)
        return fallback;
    return language;
}

QHash<QString, Json> UIStrings::flatten(const Json &object)
{
    QHash<QString, Json> result;
    // Iterative, so a deep reply cannot exhaust the stack.
    std::vector<std::pair<QString, const Json *>> pending{{QString(), &object}};
    while (!pending.empty()) {
        auto [prefix, node] = pending.back();
        pending.pop_back();
        for (const auto &[key, value] : node->items()) {
            const QString name =
                (prefix.isEmpty() ? QString() : prefix + u'.') + QString::fromStdString(key);
            if (value.is_object())
                pending.emplace_back(name, &value);
            else
                result.insert(name, value);
        }
    }
    return result;
}

} // namespace VistrelKit
