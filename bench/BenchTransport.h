#pragma once

#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "BenchService.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "Platform/QuickScreen.h"
#include "Platform/Screens.h"
#include "Platform/WidgetScreen.h"

#include <QTest>

#include <cstdio>

/// The kit's real HTTP transport on a fresh visit of the bench's local service, on the screen the
/// kit really uses: widgets and Qt Quick side by side.
struct BenchTransport
{
    explicit BenchTransport(BenchService *bench)
        : platform(new VistrelKit::WidgetScreen, new VistrelKit::QuickScreen)
        , http(&wrapper)
        , api(&http, &bench->host)
        , initSender(&wrapper, &api)
        , sender(&wrapper, &initSender, &api, &http, &parser, &platform)
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

    VistrelKit::ApplicationConfigWrapper wrapper;
    VistrelKit::Screens platform;
    VistrelKit::HttpUtil http;
    VistrelKit::OrvaneAPI api;
    VistrelKit::InitSender initSender;
    VistrelKit::BidirectionalMessageParser parser;
    VistrelKit::XhrMessageSender sender;
};
