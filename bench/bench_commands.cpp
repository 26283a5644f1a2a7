// What a hostile service's agent commands cost the app: per case, the app's peak resident memory,
// the time until every command was dealt with, and the longest the event loop went without a
// turn (the gap between two ticks of a 1 ms timer; a user's input waits that long).
//
// Each case runs in a child process of its own, the app: a shown 1280x800 window (offscreen)
// with the process-wide kit, whose real reply reader, command parser and handler get the
// commands. This process is the local service the app talks to (inits, texts, WebSocket
// frames), so the service's own memory and work stay out of the figures. Run with no argument for
// every case, or name cases; the kit's log goes nowhere.
#include "Config/ApplicationConfigWrapper.h"
#include "Config/ConstantUtils.h"
#include "Core/Log.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/WebSocket/WebSocketMessageSender.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "ProcessMemory.h"
#include "Session/BidirectionalMessageHandler.h"
#include "Widgets/PassthroughUIImageView.h"

#include <Vistrel/Orvane.h>

#include <QApplication>
#include <QBuffer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMessageBox>
#include <QPainter>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {

struct Case
{
    const char *name;
    const char *what;
    int commands;
    /// As measured before the commands were bounded.
    const char *before;
};

const Case cases[] = {
    {"ws-drawings", "10,000 drawings in WebSocket frames", 10000, "6.8 GB, hung, killed"},
    {"reply-drawings", "1,000 drawings in one reply", 1000, "1.5 GB peak"},
    {"opt-ins", "100,000 opt-ins in one reply", 100000, "1.76 GB, hung"},
    {"starts", "100,000 starts in one reply", 100000, "2.0 GB, 1,086 inits"},
    {"png-bombs", "30 PNG bombs in one reply", 30, "2.95 GB peak"},
    {"taps", "100,000 taps in one reply", 100000, "not measured"},
    {"ws-huge-frame", "one 200 MB WebSocket text frame", 1, "1.68 GB peak"},
};
constexpr qsizetype HugeFrameBytes = 200 * 1000 * 1000;

const Case *findCase(const QString &name)
{
    for (const Case &c : cases) {
        if (name == QLatin1StringView(c.name))
            return &c;
    }
    return nullptr;
}

const QSize windowSize(1280, 800);
const QString initPath = u"/api/in/im/c"_s;
const char *serviceVariable = "VISTREL_BENCH_SERVICE";

QByteArray png(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

/// An agent's drawing of the window's size: a ring and a stroke, mostly transparent.
QByteArray drawingPng()
{
    QImage image(windowSize, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Qt::red, 8));
    painter.drawEllipse(QRect(400, 200, 480, 400));
    painter.drawLine(100, 700, 1180, 100);
    painter.end();
    return png(image);
}

/// A PNG of about 100 KB that decodes into 100 MB (5000 x 5000, 32 bits).
QByteArray bombPng()
{
    QImage image(5000, 5000, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    return png(image);
}

QByteArray drawingCommand(const QByteArray &png)
{
    return R"({"d":{"u":"data:image/png;base64,)" + png.toBase64() + R"("}})";
}

/// A POST reply as the service sends it: one element, the text of the array of commands.
QByteArray reply(const QByteArray &command, int count)
{
    QByteArray list = "[";
    list.reserve(qsizetype(command.size() + 1) * count + 2);
    for (int i = 0; i < count; ++i) {
        if (i)
            list += ',';
        list += command;
    }
    list += ']';
    return QJsonDocument(QJsonArray{QString::fromLatin1(list)}).toJson(QJsonDocument::Compact);
}

/// Points the kit at the service, as a host app's config file does; WebSocket included.
bool useService(const QTemporaryDir &dir, const QString &hostAndPort)
{
    QFile config(dir.filePath(u"Config.json"_s));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    config.write(u"{\"Hostname\":\"%1\",\"CdnHostname\":\"%1\",\"HttpProtocol\":\"http\","
                 u"\"WebSocketProtocol\":\"ws\"}"_s.arg(hostAndPort)
                     .toUtf8());
    config.close();
    ConstantUtils::setConfigFile(config.fileName());
    return true;
}

/// Runs the event loop until condition holds (checked every millisecond) or timeoutMs passed.
bool runUntil(const std::function<bool()> &condition, int timeoutMs)
{
    if (condition())
        return true;
    QEventLoop loop;
    QTimer check;
    check.setTimerType(Qt::PreciseTimer);
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (condition())
            loop.quit();
    });
    check.start(1);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return condition();
}

/// The longest gap between two ticks of a 1 ms timer, and how many commands the transport handed
/// over in it (many: the gap is the transport's reading, not the handler's work).
class StallMeter
{
public:
    explicit StallMeter(const qint64 *arrived)
        : m_arrived(arrived)
        , m_arrivedAtLast(*arrived)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            if (now - m_last > m_longest) {
                m_longest = now - m_last;
                m_arrivedInLongest = *m_arrived - m_arrivedAtLast;
            }
            m_last = now;
            m_arrivedAtLast = *m_arrived;
        });
        m_clock.start();
        m_timer.start(1);
    }
    double longestMs() const { return std::max(m_longest, m_clock.nsecsElapsed() - m_last) / 1e6; }
    qint64 arrivedInLongest() const { return m_arrivedInLongest; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    const qint64 *m_arrived;
    qint64 m_arrivedAtLast;
    qint64 m_arrivedInLongest = 0;
    qint64 m_last = 0;
    qint64 m_longest = 0;
};

qint64 statusKiB(const QByteArray &field)
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(field.size()).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

/// From here on the peak resident memory counts anew (what preparing the case took is left out).
void resetPeakMemory()
{
    QFile clearRefs(u"/proc/self/clear_refs"_s);
    if (clearRefs.open(QIODevice::WriteOnly))
        clearRefs.write("5");
}

// ---- the app: one case ----

int runCase(const Case &c, int argc, char **argv)
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    if (!useService(dir, qEnvironmentVariable(serviceVariable)))
        return 1;
    qint64 refused = 0;
    bool frameRefused = false;
    qint64 framesDropped = 0;
    Log::setHandler([&](const QString &, const QString &, const QString &message) {
        if (message.contains(u"a message from the service was larger than"_s))
            frameRefused = true;
        // The log passes a line repeated within one turn on once, then says how often it came.
        static const QRegularExpression repeated(u"^\\(repeated (\\d+|once) more"_s);
        const QRegularExpressionMatch match = repeated.match(message);
        const qint64 times = !match.hasMatch() ? 1 : qMax(1, match.captured(1).toInt());
        // Frames that came faster than they could be read, over the transport's bound.
        static const QRegularExpression dropped(u"Dropped the oldest (\\d+) messages"_s);
        const QRegularExpressionMatch drop = dropped.match(message);
        if (drop.hasMatch())
            framesDropped += times * drop.captured(1).toLongLong();
        if (message.contains(u"Drawing refused"_s))
            refused += times;
    });
    Orvane::initConfig(u"tenant-1"_s, u"token-1"_s);
    QWidget window;
    window.resize(windowSize);
    auto *button = new QPushButton(u"Pay"_s, &window);
    button->setGeometry(100, 100, 200, 60);
    qint64 clicks = 0;
    QObject::connect(button, &QPushButton::clicked, [&] { ++clicks; });
    window.show();
    if (!runUntil([&] { return window.isActiveWindow(); }, 5000))
        return 1;

    Injection &kit = Kit::container();
    auto *parser = kit.resolve<BidirectionalMessageParser>();
    auto *handler = kit.resolve<BidirectionalMessageHandler>();
    auto *xhr = kit.resolve<XhrMessageSender>();
    qint64 received = 0;
    QObject::connect(parser, &BidirectionalMessageParser::messageReceived, [&] { ++received; });
    const auto idle = [handler] { return handler->pendingCommands() == 0; };

    const QByteArray name(c.name);
    QByteArray body;
    if (name == "reply-drawings")
        body = reply(drawingCommand(drawingPng()), c.commands);
    else if (name == "png-bombs")
        body = reply(drawingCommand(bombPng()), c.commands);
    else if (name == "opt-ins")
        body = reply(R"({"co":{"opt":true}})", c.commands);
    else if (name == "starts")
        body = reply(R"({"co":{"s":true}})", c.commands);
    else if (name == "taps")
        body = reply(R"({"x":200,"y":130})", c.commands); // on the button
    runUntil([] { return false; }, 300);
    resetPeakMemory();

    std::optional<StallMeter> stalls;
    QElapsedTimer clock;
    std::function<bool()> done = idle;
    double readMs = 0;
    if (name.startsWith("ws-")) {
        auto *webSocket = kit.resolve<WebSocketMessageSender>();
        // The service queues the frames for the visit and sends them once the socket is open.
        std::printf(
            "READY %s\n",
            qPrintable(*kit.resolve<ApplicationConfigWrapper>()->config().visitConfig.visitId));
        std::fflush(stdout);
        stalls.emplace(&received);
        clock.start();
        webSocket->start(u"Bench"_s, nullptr, nullptr);
        done = [&] {
            return (name == "ws-huge-frame" ? frameRefused
                                            : received + framesDropped == c.commands) &&
                   idle();
        };
    } else {
        clock.start();
        if (!xhr->processReply(body))
            return 1;
        // The body is parsed in one go; its command texts and the handler's work go on in
        // slices.
        readMs = clock.nsecsElapsed() / 1e6;
        stalls.emplace(&received);
        if (name == "opt-ins")
            done = [&] { return idle() && qobject_cast<QMessageBox *>(app.activeModalWidget()); };
    }
    const bool finished = runUntil(done, 240000);
    const double totalMs = clock.nsecsElapsed() / 1e6;
    const double stallMs = stalls->longestMs();
    const qint64 arrivedInStall = stalls->arrivedInLongest();
    stalls.reset();
    const qint64 peakKiB = statusKiB("VmHWM:");
    if (name == "starts")
        runUntil([] { return false; }, 3000); // the inits it caused reach the service

    const auto overlays = window.findChildren<PassthroughUIImageView *>().size();
    const auto dialogs = window.findChildren<QMessageBox *>().size();
    QString notes =
        u"%1 received (%2 in the stall), %3 overlays, %4 refused, %5 dialogs, "
        u"%6 clicks%7%8"_s.arg(received)
            .arg(arrivedInStall)
            .arg(overlays)
            .arg(refused)
            .arg(dialogs)
            .arg(clicks)
            .arg(frameRefused ? u", frame refused"_s : QString())
            .arg(framesDropped ? u", %1 frames dropped unread"_s.arg(framesDropped) : QString());
    if (!finished)
        notes.prepend(u"UNFINISHED; "_s);
    std::printf("RESULT\t%lld\t%.1f\t%.1f\t%.1f\t%s\n", peakKiB, totalMs, readMs, stallMs,
                qPrintable(notes));
    std::fflush(stdout);
    return 0;
}

// ---- the service: every case, one child each ----

struct Outcome
{
    QString peak = u"-"_s;
    QString total = u"-"_s;
    QString read = u"-"_s;
    QString stall = u"-"_s;
    QString notes;
};

Outcome runChild(VistrelService::LocalService &service, const Case &c, const QString &program,
                 qint64 limitMiB)
{
    Outcome outcome;
    service.clearRequests();
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    environment.insert(QString::fromLatin1(serviceVariable), service.hostAndPort());
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);

    const QByteArray frame = drawingCommand(drawingPng());
    QByteArray output;
    QObject::connect(&child, &QProcess::readyReadStandardOutput, [&] {
        output += child.readAllStandardOutput();
        while (output.contains('\n')) {
            const qsizetype end = output.indexOf('\n');
            const QString line = QString::fromUtf8(output.left(end));
            output.remove(0, end + 1);
            // The frames wait for the socket at the service, which sends them all once it opens.
            if (line.startsWith(u"READY "_s)) {
                const bool huge = QByteArrayView(c.name) == "ws-huge-frame";
                for (int i = 0; i < c.commands; ++i)
                    service.queueRawCommand(line.mid(6),
                                            huge ? QByteArray(HugeFrameBytes, ' ') : frame);
            }
            const QStringList fields = line.split(u'\t');
            if (fields.size() == 6 && fields[0] == u"RESULT"_s) {
                outcome.peak = QString::number(fields[1].toLongLong() / 1024);
                outcome.total = fields[2];
                outcome.read = fields[3];
                outcome.stall = fields[4];
                outcome.notes = fields[5];
            }
        }
    });

    // Memory as seen from outside too: a case that runs away is stopped at the limit.
    qint64 sampledMiB = 0;
    bool overLimit = false;
    QTimer sampler;
    QObject::connect(&sampler, &QTimer::timeout, [&] {
        const qint64 mib = ProcessMemory::residentKiB(QString::number(child.processId())) / 1024;
        sampledMiB = std::max(sampledMiB, mib);
        if (mib > limitMiB && !overLimit) {
            overLimit = true;
            child.kill();
        }
    });
    child.start(program, {u"--case"_s, QString::fromLatin1(c.name)});
    sampler.start(50);
    const bool ended = runUntil([&] { return child.state() == QProcess::NotRunning; }, 300000);
    if (!ended) {
        child.kill();
        child.waitForFinished();
    }
    sampler.stop();
    const qsizetype inits = service.requests(initPath).size();
    if (outcome.notes.isEmpty()) {
        outcome.peak = u">"_s + QString::number(sampledMiB);
        outcome.notes = overLimit ? u"stopped over %1 MiB"_s.arg(limitMiB)
                                  : (ended ? u"failed"_s : u"stopped after 300 s"_s);
    }
    outcome.notes += u", %1 inits"_s.arg(inits);
    return outcome;
}

int runAll(int argc, char **argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv); // the service renders the fonts of chat documents
    QStringList names = app.arguments().mid(1);
    qint64 limitMiB = 4096;
    if (const qsizetype at = names.indexOf(u"--limit-mib"_s); at >= 0 && at + 1 < names.size()) {
        limitMiB = names[at + 1].toLongLong();
        names.remove(at, 2);
    }
    VistrelService::LocalService service;
    if (!service.start()) {
        std::fprintf(stderr, "cannot start the local service\n");
        return 1;
    }
    // read: the transport's own call for the reply (the parse of the whole body and its first
    // 5 ms of command texts); stall: the longest gap of the event loop after that, while the
    // rest is read and the handler works.
    std::printf("%-38s %8s %9s %8s %8s  %-22s %s\n", "agent commands, 1280x800 window", "peak MiB",
                "total ms", "read ms", "stall ms", "before", "notes");
    for (const Case &c : cases) {
        if (!names.isEmpty() && !names.contains(QLatin1StringView(c.name)))
            continue;
        const Outcome o = runChild(service, c, app.applicationFilePath(), limitMiB);
        std::printf("%-38s %8s %9s %8s %8s  %-22s %s\n", c.what, qPrintable(o.peak),
                    qPrintable(o.total), qPrintable(o.read), qPrintable(o.stall), c.before,
                    qPrintable(o.notes));
        std::fflush(stdout);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    if (argc == 3 && argv[1] == QByteArrayView("--case")) {
        const Case *c = findCase(QString::fromLocal8Bit(argv[2]));
        return c ? runCase(*c, argc, argv) : 2;
    }
    return runAll(argc, argv);
}
