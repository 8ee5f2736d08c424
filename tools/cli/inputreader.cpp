#include "inputreader.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

void onUnixSignal(int)
{
    const char byte = 1;
    // Nothing else is safe in a signal handler; the notifier does the rest.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

} // namespace

InputReader::InputReader(QObject* parent)
    : QObject(parent)
{
    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &InputReader::readInput);

    if (signalPipe[0] < 0 && ::pipe(signalPipe) == 0) {
        ::fcntl(signalPipe[1], F_SETFL, O_NONBLOCK);
        struct sigaction action = {};
        action.sa_handler = onUnixSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, nullptr);
        ::sigaction(SIGTERM, &action, nullptr);
    }
    if (signalPipe[0] >= 0) {
        m_signals = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
        connect(m_signals, &QSocketNotifier::activated, this, &InputReader::readSignalPipe);
    }
}

InputReader::~InputReader() = default;

void InputReader::readInput()
{
    char buffer[4096];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (n <= 0) {
        m_input->setEnabled(false);
        if (!m_pending.isEmpty())
            Q_EMIT lineRead(QString::fromUtf8(m_pending));
        m_pending.clear();
        Q_EMIT endOfInput();
        return;
    }
    m_pending.append(buffer, int(n));
    int newline;
    while ((newline = m_pending.indexOf('\n')) >= 0) {
        QByteArray line = m_pending.left(newline);
        m_pending.remove(0, newline + 1);
        if (line.endsWith('\r'))
            line.chop(1);
        Q_EMIT lineRead(QString::fromUtf8(line));
    }
}

void InputReader::readSignalPipe()
{
    char byte;
    [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &byte, 1);
    Q_EMIT interrupted();
}
