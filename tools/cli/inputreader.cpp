#include "inputreader.h"

#include <QSocketNotifier>

#include <cerrno>
#include <unistd.h>

InputReader::InputReader(QObject* parent)
    : QObject(parent)
{
    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &InputReader::readInput);
}

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
