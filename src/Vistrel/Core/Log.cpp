#include "Core/Log.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QHash>
#include <QStringList>
#include <QThread>

#include <cstdio>
#include <cstring>
#include <utility>

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

// A line repeated within one turn of the event loop (one reply's worth) is passed on once; the
// turn's end reports how often each came again. Interleaved repeats count too: one reply's
// commands often log two lines each.
struct Repeated
{
    QString level;
    QString source;
    QString message;
    qint64 repeats = 0;
};

struct Burst
{
    QHash<QString, Repeated> seen;
    QStringList order;
    bool endQueued = false;
};

// Distinct lines remembered per turn; beyond that lines pass on as they come.
constexpr qsizetype MaxDistinctLines = 256;
// How much of a repeated message its summary quotes.
constexpr qsizetype QuotedLength = 100;

Burst &burst()
{
    static Burst instance;
    return instance;
}

QString formatted(const QString &level, const QString &source, const QString &message)
{
    return u'[' + level + u"] "_s + source + u": "_s + message;
}

void write(const QString &level, const QString &source, const QString &message, const QString &line)
{
    if (handler()) {
        handler()(level, source, message);
    } else {
        const QByteArray bytes = line.toUtf8();
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    }
    if (listener())
        listener()(line);
}

void endTurn()
{
    Burst &current = burst();
    // Taken first: a handler that logs starts a new turn.
    const QHash<QString, Repeated> seen = std::exchange(current.seen, {});
    const QStringList order = std::exchange(current.order, {});
    current.endQueued = false;
    for (const QString &line : order) {
        const Repeated entry = seen.value(line);
        if (entry.repeats == 0)
            continue;
        const QString times =
            entry.repeats == 1 ? u"once more"_s : u"%1 more times"_s.arg(entry.repeats);
        QString quoted = entry.message.left(QuotedLength);
        if (entry.message.size() > QuotedLength)
            quoted += u"…"_s;
        const QString message = u"(repeated "_s + times + u": "_s + quoted + u')';
        write(entry.level, entry.source, message, formatted(entry.level, entry.source, message));
    }
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
    const QString source = sourceName(where.file_name());
    const QString line = formatted(level, source, message);
    const QCoreApplication *application = QCoreApplication::instance();
    // Turns are only known on the thread of the event loop, while it runs: before exec() (and in
    // code driven by processEvents()) every line passes.
    if (!application || QThread::currentThread() != application->thread() ||
        application->thread()->loopLevel() == 0) {
        write(level, source, message, line);
        return;
    }
    Burst &current = burst();
    const auto found = current.seen.find(line);
    if (found != current.seen.end()) {
        ++found->repeats;
        return;
    }
    if (current.seen.size() < MaxDistinctLines) {
        current.seen.insert(line, Repeated{level, source, message});
        current.order.append(line);
    }
    write(level, source, message, line);
    if (!std::exchange(current.endQueued, true))
        QMetaObject::invokeMethod(QCoreApplication::instance(), endTurn, Qt::QueuedConnection);
}

QString Log::formatLine(const QString &level, const QString &message, const char *file)
{
    return formatted(level, sourceName(file), message);
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
