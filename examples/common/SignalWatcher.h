#pragma once

#include <QObject>

class QSocketNotifier;

/// Turns Unix signals (SIGINT, SIGTERM) into a Qt signal on the GUI thread. A signal handler may
/// do almost nothing, so it only writes the signal's number into a socket pair that the event
/// loop watches. One instance per process.
class SignalWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SignalWatcher(QObject *parent = nullptr);
    ~SignalWatcher() override;

    /// Delivers signalNumber through received() from now on. Returns false when it cannot.
    bool watch(int signalNumber);

Q_SIGNALS:
    void received(int signalNumber);

private:
    static void handle(int signalNumber);
    void readSignal();

    QList<int> m_watched;
    QSocketNotifier *m_notifier = nullptr;
};
