#pragma once

#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "BenchService.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"

#include <QTest>

#include <cstdio>

/// The kit's real HTTP transport on a fresh visit of the bench's local service.
struct BenchTransport
{
    explicit BenchTransport(BenchService *bench)
        : http(&wrapper)
        , api(&http, &bench->host)
        , initSender(&wrapper, &api)
        , sender(&wrapper, &initSender, &api, &http, &parser)
    {}

    /// Starts the report channel on a new visit; false, with a line on stderr, when it never
    /// opens.
    bool open()
    {
        VistrelKit::ApplicationConfig &config = wrapper.config();
        config.tenantId = QStringLiteral("tenant");
        wrapper.newVisit(std::nullopt);
        config.vistrelConfig.newShareIdAndStartTime();
        config.vistrelConfig.storageType = QStringLiteral("l");
        sender.start(QStringLiteral("Main"), nullptr, nullptr);
        if (QTest::qWaitFor([this] { return sender.currentInterval() > 0; }, 10000))
            return true;
        std::fprintf(stderr, "the report channel never opened\n");
        return false;
    }

    QString visitId() const { return *wrapper.config().visitConfig.visitId; }

    /// The kit's debug lines would run through a bench's tables; the rest go to stderr.
    static void quietLog()
    {
        VistrelKit::Log::setHandler(
            [](const QString &level, const QString &source, const QString &message) {
                if (level != QStringLiteral("DEBUG"))
                    std::fprintf(stderr, "%s %s: %s\n", qPrintable(level), qPrintable(source),
                                 qPrintable(message));
            });
    }

    VistrelKit::ApplicationConfigWrapper wrapper;
    VistrelKit::HttpUtil http;
    VistrelKit::OrvaneAPI api;
    VistrelKit::InitSender initSender;
    VistrelKit::BidirectionalMessageParser parser;
    VistrelKit::XhrMessageSender sender;
};
