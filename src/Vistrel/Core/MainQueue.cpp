#include "Core/MainQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace VistrelKit {

void MainQueue::async(std::function<void()> work)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        qFatal("Vistrel needs a QGuiApplication or QApplication to run its work");
    QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
}

} // namespace VistrelKit
