#pragma once

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>

#include <algorithm>
#include <cstdlib>

#include <sys/resource.h>

/// Runs the current test binary again for one named case, for what must happen in a process of
/// its own: something that stops the process on purpose, or state that only a fresh process has.
/// The case travels in the environment; the suite's initMain() runs it with runCaseAndExit()
/// before QtTest takes over.
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
    /// Ran to its end and exited with 0.
    bool succeeded() const { return finished && !crashed() && exitCode == 0; }
};

/// The case this process was started for, or an empty string in the suite itself.
inline QString currentCase()
{
    return qEnvironmentVariable(EnvironmentVariable);
}

/// For a suite's initMain(): when this process was started for a case, runs it and exits, so the
/// child never runs the test functions. The case builds its application from argc and argv, whose
/// program name is the suite's (it names the application's data folders).
template<size_t N>
inline void runCaseAndExit(const char (&program)[N],
                           void (*runCase)(const QString &name, int &argc, char **argv))
{
    const QString name = currentCase();
    if (name.isEmpty())
        return;
    static char arg0[N];
    std::copy_n(program, N, arg0);
    static char *argv[] = {arg0, nullptr};
    static int argc = 1;
    runCase(name, argc, argv);
    std::exit(0);
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
