// Main-thread cost of one screenshot tick, today's pipeline beside the kit's, for a window of
// ordinary widgets (a form, a list, a table; two views private by tag) at three sizes.
//
// Today's tick, rebuilt here as the baseline, did the same work at every tick, whether or not
// anything changed: QWidget::grab() of the window, the private views painted black on the
// full-size image, Qt's smooth scaler down to a third, a JPEG, a comparison of its bytes with the
// last one. The kit reads the window's backing store instead of rendering it again, scales with a
// 3×3 box filter, masks the small image, compares it with the last image sent before encoding,
// and a tick with nothing painted since the last capture returns at once.
//
// A changed tick follows a real paint: a line edit's text is set and painted before the clock
// starts, as the app would have done anyway. The kit's unchanged tick is timed on a running
// ViewMonitor that streams to the local service over the kit's HTTP transport: the window did not
// paint since its last capture, and no screenshot reaches the service meanwhile. Every tenth tick
// of an unchanged screen queues a capture all the same; those are counted apart, not timed.
//
// Also printed: the kit's stages, and the PSNR of its third-size image against the smooth
// scaler's of the same frame (both without masking), so that the cheaper filter's quality shows.
#include "BenchTransport.h"

#include "Config/IOSConfig.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ScreenCapture.h"
#include "Monitoring/ViewMonitor.h"

#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QImageWriter>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
constexpr int WarmUpTicks = 5;
constexpr int Ticks = 60;
// Unchanged ticks are cheap: many of them, so that the forced ones can be left out.
constexpr int UnchangedTicks = 300;
constexpr int PrivateViews = 2;
constexpr int FirstTag = 100;
constexpr double ChangedTargetMs = 1.0;
constexpr double UnchangedTargetMs = 0.01;

// A form, a list and a table: what an ordinary business screen holds.
std::unique_ptr<QWidget> makeWindow(QSize size)
{
    auto window = std::make_unique<QWidget>();
    auto *layout = new QHBoxLayout(window.get());
    auto *form = new QGroupBox(u"Customer"_s);
    auto *formLayout = new QFormLayout(form);
    for (int i = 0; i < 8; ++i) {
        auto *edit = new QLineEdit(u"Value %1"_s.arg(i));
        if (i < PrivateViews)
            edit->setProperty(PrivacyUtils::TagProperty, FirstTag + i);
        formLayout->addRow(u"Field %1"_s.arg(i), edit);
    }
    formLayout->addRow(new QCheckBox(u"Subscribe"_s));
    auto *combo = new QComboBox;
    combo->addItems({u"One"_s, u"Two"_s});
    formLayout->addRow(u"Plan"_s, combo);
    formLayout->addRow(new QPushButton(u"Save"_s));
    layout->addWidget(form);

    auto *list = new QListWidget;
    for (int i = 0; i < 40; ++i)
        list->addItem(u"Order #%1 — shipped"_s.arg(1000 + i));
    layout->addWidget(list);

    auto *model = new QStandardItemModel(30, 4, window.get());
    for (int r = 0; r < 30; ++r)
        for (int c = 0; c < 4; ++c)
            model->setItem(r, c, new QStandardItem(u"%1:%2"_s.arg(r).arg(c)));
    auto *table = new QTableView;
    table->setModel(model);
    layout->addWidget(table, 2);

    window->resize(size);
    window->show();
    return window;
}

// Today's pipeline, as the view monitor ran it at every tick.
namespace Today {
QImage grab(QWidget *window)
{
    return window->grab().toImage();
}

// A painter per rectangle on the full-size image, which carries the device pixel ratio: the
// rectangles are in the window's units.
void mask(QImage &image, const QList<QRectF> &rects)
{
    for (const QRectF &rect : rects) {
        QPainter painter(&image);
        painter.fillRect(rect, Qt::black);
    }
}

QImage scale(const QImage &image)
{
    const QSize size(std::max(1, image.width() / 3), std::max(1, image.height() / 3));
    return image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

QByteArray encode(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(40);
    if (!writer.write(image))
        qFatal("Cannot encode the screenshot as JPEG");
    return bytes;
}
} // namespace Today

double medianNs(std::vector<qint64> samples)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    return double(samples[samples.size() / 2]);
}

double medianMs(const std::vector<qint64> &samples)
{
    return medianNs(samples) / 1e6;
}

// Over the three colour channels, 8 bits each.
double psnr(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return 0;
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    double sum = 0;
    for (int row = 0; row < x.height(); ++row) {
        const auto *p = reinterpret_cast<const QRgb *>(x.constScanLine(row));
        const auto *q = reinterpret_cast<const QRgb *>(y.constScanLine(row));
        for (int col = 0; col < x.width(); ++col) {
            const int dr = qRed(p[col]) - qRed(q[col]);
            const int dg = qGreen(p[col]) - qGreen(q[col]);
            const int db = qBlue(p[col]) - qBlue(q[col]);
            sum += dr * dr + dg * dg + db * db;
        }
    }
    const double mse = sum / (3.0 * x.width() * x.height());
    return mse == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 / mse);
}

// Counts, from the application's events, the paints of any window and the work the kit queues
// on the main queue (a call queued to the application object).
class EventCounter : public QObject
{
public:
    int paints = 0;
    int queuedCalls = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::UpdateRequest || event->type() == QEvent::Expose)
            ++paints;
        else if (event->type() == QEvent::MetaCall && watched == QCoreApplication::instance())
            ++queuedCalls;
        return false;
    }
};

// The kit's HTTP transport against the local service, wired as the session wires it.
struct Figures
{
    // Changed ticks.
    double todayChanged = 0;
    double kitChanged = 0;
    int todaySawChange = 0;
    int kitSawChange = 0;
    // Unchanged ticks.
    double todayUnchanged = 0;
    double kitUnchangedNs = 0;
    int kitUnchangedTicks = 0;
    int forcedTicks = 0;
    int paintsMeanwhile = 0;
    qsizetype screenshotsMeanwhile = 0;
    // The kit's stages (ms).
    double read = 0;
    double scale = 0;
    double capture = 0;
    double compare = 0;
    double encode = 0;
    bool backingStore = false;
    // Today's stages (ms).
    double grab = 0;
    double todayMask = 0;
    double todayScale = 0;
    double todayEncode = 0;
    double todayCompare = 0;
    double psnr = 0;
    double psnrSameGrid = 0;
    qsizetype kitJpegBytes = 0;
    qsizetype todayJpegBytes = 0;
};

class Bench
{
public:
    Bench(BenchService *bench, BenchTransport *transport)
        : m_service(&bench->service)
        , m_transport(transport)
    {
        for (int i = 0; i < PrivateViews; ++i)
            m_config.blacklist.append(QString::number(FirstTag + i));
        m_transport->wrapper.config().vistrelConfig.iosConfig = m_config;
    }

    std::optional<Figures> measure(QSize size)
    {
        Figures figures;
        auto window = makeWindow(size);
        if (!QTest::qWaitForWindowActive(window.get())) {
            std::fprintf(stderr, "the %dx%d window never became active\n", size.width(),
                         size.height());
            return std::nullopt;
        }
        // No text cursor blinking: an idle window does not paint.
        if (QWidget *focus = QApplication::focusWidget())
            focus->clearFocus();
        QApplication::processEvents();
        m_edit = window->findChildren<QLineEdit *>().value(PrivateViews);
        figures.backingStore = ScreenCapture::readsBackingStore(window.get());

        todayTicks(window.get(), true, figures);
        todayTicks(window.get(), false, figures);
        kitChangedTicks(window.get(), figures);
        kitStages(window.get(), figures);
        // Where a side is no multiple of 3, the kit leaves out the last one or two device pixels
        // while the smooth scaler stretches its grid over them: the second figure compares on
        // the same grid, the filters alone.
        const QImage frame = Today::grab(window.get());
        const QImage third = ScreenCapture::scaleToThird(ScreenCapture::pixels(window.get()));
        figures.psnr = psnr(third, Today::scale(frame));
        figures.psnrSameGrid =
            psnr(third, Today::scale(frame.copy(0, 0, 3 * third.width(), 3 * third.height())));
        if (!kitUnchangedTicks(figures))
            return std::nullopt;
        return figures;
    }

private:
    void change(int tick)
    {
        m_edit->setText(u"Changed %1"_s.arg(tick));
        QApplication::processEvents();
    }

    void todayTicks(QWidget *window, bool changing, Figures &figures)
    {
        std::vector<qint64> grab, mask, scale, encode, compare, total;
        QByteArray last;
        int sawChange = 0;
        for (int tick = 0; tick < WarmUpTicks + Ticks; ++tick) {
            if (changing)
                change(tick);
            else
                QApplication::processEvents();
            QElapsedTimer timer;
            timer.start();
            QImage image = Today::grab(window);
            const qint64 t1 = timer.nsecsElapsed();
            Today::mask(image, PrivacyUtils::privateRects(window, m_config, &m_warned));
            const qint64 t2 = timer.nsecsElapsed();
            const QImage scaled = Today::scale(image);
            const qint64 t3 = timer.nsecsElapsed();
            const QByteArray bytes = Today::encode(scaled);
            const qint64 t4 = timer.nsecsElapsed();
            const bool same = bytes == last;
            const qint64 t5 = timer.nsecsElapsed();
            last = bytes;
            if (tick < WarmUpTicks)
                continue;
            figures.todayJpegBytes = bytes.size();
            sawChange += !same;
            grab.push_back(t1);
            mask.push_back(t2 - t1);
            scale.push_back(t3 - t2);
            encode.push_back(t4 - t3);
            compare.push_back(t5 - t4);
            total.push_back(t5);
        }
        if (changing) {
            figures.todayChanged = medianMs(total);
            figures.todaySawChange = sawChange;
            figures.grab = medianMs(grab);
            figures.todayMask = medianMs(mask);
            figures.todayScale = medianMs(scale);
            figures.todayEncode = medianMs(encode);
            figures.todayCompare = medianMs(compare);
        } else {
            figures.todayUnchanged = medianMs(total);
        }
    }

    void kitChangedTicks(QWidget *window, Figures &figures)
    {
        std::vector<qint64> capture, compare, encode, total;
        QImage last;
        for (int tick = 0; tick < WarmUpTicks + Ticks; ++tick) {
            change(tick);
            QElapsedTimer timer;
            timer.start();
            const QImage shot = ScreenCapture::capture(window, m_config, &m_warned);
            const qint64 t1 = timer.nsecsElapsed();
            const bool differs = ScreenCapture::differsOutside(last, shot, QRect());
            const qint64 t2 = timer.nsecsElapsed();
            const QByteArray bytes = ScreenCapture::encodeJpeg(shot);
            const qint64 t3 = timer.nsecsElapsed();
            last = shot;
            if (tick < WarmUpTicks)
                continue;
            figures.kitJpegBytes = bytes.size();
            figures.kitSawChange += differs;
            capture.push_back(t1);
            compare.push_back(t2 - t1);
            encode.push_back(t3 - t2);
            total.push_back(t3);
        }
        figures.kitChanged = medianMs(total);
        figures.capture = medianMs(capture);
        figures.compare = medianMs(compare);
        figures.encode = medianMs(encode);
    }

    // Reading and scaling on their own; what else capture() does is masking and popups.
    void kitStages(QWidget *window, Figures &figures)
    {
        std::vector<qint64> read, scale;
        for (int tick = 0; tick < WarmUpTicks + Ticks; ++tick) {
            change(tick);
            QElapsedTimer timer;
            timer.start();
            const QImage pixels = ScreenCapture::pixels(window);
            const qint64 t1 = timer.nsecsElapsed();
            const QImage third = ScreenCapture::scaleToThird(pixels);
            const qint64 t2 = timer.nsecsElapsed();
            Q_UNUSED(third);
            if (tick < WarmUpTicks)
                continue;
            read.push_back(t1);
            scale.push_back(t2 - t1);
        }
        figures.read = medianMs(read);
        figures.scale = medianMs(scale);
    }

    qsizetype screenshotsAtService() const
    {
        const auto *visit = m_service->visit(m_transport->visitId());
        qsizetype count = 0;
        if (visit) {
            for (const auto &report : visit->reports())
                count += report.message.screenshotevent_size();
        }
        return count;
    }

    // On a started monitor whose first capture reached the service.
    bool kitUnchangedTicks(Figures &figures)
    {
        ViewMonitor monitor(&m_transport->wrapper, &m_transport->platform);
        const qsizetype before = screenshotsAtService();
        auto started = std::make_shared<std::optional<bool>>();
        monitor.start(&m_transport->sender,
                      [started](const std::optional<Error> &error) { *started = !error; });
        const bool sent = m_service->waitFor(
            [&] {
                return started->value_or(false) && screenshotsAtService() > before &&
                       m_transport->sender.queueSize() == 0;
            },
            20000);
        if (!sent) {
            std::fprintf(stderr, "the monitor's first screenshot never reached the service\n");
            return false;
        }
        // Past a forced capture or two: the screen holds still.
        QTest::qWait(2 * ViewMonitor::ScreenshotIntervalMs);
        const qsizetype screenshots = screenshotsAtService();

        EventCounter counter;
        qApp->installEventFilter(&counter);
        std::vector<qint64> ticks;
        for (int tick = 0; tick < WarmUpTicks + UnchangedTicks; ++tick) {
            counter.queuedCalls = 0;
            QElapsedTimer timer;
            timer.start();
            const bool invoked =
                QMetaObject::invokeMethod(&monitor, "screenshotTick", Qt::DirectConnection);
            const qint64 elapsed = timer.nsecsElapsed();
            if (!invoked) {
                std::fprintf(stderr, "ViewMonitor has no slot screenshotTick\n");
                return false;
            }
            // A tick that queued a capture, every tenth of an unchanged screen, did not return
            // at once: its capture runs now, untimed, and it is counted apart.
            QCoreApplication::sendPostedEvents(qApp, QEvent::MetaCall);
            if (counter.queuedCalls > 0) {
                ++figures.forcedTicks;
                continue;
            }
            if (tick >= WarmUpTicks)
                ticks.push_back(elapsed);
            // The app's own turns of the event loop between ticks: the transport, the timers.
            if (tick % 10 == 9)
                QTest::qWait(1);
        }
        // Whatever a forced capture might have sent has had time to arrive.
        QTest::qWait(2 * ViewMonitor::ScreenshotIntervalMs);
        m_service->waitFor([&] { return m_transport->sender.queueSize() == 0; }, 5000);
        qApp->removeEventFilter(&counter);
        monitor.stop();
        QApplication::processEvents();

        figures.kitUnchangedNs = medianNs(ticks);
        figures.kitUnchangedTicks = int(ticks.size());
        figures.paintsMeanwhile = counter.paints;
        figures.screenshotsMeanwhile = screenshotsAtService() - screenshots;
        return true;
    }

    VistrelService::LocalService *m_service;
    BenchTransport *m_transport;
    IOSConfig m_config;
    QSet<QString> m_warned;
    QLineEdit *m_edit = nullptr;
};

void printRows(QSize size, const Figures &f)
{
    const auto name = u"%1x%2"_s.arg(size.width()).arg(size.height()).toLatin1();
    const bool targetSize = size == QSize(1280, 800);
    std::printf("%-10s %-10s %10.2f %10.3f %9.1fx  %-13s  %s  %s; changes seen today %d/%d, "
                "kit %d/%d; PSNR %.1f dB (same grid %.1f dB)\n",
                name.constData(), "changed", f.todayChanged, f.kitChanged,
                f.todayChanged / f.kitChanged, targetSize ? "<= 1.0 ms" : "",
                targetSize ? (f.kitChanged <= ChangedTargetMs ? "met " : "MISS") : "    ",
                f.backingStore ? "backing store" : "RENDERED", f.todaySawChange, Ticks,
                f.kitSawChange, Ticks, f.psnr, f.psnrSameGrid);
    const double unchangedMs = f.kitUnchangedNs / 1e6;
    std::printf("%-10s %-10s %10.2f %10.4f %9.0fx  %-13s  %s  %.2f us over %d ticks (%d forced "
                "left out); paints %d, screenshots sent %lld\n",
                name.constData(), "unchanged", f.todayUnchanged, unchangedMs,
                f.todayUnchanged / unchangedMs, "<= 0.01 ms",
                unchangedMs <= UnchangedTargetMs ? "met " : "MISS", f.kitUnchangedNs / 1e3,
                f.kitUnchangedTicks, f.forcedTicks, f.paintsMeanwhile,
                static_cast<long long>(f.screenshotsMeanwhile));
}

void printStages(QSize size, const Figures &f)
{
    const auto name = u"%1x%2"_s.arg(size.width()).arg(size.height()).toLatin1();
    std::printf("%-10s kit:   read %6.3f  scale %6.3f  mask+popups %6.3f  compare %6.3f  encode "
                "%6.3f  (%lld B JPEG; backing store read: %s)\n",
                name.constData(), f.read, f.scale, std::max(0.0, f.capture - f.read - f.scale),
                f.compare, f.encode, static_cast<long long>(f.kitJpegBytes),
                f.backingStore ? "yes" : "no");
    std::printf("%-10s today: grab %6.3f  mask  %6.3f  scale       %6.3f  encode  %6.3f  compare "
                "%6.3f  (%lld B JPEG)\n",
                name.constData(), f.grab, f.todayMask, f.todayScale, f.todayEncode, f.todayCompare,
                static_cast<long long>(f.todayJpegBytes));
}
} // namespace

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    BenchService::quietLog();
    BenchService bench;
    if (!bench.start())
        return 1;
    BenchTransport transport(&bench);
    if (!transport.open())
        return 1;

    const QList<QSize> sizes{QSize(800, 600), QSize(1280, 800), QSize(1920, 1080)};
    QList<Figures> results;
    Bench runner(&bench, &transport);
    for (const QSize size : sizes) {
        const auto figures = runner.measure(size);
        if (!figures)
            return 1;
        results.append(*figures);
    }

    std::printf("Screenshot tick, main thread, median of %d ticks after %d of warm-up (%d for the "
                "kit's unchanged tick); %d private views\n",
                Ticks, WarmUpTicks, UnchangedTicks, PrivateViews);
    std::printf("%-10s %-10s %10s %10s %10s  %-13s  %s\n", "size", "tick", "today ms", "kit ms",
                "speed-up", "target", "notes");
    for (qsizetype i = 0; i < sizes.size(); ++i)
        printRows(sizes[i], results[i]);
    std::printf("\nStages (median ms)\n");
    for (qsizetype i = 0; i < sizes.size(); ++i)
        printStages(sizes[i], results[i]);
    transport.sender.stop();
    return 0;
}
