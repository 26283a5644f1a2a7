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
//
// Beside the widgets at 1280×800, the same tick for a Qt Quick window of that many device pixels
// in the same process: a form of text fields (two private by tag), a list and buttons, built from
// inline QML. Its changed tick follows a frame the window rendered for a text field's new text,
// and times what the monitor does then: the capture through the kit's screen (grabWindow() at a
// third, private items black), the comparison, the JPEG. Its unchanged tick is timed on a running
// monitor as the widgets' is; the monitor, the transport and both windows share one screen, the
// composite of the widgets and the Qt Quick ones that the kit builds. There was no baseline: the
// view monitor saw widget windows only.
#include "BenchTransport.h"
#include "GraphicsApiName.h"

#include "Config/IOSConfig.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ScreenCapture.h"
#include "Monitoring/ViewMonitor.h"
#include "Quick/QuickPrivacy.h"

#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QImageWriter>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
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
// The size the two kinds of window are set side by side at.
constexpr QSize SideBySide(1280, 800);
constexpr int FrameTimeoutMs = 2000;

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

// The same kind of screen in QML: a form whose first PrivateViews fields are private by tag, a
// list, buttons.
QByteArray qmlForm()
{
    return uR"(
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ApplicationWindow {
    title: "Customer"
    RowLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 12
        GroupBox {
            title: "Customer"
            Layout.preferredWidth: 360
            Layout.alignment: Qt.AlignTop
            ColumnLayout {
                anchors.fill: parent
                Repeater {
                    model: 8
                    RowLayout {
                        Label { text: "Field " + index; Layout.preferredWidth: 70 }
                        TextField {
                            objectName: "field" + index
                            property int vistrelTag: index < %1 ? %2 + index : 0
                            Layout.fillWidth: true
                            text: "Value " + index
                        }
                    }
                }
                CheckBox { text: "Subscribe" }
                ComboBox { model: ["One", "Two"] }
                RowLayout {
                    Button { text: "Save" }
                    Button { text: "Cancel" }
                }
            }
        }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: 40
            delegate: ItemDelegate {
                width: ListView.view.width
                text: "Order #" + (1000 + index) + " — shipped"
            }
        }
    }
}
)"_s.arg(PrivateViews)
        .arg(FirstTag)
        .toUtf8();
}

// Through the visual tree: a Repeater's delegates are not QObject children of the window.
QQuickItem *findItem(QQuickItem *item, const QString &name)
{
    if (item->objectName() == name)
        return item;
    const auto children = item->childItems();
    for (QQuickItem *child : children) {
        if (QQuickItem *found = findItem(child, name))
            return found;
    }
    return nullptr;
}

// The items of the visual tree from item down, hidden ones included.
int itemCount(const QQuickItem *item)
{
    int count = 1;
    const auto children = item->childItems();
    for (const QQuickItem *child : children)
        count += itemCount(child);
    return count;
}

// The QML window, shown, and the frames its scene graph swapped.
class QmlWindow
{
public:
    bool show(QSize deviceSize)
    {
        QQmlComponent component(&m_engine);
        component.setData(qmlForm(), QUrl());
        m_root.reset(component.create());
        m_window = qobject_cast<QQuickWindow *>(m_root.get());
        if (!m_window) {
            std::fprintf(stderr, "cannot build the QML window: %s\n",
                         qPrintable(component.errorString()));
            return false;
        }
        // Counted where the frame is swapped, the render thread where the render loop has one.
        QObject::connect(
            m_window, &QQuickWindow::frameSwapped, m_window, [this] { ++m_frames; },
            Qt::DirectConnection);
        m_window->resize((QSizeF(deviceSize) / m_window->devicePixelRatio()).toSize());
        m_window->show();
        m_window->requestActivate();
        if (!QTest::qWaitForWindowActive(m_window) || (m_frames == 0 && !waitForFrame())) {
            std::fprintf(stderr, "the QML window never became active and rendered\n");
            return false;
        }
        return true;
    }

    QQuickWindow *window() const { return m_window; }

    // Runs the event loop until the window swaps a frame; false after FrameTimeoutMs.
    bool waitForFrame()
    {
        const int before = m_frames;
        QEventLoop loop;
        const auto swapped =
            QObject::connect(m_window, &QQuickWindow::frameSwapped, &loop, &QEventLoop::quit);
        QTimer::singleShot(FrameTimeoutMs, &loop, &QEventLoop::quit);
        if (m_frames == before)
            loop.exec();
        QObject::disconnect(swapped);
        return m_frames != before;
    }

private:
    QQmlEngine m_engine;
    // Before the engine that built it.
    std::unique_ptr<QObject> m_root;
    QQuickWindow *m_window = nullptr;
    std::atomic<int> m_frames = 0;
};

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

// The sample that a share q of them do not exceed.
double percentileMs(std::vector<qint64> samples, double q)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    const auto index = size_t(std::ceil(q * double(samples.size()))) - 1;
    return double(samples[std::min(index, samples.size() - 1)]) / 1e6;
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

// The ticks of a running monitor while its window shows the same.
struct Unchanged
{
    double ns = 0;
    int ticks = 0;
    int forced = 0;
    int paints = 0;
    // Frames a Qt Quick window swapped meanwhile; -1 for a widget window.
    int frames = -1;
    qsizetype screenshots = 0;
};

struct Figures
{
    // Changed ticks.
    double todayChanged = 0;
    double kitChanged = 0;
    double kitChangedP90 = 0;
    int todaySawChange = 0;
    int kitSawChange = 0;
    // Unchanged ticks.
    double todayUnchanged = 0;
    Unchanged kitUnchanged;
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

// The kit's changed ticks: median and p90, the median of each stage (ms), what they saw.
struct ChangedTicks
{
    double median = 0;
    double p90 = 0;
    double capture = 0;
    double compare = 0;
    double encode = 0;
    qsizetype jpegBytes = 0;
    int sawChange = 0;
    QImage last;
};

struct QmlFigures
{
    QSize deviceSize;
    const char *graphicsApi = "";
    QString backend;
    // Changed ticks.
    double changed = 0;
    double changedP90 = 0;
    int sawChange = 0;
    // Their stages (ms).
    double grab = 0;
    double scale = 0;
    double find = 0;
    double capture = 0;
    double compare = 0;
    double encode = 0;
    qsizetype jpegBytes = 0;
    QImage::Format pixelFormat = QImage::Format_Invalid;
    int privateRects = 0;
    int items = 0;
    // The private fields all black in the last capture, of PrivateViews.
    int privateBlack = 0;
    Unchanged unchanged;
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
        if (!kitUnchangedTicks(window->windowHandle(), figures.kitUnchanged))
            return std::nullopt;
        return figures;
    }

    std::optional<QmlFigures> measure(QmlWindow *qml)
    {
        QQuickWindow *window = qml->window();
        QmlFigures figures;
        figures.deviceSize = (QSizeF(window->size()) * window->devicePixelRatio()).toSize();
        figures.graphicsApi = graphicsApiName(window->rendererInterface()->graphicsApi());
        figures.backend = QQuickWindow::sceneGraphBackend();
        QQuickItem *field = findItem(window->contentItem(), u"field%1"_s.arg(PrivateViews));
        if (!field) {
            std::fprintf(stderr, "the QML form has no field%d\n", PrivateViews);
            return std::nullopt;
        }
        // No text cursor blinking: an idle window renders no frame.
        if (QQuickItem *focus = window->activeFocusItem();
            focus && (focus->flags() & QQuickItem::ItemAcceptsInputMethod))
            window->contentItem()->forceActiveFocus();
        const auto change = [&](int tick) {
            field->setProperty("text", u"Changed %1"_s.arg(tick));
            return qml->waitForFrame();
        };

        const std::optional<ChangedTicks> ticks = changedTicks(window, change);
        if (!ticks) {
            std::fprintf(stderr, "the QML window rendered no frame for a change\n");
            return std::nullopt;
        }
        figures.changed = ticks->median;
        figures.changedP90 = ticks->p90;
        figures.sawChange = ticks->sawChange;
        figures.jpegBytes = ticks->jpegBytes;
        figures.capture = ticks->capture;
        figures.compare = ticks->compare;
        figures.encode = ticks->encode;
        figures.privateBlack = privateFieldsBlack(window, ticks->last);

        // Reading, scaling and finding the private items on their own; the rest of the capture
        // paints them black.
        std::vector<qint64> grab, scale, find;
        for (int tick = 0; tick < WarmUpTicks + Ticks; ++tick) {
            if (!change(tick)) {
                std::fprintf(stderr, "the QML window rendered no frame for a change\n");
                return std::nullopt;
            }
            QElapsedTimer timer;
            timer.start();
            const QImage pixels = window->grabWindow();
            const qint64 t1 = timer.nsecsElapsed();
            const QImage third = ScreenCapture::scaleToThird(pixels);
            const qint64 t2 = timer.nsecsElapsed();
            const QList<QRectF> rects = QuickPrivacy::privateRects(window, m_config, &m_warned);
            const qint64 t3 = timer.nsecsElapsed();
            Q_UNUSED(third);
            if (tick < WarmUpTicks)
                continue;
            figures.pixelFormat = pixels.format();
            figures.privateRects = int(rects.size());
            grab.push_back(t1);
            scale.push_back(t2 - t1);
            find.push_back(t3 - t2);
        }
        figures.grab = medianMs(grab);
        figures.scale = medianMs(scale);
        figures.find = medianMs(find);
        figures.items = itemCount(window->contentItem());

        if (!kitUnchangedTicks(window, figures.unchanged))
            return std::nullopt;
        return figures;
    }

private:
    // The private fields whose every pixel in the screenshot is black; the pixels at their edges,
    // shared with their neighbours, left out.
    static int privateFieldsBlack(QQuickWindow *window, const QImage &shot)
    {
        const QImage image = shot.convertToFormat(QImage::Format_RGB32);
        int black = 0;
        for (int i = 0; i < PrivateViews; ++i) {
            const QQuickItem *field = findItem(window->contentItem(), u"field%1"_s.arg(i));
            if (!field)
                continue;
            const QRect rect =
                ScreenCapture::toThird(window->effectiveDevicePixelRatio(),
                                       field->mapRectToScene(QRectF(QPointF(), field->size())))
                    .adjusted(1, 1, -1, -1) &
                image.rect();
            bool all = !rect.isEmpty();
            for (int y = rect.top(); all && y <= rect.bottom(); ++y) {
                const auto *row = reinterpret_cast<const QRgb *>(image.constScanLine(y));
                for (int x = rect.left(); all && x <= rect.right(); ++x)
                    all = (row[x] & 0xffffffu) == 0;
            }
            black += all;
        }
        return black;
    }

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
        // Widgets always paint what changed.
        const ChangedTicks kit = *changedTicks(window->windowHandle(), [this](int tick) {
            change(tick);
            return true;
        });
        figures.kitChanged = kit.median;
        figures.kitChangedP90 = kit.p90;
        figures.kitSawChange = kit.sawChange;
        figures.kitJpegBytes = kit.jpegBytes;
        figures.capture = kit.capture;
        figures.compare = kit.compare;
        figures.encode = kit.encode;
    }

    // The kit's changed tick, stage by stage, on its screen of both kinds: change(tick) makes
    // window show something new (false when no frame came), then the capture, the comparison
    // with the last image and the JPEG are timed. Empty when a change showed nothing.
    std::optional<ChangedTicks> changedTicks(QWindow *window,
                                             const std::function<bool(int)> &change)
    {
        ChangedTicks ticks;
        std::vector<qint64> capture, compare, encode, total;
        for (int tick = 0; tick < WarmUpTicks + Ticks; ++tick) {
            if (!change(tick))
                return std::nullopt;
            QElapsedTimer timer;
            timer.start();
            const QImage shot = m_transport->platform.capture(window, m_config, &m_warned);
            const qint64 t1 = timer.nsecsElapsed();
            const bool differs = ScreenCapture::differsOutside(ticks.last, shot, QRect());
            const qint64 t2 = timer.nsecsElapsed();
            const QByteArray bytes = ScreenCapture::encodeJpeg(shot);
            const qint64 t3 = timer.nsecsElapsed();
            ticks.last = shot;
            if (tick < WarmUpTicks)
                continue;
            ticks.jpegBytes = bytes.size();
            ticks.sawChange += differs;
            capture.push_back(t1);
            compare.push_back(t2 - t1);
            encode.push_back(t3 - t2);
            total.push_back(t3);
        }
        ticks.median = medianMs(total);
        ticks.p90 = percentileMs(total, 0.9);
        ticks.capture = medianMs(capture);
        ticks.compare = medianMs(compare);
        ticks.encode = medianMs(encode);
        return ticks;
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

    // On a started monitor whose first capture, of window, reached the service.
    bool kitUnchangedTicks(QWindow *window, Unchanged &figures)
    {
        if (m_transport->platform.topWindow() != window) {
            std::fprintf(stderr, "the kit's screen does not take the measured window as the top\n");
            return false;
        }
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
        std::atomic<int> frames = 0;
        QMetaObject::Connection counting;
        if (auto *quick = qobject_cast<QQuickWindow *>(window)) {
            figures.frames = 0;
            counting = QObject::connect(
                quick, &QQuickWindow::frameSwapped, quick, [&frames] { ++frames; },
                Qt::DirectConnection);
        }
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
                ++figures.forced;
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
        QObject::disconnect(counting);
        monitor.stop();
        QApplication::processEvents();

        figures.ns = medianNs(ticks);
        figures.ticks = int(ticks.size());
        figures.paints = counter.paints;
        if (figures.frames >= 0)
            figures.frames = frames;
        figures.screenshots = screenshotsAtService() - screenshots;
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
    const Unchanged &u = f.kitUnchanged;
    const double unchangedMs = u.ns / 1e6;
    std::printf("%-10s %-10s %10.2f %10.4f %9.0fx  %-13s  %s  %.2f us over %d ticks (%d forced "
                "left out); paints %d, screenshots sent %lld\n",
                name.constData(), "unchanged", f.todayUnchanged, unchangedMs,
                f.todayUnchanged / unchangedMs, "<= 0.01 ms",
                unchangedMs <= UnchangedTargetMs ? "met " : "MISS", u.ns / 1e3, u.ticks, u.forced,
                u.paints, static_cast<long long>(u.screenshots));
}

const char *verdict(bool met)
{
    return met ? "met " : "MISS";
}

// The two kinds of window at one size: today's changed tick where there was one, the kit's
// changed tick (median, p90) and unchanged tick (median), against the widgets' targets.
void printSideBySide(const Figures &widgets, const QmlFigures &qml)
{
    const auto name = [](const char *kind, QSize size) {
        return u"%1 %2x%3"_s.arg(QLatin1StringView(kind))
            .arg(size.width())
            .arg(size.height())
            .toLatin1();
    };
    const auto unchangedNotes = [](const Unchanged &u) -> QString {
        QString notes = u"unchanged over %1 ticks (%2 forced left out), paints %3"_s.arg(u.ticks)
                            .arg(u.forced)
                            .arg(u.paints);
        if (u.frames >= 0)
            notes += u", frames swapped %1"_s.arg(u.frames);
        return notes + u", screenshots sent %1"_s.arg(u.screenshots);
    };
    std::printf("%-18s %9s %9s %9s %13s  %-22s  %s\n", "window", "today ms", "kit ms", "p90 ms",
                "unchanged us", "target (changed/unch.)", "notes");
    const Unchanged &w = widgets.kitUnchanged;
    std::printf("%-18s %9.2f %9.3f %9.3f %13.2f  %-12s %4s %4s  changes seen %d/%d; %s\n",
                name("widgets", SideBySide).constData(), widgets.todayChanged, widgets.kitChanged,
                widgets.kitChangedP90, w.ns / 1e3, "1 ms/10 us",
                verdict(widgets.kitChanged <= ChangedTargetMs),
                verdict(w.ns / 1e6 <= UnchangedTargetMs), widgets.kitSawChange, Ticks,
                qPrintable(unchangedNotes(w)));
    const Unchanged &q = qml.unchanged;
    std::printf("%-18s %9s %9.3f %9.3f %13.2f  %-12s %4s %4s  changes seen %d/%d; %s; private "
                "fields black %d/%d\n",
                name("QML", qml.deviceSize).constData(), "-", qml.changed, qml.changedP90,
                q.ns / 1e3, "1 ms/10 us", verdict(qml.changed <= ChangedTargetMs),
                verdict(q.ns / 1e6 <= UnchangedTargetMs), qml.sawChange, Ticks,
                qPrintable(unchangedNotes(q)), qml.privateBlack, PrivateViews);
    const auto size = name("QML", qml.deviceSize);
    std::printf("%-18s kit:   grabWindow %6.3f  scale %6.3f  find private %6.3f  paint black "
                "%6.3f  compare %6.3f  encode %6.3f  (ms; %lld B JPEG; pixels in QImage format "
                "%d; %d private rectangles among %d items)\n",
                size.constData(), qml.grab, qml.scale, qml.find,
                std::max(0.0, qml.capture - qml.grab - qml.scale - qml.find), qml.compare,
                qml.encode, static_cast<long long>(qml.jpegBytes), int(qml.pixelFormat),
                qml.privateRects, qml.items);
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

    const QList<QSize> sizes{QSize(800, 600), SideBySide, QSize(1920, 1080)};
    QList<Figures> results;
    Bench runner(&bench, &transport);
    for (const QSize size : sizes) {
        const auto figures = runner.measure(size);
        if (!figures)
            return 1;
        results.append(*figures);
    }
    // Once the widget windows are gone, so that the kit's screen takes the QML one as the top.
    QmlWindow qml;
    if (!qml.show(SideBySide))
        return 1;
    const auto qmlFigures = runner.measure(&qml);
    if (!qmlFigures)
        return 1;

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

    std::printf("\nWidgets and QML at %dx%d device pixels, on the kit's screen of both kinds "
                "(Screens: WidgetScreen + QuickScreen); median of %d changed ticks, p90, median "
                "of the unchanged ones; QML on \"%s\", scene graph: %s (backend \"%s\"); no "
                "baseline for QML: today's monitor saw widget windows only\n",
                SideBySide.width(), SideBySide.height(), Ticks,
                qPrintable(QGuiApplication::platformName()), qmlFigures->graphicsApi,
                qPrintable(qmlFigures->backend));
    printSideBySide(results[sizes.indexOf(SideBySide)], *qmlFigures);
    transport.sender.stop();
    return 0;
}
