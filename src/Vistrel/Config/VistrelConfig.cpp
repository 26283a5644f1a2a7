#include "Config/VistrelConfig.h"

#include <QDateTime>
#include <QRandomGenerator>

#include <limits>

namespace VistrelKit {

void VistrelConfig::newShareIdAndStartTime()
{
    const qint64 seconds = QDateTime::currentSecsSinceEpoch();
    if (seconds > std::numeric_limits<qint64>::max() / 1000 || seconds < 0)
        qFatal("The current time does not fit the start time");
    startTime = seconds * 1000;
    // bounded() draws without modulo bias.
    shareId = QString::number(10000 + QRandomGenerator::system()->bounded(90000));
}

} // namespace VistrelKit
