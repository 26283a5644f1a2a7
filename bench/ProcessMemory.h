#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTest>

/// Resident memory of this process and all its children (Qt WebEngine's browser side lives in the
/// process, its renderers and GPU process are children).
namespace ProcessMemory {

/// Resident memory in KiB of a process and, recursively, of its children.
inline qint64 residentKiB(const QString &pid)
{
    qint64 total = 0;
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("VmRSS:"))
                total += line.mid(6).trimmed().split(' ').first().toLongLong();
        }
    }
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile children(QStringLiteral("/proc/%1/task/%2/children").arg(pid, task));
        if (!children.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &child : children.readAll().split(' ')) {
            if (!child.trimmed().isEmpty())
                total += residentKiB(QString::fromLatin1(child.trimmed()));
        }
    }
    return total;
}

/// This process and its children, in MiB, after freed memory and exiting renderers settled.
inline qint64 residentMiB()
{
    QTest::qWait(1500);
    return residentKiB(QString::number(QCoreApplication::applicationPid())) / 1024;
}

} // namespace ProcessMemory
