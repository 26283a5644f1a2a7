#pragma once

#include "Api/HttpUtil.h"
#include "Api/InitSender.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"
#include "Platform/WidgetScreen.h"
#include "TestConfig.h"

#include <QWidget>

#include <memory>

/// A local service, a kit configured for a fresh visit against it, the collaborators a transport
/// needs, the widgets screen, and a shown window whose class names the screen.
struct TransportFixture
{
    TransportFixture()
    {
        service.start();
        TestConfig::use(service.hostAndPort());
        config = std::make_unique<VistrelKit::ApplicationConfigWrapper>();
        config->config().tenantId = QStringLiteral("tenant-1");
        config->config().token = QStringLiteral("token-1");
        config->newVisit(std::nullopt);
        config->config().vistrelConfig.newShareIdAndStartTime();
        config->config().vistrelConfig.storageType = QStringLiteral("l");
        http = std::make_unique<VistrelKit::HttpUtil>(config.get());
        api = std::make_unique<VistrelKit::OrvaneAPI>(http.get(), TestConfig::serviceHost());
        initSender = std::make_unique<VistrelKit::InitSender>(config.get(), api.get());
        parser = std::make_unique<VistrelKit::BidirectionalMessageParser>();
        // Transport suites see what arrived without the device acting on it.
        QObject::connect(parser.get(), &VistrelKit::BidirectionalMessageParser::messageReceived,
                         [this](const VistrelKit::BidirectionalMessage &m) { commands.append(m); });
        window.setObjectName(QStringLiteral("screen"));
        window.resize(320, 240);
        window.show();
    }

    QString visitId() const { return *config->config().visitConfig.visitId; }
    qint64 startTime() const { return *config->config().vistrelConfig.startTime; }

    VistrelService::LocalService service;
    VistrelKit::WidgetScreen platform;
    std::unique_ptr<VistrelKit::ApplicationConfigWrapper> config;
    std::unique_ptr<VistrelKit::HttpUtil> http;
    std::unique_ptr<VistrelKit::OrvaneAPI> api;
    std::unique_ptr<VistrelKit::InitSender> initSender;
    std::unique_ptr<VistrelKit::BidirectionalMessageParser> parser;
    QList<VistrelKit::BidirectionalMessage> commands;
    QWidget window;
};
