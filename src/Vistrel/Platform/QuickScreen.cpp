#include "Platform/QuickScreen.h"

#include "Core/Log.h"
#include "Monitoring/ScreenCapture.h"
#include "Platform/QuickCoBrowseView.h"
#include "Platform/QuickOptInQuestion.h"
#include "Quick/QuickClick.h"
#include "Quick/QuickImageOverlay.h"
#include "Quick/QuickViewUtils.h"

#include <QInputMethodQueryEvent>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
QQuickWindow *quick(QWindow *window)
{
    return qobject_cast<QQuickWindow *>(window);
}

const char *const PanelName = "vistrelCoBrowsePanel";
} // namespace

QuickScreen::QuickScreen(QObject *parent)
    : ScreenPlatform(parent)
    , m_frames(std::make_shared<std::atomic<quint64>>(0))
{
    connect(&m_taps, &QuickTapWatcher::tapped, this, &ScreenPlatform::tapped);
}

QuickScreen::~QuickScreen()
{
    QObject::disconnect(m_frameConnection);
}

QWindow *QuickScreen::topWindow() const
{
    return QuickViewUtils::topWindow();
}

QString QuickScreen::viewName(QWindow *window) const
{
    QQuickWindow *view = quick(window);
    return view ? QuickViewUtils::viewName(view) : QString();
}

QImage QuickScreen::capture(QWindow *window, const std::optional<IOSConfig> &config,
                            QSet<QString> *warned)
{
    QQuickWindow *view = quick(window);
    return view ? ScreenCapture::capture(view, config, warned) : QImage();
}

ScreenPlatform::Caret QuickScreen::caret(QWindow *window) const
{
    QQuickWindow *view = quick(window);
    QQuickItem *focus = view ? view->activeFocusItem() : nullptr;
    if (!focus || !(focus->flags() & QQuickItem::ItemAcceptsInputMethod))
        return {};
    const QRectF cursor = focus->inputMethodQuery(Qt::ImCursorRectangle).toRectF();
    if (cursor.isEmpty())
        return {};
    // A pixel more all round: the scaled pixels at the cursor's edges mix it with its neighbours.
    const QRect rect =
        ScreenCapture::toThird(view->effectiveDevicePixelRatio(), focus->mapRectToScene(cursor))
            .adjusted(-1, -1, 1, 1);
    const size_t text = qHashMulti(0, focus->inputMethodQuery(Qt::ImSurroundingText).toString(),
                                   focus->inputMethodQuery(Qt::ImCursorPosition).toInt(),
                                   focus->inputMethodQuery(Qt::ImAnchorPosition).toInt());
    return {focus, rect, text};
}

void QuickScreen::startWatching()
{
    m_forceChange = true;
}

void QuickScreen::stopWatching()
{
    QObject::disconnect(m_frameConnection);
    m_counted.clear();
}

bool QuickScreen::takeChanged(QWindow *window)
{
    QQuickWindow *view = quick(window);
    if (view != m_counted) {
        QObject::disconnect(m_frameConnection);
        m_counted = view;
        m_forceChange = true;
        // Swapped on the render thread: only the counter is touched there. The kit's own
        // grabWindow() swaps nothing, so it is no change.
        if (view)
            m_frameConnection = connect(
                view, &QQuickWindow::frameSwapped, view,
                [frames = m_frames] { frames->fetch_add(1, std::memory_order_relaxed); },
                Qt::DirectConnection);
    }
    const quint64 frames = m_frames->load(std::memory_order_relaxed);
    const bool changed = std::exchange(m_forceChange, false) || frames != m_seenFrames;
    m_seenFrames = frames;
    return changed;
}

void QuickScreen::watchTaps(QWindow *window)
{
    m_taps.watch(quick(window));
}

bool QuickScreen::tap(QWindow *window, const QPointF &devicePixels)
{
    QQuickWindow *view = quick(window);
    return view && QuickClick::tap(view, devicePixels);
}

QObject *QuickScreen::showDrawing(QWindow *window, const QImage &image)
{
    QQuickWindow *view = quick(window);
    return view ? new QuickImageOverlay(image, view) : nullptr;
}

void QuickScreen::removeOverlay(QObject *overlay)
{
    QuickViewUtils::removeFromWindow(qobject_cast<QQuickItem *>(overlay));
}

QObject *QuickScreen::askOptIn(QWindow *window, const OptInTexts &texts,
                               std::function<void(bool)> answered)
{
    QQuickWindow *view = quick(window);
    QQuickItem *dialog = view ? createItem(view, u"OptInDialog"_s,
                                           {{u"title"_s, texts.title.value_or(QString())},
                                            {u"message"_s, texts.message.value_or(QString())},
                                            {u"acceptText"_s, texts.accept},
                                            {u"declineText"_s, texts.decline}})
                              : nullptr;
    if (!dialog) {
        answered(false);
        return nullptr;
    }
    // Return and Escape answer it, as a dialog's keys do.
    dialog->forceActiveFocus();
    return new QuickOptInQuestion(dialog, std::move(answered));
}

void QuickScreen::withdrawOptIn(QObject *question)
{
    if (auto *open = qobject_cast<QuickOptInQuestion *>(question))
        open->decline();
}

bool QuickScreen::hasCoBrowseView(QWindow *window) const
{
    QQuickWindow *view = quick(window);
    if (!view)
        return false;
    const QList<QQuickItem *> items = view->contentItem()->childItems();
    return std::any_of(items.cbegin(), items.cend(), [](const QQuickItem *item) {
        return item->objectName() == QLatin1StringView(PanelName);
    });
}

CoBrowseView *QuickScreen::showCoBrowseView(QWindow *window)
{
    QQuickWindow *view = quick(window);
    QQuickItem *panel = view ? createItem(view, u"CoBrowsePanel"_s, {}) : nullptr;
    return panel ? new QuickCoBrowseView(panel) : nullptr;
}

QQuickItem *QuickScreen::createItem(QQuickWindow *window, const QString &name,
                                    const QVariantMap &properties)
{
    QQmlEngine *engine = engineFor(window);
    QQmlComponent component(engine, QUrl(u"qrc:/vistrel/qml/"_s + name + u".qml"_s));
    QObject *object = component.isReady() ? component.beginCreate(engine->rootContext()) : nullptr;
    auto *item = qobject_cast<QQuickItem *>(object);
    if (!item) {
        delete object;
        Log::error(u"Cannot build the "_s + name + u" item: "_s + component.errorString());
        return nullptr;
    }
    for (auto property = properties.cbegin(); property != properties.cend(); ++property)
        item->setProperty(property.key().toUtf8().constData(), property.value());
    // Parented before its bindings run, so that it fills its window from the first frame.
    item->setParentItem(window->contentItem());
    item->setParent(window->contentItem());
    component.completeCreate();
    // The kit removes it; the engine's garbage collector must not.
    QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
    return item;
}

QQmlEngine *QuickScreen::engineFor(QQuickWindow *window)
{
    // The engine that built the window (an ApplicationWindow) or its content knows the app's
    // import paths; the kit's QML needs only QtQuick.
    if (QQmlEngine *engine = qmlEngine(window))
        return engine;
    const QList<QQuickItem *> items = window->contentItem()->childItems();
    for (QQuickItem *item : items) {
        if (QQmlEngine *engine = qmlEngine(item))
            return engine;
    }
    if (!m_engine)
        m_engine = std::make_unique<QQmlEngine>();
    return m_engine.get();
}

} // namespace VistrelKit
