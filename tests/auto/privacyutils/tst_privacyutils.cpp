#include "CaptureFixture.h"
#include "Config/IOSConfig.h"
#include "LogCapture.h"
#include "Monitoring/PrivacyUtils.h"

#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QStackedWidget>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
class SecretField : public QLineEdit
{
    Q_OBJECT
};

class PinField : public SecretField
{
    Q_OBJECT
};

// A class the app registers but does not show.
class AuditBadge : public QLabel
{
    Q_OBJECT
};
} // namespace

namespace Payments {
class IbanField : public QLineEdit
{
    Q_OBJECT
};
} // namespace Payments

namespace {
// Mean grey of a rectangle in window units, read in the screenshot: a third of the device
// pixels at a ratio of 2. The border is left out: JPEG smears edges.
int meanGrey(const QImage &screenshot, const QRect &rect)
{
    const QRect area = QRectF(QPointF(rect.topLeft()) * 2 / 3, QSizeF(rect.size()) * 2 / 3)
                           .toAlignedRect()
                           .adjusted(3, 3, -3, -3);
    return qGray(screenshot.copy(area)
                     .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     .pixel(0, 0));
}
} // namespace

class tst_PrivacyUtils : public QObject
{
    Q_OBJECT
public:
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<AuditBadge *>(); }
    void masksInTheSentScreenshot_data();
    void masksInTheSentScreenshot();
};

void tst_PrivacyUtils::masksInTheSentScreenshot_data()
{
    QTest::addColumn<QStringList>("tags");
    QTest::addColumn<QStringList>("classes");
    QTest::addColumn<QStringList>("masked");
    QTest::addColumn<QString>("warning"); // empty: none at all

    QTest::newRow("tags: reused, nested, also on a page not shown, on no widget")
        << QStringList{u"7"_s, u"9"_s, u"42"_s} << QStringList()
        << QStringList{u"secret"_s, u"twin"_s, u"nested"_s} << QString();
    QTest::newRow("tag that is not a number")
        << QStringList{u"abc"_s, u"7"_s} << QStringList() << QStringList{u"secret"_s, u"twin"_s}
        << u"[WARNING] PrivacyUtils: Cannot convert tag to integer"_s;
    QTest::newRow("classes: subclassed, nested, in a namespace, without an instance")
        << QStringList() << QStringList{u"SecretField"_s, u"Payments::IbanField"_s, u"AuditBadge"_s}
        << QStringList{u"field"_s, u"pin"_s, u"nestedField"_s, u"iban"_s} << QString();
    QTest::newRow("unknown class")
        << QStringList() << QStringList{u"NoSuchWidget"_s, u"Payments::IbanField"_s}
        << QStringList{u"iban"_s}
        << u"[WARNING] PrivacyUtils: Cannot convert class name to class"_s;
}

void tst_PrivacyUtils::masksInTheSentScreenshot()
{
    QFETCH(QStringList, tags);
    QFETCH(QStringList, classes);
    QFETCH(QStringList, masked);
    QFETCH(QString, warning);
    LogCapture capture;
    CaptureFixture f;
    f.config->config().vistrelConfig.iosConfig = IOSConfig{tags, classes};

    // Fixed places, so that the service's rectangle of a nested widget falls on empty
    // background and never on another widget.
    QWidget &window = f.screen;
    window.resize(400, 300);
    const auto place = [](QWidget *widget, QWidget *parent, const QString &name, const QRect &rect,
                          int tag = 0) {
        if (parent)
            widget->setParent(parent);
        widget->setObjectName(name);
        widget->setGeometry(rect);
        if (tag)
            widget->setProperty(PrivacyUtils::TagProperty, tag);
        if (auto *edit = qobject_cast<QLineEdit *>(widget))
            edit->setText(u"4111 1111"_s);
    };
    // Masking a private field on a page not shown would black out the page shown instead. It
    // comes first, so the tag's other widgets must still be found.
    auto *pages = new QStackedWidget(&window);
    pages->setGeometry(105, 60, 90, 30);
    pages->addWidget(new QWidget);
    auto *hidden = new QLineEdit;
    pages->addWidget(hidden);
    place(hidden, nullptr, u"hidden"_s, pages->rect(), 7);
    place(new QLineEdit, &window, u"secret"_s, {10, 10, 90, 30}, 7);
    place(new QLineEdit, &window, u"control"_s, {105, 10, 90, 30});
    place(new SecretField, &window, u"field"_s, {200, 10, 90, 30});
    place(new PinField, &window, u"pin"_s, {295, 10, 90, 30});
    place(new Payments::IbanField, &window, u"iban"_s, {10, 60, 90, 30});
    place(new QLineEdit, &window, u"twin"_s, {10, 110, 90, 30}, 7);
    auto *container = new QFrame(&window);
    container->setGeometry(200, 150, 190, 140);
    place(new QLineEdit, container, u"nested"_s, {10, 10, 80, 30}, 9);
    place(new SecretField, container, u"nestedField"_s, {10, 80, 80, 30});
    QVERIFY(f.showWindow());

    QCOMPARE(f.startMonitor(), QString());
    QVERIFY(f.waitForScreenshots(1));
    const QImage shot = CaptureFixture::decodeJpeg(f.screenshots().constFirst());
    QVERIFY(!shot.isNull());

    const auto widgets = window.findChildren<QWidget *>();
    for (QWidget *widget : widgets) {
        const QString name = widget->objectName();
        if (name.isEmpty())
            continue;
        const int grey = meanGrey(shot, QRect(widget->mapTo(&window, QPoint()), widget->size()));
        QVERIFY2(masked.contains(name) ? grey < 40 : grey > 120, qPrintable(name));
        // The service's rectangle as well: the frame's origin divided by the ratio.
        const QPoint origin = widget->mapTo(&window, widget->pos()) / 2;
        if (masked.contains(name))
            QVERIFY2(meanGrey(shot, QRect(origin, widget->size())) < 40, qPrintable(name));
    }
    if (warning.isEmpty())
        QCOMPARE(capture.matching(u"[WARNING]"_s), QStringList());
    else
        QVERIFY(capture.contains(warning));
}

QTEST_MAIN(tst_PrivacyUtils)
#include "tst_privacyutils.moc"
