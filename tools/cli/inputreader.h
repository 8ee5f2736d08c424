#pragma once

#include <QObject>
#include <QString>

class QSocketNotifier;

/// \brief Reads standard input line by line without blocking the event loop
/// (terminal, pipe or file alike), and turns SIGINT and SIGTERM into an
/// orderly request to stop.
class InputReader : public QObject
{
    Q_OBJECT
public:
    explicit InputReader(QObject* parent = nullptr);
    ~InputReader() override;

Q_SIGNALS:
    void lineRead(const QString& line);
    /// Standard input was closed; raised once, after the last line.
    void endOfInput();
    /// SIGINT or SIGTERM arrived.
    void interrupted();

private:
    void readInput();
    void readSignalPipe();

    QSocketNotifier* m_input = nullptr;
    QSocketNotifier* m_signals = nullptr;
    QByteArray m_pending;
};
