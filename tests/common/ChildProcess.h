#pragma once

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

#include <sys/resource.h>

/// Runs the current test binary again for one named case, for what must happen in a process of
/// its own: something that stops the process on purpose, or state that only a fresh process has.
/// The case travels in the environment; the suite's initMain() reads it with currentCase() and
/// runs it before QtTest takes over, so the child never runs the suite's test functions.
namespace ChildProcess {

inline constexpr char EnvironmentVariable[] = "VISTREL_TEST_CHILD_CASE";

struct Outcome
{
    bool finished = false;
    QProcess::ExitStatus exitStatus = QProcess::NormalExit;
    int exitCode = 0;
    QByteArray standardOutput;
    QByteArray standardError;

    /// Stopped by a signal, as qFatal() does through abort().
    bool crashed() const { return finished && exitStatus == QProcess::CrashExit; }
};

/// The case this process was started for, or an empty string in the suite itself.
inline QString currentCase()
{
    return qEnvironmentVariable(EnvironmentVariable);
}

/// Runs the case in a child of this test binary and waits for it to end.
inline Outcome run(const QString &caseName,
                   QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(),
                   int timeoutMs = 120000)
{
    environment.insert(QString::fromLatin1(EnvironmentVariable), caseName);
    QProcess process;
    process.setProcessEnvironment(environment);
    // Intended crashes should not leave core files behind.
    process.setChildProcessModifier([] {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
    });
    process.start(QCoreApplication::applicationFilePath(), {});
    Outcome outcome;
    outcome.finished = process.waitForFinished(timeoutMs);
    if (!outcome.finished) {
        process.kill();
        process.waitForFinished();
    }
    outcome.exitStatus = process.exitStatus();
    outcome.exitCode = process.exitCode();
    outcome.standardOutput = process.readAllStandardOutput();
    outcome.standardError = process.readAllStandardError();
    return outcome;
}

} // namespace ChildProcess
