#include "stopsignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int wakePipe[2] = {-1, -1};

void onStopSignal(int)
{
    const char byte = 1;
    // Nothing more is safe in a signal handler; the notifier does the rest.
    [[maybe_unused]] const ssize_t written = ::write(wakePipe[1], &byte, 1);
}

} // namespace

StopSignals::StopSignals(QObject* parent)
    : QObject(parent)
{
    if (wakePipe[0] < 0) {
        if (::pipe(wakePipe) != 0)
            return;
        ::fcntl(wakePipe[1], F_SETFL, O_NONBLOCK);
        struct sigaction action = {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, nullptr);
        ::sigaction(SIGTERM, &action, nullptr);
    }
    m_notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte;
        [[maybe_unused]] const ssize_t n = ::read(wakePipe[0], &byte, 1);
        Q_EMIT stopRequested();
    });
}
