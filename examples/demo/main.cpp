// The demo host app: a few screens a service centre's agent can watch and steer. What is not UI
// (the command line, the embedded local service, the kit's config) is DemoHost's, shared with the
// QML demo.
#include "CardNumberEdit.h"
#include "DemoHost.h"
#include "MainWindow.h"
#include "SessionPanel.h"
#include "SignInPage.h"

#include <QApplication>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    DemoHost::prepareEnvironment();
    QApplication app(argc, argv);
    // The kit keeps the device's identifier under these names.
    QApplication::setApplicationName(u"vistrel-demo"_s);
    QApplication::setOrganizationName(u"Vistrel"_s);

    DemoHost host;
    if (!host.setUp(u"Vistrel demo host app."_s, QString::fromLatin1(SessionPanel::TenantId),
                    DemoHost::monitoringConfig(
                        SignInPage::PasswordTag,
                        QString::fromLatin1(CardNumberEdit::staticMetaObject.className()))))
        return 1;

    MainWindow window;
    window.show();

    host.start();
    return app.exec();
}
