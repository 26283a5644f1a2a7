#include "WebChat/WebChannelScript.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace VistrelKit {

QString WebChannelScript::source()
{
    static const QString text = [] {
        QFile file(u":/qtwebchannel/qwebchannel.js"_s);
        if (!file.open(QIODevice::ReadOnly))
            qFatal("The web channel's script is missing from Qt's resources");
        return QString::fromUtf8(file.readAll());
    }();
    return text;
}

} // namespace VistrelKit
