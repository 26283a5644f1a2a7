#include "Network/MessageSender.h"

#include <QDateTime>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

Q_DECLARE_METATYPE(VistrelKit::ProtoMessage)

// Report wire bytes, checked against bytes worked out by hand from the protocol buffer encoding:
// tag = (field << 3) | wire type; varints little-endian base 128.
class tst_MessageSender : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void wireBytes_data();
    void wireBytes();
};

void tst_MessageSender::wireBytes_data()
{
    QTest::addColumn<ProtoMessage>("report");
    QTest::addColumn<QByteArray>("body"); // the report's fields after time

    // The report time is 5000 ms, or 6000 if the clock turns to the next second in between.
    const qint64 start = QDateTime::currentSecsSinceEpoch() * 1000 - 5000;
    QTest::newRow("ping") << MessageSender::pingReport(start) << QByteArray();
    // clickEvent (field 4, length-delimited 0x22), 10 bytes: x float 0x0D 30.0f, y float 0x15 60.0f
    QTest::newRow("click") << MessageSender::clickReport(30.0, 60.0, start)
                           << "\x22\x0A\x0D\x00\x00\xF0\x41\x15\x00\x00\x70\x42"_ba;
    // pageChange (field 2, 0x12)
    QTest::newRow("page change") << MessageSender::pageChangeReport(u"Main"_s, start)
                                 << "\x12\x04Main"_ba;
    // screenshotEvent (field 3, 0x1A) holding image (field 1, 0x0A) of 3 bytes
    QTest::newRow("screenshot") << MessageSender::screenshotReport("\xFF\xD8\xFF"_ba, start)
                                << "\x1A\x05\x0A\x03\xFF\xD8\xFF"_ba;
}

void tst_MessageSender::wireBytes()
{
    QFETCH(ProtoMessage, report);
    QFETCH(QByteArray, body);
    QVERIFY(report.time() == 5000 || report.time() == 6000);
    // time (field 1, varint 0x08): 5000 -> 0x88 0x27, 6000 -> 0xF0 0x2E
    const QByteArray time = report.time() == 5000 ? "\x08\x88\x27"_ba : "\x08\xF0\x2E"_ba;
    const QByteArray message = time + body;
    // The list's messages field (1, length-delimited 0x0A).
    const QByteArray expected = "\x0A"_ba + char(message.size()) + message;

    ProtoMessageList list;
    *list.add_messages() = report;
    std::string bytes;
    QVERIFY(list.SerializePartialToString(&bytes));
    QCOMPARE(QByteArray::fromStdString(bytes).toHex(' '), expected.toHex(' '));
}

QTEST_GUILESS_MAIN(tst_MessageSender)
#include "tst_messagesender.moc"
