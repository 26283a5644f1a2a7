#pragma once

#include "Monitoring/ViewMonitor.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Session/BidirectionalMessageHandler.h"
#include "TransportFixture.h"

#include <QApplication>
#include <QBuffer>
#include <QImageReader>
#include <QTest>

#include <functional>

/// A transport fixture with a running XHR sender whose replies go to the real command handler, a
/// view monitor, and readers for the reports the service decoded. A suite builds its widgets in
/// screen, then calls showWindow().
struct CaptureFixture : TransportFixture
{
    CaptureFixture()
        : commandHandler(config.get(), nullptr, nullptr, nullptr, &platform)
        , sender(config.get(), initSender.get(), api.get(), http.get(), &commandParser, &platform)
        , monitor(config.get(), &platform)
    {
        QObject::connect(&commandParser, &VistrelKit::BidirectionalMessageParser::messageReceived,
                         &commandHandler, &VistrelKit::BidirectionalMessageHandler::handle);
        // The offscreen platform does not activate a window shown twice: the base's window goes
        // away for good, once its activation was seen.
        if (!QTest::qWaitForWindowActive(&window))
            qWarning("The window never became active");
        window.hide();
        if (!QTest::qWaitFor([] { return QApplication::activeWindow() == nullptr; }))
            qWarning("The hidden window is still active");
        screen.resize(320, 240);
        sender.start(QStringLiteral("Main"), nullptr, nullptr);
    }

    bool showWindow()
    {
        screen.show();
        return QTest::qWaitForWindowActive(&screen);
    }

    /// Starts the monitor; the completion's error text, empty on success.
    QString startMonitor()
    {
        auto result = std::make_shared<std::optional<QString>>();
        monitor.start(&sender, [result](const std::optional<VistrelKit::Error> &error) {
            *result = error ? error->stringError()->message() : QString();
        });
        return QTest::qWaitFor([result] { return result->has_value(); }, 20000)
                   ? **result
                   : QStringLiteral("none");
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

    /// The visit's other reports in order, as "click x,y", "page name" and "tag text".
    QStringList events() const
    {
        QStringList result;
        for (const auto &report : reports()) {
            const VistrelKit::ProtoMessage &m = report.message;
            for (const auto &click : m.clickevent())
                result.append(QStringLiteral("click %1,%2").arg(click.x()).arg(click.y()));
            if (m.has_pagechange())
                result.append(QStringLiteral("page ") + QString::fromStdString(m.pagechange()));
            if (m.has_tag())
                result.append(QStringLiteral("tag ") + QString::fromStdString(m.tag()));
        }
        return result;
    }

    /// Reports arrive in order: once this tag arrived, every report made before it has too,
    /// which is how a suite shows that something was not sent. A report queued while a post is
    /// under way is dropped with it, so the tag goes again until it arrives; and a suite keeps
    /// the screen still while it waits for a report.
    bool flushReports(const QString &tag)
    {
        for (int attempt = 0; attempt < 5; ++attempt) {
            sender.sendTag(tag, startTime(), [](const std::optional<VistrelKit::Error> &) {});
            if (waitForDelivery([&] { return events().contains(QStringLiteral("tag ") + tag); },
                                5000))
                return true;
        }
        return false;
    }

    bool waitForScreenshots(qsizetype count)
    {
        return waitForDelivery([this, count] { return screenshots().size() >= count; });
    }

    /// Until the service saw what condition asks for and the device has the reply to that post,
    /// so that the next report is not dropped with it.
    bool waitForDelivery(const std::function<bool()> &condition, int timeoutMs = 20000)
    {
        return service.waitFor([&] { return condition() && sender.queueSize() == 0; }, timeoutMs);
    }

    /// A screenshot as the agent sees it; a null image unless the bytes are a JPEG.
    static QImage decodeJpeg(QByteArray bytes)
    {
        QBuffer buffer(&bytes);
        QImageReader reader(&buffer);
        return reader.format() == "jpeg" ? reader.read() : QImage();
    }

    VistrelKit::BidirectionalMessageHandler commandHandler;
    VistrelKit::BidirectionalMessageParser commandParser;
    VistrelKit::XhrMessageSender sender;
    VistrelKit::ViewMonitor monitor;
    QWidget screen;
};
