#include "CaptureFixture.h"
#include "Config/IOSConfig.h"
#include "LogCapture.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ViewMonitor.h"

#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QTest>

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
constexpr qreal ratio = 2;

const QString tagWarning = u"[WARNING] PrivacyUtils: Cannot convert tag to integer"_s;
const QString classWarning = u"[WARNING] PrivacyUtils: Cannot convert class name to class"_s;

// Mean grey of a rectangle given in window units, read in the screenshot (a third of the device
// pixels). The border is left out: JPEG smears edges.
double meanGrey(const QImage &screenshot, const QRect &rect)
{
    const qreal k = ratio / 3;
    const QRect area = QRectF(rect.x() * k, rect.y() * k, rect.width() * k, rect.height() * k)
                           .toAlignedRect()
                           .adjusted(3, 3, -3, -3);
    double sum = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            sum += qGray(screenshot.pixel(x, y));
    }
    return sum / double(area.width() * area.height());
}

QRect blackArea(const QImage &image)
{
    QRect area;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) == qRgb(0, 0, 0))
                area |= QRect(x, y, 1, 1);
        }
    }
    return area;
}
} // namespace

class tst_PrivacyUtils : public QObject
{
    Q_OBJECT
public:
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private Q_SLOTS:
    void initTestCase();
    void masksInTheSentScreenshot_data();
    void masksInTheSentScreenshot();
    void maskDividesOnlyTheOrigin_data();
    void maskDividesOnlyTheOrigin();
};

void tst_PrivacyUtils::initTestCase()
{
    qRegisterMetaType<AuditBadge *>();
}

void tst_PrivacyUtils::masksInTheSentScreenshot_data()
{
    QTest::addColumn<QStringList>("tags");
    QTest::addColumn<QStringList>("classes");
    QTest::addColumn<QStringList>("masked");
    QTest::addColumn<QStringList>("warnings");

    QTest::newRow("tag") << QStringList{u"7"_s} << QStringList() << QStringList{u"secret"_s}
                         << QStringList();
    QTest::newRow("tag after one that is not a number")
        << QStringList{u"abc"_s, u"7"_s} << QStringList() << QStringList{u"secret"_s}
        << QStringList{tagWarning};
    QTest::newRow("tag nested in a container")
        << QStringList{u"9"_s} << QStringList() << QStringList{u"nested"_s} << QStringList();
    QTest::newRow("tag no widget carries")
        << QStringList{u"42"_s} << QStringList() << QStringList() << QStringList();
    QTest::newRow("class, its subclass and a nested one")
        << QStringList() << QStringList{u"SecretField"_s}
        << QStringList{u"field"_s, u"pin"_s, u"nestedField"_s} << QStringList();
    QTest::newRow("class in a namespace") << QStringList() << QStringList{u"Payments::IbanField"_s}
                                          << QStringList{u"iban"_s} << QStringList();
    QTest::newRow("unknown class, then a known one")
        << QStringList() << QStringList{u"NoSuchWidget"_s, u"Payments::IbanField"_s}
        << QStringList{u"iban"_s} << QStringList{classWarning};
    QTest::newRow("known class without an instance")
        << QStringList() << QStringList{u"AuditBadge"_s} << QStringList() << QStringList();
    // A hidden widget (a page not shown) is not in the image: masking it would black out
    // whatever is shown in its place.
    QTest::newRow("tag on a hidden widget")
        << QStringList{u"11"_s} << QStringList() << QStringList() << QStringList();
    QTest::newRow("tags and classes together")
        << QStringList{u"7"_s, u"9"_s} << QStringList{u"Payments::IbanField"_s}
        << QStringList{u"secret"_s, u"nested"_s, u"iban"_s} << QStringList();
}

void tst_PrivacyUtils::masksInTheSentScreenshot()
{
    QFETCH(QStringList, tags);
    QFETCH(QStringList, classes);
    QFETCH(QStringList, masked);
    QFETCH(QStringList, warnings);
    LogCapture capture;
    CaptureFixture f;
    f.config->config().vistrelConfig.iosConfig = IOSConfig{tags, classes};

    // Fixed places, so that the service's rectangle of the nested widgets falls on empty
    // background and never on another widget.
    QWidget &window = f.screen;
    window.resize(400, 300);
    const auto place = [](QWidget *widget, QWidget *parent, const QString &name,
                          const QRect &geometry) {
        widget->setParent(parent);
        widget->setObjectName(name);
        widget->setGeometry(geometry);
        if (auto *edit = qobject_cast<QLineEdit *>(widget))
            edit->setText(u"4111 1111"_s);
    };
    auto *secret = new QLineEdit;
    secret->setProperty(PrivacyUtils::TagProperty, 7);
    place(secret, &window, u"secret"_s, {10, 10, 90, 30});
    place(new QLineEdit, &window, u"control"_s, {105, 10, 90, 30});
    place(new SecretField, &window, u"field"_s, {200, 10, 90, 30});
    place(new PinField, &window, u"pin"_s, {295, 10, 90, 30});
    place(new Payments::IbanField, &window, u"iban"_s, {10, 60, 90, 30});
    auto *hidden = new QLineEdit;
    hidden->setProperty(PrivacyUtils::TagProperty, 11);
    place(hidden, &window, u"hidden"_s, {105, 60, 90, 30});
    hidden->hide();
    auto *container = new QFrame(&window);
    container->setGeometry(200, 150, 190, 140);
    auto *nested = new QLineEdit;
    nested->setProperty(PrivacyUtils::TagProperty, 9);
    place(nested, container, u"nested"_s, {10, 10, 80, 30});
    place(new SecretField, container, u"nestedField"_s, {10, 80, 80, 30});
    QVERIFY(f.showWindow());

    ViewMonitor monitor(f.config.get());
    monitor.start(&f.sender, [](const std::optional<Error> &error) { QVERIFY(!error); });
    QVERIFY(f.waitForScreenshots(1));
    const QImage shot = CaptureFixture::decodeJpeg(f.screenshots().constFirst());
    QVERIFY(!shot.isNull());

    const auto widgets = window.findChildren<QWidget *>();
    for (QWidget *widget : widgets) {
        if (widget->objectName().isEmpty())
            continue;
        const QRect onScreen(widget->mapTo(&window, QPoint(0, 0)), widget->size());
        const double grey = meanGrey(shot, onScreen);
        if (!masked.contains(widget->objectName())) {
            QVERIFY2(grey > 120, qPrintable(widget->objectName()));
            continue;
        }
        QVERIFY2(grey < 40, qPrintable(widget->objectName()));
        // The service's rectangle: the geometry taken from the widget's own coordinates, its
        // origin divided by the ratio.
        const QPointF origin = QPointF(widget->mapTo(&window, widget->pos())) / ratio;
        const double serviceGrey = meanGrey(shot, QRect(origin.toPoint(), widget->size()));
        QVERIFY2(serviceGrey < 40, qPrintable(widget->objectName()));
    }

    for (const QString &warning : std::as_const(warnings))
        QVERIFY2(capture.contains(warning), qPrintable(warning));
    if (warnings.isEmpty())
        QCOMPARE(capture.matching(u"[WARNING]"_s), QStringList());
}

void tst_PrivacyUtils::maskDividesOnlyTheOrigin_data()
{
    QTest::addColumn<qreal>("imageRatio");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<QRect>("painted"); // in the image's pixels

    QTest::newRow("2x") << 2.0 << QRectF(100, 200, 50, 40) << QRect(100, 200, 100, 80);
    QTest::newRow("1x") << 1.0 << QRectF(100, 200, 50, 40) << QRect(100, 200, 50, 40);
    QTest::newRow("3x") << 3.0 << QRectF(90, 60, 20, 10) << QRect(90, 60, 60, 30);
}

void tst_PrivacyUtils::maskDividesOnlyTheOrigin()
{
    QFETCH(qreal, imageRatio);
    QFETCH(QRectF, rect);
    QFETCH(QRect, painted);

    QImage image(400, 400, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    image.setDevicePixelRatio(imageRatio);
    const QImage result = PrivacyUtils::mask(image, rect);
    QCOMPARE(result.size(), image.size());
    QCOMPARE(result.devicePixelRatio(), imageRatio);
    QCOMPARE(blackArea(result), painted);
    QCOMPARE(blackArea(image), QRect()); // a copy is painted
}

QTEST_MAIN(tst_PrivacyUtils)
#include "tst_privacyutils.moc"
