#pragma once

#include "Network/Bidirectional/BidirectionalMessageHandler.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "TransportFixture.h"

#include <QApplication>
#include <QBuffer>
#include <QImageReader>
#include <QPointF>
#include <QTest>

#include <functional>

/// A transport fixture with a running XHR sender whose replies go to the real command handler,
/// and readers for the reports the service decoded. No window is shown at first: a suite builds
/// its widgets in screen, then calls showWindow().
struct CaptureFixture : TransportFixture
{
    CaptureFixture()
        : commandHandler(config.get(), nullptr)
        , commandParser(&commandHandler)
        , sender(config.get(), initSender.get(), api.get(), http.get(), &commandParser)
    {
        // A window shown twice is not made active again on the offscreen platform: the base's
        // window goes away for good (once its activation has been seen, or a hidden window would
        // be the active one), and the suite shows its own.
        if (!QTest::qWaitForWindowActive(&window))
            qWarning("The window never became active");
        window.hide();
        if (!QTest::qWaitFor([] { return QApplication::activeWindow() == nullptr; }))
            qWarning("The hidden window is still active");
        screen.setObjectName(QStringLiteral("screen"));
        screen.resize(320, 240);
        sender.start(QStringLiteral("Main"), nullptr, nullptr);
    }

    bool showWindow()
    {
        screen.show();
        return QTest::qWaitForWindowActive(&screen);
    }

    QList<VistrelService::Report> reports() const
    {
        const VistrelService::Visit *visit = service.visit(visitId());
        return visit ? visit->reports() : QList<VistrelService::Report>();
    }

    QList<QByteArray> screenshots() const
    {
        QList<QByteArray> result;
        for (const auto &report : reports()) {
            for (const auto &event : report.message.screenshotevent())
                result.append(QByteArray::fromStdString(event.image()));
        }
        return result;
    }

    QList<QPointF> clicks() const
    {
        QList<QPointF> result;
        for (const auto &report : reports()) {
            for (const auto &event : report.message.clickevent())
                result.append(QPointF(event.x(), event.y()));
        }
        return result;
    }

    QStringList pageChanges() const
    {
        QStringList result;
        for (const auto &report : reports()) {
            if (report.message.has_pagechange())
                result.append(QString::fromStdString(report.message.pagechange()));
        }
        return result;
    }

    bool hasTag(const QString &tag) const
    {
        for (const auto &report : reports()) {
            if (report.message.has_tag() && QString::fromStdString(report.message.tag()) == tag)
                return true;
        }
        return false;
    }

    /// Reports go out in the order they were made: once this tag arrived, every report made
    /// before it has arrived too. That is how a suite shows that something was not sent.
    /// Reports queued while a post is under way are dropped with it (each post starts from an
    /// empty queue), so the tag is sent again until it arrives. The same rule is why suites keep
    /// the screen still while they wait for a report: a screenshot's post could swallow it.
    bool flushReports(const QString &tag)
    {
        for (int attempt = 0; attempt < 5; ++attempt) {
            sender.sendTag(tag, startTime(), [](const std::optional<VistrelKit::Error> &) {});
            if (waitForDelivery([this, tag] { return hasTag(tag); }, 1000))
                return true;
        }
        return false;
    }

    bool waitForScreenshots(qsizetype count)
    {
        return waitForDelivery([this, count] { return screenshots().size() >= count; });
    }

    /// Until the service saw what condition asks for and the device has the reply to that post
    /// (its queue is emptied only then), so that the next report is not dropped with it.
    bool waitForDelivery(const std::function<bool()> &condition, int timeoutMs = 5000)
    {
        return service.waitFor([this, condition] { return condition() && sender.queueSize() == 0; },
                               timeoutMs);
    }

    /// A screenshot as the agent sees it; a null image unless the bytes are a JPEG.
    static QImage decodeJpeg(const QByteArray &bytes)
    {
        QBuffer buffer;
        buffer.setData(bytes);
        QImageReader reader(&buffer);
        if (reader.format() != "jpeg")
            return QImage();
        return reader.read();
    }

    VistrelKit::BidirectionalMessageHandler commandHandler;
    VistrelKit::BidirectionalMessageParser commandParser;
    VistrelKit::XhrMessageSender sender;
    QWidget screen;
};
