// What an idle session costs on the wire: a form nobody touches, streamed to the local service by
// the kit's HTTP transport, view monitor and ping, for a while (--seconds, 20 by default), once
// with no widget focused and once with a line edit focused, its text cursor blinking. The blink
// repaints the window twice a second; the kit must not send it, so both runs should cost the same
// bytes per second: the screenshot a monitor sends when it starts, and the pings.
//
// Measured at the service: the decoded reports of the run (the serialized size of each, the
// screenshots among them) and the bodies of the POSTs that carried them. The window's paints are
// counted so that the focused run shows that the cursor did blink.
#include "BenchTransport.h"

#include "Monitoring/ViewMonitor.h"
#include "Network/PingSender.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include <cmath>
#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
const QString channelPath = u"/api/ix/m"_s;
constexpr double TargetRatio = 0.10;

// Counts the paints of one window: each is an update request to it.
class PaintCounter : public QObject
{
public:
    explicit PaintCounter(const QWidget *window)
        : m_window(window)
    {}

    int paints = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_window && event->type() == QEvent::UpdateRequest)
            ++paints;
        return false;
    }

private:
    const QWidget *m_window;
};

// The kit's HTTP transport against the local service, wired as the session wires it.
struct Run
{
    double seconds = 0;
    qint64 reportBytes = 0;
    qint64 bodyBytes = 0;
    qsizetype reports = 0;
    qsizetype screenshots = 0;
    qint64 screenshotBytes = 0;
    qsizetype pings = 0;
    int paints = 0;
};

std::unique_ptr<QWidget> makeWindow()
{
    auto window = std::make_unique<QWidget>();
    auto *form = new QFormLayout(window.get());
    form->addRow(u"Name"_s, new QLineEdit(u"Ada Lovelace"_s));
    form->addRow(u"Email"_s, new QLineEdit(u"ada@example.com"_s));
    form->addRow(u"Phone"_s, new QLineEdit(u"+44 20 7946 0000"_s));
    form->addRow(u"City"_s, new QLineEdit(u"London"_s));
    form->addRow(new QPushButton(u"Send"_s));
    window->resize(800, 600);
    window->show();
    return window;
}

class IdleBench
{
public:
    IdleBench(BenchService *bench, BenchTransport *transport, QWidget *window)
        : m_service(&bench->service)
        , m_transport(transport)
        , m_window(window)
    {}

    /// A monitor and a ping started on the running transport, the screen left alone for
    /// seconds, then stopped, and what reached the service meanwhile.
    std::optional<Run> measure(int seconds)
    {
        const qsizetype firstReport = reports().size();
        m_service->clearRequests();
        PaintCounter counter(m_window);
        qApp->installEventFilter(&counter);

        ViewMonitor monitor(&m_transport->wrapper, &m_transport->platform);
        PingSender ping(&m_transport->wrapper);
        auto started = std::make_shared<std::optional<bool>>();
        monitor.start(&m_transport->sender,
                      [started](const std::optional<Error> &error) { *started = !error; });
        ping.start(&m_transport->sender);
        QTest::qWait(seconds * 1000);
        monitor.stop();
        ping.stop();
        qApp->removeEventFilter(&counter);
        if (!started->value_or(false)) {
            std::fprintf(stderr, "the view monitor did not start\n");
            return std::nullopt;
        }
        const QString tag = u"end of run %1"_s.arg(++m_runs);
        if (!flush(tag))
            return std::nullopt;

        Run run;
        run.seconds = seconds;
        run.paints = counter.paints;
        const QList<VistrelService::Report> all = reports();
        for (qsizetype i = firstReport; i < all.size(); ++i) {
            const ProtoMessage &message = all[i].message;
            if (message.has_tag())
                continue;
            ++run.reports;
            run.reportBytes += qint64(message.ByteSizeLong());
            run.screenshots += message.screenshotevent_size();
            for (const auto &screenshot : message.screenshotevent())
                run.screenshotBytes += qint64(screenshot.image().size());
            run.pings += message.screenshotevent_size() == 0 && message.clickevent_size() == 0 &&
                         !message.has_pagechange() && message.usertag_size() == 0;
        }
        for (const auto &request : m_service->requests(channelPath)) {
            if (request.method == u"POST"_s)
                run.bodyBytes += request.body.size();
        }
        return run;
    }

private:
    QList<VistrelService::Report> reports() const
    {
        const VistrelService::Visit *visit = m_service->visit(m_transport->visitId());
        return visit ? visit->reports() : QList<VistrelService::Report>();
    }

    // Reports arrive in order: once the tag is in, so is all the run sent. A report queued while
    // a POST is under way goes with that POST's reply, so the tag is sent again until it lands.
    bool flush(const QString &tag)
    {
        const auto arrived = [&] {
            const auto all = reports();
            return std::any_of(all.cbegin(), all.cend(), [&](const VistrelService::Report &r) {
                return r.message.has_tag() && QString::fromStdString(r.message.tag()) == tag;
            });
        };
        for (int attempt = 0; attempt < 5; ++attempt) {
            m_transport->sender.sendTag(tag, 0, [](const std::optional<Error> &) {});
            if (m_service->waitFor(
                    [&] { return arrived() && m_transport->sender.queueSize() == 0; }, 5000))
                return true;
        }
        std::fprintf(stderr, "the run's reports never all arrived\n");
        return false;
    }

    VistrelService::LocalService *m_service;
    BenchTransport *m_transport;
    QWidget *m_window;
    int m_runs = 0;
};

void printRow(const char *what, double none, double focused, const char *format)
{
    std::printf("%-34s", what);
    std::printf(format, none);
    std::printf(format, focused);
    std::printf("\n");
}
} // namespace

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QCommandLineParser options;
    options.addHelpOption();
    const QCommandLineOption secondsOption(u"seconds"_s, u"Length of each run."_s, u"seconds"_s,
                                           u"20"_s);
    options.addOption(secondsOption);
    options.process(app);
    bool ok = false;
    const int seconds = options.value(secondsOption).toInt(&ok);
    if (!ok || seconds <= 0) {
        std::fprintf(stderr, "--seconds takes a positive whole number\n");
        return 1;
    }
    BenchService::quietLog();

    BenchService bench;
    if (!bench.start())
        return 1;
    BenchTransport transport(&bench);
    if (!transport.open())
        return 1;

    auto window = makeWindow();
    if (!QTest::qWaitForWindowActive(window.get())) {
        std::fprintf(stderr, "the window never became active\n");
        return 1;
    }
    IdleBench idle(&bench, &transport, window.get());

    // (a) Nothing focused: activation may have focused the first field.
    if (QWidget *focus = QApplication::focusWidget())
        focus->clearFocus();
    QApplication::processEvents();
    if (QApplication::focusWidget()) {
        std::fprintf(stderr, "a widget kept the focus\n");
        return 1;
    }
    const auto none = idle.measure(seconds);
    if (!none)
        return 1;

    // (b) A field with text focused, in the active window: its cursor blinks.
    auto *edit = window->findChildren<QLineEdit *>().value(1);
    edit->setFocus();
    edit->setCursorPosition(5);
    QApplication::processEvents();
    if (QApplication::activeWindow() != window.get() || QApplication::focusWidget() != edit) {
        std::fprintf(stderr, "the field is not focused in the active window\n");
        return 1;
    }
    const auto focused = idle.measure(seconds);
    if (!focused)
        return 1;

    const auto perSecond = [](double value, const Run &run) { return value / run.seconds; };
    std::printf("Idle session, 800x600 form, %d s per run, kit's HTTP transport + view monitor + "
                "ping\n",
                seconds);
    std::printf("%-34s%14s%14s\n", "", "no focus", "line edit");
    printRow("report bytes per second", perSecond(double(none->reportBytes), *none),
             perSecond(double(focused->reportBytes), *focused), "%14.1f");
    printRow("POST body bytes per second", perSecond(double(none->bodyBytes), *none),
             perSecond(double(focused->bodyBytes), *focused), "%14.1f");
    printRow("reports", double(none->reports), double(focused->reports), "%14.0f");
    printRow("  screenshots (1 expected)", double(none->screenshots), double(focused->screenshots),
             "%14.0f");
    printRow("  JPEG bytes of the screenshots", double(none->screenshotBytes),
             double(focused->screenshotBytes), "%14.0f");
    printRow("  pings", double(none->pings), double(focused->pings), "%14.0f");
    printRow("window paints (caret blinks)", double(none->paints), double(focused->paints),
             "%14.0f");
    const double ratio = double(focused->reportBytes) / double(none->reportBytes);
    std::printf("%-34s%28.3f  target within %.0f %%: %s\n", "report bytes, line edit / no focus",
                ratio, TargetRatio * 100, std::abs(ratio - 1) <= TargetRatio ? "met" : "MISSED");
    std::printf("(POST bodies include the tag that closes each run)\n");
    transport.sender.stop();
    return 0;
}
