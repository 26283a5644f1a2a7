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

void Log::log(const QString &level, const QString &message, std::source_location where)
{
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
