#include "Network/MessageSender.h"

#include <QDateTime>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

// Report builders and their wire bytes, checked against bytes worked out by hand from the
// protocol buffer encoding: tag = (field << 3) | wire type; varints little-endian base 128.
class tst_MessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void wireBytes_data();
    void wireBytes();
    void reportTime_data();
    void reportTime();
    void userTagFields();
    void emptyListSerialisesToNothing();
};

namespace {
QByteArray listBytes(const ProtoMessage &message)
{
    ProtoMessageList list;
    *list.add_messages() = message;
    std::string bytes;
    list.SerializePartialToString(&bytes);
    return QByteArray(bytes.data(), qsizetype(bytes.size()));
}

// A start time that makes the report time 5000 ms, unless the clock turns to the next second
// in between (then 6000); the test reads which one it got.
qint64 startTimeFiveSecondsAgo()
{
    return QDateTime::currentSecsSinceEpoch() * 1000 - 5000;
}

QByteArray timeField(quint64 time)
{
    // 5000 = 0b100111_0001000 -> 0x88 0x27; 6000 = 0b101110_1110000 -> 0xF0 0x2E
    return time == 5000 ? "\x08\x88\x27"_ba : "\x08\xF0\x2E"_ba;
}
} // namespace

void tst_MessageSender::wireBytes_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QByteArray>("body"); // the report's fields after time
    QTest::newRow("ping") << 0 << QByteArray();
    // clickEvent (field 4, length-delimited 0x22), 10 bytes: x float 0x0D 30.0f, y float 0x15 60.0f
    QTest::newRow("click") << 1 << "\x22\x0A\x0D\x00\x00\xF0\x41\x15\x00\x00\x70\x42"_ba;
    // pageChange (field 2, 0x12), "Main"
    QTest::newRow("page change") << 2 << "\x12\x04Main"_ba;
    // screenshotEvent (field 3, 0x1A) holding image (field 1, 0x0A) of 3 bytes
    QTest::newRow("screenshot") << 3 << "\x1A\x05\x0A\x03\xFF\xD8\xFF"_ba;
    // tag (field 5, 0x2A)
    QTest::newRow("tag") << 4 << "\x2A\x03vip"_ba;
}

void tst_MessageSender::wireBytes()
{
    QFETCH(int, kind);
    QFETCH(QByteArray, body);
    const qint64 startTime = startTimeFiveSecondsAgo();
    ProtoMessage report;
    switch (kind) {
    case 0:
        report = MessageSender::pingReport(startTime);
        break;
    case 1:
        report = MessageSender::clickReport(30.0, 60.0, startTime);
        break;
    case 2:
        report = MessageSender::pageChangeReport(u"Main"_s, startTime);
        break;
    case 3:
        report = MessageSender::screenshotReport("\xFF\xD8\xFF"_ba, startTime);
        break;
    default:
        report = MessageSender::tagReport(u"vip"_s, startTime);
        break;
    }
    QVERIFY(report.time() == 5000 || report.time() == 6000);
    const QByteArray message = timeField(report.time()) + body;
    const QByteArray expected = "\x0A"_ba + char(message.size()) + message;
    QCOMPARE(listBytes(report).toHex(' '), expected.toHex(' '));
}

void tst_MessageSender::reportTime_data()
{
    QTest::addColumn<qint64>("startTime");
    QTest::newRow("absent start time") << qint64(0);
    QTest::newRow("a start a minute ago") << (QDateTime::currentSecsSinceEpoch() - 60) * 1000;
}

void tst_MessageSender::reportTime()
{
    QFETCH(qint64, startTime);
    const qint64 before = QDateTime::currentSecsSinceEpoch() * 1000;
    const quint64 time = MessageSender::reportTime(startTime);
    const qint64 after = QDateTime::currentSecsSinceEpoch() * 1000;
    // Millisecond units at one-second resolution.
    QCOMPARE(time % 1000, 0u);
    QVERIFY(qint64(time) >= before - startTime);
    QVERIFY(qint64(time) <= after - startTime);
}

void tst_MessageSender::userTagFields()
{
    ActiveUser user;
    user.id = u"42"_s;
    user.firstname = u"Ada"_s;
    user.email = u"ada@example.com"_s;
    user.tags = QStringList{u"vip"_s, u"beta"_s};
    user.assignedUser = u"agent-7"_s;
    const ProtoMessage report = MessageSender::userTagReport(user, 0);
    QCOMPARE(report.usertag_size(), 1);
    const ProtoUserTag &tag = report.usertag(0);
    QCOMPARE(tag.id(), "42");
    QCOMPARE(tag.firstname(), "Ada");
    QVERIFY(!tag.has_lastname()); // absent stays absent, not ""
    QCOMPARE(tag.email(), "ada@example.com");
    QCOMPARE(tag.label_size(), 2);
    QCOMPARE(tag.label(1), "beta");
    QCOMPARE(tag.assigneduser(), "agent-7");
    QVERIFY(!tag.has_mobiledevicetoken());
    QVERIFY(report.has_time());
    QVERIFY(!report.has_pagechange() && !report.has_tag());
}

void tst_MessageSender::emptyListSerialisesToNothing()
{
    ProtoMessageList list;
    std::string bytes;
    QVERIFY(list.SerializePartialToString(&bytes));
    QVERIFY(bytes.empty());
}

QTEST_GUILESS_MAIN(tst_MessageSender)
#include "tst_messagesender.moc"
