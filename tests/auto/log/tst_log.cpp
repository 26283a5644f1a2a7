#include "Core/Log.h"
#include "LogCapture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

class tst_Log : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sourceName_data();
    void sourceName();
    void lineFormat_data();
    void lineFormat();
};

void tst_Log::sourceName_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("expected");
    QTest::newRow("unix path") << "/src/Vistrel/Api/HttpUtil.cpp"_ba << u"HttpUtil"_s;
    QTest::newRow("windows path") << "C:\\kit\\Vistrel\\Vistrel.cpp"_ba << u"Vistrel"_s;
    QTest::newRow("bare name") << "OrvaneVistrel.cpp"_ba << u"OrvaneVistrel"_s;
    QTest::newRow("last extension only") << "a/b/Foo.pb.cc"_ba << u"Foo.pb"_s;
    QTest::newRow("no extension") << "dir/Makefile"_ba << u"Makefile"_s;
}

void tst_Log::sourceName()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, expected);
    QCOMPARE(Log::sourceName(file.constData()), expected);
}

void tst_Log::lineFormat_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("expected");
    QTest::newRow("debug") << 0 << u"[DEBUG] tst_log: hello"_s;
    QTest::newRow("warning") << 1 << u"[WARNING] tst_log: hello"_s;
    QTest::newRow("error") << 2 << u"[ERROR] tst_log: hello"_s;
}

void tst_Log::lineFormat()
{
    QFETCH(int, level);
    QFETCH(QString, expected);
    LogCapture capture;
    switch (level) {
    case 0:
        Log::debug(u"hello"_s);
        break;
    case 1:
        Log::warning(u"hello"_s);
        break;
    default:
        Log::error(u"hello"_s);
        break;
    }
    // The source is this file, named by the caller's location, not Log's.
    QCOMPARE(capture.lines(), QStringList{expected});
}

QTEST_GUILESS_MAIN(tst_Log)
#include "tst_log.moc"
