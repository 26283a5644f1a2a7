// The init reply (POST "api/in/im/c"): decoded as the session's start decodes it, then its
// private views are masked on a small window, as each screenshot does with them.
#include "FuzzEnvironment.h"

#include "Api/MonitoringConfigDTO.h"
#include "Api/OrvaneAPI.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ScreenCapture.h"

#include <QImage>
#include <QLineEdit>
#include <QWidget>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
QWidget *window;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    // A screen with a tagged field and a field found by its class.
    window = new QWidget;
    window->resize(64, 96);
    auto *tagged = new QLineEdit(window);
    tagged->setGeometry(4, 4, 40, 16);
    tagged->setProperty(PrivacyUtils::TagProperty, 7);
    auto *plain = new QLineEdit(window);
    plain->setGeometry(4, 40, 40, 16);
    window->show();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto reply = OrvaneAPI::decode<MonitoringConfigDTO>(FuzzEnvironment::bytes(data, size),
                                                              u"MonitoringConfigDTO"_s);
    if (!reply.isOk()) {
        (void)reply.error().description();
        return 0;
    }
    // The record's own encoding reads back to the same record.
    const Json encoded = reply.value().toJson();
    const auto again = MonitoringConfigDTO::fromJson(encoded);
    if (!again.isOk() || again.value().toJson() != encoded)
        qFatal("The init reply does not read back from its own encoding");

    // The service's lists masking a screenshot of the screen.
    QSet<QString> warned;
    (void)ScreenCapture::capture(window, reply.value().ios, &warned);
    return 0;
}
