// Main-thread cost of reading a Qt Quick window's pixels, four ways, for a 1280×800 (device
// pixels) form built from inline QML: a background, a few text fields and buttons, a list of 30
// rows of text. Qt Quick apps have no widget backing store for the kit to read, so each way is
// timed on a frame the app has just rendered (a text field's text set, the frame swapped before
// the clock starts, as the app would have done anyway) and on a window that did not change since
// the last read. Every way's pixels are checked against QQuickWindow::grabWindow()'s.
//
//  1. QQuickWindow::grabWindow().
//  2. A copy taken inside the scene graph's own frame. With the RHI backends that is a readback
//     of the swap chain, which needs QRhi: private API in Qt 6.4. Under the software adaptation
//     it is a copy of the backing store the frame was painted into, made at frameSwapped; its
//     cost falls on every frame the app renders, whether or not a tick reads it. grabWindow()
//     called from afterRendering renders the frame a second time from inside the first and
//     leaves a grabWindow() of the app's own with an empty image, so that variant is not run.
//  3. QQuickRenderControl: not run. It renders a scene built in a QQuickWindow made for it, and
//     the kit captures the app's own window; 1 works on every backend.
//  4. The software adaptation's backing store, read in place like the widgets' one: a view of
//     the image the scene graph paints into, valid until the next frame. Qt keeps that backing
//     store out of the public API; the painter the software renderer paints with is public
//     (QSGRendererInterface::PainterResource, while a QSGRenderNode renders), so a 1×1 render
//     node that paints nothing learns where the image is whenever its pixel is repainted, which
//     includes every full repaint (first frame, resize, expose). Beside it, QScreen::grabWindow(),
//     which on the offscreen platform copies that same backing store.
//
// Also printed: what tells a tick that nothing changed. frameSwapped fires once per frame the app
// renders and not for grabWindow()'s own render, which does fire afterRendering and
// afterFrameEnd; an idle window renders no frame at all, unless a focused text field blinks.
#include "GraphicsApiName.h"
#include "Monitoring/ScreenCapture.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QPainter>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSGRenderNode>
#include <QSGRendererInterface>
#include <QScreen>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
constexpr int WarmUpReads = 5;
constexpr int Reads = 60;
constexpr QSize DeviceSize(1280, 800);
constexpr int IdleMs = 1500;
constexpr int FrameTimeoutMs = 2000;

// An ordinary business screen: a form beside a list.
const QByteArray Form = R"(
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

ApplicationWindow {
    title: "Orders"
    Rectangle {
        anchors.fill: parent
        color: "#f4f5f7"
    }
    RowLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 16
        ColumnLayout {
            Layout.preferredWidth: 380
            Layout.alignment: Qt.AlignTop
            spacing: 8
            Label {
                text: "Customer"
                font.bold: true
                font.pixelSize: 18
            }
            Repeater {
                model: ["Name", "Email", "Phone", "Street", "City"]
                TextField {
                    objectName: "field" + index
                    Layout.fillWidth: true
                    placeholderText: modelData
                    text: modelData + " of the customer"
                }
            }
            CheckBox { text: "Subscribe to the newsletter" }
            RowLayout {
                Button { text: "Save" }
                Button { text: "Cancel" }
            }
        }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: 30
            delegate: Rectangle {
                width: ListView.view.width
                height: 44
                color: index % 2 ? "white" : "#eef1f5"
                Text {
                    x: 12
                    anchors.verticalCenter: parent.verticalCenter
                    text: "Order #" + (1000 + index) + " — shipped to customer " + (index * 37 % 101)
                }
                Text {
                    anchors.right: parent.right
                    anchors.rightMargin: 12
                    anchors.verticalCenter: parent.verticalCenter
                    text: (index * 12.5 + 3.99).toFixed(2) + " EUR"
                    color: "#555"
                }
            }
        }
    }
}
)"_ba;

// Where the software adaptation paints the window: a read-only view of its backing store.
struct BackingStoreView
{
    QImage image;
    int learnt = 0;
};

// Paints nothing; reads the painter the software renderer paints the window with.
class ProbeNode : public QSGRenderNode
{
public:
    ProbeNode(QQuickWindow *window, BackingStoreView *view)
        : m_window(window)
        , m_view(view)
    {}

    void render(const RenderState *) override
    {
        const auto *painter = static_cast<QPainter *>(m_window->rendererInterface()->getResource(
            m_window, QSGRendererInterface::PainterResource));
        if (!painter || !painter->device() || painter->device()->devType() != QInternal::Image)
            return;
        const auto *store = static_cast<const QImage *>(painter->device());
        // constBits(): a read must not detach the scene graph's own image.
        m_view->image = QImage(store->constBits(), store->width(), store->height(),
                               store->bytesPerLine(), store->format());
        m_view->image.setDevicePixelRatio(store->devicePixelRatio());
        ++m_view->learnt;
    }

    // One pixel: the software renderer keeps its partial updates.
    RenderingFlags flags() const override { return BoundedRectRendering; }
    QRectF rect() const override { return QRectF(0, 0, 1, 1); }

private:
    QQuickWindow *m_window;
    BackingStoreView *m_view;
};

class Probe : public QQuickItem
{
public:
    Probe(QQuickItem *parent, BackingStoreView *view)
        : QQuickItem(parent)
        , m_view(view)
    {
        setFlag(ItemHasContents);
        setSize(QSizeF(1, 1));
        setZ(1e9);
    }

protected:
    QSGNode *updatePaintNode(QSGNode *node, UpdatePaintNodeData *) override
    {
        return node ? node : new ProbeNode(window(), m_view);
    }

private:
    BackingStoreView *m_view;
};

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

struct Stats
{
    double median = 0;
    double p90 = 0;
};

Stats stats(std::vector<qint64> samples)
{
    if (samples.empty())
        return {};
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double q) {
        const auto index = size_t(std::ceil(q * double(samples.size()))) - 1;
        return double(samples[std::min(index, samples.size() - 1)]) / 1e6;
    };
    return {at(0.5), at(0.9)};
}

// Pixels that differ between a and b as opaque RGB; -1 when the sizes differ.
qint64 differingPixels(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return -1;
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    qint64 count = 0;
    for (int row = 0; row < x.height(); ++row) {
        const auto *p = reinterpret_cast<const QRgb *>(x.constScanLine(row));
        const auto *q = reinterpret_cast<const QRgb *>(y.constScanLine(row));
        for (int col = 0; col < x.width(); ++col)
            count += (p[col] & 0xffffffu) != (q[col] & 0xffffffu);
    }
    return count;
}

struct Method
{
    const char *name;
    // The pixels at this tick. For the frame copy, taken at the last frame.
    std::function<QImage()> read;
    // Why it cannot run here; empty when it can.
    QString unavailable;
    // Work it does at each frame the app renders, connected while it is measured.
    std::function<void(QQuickWindow *)> attach;
    std::function<void()> detach;
};

struct Figures
{
    Stats changed;
    Stats unchanged;
    // The changed read, then the pipeline's next steps: a third of the size, JPEG.
    Stats tick;
    Stats perFrame;
    bool hasPerFrame = false;
    int changesSeen = 0;
    int framesWhileUnchanged = 0;
    qint64 differing = 0;
    QImage::Format format = QImage::Format_Invalid;
    QSize size;
    QSize referenceSize;
};

class Bench
{
public:
    explicit Bench(QQuickWindow *window)
        : m_window(window)
    {
        QObject::connect(
            window, &QQuickWindow::frameSwapped, window, [this] { ++m_frames; },
            Qt::DirectConnection);
        QObject::connect(
            window, &QQuickWindow::afterRendering, window, [this] { ++m_renders; },
            Qt::DirectConnection);
        QObject::connect(
            window, &QQuickWindow::beforeFrameBegin, window, [this] { m_frameClock.start(); },
            Qt::DirectConnection);
        QObject::connect(
            window, &QQuickWindow::afterFrameEnd, window,
            [this] { m_lastFrameNs = m_frameClock.nsecsElapsed(); }, Qt::DirectConnection);
    }

    int frames() const { return m_frames; }
    int renders() const { return m_renders; }

    // Runs the event loop until the app swaps a frame; false after FrameTimeoutMs.
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

    // Runs the event loop for ms; the frames swapped meanwhile.
    int idle(int ms)
    {
        const int before = m_frames;
        QEventLoop loop;
        QTimer::singleShot(ms, &loop, &QEventLoop::quit);
        loop.exec();
        return m_frames - before;
    }

    void change(int tick) { m_field->setProperty("text", u"Changed %1"_s.arg(tick)); }

    bool setUp()
    {
        m_field = findItem(m_window->contentItem(), u"field2"_s);
        return m_field != nullptr;
    }

    QQuickItem *field() const { return m_field; }

    std::optional<Figures> measure(const Method &method, std::vector<qint64> *appFrames)
    {
        Figures figures;
        m_perFrameNs.clear();
        if (method.attach)
            method.attach(m_window);
        std::vector<qint64> changed, unchanged, ticks;
        QImage previous;
        for (int tick = 0; tick < WarmUpReads + Reads; ++tick) {
            change(tick);
            m_lastCopyNs = 0;
            if (!waitForFrame()) {
                std::fprintf(stderr, "%s: the app rendered no frame for a change\n", method.name);
                return std::nullopt;
            }
            // Before the read: grabWindow() renders a frame of its own.
            const qint64 appFrame = m_lastFrameNs;
            QElapsedTimer timer;
            timer.start();
            const QImage image = method.read();
            const qint64 elapsed = timer.nsecsElapsed();
            const QByteArray jpeg = ScreenCapture::encodeJpeg(ScreenCapture::scaleToThird(image));
            const qint64 pipeline = timer.nsecsElapsed();
            Q_UNUSED(jpeg);
            if (tick < WarmUpReads) {
                previous = image.copy();
                continue;
            }
            if (appFrames)
                appFrames->push_back(appFrame);
            changed.push_back(elapsed + m_lastCopyNs);
            ticks.push_back(pipeline + m_lastCopyNs);
            figures.changesSeen += differingPixels(previous, image) != 0;
            previous = image.copy();
        }
        const int framesBefore = m_frames;
        for (int tick = 0; tick < WarmUpReads + Reads; ++tick) {
            QCoreApplication::processEvents();
            QElapsedTimer timer;
            timer.start();
            const QImage image = method.read();
            const qint64 elapsed = timer.nsecsElapsed();
            if (tick >= WarmUpReads)
                unchanged.push_back(elapsed);
            previous = image.copy();
        }
        figures.framesWhileUnchanged = m_frames - framesBefore;
        if (method.detach)
            method.detach();
        const QImage reference = m_window->grabWindow();
        figures.format = previous.format();
        figures.size = previous.size();
        figures.referenceSize = reference.size();
        figures.differing = differingPixels(previous, reference);
        figures.changed = stats(changed);
        figures.unchanged = stats(unchanged);
        figures.tick = stats(ticks);
        if (!m_perFrameNs.empty()) {
            figures.perFrame = stats(m_perFrameNs);
            figures.hasPerFrame = true;
        }
        return figures;
    }

    // For the frame copy: what its handler cost at the frame just swapped, and at every frame.
    void recordCopy(qint64 ns)
    {
        m_lastCopyNs = ns;
        m_perFrameNs.push_back(ns);
    }

private:
    QQuickWindow *m_window;
    QQuickItem *m_field = nullptr;
    // Counted on the render thread where the render loop has one.
    std::atomic<int> m_frames = 0;
    std::atomic<int> m_renders = 0;
    QElapsedTimer m_frameClock;
    std::atomic<qint64> m_lastFrameNs = 0;
    qint64 m_lastCopyNs = 0;
    std::vector<qint64> m_perFrameNs;
};

QString pixelsNote(const Figures &f, bool reference)
{
    if (reference)
        return u"the reference"_s;
    if (f.differing < 0)
        return u"DIFFER: %1x%2, not %3x%4"_s.arg(f.size.width())
            .arg(f.size.height())
            .arg(f.referenceSize.width())
            .arg(f.referenceSize.height());
    if (f.differing == 0)
        return u"identical"_s;
    return u"%1 pixels DIFFER"_s.arg(f.differing);
}
} // namespace

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(Form, QUrl());
    std::unique_ptr<QObject> root(component.create());
    auto *window = qobject_cast<QQuickWindow *>(root.get());
    if (!window) {
        std::fprintf(stderr, "cannot build the window: %s\n", qPrintable(component.errorString()));
        return 1;
    }
    const qreal dpr = window->screen() ? window->screen()->devicePixelRatio() : 1.0;
    window->resize((QSizeF(DeviceSize) / dpr).toSize());

    BackingStoreView view;
    new Probe(window->contentItem(), &view);
    Bench bench(window);
    if (!bench.setUp()) {
        std::fprintf(stderr, "the form has no field2\n");
        return 1;
    }
    window->show();
    if (!bench.waitForFrame()) {
        std::fprintf(stderr, "the window never rendered\n");
        return 1;
    }
    bench.idle(200);

    const auto api = window->rendererInterface()->graphicsApi();
    const bool software = api == QSGRendererInterface::Software;
    const QSize deviceSize = (QSizeF(window->size()) * window->devicePixelRatio()).toSize();

    // In place: the view, while it still matches the window (a resize repaints it all, which
    // renders the probe again).
    const auto inPlace = [&]() -> QImage {
        if (view.image.size() != deviceSize)
            return window->grabWindow();
        return view.image;
    };
    QImage frameCopy;
    QMetaObject::Connection copying;

    const QString noPainter = u"needs the software adaptation; this window renders with %1"_s.arg(
        QString::fromLatin1(graphicsApiName(api)));
    std::vector<Method> methods;
    methods.push_back({"1  grabWindow()", [&] { return window->grabWindow(); }, {}, {}, {}});
    methods.push_back({"2  copy at frameSwapped", [&] { return frameCopy; },
                       software ? QString() : noPainter,
                       [&](QQuickWindow *w) {
                           copying = QObject::connect(
                               w, &QQuickWindow::frameSwapped, w,
                               [&] {
                                   if (view.image.size() != deviceSize)
                                       return;
                                   QElapsedTimer timer;
                                   timer.start();
                                   frameCopy = view.image.copy();
                                   bench.recordCopy(timer.nsecsElapsed());
                               },
                               Qt::DirectConnection);
                       },
                       [&] { QObject::disconnect(copying); }});
    methods.push_back({"3  QQuickRenderControl",
                       {},
                       u"renders a scene built for it, not the app's window; 1 works"_s,
                       {},
                       {}});
    methods.push_back(
        {"4a backing store in place", inPlace, software ? QString() : noPainter, {}, {}});
    methods.push_back({"4b QScreen::grabWindow()",
                       [&] { return window->screen()->grabWindow(window->winId()).toImage(); },
                       {},
                       {},
                       {}});

    std::printf("Qt Quick window %dx%d device pixels (device pixel ratio %.2f) on \"%s\"; scene "
                "graph: %s; backing store found by the probe: %s (probe rendered %d times)\n",
                deviceSize.width(), deviceSize.height(), window->devicePixelRatio(),
                qPrintable(QGuiApplication::platformName()), graphicsApiName(api),
                view.image.isNull() ? "no" : "yes", view.learnt);
    std::printf("Reads on the main thread, ms: %d after a change the app rendered, %d with "
                "nothing changed, each after %d of warm-up\n\n",
                Reads, Reads, WarmUpReads);
    std::printf("%-28s %9s %9s %11s %9s  %-10s %s\n", "method", "changed", "p90", "unchanged",
                "p90", "pixels", "notes");

    std::vector<qint64> appFrames;
    for (const Method &method : methods) {
        if (!method.unavailable.isEmpty()) {
            std::printf("%-28s %9s %9s %11s %9s  %-10s not run: %s\n", method.name, "-", "-", "-",
                        "-", "-", qPrintable(method.unavailable));
            continue;
        }
        const bool reference = &method == &methods.front();
        // The app's frames are timed where the method adds nothing to them.
        const auto figures = bench.measure(method, method.attach ? nullptr : &appFrames);
        if (!figures)
            return 1;
        QString notes =
            u"changed read + third + JPEG %1 ms (p90 %2); changes seen %3/%4, "
            "frames while unchanged %5, format %6"_s.arg(figures->tick.median, 0, 'f', 3)
                .arg(figures->tick.p90, 0, 'f', 3)
                .arg(figures->changesSeen)
                .arg(Reads)
                .arg(figures->framesWhileUnchanged)
                .arg(int(figures->format));
        if (figures->hasPerFrame)
            notes += u"; at every frame the app renders: %1 ms (p90 %2), counted in \"changed\""_s
                         .arg(figures->perFrame.median, 0, 'f', 3)
                         .arg(figures->perFrame.p90, 0, 'f', 3);
        std::printf("%-28s %9.4f %9.4f %11.4f %9.4f  %-10s %s\n", method.name,
                    figures->changed.median, figures->changed.p90, figures->unchanged.median,
                    figures->unchanged.p90, qPrintable(pixelsNote(*figures, reference)),
                    qPrintable(notes));
    }

    // Context: the app's own frame for the same change, and the next stage of the pipeline.
    const Stats frame = stats(appFrames);
    std::vector<qint64> scaling;
    for (int i = 0; i < Reads; ++i) {
        const QImage pixels = inPlace();
        QElapsedTimer timer;
        timer.start();
        const QImage third = ScreenCapture::scaleToThird(pixels);
        scaling.push_back(timer.nsecsElapsed());
        Q_UNUSED(third);
    }
    const Stats scale = stats(scaling);
    std::printf("\nThe app's own frame for that change (beforeFrameBegin to afterFrameEnd): %.3f "
                "ms (p90 %.3f); ScreenCapture::scaleToThird of the pixels: %.3f ms (p90 %.3f)\n",
                frame.median, frame.p90, scale.median, scale.p90);

    // What tells a tick that nothing changed.
    const int rendersBefore = bench.renders();
    const int framesBefore = bench.frames();
    const QImage grabbed = window->grabWindow();
    std::printf("One grabWindow(): afterRendering %d, frameSwapped %d (frameSwapped counts the "
                "app's frames only)\n",
                bench.renders() - rendersBefore, bench.frames() - framesBefore);
    std::vector<qint64> checks;
    int seen = bench.frames();
    for (int i = 0; i < Reads; ++i) {
        QElapsedTimer timer;
        timer.start();
        const bool changed = bench.frames() != seen;
        seen = bench.frames();
        checks.push_back(timer.nsecsElapsed());
        Q_UNUSED(changed);
    }
    const Stats check = stats(checks);
    const int idleFrames = bench.idle(IdleMs);
    bench.field()->forceActiveFocus();
    bench.idle(100);
    const int focusedFrames = bench.idle(IdleMs);
    std::printf("Nothing-changed check (a frameSwapped count compared, the clock's own cost "
                "included): %.1f ns (p90 %.1f); "
                "frames over %d ms idle: %d; with a focused text field: %d (window active: "
                "%s)\n",
                check.median * 1e6, check.p90 * 1e6, IdleMs, idleFrames, focusedFrames,
                window->isActive() ? "yes" : "no");
    Q_UNUSED(grabbed);
    // Before the bench and the probe's view it reports to.
    root.reset();
    return 0;
}
