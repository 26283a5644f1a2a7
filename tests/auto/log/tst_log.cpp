#include "Core/Log.h"
#include "LogCapture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

class tst_Log : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lineFormat();
};

void tst_Log::lineFormat()
{
    LogCapture capture;
    Log::debug(u"a"_s);
    Log::warning(u"b"_s);
    Log::error(u"c"_s);
    // Named by the caller's file, not Log's.
    QCOMPARE(capture.lines(), (QStringList{u"[DEBUG] tst_log: a"_s, u"[WARNING] tst_log: b"_s,
                                           u"[ERROR] tst_log: c"_s}));
    // Other platforms' paths, and names with more than one dot or none.
    QCOMPARE(Log::sourceName("C:\\kit\\Vistrel\\Foo.pb.cc"), u"Foo.pb"_s);
    QCOMPARE(Log::sourceName("dir/Makefile"), u"Makefile"_s);
}

QTEST_GUILESS_MAIN(tst_Log)
#include "tst_log.moc"
