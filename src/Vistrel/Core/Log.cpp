#include "Core/Log.h"

#include <QByteArray>

#include <cstdio>
#include <cstring>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
Log::Listener &listener()
{
    static Log::Listener instance;
    return instance;
}

Log::Handler &handler()
{
    static Log::Handler instance;
    return instance;
}
} // namespace

void Log::debug(const QString &message, std::source_location where)
{
    log(u"DEBUG"_s, message, where);
}

void Log::warning(const QString &message, std::source_location where)
{
    log(u"WARNING"_s, message, where);
}

void Log::error(const QString &message, std::source_location where)
{
    log(u"ERROR"_s, message, where);
}

QString Log::oneLine(const QString &message)
{
    const QStringView kept = QStringView(message).left(MaxMessageLength);
    QString line;
    line.reserve(kept.size());
    for (const QChar c : kept) {
        const char16_t code = c.unicode();
        if (code == u'\n')
            line += u"\\n"_s;
        else if (code == u'\r')
            line += u"\\r"_s;
        else if (code == u'\t')
            line += u"\\t"_s;
        else if (code < 0x20 || code == 0x7f || code == 0x2028 || code == 0x2029)
            line += u"\\x%1"_s.arg(int(code), 2, 16, QChar(u'0'));
        else
            line += c;
    }
    if (message.size() > MaxMessageLength)
        line += u"… (%1 characters)"_s.arg(message.size());
    return line;
}

void Log::log(const QString &level, const QString &rawMessage, std::source_location where)
{
    const QString message = oneLine(rawMessage);
    const QString line = formatLine(level, message, where.file_name());
    if (handler()) {
        handler()(level, sourceName(where.file_name()), message);
    } else {
        const QByteArray bytes = line.toUtf8();
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    }
    if (listener())
        listener()(line);
}

QString Log::formatLine(const QString &level, const QString &message, const char *file)
{
    return u'[' + level + u"] "_s + sourceName(file) + u": "_s + message;
}

QString Log::sourceName(const char *file)
{
    const char *name = file;
    for (const char *p = file; *p; ++p) {
        if (*p == '/' || *p == '\\')
            name = p + 1;
    }
    const char *dot = std::strrchr(name, '.');
    const qsizetype length = dot ? qsizetype(dot - name) : qsizetype(std::strlen(name));
    return QString::fromUtf8(name, length);
}

void Log::setHandler(Handler newHandler)
{
    handler() = std::move(newHandler);
}

void Log::setListener(Listener newListener)
{
    listener() = std::move(newListener);
}

} // namespace VistrelKit
