#include "Config/ConstantUtils.h"

#include "Core/JsonUtils.h"
#include "Core/Log.h"

#include <QFile>
#include <QHash>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
struct ConfigState
{
    QString overridePath;
    std::optional<QHash<QString, QString>> values;
};

ConfigState &state()
{
    static ConfigState instance;
    return instance;
}

std::optional<QHash<QString, QString>> load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QString error;
    const auto json = JsonUtils::parse(file.readAll(), &error);
    if (!json || !json->is_object()) {
        Log::warning(u"Cannot read config file "_s + path + u": "_s +
                     (error.isEmpty() ? u"not a JSON object"_s : error));
        return std::nullopt;
    }
    QHash<QString, QString> values;
    for (const auto &[key, value] : json->items()) {
        if (value.is_string())
            values.insert(QString::fromStdString(key), JsonUtils::toQString(value));
    }
    return values;
}
} // namespace

QString ConstantUtils::configFile()
{
    if (!state().overridePath.isEmpty())
        return state().overridePath;
    const QString fromEnvironment = qEnvironmentVariable("VISTREL_CONFIG");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    return u":/vistrel/Config.json"_s;
}

void ConstantUtils::setConfigFile(const QString &path)
{
    state().overridePath = path;
    state().values.reset();
}

std::optional<QString> ConstantUtils::getProperty(const QString &key)
{
    auto &values = state().values;
    // A missing file is looked for again on the next call.
    if (!values)
        values = load(configFile());
    if (!values)
        return std::nullopt;
    const auto it = values->constFind(key);
    if (it == values->constEnd())
        return std::nullopt;
    return *it;
}

} // namespace VistrelKit
