#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;

/// \brief Reads standard input line by line without blocking the event loop,
/// whether it is a terminal, a pipe or a file.
class InputReader : public QObject
{
    Q_OBJECT
public:
    explicit InputReader(QObject* parent = nullptr);

Q_SIGNALS:
    void lineRead(const QString& line);
    /// Standard input was closed; raised once, after the last line.
    void endOfInput();

private:
    void readInput();

    QSocketNotifier* m_input = nullptr;
    QByteArray m_pending;
};
