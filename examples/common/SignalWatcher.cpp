#include "SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
// Written by the handler, read by the event loop; -1 while no watcher exists.
int s_sockets[2] = {-1, -1};
} // namespace

SignalWatcher::SignalWatcher(QObject *parent)
    : QObject(parent)
{
    Q_ASSERT(s_sockets[0] == -1);
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_sockets) != 0) {
        s_sockets[0] = s_sockets[1] = -1;
        return;
    }
    m_notifier = new QSocketNotifier(s_sockets[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readSignal);
}

SignalWatcher::~SignalWatcher()
{
    for (int signalNumber : std::as_const(m_watched))
        std::signal(signalNumber, SIG_DFL);
    if (s_sockets[0] != -1) {
        delete m_notifier;
        ::close(s_sockets[0]);
        ::close(s_sockets[1]);
        s_sockets[0] = s_sockets[1] = -1;
    }
}

bool SignalWatcher::watch(int signalNumber)
{
    if (!m_notifier)
        return false;
    struct sigaction action = {};
    action.sa_handler = &SignalWatcher::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(signalNumber, &action, nullptr) != 0)
        return false;
    m_watched.append(signalNumber);
    return true;
}

void SignalWatcher::handle(int signalNumber)
{
    const char byte = char(signalNumber);
    // Nothing to do when the pipe is full: a signal is already on its way.
    [[maybe_unused]] const ssize_t written = ::write(s_sockets[0], &byte, 1);
}

void SignalWatcher::readSignal()
{
    char byte = 0;
    if (::read(s_sockets[1], &byte, 1) == 1)
        Q_EMIT received(int(byte));
}
